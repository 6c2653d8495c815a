#include "data/gu/reg/RegLinkProcess.h"

#include "support/RegFixture.h"

#include <gtest/gtest.h>

namespace
{
using Bench = CStatBench<CRegLinkStatistics>;

constexpr unsigned int C1 = 0x80000;
constexpr unsigned int COUNTERS = 0x8240; // r45 and on, a step of 4

/// The 18 words of a record, by what isn't 0.
struct Rec
{
    float fWinRate = 0, fRate0 = 0, fRate1 = 0, fWinServedRate = 0, fServedRate0 = 0, fServedRate1 = 0;
    float fWinOkRate = 0, fOkRate0 = 0, fOkRate1 = 0;
    float fWinRatioA = 0, fRatioA = 0, fWinRatioB = 0, fRatioB = 0, fWinRatioC = 0, fRatioC = 0;
    float fWinRetransRate = 0, fRetransRate = 0;
    uint32_t ulHistMean = 0;

    Bytes Wire() const
    {
        return LeWords({F(fWinRate), F(fRate0), F(fRate1), F(fWinServedRate), F(fServedRate0), F(fServedRate1),
                        F(fWinOkRate), F(fOkRate0), F(fOkRate1), F(fWinRatioA), F(fRatioA), F(fWinRatioB), F(fRatioB),
                        F(fWinRatioC), F(fRatioC), F(fWinRetransRate), F(fRetransRate), ulHistMean});
    }
};

Bytes Result(const std::vector<Rec>& records)
{
    Bytes bytes = Le(static_cast<uint32_t>(records.size()));
    for (const Rec& rec : records)
        bytes = Join(bytes, rec.Wire());
    return bytes;
}

void SetCounters(Bench& bench, unsigned int ulCarrier, const std::array<unsigned int, 7>& aulCounters)
{
    for (unsigned int i = 0; i < 7; ++i)
        bench.Reg(C1 * ulCarrier + COUNTERS + 4 * i) = aulCounters[i];
}
} // namespace

// One indication, 5 subframes = 10 ms. Frames (all scheduled):
//   0: single, good, new, 1000 bits.         1: single, bad, new, 2000 bits.
//   2: single, good, old, 2000 bits.         3: dual, 3000 good and new, 500 good and old.   4: idle.
// The idle frame isn't usable; it isn't scheduled, but not new data either: the remembered size 3000 of frame 3
// counts as retransmitted. Also stream 1 of frame 3: 500.
// aulBits[0] = 1000 + 2000 + 2000 + 3000 = 8000: / 10 ms = 800; / (4 served x 2) = 1000.
// aulBits[1] = 500: 50; 62.5. aulOkBits[0] = 1000 + 2000 + 3000 = 6000, 3 blocks: / 6 = 1000. [1]: 500 / 2 = 250.
// Retransmitted: 2000 + 500 + 3000 = 5500 / 8 = 687.5. Nothing of a window yet.
TEST(RegLink, OneIndication)
{
    Bench bench;
    SetActive(bench, 0);
    SetFrames(bench, 0,
              {{.ulTbs0 = 1000},
               {.ulCrc0 = 0, .ulTbs0 = 2000, .ulHarq = 1},
               {.ulTbs0 = 2000, .ulHarq = 1, .ulNew0 = 0},
               {.ulType = 7, .ulCrc1 = 1, .ulTbs0 = 3000, .ulTbs1 = 500, .ulHarq = 2}});
    EXPECT_EQ(bench.Sample(12), Result({{.fRate0 = 800,
                                         .fRate1 = 50,
                                         .fServedRate0 = 1000,
                                         .fServedRate1 = 62.5F,
                                         .fOkRate0 = 1000,
                                         .fOkRate1 = 250,
                                         .fRetransRate = 687.5F}}));
    EXPECT_EQ(bench.TimeStamp(), 12U);
}

