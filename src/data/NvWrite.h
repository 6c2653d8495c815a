#pragma once

#include "common/Bytes.h"

/// NV write descriptor: what a client wants changed in an NV item. The agent reads the item from the UE, applies
/// the change and writes it back. A descriptor holds one change; items beyond the first are not kept.
struct NV_WRITE_STRU
{
    static constexpr size_t SIZE = 20;

    uint32_t ulNvId = 0;
    uint32_t ulItemCount = 0;  // 0: the item is written back as it was read
    uint32_t ulItemOffset = 0; // bytes into the item's data
    uint8_t ucBitMode = 0;     // 0: replace bytes; else a bit field
    uint8_t ucFieldSize = 0;   // bytes: 1, 2 or 4 for a bit field, any for bytes
    uint8_t ucBitLow = 0;      // first bit of a bit field
    uint8_t ucBitHigh = 0;     // last bit
    uint32_t ulItemValue = 0;  // new value
};
/// Order on the wire, for CByteReader and CByteWriter alike.
template <class Io, class Nv> void NvWriteFields(Io& io, Nv& stNv)
{
    io.Field(stNv.ulNvId);       //  0
    io.Field(stNv.ulItemCount);  //  4
    io.Field(stNv.ulItemOffset); //  8
    io.Field(stNv.ucBitMode);    // 12
    io.Field(stNv.ucFieldSize);  // 13
    io.Field(stNv.ucBitLow);     // 14
    io.Field(stNv.ucBitHigh);    // 15
    io.Field(stNv.ulItemValue);  // 16
}

/// Mask of the bits from min(low, high) up to high of a field of ulSize bytes, both ends clipped to its top bit. So
/// a low above high leaves the bit high alone. 0 for a size that isn't 1, 2 or 4.
unsigned int GetBitsSet(unsigned int ulSize, unsigned int ulLow, unsigned int ulHigh);

/// Copies ulLen bytes; gives pDst, or null when either pointer is.
void* SOP_Memcpy(void* pDst, const void* pSrc, unsigned int ulLen);

/// Applies the change to the item's data. False, and nothing changed, when the field doesn't lie inside.
bool ApplyNvWrite(const NV_WRITE_STRU& stWrite, ByteSpan nvData);
