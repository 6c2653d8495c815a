#include "data/DiagPacket.h"

#include "data/AgentInterfaces.h"

#include <array>

namespace
{
using CLIENT_HEAD = std::array<unsigned char, LEAD_LEN + DIAG_PACKET_ACK_STRU::SIZE>; // what the payload follows

/// stAck.usLen is taken from the payload, which is cut to what it can tell.
CLIENT_HEAD ClientHead(DIAG_PACKET_ACK_STRU stAck, ByteView& payload)
{
    payload = Slice(payload, 0, UINT16_MAX);
    stAck.usLen = static_cast<uint16_t>(payload.size());
    CLIENT_HEAD aucHead;
    CByteWriter writer(aucHead);
    writer.Field(LEAD_BYTE);
    writer.Field(LEAD_BYTE);
    AckHead(writer, stAck);
    return aucHead;
}
} // namespace

bool SendClientPacket(IClientPort& client, const DIAG_PACKET_ACK_STRU& stAck, ByteView payload)
{
    const CLIENT_HEAD aucHead = ClientHead(stAck, payload);
    return client.SendData2Client(aucHead, payload);
}

CPacket BuildClientPacket(const DIAG_PACKET_ACK_STRU& stAck, ByteView payload)
{
    const CLIENT_HEAD aucHead = ClientHead(stAck, payload);
    CPacket packet = CPacket::Allocate(aucHead.size() + payload.size());
    CByteWriter writer(packet.Bytes());
    writer.Bytes(aucHead);
    writer.Bytes(payload);
    return packet;
}
