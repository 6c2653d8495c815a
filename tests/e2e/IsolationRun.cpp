#include "e2e/IsolationRun.h"

#include "support/WaitFor.h"

#include <algorithm>
#include <sys/resource.h>

namespace
{
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr int ROUNDS = 5;
constexpr auto QUIET_TIME = milliseconds(700);
constexpr auto EVENT_TIME = milliseconds(300); // at least: what an event causes may come a little later
constexpr auto CALM_TIME = milliseconds(200);
constexpr double CALM_MS = 10;           // what counts as undisturbed
constexpr auto CALM_LIMIT = seconds(20); // an agent that was held up gets so long to catch up
constexpr auto ARRIVE_LIMIT = seconds(15);
constexpr auto RUN_LIMIT = seconds(60); // no new round behind it
constexpr auto LOG_LOOK = milliseconds(20);
constexpr int BEFORE_OTHERS = -10; // nice value

/// The best of two rounds, value by value: a disturbed quiet moment excuses nothing.
ISOLATION_RESULT BestOf(const ISOLATION_RESULT& stOne, const ISOLATION_RESULT& stTwo)
{
    ISOLATION_RESULT stBest = stOne;
    stBest.strFault = stTwo.strFault; // a round with a fault is the last one
    stBest.dWithoutMs = std::min(stOne.dWithoutMs, stTwo.dWithoutMs);
    stBest.dWithMs = std::min(stOne.dWithMs, stTwo.dWithMs);
    for (size_t i = 0; i < std::min(stOne.sideTimes.size(), stTwo.sideTimes.size()); ++i)
        stBest.sideTimes[i].dMs = std::min(stOne.sideTimes[i].dMs, stTwo.sideTimes[i].dMs);
    return stBest;
}

ISOLATION_RESULT RunOnce(CIsolationRun& run, const ISOLATION_EVENT& stEvent)
{
    const auto pEvent = stEvent.pfnMake();
    ISOLATION_RESULT stResult;
    stResult.strFault = pEvent->Prepare(run);
    if (!stResult.strFault.empty())
        return stResult;
    stResult = run.Measure([&] { return pEvent->Run(run); });
    const std::string strUndo = pEvent->Undo(run);
    if (stResult.strFault.empty())
        stResult.strFault = strUndo;
    return stResult;
}
} // namespace

bool ISOLATION_RESULT::IsGood() const
{
    return strFault.empty() && AddedMs() <= ISOLATION_LIMIT_MS * ISOLATION_SLACK &&
           std::ranges::all_of(sideTimes, &SIDE_TIME::IsGood);
}

bool CIsolationRun::Start()
{
    // Other programs on the machine shall not be taken for a stall of the agent. A help, no must: it needs root.
    (void)setpriority(PRIO_PROCESS, 0, BEFORE_OTHERS);
    m_bench.StartAgent();
    return m_status.IsOpen() && m_healthy.Start(m_bench);
}

void CIsolationRun::Took(const std::string& strWhat, double dMs, double dLimitMs)
{
    m_sideTimes.push_back({strWhat, dMs, dLimitMs});
}

size_t CIsolationRun::LogCount(const std::string& strText) const
{
    const std::string strLog = m_bench.Log();
    size_t szCount = 0;
    for (size_t szAt = 0; (szAt = strLog.find(strText, szAt)) != std::string::npos; szAt += strText.size())
        ++szCount;
    return szCount;
}

bool CIsolationRun::AwaitLog(const std::string& strText, size_t szCount, milliseconds limit) const
{
    const auto isThere = [&] {
        const bool bThere = LogCount(strText) >= szCount;
        if (!bThere)
            std::this_thread::sleep_for(LOG_LOOK);
        return bThere;
    };
    return WaitFor(isThere, limit);
}

/// Until the stream runs undisturbed.
bool CIsolationRun::WaitCalm() const
{
    const auto isCalm = [&] {
        const MeterTime from = MeterClock::now();
        std::this_thread::sleep_for(CALM_TIME);
        return m_healthy.Meter().WorstMs(from, MeterClock::now(), milliseconds(0)) < CALM_MS * ISOLATION_SLACK;
    };
    return WaitFor(isCalm, CALM_LIMIT);
}

ISOLATION_RESULT CIsolationRun::Measure(const std::function<std::string()>& event)
{
    m_sideTimes.clear();
    ISOLATION_RESULT stResult;
    if (!WaitCalm())
        stResult.strFault = "the stream doesn't run undisturbed before the event";
    const MeterTime quiet = MeterClock::now();
    std::this_thread::sleep_for(QUIET_TIME);
    const MeterTime begin = MeterClock::now();
    stResult.dWithoutMs = m_healthy.Meter().WorstMs(quiet, begin, ARRIVE_LIMIT);
    m_status.Drain();
    if (const std::string strFault = event(); !strFault.empty())
        stResult.strFault = strFault;
    std::this_thread::sleep_until(begin + EVENT_TIME);
    stResult.dWithMs = m_healthy.Meter().WorstMs(begin, MeterClock::now(), ARRIVE_LIMIT);
    stResult.sideTimes = m_sideTimes;
    if (const std::string strFault = m_healthy.Fault(); !strFault.empty())
        stResult.strFault = "healthy modem: " + strFault;
    return stResult;
}

ISOLATION_RESULT RunIsolation(const ISOLATION_EVENT& stEvent)
{
    CIsolationRun run(stEvent.pszConfig);
    ISOLATION_RESULT stBest;
    if (!run.Start()) {
        stBest.strFault = "the healthy modem doesn't come up";
        return stBest;
    }
    const MeterTime end = MeterClock::now() + RUN_LIMIT;
    for (int i = 0; i < ROUNDS && (i == 0 || (!stBest.IsGood() && stBest.strFault.empty() && MeterClock::now() < end));
         ++i) {
        const ISOLATION_RESULT stRound = RunOnce(run, stEvent);
        stBest = i == 0 ? stRound : BestOf(stBest, stRound);
    }
    return stBest;
}
