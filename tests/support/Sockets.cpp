#include "support/Sockets.h"

#include "common/Wait.h"
#include "support/WaitFor.h"

#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

namespace
{
using std::chrono::milliseconds;

sockaddr_in Loopback(unsigned short usPort)
{
    sockaddr_in stAddr{};
    stAddr.sin_family = AF_INET;
    stAddr.sin_port = htons(usPort);
    stAddr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return stAddr;
}

bool WaitReadable(int nFd, std::chrono::steady_clock::time_point end)
{
    pollfd stPoll{nFd, POLLIN, 0};
    return PollFor({&stPoll, 1}, MsUntil(end)) > 0;
}
} // namespace

CUniqueFd ListenTcp(unsigned short usPort, int nBacklog)
{
    // Programs under test must not inherit these sockets: they would keep them open.
    CUniqueFd listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int nOn = 1;
    (void)setsockopt(listener.Get(), SOL_SOCKET, SO_REUSEADDR, &nOn, sizeof(nOn));
    const sockaddr_in stAddr = Loopback(usPort);
    if (bind(listener.Get(), reinterpret_cast<const sockaddr*>(&stAddr), sizeof(stAddr)) != 0 ||
        listen(listener.Get(), nBacklog) != 0)
        listener.Reset();
    return listener;
}

CUniqueFd AcceptTcp(const CUniqueFd& listener, milliseconds limit)
{
    if (!WaitReadable(listener.Get(), std::chrono::steady_clock::now() + limit))
        return CUniqueFd();
    return CUniqueFd(accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
}

CUniqueFd ConnectTcp(unsigned short usPort, milliseconds limit)
{
    CUniqueFd fd;
    const sockaddr_in stAddr = Loopback(usPort);
    const bool bConnected = WaitFor(
        [&] {
            fd.Reset(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
            return connect(fd.Get(), reinterpret_cast<const sockaddr*>(&stAddr), sizeof(stAddr)) == 0;
        },
        limit);
    if (!bConnected)
        fd.Reset();
    return fd;
}

void SendUdp(unsigned short usPort, ByteView data)
{
    const CUniqueFd fd(socket(AF_INET, SOCK_DGRAM, 0));
    const sockaddr_in stAddr = Loopback(usPort);
    (void)sendto(fd.Get(), data.data(), data.size(), 0, reinterpret_cast<const sockaddr*>(&stAddr), sizeof(stAddr));
}

bool SendAll(const CUniqueFd& fd, ByteView data)
{
    while (!data.empty()) {
        const ssize_t nSent = send(fd.Get(), data.data(), data.size(), MSG_NOSIGNAL);
        if (nSent <= 0)
            return false;
        data = data.subspan(static_cast<size_t>(nSent));
    }
    return true;
}

Bytes ReceiveBytes(const CUniqueFd& fd, size_t szCount, milliseconds limit)
{
    const auto end = std::chrono::steady_clock::now() + limit;
    Bytes received;
    while (received.size() < szCount && WaitReadable(fd.Get(), end)) {
        unsigned char aucPart[4096];
        const ssize_t nRead = recv(fd.Get(), aucPart, std::min(sizeof(aucPart), szCount - received.size()), 0);
        if (nRead <= 0)
            break;
        received.insert(received.end(), aucPart, aucPart + nRead);
    }
    return received;
}

bool SawClose(const CUniqueFd& fd, milliseconds limit)
{
    const auto end = std::chrono::steady_clock::now() + limit;
    while (WaitReadable(fd.Get(), end)) {
        unsigned char aucPart[4096];
        const ssize_t nRead = recv(fd.Get(), aucPart, sizeof(aucPart), 0);
        if (nRead == 0 || (nRead < 0 && errno == ECONNRESET))
            return true;
        if (nRead < 0)
            return false;
    }
    return false;
}
