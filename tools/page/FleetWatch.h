#pragma once

#include "fleet/BenchBucket.h"
#include "page/FleetModel.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <thread>

/// Follows the bucket of the benches, and the connection to the hub, and gives the news to the model. A hub or bucket
/// that isn't there is waited for; what the model knows stays as it is meanwhile.
class CFleetWatch
{
public:
    using TELL = std::function<void(const std::string&)>; // one line for who looks after the program; any thread
    /// The model outlives the watch.
    CFleetWatch(HUB_OPTIONS stOptions, CFleetModel& model, TELL tell);
    ~CFleetWatch() { Stop(); }
    CFleetWatch(const CFleetWatch&) = delete;
    CFleetWatch& operator=(const CFleetWatch&) = delete;

    /// Begins on a thread of its own. False, with the reason, when the options are no good.
    [[nodiscard]] bool Start(std::string& strError);
    void Stop();

private:
    /// One opening of the bucket.
    struct READING
    {
        std::set<std::string> seen = {}; // until all that was there has been told
        bool bAllTold = false;
        std::chrono::steady_clock::time_point last = std::chrono::steady_clock::now(); // news

        void Note(const std::string& strBench)
        {
            if (!bAllTold)
                seen.insert(strBench);
        }
    };
    void Run();
    std::string Follow();
    static bool IsSilent(const READING& stReading);
    natsStatus TakeNext(CBenchBucket& bucket, READING& stReading);
    void Take(const BENCH_NEWS& stNews, READING& stReading);
    void TakeState(const BENCH_NEWS& stNews, READING& stReading);
    void Pause() const;
    std::string LinkProblem();
    std::string BucketProblem(natsStatus enStatus) const;
    void OnError(const std::string& strWhat);
    void Show(const std::string& strProblem);
    void TellOnce(const std::string& strBench, const std::string& strText);

    const HUB_OPTIONS m_stOptions;
    CFleetModel& m_model;
    const TELL m_tell;
    std::atomic<bool> m_bEnd = false;
    std::atomic<uint64_t> m_ullConnections = 0;
    mutable std::mutex m_Lock; // over what the library's threads tell
    std::string m_strRefusal;  // what the hub doesn't permit
    std::unique_ptr<CHub> m_pHub;
    std::thread m_thread;

    // Of the thread alone.
    std::string m_strTold;                             // the newest line on the hub
    std::string m_strWhy;                              // there is no connection
    std::chrono::steady_clock::time_point m_nextTry{}; // to learn that
    std::set<std::string> m_setTold;                   // benches that a line was told of
};
