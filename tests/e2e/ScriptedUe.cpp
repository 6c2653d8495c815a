#include "e2e/ScriptedUe.h"

#include "e2e/AgentBench.h"
#include "support/HdlcReference.h"

namespace
{
constexpr unsigned char TAG_DATA = 3;
constexpr unsigned char TAG_ACK = 0;
constexpr size_t HOST_CONNECT_PAYLOAD = 320;
constexpr int REPORT_SWITCHES = 24;
constexpr uint32_t HOST_CONNECT = 0x10065000;
constexpr uint32_t TIME_STAMP = 0x10067000;
} // namespace

std::optional<Bytes> CScriptedUe::Unframe(const Bytes& frame)
{
    Bytes packet;
    for (size_t i = 1; i + 1 < frame.size(); ++i)
        packet.push_back(frame[i] == 0x7D ? frame[++i] ^ 0x20 : frame[i]);
    if (packet.size() < 2 || ReferenceFcs(0xFFFF, packet) != 0xF0B8)
        return std::nullopt;
    packet.erase(packet.end() - 2, packet.end()); // the FCS
    return packet;
}

bool CScriptedUe::Attach(enSerialType enType)
{
    const auto ulType = static_cast<unsigned int>(enType);
    return SendDeviceRecord(m_ulFirstPort + ulType, static_cast<unsigned char>(ulType), 1, Port(enType).Name(),
                            m_strGroup);
}

bool CScriptedUe::Detach(enSerialType enType)
{
    return SendDeviceRecord(m_ulFirstPort + static_cast<unsigned int>(enType), 0, 0, "", "");
}

bool CScriptedUe::Confirm()
{
    return Attach(SERIAL_TYPE_DIAG) && TakeHandshake();
}

bool CScriptedUe::TakeHandshake()
{
    for (const uint32_t ulExpected : {HOST_CONNECT, TIME_STAMP}) {
        const auto stReq = ReadRequest();
        if (!stReq || stReq->ulCmdId != ulExpected)
            return false;
    }
    SendHostConnectCnf();
    for (int i = 0; i < REPORT_SWITCHES; ++i)
        if (!ReadRequest())
            return false;
    return true;
}

void CScriptedUe::SendHostConnectCnf()
{
    SendAck(HOST_CONNECT, 0, HostConnectPayload());
}

Bytes CScriptedUe::HostConnectPayload()
{
    Bytes payload(HOST_CONNECT_PAYLOAD, 0);
    StoreText(ByteSpan(payload).subspan(4, 16), "490154203237518");
    for (size_t i = 0; i < 5; ++i) // V1 R2 C3 B4 SP5
        StoreLe<uint16_t>(payload, 32 + 2 * i, static_cast<uint16_t>(i + 1));
    return payload;
}

std::optional<Bytes> CScriptedUe::ReadPacket(enSerialType enType)
{
    Bytes& pending = m_aPending[static_cast<size_t>(enType)];
    for (;;) {
        const auto start = std::ranges::find(pending, 0x7E);
        const auto end = start == pending.end() ? start : std::find(start + 1, pending.end(), 0x7E);
        if (end != pending.end()) {
            const Bytes frame(start, end + 1);
            pending.erase(pending.begin(), end + 1);
            return Unframe(frame);
        }
        const Bytes more = Port(enType).Read(1);
        if (more.empty())
            return std::nullopt;
        pending = Join(pending, more, Port(enType).Pending());
    }
}

std::optional<UeRequest> CScriptedUe::ReadRequest()
{
    constexpr size_t HEAD = 24;
    const auto packet = ReadPacket(SERIAL_TYPE_DIAG);
    if (!packet || packet->size() < HEAD)
        return std::nullopt;
    return UeRequest{LoadLe<uint32_t>(*packet, 8), (*packet)[5], Bytes(packet->begin() + HEAD, packet->end())};
}

void CScriptedUe::SendFrame(enSerialType enType, const Bytes& packet)
{
    Port(enType).Write(Frame(packet));
}

void CScriptedUe::SendAck(uint32_t ulCmdId, unsigned char ucCmdType, const Bytes& payload)
{
    SendFrame(SERIAL_TYPE_DIAG, Packet(TAG_ACK, ulCmdId, ucCmdType, 0, 0, payload));
}

void CScriptedUe::SendIndication(uint32_t ulId, uint32_t ulAckField, uint64_t ullStamp, const Bytes& payload)
{
    SendFrame(SERIAL_TYPE_DATA, Packet(TAG_DATA, ulId, 0, ulAckField, ullStamp, payload));
}

Bytes CScriptedUe::Frame(const Bytes& packet)
{
    return FrameOf(packet);
}

Bytes CScriptedUe::Packet(unsigned char ucTag, uint32_t ulId, unsigned char ucCmdType, uint32_t ulAckField,
                          uint64_t ullStamp, const Bytes& payload)
{
    return Join(Hex("00 00 00 00"), Bytes{ucTag, ucCmdType, 0, 0}, Le(ulId), Le(ulAckField), Le(ullStamp),
                Le(static_cast<uint32_t>(payload.size())), payload);
}
