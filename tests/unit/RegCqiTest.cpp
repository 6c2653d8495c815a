#include "data/gu/reg/RegCqiProcess.h"

#include "support/RegFixture.h"

#include <gtest/gtest.h>

namespace
{
/// CQI in bits 0 to 4, the number of the pair in bits 16 to 23.
unsigned int Report(unsigned int ulCqi, unsigned int ulPair)
{
    return 0xFF00FFE0 | ulCqi | ulPair << 16;
}
} // namespace

// First set, half 0: CQI 10, 11, 12, 13, 16 = 62 / 5 = 12. Pairs 30, 31, 46, 0, 61:
//   first: 30 + 0 + (15 / 15 = 1) + 0 + (30 / 15 = 2) = 33 / 5 = 6
//   second: 30 + 0 + 0 + 0 + 0 = 30 / 5 = 6.
// Half 1: CQI 31 x 5 = 31; pairs 60 x 5: 29 / 15 = 1, 29 mod 15 = 14.
TEST(RegHsdpaCqi, BothCarriers)
{
    CStatBench<CRegHsdpaCqi> bench;
    bench.Reg(0x71F0) = 1;
    bench.Reg(0x871F0) = 1;
    bench.Reg(0x7900) = Report(10, 30);
    bench.Reg(0x7974) = Report(11, 31);
    bench.Reg(0x79E8) = Report(12, 46);
    bench.Reg(0x7A5C) = Report(13, 0);
    bench.Reg(0x7AD0) = Report(16, 61);
    for (const unsigned int ulOffset : {0x87900U, 0x87974U, 0x879E8U, 0x87A5CU, 0x87AD0U})
        bench.Reg(ulOffset) = Report(31, 60);
    EXPECT_EQ(bench.Sample(5), LeWords({2, 12, 12, 6, 6, 31, 31, 1, 14}));
    EXPECT_EQ(bench.TimeStamp(), 5U);
}

TEST(RegHsdpaCqi, PairNumbers)
{
    CStatBench<CRegHsdpaCqi> bench;
    bench.Reg(0x71F0) = 1;
    const auto Means = [&](unsigned int ulPair) {
        for (const unsigned int ulOffset : {0x7900U, 0x7974U, 0x79E8U, 0x7A5CU, 0x7AD0U})
            bench.Reg(ulOffset) = Report(0, ulPair);
        return bench.Sample();
    };
    EXPECT_EQ(Means(30), LeWords({1, 0, 0, 30, 30}));
    EXPECT_EQ(Means(31), LeWords({1, 0, 0, 0, 0}));
    EXPECT_EQ(Means(45), LeWords({1, 0, 0, 0, 14}));
    EXPECT_EQ(Means(46), LeWords({1, 0, 0, 1, 0}));
    EXPECT_EQ(Means(255), LeWords({1, 0, 0, 14, 14})); // 224 / 15, 224 mod 15
}

TEST(RegHsdpaCqi, TheSecondSet)
{
    CStatBench<CRegHsdpaCqi> bench;
    bench.Reg(0x71F0) = 1;
    for (const unsigned int ulOffset : {0x7900U, 0x7974U, 0x79E8U, 0x7A5CU, 0x7AD0U})
        bench.Reg(ulOffset) = Report(1, 1);
    for (const unsigned int ulOffset : {0x7950U, 0x79C4U, 0x7A38U, 0x7AACU, 0x7C20U})
        bench.Reg(ulOffset) = Report(2, 2);
    struct
    {
        unsigned int ulP, ulQ, ulR, ulCqi;
    } const aRow[] = {
        {2U << 16, 1, 0, 2}, {2U << 16, 0, 1, 2}, {2U << 16, 1, 1, 2}, {2U << 16, 0, 0, 1}, {2U << 16, 2, 4, 1},
        {1U << 16, 1, 1, 1}, {3U << 16, 1, 1, 1}, {0, 1, 1, 1},        {6U << 16, 1, 0, 2}, // only bits 16 and 17
    };
    for (const auto& stRow : aRow) {
        bench.Reg(0x7120) = stRow.ulP;
        bench.Reg(0x74F0) = stRow.ulQ;
        bench.Reg(0x75F0) = stRow.ulR;
        EXPECT_EQ(bench.Sample(), LeWords({1, stRow.ulCqi, stRow.ulCqi, stRow.ulCqi, stRow.ulCqi}));
    }
}

