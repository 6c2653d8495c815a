#include "data/gu/reg/RegHsupaProcess.h"

#include "support/RegFixture.h"

#include <gtest/gtest.h>

namespace
{
constexpr unsigned int ENABLE_0 = 0xC000;
constexpr unsigned int ENABLE_1 = 0xCA8C;
constexpr unsigned int STEP = 0x1E0;

/// A word of carrier 0's and carrier 1's half.
constexpr unsigned int Halves(unsigned int ulFirst, unsigned int ulSecond)
{
    return ulFirst | ulSecond << 16;
}

/// All words unwritten, carrier 0 enabled, one TTI record an indication.
template <class Stat> void Prepare(CStatBench<Stat>& bench)
{
    for (auto& [ulAddr, ulValue] : bench.Regs())
        ulValue = ulAddr >= WUPA ? 0x5A5A5A5A : 0;
    bench.Reg(ENABLE_0) = 1;
}
} // namespace

TEST(RegHsupa, AddressesAndTheirOrder)
{
    CRegisterManager manager(nullptr);
    CRegMsgProcess process(&manager);
    const CRegHsupaLinkThroughput stat({&process, 62768, true});
    std::vector<unsigned int> addrs;
    EXPECT_FALSE(stat.GetRegAddr(addrs)) << "no base known";
    manager.SetBaseAddr(WBBP, 0, WDSP_QUERY, 0, TIME_SLOT);
    EXPECT_FALSE(stat.GetRegAddr(addrs)) << "no HSUPA base";
    MakeBasesKnown(manager);
    manager.SetBaseAddr(WBBP, 0, WDSP_QUERY, 0, 0xFFFFFFFF);
    EXPECT_FALSE(stat.GetRegAddr(addrs)) << "no time slot word";
    manager.SetBaseAddr(0xFFFFFFFF, 0, WDSP_QUERY, 0, TIME_SLOT);
    EXPECT_FALSE(stat.GetRegAddr(addrs)) << "no baseband";
    EXPECT_TRUE(addrs.empty());
    manager.SetBaseAddr(WBBP, 0, WDSP_QUERY, 0, TIME_SLOT);
    EXPECT_TRUE(stat.GetRegAddr(addrs));
    ASSERT_EQ(addrs.size(), 23U);
    EXPECT_EQ(addrs[0], WUPA + 0x38);
    EXPECT_EQ(addrs[1], WUPA + 0x218);
    EXPECT_EQ(addrs[19], WUPA + 0x7CC);
    EXPECT_EQ(addrs[20], TIME_SLOT);
    EXPECT_EQ(addrs[21], WBBP + 0xC000);
    EXPECT_EQ(addrs[22], WBBP + 0xCA8C);
}

TEST(RegHsupa, ABaseOfZeroIsABase)
{
    CRegisterManager manager(nullptr);
    MakeBasesKnown(manager, 0);
    CRegMsgProcess process(&manager);
    const CRegHsupaGrant stat({&process, 62774, true});
    std::vector<unsigned int> addrs;
    EXPECT_TRUE(stat.GetRegAddr(addrs));
    EXPECT_EQ(addrs.at(0), 0x08U);
}

