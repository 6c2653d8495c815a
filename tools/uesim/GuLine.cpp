#include "uesim/GuLine.h"

#include "uesim/GuIds.h"

#include <algorithm>

namespace
{
constexpr uint32_t OM_FRAME_START = 0xAAAA5555;
constexpr uint32_t OM_FRAME_END = 0x5555AAAA;
constexpr size_t OM_LEAD = 1;      // the agent's frames and the modem's blocks open with a byte of 1
constexpr size_t OM_HEAD = 8;      // start mark, length, two segment bytes
constexpr size_t OM_LEN_EXTRA = 4; // what the length field counts besides the payload

// Heads between the frames: their size and the place of the SSID.
struct HEAD_FORM
{
    size_t szSize;
    size_t szSsid;
    size_t szStamp;
};
constexpr HEAD_FORM HEAD_FORMS[] = {{16, 2, 8}, {8, 0, 4}}; // frame mode 1: time and SSID; 2: RTC and CPU id

// Requests: places of the fields.
constexpr size_t REQ_QUERY_ID = 4;
constexpr size_t REQ_PID = 16;
constexpr size_t REQ_ID = 24;
constexpr size_t REQ_PARAMS = 28;

constexpr size_t LINK_REQUEST_SIZE = 16;
constexpr size_t LINK_REQUEST_ID = 8;

// Packets of the modem.
constexpr size_t IND_LEN = 2;
constexpr size_t IND_SN = 4;
constexpr size_t IND_STAMP = 8;
constexpr size_t IND_ID = 12;
constexpr size_t LEN_FIELD_LESS = 4; // bytes of a packet that its length field leaves out

constexpr uint16_t TRACE_ID = 0x8003;
constexpr size_t TRACE_PID = 4; // in the payload
constexpr size_t TRACE_NAME = 20;
constexpr size_t TRACE_MIN = 32;

constexpr size_t PaddedTo4(size_t szLen)
{
    return (szLen + 3) & ~size_t{3};
}

void SetLength(ByteSpan packet)
{
    StoreLe<uint16_t>(packet, IND_LEN, static_cast<uint16_t>(packet.size() - LEN_FIELD_LESS));
}

/// Ids of the packets of a frame, which follow each other.
void AppendIds(ByteView packets, std::vector<uint16_t>& ids)
{
    while (packets.size() >= REQ_QUERY_ID + 2) {
        const bool bQuery = packets[0] % GU_SECOND_MODEM == GU_CATEGORY_QUERY;
        ids.push_back(LoadLe<uint16_t>(packets, bQuery ? REQ_QUERY_ID : IND_ID));
        packets = Slice(packets, LoadLe<uint16_t>(packets, IND_LEN) + LEN_FIELD_LESS);
    }
}
} // namespace

bool IsKnownGuVersion(const std::string& strVersion)
{
    static const std::string KNOWN[] = {"CEDAR-03", "CEDAR-30", "MAPLE-20", "MAPLE-02", "ROWAN-03",
                                        "ROWAN-30", "OLIVE-01", "OLIVE-10", "PLANE-01", "PLANE-10"};
    return std::ranges::find(KNOWN, strVersion.substr(0, 8)) != std::end(KNOWN);
}

std::optional<OM_FRAME> ReadOmFrame(ByteView frame)
{
    const ByteView om = Slice(frame, OM_LEAD);
    const size_t szLen = LoadLe<uint16_t>(om, 4);
    const size_t szEnd = szLen < OM_LEN_EXTRA ? om.size() : OM_HEAD + PaddedTo4(szLen - OM_LEN_EXTRA);
    if (frame.empty() || frame[0] != 1 || LoadLe<uint32_t>(om, 0) != OM_FRAME_START || szEnd + 4 != om.size() ||
        LoadLe<uint32_t>(om, szEnd) != OM_FRAME_END)
        return std::nullopt;
    return OM_FRAME{om[6], om[7], Slice(om, OM_HEAD, szLen - OM_LEN_EXTRA)};
}

GU_REQUEST ReadGuRequest(ByteView packet)
{
    GU_REQUEST stReq;
    stReq.ucCategory = LoadLe<uint8_t>(packet, 0);
    const bool bSecond = stReq.ucCategory >= GU_SECOND_MODEM;
    const bool bLong =
        packet.size() >= REQ_PARAMS && (stReq.ucCategory == GU_CATEGORY_TRANS || stReq.ucCategory == GU_CATEGORY_OTA);
    if (!bLong) {
        stReq.usId = LoadLe<uint16_t>(packet, REQ_QUERY_ID);
        stReq.ulModem = bSecond ? 1 : 0;
        stReq.params = Slice(packet, REQ_QUERY_ID + 2);
        return stReq;
    }
    stReq.usId = LoadLe<uint16_t>(packet, REQ_ID);
    stReq.ulPid = LoadLe<uint32_t>(packet, REQ_PID);
    stReq.ulModem = stReq.ulPid >= 2 && stReq.ulPid <= 98 ? 1 : 0; // the tasks of the second modem
    stReq.params = Slice(packet, REQ_PARAMS);
    return stReq;
}

bool IsGuLinkRequest(ByteView packet)
{
    return packet.size() == LINK_REQUEST_SIZE && LoadLe<uint16_t>(packet, 0) == LINK_REQUEST_SIZE &&
           packet[4] == GU_CATEGORY_QUERY && LoadLe<uint16_t>(packet, LINK_REQUEST_ID) == ID_LINK_REQUEST;
}

