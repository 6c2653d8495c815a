#pragma once

#include "common/ThreadAnnotations.h"
#include "common/xtl.h"

#include <map>
#include <vector>

/// How many running reports need the traces of each PID; decides which PIDs the UE is told to trace. Any thread.
class CTraceReqCounter
{
public:
    /// Knows the PIDs 130, 131 and 132 from the start.
    CTraceReqCounter();

    /// Enters a PID with count 0; one that is known keeps its count.
    void AddMap(unsigned int ulPid);
    /// Counts up the first PID only, entering it when it is new. The asymmetry with the decrease is deliberate.
    void IncreaseCounter(const unsigned int* pulPids, int nCount);
    /// Counts down the PIDs in order, none below 0, and stops at the first that isn't known.
    void DecreaseCounter(const unsigned int* pulPids, int nCount);
    /// 0 for an unknown PID.
    unsigned short GetCounter(unsigned int ulPid) const;
    /// The PIDs with a count above 0, in rising order.
    void GetPidNeedSend(std::vector<unsigned int>& vecPids) const;

private:
    mutable xtl::Mutex m_Lock;
    std::map<unsigned int, unsigned short> m_mapCount GUARDED_BY(m_Lock);
};
