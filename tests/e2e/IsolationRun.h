#pragma once

#include "e2e/HealthyModem.h"
#include "e2e/StatusEars.h"

#include <functional>
#include <span>

// What one modem or client does must not delay another's packets. An event is played while a healthy modem streams;
// its packets' worst delay is compared with that of a quiet moment right before.

/// How much longer than in the quiet moment a packet may take. Sanitizers slow every step down, so builds with them
/// are allowed ISOLATION_SLACK times as much.
constexpr double ISOLATION_LIMIT_MS = 20;
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr double ISOLATION_SLACK = 10;
#else
constexpr double ISOLATION_SLACK = 1;
#endif

/// Something else that an event measured: a time that must not pass its limit.
struct SIDE_TIME
{
    std::string strWhat;
    double dMs = 0;
    double dLimitMs = 0;
    bool IsGood() const { return dMs <= dLimitMs * ISOLATION_SLACK; }
};

struct ISOLATION_RESULT
{
    double dWithoutMs = 0; // worst delay of the healthy modem's packets in the quiet moment
    double dWithMs = 0;    // during the event
    std::vector<SIDE_TIME> sideTimes;
    std::string strFault; // what didn't work at all; empty when all did

    double AddedMs() const { return dWithMs - dWithoutMs; }
    bool IsGood() const;
};

/// The agent, the healthy modem, and the means that events need.
class CIsolationRun
{
public:
    explicit CIsolationRun(const std::string& strExtraConfig) : m_bench(strExtraConfig) {}

    /// False when the healthy modem doesn't come up.
    bool Start();

    CAgentBench& Bench() { return m_bench; }
    CStatusEars& Status() { return m_status; }
    CHealthyModem& Healthy() { return m_healthy; }
    /// A time that the event measured beside the healthy modem's delays.
    void Took(const std::string& strWhat, double dMs, double dLimitMs);
    /// How often a text stands in the log so far.
    size_t LogCount(const std::string& strText) const;
    /// Waits until it stands there so often; false at the limit.
    bool AwaitLog(const std::string& strText, size_t szCount, std::chrono::milliseconds limit) const;

    /// A quiet moment, then the event. What the event returns says what went wrong with it; empty when nothing did.
    ISOLATION_RESULT Measure(const std::function<std::string()>& event);

private:
    bool WaitCalm() const;

    CStatusEars m_status; // first, so that no datagram is missed
    CAgentBench m_bench;
    CHealthyModem m_healthy;
    std::vector<SIDE_TIME> m_sideTimes;
};

/// One thing that can happen on a bench. Made anew for each round.
class IIsolationEvent
{
public:
    virtual ~IIsolationEvent() = default;
    /// Before the quiet moment; what is wrong, or empty. So with the others.
    virtual std::string Prepare(CIsolationRun&) { return ""; }
    virtual std::string Run(CIsolationRun& run) = 0;
    /// Back to the state before it, for another round.
    virtual std::string Undo(CIsolationRun&) { return ""; }
};

struct ISOLATION_EVENT
{
    const char* pszName;   // of the test
    const char* pszText;   // in tables
    const char* pszConfig; // lines behind those of config/vex.cfg
    std::unique_ptr<IIsolationEvent> (*pfnMake)();
};
/// In messages of tests, and in their names.
inline void PrintTo(const ISOLATION_EVENT& stEvent, std::ostream* pOut)
{
    *pOut << stEvent.pszName;
}
std::span<const ISOLATION_EVENT> IsolationEvents();

/// Plays an event up to five times, as a busy machine may hold up the test itself, and takes the best of the rounds.
/// The limit stays the same in each, and what doesn't work at all is a fault at once.
ISOLATION_RESULT RunIsolation(const ISOLATION_EVENT& stEvent);
