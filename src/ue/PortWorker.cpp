#include "ue/PortWorker.h"

#include "common/NoMemory.h"
#include "common/Thread.h"

#include <utility>

namespace
{
constexpr int END_LIMIT_MS = 20'000;

void* PortWorker_Thread(void* pWorker)
{
    if (pWorker != nullptr)
        static_cast<CPortWorker*>(pWorker)->WorkFun();
    return nullptr;
}
} // namespace

void CPortWorker::End()
{
    Stop();
    (void)wait_thread(m_hThread, END_LIMIT_MS);
}

void CPortWorker::Post(JOB job)
{
    {
        const std::lock_guard guard(m_Lock);
        m_deqJobs.push_back(std::move(job));
    }
    StartThread();
    m_Wake.notify_all();
}

bool CPortWorker::IsIdle()
{
    const std::lock_guard guard(m_Lock);
    return m_deqJobs.empty() && !m_bBusy;
}

void CPortWorker::AddTick(std::chrono::milliseconds period, JOB tick)
{
    {
        const std::lock_guard guard(m_Lock);
        m_vecTicks.push_back(std::move(tick));
        m_Period = period;
        m_NextTick = std::chrono::steady_clock::now() + period;
    }
    Post([] {}); // the thread looks at its times anew
}

void CPortWorker::StartThread()
{
    const std::lock_guard guard(m_Lock);
    if (m_hThread == -1 && !m_bStop)
        m_hThread = start_thread(0, PortWorker_Thread, this);
}

bool CPortWorker::Rest(std::chrono::milliseconds span, const std::function<bool()>& fnGoOn)
{
    std::unique_lock lock(m_Lock);
    return !m_Wake.wait_for(lock, span, [&] { return m_bStop || !fnGoOn(); });
}

void CPortWorker::Wake()
{
    {
        const std::lock_guard guard(m_Lock); // a rest that was about to wait hears it
    }
    m_Wake.notify_all();
}

void CPortWorker::Stop()
{
    {
        const std::lock_guard guard(m_Lock);
        m_bStop = true;
    }
    m_Wake.notify_all();
}

void CPortWorker::WorkFun()
{
    for (JOB job = NextJob(); job; job = NextJob()) {
        (void)DropOnNoMemory("work on a port", job);
        job = {}; // what it holds goes before it counts as done
    }
}

/// Waits for it; none when the worker is to stop.
CPortWorker::JOB CPortWorker::NextJob()
{
    std::unique_lock lock(m_Lock);
    m_bBusy = false;
    const auto isThere = [this] { return m_bStop || !m_deqJobs.empty(); };
    while (!isThere()) {
        if (m_vecTicks.empty())
            m_Wake.wait(lock, isThere);
        else if (!m_Wake.wait_until(lock, m_NextTick, isThere))
            PostTicks(std::chrono::steady_clock::now());
    }
    if (m_bStop)
        return {};
    m_bBusy = true;
    JOB job = std::move(m_deqJobs.front());
    m_deqJobs.pop_front();
    return job;
}

/// With the lock held.
void CPortWorker::PostTicks(std::chrono::steady_clock::time_point now)
{
    m_deqJobs.insert(m_deqJobs.end(), m_vecTicks.begin(), m_vecTicks.end());
    m_NextTick = now + m_Period;
}
