#include "client/Decode.h"

#include "client/Parse.h"

#include <bit>
#include <nlohmann/json.hpp>

using nlohmann::ordered_json;

namespace
{
constexpr size_t TypeSize(FIELD_TYPE enType)
{
    switch (enType) {
    case U16:
    case I16:
        return 2;
    case U32:
    case I32:
    case F32:
        return 4;
    case U64:
        return 8;
    default:
        return 1;
    }
}

ordered_json Scalar(FIELD_TYPE enType, ByteView bytes, size_t szOffset)
{
    switch (enType) {
    case U16:
        return LoadLe<uint16_t>(bytes, szOffset);
    case I16:
        return static_cast<int16_t>(LoadLe<uint16_t>(bytes, szOffset));
    case U32:
        return LoadLe<uint32_t>(bytes, szOffset);
    case I32:
        return static_cast<int32_t>(LoadLe<uint32_t>(bytes, szOffset));
    case U64:
        return LoadLe<uint64_t>(bytes, szOffset);
    case F32:
        return std::bit_cast<float>(LoadLe<uint32_t>(bytes, szOffset));
    default:
        return LoadLe<uint8_t>(bytes, szOffset);
    }
}

ordered_json FieldValue(const FIELD_ROW& stField, ByteView bytes)
{
    const ByteView area = Slice(bytes, stField.usOffset, stField.usCount);
    if (stField.enType == TEXT)
        return FixedText(area);
    if (stField.enType == BYTES)
        return HexDigits(area);
    if (stField.usCount == 1)
        return Scalar(stField.enType, bytes, stField.usOffset);
    ordered_json list = ordered_json::array();
    for (size_t i = 0; i < stField.usCount; ++i)
        list.push_back(Scalar(stField.enType, bytes, stField.usOffset + i * TypeSize(stField.enType)));
    return list;
}

size_t ItemCount(const GROUP_ROW& stGroup, ByteView bytes)
{
    if (stGroup.usFixedCount != 0)
        return stGroup.usFixedCount;
    return Scalar(stGroup.enCountType, bytes, stGroup.usCountOffset).get<size_t>();
}

/// Decodes one record at the head of the bytes and steps behind it; bytes that are missing clear bWhole.
ordered_json DecodeNext(const RECORD_LAYOUT& stLayout, ByteView& bytes, bool& bWhole)
{
    bWhole = bWhole && bytes.size() >= stLayout.usSize;
    const ByteView fixed = Slice(bytes, 0, stLayout.usSize);
    ordered_json record = ordered_json::object();
    for (const FIELD_ROW& stField : stLayout.fields)
        record[stField.pszName] = FieldValue(stField, fixed);
    bytes = Slice(bytes, stLayout.usSize);
    for (const GROUP_ROW& stGroup : stLayout.groups) {
        ordered_json items = ordered_json::array();
        const size_t szCount = ItemCount(stGroup, fixed);
        while (items.size() < szCount && !bytes.empty())
            items.push_back(DecodeNext(*stGroup.pstItem, bytes, bWhole));
        bWhole = bWhole && items.size() == szCount;
        record[stGroup.pszName] = std::move(items);
    }
    return record;
}
} // namespace

ordered_json Decode(const RECORD_LAYOUT& stLayout, ByteView bytes)
{
    bool bWhole = true;
    ordered_json record = DecodeNext(stLayout, bytes, bWhole);
    if (!bWhole)
        record["truncated"] = true;
    return record;
}