// a = 1, b valid, c = 1024, d = 2048: non-DTX 3072, served 1024, available 3072. / 1024 x 1000 / 10 ms: 300, 100, 300.
// Second indication, b invalid: non-DTX stays: 3072 -> 3000 / 20 = 150; served 2048 -> 2000 / 20 = 100; 300.
// Third, a = 0, b valid: non-DTX 6144 / 30 ms -> 200; served 2048: 66.67; available 6144: 200.
TEST(RegHsupa, Throughput)
{
    CStatBench<CRegHsupaLinkThroughput> bench;
    Prepare(bench);
    bench.Word(0x38) = Halves(1, 0);
    bench.Word(0x44) = Halves(7, 0);
    bench.Word(0x48) = Halves(1024, 0);
    bench.Word(0x4C) = Halves(2048, 0);
    EXPECT_EQ(bench.Sample(31), LeWords({1, F(300), F(100), F(300)}));
    EXPECT_EQ(bench.TimeStamp(), 31U);
    bench.Word(0x44) = Halves(0xFFFF, 0);
    EXPECT_EQ(bench.Sample(), LeWords({1, F(150), F(100), F(300)}));
    bench.Word(0x38) = Halves(0, 0);
    bench.Word(0x44) = Halves(7, 0);
    EXPECT_EQ(bench.Sample(), LeWords({1, F(200), F(66.666664F), F(200)}));
    bench.Stop();
    EXPECT_EQ(bench.Sample(), LeWords({1, F(300), F(0), F(0)})) << "a stop zeroes counters and samples";
}

// 65535 + 65535 + 3149 = 134219 bits in three samples: / 1024 x 1000 / 30 = 4369.1080729, whose nearest float is
// 4369.10791; rounded at each step it would be 4369.1084.
TEST(RegHsupa, RatesAreRoundedOnce)
{
    CStatBench<CRegHsupaLinkThroughput> bench;
    Prepare(bench);
    bench.Word(0x38) = 1;
    bench.Word(0x48) = 65535;
    (void)bench.Sample();
    (void)bench.Sample();
    bench.Word(0x48) = 3149;
    EXPECT_EQ(bench.Sample(), LeWords({1, F(0), F(4369.10791F), F(0)}));
}

// 483644127 x 1000 / 1024 / (2586545951 x 10) = (19606751 - 1 / 2586545951) / 2^30. 19606751 is odd and has 25 bits, so
// the rate lies just below the middle of the floats 9803375 / 2^29 and 9803376 / 2^29, by a part of 2E-17. A double
// (1E-16) can't tell it from the middle, and that rounds to the even 9803376.
TEST(RegHsupa, RatesAreOfExtendedPrecision)
{
    EXPECT_EQ(HsupaRunRate(483644127, 2586545951), 0x1.2b2cdep-6F);
    EXPECT_EQ(HsupaRunRate(134219, 3), 4369.10791F);
}

TEST(RegHsupa, ThroughputMarks)
{
    struct
    {
        const char* pszName;
        unsigned int ulA, ulB, ulC, ulD;
        float fNonDtx, fServed, fAvailable;
    } const aRow[] = {
        {"all unwritten", 0x5A5A, 0x5A5A, 0x5A5A, 0x5A5A, 0, 0, 0},
        {"b unwritten", 1, 0x5A5A, 1024, 1024, 0, 100, 200},
        {"c unwritten: 0x5A5A = 23130 counts for b alone", 1, 0, 0x5A5A, 0, 2258.789F, 0, 0},
        {"d unwritten", 1, 0xFFFF, 1024, 0x5A5A, 0, 100, 0},
        {"invalid marks b only: 65535 + 65535", 1, 0, 0xFFFF, 0xFFFF, 12799.805F, 6399.9023F, 12799.805F},
        {"a must be 1", 3, 0xFFFF, 1024, 1024, 0, 0, 0},
    };
    for (const auto& stRow : aRow) {
        CStatBench<CRegHsupaLinkThroughput> bench;
        Prepare(bench);
        bench.Word(0x38) = stRow.ulA;
        bench.Word(0x44) = stRow.ulB;
        bench.Word(0x48) = stRow.ulC;
        bench.Word(0x4C) = stRow.ulD;
        EXPECT_EQ(bench.Sample(), LeWords({1, F(stRow.fNonDtx), F(stRow.fServed), F(stRow.fAvailable)}))
            << stRow.pszName;
    }
}

