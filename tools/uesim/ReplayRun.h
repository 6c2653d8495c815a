#pragma once

#include "uesim/ReplayPlan.h"
#include "uesim/SimTime.h"

#include <deque>
#include <functional>
#include <map>

/// How far the replay of one modem is. Knows no port and no clock: times come in, packets come out.
///
/// What the modem sent by itself comes at its time. What answered a request waits for that request and comes as long
/// after it as it did then. A request that comes late holds up the modem's time, so that all behind it stays behind it;
/// one that never comes does so for 5 s, and until the next one that was expected no other does.
class CReplayRun
{
public:
    static constexpr SimDuration WAIT_LIMIT = std::chrono::seconds(5); // for a request, or for a port to open
    static constexpr SimDuration UNANSWERED_LIMIT = std::chrono::milliseconds(500); // for a request without an answer
    static constexpr SimDuration HURRY_LIMIT = std::chrono::seconds(1);             // how much a request may be early
    static constexpr SimDuration ORDER_LIMIT = std::chrono::seconds(1); // that an answer waits for what was before it
    static constexpr SimDuration CALM = std::chrono::milliseconds(300); // before a port goes or comes: what is under
                                                                        // way shall arrive
    static constexpr SimDuration LINGER = std::chrono::milliseconds(1000); // before the end, for the same reason

    /// The plan outlives this. dScale: how much longer everything takes than then; 0: as fast as possible.
    CReplayRun(const REPLAY_UE& stPlan, double dScale, uint64_t ullEnd);

    bool IsStarted() const { return m_bStarted; }
    /// From now on the modem's time runs, from this time of the capture on.
    void Start(SimTime now, uint64_t ullFrom);

    /// A request has come. False when the capture has none of that name that is still to come.
    bool OnRequest(enSerialType enPort, const std::string& strName, SimTime now);

    enum class PORT
    {
        READY,
        FULL, // for now
        CLOSED,
    };
    using PORT_STATE = std::function<PORT(enSerialType enPort)>;
    /// The next packet that is due and has a port to go to; null when there is none now.
    const REPLAY_STEP* TakeStep(SimTime now, const PORT_STATE& stateOf);
    /// The next port that is to come or go; null when there is none now.
    const REPLAY_EVENT* TakeEvent(SimTime now);
    /// When to look again; what waits for a port or a request comes with those.
    SimTime NextLook(SimTime now) const;
    bool IsDone(SimTime now) const;

    struct TOTALS
    {
        uint64_t ullPlayed = 0;          // packets
        uint64_t ullLost = 0;            // packets whose port wasn't open
        uint64_t ullUnplanned = 0;       // requests that the capture doesn't have
        std::vector<size_t> missed = {}; // requests with an answer that never came
    };
    const TOTALS& Totals() const { return m_stTotals; }

private:
    enum class CAME : uint8_t
    {
        NOT_YET,
        YES,
        TOO_LATE,
    };
    struct ANSWER
    {
        SimTime due;
        SimTime latest; // then it comes even if something before it in the capture has not
    };
    SimTime Due(uint64_t ullTime) const;
    SimDuration Scaled(uint64_t ullFrom, uint64_t ullTo) const;
    bool HasWaited() const { return m_szWaited < m_stPlan.requests.size(); }
    bool IsBlocked(size_t szStep) const;
    void Follow(size_t szRequest, SimTime now);
    void SkipAnswers();
    void SkipArrived();
    void Activate(size_t szStep, SimTime now);
    void GiveUp(SimTime now);
    void Miss();
    bool IsAnswerDue(SimTime now) const;
    size_t Candidate(SimTime now) const;
    bool IsWaitedFor(enSerialType enPort, SimTime now);
    void Remove(size_t szStep);
    bool IsPlayedUpTo(size_t szStep) const;

    const REPLAY_UE& m_stPlan;
    const double m_dScale;
    const uint64_t m_ullEnd;
    bool m_bStarted = false;
    SimTime m_base{};                           // at which time 0 of the capture is due
    size_t m_szNext = 0;                        // the next step that the modem sends by itself
    std::map<size_t, ANSWER> m_answers;         // steps whose requests have come
    std::vector<std::vector<size_t>> m_stepsOf; // by request
    std::vector<CAME> m_came;                   // by request
    std::vector<SimTime> m_cameAt;
    std::map<std::pair<enSerialType, std::string>, std::deque<size_t>> m_expected; // requests that haven't come
    size_t m_szWaited = 0;                                                         // the first request that hasn't come
    SimTime m_blockedSince = NEVER;            // all before that request has been played
    SimTime m_portSince = NEVER;               // the next packet waits for its port
    std::array<bool, SERIALNUM> m_abandoned{}; // closed ports that nothing waits for any more
    bool m_bInStep = true;                     // the last request that was waited for has come
    size_t m_szEvent = 0;
    SimTime m_lastAct{};
    TOTALS m_stTotals;
};
