#include "common/WakeUp.h"

#include "support/Blocks.h"

#include <atomic>
#include <gtest/gtest.h>
#include <poll.h>
#include <thread>

namespace
{
bool Rings(const CWakeUp& wake, int lTimeoutMs = 0)
{
    pollfd stFd{wake.Fd(), POLLIN, 0};
    return poll(&stFd, 1, lTimeoutMs) == 1;
}
} // namespace

TEST(WakeUp, NobodyIsRungWhoIsAwake)
{
    CWakeUp wake;
    wake.Wake();
    EXPECT_FALSE(Rings(wake));
}

TEST(WakeUp, BetweenTheLastLookAndTheWaitIsNotLost)
{
    CWakeUp wake;
    wake.FallAsleep();
    wake.Wake(); // before the sleeper polls
    EXPECT_TRUE(Rings(wake));
    wake.Rise();
    EXPECT_FALSE(Rings(wake)) << "heard";
}

TEST(WakeUp, SeveralInOneSleepRingOnce)
{
    CWakeUp wake;
    wake.FallAsleep();
    wake.Wake();
    wake.Wake();
    wake.Rise();
    wake.Wake();
    EXPECT_FALSE(Rings(wake));
}

TEST(WakeUp, ASleepThatEndsByItselfLeavesNothingBehind)
{
    CWakeUp wake;
    wake.FallAsleep();
    wake.Rise();
    EXPECT_FALSE(Rings(wake));
    wake.FallAsleep();
    EXPECT_FALSE(Rings(wake));
    wake.Wake();
    EXPECT_TRUE(Rings(wake));
}

TEST(WakeUp, EndsThePollOfAnotherThread)
{
    CWakeUp wake;
    wake.FallAsleep();
    CBackgroundCall sleeper([&] { EXPECT_TRUE(Rings(wake, 60'000)); });
    EXPECT_TRUE(sleeper.Blocks());
    wake.Wake();
    EXPECT_TRUE(sleeper.Returns());
}

TEST(WakeUp, ASleepThatEndsWithoutARiseLeavesNothing)
{
    CWakeUp wake;
    wake.FallAsleep();
    wake.Wake();
    wake.FallAsleep();
    EXPECT_FALSE(Rings(wake));
    wake.Rise();
    wake.Rise();
    wake.FallAsleep();
    wake.Wake();
    EXPECT_TRUE(Rings(wake));
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
        nLate += Rings(wake);
        wake.FallAsleep();
        wake.Rise();
        nLeft += Rings(wake);
    }
    waker.join();
    EXPECT_EQ(nLeft, 0);
    RecordProperty("late", nLate);
}
