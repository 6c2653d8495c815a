#include "ue/PortWorker.h"

#include "support/WaitFor.h"

#include <atomic>
#include <gtest/gtest.h>
#include <string>

using namespace std::chrono_literals;

TEST(PortWorker, JobsRunOneAfterTheOtherInTheirOrder)
{
    CPortWorker worker;
    EXPECT_TRUE(worker.IsIdle());
    std::atomic<bool> bGo = false;
    std::string strDone; // the worker's, until it is idle
    worker.Post([&] {
        EXPECT_TRUE(WaitFor([&] { return bGo.load(); }));
        strDone += '1';
    });
    worker.Post([&] { strDone += '2'; });
    worker.Post([&] { strDone += '3'; });
    EXPECT_FALSE(worker.IsIdle());
    bGo = true;
    ASSERT_TRUE(WaitFor([&] { return worker.IsIdle(); }));
    EXPECT_EQ(strDone, "123");
}

TEST(PortWorker, WhatAJobHoldsIsGoneWhenItIsDone)
{
    CPortWorker worker;
    auto pHeld = std::make_shared<int>(7);
    const std::weak_ptr<int> pSeen = pHeld;
    worker.Post([pHeld = std::move(pHeld)] {});
    ASSERT_TRUE(WaitFor([&] { return worker.IsIdle(); }));
    EXPECT_TRUE(pSeen.expired());
}

TEST(PortWorker, ARestLastsItsTimeOrUntilItIsNotWanted)
{
    CPortWorker worker;
    std::atomic<bool> bWanted = true;
    std::atomic<int> nResult = -1;
    worker.Post([&] { nResult = worker.Rest(1ms, [&] { return bWanted.load(); }); });
    ASSERT_TRUE(WaitFor([&] { return nResult != -1; }));
    EXPECT_EQ(nResult, 1);

    nResult = -1;
    worker.Post([&] { nResult = worker.Rest(1h, [&] { return bWanted.load(); }); });
    worker.Wake(); // it is still wanted
    bWanted = false;
    worker.Wake();
    ASSERT_TRUE(WaitFor([&] { return nResult != -1; }));
    EXPECT_EQ(nResult, 0);
}

TEST(PortWorker, StopEndsARestAndStartsNoFurtherJob)
{
    CPortWorker worker;
    std::atomic<bool> bResting = false;
    std::atomic<int> nResult = -1;
    std::atomic<bool> bSecond = false;
    worker.Post([&] {
        nResult = worker.Rest(1h, [&] {
            bResting = true;
            return true;
        });
    });
    worker.Post([&] { bSecond = true; });
    ASSERT_TRUE(WaitFor([&] { return bResting.load(); }));
    worker.End();
    EXPECT_EQ(nResult, 0);
    EXPECT_FALSE(bSecond);
    worker.Post([&] { bSecond = true; });
    worker.End();
    EXPECT_FALSE(bSecond);
}

TEST(PortWorker, TicksComeAgainAndAgainBetweenJobs)
{
    CPortWorker worker;
    std::atomic<int> nFirst = 0, nSecond = 0, nJobs = 0;
    worker.AddTick(2ms, [&] { ++nFirst; });
    worker.AddTick(2ms, [&] { ++nSecond; });
    worker.Post([&] { ++nJobs; });
    EXPECT_TRUE(WaitFor([&] { return nFirst >= 3 && nSecond >= 3; }));
    EXPECT_EQ(nJobs, 1);
}