// Five records of 2 ms, of which the last two have bits: 1024 + 2048 served.
TEST(RegHsupa, FiveRecordsWithATwoMillisecondTti)
{
    CStatBench<CRegHsupaLinkThroughput> bench;
    Prepare(bench);
    for (unsigned int j = 3; j < 5; ++j) {
        bench.Word(0x38 + STEP * j) = 1;
        bench.Word(0x48 + STEP * j) = 1024 * (j - 2);
    }
    EXPECT_EQ(bench.Sample(), LeWords({1, F(0), F(0), F(0)})) << "only the first record counts";
    bench.Regs()[TIME_SLOT] = 2;
    EXPECT_EQ(bench.Sample(), LeWords({1, F(0), F(0), F(0)})) << "anything but 1";
    bench.Regs()[TIME_SLOT] = 1;
    EXPECT_EQ(bench.Sample(), LeWords({1, F(0), F(100), F(0)})); // 3072 / 1024 x 1000 / 30 ms
}

// Carrier 1 in the high halves: c = 512: 500 / 10 = 50.
TEST(RegHsupa, Carriers)
{
    CStatBench<CRegHsupaLinkThroughput> bench;
    Prepare(bench);
    bench.Reg(ENABLE_1) = 1;
    bench.Word(0x38) = Halves(1, 1);
    bench.Word(0x48) = Halves(1024, 512);
    EXPECT_EQ(bench.Sample(), LeWords({2, F(0), F(100), F(0), F(0), F(50), F(0)}));
    bench.Reg(ENABLE_1) = 3;
    EXPECT_EQ(bench.Sample(), LeWords({1, F(0), F(100), F(0)}));
    bench.Reg(ENABLE_0) = 0;
    bench.Reg(ENABLE_1) = 1;
    EXPECT_EQ(bench.Sample(), LeWords({0})) << "carrier 1 isn't looked at without carrier 0";
    // Carrier 1 has two samples by now, carrier 0 three.
    bench.Reg(ENABLE_0) = 1;
    EXPECT_EQ(bench.Sample(), LeWords({2, F(0), F(100), F(0), F(0), F(50), F(0)}));
}

TEST(RegHsupa, MissingRegistersLeaveTheResult)
{
    for (const unsigned int ulMissing : {TIME_SLOT, WBBP + ENABLE_0, WBBP + ENABLE_1, WUPA + 0x38, WUPA + 0x4C}) {
        CStatBench<CRegHsupaLinkThroughput> bench;
        Prepare(bench);
        bench.Reg(ENABLE_1) = 1;
        const Bytes before = bench.Sample(1);
        bench.Word(0x48) = Halves(1024, 1024);
        bench.Word(0x44) = 0;
        bench.Regs().erase(ulMissing);
        EXPECT_EQ(bench.Sample(2), before) << ulMissing;
        EXPECT_EQ(bench.TimeStamp(), 1U);
    }
    CStatBench<CRegHsupaLinkThroughput> bench;
    Prepare(bench);
    bench.Regs().erase(WUPA + 0x38 + STEP);
    EXPECT_EQ(bench.Sample(), LeWords({1, F(0), F(0), F(0)})) << "a record that isn't read may be missing";
}

// Served 3072 in one sample: / 1024 x 1000 / 10 ms = 300. Two samples without a base leave the result alone, but with
// the next one 6144 bits stand against four of them: 6000 / 40 = 150.
TEST(RegHsupa, SamplesCountWithoutABase)
{
    CStatBench<CRegHsupaLinkThroughput> bench;
    Prepare(bench);
    bench.Word(0x38) = 1;
    bench.Word(0x48) = 3072;
    const Bytes before = bench.Sample(1);
    EXPECT_EQ(before, LeWords({1, F(0), F(300), F(0)}));
    EXPECT_TRUE(bench.Manager().ChangeRegListByMode(MODE_0)); // forgets the base
    for (const unsigned int ulAddr : {0x37U, 0x43U, 0x47U, 0x4BU})
        bench.Regs()[ulAddr] = 1; // where the record would be behind an address of 0xFFFFFFFF
    EXPECT_EQ(bench.Sample(2), before);
    EXPECT_EQ(bench.Sample(3), before);
    EXPECT_EQ(bench.TimeStamp(), 1U);
    MakeBasesKnown(bench.Manager());
    EXPECT_EQ(bench.Sample(4), LeWords({1, F(0), F(150), F(0)}));
}

