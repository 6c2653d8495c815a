#include "data/DiagPacket.h"

#include <new>

OwnedBytes BuildClientPacket(DIAG_PACKET_ACK_STRU stAck, ByteView payload, size_t& szTotal)
{
    payload = Slice(payload, 0, UINT16_MAX); // the length field can't say more
    stAck.usLen = static_cast<uint16_t>(payload.size());
    szTotal = LEAD_LEN + DIAG_PACKET_ACK_STRU::SIZE + payload.size();
    OwnedBytes pPacket(new (std::nothrow) unsigned char[szTotal]);
    if (!pPacket)
        return nullptr;
    CByteWriter writer({pPacket.get(), szTotal});
    writer.Field(LEAD_BYTE);
    writer.Field(LEAD_BYTE);
    AckHead(writer, stAck);
    writer.Bytes(payload);
    return pPacket;
}
