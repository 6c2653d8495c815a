#include "data/LteLayout.h"

#include "common/Debug.h"
#include "data/DataProcessor.h"

#include <array>

namespace
{
constexpr size_t ACK_LEN_MIN = 24;
constexpr size_t ACK_PAYLOAD_END = 8192; // an ack's payload is shorter
constexpr size_t ACK_ID_LIMIT = 8192;    // limit of the id's offset when packets are sorted, whatever their length

// Indexes of the pairs.
enum
{
    ACK_ID,
    ACK_UNUSED,
    ACK_FIELD,
    ACK_CMD_TYPE,
    ACK_TIME_STAMP
};
enum
{
    DATA_ID,
    DATA_ACK_FIELD,
    DATA_CMD_TYPE,
    DATA_TIME_STAMP
};
enum
{
    UID_TAG = 1
};

/// Reads a configured field into a cleared value; what it was before when the field can't be read.
template <std::unsigned_integral T> void ReadFresh(T& value, const VALUE_STRU& stField, ByteView packet)
{
    T fresh = 0;
    if (GetMemValue(fresh, stField, packet, packet.size()))
        value = fresh;
}

/// What the header says of the class of an id.
constexpr unsigned char IdClassCode(unsigned int ulCmdId)
{
    switch (IdClass(ulCmdId)) {
    case 3:
        return 3;
    case 4:
        return 4;
    case 6:
        return 8;
    case 7:
        return 7;
    default:
        return 2;
    }
}

/// A value of the request header and the bytes that it has. A pair that asks for more is skipped.
struct REQ_FIELD
{
    size_t szSize;
    uint64_t ullValue;
};

std::array<REQ_FIELD, 11> ReqFields(const ADE_REQ_PACKET_STRU& stReq)
{
    return {{
        {1, 0},
        {1, 2},
        {1, uint64_t{IdClassCode(stReq.ulCmdId)} << 4},
        {1, 1},
        {1, 1},
        {4, stReq.ucCmdType},
        {8, 0},
        {4, stReq.ulCmdId},
        {4, uint64_t{stReq.usLen} + 8},
        {4, 0},
        {4, 0},
    }};
}
} // namespace

CPacket EncodeReqPacket(const FILTER_CFG_STRU& stLayout, const ADE_REQ_PACKET_STRU& stReq)
{
    CPacket packet = CPacket::Zeroed(size_t{stLayout.usReqHeaderLen} + stReq.usLen);
    if (!packet) {
        CDebug::Instance()->PrintInfo("DpLteDiag function BuildReqPacketVx get memory faild");
        return packet;
    }
    const ByteSpan out = packet.Bytes();
    const auto astField = ReqFields(stReq);
    for (size_t i = 0; i < astField.size(); ++i) {
        std::array<unsigned char, 8> aucValue{};
        StoreLe<uint64_t>(aucValue, 0, astField[i].ullValue);
        // A pair that can't take its value leaves its place zero.
        (void)SetMemValue(out, stLayout.astReqHeader[i], Slice(ByteView(aucValue), 0, astField[i].szSize));
    }
    if (stReq.usLen < REQ_BUF_LEN_MAX)
        CopyPadded(out.subspan(stLayout.usReqHeaderLen), stReq.pData);
    return packet;
}

