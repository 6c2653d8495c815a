#include "e2e/StatusEars.h"

#include "agent/StatusRecords.h"
#include "common/Types.h"
#include "common/Wait.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

namespace
{
using std::chrono::milliseconds;

constexpr size_t HEAD_LEN = 8;                  // in front of each record
constexpr size_t CONNECT_PORT = HEAD_LEN + 100; // the group is first
constexpr size_t DISCONNECT_PORT = HEAD_LEN;
} // namespace

CStatusEars::CStatusEars() : m_fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in stAddr{};
    stAddr.sin_family = AF_INET;
    stAddr.sin_port = htons(STATUS_PORT);
    stAddr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(m_fd.Get(), reinterpret_cast<const sockaddr*>(&stAddr), sizeof(stAddr)) != 0)
        m_fd.Reset();
}

template <class IsIt> bool CStatusEars::Await(IsIt isIt, size_t szTimes, milliseconds limit) const
{
    const auto end = std::chrono::steady_clock::now() + limit;
    while (szTimes > 0) {
        pollfd stPoll{m_fd.Get(), POLLIN, 0};
        if (PollFor({&stPoll, 1}, MsUntil(end)) <= 0)
            return false;
        Bytes datagram(2048, 0);
        const ssize_t lRead = recv(m_fd.Get(), datagram.data(), datagram.size(), 0);
        datagram.resize(lRead > 0 ? static_cast<size_t>(lRead) : 0);
        if (!datagram.empty() && isIt(datagram))
            --szTimes;
    }
    return true;
}

bool CStatusEars::AwaitConnects(PORT_RANGE ports, size_t szChannels, milliseconds limit) const
{
    const auto isIt = [&](const Bytes& datagram) {
        return datagram[0] == SerialPortConnect::MSG_ID && ports.Holds(LoadLe<uint32_t>(datagram, CONNECT_PORT));
    };
    return Await(isIt, szChannels, limit);
}

bool CStatusEars::AwaitDisconnects(PORT_RANGE ports, size_t szChannels, milliseconds limit) const
{
    const auto isIt = [&](const Bytes& datagram) {
        return datagram[0] == SerialPortDisconnect::MSG_ID && ports.Holds(LoadLe<uint32_t>(datagram, DISCONNECT_PORT));
    };
    return Await(isIt, szChannels, limit);
}

bool CStatusEars::AwaitUes(size_t szCount, milliseconds limit) const
{
    return Await([](const Bytes& datagram) { return datagram[0] == UEConnect::MSG_ID; }, szCount, limit);
}

void CStatusEars::Drain() const
{
    (void)Await([](const Bytes&) { return true; }, SIZE_MAX, milliseconds(0));
}
