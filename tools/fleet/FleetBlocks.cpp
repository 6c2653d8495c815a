#include "fleet/FleetBlocks.h"

ByteView TakeBlock(ByteView& bytes)
{
    const size_t szLength = LoadLe<uint32_t>(bytes, 4);
    if (szLength < PCAPNG_BLOCK_FRAME || szLength > bytes.size() || LoadLe<uint32_t>(bytes, szLength - 4) != szLength)
        return {};
    const ByteView block = bytes.first(szLength);
    bytes = bytes.subspan(szLength);
    return block;
}

std::optional<CAPTURED_RECORD> RecordIn(ByteView block)
{
    constexpr size_t HEAD = 8;
    constexpr uint64_t NS_PER_TICK = 1; // on all our interfaces
    CAPTURED_RECORD stRecord;
    const ByteView body = Slice(block, HEAD, block.size() - std::min(block.size(), PCAPNG_BLOCK_FRAME));
    if (LoadLe<uint32_t>(block, 0) != PCAPNG_PACKET || !DecodePacket(body, NS_PER_TICK, stRecord))
        return std::nullopt;
    return stRecord;
}

void ForEachRecord(const FLEET_MESSAGE& stMessage, const std::function<void(const CAPTURED_RECORD&)>& onRecord)
{
    ByteView rest = stMessage.bytes;
    for (const FLEET_RUN& stRun : stMessage.vecRuns) {
        ByteView run = Slice(rest, 0, stRun.ulLength);
        for (ByteView block = TakeBlock(run); !block.empty(); block = TakeBlock(run))
            if (const auto record = RecordIn(block))
                onRecord(*record);
        rest = Slice(rest, stRun.ulLength);
    }
}
