#include "data/DiagPacket.h"

CPacket BuildClientPacket(DIAG_PACKET_ACK_STRU stAck, ByteView payload)
{
    payload = Slice(payload, 0, UINT16_MAX); // the length field can't say more
    stAck.usLen = static_cast<uint16_t>(payload.size());
    CPacket packet = CPacket::Allocate(LEAD_LEN + DIAG_PACKET_ACK_STRU::SIZE + payload.size());
    CByteWriter writer(packet.Bytes());
    writer.Field(LEAD_BYTE);
    writer.Field(LEAD_BYTE);
    AckHead(writer, stAck);
    writer.Bytes(payload);
    return packet;
}
