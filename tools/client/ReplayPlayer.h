#pragma once

#include "client/ReplayCompare.h"
#include "client/ReplayScript.h"
#include "client/Session.h"

#include <memory>

/// Does again what the clients of a capture did, one act after the other at its time. An act waits until what the
/// clients had got before it has come, 5 s at most; when that takes longer than it did then, all behind it is later.
class CReplayPlayer
{
public:
    static constexpr std::chrono::seconds WAIT_LIMIT{5};

    /// dScale: how much longer everything takes than then; 0: as fast as possible.
    CReplayPlayer(const CONTEXT& stContext, const CReplayScript& script, double dScale);

    /// Plays to the end, or until the user stops it. CODE_NO_CONNECTION, told on the error stream, when a connection
    /// can't be made. bNow: the first act comes at once, whatever its time.
    EXIT_CODE Run(bool bNow);
    /// What came, by client of the script.
    const std::vector<REPLAY_PACKET>& Got(size_t szClient) const { return m_lines[szClient].got; }

private:
    struct LINE
    {
        std::unique_ptr<CConnection> pConnection = {}; // null before the first act and behind the last one
        std::vector<REPLAY_PACKET> got = {};
        size_t szAwaited = 0; // packets that acts have waited for
        size_t szMissing = 0; // of those that have not come
        bool bSilent = false; // the last one that was waited for didn't come, and nothing has since
    };
    Clock::duration After(const REPLAY_ACT& stAct) const;
    void WaitUntil(Clock::time_point due);
    void Await(LINE& stLine);
    EXIT_CODE Do(const REPLAY_ACT& stAct);
    EXIT_CODE Connect(const REPLAY_CLIENT& stClient, LINE& stLine);
    /// Reads what is there on all connections, waiting for it until the deadline.
    void Listen(Clock::time_point deadline);
    void Read(LINE& stLine);

    const CONTEXT& m_stContext;
    const CReplayScript& m_script;
    const double m_dScale;
    std::vector<LINE> m_lines; // by client
    Clock::time_point m_base{};
};
