#pragma once

#include "common/MsgBuf.h"
#include "common/Types.h"

#include <chrono>
#include <map>
#include <memory>
#include <poll.h>
#include <vector>

class ILine;

/// What one pass of the read loop waits for: the open ports and links whose packets the agent can take, and the wake-up
/// that tells of a change. Remembers lines whose read failed: they are left out for a second, so that a modem that
/// vanished can't make the loop spin. A read thread uses one set over and over, so that a pass allocates nothing.
class CReadSet
{
public:
    /// The thread's.
    explicit CReadSet(CWakeUp& wake) : m_wake(wake) {}

    /// The lines, for the caller to fill before Wait.
    std::vector<std::shared_ptr<ILine>>& Lines() { return m_vecLine; }

    /// Waits until something can be read, at most lTimeoutMs; false on a fault.
    bool Wait(int lTimeoutMs);
    /// Reads from each line that has something.
    void ReadLines();

private:
    void FillPoll();
    static bool CanTake(ILine& line);
    void ReadLine(size_t szIndex);
    void OnReadFault(const ILine* pLine) { m_mapFault[pLine] = std::chrono::steady_clock::now(); }
    void ForgetOldFaults();

    CWakeUp& m_wake;
    std::vector<std::shared_ptr<ILine>> m_vecLine; // after FillPoll those that take part
    std::vector<pollfd> m_vecPoll;                 // their entries, in the same order, and the wake-up
    std::map<const ILine*, std::chrono::steady_clock::time_point> m_mapFault;
};
