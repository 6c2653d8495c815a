#include "data/gu/report/TraceReqCounter.h"

#include <gtest/gtest.h>
#include <thread>

namespace
{
std::vector<unsigned int> NeedSend(const CTraceReqCounter& counter)
{
    std::vector<unsigned int> vecPids{1, 2, 3};
    counter.GetPidNeedSend(vecPids);
    return vecPids;
}
} // namespace

TEST(TraceReqCounter, StartsWithThreePids)
{
    CTraceReqCounter counter;
    EXPECT_TRUE(NeedSend(counter).empty());
    // Known PIDs let a decrease go on: the last of these is reached.
    const unsigned int aulOther[] = {133};
    counter.IncreaseCounter(aulOther, 1);
    const unsigned int aulPids[] = {130, 131, 132, 133};
    counter.DecreaseCounter(aulPids, 4);
    EXPECT_EQ(counter.GetCounter(133), 0);
}

TEST(TraceReqCounter, IncreaseCountsTheFirstOnly)
{
    CTraceReqCounter counter;
    const unsigned int aulPids[] = {133, 139};
    counter.IncreaseCounter(aulPids, 2);
    counter.IncreaseCounter(aulPids, 2);
    EXPECT_EQ(counter.GetCounter(133), 2);
    EXPECT_EQ(counter.GetCounter(139), 0);
    EXPECT_EQ(NeedSend(counter), std::vector<unsigned int>{133});
    counter.IncreaseCounter(aulPids, 0);
    counter.IncreaseCounter(aulPids, -1);
    EXPECT_EQ(counter.GetCounter(133), 2);
}

TEST(TraceReqCounter, DecreaseStopsAtAnUnknownPid)
{
    CTraceReqCounter counter;
    const unsigned int ul130 = 130;
    const unsigned int ul131 = 131;
    counter.IncreaseCounter(&ul130, 1);
    counter.IncreaseCounter(&ul131, 1);
    const unsigned int aulPids[] = {130, 139, 131};
    counter.DecreaseCounter(aulPids, 3);
    EXPECT_EQ(counter.GetCounter(130), 0);
    EXPECT_EQ(counter.GetCounter(131), 1);
    counter.DecreaseCounter(aulPids, 3);
    EXPECT_EQ(counter.GetCounter(130), 0) << "not below 0";
    counter.AddMap(139);
    counter.DecreaseCounter(aulPids, 3);
    EXPECT_EQ(counter.GetCounter(131), 0) << "139 is known now";
}

TEST(TraceReqCounter, PidsInRisingOrder)
{
    CTraceReqCounter counter;
    for (const unsigned int ulPid : {139U, 24U, 132U, 130U})
        counter.IncreaseCounter(&ulPid, 1);
    EXPECT_EQ(NeedSend(counter), (std::vector<unsigned int>{24, 130, 132, 139}));
    counter.AddMap(24);
    EXPECT_EQ(counter.GetCounter(24), 1) << "a PID that is known keeps its count";
}

TEST(TraceReqCounter, TwoThreads)
{
    CTraceReqCounter counter;
    const unsigned int ulPid = 130;
    const auto CountUp = [&] {
        for (int i = 0; i < 1000; ++i) {
            counter.IncreaseCounter(&ulPid, 1);
            (void)NeedSend(counter);
        }
    };
    std::thread other(CountUp);
    CountUp();
    other.join();
    EXPECT_EQ(counter.GetCounter(130), 2000);
}
