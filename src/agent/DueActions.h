#pragma once

#include "common/LteDiagInitCmd.h"
#include "common/Types.h"

#include <array>
#include <chrono>
#include <optional>

/// What is to happen to a UE at a certain time.
struct DUE_ACTION
{
    enum KIND
    {
        HOST_CONNECT, // the request, and that for the time stamp right behind it
        SWITCH,       // one of LTE_DIAG_INIT_CMD
        CONNECTED,    // the UE has all its switches: tell the monitor
    };

    UE_INDEX ulUeIdx = 0;
    KIND enKind = HOST_CONNECT;
    size_t szSwitch = 0; // row of the table, for a SWITCH
};

/// What the agent has yet to send to each UE, and when. A UE has one sequence at most: the host connect two seconds
/// behind its attach, the switches behind its confirmation, 50 ms apart, and 50 ms behind the last one the report.
/// Time is told by the caller, and the times of calls never go back. One call at a time.
class CDueActions
{
public:
    using TIME = std::chrono::steady_clock::time_point;
    static constexpr std::chrono::seconds HOST_CONNECT_DELAY{2};    // a port that was just opened needs this
    static constexpr std::chrono::milliseconds SWITCH_INTERVAL{50}; // a UE takes switches no faster

    /// The UE was attached: whatever it was doing, it starts anew.
    void StartHostConnect(UE_INDEX ulUeIdx, TIME now);
    /// The UE is confirmed: from the first switch, also when the switches are under way. With a host connect that is
    /// still due, they follow it.
    void StartSwitches(UE_INDEX ulUeIdx, TIME now);
    /// Nothing is due for the UE any more.
    void Cancel(UE_INDEX ulUeIdx);

    /// The earliest action that is due by now, and none twice. What follows it in its sequence keeps its distance from
    /// now, however late that is.
    std::optional<DUE_ACTION> Take(TIME now);
    /// When the next action is due; the end of time when there is none.
    TIME NextTime() const;

private:
    struct SEQUENCE
    {
        TIME due = TIME::max(); // of the next step; the end of time: none
        DUE_ACTION::KIND enNext = DUE_ACTION::HOST_CONNECT;
        size_t szSwitch = 0;
        bool bConfirmed = false;       // the switches follow the host connect
        TIME switchFrom = TIME::min(); // earliest time for another switch
    };

    static void Advance(SEQUENCE& stSequence, TIME now);

    std::array<SEQUENCE, MAXUENUM> m_astSequence;
};
