#pragma once

#include "common/Bytes.h"

#include <string>

// A capture file as a row of blocks, whatever stands in them.

/// Bytes of the whole blocks that the bytes begin with.
size_t WholeBlocks(ByteView bytes);
/// How many of the blocks are packets.
uint64_t CountPackets(ByteView blocks);
/// Cuts off what a file has behind its last whole block, as a program that was killed leaves it. False, with errno,
/// when the file can't be read or changed.
bool CutToWholeBlocks(const std::string& strPath);