TEST(RegHsdpaCqi, Enables)
{
    CStatBench<CRegHsdpaCqi> bench;
    bench.Reg(0x871F0) = 1;
    EXPECT_EQ(bench.Sample(), LeWords({0})) << "half 0 disabled: half 1 isn't looked at";
    bench.Reg(0x71F0) = 2;
    EXPECT_EQ(bench.Sample(), LeWords({0})) << "only 1 enables";
    bench.Reg(0x71F0) = 1;
    bench.Reg(0x871F0) = 0;
    EXPECT_EQ(bench.Sample(), LeWords({1, 0, 0, 0, 0}));
    bench.Regs().erase(WBBP + 0x871F0);
    bench.Reg(0x7900) = Report(5, 0);
    EXPECT_EQ(bench.Sample(), LeWords({1, 1, 1, 0, 0})) << "a missing enable register ends the loop, no more";
    bench.Regs().erase(WBBP + 0x71F0);
    EXPECT_EQ(bench.Sample(), LeWords({0}));
}

TEST(RegHsdpaCqi, MissingRegistersLeaveTheResult)
{
    for (const unsigned int ulMissing : {0x7120U, 0x74F0U, 0x75F0U, 0x7AD0U, 0x87AD0U}) {
        CStatBench<CRegHsdpaCqi> bench;
        bench.Reg(0x71F0) = 1;
        bench.Reg(0x871F0) = 1;
        const Bytes before = bench.Sample();
        bench.Reg(0x7900) = Report(31, 0);
        bench.Regs().erase(WBBP + ulMissing);
        EXPECT_EQ(bench.Sample(), before) << ulMissing;
    }
}

TEST(RegHsdpaCqi, KnownKindsHaveOtherRegisters)
{
    CStatBench<CRegHsdpaCqi> bench(true);
    bench.Reg(0x82B0) = 1;
    bench.Reg(0x282B0) = 1;
    bench.Reg(0x8D00) = Report(5, 0);
    bench.Reg(0x28C40) = Report(10, 0);
    EXPECT_EQ(bench.Sample(), LeWords({2, 1, 1, 0, 0, 2, 2, 0, 0}));
}

TEST(RegDschCfg, TheFirstMatchingPair)
{
    CStatBench<CRegDschCfg> bench;
    bench.Reg(0x8074) = 0xFFFFFFF9;
    bench.Reg(0x7100) = 0xFFFD0123; // the key: bits 0 to 17 = 0x10123
    bench.Reg(0x4228) = 0x00010123;
    bench.Reg(0x4208) = 0xFFFFFFA5;
    bench.Reg(0x4234) = 0x00010123;
    bench.Reg(0x4214) = 0x11;
    EXPECT_EQ(bench.Sample(9), Hex("00 A5 00 00 09 00 00 00"));
    EXPECT_EQ(bench.TimeStamp(), 9U);
    bench.Reg(0x4228) = 0x00000123;
    EXPECT_EQ(bench.Sample(), Hex("00 11 00 00 09 00 00 00")) << "bit 16 belongs to the key";
    bench.Reg(0x4234) = 0;
    EXPECT_EQ(bench.Sample(), Hex("00 00 00 00 09 00 00 00")) << "no match";
}

