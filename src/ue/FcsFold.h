#pragma once

#include "common/Bytes.h"

#include <array>

// The FCS of long runs: the processor's carry-less multiplication brings any number of bytes down to one block of 16
// that has the same FCS, many times faster than a table.

constexpr size_t FCS_BLOCK = 16;
using FCS_BLOCK_BYTES = std::array<unsigned char, FCS_BLOCK>;

/// Whether this processor can do it.
bool CanFoldFcs();

/// The block whose FCS, begun with 0, is that of the bytes, begun with usFcs. They are FCS_BLOCK at least. Only where
/// CanFoldFcs.
FCS_BLOCK_BYTES FoldFcs(unsigned short usFcs, ByteView bytes);
