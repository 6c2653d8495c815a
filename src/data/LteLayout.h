#pragma once

#include "common/Bytes.h"
#include "common/Config.h"
#include "data/DiagPacket.h"

// The headers of the UE's LTE packets. Their layout is the configuration's: a pair of offset and size for each
// field. A field whose pair is unusable, or wider than its value, is left out without an error.

constexpr size_t REQ_BUF_LEN_MAX = 4096;      // a request, its own head included, is never longer than this
constexpr size_t LTE_DATA_PAYLOAD_MAX = 8192; // bytes of an indication's payload

/// Encodes a request: header plus payload bytes, all else zero. False when memory is short. A payload of 4096 bytes or
/// more is not copied: its place stays zero.
CPacket EncodeReqPacket(const FILTER_CFG_STRU& stLayout, const ADE_REQ_PACKET_STRU& stReq);

/// Reads an ack; pData points into the packet. False for fewer than 24 bytes, a payload of 8192 bytes or more or
/// one that would start beyond the packet, and an id that is 0xFFFFFFFF or can't be read.
bool DecodeAckPacket(const FILTER_CFG_STRU& stLayout, ByteView packet, ADE_ACK_PACKET_STRU& stAck);

/// Reads an indication; pData points into the packet. DIAG_RC_OK, _BAD_HEADER when the payload starts beyond the
/// packet or is too long, _FAIL when the id is 0xFFFFFFFF or can't be read.
unsigned int DecodeDataPacket(const FILTER_CFG_STRU& stLayout, ByteSpan packet, ADE_DATA_PACKET_STRU& stData);

/// Sorts a packet; enCategory is PACKET_CATEGORY_INVALID unless the result is DIAG_RC_OK. Otherwise
/// DIAG_RC_BAD_LENGTH, _BAD_FIELD or _BAD_HEADER.
unsigned int ClassifyPacket(const FILTER_CFG_STRU& stLayout, ByteView packet, PACKET_CATEGORY_ENUM& enCategory);

/// Whether an ack with this id is meant for the agent itself.
constexpr bool IsMgrAckId(unsigned int ulId)
{
    constexpr unsigned int MGR_MODULE = 6; // third byte of the ids of the connection handshake
    const unsigned int ulClass = IdClass(ulId);
    return ulClass == ID_CLASS_AGENT || (ulClass == ID_CLASS_MSP_CMD && (ulId >> 16 & 0xFF) == MGR_MODULE);
}
