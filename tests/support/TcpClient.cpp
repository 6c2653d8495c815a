#include "support/TcpClient.h"

using std::chrono::milliseconds;
using TestClock = std::chrono::steady_clock;

CTcpClient::CTcpClient(enChannelType enChannel, milliseconds limit)
    : m_fd(ConnectTcp(LISTENPORT[static_cast<size_t>(enChannel)], limit))
{
}

bool CTcpClient::Send(uint32_t ulCmdId, uint16_t usPktType, const Bytes& params)
{
    const auto usLen = static_cast<uint16_t>(params.size());
    return SendRaw(Join(Hex("9F9F"), Le(ulCmdId), Le(usPktType), Le(usLen), params));
}

std::optional<TcpPacket> CTcpClient::Receive(milliseconds limit)
{
    constexpr size_t HEAD_LEN = LEAD_LEN + DIAG_PACKET_ACK_STRU::SIZE;
    const auto end = TestClock::now() + limit;
    const auto left = [&] {
        return std::max(milliseconds(0), std::chrono::ceil<milliseconds>(end - TestClock::now()));
    };
    const Bytes head = ReceiveBytes(m_fd, HEAD_LEN, left());
    if (head.size() < HEAD_LEN || head[0] != LEAD_BYTE || head[1] != LEAD_BYTE)
        return std::nullopt;
    TcpPacket packet;
    CByteReader reader(Slice(ByteView(head), LEAD_LEN));
    AckHead(reader, packet.stHead);
    if (packet.stHead.usLen > 0)
        packet.payload = ReceiveBytes(m_fd, packet.stHead.usLen, left());
    if (packet.payload.size() < packet.stHead.usLen)
        return std::nullopt;
    return packet;
}

std::optional<TcpPacket> CTcpClient::Await(uint32_t ulCmdId, milliseconds limit)
{
    const auto end = TestClock::now() + limit;
    for (;;) {
        const auto left = std::chrono::ceil<milliseconds>(end - TestClock::now());
        auto packet = Receive(std::max(milliseconds(0), left));
        if (!packet || packet->stHead.ulCmdId == ulCmdId)
            return packet;
    }
}

std::optional<TcpPacket> CTcpClient::Ask(uint32_t ulCmdId, uint16_t usPktType, const Bytes& params, milliseconds limit)
{
    return Send(ulCmdId, usPktType, params) ? Await(ulCmdId, limit) : std::nullopt;
}

bool CTcpClient::Bind(unsigned int ulPort)
{
    const auto ack = Ask(AGENT_CMD_BIND, PKT_TYPE_AGENT, Le(uint32_t{ulPort}));
    return ack && ack->stHead.ulRc == DIAG_RC_OK;
}
