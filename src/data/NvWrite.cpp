#include "data/NvWrite.h"

#include <array>
#include <cstring>

unsigned int GetBitsSet(unsigned int ulSize, unsigned int ulLow, unsigned int ulHigh)
{
    if (ulSize != 1 && ulSize != 2 && ulSize != 4)
        return 0;
    const unsigned int ulTop = 8 * ulSize - 1;
    ulHigh = std::min(ulHigh, ulTop);
    ulLow = std::min(ulLow, ulHigh);
    return (UINT32_MAX >> (31 - ulHigh)) & (UINT32_MAX << ulLow);
}

void* SOP_Memcpy(void* pDst, const void* pSrc, unsigned int ulLen)
{
    if (pDst == nullptr || pSrc == nullptr)
        return nullptr;
    return std::memcpy(pDst, pSrc, ulLen);
}

namespace
{
/// What a field longer than the value has beyond it becomes zero.
void ReplaceBytes(const NV_WRITE_STRU& stWrite, ByteSpan field)
{
    std::array<unsigned char, sizeof(stWrite.ulItemValue)> aucValue{};
    StoreLe<uint32_t>(aucValue, 0, stWrite.ulItemValue);
    CopyPadded(field, aucValue);
}

void ReplaceBits(const NV_WRITE_STRU& stWrite, ByteSpan field)
{
    const uint32_t ulMask = GetBitsSet(stWrite.ucFieldSize, stWrite.ucBitLow, stWrite.ucBitHigh);
    const uint32_t ulNewBits = (stWrite.ulItemValue << (stWrite.ucBitLow % 32)) & ulMask;
    std::array<unsigned char, sizeof(uint32_t)> aucWord{};
    const ByteSpan used = Slice(field, 0, aucWord.size());
    SOP_Memcpy(aucWord.data(), used.data(), static_cast<unsigned int>(used.size()));
    StoreLe<uint32_t>(aucWord, 0, (LoadLe<uint32_t>(aucWord, 0) & ~ulMask) | ulNewBits);
    SOP_Memcpy(used.data(), aucWord.data(), static_cast<unsigned int>(used.size()));
}
} // namespace

bool ApplyNvWrite(const NV_WRITE_STRU& stWrite, ByteSpan nvData)
{
    const ByteSpan field = Slice(nvData, stWrite.ulItemOffset, stWrite.ucFieldSize);
    if (stWrite.ulItemOffset > nvData.size() || field.size() < stWrite.ucFieldSize)
        return false;
    if (stWrite.ucBitMode == 0)
        ReplaceBytes(stWrite, field);
    else
        ReplaceBits(stWrite, field);
    return true;
}