std::vector<uint16_t> ReadGuBlockIds(ByteView block)
{
    std::vector<uint16_t> ids;
    while (block.size() >= OM_HEAD) {
        if (LoadLe<uint32_t>(block, 0) != OM_FRAME_START) { // a head, whose size is the modem's affair
            block = Slice(block, 1);
            continue;
        }
        const size_t szLen = std::max<size_t>(LoadLe<uint16_t>(block, 4), OM_LEN_EXTRA) - OM_LEN_EXTRA;
        if (block[7] == 1) // the first segment of its packet
            AppendIds(Slice(block, OM_HEAD, szLen), ids);
        block = Slice(block, OM_HEAD + szLen);
    }
    return ids;
}

CGuLine::CGuLine(CSimUe& ue) : m_ue(ue), m_bInverseStamps(!IsKnownGuVersion(ue.Options().strGuVersion)) {}

void CGuLine::SendTrans(unsigned int ulModem, uint16_t usId, ByteView payload)
{
    const auto ucSsid = static_cast<unsigned char>(ulModem);
    const auto ucCategory = static_cast<unsigned char>(GU_CATEGORY_TRANS + (ulModem != 0 ? GU_SECOND_MODEM : 0));
    SendPacket(Packet(ucCategory, ucSsid, usId, payload), ucSsid);
}

void CGuLine::SendOta(unsigned int ulModem, uint16_t usId, ByteView payload)
{
    const auto ucSsid = static_cast<unsigned char>(ulModem);
    const auto ucCategory = static_cast<unsigned char>(GU_CATEGORY_OTA + (ulModem != 0 ? GU_SECOND_MODEM : 0));
    SendPacket(Packet(ucCategory, ucSsid, usId, payload), ucSsid);
}

void CGuLine::SendTrace(uint32_t ulPid, uint16_t usName, std::vector<unsigned char> payload)
{
    payload.resize(std::max(payload.size(), TRACE_MIN), 0);
    StoreLe<uint32_t>(payload, TRACE_PID, ulPid);
    StoreLe<uint16_t>(payload, TRACE_NAME, usName);
    SendPacket(Packet(GU_CATEGORY_TRACE, 0, TRACE_ID, payload), 0);
}

void CGuLine::SendQueryAnswer(unsigned int ulModem, uint16_t usId, uint32_t ulValue, ByteView rest)
{
    std::vector<unsigned char> packet(12, 0);
    packet[0] = static_cast<unsigned char>(GU_CATEGORY_QUERY + (ulModem != 0 ? GU_SECOND_MODEM : 0));
    packet[1] = static_cast<unsigned char>(ulModem);
    StoreLe<uint16_t>(packet, REQ_QUERY_ID, usId);
    StoreLe<uint32_t>(packet, 8, ulValue);
    packet.insert(packet.end(), rest.begin(), rest.end());
    SetLength(packet);
    SendPacket(packet, packet[1]);
}

void CGuLine::SendChain(const std::vector<MESSAGE>& messages)
{
    std::vector<unsigned char> chain;
    for (const MESSAGE& stMessage : messages) {
        const auto packet = Packet(GU_CATEGORY_TRANS, 0, stMessage.usId, stMessage.payload);
        chain.insert(chain.end(), packet.begin(), packet.end());
    }
    SendPacket(chain, 0);
}

std::vector<unsigned char> CGuLine::Packet(unsigned char ucCategory, unsigned char ucSsid, uint16_t usId,
                                           ByteView payload)
{
    std::vector<unsigned char> packet(HEAD, 0);
    packet[0] = ucCategory;
    packet[1] = ucSsid;
    StoreLe<uint32_t>(packet, IND_SN, ++m_aulSn[ucSsid]);
    StoreLe<uint32_t>(packet, IND_STAMP, Stamp());
    StoreLe<uint16_t>(packet, IND_ID, usId);
    packet.insert(packet.end(), payload.begin(), payload.end());
    SetLength(packet);
    return packet;
}

uint32_t CGuLine::Stamp() const
{
    const auto ulClock = static_cast<uint32_t>(m_ue.Clock());
    return m_bInverseStamps ? ~ulClock : ulClock;
}

void CGuLine::SendPacket(ByteView packet, unsigned char ucSsid)
{
    if (m_block.empty())
        m_block.push_back(1);
    AppendHead(ucSsid);
    std::vector<unsigned char> frame(OM_HEAD + PaddedTo4(packet.size()) + 4, 0);
    StoreLe<uint32_t>(frame, 0, OM_FRAME_START);
    StoreLe<uint16_t>(frame, 4, static_cast<uint16_t>(packet.size() + OM_LEN_EXTRA));
    frame[6] = frame[7] = 1;
    std::ranges::copy(packet, frame.begin() + OM_HEAD);
    StoreLe<uint32_t>(frame, frame.size() - 4, OM_FRAME_END);
    m_block.insert(m_block.end(), frame.begin(), frame.end());
    if (++m_ulFrames >= m_ue.Options().ulGuPack)
        Flush();
}

void CGuLine::AppendHead(unsigned char ucSsid)
{
    const HEAD_FORM& stForm = HEAD_FORMS[m_ue.Options().ulGuMode - 1];
    std::vector<unsigned char> head(stForm.szSize, 0);
    head[stForm.szSsid] = ucSsid;
    StoreLe<uint32_t>(head, stForm.szStamp, static_cast<uint32_t>(m_ue.Clock()));
    m_block.insert(m_block.end(), head.begin(), head.end());
}

void CGuLine::Flush()
{
    if (m_block.empty())
        return;
    m_ue.Send(SERIAL_TYPE_GU, m_block);
    m_block.clear();
    m_ulFrames = 0;
}
