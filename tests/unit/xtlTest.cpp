#include "common/xtl.h"

#include "support/Blocks.h"

#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <numeric>
#include <vector>

namespace
{

using Queue = xtl::BufQueue<int, xtl::BufQueue_allocate<int>>;

/// What one get of at most szMost records gives.
std::vector<int> TakeRun(Queue& queue, size_t szMost)
{
    std::vector<int> vecTaken(szMost);
    vecTaken.resize(queue.get(vecTaken));
    return vecTaken;
}

/// How many of the records one put of all of them takes.
size_t PutAll(Queue& queue, std::vector<int> vecRecords)
{
    return queue.put(vecRecords);
}

/// 0, 1, 2 ...
std::vector<int> Numbers(int nCount)
{
    std::vector<int> vecNumbers(static_cast<size_t>(nCount));
    std::iota(vecNumbers.begin(), vecNumbers.end(), 0);
    return vecNumbers;
}

/// Everything that a queue gives before it fails.
std::vector<int> TakeAll(Queue& queue)
{
    std::vector<int> vecTaken;
    for (int lValue = 0; queue.get(lValue);)
        vecTaken.push_back(lValue);
    return vecTaken;
}

} // namespace

TEST(XtlMutex, SecondLockWaitsForTheUnlock)
{
    xtl::Mutex mutex;
    mutex.Lock();
    CBackgroundCall second([&] {
        mutex.Lock();
        mutex.Unlock();
    });
    EXPECT_TRUE(second.Blocks());
    mutex.Unlock();
    EXPECT_TRUE(second.Returns());
}

TEST(XtlMutex, GuardUnlocksAtTheEndOfItsScopeOrBefore)
{
    xtl::Mutex mutex;
    {
        const xtl::MutexGuard guard(mutex);
    }
    {
        xtl::MutexGuard guard(mutex);
        guard.Unlock();
        mutex.Lock();
        mutex.Unlock();
    }
    mutex.Lock();
    mutex.Unlock();
}

TEST(XtlMutex, SharedBetweenProcessesLocksToo)
{
    xtl::Mutex mutex(true);
    mutex.Lock();
    mutex.Unlock();
}

TEST(XtlCond, WaitTakesAPermitAndLeavesTheMutexLocked)
{
    xtl::Mutex mutex;
    xtl::Cond cond(1, false);
    cond.condWait(mutex);
    CBackgroundCall other([&] {
        mutex.Lock();
        mutex.Unlock();
    });
    EXPECT_TRUE(other.Blocks());
    cond.condSignal(mutex);
    EXPECT_TRUE(other.Returns());
}

TEST(XtlCond, WaitWithoutPermitsBlocksUntilASignal)
{
    xtl::Mutex mutex;
    xtl::Cond cond(0, false);
    CBackgroundCall waiter([&] {
        cond.condWait(mutex);
        mutex.Unlock();
    });
    EXPECT_TRUE(waiter.Blocks());
    mutex.Lock();
    cond.condSignal(mutex);
    EXPECT_TRUE(waiter.Returns());
}

TEST(XtlCond, EachSignalIsOnePermit)
{
    xtl::Mutex mutex;
    xtl::Cond cond(0, false);
    for (int i = 0; i < 2; ++i) {
        mutex.Lock();
        cond.condSignal(mutex);
    }
    for (int i = 0; i < 2; ++i) {
        cond.condWait(mutex);
        mutex.Unlock();
    }
    CBackgroundCall third([&] {
        cond.condWait(mutex);
        mutex.Unlock();
    });
    EXPECT_TRUE(third.Blocks());
    mutex.Lock();
    cond.condSignal(mutex);
    EXPECT_TRUE(third.Returns());
}

TEST(XtlCond, StopWakesEveryWaiterAndStartSetsThePermits)
{
    xtl::Mutex mutex;
    xtl::Cond cond(0, false);
    const auto wait = [&] {
        cond.condWait(mutex);
        mutex.Unlock();
    };
    {
        CBackgroundCall first(wait);
        CBackgroundCall second(wait);
        EXPECT_TRUE(first.Blocks());
        EXPECT_TRUE(second.Blocks());
        mutex.Lock();
        cond.stop();
        mutex.Unlock();
        EXPECT_TRUE(first.Returns());
        EXPECT_TRUE(second.Returns());
    }
    for (int i = 0; i < 1000; ++i)
        wait();
    mutex.Lock();
    cond.start(1);
    mutex.Unlock();
    wait();
    CBackgroundCall blocked(wait);
    EXPECT_TRUE(blocked.Blocks());
    mutex.Lock();
    cond.condSignal(mutex);
    EXPECT_TRUE(blocked.Returns());
}

