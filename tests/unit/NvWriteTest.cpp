#include "data/NvWrite.h"

#include "support/TestBytes.h"

#include <gtest/gtest.h>

TEST(NvWrite, TheDescriptorHasTwentyBytes)
{
    const Bytes block = Hex("01 02 00 00  01 00 00 00  06 00 00 00  01 02 03 0A  78 56 34 12");
    NV_WRITE_STRU stNv;
    CByteReader reader(block);
    NvWriteFields(reader, stNv);
    EXPECT_TRUE(reader.Ok());
    EXPECT_EQ(reader.Left(), 0u);
    EXPECT_EQ(stNv.ulNvId, 0x201u);
    EXPECT_EQ(stNv.ulItemCount, 1u);
    EXPECT_EQ(stNv.ulItemOffset, 6u);
    EXPECT_EQ(stNv.ucBitMode, 1);
    EXPECT_EQ(stNv.ucFieldSize, 2);
    EXPECT_EQ(stNv.ucBitLow, 3);
    EXPECT_EQ(stNv.ucBitHigh, 10);
    EXPECT_EQ(stNv.ulItemValue, 0x12345678u);
    Bytes again = Fill(NV_WRITE_STRU::SIZE, 0xEE);
    CByteWriter writer(again);
    NvWriteFields(writer, stNv);
    EXPECT_EQ(again, block);
}

TEST(NvWrite, GetBitsSet)
{
    const struct
    {
        unsigned int ulSize, ulLow, ulHigh, ulMask;
    } c_astCase[] = {
        {1, 2, 5, 0x3C},
        {4, 0, 31, 0xFFFFFFFF},
        {2, 9, 3, 0x8}, // low above high leaves the bit high alone
        {1, 0, 0, 0x1},
        {1, 3, 200, 0xF8}, // clipped to bit 7
        {1, 9, 12, 0x80},  // both clipped
        {2, 8, 255, 0xFF00},
        {4, 31, 31, 0x80000000},
        {4, 255, 255, 0x80000000},
        {0, 0, 7, 0},
        {3, 0, 7, 0},
        {8, 0, 7, 0},
    };
    for (const auto& st : c_astCase)
        EXPECT_EQ(GetBitsSet(st.ulSize, st.ulLow, st.ulHigh), st.ulMask)
            << st.ulSize << " " << st.ulLow << " " << st.ulHigh;
}

TEST(NvWrite, MemcpyCopiesEveryLengthAndRefusesNull)
{
    const Bytes src = Hex("01 02 03 04 05 06 07 08 09");
    for (unsigned int ulLen = 0; ulLen <= 9; ++ulLen) {
        Bytes dst = Fill(9, 0xEE);
        EXPECT_EQ(SOP_Memcpy(dst.data(), src.data(), ulLen), dst.data());
        EXPECT_EQ(dst, Join(Bytes(Slice(ByteView(src), 0, ulLen)), Fill(9 - ulLen, 0xEE))) << ulLen;
    }
    Bytes dst = Fill(4);
    EXPECT_EQ(SOP_Memcpy(nullptr, src.data(), 4), nullptr);
    EXPECT_EQ(SOP_Memcpy(dst.data(), nullptr, 4), nullptr);
}

namespace
{
NV_WRITE_STRU BytesAt(uint32_t ulOffset, uint8_t ucSize, uint32_t ulValue)
{
    return {7, 1, ulOffset, 0, ucSize, 0, 0, ulValue};
}
NV_WRITE_STRU BitsAt(uint32_t ulOffset, uint8_t ucSize, uint8_t ucLow, uint8_t ucHigh, uint32_t ulValue)
{
    return {7, 1, ulOffset, 1, ucSize, ucLow, ucHigh, ulValue};
}
} // namespace

TEST(NvWrite, Apply)
{
    const Bytes before = Hex("FF FF FF FF FF FF FF FF");
    const struct
    {
        const char* pszName;
        NV_WRITE_STRU stWrite;
        bool bInside;
        Bytes after;
    } c_astCase[] = {
        {"two bytes", BytesAt(2, 2, 0x44332211), true, Hex("FF FF 11 22 FF FF FF FF")},
        {"no byte", BytesAt(2, 0, 0x44332211), true, before},
        {"beyond the value come zeros", BytesAt(0, 6, 0x44332211), true, Hex("11 22 33 44 00 00 FF FF")},
        {"the last byte", BytesAt(7, 1, 0x55), true, Hex("FF FF FF FF FF FF FF 55")},
        {"one byte beyond", BytesAt(7, 2, 0x55), false, before},
        {"behind the end", BytesAt(9, 0, 0x55), false, before},
        {"far behind", BytesAt(0xFFFFFFFF, 255, 0x55), false, before},
        // mask 0x3C, value 5 << 2 = 0x14: FF & ~3C | 14 = D7
        {"bits of a byte", BitsAt(1, 1, 2, 5, 5), true, Hex("FF D7 FF FF FF FF FF FF")},
        // 0xFF << 2 = 0x3FC, masked to 0x3C
        {"a value too wide is cut by the mask", BitsAt(1, 1, 2, 5, 0xFF), true, before},
        // mask 0x0FF0, value 0x12 << 4 = 0x0120: FFFF & ~0FF0 | 0120 = F12F
        {"bits of a word", BitsAt(4, 2, 4, 11, 0x12), true, Hex("FF FF FF FF 2F F1 FF FF")},
        {"32 bits", BitsAt(4, 4, 0, 31, 0x11223344), true, Hex("FF FF FF FF 44 33 22 11")},
        // shift 34 % 32 = 2, both ends clipped to bit 31: bit 29 of the value, which is 0, lands there
        {"a first bit above 31", BitsAt(0, 4, 34, 34, 0xDFFFFFFF), true, Hex("FF FF FF 7F FF FF FF FF")},
        {"a size that is none changes nothing", BitsAt(0, 3, 0, 7, 0), true, before},
        {"nor does a longer one", BitsAt(0, 8, 0, 7, 0), true, before},
        {"a bit field beyond the end", BitsAt(5, 4, 0, 7, 0), false, before},
    };
    for (const auto& st : c_astCase) {
        Bytes data = before;
        EXPECT_EQ(ApplyNvWrite(st.stWrite, data), st.bInside) << st.pszName;
        EXPECT_EQ(data, st.after) << st.pszName;
    }
}
