#include "client/Connection.h"

#include "client/Stop.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

namespace
{
constexpr std::chrono::milliseconds STOP_CHECK(100); // the longest wait that doesn't look at the stop request

using AddrList = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

int PollTimeOut(Clock::time_point deadline)
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    return static_cast<int>(std::clamp(left, std::chrono::milliseconds(0), STOP_CHECK).count());
}

/// Waits for one event on one descriptor; false at the deadline or when the user asks to stop.
bool WaitFor(int nFd, short sEvents, Clock::time_point deadline)
{
    for (;;) {
        pollfd stPoll{nFd, sEvents, 0};
        if (poll(&stPoll, 1, PollTimeOut(deadline)) > 0)
            return true;
        if (StopRequested() || Clock::now() >= deadline)
            return false;
    }
}

AddrList Resolve(const std::string& strHost, unsigned short usPort, std::string& strError)
{
    addrinfo stHints{};
    stHints.ai_family = AF_UNSPEC;
    stHints.ai_socktype = SOCK_STREAM;
    addrinfo* pList = nullptr;
    const int nRc = getaddrinfo(strHost.c_str(), std::to_string(usPort).c_str(), &stHints, &pList);
    if (nRc != 0)
        strError = "cannot resolve " + strHost + ": " + gai_strerror(nRc);
    return {nRc == 0 ? pList : nullptr, &freeaddrinfo};
}

/// A connected non-blocking socket, or one that isn't open with errno set.
CUniqueFd ConnectTo(const addrinfo& stAddr, Clock::time_point deadline)
{
    CUniqueFd fd(socket(stAddr.ai_family, stAddr.ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, stAddr.ai_protocol));
    if (!fd.IsOpen() || connect(fd.Get(), stAddr.ai_addr, stAddr.ai_addrlen) == 0)
        return fd;
    int nError = errno;
    if (nError == EINPROGRESS) {
        nError = ETIMEDOUT;
        socklen_t ulSize = sizeof(nError);
        if (WaitFor(fd.Get(), POLLOUT, deadline))
            (void)getsockopt(fd.Get(), SOL_SOCKET, SO_ERROR, &nError, &ulSize); // keeps the time-out if it fails
    }
    if (nError != 0)
        fd.Reset();
    errno = nError;
    return fd;
}
} // namespace

void CFrameReader::Feed(ByteView bytes)
{
    m_buffer.erase(m_buffer.begin(), m_buffer.begin() + static_cast<std::ptrdiff_t>(m_szStart));
    m_szStart = 0;
    m_buffer.insert(m_buffer.end(), bytes.begin(), bytes.end());
}

void CFrameReader::SkipToLead()
{
    static constexpr unsigned char LEAD[LEAD_LEN] = {LEAD_BYTE, LEAD_BYTE};
    const ByteView pending = Pending();
    auto at = std::search(pending.begin(), pending.end(), std::begin(LEAD), std::end(LEAD));
    if (at == pending.end() && !pending.empty() && pending.back() == LEAD_BYTE)
        --at; // its twin may still come
    const auto szSkip = static_cast<size_t>(at - pending.begin());
    m_szStart += szSkip;
    m_szSkipped += szSkip;
}

bool CFrameReader::Next(PACKET& stPacket)
{
    SkipToLead();
    const ByteView packet = Slice(Pending(), LEAD_LEN);
    if (packet.size() < DIAG_PACKET_ACK_STRU::SIZE)
        return false;
    CByteReader reader(packet);
    AckHead(reader, stPacket.stHead);
    if (reader.Left() < stPacket.stHead.usLen)
        return false;
    const ByteView payload = reader.Take(stPacket.stHead.usLen);
    stPacket.payload.assign(payload.begin(), payload.end());
    m_szStart += LEAD_LEN + DIAG_PACKET_ACK_STRU::SIZE + payload.size();
    return true;
}

std::vector<unsigned char> EncodeRequest(uint32_t ulCmdId, uint16_t usPktType, ByteView params)
{
    const DIAG_PACKET_REQ_STRU stHead{ulCmdId, usPktType, static_cast<uint16_t>(params.size())};
    std::vector<unsigned char> frame(LEAD_LEN + DIAG_PACKET_REQ_STRU::SIZE + stHead.usLen, LEAD_BYTE);
    CByteWriter writer(Slice(ByteSpan(frame), LEAD_LEN));
    ReqHead(writer, stHead);
    writer.Bytes(Slice(params, 0, stHead.usLen));
    return frame;
}

bool CConnection::Connect(const std::string& strHost, unsigned short usPort, std::chrono::milliseconds limit,
                          std::string& strError)
{
    const auto deadline = Clock::now() + limit;
    const AddrList list = Resolve(strHost, usPort, strError);
    for (const addrinfo* pAddr = list.get(); pAddr != nullptr; pAddr = pAddr->ai_next) {
        m_fd = ConnectTo(*pAddr, deadline);
        if (m_fd.IsOpen()) {
            const int nOn = 1;
            (void)setsockopt(m_fd.Get(), IPPROTO_TCP, TCP_NODELAY, &nOn, sizeof(nOn)); // a hint only
            return true;
        }
        strError = "cannot connect to " + strHost + " port " + std::to_string(usPort) + ": " + std::strerror(errno);
    }
    return false;
}

bool CConnection::Send(ByteView bytes, Clock::time_point deadline)
{
    while (!bytes.empty()) {
        const ssize_t lSent = send(m_fd.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (lSent > 0)
            bytes = Slice(bytes, static_cast<size_t>(lSent));
        else if (errno != EINTR && (errno != EAGAIN || !WaitFor(m_fd.Get(), POLLOUT, deadline)))
            return false;
    }
    return true;
}

bool CConnection::Pump()
{
    std::vector<unsigned char> chunk(size_t{64} * 1024);
    const ssize_t lGot = recv(m_fd.Get(), chunk.data(), chunk.size(), MSG_DONTWAIT);
    if (lGot > 0)
        m_reader.Feed(Slice(ByteView(chunk), 0, static_cast<size_t>(lGot)));
    return lGot > 0 || (lGot < 0 && (errno == EAGAIN || errno == EINTR));
}

RECV_RESULT CConnection::Receive(PACKET& stPacket, Clock::time_point deadline)
{
    while (!m_reader.Next(stPacket)) {
        if (!WaitFor(m_fd.Get(), POLLIN, deadline))
            return RECV_RESULT::TIME_OUT;
        if (!Pump())
            return RECV_RESULT::CLOSED;
    }
    return RECV_RESULT::PACKET;
}

void WaitReadable(std::span<const int> fds, Clock::time_point deadline)
{
    std::vector<pollfd> polls;
    for (const int nFd : fds)
        polls.push_back({nFd, POLLIN, 0});
    while (poll(polls.data(), polls.size(), PollTimeOut(deadline)) <= 0)
        if (StopRequested() || Clock::now() >= deadline)
            return;
}