// Ten indications close a window of 50 subframes = 100 ms. Each has one good, new frame of 1000 bits and four idle
// ones of which each repeats the remembered 1000 bits as retransmitted (4000).
// Window: 10000 bits / 100 = 100; served 10: / 20 = 500; good 10: / 20 = 500; retransmitted 40000 / 20 = 2000.
// Run: 10000 / 100 = 100; 500; 500; 2000. The eleventh keeps the window and goes on with the run: 11000 / 110.
TEST(RegLink, AWindowClosesEveryTenthIndication)
{
    Bench bench;
    SetActive(bench, 0);
    SetFrames(bench, 0, {{.ulTbs0 = 1000}});
    const Rec stRun = {.fRate0 = 100, .fServedRate0 = 500, .fOkRate0 = 500, .fRetransRate = 2000};
    for (int i = 1; i <= 9; ++i)
        EXPECT_EQ(bench.Sample(), Result({stRun})) << i;
    Rec stWindow = stRun;
    stWindow.fWinRate = 100;
    stWindow.fWinServedRate = 500;
    stWindow.fWinOkRate = 500;
    stWindow.fWinRetransRate = 2000;
    EXPECT_EQ(bench.Sample(), Result({stWindow}));
    EXPECT_EQ(bench.Sample(), Result({stWindow}));

    // The next window has nothing scheduled. Nothing is remembered then, so nothing is retransmitted either.
    // First indication: 11 of the 10 above and this one.
    SetFrames(bench, 0, {});
    for (int i = 12; i <= 19; ++i)
        (void)bench.Sample();
    // Window of indications 11 to 20: only 11 had a frame: 1000 / 100 = 10, served 1: 1000 / 2 = 500, 4000 / 2.
    // Run: 11000 bits / 200 ms = 55; 11 served: 500; 44000 / 22 = 2000.
    EXPECT_EQ(bench.Sample(), Result({{.fWinRate = 10,
                                       .fRate0 = 55,
                                       .fWinServedRate = 500,
                                       .fServedRate0 = 500,
                                       .fWinOkRate = 500,
                                       .fOkRate0 = 500,
                                       .fWinRetransRate = 2000,
                                       .fRetransRate = 2000}}));
}

// Sizes are remembered over frames that aren't usable, but not from one indication to the next: a frame of type 14
// (HS-SCCH ok, not usable) is scheduled with the size 1000 of the frame before it; at the start of the next
// indication with 0. Run: 2000 / 10 = 200 and 2 served: 500; then 2000 / 20 = 100 and 3 served: 2000 / 6.
TEST(RegLink, RememberedSizesStartAtZero)
{
    Bench bench;
    SetActive(bench, 0);
    SetFrames(bench, 0,
              {{.ulTbs0 = 1000},
               {.ulType = 14, .ulTbs0 = 7},
               {.ulType = 15, .ulScch = 0},
               {.ulType = 15, .ulScch = 0},
               {.ulType = 15, .ulScch = 0}});
    // Frames 2 to 4 have new data and a good CRC: blocks good 5, of which bits only of the scheduled two.
    EXPECT_EQ(bench.Sample(), Result({{.fRate0 = 200, .fServedRate0 = 500, .fOkRate0 = 200}}));
    SetFrames(bench, 0, {{.ulType = 14, .ulTbs0 = 7}});
    EXPECT_EQ(bench.Sample(), Result({{.fRate0 = 100, .fServedRate0 = 333.33334F, .fOkRate0 = 166.66667F}}));
}

// Frame 0 fails, HS-SCCH-less; frame 1 (type 2, good, scheduled) reveals it: the earlier one isn't scheduled itself,
// but its 137 old bits count as retransmitted, with its own size. Then three idle frames repeat frame 1's 200.
// Bits 200 / 10 = 20, served 1: 100; ok 200 / 2 = 100; retransmitted 137 + 3 x 200 = 737 / 2.
TEST(RegLink, Hindsight)
{
    Bench bench;
    SetActive(bench, 0);
    SetFrames(bench, 0,
              {{.ulType = 1, .ulPart1 = 0, .ulScch = 0, .ulCrc0 = 0, .ulTbs0 = 137, .ulNew0 = 0},
               {.ulType = 2, .ulTbs0 = 200, .ulOffset = 1}});
    EXPECT_EQ(bench.Sample(), Result({{.fRate0 = 20, .fServedRate0 = 100, .fOkRate0 = 100, .fRetransRate = 368.5F}}));
}