TEST(XtlCond, FurtherPermitsAreTakenWithoutAWait)
{
    xtl::Mutex mutex;
    xtl::Cond cond(5, false);
    cond.condWait(mutex);
    EXPECT_EQ(cond.condTakeMore(0), 0);
    EXPECT_EQ(cond.condTakeMore(3), 3);
    EXPECT_EQ(cond.condTakeMore(3), 1) << "no more were there";
    EXPECT_EQ(cond.condTakeMore(3), 0);
    mutex.Unlock();
}

TEST(XtlCond, SeveralPermitsWakeSeveralWaiters)
{
    xtl::Mutex mutex;
    xtl::Cond cond(0, false);
    const auto wait = [&] {
        cond.condWait(mutex);
        mutex.Unlock();
    };
    CBackgroundCall first(wait);
    CBackgroundCall second(wait);
    CBackgroundCall third(wait);
    EXPECT_TRUE(first.Blocks() && second.Blocks() && third.Blocks());
    mutex.Lock();
    cond.condSignal(mutex, 3);
    EXPECT_TRUE(first.Returns() && second.Returns() && third.Returns());
}

TEST(XtlLoopQue, SlotsFollowTheHeaderAndWrapAround)
{
    using Ring = xtl::LoopQue_impl<int>;
    EXPECT_EQ(Ring::addsize(3), 12u);

    alignas(Ring) std::byte memory[sizeof(Ring) + 12] = {};
    auto* pRing = new (memory) Ring(3);
    EXPECT_EQ(pRing->capacity(), 3);
    EXPECT_TRUE(pRing->empty());
    for (int lNext = 0, lOldest = 0; lNext < 10; ++lNext) {
        pRing->push(int(lNext));
        if (lNext == 0) {
            EXPECT_EQ(static_cast<void*>(&pRing->front()), static_cast<void*>(memory + sizeof(Ring)));
        }
        if (pRing->size() < 3)
            continue;
        EXPECT_EQ(pRing->front(), lOldest++);
        pRing->pop();
    }
    EXPECT_FALSE(pRing->empty());
    EXPECT_EQ(pRing->size(), 2);
    EXPECT_EQ(pRing->front(), 8);
    pRing->~Ring();
}

TEST(XtlBufQueue, RecordsComeOutInTheOrderTheyWentIn)
{
    Queue queue(3);
    int lValue = 0;
    for (int i = 0; i < 10; ++i) {
        EXPECT_TRUE(queue.put(2 * i));
        EXPECT_TRUE(queue.put(2 * i + 1));
        ASSERT_TRUE(queue.get(lValue));
        EXPECT_EQ(lValue, 2 * i);
        ASSERT_TRUE(queue.get(lValue));
        EXPECT_EQ(lValue, 2 * i + 1);
    }
}

TEST(XtlBufQueue, GetOnAnEmptyQueueBlocksUntilAPut)
{
    Queue queue(3);
    int lValue = 0;
    CBackgroundCall reader([&] { EXPECT_TRUE(queue.get(lValue)); });
    EXPECT_TRUE(reader.Blocks());
    queue.put(7);
    EXPECT_TRUE(reader.Returns());
    EXPECT_EQ(lValue, 7);
}

TEST(XtlBufQueue, ACapacityOf50Holds50AndThe51stPutBlocksUntilAGet)
{
    Queue queue(50);
    {
        CBackgroundCall fifty([&] {
            for (int i = 1; i <= 50; ++i)
                EXPECT_TRUE(queue.put(i));
        });
        ASSERT_TRUE(fifty.Returns());
    }
    CBackgroundCall writer([&] { EXPECT_TRUE(queue.put(51)); });
    EXPECT_TRUE(writer.Blocks());
    int lValue = 0;
    EXPECT_TRUE(queue.get(lValue));
    EXPECT_EQ(lValue, 1);
    EXPECT_TRUE(writer.Returns());
    queue.stop();
    const std::vector<int> vecRest = TakeAll(queue);
    ASSERT_EQ(vecRest.size(), 50u);
    EXPECT_EQ(vecRest.front(), 2);
    EXPECT_EQ(vecRest.back(), 51);
}

