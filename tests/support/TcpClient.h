#pragma once

#include "common/Types.h"
#include "data/DiagPacket.h"
#include "support/Sockets.h"

#include <optional>

/// A packet from the agent.
struct TcpPacket
{
    DIAG_PACKET_ACK_STRU stHead;
    Bytes payload;
};

/// A client of the agent on the loopback address: blocking calls with time limits. It reads packets strictly:
/// anything but lead bytes where a packet must begin fails the read.
class CTcpClient
{
public:
    /// Connects, again and again until the agent listens; IsOpen tells whether it did within the limit.
    explicit CTcpClient(enChannelType enChannel, std::chrono::milliseconds limit = SOCKET_LIMIT);

    bool IsOpen() const { return m_fd.IsOpen(); }
    void Close() { m_fd.Reset(); }
    const CUniqueFd& Fd() const { return m_fd; }

    bool SendRaw(ByteView bytes) { return SendAll(m_fd, bytes); }
    bool Send(uint32_t ulCmdId, uint16_t usPktType, const Bytes& params = {});
    /// The next packet; nothing at the limit, on a close, or when the bytes aren't a packet.
    std::optional<TcpPacket> Receive(std::chrono::milliseconds limit = SOCKET_LIMIT);
    /// The next packet with this id; others before it are dropped.
    std::optional<TcpPacket> Await(uint32_t ulCmdId, std::chrono::milliseconds limit = SOCKET_LIMIT);
    /// Send and Await of the same id.
    std::optional<TcpPacket> Ask(uint32_t ulCmdId, uint16_t usPktType, const Bytes& params = {},
                                 std::chrono::milliseconds limit = SOCKET_LIMIT);
    /// Binds to the UE with this port; true when the agent acks it with DIAG_RC_OK.
    bool Bind(unsigned int ulPort);
    /// True when no packet comes within the time. A byte that does come is lost.
    bool IsSilent(std::chrono::milliseconds time) { return ReceiveBytes(m_fd, 1, time).empty(); }

private:
    CUniqueFd m_fd;
};
