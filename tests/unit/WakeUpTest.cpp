#include "common/WakeUp.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <thread>

namespace
{
bool IsRung(const CWakeUp& wake)
{
    pollfd stFd{wake.Fd(), POLLIN, 0};
    return poll(&stFd, 1, 0) == 1;
}
} // namespace

TEST(WakeUp, RingsOnlyForASleeper)
{
    CWakeUp wake;
    wake.Wake();
    EXPECT_FALSE(IsRung(wake));
    wake.FallAsleep();
    EXPECT_FALSE(IsRung(wake));
    wake.Wake();
    wake.Wake();
    EXPECT_TRUE(IsRung(wake));
    wake.Rise();
    EXPECT_FALSE(IsRung(wake));
    wake.Wake();
    EXPECT_FALSE(IsRung(wake)) << "awake";
}

TEST(WakeUp, ASleepThatEndsWithoutARiseLeavesNothing)
{
    CWakeUp wake;
    wake.FallAsleep();
    wake.Wake();
    wake.FallAsleep();
    EXPECT_FALSE(IsRung(wake));
    wake.Rise();
    wake.Rise();
    wake.FallAsleep();
    wake.Wake();
    EXPECT_TRUE(IsRung(wake));
}

TEST(WakeUp, ARingThatArrivesBehindTheRiseEndsOneWaitAtMost)
{
    CWakeUp wake;
    std::atomic<int> nRound = 0, nDone = 0;
    constexpr int ROUNDS = 20000;
    std::thread waker([&] {
        for (int i = 1; i <= ROUNDS; ++i) {
            while (nRound < i) {
            }
            wake.Wake();
            nDone = i;
        }
    });
    int nLate = 0, nLeft = 0;
    for (int i = 1; i <= ROUNDS; ++i) {
        wake.FallAsleep();
        nRound = i;
        for (int j = i % 64; j > 0; --j)
            (void)nDone.load(); // now and then in the middle of the call
        wake.Rise();
        while (nDone < i) {
        }
        nLate += IsRung(wake);
        wake.FallAsleep();
        wake.Rise();
        nLeft += IsRung(wake);
    }
    waker.join();
    EXPECT_EQ(nLeft, 0);
    RecordProperty("late", nLate);
}
