#include "uesim/LteLayout.h"

#include <algorithm>

namespace
{
constexpr size_t MIN_FRAME_PAYLOAD = 18; // the agent's decoder refuses smaller ones
constexpr size_t MIN_ACK = 24;           // and its ack reader these
constexpr uint16_t MAX_FIELD = 8;
constexpr uint32_t REQ_LEN_EXTRA = 8; // what the length field of a request counts besides the parameters

// Places of the configured pairs.
enum REQ_PAIR
{
    REQ_CMD_TYPE = 5,
    REQ_CMD_ID = 7,
    REQ_LEN = 8,
};
enum ACK_PAIR
{
    ACK_CMD_ID = 0,
    ACK_LEN = 1, // the agent doesn't look at it, nor at that of an indication
    ACK_FIELD = 2,
    ACK_CMD_TYPE = 3,
    ACK_STAMP = 4,
};
enum DATA_PAIR
{
    DATA_CMD_ID = 0,
    DATA_ACK_FIELD = 1,
    DATA_CMD_TYPE = 2,
    DATA_STAMP = 3,
    DATA_LEN = 4,
};
constexpr size_t UID_TAG = 1;

bool IsPresent(const VALUE_STRU& stPair, uint16_t usMaxSize)
{
    return stPair.usSize > 0 && stPair.usSize <= std::min(usMaxSize, MAX_FIELD);
}

uint64_t ReadField(ByteView packet, const VALUE_STRU& stPair, uint16_t usMaxSize)
{
    return IsPresent(stPair, usMaxSize) ? LoadLe<uint64_t>(Slice(packet, stPair.usOffset, stPair.usSize), 0) : 0;
}

void WriteField(ByteSpan packet, const VALUE_STRU& stPair, uint16_t usMaxSize, uint64_t ullValue)
{
    if (IsPresent(stPair, usMaxSize))
        StoreLe<uint64_t>(Slice(packet, stPair.usOffset, stPair.usSize), 0, ullValue);
}

/// The part of a length that a field of this size can hold.
uint64_t Held(const VALUE_STRU& stPair, uint64_t ullValue)
{
    return stPair.usSize >= MAX_FIELD ? ullValue : ullValue & ((uint64_t{1} << (8 * stPair.usSize)) - 1);
}
} // namespace

std::optional<LTE_REQUEST> CLteLayout::ReadRequest(ByteView packet) const
{
    if (packet.size() < m_stCfg.usReqHeaderLen)
        return std::nullopt;
    LTE_REQUEST stReq;
    stReq.ulCmdId = static_cast<uint32_t>(ReadField(packet, m_stCfg.astReqHeader[REQ_CMD_ID], 4));
    stReq.ulCmdType = static_cast<uint32_t>(ReadField(packet, m_stCfg.astReqHeader[REQ_CMD_TYPE], 4));
    stReq.data = Slice(packet, m_stCfg.usReqHeaderLen);
    const VALUE_STRU& stLen = m_stCfg.astReqHeader[REQ_LEN];
    stReq.bLengthFits =
        !IsPresent(stLen, 4) || ReadField(packet, stLen, 4) == Held(stLen, stReq.data.size() + REQ_LEN_EXTRA);
    return stReq;
}

std::vector<unsigned char> CLteLayout::BuildAck(const LTE_HEAD& stHead, ByteView payload) const
{
    const size_t szLen = std::max({m_stCfg.usAckPayloadOffset + payload.size(), MIN_ACK, MinTaggedLen()});
    std::vector<unsigned char> packet(szLen, 0);
    std::ranges::copy(payload, packet.begin() + m_stCfg.usAckPayloadOffset);
    WriteTag(2, packet); // anything but the two data tags
    WriteField(packet, m_stCfg.astAckHeader[ACK_LEN], 4, payload.size());
    WriteField(packet, m_stCfg.astAckHeader[ACK_FIELD], 4, stHead.ulAckField);
    WriteField(packet, m_stCfg.astAckHeader[ACK_CMD_TYPE], 4, stHead.ulCmdType);
    WriteField(packet, m_stCfg.astAckHeader[ACK_STAMP], 8, stHead.ullTimeStamp);
    WriteField(packet, m_stCfg.astAckHeader[ACK_CMD_ID], 4, stHead.ulCmdId);
    return packet;
}

std::optional<uint32_t> CLteLayout::ReadAckId(ByteView packet) const
{
    const auto ucTag = static_cast<uint8_t>(ReadField(packet, m_stCfg.astDataAckUid[UID_TAG], MAX_FIELD));
    if (ucTag == m_stCfg.ucDataTagFirst || ucTag == m_stCfg.ucDataTagSecond)
        return std::nullopt;
    return static_cast<uint32_t>(ReadField(packet, m_stCfg.astAckHeader[ACK_CMD_ID], 4));
}

void CLteLayout::WriteIndHead(const LTE_HEAD& stHead, ByteSpan packet) const
{
    WriteTag(m_stCfg.ucDataTagFirst, packet);
    WriteField(packet, m_stCfg.astDataHeader[DATA_CMD_ID], 4, stHead.ulCmdId);
    WriteField(packet, m_stCfg.astDataHeader[DATA_LEN], 4, packet.size() - std::min(IndHeadLen(), packet.size()));
    WriteField(packet, m_stCfg.astDataHeader[DATA_ACK_FIELD], 4, stHead.ulAckField);
    WriteField(packet, m_stCfg.astDataHeader[DATA_CMD_TYPE], 4, stHead.ulCmdType);
    WriteField(packet, m_stCfg.astDataHeader[DATA_STAMP], 8, stHead.ullTimeStamp);
}

size_t CLteLayout::MinIndLen() const
{
    return std::max(IndHeadLen(), MinTaggedLen());
}

size_t CLteLayout::MinTaggedLen() const
{
    const VALUE_STRU& stTag = m_stCfg.astDataAckUid[UID_TAG];
    return std::max<size_t>(
        {MIN_FRAME_PAYLOAD, m_stCfg.usDataAckOffset + size_t{1}, size_t{stTag.usOffset} + stTag.usSize + 1});
}

void CLteLayout::WriteTag(unsigned char ucTag, ByteSpan packet) const
{
    const VALUE_STRU& stTag = m_stCfg.astDataAckUid[UID_TAG];
    if (IsPresent(stTag, MAX_FIELD) && stTag.usOffset < packet.size())
        packet[stTag.usOffset] = ucTag;
}
