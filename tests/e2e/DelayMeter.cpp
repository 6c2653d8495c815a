#include "e2e/DelayMeter.h"

#include "support/WaitFor.h"

#include <algorithm>

uint32_t CDelayMeter::Send(MeterTime time)
{
    const xtl::MutexGuard guard(m_Lock);
    m_passages.push_back({time, {}});
    return static_cast<uint32_t>(m_passages.size() - 1);
}

bool CDelayMeter::Receive(uint32_t ulNumber, MeterTime time)
{
    const xtl::MutexGuard guard(m_Lock);
    if (ulNumber >= m_passages.size() || m_passages[ulNumber].received != MeterTime())
        return false;
    m_passages[ulNumber].received = time;
    return true;
}

double CDelayMeter::WorstMs(MeterTime from, MeterTime to, std::chrono::milliseconds limit) const
{
    double dWorst = 0;
    (void)WaitFor([&] { return Worst(from, to, dWorst); }, limit);
    return dWorst;
}

bool CDelayMeter::Worst(MeterTime from, MeterTime to, double& dWorst) const
{
    const MeterTime now = MeterClock::now();
    const xtl::MutexGuard guard(m_Lock);
    bool bAllCame = true;
    auto passage = std::ranges::lower_bound(m_passages, from, {}, &PASSAGE::sent);
    for (; passage != m_passages.end() && passage->sent <= to; ++passage) {
        const bool bCame = passage->received != MeterTime();
        bAllCame = bAllCame && bCame;
        dWorst = std::max(dWorst, Millis((bCame ? passage->received : now) - passage->sent));
    }
    return bAllCame;
}

size_t CDelayMeter::Missing() const
{
    const xtl::MutexGuard guard(m_Lock);
    return static_cast<size_t>(std::ranges::count(m_passages, MeterTime(), &PASSAGE::received));
}

size_t CDelayMeter::Sent() const
{
    const xtl::MutexGuard guard(m_Lock);
    return m_passages.size();
}
