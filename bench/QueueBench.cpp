#include "common/MsgBuf.h"
#include "common/UniqueFd.h"

#include <benchmark/benchmark.h>
#include <condition_variable>
#include <csignal>
#include <deque>
#include <mutex>
#include <thread>
#include <unistd.h>

// Records per second from one thread to another: through the agent's queue one by one and in runs, and, to compare,
// through a deque with one lock and a condition, and through a pipe.

namespace
{
constexpr size_t CAPACITY = 10000; // as the agent's queues have it
constexpr size_t RUN = 12;         // frames of 300 bytes that one read of a terminal brings

MSG_AGENT Record()
{
    return {AGENT_MSG_DATA, 0, CHANNEL_LTE_DATA, {}};
}

void BufQueue(benchmark::State& state)
{
    CMsgBuf buf;
    buf.Start();
    std::thread writer([&] {
        while (buf.AgentQueue().put(Record())) {
        }
    });
    MSG_AGENT stMsg;
    for (auto _ : state)
        benchmark::DoNotOptimize(buf.AgentQueue().get(stMsg));
    buf.Stop();
    writer.join();
    state.SetItemsProcessed(state.iterations());
}

void BufQueueRuns(benchmark::State& state)
{
    CMsgBuf buf;
    buf.Start();
    std::thread writer([&] {
        std::array<MSG_AGENT, RUN> run; // without packets, a record put is as it was
        while (buf.AgentQueue().put(run) == run.size()) {
        }
    });
    std::array<MSG_AGENT, MSG_RUN_MAX> astMsg;
    size_t szRecords = 0;
    for (auto _ : state)
        szRecords += buf.AgentQueue().get(astMsg);
    buf.Stop();
    writer.join();
    state.SetItemsProcessed(static_cast<int64_t>(szRecords));
}

void PlainDeque(benchmark::State& state)
{
    std::mutex mutex;
    std::condition_variable notEmpty, notFull;
    std::deque<MSG_AGENT> queue;
    bool bRun = true;
    std::thread writer([&] {
        for (;;) {
            std::unique_lock lock(mutex);
            notFull.wait(lock, [&] { return !bRun || queue.size() < CAPACITY; });
            if (!bRun)
                return;
            queue.push_back(Record());
            lock.unlock();
            notEmpty.notify_one();
        }
    });
    for (auto _ : state) {
        std::unique_lock lock(mutex);
        notEmpty.wait(lock, [&] { return !queue.empty(); });
        benchmark::DoNotOptimize(queue.front());
        queue.pop_front();
        lock.unlock();
        notFull.notify_one();
    }
    {
        const std::lock_guard lock(mutex);
        bRun = false;
    }
    notFull.notify_one();
    writer.join();
    state.SetItemsProcessed(state.iterations());
}

void Pipe(benchmark::State& state)
{
    int anFd[2];
    if (pipe(anFd) != 0) {
        state.SkipWithError("no pipe");
        return;
    }
    CUniqueFd reader(anFd[0]);
    std::thread writer([fd = CUniqueFd(anFd[1])] {
        const std::array<char, sizeof(MSG_AGENT)> acRecord{};
        while (write(fd.Get(), acRecord.data(), acRecord.size()) == static_cast<ssize_t>(acRecord.size())) {
        }
    });
    std::array<char, sizeof(MSG_AGENT)> acRecord{};
    for (auto _ : state)
        benchmark::DoNotOptimize(read(reader.Get(), acRecord.data(), acRecord.size()));
    reader.Reset();
    writer.join();
    state.SetItemsProcessed(state.iterations());
}
} // namespace

BENCHMARK(BufQueue)->UseRealTime();
BENCHMARK(BufQueueRuns)->UseRealTime();
BENCHMARK(PlainDeque)->UseRealTime();
BENCHMARK(Pipe)->UseRealTime();

int main(int nArgs, char** ppszArgs)
{
    (void)signal(SIGPIPE, SIG_IGN); // the pipe's writer ends by its error
    benchmark::Initialize(&nArgs, ppszArgs);
    return benchmark::RunSpecifiedBenchmarks() > 0 ? 0 : 1;
}
