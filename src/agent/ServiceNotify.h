#pragma once

#include <chrono>
#include <string>

// What a service manager that started the agent is told, by the protocol of sd_notify(3): datagrams to the socket that
// NOTIFY_SOCKET names. Without it nobody is told anything. Nothing here waits.

/// Tells a state, such as "READY=1". False when nobody was told.
bool NotifyService(const std::string& strState);

/// Tells the service manager that the thread that asks still runs, twice as often as it wants to hear. For one thread.
class CWatchdog
{
public:
    using TIME = std::chrono::steady_clock::time_point;

    /// By WATCHDOG_USEC, if it is meant for this process (WATCHDOG_PID).
    CWatchdog();

    /// When the next ping is due; the end of time when nobody listens.
    TIME NextPing() const { return m_next; }
    /// Sends it if it is due.
    void Ping(TIME now);

private:
    std::chrono::microseconds m_interval{0};
    TIME m_next = TIME::max();
};