bool DecodeAckPacket(const FILTER_CFG_STRU& stLayout, ByteView packet, ADE_ACK_PACKET_STRU& stAck)
{
    stAck = {};
    if (packet.size() < ACK_LEN_MIN || stLayout.usAckPayloadOffset > packet.size())
        return false;
    const ByteView payload = packet.subspan(stLayout.usAckPayloadOffset);
    if (payload.size() >= ACK_PAYLOAD_END)
        return false;

    // One value for all four fields, cleared once: a field of fewer than four bytes keeps the high bytes of the one
    // before it. Layouts in use are made for it.
    uint32_t ulValue = 0;
    const auto Read = [&](size_t i) { return GetMemValue(ulValue, stLayout.astAckHeader[i], packet, packet.size()); };
    stAck.ulCmdId = Read(ACK_ID) ? ulValue : ID_INVALID;
    (void)Read(ACK_UNUSED); // only its high bytes may show in the next field
    if (Read(ACK_FIELD))
        stAck.usAckField = static_cast<uint16_t>(ulValue);
    if (Read(ACK_CMD_TYPE))
        stAck.ucCmdType = static_cast<uint8_t>(ulValue);
    ReadFresh(stAck.ullTimeStamp, stLayout.astAckHeader[ACK_TIME_STAMP], packet);
    stAck.usLen = static_cast<uint16_t>(payload.size());
    stAck.pData = payload;
    return stAck.ulCmdId != ID_INVALID;
}

unsigned int DecodeDataPacket(const FILTER_CFG_STRU& stLayout, ByteSpan packet, ADE_DATA_PACKET_STRU& stData)
{
    stData = {};
    if (stLayout.usDataPayloadOffset > packet.size())
        return DIAG_RC_BAD_HEADER;
    const ByteSpan payload = packet.subspan(stLayout.usDataPayloadOffset);
    if (payload.size() > LTE_DATA_PAYLOAD_MAX)
        return DIAG_RC_BAD_HEADER;

    stData.ulCmdId = ID_INVALID;
    ReadFresh(stData.ulCmdId, stLayout.astDataHeader[DATA_ID], packet);
    if (stData.ulCmdId == ID_INVALID) {
        CDebug::Instance()->PrintWarn("lte data serial ulCmdID is invalid (0xffffffff)");
        return DIAG_RC_FAIL;
    }
    stData.ulAckField = ID_INVALID;
    ReadFresh(stData.ulAckField, stLayout.astDataHeader[DATA_ACK_FIELD], packet);
    uint32_t ulCmdType = 0;
    ReadFresh(ulCmdType, stLayout.astDataHeader[DATA_CMD_TYPE], packet);
    stData.ucCmdType = static_cast<uint8_t>(ulCmdType);
    ReadFresh(stData.ullTimeStamp, stLayout.astDataHeader[DATA_TIME_STAMP], packet);
    stData.usLen = static_cast<uint16_t>(payload.size());
    stData.pData = payload;
    if (stData.ulCmdId == 0)
        CDebug::Instance()->PrintWarn("lte data serial ulCmdID is ZERO");
    return DIAG_RC_OK;
}

unsigned int ClassifyPacket(const FILTER_CFG_STRU& stLayout, ByteView packet, PACKET_CATEGORY_ENUM& enCategory)
{
    enCategory = PACKET_CATEGORY_INVALID;
    const VALUE_STRU& stTag = stLayout.astDataAckUid[UID_TAG];
    if (stLayout.usDataAckOffset >= packet.size() || size_t{stTag.usOffset} + stTag.usSize >= packet.size())
        return DIAG_RC_BAD_LENGTH;

    // DATA_ACK_CHL_PACKET_OFFSET is a bound of the tag's offset here, not a position.
    uint32_t ulTag = 0;
    if (!GetMemValue(ulTag, stTag, packet, stLayout.usDataAckOffset))
        return DIAG_RC_BAD_FIELD;
    const auto ucTag = static_cast<uint8_t>(ulTag);
    if (ucTag == stLayout.ucDataTagFirst || ucTag == stLayout.ucDataTagSecond) {
        enCategory = PACKET_CATEGORY_DATA;
        return DIAG_RC_OK;
    }

    uint32_t ulCmdId = 0;
    (void)GetMemValue(ulCmdId, stLayout.astAckHeader[ACK_ID], packet, ACK_ID_LIMIT); // an id that can't be read is 0
    if (ulCmdId == ID_INVALID)
        return DIAG_RC_BAD_HEADER;
    enCategory = IsMgrAckId(ulCmdId) ? PACKET_CATEGORY_MGR_ACK : PACKET_CATEGORY_ACK;
    return DIAG_RC_OK;
}
