#pragma once

#include "capture/PcapngReader.h"
#include "fleet/FleetFormat.h"

#include <functional>

// Blocks of capture files as they come from the hub.

/// Takes the first block off the bytes; empty when no whole one begins there.
ByteView TakeBlock(ByteView& bytes);
/// The record in a block; none when it isn't a packet, or not of ours. Its bytes lie in the block.
std::optional<CAPTURED_RECORD> RecordIn(ByteView block);
/// Gives each record in a message to the call. Of one that was too large for a message only pieces come; these are
/// passed over.
void ForEachRecord(const FLEET_MESSAGE& stMessage, const std::function<void(const CAPTURED_RECORD&)>& onRecord);
