#include "forward/SegmentReader.h"

#include <cerrno>

namespace
{
constexpr size_t READ_PIECE = 256 * 1024;
constexpr size_t BLOCK_MOST = 256 * 1024 * 1024; // as CPcapngReader has it
constexpr size_t BLOCK_HEAD = 8;                 // type and length
constexpr size_t INTERFACE_OPTIONS = 8;          // of its body
constexpr size_t OPTION_HEAD = 4;                // code and length
constexpr size_t PACKET_TIME = 4;                // of its body: high and low half

/// The if_name of an interface block.
std::string InterfaceName(ByteView body)
{
    ByteView options = Slice(body, INTERFACE_OPTIONS);
    while (options.size() >= OPTION_HEAD) {
        const auto usCode = LoadLe<uint16_t>(options, 0);
        const size_t szLength = LoadLe<uint16_t>(options, 2);
        const ByteView value = Slice(options, OPTION_HEAD, szLength);
        if (usCode == PCAPNG_OPT_END)
            break;
        if (usCode == PCAPNG_IF_NAME)
            return {value.begin(), value.end()};
        options = Slice(options, OPTION_HEAD + (szLength + 3) / 4 * 4);
    }
    return "";
}
} // namespace

bool CSegmentReader::Open(const std::string& strPath, std::string& strError)
{
    errno = 0;
    m_pSource = OpenCaptureSource(strPath, strError);
    m_vecBuffer.clear();
    m_vecLanes.clear();
    m_szTaken = 0;
    m_ullOffset = 0;
    return m_pSource != nullptr;
}

/// False when nothing more is there.
bool CSegmentReader::Refill()
{
    m_vecBuffer.erase(m_vecBuffer.begin(), m_vecBuffer.begin() + static_cast<ptrdiff_t>(m_szTaken));
    m_szTaken = 0;
    const size_t szFrom = m_vecBuffer.size();
    m_vecBuffer.resize(szFrom + READ_PIECE);
    const size_t szRead = m_pSource->Read(ByteSpan(m_vecBuffer).subspan(szFrom));
    m_vecBuffer.resize(szFrom + szRead);
    return szRead > 0;
}

CSegmentReader::RESULT CSegmentReader::Next(SEGMENT_BLOCK& stBlock)
{
    for (;;) {
        const ByteView rest = Slice(ByteView(m_vecBuffer), m_szTaken);
        const size_t szLength = LoadLe<uint32_t>(rest, 4);
        if (rest.size() >= BLOCK_HEAD && (szLength < PCAPNG_BLOCK_FRAME || szLength % 4 != 0 || szLength > BLOCK_MOST))
            return RESULT::BAD;
        if (rest.size() < BLOCK_HEAD || rest.size() < szLength) {
            if (!Refill())
                return RESULT::WAIT;
            continue;
        }
        const auto ulType = LoadLe<uint32_t>(rest, 0);
        const ByteView body = rest.subspan(BLOCK_HEAD, szLength - PCAPNG_BLOCK_FRAME);
        stBlock = {LaneOf(ulType, body), m_ullOffset, rest.first(szLength), 0, ulType == PCAPNG_PACKET};
        if (stBlock.bPacket)
            stBlock.ullTime =
                uint64_t{LoadLe<uint32_t>(body, PACKET_TIME)} << 32 | LoadLe<uint32_t>(body, PACKET_TIME + 4);
        m_szTaken += szLength;
        m_ullOffset += szLength;
        return RESULT::BLOCK;
    }
}

const FLEET_LANE& CSegmentReader::LaneOf(uint32_t ulType, ByteView body)
{
    if (ulType == PCAPNG_SECTION)
        m_vecLanes.clear();
    if (ulType == PCAPNG_INTERFACE)
        return m_vecLanes.emplace_back(LaneOfInterface(InterfaceName(body)));
    const auto ulInterface = LoadLe<uint32_t>(body, 0);
    return ulType == PCAPNG_PACKET && ulInterface < m_vecLanes.size() ? m_vecLanes[ulInterface] : FLEET_AGENT_LANE;
}
