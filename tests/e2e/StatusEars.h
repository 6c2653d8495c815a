#pragma once

#include "support/Sockets.h"

#include <cstdint>

/// Numbers of ports, both ends included.
struct PORT_RANGE
{
    uint32_t ulFirst;
    uint32_t ulLast;
    bool Holds(uint32_t ulPort) const { return ulPort >= ulFirst && ulPort <= ulLast; }
};

/// The monitor's side of the status datagrams: tells when the agent has acted, without a look at its log.
class CStatusEars
{
public:
    CStatusEars(); // not open when the port is taken
    bool IsOpen() const { return m_fd.IsOpen(); }

    /// Waits until the agent has told so many channels as connected, of ports with these numbers; false at the limit.
    bool AwaitConnects(PORT_RANGE ports, size_t szChannels, std::chrono::milliseconds limit) const;
    bool AwaitDisconnects(PORT_RANGE ports, size_t szChannels, std::chrono::milliseconds limit) const;
    /// Until so many UEs were told as confirmed.
    bool AwaitUes(size_t szCount, std::chrono::milliseconds limit) const;
    /// Forgets what was told so far.
    void Drain() const;

private:
    /// Until isIt(datagram) held so often.
    template <class IsIt> bool Await(IsIt isIt, size_t szTimes, std::chrono::milliseconds limit) const;

    CUniqueFd m_fd;
};