TEST(RegHsupa, WithoutABaseTheOtherRegistersMustBeThereToo)
{
    struct
    {
        const char* pszName;
        unsigned int ulMissing; // while the base is unknown
        bool bCounts;
    } const aRow[] = {
        {"all there", 0, true},
        {"no time slot word", TIME_SLOT, false},
        {"no enable register", WBBP + ENABLE_0, false},
        {"carrier 1's enable register isn't reached", WBBP + ENABLE_1, true},
    };
    for (const auto& stRow : aRow) {
        CStatBench<CRegHsupaLinkThroughput> bench;
        Prepare(bench);
        bench.Word(0x38) = 1;
        bench.Word(0x48) = 1024;
        const RegMap all = bench.Regs();
        EXPECT_TRUE(bench.Manager().ChangeRegListByMode(MODE_0));
        bench.Regs().erase(stRow.ulMissing);
        EXPECT_EQ(bench.Sample(), Bytes());
        bench.Regs() = all;
        MakeBasesKnown(bench.Manager());
        // 1024 bits in one sample of 10 ms, or in two.
        EXPECT_EQ(bench.Sample(), LeWords({1, F(0), F(stRow.bCounts ? 50 : 100), F(0)})) << stRow.pszName;
    }
}

// One record: a = 1, b = 3, c = 5, d = 0, e = 1.
//   DTX: b isn't 0: count 0 -> (1 - 0) x 100 = 100. SBLER 0 / 1. First: 0 errors / 1. Limits: 1 / 1, 0, 0. Happy 1 / 1.
// Then a = 0, b = 1, c = 5, d = 1, e = 0:
//   SBLER 1 / 2, first 1 / 1 (not counted in all: d isn't 0), limits 1 / 2, 1 / 2, 0, happy 1 / 2.
// Then b = 0, c = 0xFFFF, d = 1, e = 2: DTX 1 / 3 -> (1 - 0.33333334) x 100 = 66.666664; SBLER 1 / 2;
//   first 2 / 1 = 200 %; limits 1 / 3 each (float 0.33333334 x 100 = 33.333336); happy 1 / 2.
TEST(RegHsupa, Quality)
{
    CStatBench<CRegHsupaLinkQuality> bench;
    Prepare(bench);
    const auto Set = [&](unsigned int ulA, unsigned int ulB, unsigned int ulC, unsigned int ulD, unsigned int ulE) {
        bench.Word(0x28) = ulA;
        bench.Word(0x38) = ulB;
        bench.Word(0x44) = ulC;
        bench.Word(0x7C) = ulD;
        bench.Word(0x124) = ulE;
    };
    Set(1, 3, 5, 0, 1);
    EXPECT_EQ(bench.Sample(), LeWords({1, F(100), F(0), F(0), F(100), F(0), F(0), F(100)}));
    Set(0, 1, 5, 1, 0);
    EXPECT_EQ(bench.Sample(), LeWords({1, F(100), F(50), F(100), F(50), F(50), F(0), F(50)}));
    Set(1, 0, 0xFFFF, 1, 2);
    EXPECT_EQ(bench.Sample(),
              LeWords({1, F(66.666664F), F(50), F(200), F(33.333336F), F(33.333336F), F(33.333336F), F(50)}));
    bench.Stop();
    Set(1, 3, 5, 2, 3); // d = 2: a block error, but no first error; e = 3: a limit, but none of the three
    EXPECT_EQ(bench.Sample(), LeWords({1, F(100), F(100), F(0), F(0), F(0), F(0), F(100)}));
}