// A block that isn't scheduled (part 1 missing) but good counts as a block, without bits: ok 1000 bits / (2 x 2).
TEST(RegLink, OnlyScheduledFramesHaveBits)
{
    Bench bench;
    SetActive(bench, 0);
    SetFrames(bench, 0, {{.ulTbs0 = 1000}, {.ulPart1 = 0, .ulTbs0 = 4000, .ulHarq = 1}, {}, {}, {}});
    // Frames 2 to 4 have size 0, and as usable ones reset the remembered size; scheduled and good, 3 more of each:
    // served 4: 1000 / 8 = 125; blocks 5: 1000 / 10 = 100.
    EXPECT_EQ(bench.Sample(), Result({{.fRate0 = 100, .fServedRate0 = 125, .fOkRate0 = 100}}));
}

// First window from 0: A (100, 80, 30): (80 - 30) / 100 = 50 %; B (40, 10): 25 %; C (8, 2): 25 %; the same over all.
// Second window: A (200, 120, 20): growth 100, 40 and, having stepped back, 0: 40 %; over all (120 - 20) / 200 = 50.
// B (30, 20): stepped back 0, 10: divisor 0 -> 0; over all 20 / 30: float 0.6666667 x 100 = 66.66667.
// C (8, 2): no growth: 0; 25 %.
TEST(RegLink, Counters)
{
    Bench bench;
    SetActive(bench, 0);
    SetFrames(bench, 0, {});
    SetCounters(bench, 0, {100, 80, 30, 40, 10, 8, 2});
    for (int i = 1; i <= 9; ++i)
        EXPECT_EQ(bench.Sample(), Result({{.fRatioA = 50, .fRatioB = 25, .fRatioC = 25}}));
    EXPECT_EQ(
        bench.Sample(),
        Result({{.fWinRatioA = 50, .fRatioA = 50, .fWinRatioB = 25, .fRatioB = 25, .fWinRatioC = 25, .fRatioC = 25}}));
    SetCounters(bench, 0, {200, 120, 20, 30, 20, 8, 2});
    for (int i = 1; i <= 9; ++i)
        (void)bench.Sample();
    EXPECT_EQ(bench.Sample(), Result({{.fWinRatioA = 40, .fRatioA = 50, .fRatioB = 66.66667F, .fRatioC = 25}}));
}

// r46 below r47: the difference is taken in unsigned 32 bits: (10 - 20) mod 2^32 = 4294967286 / 100.
TEST(RegLink, RatioAWraps)
{
    Bench bench;
    SetActive(bench, 0);
    SetFrames(bench, 0, {});
    SetCounters(bench, 0, {100, 10, 20, 0, 0, 0, 0});
    EXPECT_EQ(bench.Sample(), Result({{.fRatioA = 4294967286.0F}}));
}

// Both carriers: C0 1000 bits, C1 2000 bits, good and new in each of ten indications, with four frames of type 15,
// new and not scheduled, that count as good blocks.
// C0: 100, served 500, ok 1000 / 10 = 100. C1: 200, 1000, 200. Sums: 300, 1500, 300, in the window too: C0 blocks of
// the window 50: 10000 / 100 = 100.
// Ratios: A: ((80 + 60) - (30 + 10)) / (100 + 100) = 50 %, B (10 + 0) / (40 + 10) = 20 %, C (2 + 6) / (8 + 8) = 50 %.
TEST(RegLink, TwoCarriersAndTheTotal)
{
    Bench bench;
    SetActive(bench, 0);
    SetActive(bench, 1);
    const TestFrame stRest = {.ulType = 15, .ulScch = 0};
    SetFrames(bench, 0, {{.ulTbs0 = 1000}, stRest, stRest, stRest, stRest});
    SetFrames(bench, 1, {{.ulTbs0 = 2000}, stRest, stRest, stRest, stRest});
    SetCounters(bench, 0, {100, 80, 30, 40, 10, 8, 2});
    SetCounters(bench, 1, {100, 60, 10, 10, 0, 8, 6});
    const Rec stFirst0 = {
        .fRate0 = 100, .fServedRate0 = 500, .fOkRate0 = 100, .fRatioA = 50, .fRatioB = 25, .fRatioC = 25};
    const Rec stFirst1 = {
        .fRate0 = 200, .fServedRate0 = 1000, .fOkRate0 = 200, .fRatioA = 50, .fRatioB = 0, .fRatioC = 75};
    const Rec stFirst = {
        .fRate0 = 300, .fServedRate0 = 1500, .fOkRate0 = 300, .fRatioA = 50, .fRatioB = 20, .fRatioC = 50};
    for (int i = 1; i <= 9; ++i)
        EXPECT_EQ(bench.Sample(), Result({stFirst0, stFirst1, stFirst}));
    const auto WithWindow = [](Rec st) {
        st.fWinRate = st.fRate0;
        st.fWinServedRate = st.fServedRate0;
        st.fWinOkRate = st.fOkRate0;
        st.fWinRatioA = st.fRatioA;
        st.fWinRatioB = st.fRatioB;
        st.fWinRatioC = st.fRatioC;
        return st;
    };
    EXPECT_EQ(bench.Sample(), Result({WithWindow(stFirst0), WithWindow(stFirst1), WithWindow(stFirst)}));
}

