#include "common/LineLoad.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <vector>

namespace
{
/// A load whose waiting thread is the test.
class LineLoad : public testing::Test
{
protected:
    LineLoad()
    {
        m_load.SetWakeUp(m_wake);
        m_wake.FallAsleep();
    }
    /// Whether the waiting thread was woken since it was last asked; it sleeps again then.
    bool WasWoken()
    {
        pollfd stFd{m_wake.Fd(), POLLIN, 0};
        const bool bWoken = poll(&stFd, 1, 0) == 1;
        m_wake.Rise();
        m_wake.FallAsleep();
        return bWoken;
    }

    CWakeUp m_wake;
    CLineLoad m_load;
};

constexpr size_t COST = 64; // of a record, beside its bytes
} // namespace

TEST_F(LineLoad, HasRoomBelow256KiBAndALimitOf512)
{
    const CLineCharge first(m_load, 262'144 - COST - COST - 1);
    EXPECT_TRUE(m_load.HasRoom());
    {
        const CLineCharge second(m_load, 0);
        EXPECT_TRUE(m_load.HasRoom()) << "262143";
        const CLineCharge third(m_load, 0);
        EXPECT_FALSE(m_load.HasRoom());
        EXPECT_FALSE(m_load.IsOverLimit());
        const CLineCharge fourth(m_load, 262'144 - COST - COST);
        EXPECT_FALSE(m_load.IsOverLimit()) << "524287";
        const CLineCharge fifth(m_load, 0);
        EXPECT_TRUE(m_load.IsOverLimit());
    }
    EXPECT_TRUE(m_load.HasRoom());
    {
        const CLineCharge edge(m_load, 1);
        EXPECT_FALSE(m_load.HasRoom()) << "262144";
    }
}

TEST_F(LineLoad, AChargeMovesAndIsGivenBackOnce)
{
    CLineCharge kept;
    {
        CLineCharge charge(m_load, 300'000);
        EXPECT_FALSE(m_load.HasRoom());
        kept = std::move(charge);
    }
    EXPECT_FALSE(m_load.HasRoom()) << "it went with the move";
    CLineCharge last(std::move(kept));
    kept.Release();
    EXPECT_FALSE(m_load.HasRoom());
    last.Release();
    EXPECT_TRUE(m_load.HasRoom());
    last.Release();
    const CLineCharge more(m_load, 262'144 - COST - 1);
    EXPECT_TRUE(m_load.HasRoom()) << "no load below none";
}

TEST_F(LineLoad, AChargeThatIsOverwrittenIsGivenBack)
{
    CLineCharge charge(m_load, 300'000);
    charge = CLineCharge(m_load, 1);
    EXPECT_TRUE(m_load.HasRoom());
    EXPECT_FALSE(m_load.IsOverLimit());
    CLineCharge& same = charge;
    charge = std::move(same);
    charge = {};
    const CLineCharge more(m_load, 262'144 - COST - 1);
    EXPECT_TRUE(m_load.HasRoom());
}

TEST_F(LineLoad, ChargesOfSeveralLinesDoNotMix)
{
    CLineLoad other;
    CLineCharge charge(m_load, 300'000);
    charge = CLineCharge(other, 300'000);
    EXPECT_TRUE(m_load.HasRoom());
    EXPECT_FALSE(other.HasRoom());
}

TEST_F(LineLoad, WakesOnceWhenRoomCameAndOnlyWhoAwaitsIt)
{
    {
        const CLineCharge charge(m_load, 300'000);
    }
    EXPECT_FALSE(WasWoken()) << "nobody waited";
    std::vector<CLineCharge> charges;
    for (int i = 0; i < 4; ++i)
        charges.emplace_back(m_load, 100'000 - COST);
    m_load.Await();
    charges.pop_back();
    EXPECT_FALSE(WasWoken()) << "300000 are no room yet";
    charges.pop_back();
    EXPECT_TRUE(WasWoken());
    charges.pop_back();
    EXPECT_FALSE(WasWoken()) << "room was there";
    charges.emplace_back(m_load, 300'000);
    charges.pop_back();
    EXPECT_FALSE(WasWoken()) << "one Await, one wake";
}

TEST_F(LineLoad, PausesAreCountedAndTheirEndWakes)
{
    CLineCharge plain(m_load, 1);
    CLineCharge first(m_load, 1, true);
    CLineCharge second(m_load, 1, true);
    EXPECT_EQ(m_load.PacedPosted(), 2u);
    EXPECT_EQ(m_load.PacedDone(), 0u);
    m_load.Await();
    plain.Release();
    EXPECT_FALSE(WasWoken());
    first.Release();
    EXPECT_TRUE(WasWoken()) << "progress, though there was room all along";
    EXPECT_EQ(m_load.PacedDone(), 1u);
    second.Release();
    EXPECT_FALSE(WasWoken());
    EXPECT_EQ(m_load.PacedDone(), 2u);
    EXPECT_EQ(m_load.PacedPosted(), 2u);
}

TEST_F(LineLoad, TheFirstLossIsToldAgainWhenThereWasRoom)
{
    CLineCharge charge(m_load, 600'000);
    EXPECT_TRUE(m_load.IsFirstLoss());
    EXPECT_FALSE(m_load.IsFirstLoss());
    charge.Release();
    charge = CLineCharge(m_load, 600'000);
    EXPECT_TRUE(m_load.IsFirstLoss());
}