// Unwritten halves: DTX 1 / 1 -> 0 %; nothing else counts (0x5A5A has bit 0 clear).
TEST(RegHsupa, QualityOfUnwrittenRecords)
{
    CStatBench<CRegHsupaLinkQuality> bench;
    Prepare(bench);
    bench.Reg(ENABLE_1) = 1;
    EXPECT_EQ(bench.Sample(),
              LeWords({2, F(0), F(0), F(0), F(0), F(0), F(0), F(0), F(0), F(0), F(0), F(0), F(0), F(0), F(0)}));
}

// The group of d steps by 0x1D8 first and then by 0x1E0: 0x7C, 0x254, 0x434, 0x614, 0x7F4. Five errors of five.
TEST(RegHsupa, QualityErrorWordsLieAtTheirOwnSteps)
{
    CStatBench<CRegHsupaLinkQuality> bench;
    Prepare(bench);
    bench.Regs()[TIME_SLOT] = 1;
    for (unsigned int j = 0; j < 5; ++j)
        bench.Word(0x44 + STEP * j) = 0;
    for (const unsigned int ulOffset : {0x7CU, 0x254U, 0x434U, 0x614U, 0x7F4U})
        bench.Word(ulOffset) = 1;
    // DTX: 5 of 5 unwritten -> 0 %. First: 5 errors, none good: divisor 0.
    EXPECT_EQ(bench.Sample(), LeWords({1, F(0), F(100), F(0), F(0), F(0), F(0), F(0)}));
}

// The present n is taken for the whole run. One record with DTX: 1 / (1 x 1) -> 0 %. Then five, all DTX: 6 / (2 x 5)
// = 0.6 -> 40 %. Back at one: 7 / (3 x 1) -> (1 - 2.3333333) x 100 = -133.33333.
TEST(RegHsupa, AChangeOfTheTtiIsNotEvenedOut)
{
    CStatBench<CRegHsupaLinkQuality> bench;
    Prepare(bench);
    const auto Dtx = [&] { return std::bit_cast<float>(LoadLe<uint32_t>(bench.Sample(), 4)); };
    EXPECT_EQ(Dtx(), 0.0F);
    bench.Regs()[TIME_SLOT] = 1;
    EXPECT_NEAR(Dtx(), 40.0F, 0.00001F);
    bench.Regs()[TIME_SLOT] = 0;
    EXPECT_NEAR(Dtx(), -133.33333F, 0.0001F);
}

// DTX in 5 of 11 records. 5 / 11 as a float is 15252015 / 2^25 = 0.45454547, and (1 - that) x 100 = 54.5454532, of
// which the nearest float is 54.545452. With 1 - 0.45454547 as a float it would be 54.545448, with 5 / 11 as a
// double 54.545456.
TEST(RegHsupa, DtxShareIsOfARoundedQuotientAndThenRoundedOnce)
{
    CStatBench<CRegHsupaLinkQuality> bench;
    Prepare(bench);
    Bytes result;
    for (int i = 0; i < 11; ++i) {
        bench.Word(0x38) = i < 5 ? 0 : 2;
        result = bench.Sample();
    }
    EXPECT_EQ(LoadLe<uint32_t>(result, 4), F(54.545452F));
}