// Ten indications with one dual frame each, old and good on both streams, and four of type 15 that are new and bad:
// C0 1000 and 500 bits, C1 2000 and 3000. C0: rates 100 and 50, served 500 and 250, good (one block of each stream an
// indication) 500 and 250, retransmitted 1500 / 2 = 750. Of the window: 1500 / 10 = 150; 1500 / 2 = 750 served; good
// bits of both streams over the blocks of stream 0: 750; retransmitted 750.
// C1: 200 and 300, served and good 1000 and 1500, retransmitted 2500; window 500, 2500, 2500, 2500. Total: the sums.
TEST(RegLink, DualStreamOfBothCarriersAndItsWindow)
{
    Bench bench;
    SetActive(bench, 0);
    SetActive(bench, 1);
    const auto Frames = [](unsigned int ulTbs0, unsigned int ulTbs1) {
        const TestFrame stRest = {.ulType = 15, .ulScch = 0, .ulCrc0 = 0};
        return std::vector<TestFrame>{{.ulType = 7, .ulCrc1 = 1, .ulTbs0 = ulTbs0, .ulTbs1 = ulTbs1, .ulNew0 = 0},
                                      stRest,
                                      stRest,
                                      stRest,
                                      stRest};
    };
    SetFrames(bench, 0, Frames(1000, 500));
    SetFrames(bench, 1, Frames(2000, 3000));
    for (int i = 1; i <= 9; ++i)
        (void)bench.Sample();
    const auto Record = [](float f0, float f1) {
        return Rec{.fWinRate = f0 + f1,
                   .fRate0 = f0,
                   .fRate1 = f1,
                   .fWinServedRate = 5 * (f0 + f1),
                   .fServedRate0 = 5 * f0,
                   .fServedRate1 = 5 * f1,
                   .fWinOkRate = 5 * (f0 + f1),
                   .fOkRate0 = 5 * f0,
                   .fOkRate1 = 5 * f1,
                   .fWinRetransRate = 5 * (f0 + f1),
                   .fRetransRate = 5 * (f0 + f1)};
    };
    EXPECT_EQ(bench.Sample(), Result({Record(100, 50), Record(200, 300), Record(300, 350)}));
}

TEST(RegLink, TheTotalOfCarrier1AloneIsItsCopy)
{
    Bench bench;
    SetActive(bench, 1);
    SetFrames(bench, 0, {{.ulTbs0 = 9999}});
    SetFrames(bench, 1, {{.ulTbs0 = 2000}, {}, {}, {}, {}});
    const Rec st = {.fRate0 = 200, .fServedRate0 = 200, .fOkRate0 = 200};
    EXPECT_EQ(bench.Sample(), Result({st, st}));
}

// The registers of the histogram are the third words of the blocks: bits 20 to 23. Here they are 4, 4, 5, 0 and 0
// (the fields around stay as they are), while a frame is scheduled. The mean comes with the 20th indication:
// (4 x 40 + 5 x 20) / 60 = 4.33 -> 4; at 4, 5, 5: 4.67 -> 5.
TEST(RegLink, HistogramMean)
{
    Bench bench;
    SetActive(bench, 0);
    SetFrames(bench, 0, {{.ulTbs0 = 1000}});
    const auto SetValues = [&](const std::array<unsigned int, 5>& aulValues) {
        for (unsigned int i = 0; i < 5; ++i) {
            unsigned int& ulWord = bench.Reg(0x8708 + 0x20 * i);
            ulWord = (ulWord & ~0x00F00000U) | aulValues[i] << 20;
        }
    };
    const auto Mean = [&] { return LoadLe<uint32_t>(bench.Sample(), 4 + 68); };
    SetValues({4, 4, 5, 0, 0});
    for (int i = 1; i <= 19; ++i)
        EXPECT_EQ(Mean(), 0U) << i;
    EXPECT_EQ(Mean(), 4U);
    SetValues({4, 5, 5, 0, 0});
    for (int i = 1; i <= 19; ++i)
        EXPECT_EQ(Mean(), 4U) << "the mean stands until the next: " << i;
    EXPECT_EQ(Mean(), 5U) << "the bins were cleared";
    SetFrames(bench, 0, {});
    SetValues({15, 15, 15, 15, 15});
    for (int i = 1; i <= 19; ++i)
        (void)bench.Sample();
    EXPECT_EQ(Mean(), 0U) << "nothing scheduled, nothing counted: 0 + 0.5 is cut to 0";
}

