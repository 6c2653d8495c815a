#include "page/FleetBoard.h"

#include <algorithm>

void CBenchSteps::Take(double dRecords, double dBytes)
{
    m_sum.dRecords += dRecords;
    m_sum.dBytes += dBytes;
    ++m_ulStates;
    m_last = {true, dRecords, dBytes};
}

void CBenchSteps::Close()
{
    m_steps.push_back(m_ulStates == 0 ? m_last
                                      : BENCH_STEP{true, m_sum.dRecords / m_ulStates, m_sum.dBytes / m_ulStates});
    if (m_steps.size() > MOST)
        m_steps.pop_front();
    if (m_ulStates == 0)
        m_last = {};
    m_sum = {};
    m_ulStates = 0;
}

bool CFleetBoard::Take(const FLEET_BENCH_STATE& stState, uint64_t ullStored)
{
    const auto found = m_mapBenches.find(stState.strBench);
    const bool bNew = found == m_mapBenches.end();
    if (bNew && m_mapBenches.size() >= MOST_BENCHES)
        return false;
    if (!bNew && found->second.ullStored == ullStored && found->second.stState.ullTime == stState.ullTime)
        return true;
    FLEET_BENCH& stBench = bNew ? m_mapBenches[stState.strBench] : found->second;
    stBench.stState = stState;
    stBench.ullStored = ullStored;
    stBench.ullSeen = std::min(stState.ullTime, ullStored);
    if (!bNew || PresenceOf(stBench) == BENCH_PRESENCE::LIVE) // what lay there before is no rate of now
        stBench.steps.Take(stState.dRecordRate, stState.dByteRate);
    return true;
}

void CFleetBoard::KeepOnly(const std::set<std::string>& benches)
{
    std::erase_if(m_mapBenches, [&benches](const auto& entry) { return !benches.contains(entry.first); });
}

void CFleetBoard::OnSecond(uint64_t ullNow)
{
    if (m_ullTick++ == 0)
        m_ullStart = ullNow;
    m_ullNow = ullNow;
    const uint64_t ullSteps = ullNow / CBenchSteps::STEP_MS;
    const uint64_t ullClosed = m_ullTick == 1 || ullSteps < m_ullSteps ? 0 : ullSteps - m_ullSteps;
    m_ullSteps = ullSteps;
    for (uint64_t i = 0; i < std::min<uint64_t>(ullClosed, CBenchSteps::MOST); ++i)
        for (auto& [strBench, stBench] : m_mapBenches)
            stBench.steps.Close();
}

const FLEET_BENCH* CFleetBoard::Find(const std::string& strBench) const
{
    const auto found = m_mapBenches.find(strBench);
    return found == m_mapBenches.end() ? nullptr : &found->second;
}
