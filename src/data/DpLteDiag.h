#pragma once

#include "data/DataProcessor.h"

class CDataProcessorLteDiag : public CDataProcessor
{
public:
    /// Sorts a UE packet by the configured layout; enCategory is PACKET_CATEGORY_INVALID unless the packet could be
    /// sorted. DIAG_RC_OK, _BAD_LENGTH, _BAD_FIELD or _BAD_HEADER.
    static unsigned int GetPacketType(ByteView packet, PACKET_CATEGORY_ENUM& enCategory);
    static bool IsMgrAckPacketId(unsigned int ulId);
    /// Reads a UE ack by the configured header; stAck.pData points into the packet. False refuses the packet.
    static bool GetAdeAck(ByteView packet, ADE_ACK_PACKET_STRU& stAck);
    /// Encodes a request by the configured header. False when it is too long or can't be encoded.
    static bool BuildUeBuf(const DIAG_PACKET_REQ_VIEW& stReq, unsigned char ucCmdType, OwnedBytes& pOut,
                           size_t& szOutLen);
};
