#pragma once

#include "common/DeviceRecord.h"
#include "common/UniqueFd.h"

#include <chrono>
#include <netinet/in.h>
#include <poll.h>
#include <string>

/// Brings one record at a time to the agent, on a connection of its own, and never waits. A record is delivered when
/// the agent has taken all of it and has closed the connection then.
class CDelivery
{
public:
    using TIME = std::chrono::steady_clock::time_point;
    /// The agent itself closes a connection after 10 s.
    static constexpr std::chrono::seconds TIME_LIMIT{15};

    enum class STATE
    {
        UNDER_WAY,
        DELIVERED,
        FAILED, // Error says why
    };

    void Start(const sockaddr_in& stAgent, const DEVICE_MONITOR_INFO_STRU& stRecord, TIME now);
    bool IsUnderWay() const { return m_bUnderWay; }
    /// Gives up the one that is under way, if one is.
    void Drop();
    /// What to wait for while one is under way; no descriptor otherwise.
    pollfd PollFd() const;
    /// When it fails unless it gets on.
    TIME End() const { return m_end; }
    /// Goes on as far as it can without waiting. Only while one is under way.
    STATE Advance(TIME now);
    const std::string& Error() const { return m_strError; }

private:
    STATE Progress();
    STATE OnClosed();
    STATE Fail(const std::string& strError);

    bool m_bUnderWay = false;
    CUniqueFd m_fd;
    TIME m_end{};
    size_t m_szSent = 0;
    int m_iStartError = 0; // of the connect
    std::array<unsigned char, DEVICE_MONITOR_INFO_STRU::SIZE> m_aucRecord{};
    std::string m_strError;
};
