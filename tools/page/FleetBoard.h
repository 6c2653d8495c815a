#pragma once

#include "fleet/FleetState.h"

#include <deque>
#include <map>
#include <set>
#include <string>

// Times are ms since 1970.

/// The connection to the hub, as the page shows it.
struct FLEET_HUB
{
    bool bConnected = false;
    std::string strServer; // empty while there is none
    std::string strError;  // why there is none, or why there is nothing to be seen
};

/// The rates of a bench in one step of the page's clock.
struct BENCH_STEP
{
    bool bCame = false; // whether a state told of it
    double dRecords = 0;
    double dBytes = 0;
};

/// The newest steps of one bench. States come at times of their own: several in one step count by their mean, and one
/// holds for the step behind it, too, when that has none.
class CBenchSteps
{
public:
    static constexpr uint64_t STEP_MS = 5000; // a forwarder's states come as often by default
    static constexpr size_t MOST = 20;        // so 500 benches with 16 modems stay below 1 MB a tick

    void Take(double dRecords, double dBytes);
    /// Ends the step.
    void Close();
    const std::deque<BENCH_STEP>& Steps() const { return m_steps; }

private:
    std::deque<BENCH_STEP> m_steps; // oldest first
    BENCH_STEP m_sum;               // of the states in the step that goes on
    unsigned int m_ulStates = 0;    // in it
    BENCH_STEP m_last;              // the newest state, as long as it may hold
};

struct FLEET_BENCH
{
    FLEET_BENCH_STATE stState;
    uint64_t ullStored = 0; // when the hub got it
    uint64_t ullSeen = 0;   // when it was made; no later than the hub got it, whatever the bench's clock said
    CBenchSteps steps;
};

/// All benches that the page knows of. Not safe from several threads: the model has it under a lock.
class CFleetBoard
{
public:
    static constexpr size_t MOST_BENCHES = 5000;

    /// A state that the hub got at ullStored; the same one may come again. False when there are MOST_BENCHES others.
    [[nodiscard]] bool Take(const FLEET_BENCH_STATE& stState, uint64_t ullStored);
    void Forget(const std::string& strBench) { m_mapBenches.erase(strBench); }
    /// Forgets all others.
    void KeepOnly(const std::set<std::string>& benches);
    /// A second has ended.
    void OnSecond(uint64_t ullNow);

    const std::map<std::string, FLEET_BENCH>& Benches() const { return m_mapBenches; }
    /// Null when it isn't known.
    const FLEET_BENCH* Find(const std::string& strBench) const;
    BENCH_PRESENCE PresenceOf(const FLEET_BENCH& stBench) const { return ::PresenceOf(stBench.ullSeen, m_ullNow); }
    uint64_t AgeMs(const FLEET_BENCH& stBench) const { return m_ullNow - std::min(stBench.ullSeen, m_ullNow); }

    uint64_t Now() const { return m_ullNow; } // of the newest tick
    uint64_t Start() const { return m_ullStart; }
    uint64_t Tick() const { return m_ullTick; }
    /// End of the newest step.
    uint64_t StepEnd() const { return m_ullSteps * CBenchSteps::STEP_MS; }

    FLEET_HUB stHub;

private:
    std::map<std::string, FLEET_BENCH> m_mapBenches;
    uint64_t m_ullNow = 0;
    uint64_t m_ullStart = 0;
    uint64_t m_ullTick = 0;
    uint64_t m_ullSteps = 0; // that have ended since 1970
};