TEST(XtlBufQueue, AGetOfSeveralTakesWhatIsThereAndWaitsForOneOnly)
{
    Queue queue(10);
    EXPECT_EQ(PutAll(queue, Numbers(5)), 5u);
    EXPECT_EQ(TakeRun(queue, 3), (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(TakeRun(queue, 3), (std::vector<int>{3, 4}));
    std::vector<int> vecTaken;
    CBackgroundCall reader([&] { vecTaken = TakeRun(queue, 3); });
    EXPECT_TRUE(reader.Blocks());
    queue.put(9);
    EXPECT_TRUE(reader.Returns());
    EXPECT_EQ(vecTaken, std::vector<int>{9});
}

namespace
{
using Clock = std::chrono::steady_clock;

/// What one get of at most szMost records until then gives.
std::vector<int> TakeRunUntil(Queue& queue, size_t szMost, Clock::time_point end)
{
    std::vector<int> vecTaken(szMost);
    vecTaken.resize(queue.get(vecTaken, end));
    return vecTaken;
}
} // namespace

TEST(XtlBufQueue, AGetUntilATimeThatHasPassedTakesWhatIsThere)
{
    Queue queue(10);
    const auto past = Clock::now() - std::chrono::hours(1);
    EXPECT_EQ(TakeRunUntil(queue, 3, past), std::vector<int>{});
    EXPECT_EQ(PutAll(queue, Numbers(5)), 5u);
    EXPECT_EQ(TakeRunUntil(queue, 3, past), (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(TakeRunUntil(queue, 3, past), (std::vector<int>{3, 4}));
    EXPECT_EQ(TakeRunUntil(queue, 3, past), std::vector<int>{});
    EXPECT_EQ(TakeRunUntil(queue, 3, Clock::time_point{}), std::vector<int>{}) << "the start of the clock";
    EXPECT_TRUE(queue.running());
}

TEST(XtlBufQueue, AGetUntilATimeEndsThenAndNotBefore)
{
    Queue queue(10);
    const auto end = Clock::now() + std::chrono::milliseconds(20);
    EXPECT_EQ(TakeRunUntil(queue, 3, end), std::vector<int>{});
    EXPECT_GE(Clock::now(), end);
    EXPECT_TRUE(queue.running()) << "a time-out, not a stopped queue";
}

TEST(XtlBufQueue, AGetThatRanOutOfTimeTookNoPermit)
{
    Queue queue(2);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(TakeRunUntil(queue, 3, Clock::now()), std::vector<int>{});
    EXPECT_EQ(PutAll(queue, Numbers(2)), 2u);
    EXPECT_EQ(TakeRun(queue, 3), Numbers(2));
}

TEST(XtlBufQueue, APutEndsAGetUntilALaterTime)
{
    Queue queue(10);
    for (const auto end : {Clock::now() + std::chrono::hours(1), Clock::time_point::max()}) {
        std::vector<int> vecTaken;
        CBackgroundCall reader([&] { vecTaken = TakeRunUntil(queue, 3, end); });
        EXPECT_TRUE(reader.Blocks());
        queue.put(9);
        EXPECT_TRUE(reader.Returns());
        EXPECT_EQ(vecTaken, std::vector<int>{9});
    }
}

TEST(XtlBufQueue, StopEndsAGetUntilALaterTime)
{
    Queue queue(10);
    queue.put(1);
    EXPECT_EQ(TakeRun(queue, 1), std::vector<int>{1});
    {
        CBackgroundCall reader(
            [&] { EXPECT_EQ(TakeRunUntil(queue, 3, Clock::time_point::max()), std::vector<int>{}); });
        EXPECT_TRUE(reader.Blocks());
        queue.stop();
        EXPECT_TRUE(reader.Returns());
    }
    EXPECT_FALSE(queue.running());
    queue.start();
    EXPECT_TRUE(queue.running());
}

TEST(XtlBufQueue, AStoppedQueueGivesWhatIsLeftToAGetUntilATime)
{
    Queue queue(10);
    EXPECT_EQ(PutAll(queue, Numbers(2)), 2u);
    queue.stop();
    EXPECT_EQ(TakeRunUntil(queue, 3, Clock::time_point::max()), Numbers(2));
    EXPECT_EQ(TakeRunUntil(queue, 3, Clock::time_point::max()), std::vector<int>{});
}

TEST(XtlBufQueue, APutOfMoreThanThereIsRoomForWaitsInTheMiddle)
{
    Queue queue(4);
    queue.put(-1);
    CBackgroundCall writer([&] { EXPECT_EQ(PutAll(queue, Numbers(10)), 10u); });
    EXPECT_TRUE(writer.Blocks());
    std::vector<int> vecTaken;
    while (vecTaken.size() < 11) {
        const std::vector<int> vecRun = TakeRun(queue, 3);
        vecTaken.insert(vecTaken.end(), vecRun.begin(), vecRun.end());
    }
    EXPECT_TRUE(writer.Returns());
    EXPECT_EQ(vecTaken, (std::vector<int>{-1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
}

TEST(XtlBufQueue, RunsGiveBackAsManyPermitsAsTheyTook)
{
    Queue queue(4);
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(PutAll(queue, Numbers(3)), 3u);
        EXPECT_EQ(TakeRun(queue, 8), Numbers(3));
    }
    EXPECT_EQ(PutAll(queue, Numbers(4)), 4u);
    CBackgroundCall fifth([&] { EXPECT_FALSE(queue.put(4)); });
    EXPECT_TRUE(fifth.Blocks()) << "four slots, all taken";
    queue.stop();
    EXPECT_TRUE(fifth.Returns());
    EXPECT_EQ(TakeRun(queue, 8), Numbers(4));
    EXPECT_EQ(TakeRun(queue, 8), std::vector<int>{}) << "stopped and empty";
}

TEST(XtlBufQueue, StopEndsAPutOfSeveralWithTheCountThatWentIn)
{
    Queue queue(4);
    CBackgroundCall writer([&] { EXPECT_EQ(PutAll(queue, Numbers(10)), 4u); });
    EXPECT_TRUE(writer.Blocks());
    queue.stop();
    EXPECT_TRUE(writer.Returns());
    EXPECT_EQ(PutAll(queue, Numbers(2)), 0u);
    EXPECT_EQ(TakeAll(queue), Numbers(4));
}

TEST(XtlBufQueue, ARunAfterARestartKeepsToItsPermits)
{
    Queue queue(4);
    queue.put(1);
    queue.put(2);
    queue.stop();
    queue.start();
    EXPECT_EQ(PutAll(queue, {3, 4}), 2u);
    EXPECT_EQ(TakeRun(queue, 8), (std::vector<int>{1, 2})) << "as many as were put since, the oldest first";
}

TEST(XtlBufQueue, StopWakesABlockedReaderWithFalse)
{
    Queue queue(3);
    int lValue = 0;
    CBackgroundCall reader([&] { EXPECT_FALSE(queue.get(lValue)); });
    EXPECT_TRUE(reader.Blocks());
    queue.stop();
    EXPECT_TRUE(reader.Returns());
}

TEST(XtlBufQueue, StopWakesABlockedWriterWithFalse)
{
    Queue queue(1);
    queue.put(1);
    CBackgroundCall writer([&] { EXPECT_FALSE(queue.put(2)); });
    EXPECT_TRUE(writer.Blocks());
    queue.stop();
    EXPECT_TRUE(writer.Returns());
    EXPECT_EQ(TakeAll(queue), (std::vector<int>{1}));
}

TEST(XtlBufQueue, AStoppedQueueGivesWhatIsLeftThenFailsWithoutBlocking)
{
    Queue queue(3);
    queue.put(1);
    queue.put(2);
    queue.stop();
    EXPECT_FALSE(queue.put(3));
    EXPECT_EQ(TakeAll(queue), (std::vector<int>{1, 2}));
    int lValue = 0;
    for (int i = 0; i < 100000; ++i) {
        ASSERT_FALSE(queue.get(lValue));
        ASSERT_FALSE(queue.put(i));
    }
}

TEST(XtlBufQueue, StartOnARunningQueueChangesNothing)
{
    Queue queue(2);
    queue.put(1);
    queue.start();
    queue.put(2);
    queue.start();
    CBackgroundCall third([&] { EXPECT_FALSE(queue.put(3)); });
    EXPECT_TRUE(third.Blocks()); // no permits were added
    queue.stop();
    EXPECT_TRUE(third.Returns());
    EXPECT_EQ(TakeAll(queue), (std::vector<int>{1, 2}));
}

TEST(XtlBufQueue, StartAfterStopRunsAgain)
{
    Queue queue(2);
    queue.stop();
    queue.start();
    EXPECT_TRUE(queue.put(1));
    EXPECT_TRUE(queue.put(2));
    int lValue = 0;
    EXPECT_TRUE(queue.get(lValue));
    EXPECT_EQ(lValue, 1);
    EXPECT_TRUE(queue.get(lValue));
    CBackgroundCall reader([&] { EXPECT_FALSE(queue.get(lValue)); });
    EXPECT_TRUE(reader.Blocks());
    queue.stop();
    EXPECT_TRUE(reader.Returns());
}

TEST(XtlBufQueue, RecordsLeftAtARestartStayWithoutReadPermits)
{
    Queue queue(2);
    queue.put(1);
    queue.stop();
    queue.start();
    int lValue = 0;
    CBackgroundCall reader([&] { EXPECT_TRUE(queue.get(lValue)); });
    EXPECT_TRUE(reader.Blocks());
    EXPECT_TRUE(queue.put(2));
    EXPECT_TRUE(reader.Returns());
    EXPECT_EQ(lValue, 1); // the oldest, in the place of the record that woke the reader
    queue.stop();
    EXPECT_EQ(TakeAll(queue), (std::vector<int>{2}));
}

TEST(XtlBufQueue, RecordsLeftAtARestartAreNeverOverwritten)
{
    Queue queue(2);
    queue.put(1);
    queue.stop();
    queue.start();
    EXPECT_TRUE(queue.put(2));
    CBackgroundCall writer([&] { EXPECT_FALSE(queue.put(3)); });
    EXPECT_TRUE(writer.Blocks()); // two slots, both taken
    queue.stop();
    EXPECT_TRUE(writer.Returns());
    EXPECT_EQ(TakeAll(queue), (std::vector<int>{1, 2}));
}

TEST(XtlBufQueue, ManyWritersAndReadersLoseNothing)
{
    constexpr int THREADS = 4;
    constexpr int EACH = 5000;
    Queue queue(50);
    std::atomic<long> lSum = 0;
    std::atomic<int> lTaken = 0;
    {
        std::vector<std::unique_ptr<CBackgroundCall>> vecReaders;
        for (int i = 0; i < THREADS; ++i)
            vecReaders.push_back(std::make_unique<CBackgroundCall>([&] {
                for (int lValue = 0; queue.get(lValue); ++lTaken)
                    lSum += lValue;
            }));
        std::vector<std::thread> vecWriters;
        for (int i = 0; i < THREADS; ++i)
            vecWriters.emplace_back([&] {
                for (int lValue = 1; lValue <= EACH; ++lValue)
                    EXPECT_TRUE(queue.put(lValue));
            });
        for (std::thread& writer : vecWriters)
            writer.join();
        queue.stop();
    }
    EXPECT_EQ(lTaken, THREADS * EACH);
    EXPECT_EQ(lSum, 4L * 12502500); // 4 times 1 + ... + 5000
}

TEST(XtlBufQueue, RunsOfManyWritersStayInOrderAndLoseNothing)
{
    constexpr int THREADS = 3;
    constexpr int RUNS = 2000;
    constexpr int RUN = 7; // records in one put
    struct COUNTED
    {
        int nWriter;
        int nCount;
    };
    xtl::BufQueue<COUNTED, xtl::BufQueue_allocate<COUNTED>> queue(50);
    std::array<int, THREADS> anNext{};
    CBackgroundCall reader([&] {
        std::array<COUNTED, 16> aRun{};
        for (size_t szCount = queue.get(aRun); szCount > 0; szCount = queue.get(aRun))
            for (const auto& [nWriter, nCount] : std::span(aRun).first(szCount))
                if (nCount == anNext[static_cast<size_t>(nWriter)])
                    ++anNext[static_cast<size_t>(nWriter)];
    });
    std::vector<std::thread> vecWriters;
    for (int nWriter = 0; nWriter < THREADS; ++nWriter)
        vecWriters.emplace_back([&queue, nWriter] {
            std::array<COUNTED, RUN> aRun{};
            for (int i = 0; i < RUNS; ++i) {
                for (int k = 0; k < RUN; ++k)
                    aRun[static_cast<size_t>(k)] = {nWriter, i * RUN + k};
                EXPECT_EQ(queue.put(aRun), aRun.size());
            }
        });
    for (std::thread& writer : vecWriters)
        writer.join();
    queue.stop();
    EXPECT_TRUE(reader.Returns());
    EXPECT_EQ(anNext, (std::array<int, THREADS>{RUNS * RUN, RUNS * RUN, RUNS * RUN}));
}

TEST(XtlBufQueue, WideRecordsLieAligned)
{
    struct alignas(16) WIDE
    {
        long double value;
        char c;
    };
    xtl::BufQueue<WIDE, xtl::BufQueue_allocate<WIDE>> queue(2);
    queue.put({1.5L, 'a'});
    queue.put({2.5L, 'b'});
    WIDE stOut{};
    EXPECT_TRUE(queue.get(stOut));
    EXPECT_TRUE(queue.get(stOut));
    EXPECT_EQ(stOut.value, 2.5L);
    EXPECT_EQ(stOut.c, 'b');
}
