#include "common/IdFlags.h"

#include <gtest/gtest.h>
#include <map>
#include <random>

TEST(IdFlags, AnIdThatIsNotListedHasNoFlag)
{
    CIdFlags flags;
    EXPECT_TRUE(flags.empty());
    EXPECT_FALSE(flags.contains(0));
    flags.Set(5, true);
    EXPECT_FALSE(flags.empty());
    EXPECT_EQ(flags.Find(4), std::nullopt);
    EXPECT_EQ(flags.Find(5), true);
    EXPECT_EQ(flags.Find(6), std::nullopt);
}

TEST(IdFlags, BothEndsOfARangeBelongToIt)
{
    CIdFlags flags;
    flags.SetRange(10, 20, false);
    EXPECT_FALSE(flags.contains(9));
    EXPECT_EQ(flags.Find(10), false);
    EXPECT_EQ(flags.Find(20), false);
    EXPECT_FALSE(flags.contains(21));
}

TEST(IdFlags, ABackwardRangeIsEmpty)
{
    CIdFlags flags;
    flags.SetRange(5, 3, true);
    EXPECT_TRUE(flags.empty());
}

TEST(IdFlags, TheWholeIdSpaceIsOneRange)
{
    CIdFlags flags;
    flags.SetRange(0, 0xFFFFFFFF, true);
    EXPECT_EQ(flags.Find(0), true);
    EXPECT_EQ(flags.Find(0xFFFFFFFF), true);
    flags.SetRange(1, 0xFFFFFFFE, false);
    EXPECT_EQ(flags.Find(0), true);
    EXPECT_EQ(flags.Find(1), false);
    EXPECT_EQ(flags.Find(0xFFFFFFFE), false);
    EXPECT_EQ(flags.Find(0xFFFFFFFF), true);
}

TEST(IdFlags, ALaterRangeSplitsAnEarlierOne)
{
    CIdFlags flags;
    flags.SetRange(10, 20, true);
    flags.Set(15, false);
    EXPECT_EQ(flags.Find(14), true);
    EXPECT_EQ(flags.Find(15), false);
    EXPECT_EQ(flags.Find(16), true);
    EXPECT_EQ(flags.Find(20), true);
    EXPECT_FALSE(flags.contains(21));
}

TEST(IdFlags, AnswersAsAPlainMapDoes)
{
    std::mt19937 random(1); // any fixed seed
    for (int lRound = 0; lRound < 200; ++lRound) {
        CIdFlags flags;
        std::map<uint32_t, bool> mapPlain;
        for (int i = 0; i < 20; ++i) {
            const uint32_t ulLow = random() % 64;
            const uint32_t ulHigh = ulLow + random() % 16;
            const bool bFlag = random() % 2 == 0;
            flags.SetRange(ulLow, ulHigh, bFlag);
            for (uint32_t ulId = ulLow; ulId <= ulHigh; ++ulId)
                mapPlain[ulId] = bFlag;
        }
        for (uint32_t ulId = 0; ulId < 90; ++ulId) {
            const auto it = mapPlain.find(ulId);
            EXPECT_EQ(flags.Find(ulId), it == mapPlain.end() ? std::nullopt : std::optional<bool>(it->second))
                << "id " << ulId << " in round " << lRound;
        }
    }
}
