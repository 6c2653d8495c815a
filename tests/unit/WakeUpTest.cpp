#include "common/WakeUp.h"

#include "support/Blocks.h"

#include <gtest/gtest.h>
#include <poll.h>

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
