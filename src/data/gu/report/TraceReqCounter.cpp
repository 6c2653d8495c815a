#include "data/gu/report/TraceReqCounter.h"

CTraceReqCounter::CTraceReqCounter() : m_mapCount{{130, 0}, {131, 0}, {132, 0}} {}

void CTraceReqCounter::AddMap(unsigned int ulPid)
{
    const xtl::MutexGuard guard(m_Lock);
    m_mapCount.try_emplace(ulPid, static_cast<unsigned short>(0));
}

void CTraceReqCounter::IncreaseCounter(const unsigned int* pulPids, int nCount)
{
    if (nCount <= 0)
        return;
    const xtl::MutexGuard guard(m_Lock);
    ++m_mapCount[*pulPids];
}

void CTraceReqCounter::DecreaseCounter(const unsigned int* pulPids, int nCount)
{
    const xtl::MutexGuard guard(m_Lock);
    for (int i = 0; i < nCount; ++i) {
        const auto it = m_mapCount.find(pulPids[i]);
        if (it == m_mapCount.end())
            return;
        if (it->second > 0)
            --it->second;
    }
}

unsigned short CTraceReqCounter::GetCounter(unsigned int ulPid) const
{
    const xtl::MutexGuard guard(m_Lock);
    const auto it = m_mapCount.find(ulPid);
    return it == m_mapCount.end() ? static_cast<unsigned short>(0) : it->second;
}

void CTraceReqCounter::GetPidNeedSend(std::vector<unsigned int>& vecPids) const
{
    vecPids.clear();
    const xtl::MutexGuard guard(m_Lock);
    for (const auto& [ulPid, usCount] : m_mapCount)
        if (usCount > 0)
            vecPids.push_back(ulPid);
}