// r0: AG flag; r1: scope 1 in bits 8 and 9, value 21 in bits 1 to 5; r2: RG flag; r3: code 2; r4: serving 40.
// AG 21 / 1, code 2: 1 / 1; SG 40 / 1. Then scope 2, value 10, code 1, serving 20: AG 31 / 2 = 15.5; 50, 50, 0; 30.
// Then scope 3 (not counted), code 3, serving unwritten: AG 15.5; a third each: 33.333332; SG 60 / 3 = 20.
TEST(RegHsupa, Grant)
{
    CStatBench<CRegHsupaGrant> bench;
    Prepare(bench);
    const auto Set = [&](unsigned int ulScope, unsigned int ulValue, unsigned int ulCode, unsigned int ulServing) {
        bench.Word(0x08) = 1;
        bench.Word(0x0C) = ulScope << 8 | ulValue << 1;
        bench.Word(0x10) = 1;
        bench.Word(0x14) = ulCode;
        bench.Word(0x24) = ulServing;
        bench.Word(0x20) = 0;
    };
    Set(1, 21, 2, 40);
    EXPECT_EQ(bench.Sample(), LeWords({1, F(21), F(100), F(0), F(0), F(40)}));
    Set(2, 10, 1, 20);
    EXPECT_EQ(bench.Sample(), LeWords({1, F(15.5F), F(50), F(50), F(0), F(30)}));
    Set(3, 10, 3, 0x5A5A);
    EXPECT_EQ(bench.Sample(), LeWords({1, F(15.5F), F(33.333332F), F(33.333332F), F(33.333332F), F(20)}));
    bench.Stop();
    Set(0, 10, 0, 8);
    bench.Word(0x10) = 0xFFFE;
    EXPECT_EQ(bench.Sample(), LeWords({1, F(0), F(0), F(0), F(0), F(8)})) << "scope 0, no RG flag";
}

// Codes 1 and 2 don't count while bit 0 of r5 and bits 0 to 1 of r4 (3) say so, for carrier 1 in the low half too.
TEST(RegHsupa, GrantSuppressedByTheLowHalves)
{
    struct
    {
        unsigned int ulCode, ulR4, ulR5;
        float fCode2, fCode1, fCode3;
    } const aRow[] = {
        {2, 3, 1, 0, 0, 0},   {1, 3, 1, 0, 0, 0}, {3, 3, 1, 0, 0, 100}, {2, 3, 0, 100, 0, 0},
        {2, 2, 1, 100, 0, 0}, {1, 7, 3, 0, 0, 0}, {1, 1, 1, 0, 100, 0},
    };
    for (const auto& stRow : aRow) {
        CStatBench<CRegHsupaGrant> bench;
        Prepare(bench);
        bench.Reg(ENABLE_1) = 1;
        bench.Word(0x08) = 0;
        bench.Word(0x10) = Halves(1, 1);
        bench.Word(0x14) = Halves(stRow.ulCode, stRow.ulCode);
        bench.Word(0x24) = Halves(stRow.ulR4, 0);
        bench.Word(0x20) = Halves(stRow.ulR5, 0);
        const float fServing = static_cast<float>(stRow.ulR4);
        EXPECT_EQ(bench.Sample(), LeWords({2, F(0), F(stRow.fCode2), F(stRow.fCode1), F(stRow.fCode3), F(fServing),
                                           F(0), F(stRow.fCode2), F(stRow.fCode1), F(stRow.fCode3), F(0)}));
    }
}

// Carrier 1's fields lie 16 bits higher. Five records: AG 5 x 31 / 5; SG 5 x 100 / (1 x 5).
TEST(RegHsupa, GrantOfCarrier1)
{
    CStatBench<CRegHsupaGrant> bench;
    Prepare(bench);
    bench.Reg(ENABLE_1) = 1;
    bench.Regs()[TIME_SLOT] = 1;
    for (unsigned int j = 0; j < 5; ++j) {
        bench.Word(0x08 + STEP * j) = Halves(0, 1);
        bench.Word(0x0C + STEP * j) = Halves(0, 2 << 8 | 31 << 1);
        bench.Word(0x10 + STEP * j) = Halves(0, 1);
        bench.Word(0x14 + STEP * j) = Halves(0, 3);
        bench.Word(0x24 + STEP * j) = Halves(0, 100);
    }
    EXPECT_EQ(bench.Sample(), LeWords({2, F(0), F(0), F(0), F(0), F(0), F(31), F(0), F(0), F(100), F(100)}));
}
