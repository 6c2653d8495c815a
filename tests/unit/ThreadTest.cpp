#include "common/Thread.h"

#include "support/WaitFor.h"

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <pthread.h>
#include <thread>
#include <unistd.h>

namespace
{

struct GATE
{
    std::atomic<bool> bStarted = false;
    std::atomic<bool> bOpen = false;
};

void* WaitAtGate(void* pGate)
{
    GATE& stGate = *static_cast<GATE*>(pGate);
    stGate.bStarted = true;
    WaitFor([&] { return stGate.bOpen.load(); });
    return nullptr;
}

} // namespace

TEST(Thread, RunsTheFunctionWithItsArgument)
{
    GATE stGate;
    const int hThread = start_thread(0, WaitAtGate, &stGate);
    EXPECT_GE(hThread, 0);
    EXPECT_TRUE(WaitFor([&] { return stGate.bStarted.load(); }));
    stGate.bOpen = true;
    EXPECT_TRUE(wait_thread(hThread, 10000));
}

TEST(Thread, WaitEndsWithTheTimeOrTheThread)
{
    for (const int bDetached : {0, 1}) {
        GATE stGate;
        const int hThread = start_thread(bDetached, WaitAtGate, &stGate);
        EXPECT_FALSE(wait_thread(hThread, 0));
        EXPECT_FALSE(wait_thread(hThread, 20));
        stGate.bOpen = true;
        EXPECT_TRUE(wait_thread(hThread, 10000));
        EXPECT_TRUE(wait_thread(hThread, 0)); // it names no thread any more
    }
}

TEST(Thread, HandlesOfThreadsDiffer)
{
    GATE stGate;
    const int hFirst = start_thread(0, WaitAtGate, &stGate);
    const int hSecond = start_thread(0, WaitAtGate, &stGate);
    EXPECT_NE(hFirst, hSecond);
    stGate.bOpen = true;
    EXPECT_TRUE(wait_thread(hFirst, 10000));
    EXPECT_TRUE(wait_thread(hSecond, 10000));
}

TEST(Thread, NoThreadNeedsNoWait)
{
    EXPECT_TRUE(wait_thread(-1, 0));
    EXPECT_TRUE(wait_thread(123456, 0));
}

TEST(Thread, AThreadThatCannotBeHadYetIsTriedAgainEachSecond)
{
    // A default stack of 64 TiB doesn't fit into the address space, which pthread_create reports as EAGAIN.
    pthread_attr_t stNormal;
    pthread_attr_t stHuge;
    ASSERT_EQ(pthread_getattr_default_np(&stNormal), 0);
    pthread_attr_init(&stHuge);
    ASSERT_EQ(pthread_attr_setstacksize(&stHuge, size_t{1} << 46), 0);
    ASSERT_EQ(pthread_setattr_default_np(&stHuge), 0);

    GATE stGate;
    stGate.bOpen = true;
    pthread_t helper{};
    // A thread with a stack of its own size gives the memory back while start_thread sleeps.
    struct HELPER
    {
        pthread_attr_t* pstNormal;
        pid_t nStarter = gettid();
        std::atomic<bool> bStarting = false;
        static void* Run(void* pThis)
        {
            auto& stHelper = *static_cast<HELPER*>(pThis);
            WaitFor([&] { return stHelper.bStarting && IsAsleep(stHelper.nStarter); });
            pthread_setattr_default_np(stHelper.pstNormal);
            return nullptr;
        }
    } stHelper{&stNormal};
    pthread_attr_t stSmall;
    pthread_attr_init(&stSmall);
    pthread_attr_setstacksize(&stSmall, size_t{1} << 20);
    ASSERT_EQ(pthread_create(&helper, &stSmall, HELPER::Run, &stHelper), 0);

    const auto begin = std::chrono::steady_clock::now();
    stHelper.bStarting = true;
    const int hThread = start_thread(0, WaitAtGate, &stGate);
    const auto took = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(hThread, 0);
    EXPECT_GE(took, std::chrono::milliseconds(900));
    EXPECT_TRUE(wait_thread(hThread, 10000));
    EXPECT_TRUE(stGate.bStarted);
    pthread_join(helper, nullptr);
    pthread_attr_destroy(&stNormal);
    pthread_attr_destroy(&stHuge);
    pthread_attr_destroy(&stSmall);
}