TEST(RegDschCfg, OnlyRegistersOnTheWayAreNeeded)
{
    CStatBench<CRegDschCfg> bench;
    bench.Reg(0x7100) = 5;
    bench.Reg(0x4224) = 5;
    bench.Reg(0x4204) = 1;
    const Bytes found = Hex("00 01 00 00 00 00 00 00");
    EXPECT_EQ(bench.Sample(), found);
    bench.Regs().erase(WBBP + 0x4234);
    bench.Regs().erase(WBBP + 0x4200);
    bench.Reg(0x8074) = 3;
    EXPECT_EQ(bench.Sample(), Hex("00 01 00 00 03 00 00 00")) << "behind the match, and the value of no match";
    for (const unsigned int ulMissing : {0x8074U, 0x7100U, 0x4220U, 0x4224U, 0x4204U}) {
        CStatBench<CRegDschCfg> other;
        other.Reg(0x7100) = 5;
        other.Reg(0x4224) = 5;
        const Bytes before = other.Sample();
        other.Reg(0x4204) = 1;
        other.Regs().erase(WBBP + ulMissing);
        EXPECT_EQ(other.Sample(), before) << ulMissing;
    }
}

TEST(RegDschCfg, KnownKindsHaveAnotherField)
{
    CStatBench<CRegDschCfg> bench(true);
    bench.Reg(0x9074) = 7;
    bench.Reg(0x7100) = 1;
    EXPECT_EQ(bench.Sample(), Hex("00 00 00 00 07 00 00 00"));
}

TEST(RegScchCfg, ChannelsOfTheMask)
{
    CStatBench<CRegScchCfg> bench;
    bench.Reg(0x7110) = 0xFFFFFF81; // bits 0 to 6 = 1
    bench.Reg(0x7114) = 2;
    bench.Reg(0x7118) = 3;
    bench.Reg(0x711C) = 0x7F;
    bench.Reg(0x7108) = 0x1E;
    EXPECT_EQ(bench.Sample(6), LeWords({4, 1, 1, 2, 2, 3, 3, 4, 0x7F}));
    EXPECT_EQ(bench.TimeStamp(), 6U);
    bench.Reg(0x7108) = 0x14;
    EXPECT_EQ(bench.Sample(), LeWords({2, 2, 2, 4, 0x7F}));
    bench.Reg(0x7108) = 0xFFFFFFE1;
    EXPECT_EQ(bench.Sample(), LeWords({0})) << "bit 0 and those above 4 are never looked at";
    bench.Regs().erase(WBBP + 0x7118);
    EXPECT_EQ(bench.Sample(), LeWords({0}));
    bench.Reg(0x7108) = 0x0E;
    EXPECT_EQ(bench.Sample(), LeWords({0})) << "channel 3 is missing: the result stays";
    bench.Regs().erase(WBBP + 0x7108);
    EXPECT_EQ(bench.Sample(), LeWords({0}));
}

TEST(RegScchCfg, KnownKindsHaveOtherRegisters)
{
    CStatBench<CRegScchCfg> bench(true);
    bench.Reg(0x8108) = 0x10;
    bench.Reg(0x811C) = 9;
    EXPECT_EQ(bench.Sample(), LeWords({1, 4, 9}));
}

TEST(RegDpcchCfg, SevenFields)
{
    CStatBench<CRegDpcchCfg> bench;
    bench.Reg(0xC074) = 0xFFF5FDFE; // A: 5, 5, 6
    bench.Reg(0xC078) = 0xFFFFF234; // B: 0x1234
    bench.Reg(0xC040) = 0xFFFF8000 | 3 << 10 | 2 << 5 | 1;
    EXPECT_EQ(bench.Sample(3), LeWords({5, 5, 6, 0x1234, 1, 2, 3}));
    EXPECT_EQ(bench.TimeStamp(), 3U);
    for (const unsigned int ulMissing : {0xC074U, 0xC078U, 0xC040U}) {
        CStatBench<CRegDpcchCfg> other;
        const Bytes before = other.Sample();
        other.Reg(0xC074) = 1;
        other.Reg(0xC040) = 1;
        other.Regs().erase(WBBP + ulMissing);
        EXPECT_EQ(other.Sample(), before) << ulMissing;
    }
}
