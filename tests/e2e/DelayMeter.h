#pragma once

#include "common/xtl.h"

#include <chrono>
#include <cstdint>
#include <vector>

using MeterClock = std::chrono::steady_clock;
using MeterTime = MeterClock::time_point;

inline double Millis(MeterClock::duration time)
{
    return std::chrono::duration<double, std::milli>(time).count();
}

/// Packets that are numbered from 0: when each went in, and when it came out. Its two sides may be two threads.
class CDelayMeter
{
public:
    /// The number of the packet that goes in now.
    uint32_t Send(MeterTime time);
    /// False for a number that never went in, or came out already.
    bool Receive(uint32_t ulNumber, MeterTime time);

    /// Longest delay, in ms, of the packets that went in between the two times. Waits for those that are under way,
    /// until the limit; one that hasn't come out then counts with its age.
    double WorstMs(MeterTime from, MeterTime to, std::chrono::milliseconds limit) const;
    /// Packets that went in and never came out.
    size_t Missing() const;
    size_t Sent() const;

private:
    struct PASSAGE
    {
        MeterTime sent;
        MeterTime received; // zero: under way
    };

    /// The delays so far; all of them known?
    bool Worst(MeterTime from, MeterTime to, double& dWorst) const;

    mutable xtl::Mutex m_Lock;
    std::vector<PASSAGE> m_passages GUARDED_BY(m_Lock);
};