// C0: 4 in every bin of 5; C1: 8. Total: (100 x 4 + 100 x 8) / 200 = 6. In the total only the snapshots count.
TEST(RegLink, HistogramOfTheTotal)
{
    Bench bench;
    SetActive(bench, 0);
    SetActive(bench, 1);
    SetFrames(bench, 0, {{.ulTbs0 = 1000}});
    SetFrames(bench, 1, {{.ulTbs0 = 1000}});
    for (unsigned int i = 0; i < 5; ++i) {
        bench.Reg(0x8708 + 0x20 * i) |= 4U << 20;
        bench.Reg(C1 + 0x8708 + 0x20 * i) |= 8U << 20;
    }
    for (int i = 1; i <= 19; ++i)
        EXPECT_EQ(LoadLe<uint32_t>(bench.Sample(), 4 + 2 * 72 + 68), 0U);
    const Bytes result = bench.Sample();
    EXPECT_EQ(LoadLe<uint32_t>(result, 4 + 68), 4U);
    EXPECT_EQ(LoadLe<uint32_t>(result, 4 + 72 + 68), 8U);
    EXPECT_EQ(LoadLe<uint32_t>(result, 4 + 2 * 72 + 68), 6U);
}

TEST(RegLink, KnownKindsReadTheSecondHistogramWordOutOfThePattern)
{
    Bench bench(true);
    bench.Reg(0x9070) = 1;
    const auto registers = TestFrame{.ulTbs0 = 1000}.Registers();
    for (unsigned int k = 0; k < 4; ++k)
        bench.Reg(0x9700 + 4 * k) = registers[k];
    bench.Reg(0x8738) = 9U << 20;
    bench.Reg(0x9738) = 3U << 20;
    Bytes result;
    for (int i = 1; i <= 20; ++i)
        result = bench.Sample();
    EXPECT_EQ(LoadLe<uint32_t>(result, 4 + 68), 9U);
}

TEST(RegLink, AMissingRegisterLeavesTheResult)
{
    Bench bench;
    SetActive(bench, 0);
    SetFrames(bench, 0, {{.ulTbs0 = 1000}});
    const Bytes before = bench.Sample(1);
    bench.Regs().erase(WBBP + C1 + COUNTERS);
    EXPECT_EQ(bench.Sample(2), before);
    EXPECT_EQ(bench.TimeStamp(), 1U);
    bench.Regs().erase(WBBP + COUNTERS);
    EXPECT_EQ(bench.Sample(3), before);
}

TEST(RegLink, NoActiveCarrierGivesACountOfZero)
{
    Bench bench;
    EXPECT_EQ(bench.Sample(), Hex("00 00 00 00"));
}

// Frames 1 to 4 aren't scheduled, but new and good: 5 good blocks, 1000 / (5 x 2).
TEST(RegLink, AStopForgetsAllCounters)
{
    Bench bench;
    SetActive(bench, 0);
    SetFrames(bench, 0, {{.ulTbs0 = 1000}});
    for (int i = 1; i <= 10; ++i)
        (void)bench.Sample();
    bench.Stop();
    const TestFrame stRest = {.ulType = 15, .ulScch = 0};
    SetFrames(bench, 0, {{.ulTbs0 = 1000}, stRest, stRest, stRest, stRest});
    EXPECT_EQ(bench.Sample(), Result({{.fRate0 = 100, .fServedRate0 = 500, .fOkRate0 = 100}}));
}
