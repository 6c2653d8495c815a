#pragma once

#include "common/UniqueFd.h"

#include <atomic>
#include <cstdint>

/// Ends the poll of one thread, the sleeper, which has the descriptor in its set. Without a descriptor, when the system
/// has none left, the sleeper learns at the end of its wait.
class CWakeUp
{
public:
    CWakeUp();

    /// For the sleeper's set; -1 when there is none.
    int Fd() const { return m_Fd.Get(); }
    /// The sleeper, before it looks for work a last time and then waits.
    void FallAsleep();
    /// The sleeper, behind its wait.
    void Rise();

    /// Wakes the sleeper if it sleeps or is about to; a system call only then. From any thread, or a signal handler.
    void Wake()
    {
        if (m_bAsleep.exchange(false))
            Ring();
    }

private:
    void Ring();

    CUniqueFd m_Fd; // an eventfd
    std::atomic<bool> m_bAsleep = false;
    // The sleeper's own:
    bool m_bDown = false;   // from FallAsleep to Rise
    uint64_t m_ullOwed = 0; // rings that it has seen coming and not read
};
