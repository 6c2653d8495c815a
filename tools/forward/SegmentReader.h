#pragma once

#include "capture/PcapngReader.h"
#include "fleet/FleetFormat.h"

#include <memory>
#include <string>
#include <vector>

/// One whole block of a segment; the bytes are valid until the reader's next call.
struct SEGMENT_BLOCK
{
    FLEET_LANE stLane;
    uint64_t ullOffset = 0; // of the segment's bytes, as they were before compression
    ByteView bytes;
    uint64_t ullTime = 0; // of a packet, CLOCK_REALTIME in ns; 0 for other blocks
    bool bPacket = false;
};

/// Reads a segment block by block, from its beginning: plain, also while it is being written, or compressed. Trusts
/// nothing in it. A plain file that is compressed and deleted meanwhile is read on.
class CSegmentReader
{
public:
    /// False, with errno and the reason, when the file can't be opened.
    [[nodiscard]] bool Open(const std::string& strPath, std::string& strError);

    enum class RESULT
    {
        BLOCK,
        WAIT, // no whole block more, for now; for good, when nobody writes the file any more
        BAD,  // what follows is no block; for good
    };
    RESULT Next(SEGMENT_BLOCK& stBlock);
    /// Behind the last block.
    uint64_t Offset() const { return m_ullOffset; }
    /// Behind WAIT: whether the file ends within a block or a compressed frame, or couldn't be read.
    bool IsCut() const { return m_vecBuffer.size() > m_szTaken || !m_pSource->Error().empty(); }

private:
    bool Refill();
    const FLEET_LANE& LaneOf(uint32_t ulType, ByteView body);

    std::unique_ptr<ICaptureSource> m_pSource;
    std::vector<unsigned char> m_vecBuffer;
    size_t m_szTaken = 0; // of the buffer
    uint64_t m_ullOffset = 0;
    std::vector<FLEET_LANE> m_vecLanes; // by index of the interface
};
