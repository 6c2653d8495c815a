#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <vector>

/// Does what may take its time with the ports of one UE: opening, settling, closing, connecting. Jobs run one after
/// the other, in the order in which they were posted, on a thread of their own that starts with the first one. So a
/// device that doesn't answer holds up nobody but its own UE.
class CPortWorker
{
public:
    using JOB = std::function<void()>;

    CPortWorker() = default;
    ~CPortWorker() { End(); }
    CPortWorker(const CPortWorker&) = delete;
    CPortWorker& operator=(const CPortWorker&) = delete;

    void Post(JOB job);
    /// Nothing is under way and nothing waits.
    bool IsIdle();
    /// From now on the job runs each period too, between others; so do those that were added before.
    void AddTick(std::chrono::milliseconds period, JOB tick);
    /// For a job: rests so long, but not longer than fnGoOn says so, which is asked at the start and at each Wake.
    /// False when it was cut short.
    bool Rest(std::chrono::milliseconds span, const std::function<bool()>& fnGoOn);
    void Wake();
    /// No further job starts, and a rest ends. Waits for none.
    void Stop();
    /// Stop, and waits until the job at hand has ended.
    void End();

    /// Body of the thread.
    void WorkFun();

private:
    JOB NextJob();
    void PostTicks(std::chrono::steady_clock::time_point now);
    void StartThread();

    std::mutex m_Lock; // over all below
    std::condition_variable m_Wake;
    std::deque<JOB> m_deqJobs;
    std::vector<JOB> m_vecTicks;
    std::chrono::milliseconds m_Period{0};
    std::chrono::steady_clock::time_point m_NextTick = std::chrono::steady_clock::time_point::max();
    bool m_bBusy = false; // a job runs
    bool m_bStop = false;
    int m_hThread = -1;
};
