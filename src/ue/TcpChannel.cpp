#include "ue/TcpChannel.h"

#include "common/Debug.h"
#include "common/MsgBuf.h"
#include "common/Wait.h"

#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace
{
constexpr size_t RECVCACHELENGTH = 0x20000;
constexpr std::chrono::seconds LINK_TIME_LIMIT(5); // a connect, and a send that makes no headway, end after it
constexpr int RECV_FAULT_LINE = 192;               // the fixed "line" of the log text
constexpr size_t MAX_PORT = 0xFFFF;
constexpr int DECODE_ERROR_MARK = 182; // number in the decode error line of a link; no meaning

sockaddr_in Address(in_addr_t ulAddress, unsigned int uiPort)
{
    sockaddr_in stAddr{};
    stAddr.sin_family = AF_INET;
    stAddr.sin_port = htons(static_cast<uint16_t>(uiPort));
    stAddr.sin_addr.s_addr = ulAddress;
    return stAddr;
}

/// Connects, within the time at most: the socket's own limit holds for a connect that no signal interrupts. One that
/// is interrupted goes on by itself, and must not be started again.
bool ConnectWithin(int nSocket, const sockaddr_in& stAddr, std::chrono::milliseconds limit)
{
    const auto end = std::chrono::steady_clock::now() + limit;
    if (connect(nSocket, reinterpret_cast<const sockaddr*>(&stAddr), sizeof(stAddr)) == 0)
        return true;
    if (errno != EINTR)
        return false;
    pollfd stPoll{nSocket, POLLOUT, 0};
    int nError = 0;
    socklen_t ulLen = sizeof(nError);
    return PollFor({&stPoll, 1}, MsUntil(end)) > 0 && getsockopt(nSocket, SOL_SOCKET, SO_ERROR, &nError, &ulLen) == 0 &&
           nError == 0;
}

/// What a call's result adds to a counter: -1 counts as 4294967295. Deliberate; the status records show it.
uint64_t CountOf(ssize_t nResult)
{
    return static_cast<uint32_t>(nResult);
}
} // namespace

TCPChannel::TCPChannel(const std::string& ip, unsigned int port, bool tcp, enChannelType index)
    : m_bTcp(tcp), m_uiPort(port), m_pRecvBuf(new unsigned char[RECVCACHELENGTH])
{
    const auto rows = ChannelsOf(static_cast<enSerialType>(index));
    m_Channel.SetRows(rows.empty() ? ChannelsOf(SERIAL_TYPE_DIAG) : rows);
    (void)CreateConnectSocket(ip); // a link that failed stays without a socket
}

TCPChannel::~TCPChannel() = default;

bool TCPChannel::CreateConnectSocket(const std::string& ip)
{
    m_iSocket.Reset(m_bTcp ? socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP)
                           : socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!m_iSocket.IsOpen()) {
        CDebug::Instance()->PrintInfo("socket error");
        return false;
    }
    if (m_bTcp ? Connect(ip) : BindLocal())
        return true;
    m_iSocket.Reset();
    return false;
}

bool TCPChannel::Connect(const std::string& ip)
{
    // The send time-out bounds the connect as well, and later a peer that stops reading: it must not hold the
    // write thread, on which all UEs wait. Requests are small and answered, so none waits for another's ack.
    const timeval stLimit{LINK_TIME_LIMIT.count(), 0};
    const int nOn = 1;
    (void)setsockopt(GetSocket(), SOL_SOCKET, SO_SNDTIMEO, &stLimit, sizeof(stLimit));
    (void)setsockopt(GetSocket(), IPPROTO_TCP, TCP_NODELAY, &nOn, sizeof(nOn));
    const sockaddr_in stAddr = Address(inet_addr(ip.c_str()), m_uiPort);
    if (m_uiPort > MAX_PORT || !ConnectWithin(GetSocket(), stAddr, LINK_TIME_LIMIT)) {
        CDebug::Instance()->PrintInfo("TCP connect failed, port: %d", m_uiPort);
        return false;
    }
    CDebug::Instance()->PrintInfo("tcp connect success, port : %d", m_uiPort);
    return true;
}

bool TCPChannel::BindLocal()
{
    const sockaddr_in stAddr = Address(htonl(INADDR_ANY), m_uiPort);
    if (m_uiPort > MAX_PORT || bind(GetSocket(), reinterpret_cast<const sockaddr*>(&stAddr), sizeof(stAddr)) != 0)
        return false;
    CDebug::Instance()->PrintInfo("udp bind success, port : %d", m_uiPort);
    return true;
}

bool TCPChannel::SendData(ByteView packet)
{
    (void)m_Channel.WriteChannel(packet);
    return true;
}

void TCPChannel::LogFault(LINE_FAULT enFault) const
{
    switch (enFault) {
    case LINE_FAULT::DECODE:
        CDebug::Instance()->PrintInfo("HDLC Decode Error!%d", DECODE_ERROR_MARK);
        break;
    case LINE_FAULT::TOO_BIG:
        CDebug::Instance()->PrintInfo("HDLC Data Too Big");
        break;
    case LINE_FAULT::ENCODE: // lost silently, as with all that a link can't send
        break;
    }
}

/// Sends until all is gone. The result of a send isn't tested, on purpose: a failed one counts as a huge number
/// of bytes, which ends the loop.
bool TCPChannel::WriteBytes(ByteView data)
{
    for (uint64_t ullTotal = 0; ullTotal < data.size();) {
        const ByteView rest = data.subspan(static_cast<size_t>(ullTotal));
        const uint64_t ullSent =
            CountOf(RetryOnEintr([&] { return send(GetSocket(), rest.data(), rest.size(), MSG_NOSIGNAL); },
                                 std::chrono::steady_clock::now() + LINK_TIME_LIMIT));
        m_ullTotalWrite += ullSent;
        ullTotal += ullSent;
    }
    return true;
}

void TCPChannel::RecvData()
{
    const ssize_t nReceived =
        m_bTcp ? recv(GetSocket(), m_pRecvBuf.get(), RECVCACHELENGTH, MSG_DONTWAIT)
               : recvfrom(GetSocket(), m_pRecvBuf.get(), RECVCACHELENGTH, MSG_DONTWAIT, nullptr, nullptr);
    if (IsNothingReceived(nReceived))
        return;
    m_ullTotalRead += CountOf(nReceived);
    if (nReceived < 0)
        return;
    CAgentMsgRun run;
    m_Channel.OnSerialData({m_pRecvBuf.get(), static_cast<size_t>(nReceived)}, run);
}

/// True when there is nothing to count. Notes a peer that has closed or failed, so that the read loop leaves the
/// link alone.
bool TCPChannel::IsNothingReceived(ssize_t nReceived)
{
    if (nReceived < 0 && (errno == EAGAIN || errno == EINTR))
        return true;
    if (m_bTcp && nReceived <= 0)
        m_bPeerClosed = true;
    if (!m_bTcp && nReceived == 0)
        CDebug::Instance()->PrintError("Recv channel data fail, com:%d, errno:%d, line:%d", m_uiPort, errno,
                                       RECV_FAULT_LINE);
    return nReceived == 0;
}
