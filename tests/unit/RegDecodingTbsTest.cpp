#include "data/gu/reg/RegDecodingTbs.h"

#include "support/RegFixture.h"

#include <gtest/gtest.h>

namespace
{
using Bench = CStatBench<CRegDecodingTbs>;

/// The 31 words of a record, by what isn't 0.
struct Rec
{
    uint32_t ulTbs = 0;
    std::array<uint32_t, 2> qpsk{}, qam16{}, qam64{}, blockErr{}, crcOk{}, ackRetrans{}, tbsChange{};
    std::array<float, 2> bler{}, firstBler{};
    std::array<uint32_t, 2> newAfterErr{};
    std::array<float, 2> newAfterErrRate{};
    std::array<uint32_t, 6> phase{};

    Bytes Wire() const
    {
        return LeWords({ulTbs,
                        qpsk[0],
                        qpsk[1],
                        qam16[0],
                        qam16[1],
                        qam64[0],
                        qam64[1],
                        blockErr[0],
                        blockErr[1],
                        crcOk[0],
                        crcOk[1],
                        ackRetrans[0],
                        ackRetrans[1],
                        tbsChange[0],
                        tbsChange[1],
                        F(bler[0]),
                        F(bler[1]),
                        F(firstBler[0]),
                        F(firstBler[1]),
                        newAfterErr[0],
                        newAfterErr[1],
                        crcOk[0],
                        crcOk[1],
                        F(newAfterErrRate[0]),
                        F(newAfterErrRate[1]),
                        phase[0],
                        phase[1],
                        phase[2],
                        phase[3],
                        phase[4],
                        phase[5]});
    }
};
using Block = std::vector<Rec>;

Bytes Result(const std::vector<Block>& blocks)
{
    Bytes bytes = Le(static_cast<uint32_t>(blocks.size()));
    for (const Block& block : blocks) {
        bytes = Join(bytes, Le(static_cast<uint32_t>(block.size())));
        for (const Rec& rec : block)
            bytes = Join(bytes, rec.Wire());
    }
    return bytes;
}

/// An HS-SCCH-less frame of a type, its HS-SCCH not decoded.
TestFrame Less(unsigned int ulType, unsigned int ulCrc, unsigned int ulTbs)
{
    return {.ulType = ulType, .ulPart1 = 0, .ulScch = 0, .ulCrc0 = ulCrc, .ulTbs0 = ulTbs};
}
} // namespace

TEST(RegDecodingTbs, NothingIsStoredBeforeAReport)
{
    Bench bench;
    SetActive(bench, 0);
    SetFrames(bench, 0, {{.ulTbs0 = 1000}});
    EXPECT_EQ(bench.Sample(55), Bytes());
    EXPECT_EQ(bench.TimeStamp(), 55U);
}

TEST(RegDecodingTbs, AReportWithoutNewDataHasNoBlock)
{
    Bench bench;
    EXPECT_EQ(bench.Report(), Hex("00 00 00 00"));
    (void)bench.Sample();
    EXPECT_EQ(bench.Report(), Hex("00 00 00 00")) << "no carrier active";
}

// Process 0: 0 new and good; 1 old and good: retransmission after good. Process 1: 2 new and bad; 3 old, good, third
// transmission, another size (2000): a change of size; 4: process 1 new and good.
// 1000: QPSK 2 (frames 0, 1), 16QAM 1 (frame 2); good: 0, 1; bad: 2; good at new data: 0.
//   bler 1 / 3 (float 0.33333334 x 100 = 33.333336); first bler (1 - 1 / 3) x 100 = 66.666664.
// 2000: 64QAM 2 (frames 3, 4); good: 3, 4; good at new data: 4: first bler 50 %. Phase 3 and phase 1.
TEST(RegDecodingTbs, OneCarrierSingleStream)
{
    Bench bench;
    SetActive(bench, 0);
    SetFrames(bench, 0,
              {{.ulTbs0 = 1000},
               {.ulTbs0 = 1000, .ulNew0 = 0, .ulTrans = 1},
               {.ulCrc0 = 0, .ulTbs0 = 1000, .ulHarq = 1, .ulMod0 = 2},
               {.ulTbs0 = 2000, .ulHarq = 1, .ulNew0 = 0, .ulMod0 = 3, .ulTrans = 2},
               {.ulTbs0 = 2000, .ulHarq = 1, .ulMod0 = 3}});
    (void)bench.Sample();
    EXPECT_EQ(
        bench.Report(),
        Result(
            {{{.ulTbs = 1000,
               .qpsk = {2},
               .qam16 = {1},
               .blockErr = {1},
               .crcOk = {2},
               .ackRetrans = {1},
               .bler = {33.333336F},
               .firstBler = {66.666664F},
               .phase = {1, 1}},
              {.ulTbs = 2000, .qam64 = {2}, .crcOk = {2}, .tbsChange = {1}, .firstBler = {50}, .phase = {1, 0, 1}}}}));
}

// 11 blocks with new data, 5 of them good. First BLER (1 - 5 / 11) x 100 = 54.5454545, whose nearest float
// is 54.545456; with 5 / 11 as a float, 15252015 / 2^25, it would be 54.545452. BLER 6 / 11 as a float is 9151209 /
// 2^24 = 0.54545456, and 100 times that 54.5454562.
TEST(RegDecodingTbs, FirstBlerIsRoundedOnce)
{
    Bench bench;
    SetActive(bench, 0);
    const TestFrame good = {.ulTbs0 = 1000};
    const TestFrame bad = {.ulCrc0 = 0, .ulTbs0 = 1000};
    for (const auto& frames : {std::vector(5, good), std::vector(5, bad), std::vector(1, bad)}) {
        SetFrames(bench, 0, frames);
        (void)bench.Sample();
    }
    EXPECT_EQ(bench.Report(), Result({{{.ulTbs = 1000,
                                        .qpsk = {11},
                                        .blockErr = {6},
                                        .crcOk = {5},
                                        .bler = {54.545456F},
                                        .firstBler = {54.545456F},
                                        .phase = {5}}}}));
}

// New data after a failed retransmission: process 0 new and bad, old and bad, then new: given up once.
// Good 1, given up 1: 50 %. Bad 2 of 3: 0.6666667 x 100 = 66.66667; first: 1 - 1 / 3 = 66.666664.
TEST(RegDecodingTbs, GivenUp)
{
    Bench bench;
    SetActive(bench, 0);
    SetFrames(bench, 0, {{.ulCrc0 = 0, .ulTbs0 = 1000}, {.ulCrc0 = 0, .ulTbs0 = 1000, .ulNew0 = 0}, {.ulTbs0 = 1000}});
    (void)bench.Sample();
    EXPECT_EQ(bench.Report(), Result({{{.ulTbs = 1000,
                                        .qpsk = {3},
                                        .blockErr = {2},
                                        .crcOk = {1},
                                        .bler = {66.66667F},
                                        .firstBler = {66.666664F},
                                        .newAfterErr = {1},
                                        .newAfterErrRate = {50},
                                        .phase = {1}}}}));
}

// Dual frames: stream 0 of size 1000 good, stream 1 of size 500 bad, then both of size 1000. In the second frame
// stream 1 (old, good now, other size than the 500 that failed) is a change of size. Stream 1 has no phases.
// Stream 0 marks the process as seen before stream 1 looks, so stream 1's first new data count as given up: 1, / (0
// good + 1) = 100 %.
TEST(RegDecodingTbs, DualStream)
{
    Bench bench;
    SetActive(bench, 0);
    SetFrames(bench, 0,
              {{.ulType = 7, .ulTbs0 = 1000, .ulTbs1 = 500, .ulNew1 = 1, .ulMod1 = 2},
               {.ulType = 7, .ulCrc1 = 1, .ulTbs0 = 1000, .ulTbs1 = 1000, .ulNew1 = 0, .ulMod0 = 1, .ulMod1 = 3}});
    (void)bench.Sample();
    EXPECT_EQ(bench.Report(), Result({{{.ulTbs = 1000,
                                        .qpsk = {1},
                                        .qam64 = {0, 1},
                                        .crcOk = {2, 1},
                                        .tbsChange = {0, 1},
                                        .firstBler = {0, 100},
                                        .phase = {2}},
                                       {.ulTbs = 500,
                                        .qam16 = {0, 1},
                                        .blockErr = {0, 1},
                                        .bler = {0, 100},
                                        .firstBler = {0, 100},
                                        .newAfterErr = {0, 1},
                                        .newAfterErrRate = {0, 100}}}}));
}

TEST(RegDecodingTbs, PhasesBeyondTheSixthCountThere)
{
    Bench bench;
    SetActive(bench, 0);
    SetFrames(bench, 0,
              {{.ulTbs0 = 8, .ulHarq = 1, .ulTrans = 3},
               {.ulTbs0 = 8, .ulHarq = 2, .ulTrans = 4},
               {.ulTbs0 = 8, .ulHarq = 3, .ulTrans = 5},
               {.ulTbs0 = 8, .ulHarq = 4, .ulTrans = 6},
               {.ulTbs0 = 8, .ulHarq = 5, .ulTrans = 7}});
    (void)bench.Sample();
    EXPECT_EQ(bench.Report(), Result({{{.ulTbs = 8, .qpsk = {5}, .crcOk = {5}, .phase = {0, 0, 0, 1, 1, 3}}}}));
}

TEST(RegDecodingTbs, FramesThatLeaveNoEntry)
{
    const TestFrame aFrames[] = {
        {.ulType = 5, .ulTbs0 = 1000}, // no decoded data
        {.ulType = 14, .ulTbs0 = 1000}, {.ulType = 15, .ulTbs0 = 1000},
        {.ulScch = 0, .ulTbs0 = 1000}, // HS-SCCH not decoded
        {.ulTbs0 = 0, .ulTbs1 = 1000}, // no size on stream 0
        {.ulType = 1, .ulTbs0 = 1000}, // HS-SCCH-less frames go to their own list
        {.ulType = 2, .ulTbs0 = 1000},  {.ulType = 3, .ulTbs0 = 1000},
    };
    for (const TestFrame& stFrame : aFrames) {
        Bench bench;
        SetActive(bench, 0);
        SetFrames(bench, 0, {stFrame});
        (void)bench.Sample();
        EXPECT_EQ(bench.Report(), Result({{}})) << stFrame.ulType;
    }
}

// An HS-SCCH-less frame counts nothing in the table, but leaves its mark on its process: the old frame of size 1000
// behind it is a retransmission after good. A bad one (type 2) that isn't seen in hindsight leaves none.
TEST(RegDecodingTbs, LessFramesShareTheHarqMemory)
{
    Bench bench;
    SetActive(bench, 0);
    SetFrames(bench, 0, {Less(1, 1, 137), {.ulTbs0 = 1000, .ulNew0 = 0}});
    (void)bench.Sample();
    EXPECT_EQ(
        bench.Report(),
        Result({{{.ulTbs = 1000, .qpsk = {1}, .crcOk = {1}, .ackRetrans = {1}, .firstBler = {100}, .phase = {1}}}}));
    Bench other;
    SetActive(other, 0);
    SetFrames(other, 0, {{.ulType = 2, .ulCrc0 = 0, .ulTbs0 = 137, .ulOffset = 5}, {.ulTbs0 = 1000, .ulNew0 = 0}});
    (void)other.Sample();
    EXPECT_EQ(other.Report(), Result({{{.ulTbs = 1000, .qpsk = {1}, .crcOk = {1}, .firstBler = {100}, .phase = {1}}}}));
}

// A good HS-SCCH-less frame on carrier 1 goes nowhere, not even to the HARQ memory that carrier 0's reaches above.
TEST(RegDecodingTbs, LessFramesOfCarrier1LeaveNoMark)
{
    Bench bench;
    SetActive(bench, 1);
    SetFrames(bench, 1, {Less(1, 1, 137), {.ulTbs0 = 1000, .ulNew0 = 0}});
    (void)bench.Sample();
    const Rec st = {.ulTbs = 1000, .qpsk = {1}, .crcOk = {1}, .firstBler = {100}, .phase = {1}};
    EXPECT_EQ(bench.Report(), Result({{st}, {st}}));
}

// Hindsight: frame 1 (type 2, bad itself) points back to frame 0, which failed: process 0 is then last bad, old.
// Frame 2, new on process 0, is "given up". Without hindsight the process would not have been seen.
TEST(RegDecodingTbs, HindsightReachesTheHarqMemory)
{
    const TestFrame stFirst = {.ulType = 1, .ulPart1 = 0, .ulScch = 0, .ulCrc0 = 0, .ulTbs0 = 137, .ulNew0 = 0};
    const auto NewAfterErr = [&](const TestFrame& stSecond) {
        Bench bench;
        SetActive(bench, 0);
        SetFrames(bench, 0, {stFirst, stSecond, {.ulTbs0 = 1000}});
        (void)bench.Sample();
        return LoadLe<uint32_t>(bench.Report(), 8 + 76);
    };
    EXPECT_EQ(NewAfterErr({.ulType = 2, .ulCrc0 = 0, .ulTbs0 = 137, .ulHarq = 3, .ulOffset = 1}), 1U);
    EXPECT_EQ(NewAfterErr({.ulType = 3, .ulCrc0 = 0, .ulTbs0 = 137, .ulHarq = 3, .ulOffset = 1}), 1U);
    EXPECT_EQ(NewAfterErr({.ulType = 3, .ulCrc0 = 0, .ulTbs0 = 137, .ulHarq = 3, .ulOffset = 2}), 0U);
    EXPECT_EQ(NewAfterErr({.ulType = 1, .ulCrc0 = 0, .ulTbs0 = 137, .ulHarq = 3, .ulOffset = 1}), 0U);
}

TEST(RegDecodingTbs, OnlyTouchedEntriesAppearWithCountersOfTheWholeRun)
{
    Bench bench;
    SetActive(bench, 0);
    SetFrames(bench, 0, {{.ulTbs0 = 1000}, {.ulTbs0 = 2000, .ulHarq = 1}});
    (void)bench.Sample();
    (void)bench.Report();
    SetFrames(bench, 0, {{.ulTbs0 = 2000, .ulHarq = 1}});
    (void)bench.Sample();
    EXPECT_EQ(bench.Report(), Result({{{.ulTbs = 2000, .qpsk = {2}, .crcOk = {2}, .phase = {2}}}}));
    EXPECT_EQ(bench.Report(), Hex("00 00 00 00")) << "no new data";
    SetFrames(bench, 0, {});
    (void)bench.Sample();
    EXPECT_EQ(bench.Report(), Result({{}})) << "new data, nothing touched";
}

// C0: 1000 as 16QAM stream 0. C1: dual, 1000 as 64QAM on stream 0 and as QPSK on stream 1, and 3000.
// The total of 1000: modulations of C1's stream 0 go to both streams: 64QAM {1, 1}, and C1's QPSK of stream 1 goes
// nowhere. Good 1 + 1 and 0 + 1. Good at new data stays C0's: stream 0: 1 - 1 / 2 = 50 %, stream 1: 1 - 0 / 1.
// In C1 stream 1 is new and good: 0 %; as the first of its process it counts as given up, 1 / (1 + 1) = 50 %.
// 3000 stands in the total as in C1.
TEST(RegDecodingTbs, TwoCarriersAndTheTotal)
{
    Bench bench;
    SetActive(bench, 0);
    SetActive(bench, 1);
    SetFrames(bench, 0, {{.ulTbs0 = 1000, .ulMod0 = 2}});
    SetFrames(bench, 1,
              {{.ulType = 7, .ulCrc1 = 1, .ulTbs0 = 1000, .ulTbs1 = 1000, .ulHarq = 1, .ulNew1 = 1, .ulMod0 = 3},
               {.ulTbs0 = 3000, .ulHarq = 2}});
    (void)bench.Sample();
    const Rec st3000 = {.ulTbs = 3000, .qpsk = {1}, .crcOk = {1}, .phase = {1}};
    EXPECT_EQ(bench.Report(), Result({{{.ulTbs = 1000, .qam16 = {1}, .crcOk = {1}, .phase = {1}}},
                                      {{.ulTbs = 1000,
                                        .qpsk = {0, 1},
                                        .qam64 = {1},
                                        .crcOk = {1, 1},
                                        .newAfterErr = {0, 1},
                                        .newAfterErrRate = {0, 50},
                                        .phase = {1}},
                                       st3000},
                                      {{.ulTbs = 1000,
                                        .qam16 = {1},
                                        .qam64 = {1, 1},
                                        .crcOk = {2, 1},
                                        .firstBler = {50, 100},
                                        .newAfterErr = {0, 1},
                                        .newAfterErrRate = {0, 50},
                                        .phase = {2}},
                                       st3000}}));

    // Only C0's 1000 is touched: in the total it is added up and dirty, 3000 isn't there.
    SetFrames(bench, 1, {});
    (void)bench.Sample();
    EXPECT_EQ(bench.Report(), Result({{{.ulTbs = 1000, .qam16 = {2}, .crcOk = {2}, .phase = {2}}},
                                      {},
                                      {{.ulTbs = 1000,
                                        .qam16 = {2},
                                        .qam64 = {1, 1},
                                        .crcOk = {3, 1},
                                        .firstBler = {33.333332F, 100},
                                        .newAfterErr = {0, 1},
                                        .newAfterErrRate = {0, 50},
                                        .phase = {3}}}}));

    // C0 goes idle with an entry that isn't touched, C1 touches 3000 only: C1 and the total, without 1000.
    SetActive(bench, 0, false);
    SetFrames(bench, 1, {{.ulTbs0 = 3000, .ulHarq = 2}});
    (void)bench.Sample();
    const Rec st3000Again = {.ulTbs = 3000, .qpsk = {2}, .crcOk = {2}, .phase = {2}};
    EXPECT_EQ(bench.Report(), Result({{st3000Again}, {st3000Again}}));
}

// Both carriers have 1000 and 2000, in another order; the total goes by size, in the order of C0: of 1000 two blocks
// (of C1 the second frame), of 2000 two, C1's as 16QAM; 3000 of C1 alone stands behind them.
TEST(RegDecodingTbs, TheTotalGoesBySize)
{
    Bench bench;
    SetActive(bench, 0);
    SetActive(bench, 1);
    SetFrames(bench, 0, {{.ulTbs0 = 1000}, {.ulTbs0 = 2000, .ulHarq = 1}});
    SetFrames(bench, 1,
              {{.ulTbs0 = 3000, .ulHarq = 2},
               {.ulTbs0 = 2000, .ulHarq = 3, .ulMod0 = 2},
               {.ulTbs0 = 1000, .ulHarq = 4, .ulTrans = 1}});
    (void)bench.Sample();
    const Rec st3000 = {.ulTbs = 3000, .qpsk = {1}, .crcOk = {1}, .phase = {1}};
    EXPECT_EQ(bench.Report(),
              Result({{{.ulTbs = 1000, .qpsk = {1}, .crcOk = {1}, .phase = {1}},
                       {.ulTbs = 2000, .qpsk = {1}, .crcOk = {1}, .phase = {1}}},
                      {st3000,
                       {.ulTbs = 2000, .qam16 = {1}, .crcOk = {1}, .phase = {1}},
                       {.ulTbs = 1000, .qpsk = {1}, .crcOk = {1}, .phase = {0, 1}}},
                      {{.ulTbs = 1000, .qpsk = {2, 1}, .crcOk = {2}, .firstBler = {50}, .phase = {1, 1}},
                       {.ulTbs = 2000, .qpsk = {1}, .qam16 = {1, 1}, .crcOk = {2}, .firstBler = {50}, .phase = {2}},
                       st3000}}));
}

// C0, process 0: new and good, old and good (retransmission after good), old and bad; process 1: new and bad of size
// 500, old and good of size 1000 (a change of size). C1, the same on processes 2 and 3, without the bad old one.
// C0's 1000: frames 4, good 3, bad 1, good at new data 1: (1 - 1 / 4) = 75 %, bad 25 %; retransmissions 2 (the bad one
// is one too). C1's: 3, good 3, first 1 - 1 / 3. Total: good 6, bad 1, first 1 - 1 / 7 = 85.714286 %, bad 1 / 7 =
// 14.285715 (0.14285715 x 100); 500: bad 2, all of it.
TEST(RegDecodingTbs, TheTotalAddsEachCounter)
{
    Bench bench;
    SetActive(bench, 0);
    SetActive(bench, 1);
    SetFrames(bench, 0,
              {{.ulTbs0 = 1000},
               {.ulTbs0 = 1000, .ulNew0 = 0},
               {.ulCrc0 = 0, .ulTbs0 = 1000, .ulNew0 = 0},
               {.ulCrc0 = 0, .ulTbs0 = 500, .ulHarq = 1},
               {.ulTbs0 = 1000, .ulHarq = 1, .ulNew0 = 0}});
    SetFrames(bench, 1,
              {{.ulTbs0 = 1000, .ulHarq = 2},
               {.ulTbs0 = 1000, .ulHarq = 2, .ulNew0 = 0},
               {.ulCrc0 = 0, .ulTbs0 = 500, .ulHarq = 3},
               {.ulTbs0 = 1000, .ulHarq = 3, .ulNew0 = 0}});
    (void)bench.Sample();
    const Rec st500 = {.ulTbs = 500, .qpsk = {1}, .blockErr = {1}, .bler = {100}, .firstBler = {100}};
    EXPECT_EQ(bench.Report(),
              Result({{{.ulTbs = 1000,
                        .qpsk = {4},
                        .blockErr = {1},
                        .crcOk = {3},
                        .ackRetrans = {2},
                        .tbsChange = {1},
                        .bler = {25},
                        .firstBler = {75},
                        .phase = {3}},
                       st500},
                      {{.ulTbs = 1000,
                        .qpsk = {3},
                        .crcOk = {3},
                        .ackRetrans = {1},
                        .tbsChange = {1},
                        .firstBler = {66.666664F},
                        .phase = {3}},
                       st500},
                      {{.ulTbs = 1000,
                        .qpsk = {7, 3},
                        .blockErr = {1},
                        .crcOk = {6},
                        .ackRetrans = {3},
                        .tbsChange = {2},
                        .bler = {14.285715F},
                        .firstBler = {85.714286F},
                        .phase = {6}},
                       {.ulTbs = 500, .qpsk = {2, 1}, .blockErr = {2}, .bler = {100}, .firstBler = {100}}}}));
}

TEST(RegDecodingTbs, EntriesKeepTheOrderOfTheirFirstAppearance)
{
    Bench bench;
    SetActive(bench, 0);
    SetFrames(bench, 0, {{.ulTbs0 = 3000}, {.ulTbs0 = 1000, .ulHarq = 1}, {.ulTbs0 = 2000, .ulHarq = 2}});
    (void)bench.Sample();
    const Bytes report = bench.Report();
    EXPECT_EQ(report.size(), 4U + 4 + 3 * 124);
    EXPECT_EQ(LoadLe<uint32_t>(report, 8), 3000U);
    EXPECT_EQ(LoadLe<uint32_t>(report, 8 + 124), 1000U);
    EXPECT_EQ(LoadLe<uint32_t>(report, 8 + 2 * 124), 2000U);
}

TEST(RegDecodingTbs, AMissingSecondHalfStillCountsTheFirst)
{
    Bench bench;
    SetActive(bench, 0);
    SetFrames(bench, 0, {{.ulTbs0 = 1000}});
    bench.Regs().erase(WBBP + 0x88070);
    (void)bench.Sample(99);
    EXPECT_EQ(bench.TimeStamp(), 0U) << "the stamp is that of whole samples";
    EXPECT_EQ(bench.Report(), Result({{{.ulTbs = 1000, .qpsk = {1}, .crcOk = {1}, .phase = {1}}}}));
}

TEST(RegDecodingTbs, AStopForgetsEverything)
{
    Bench bench;
    SetActive(bench, 0);
    SetFrames(bench, 0, {{.ulTbs0 = 1000}});
    (void)bench.Sample();
    bench.Stop();
    EXPECT_EQ(bench.Report(), Hex("00 00 00 00"));
    SetFrames(bench, 0, {{.ulTbs0 = 1000, .ulNew0 = 0}});
    (void)bench.Sample();
    EXPECT_EQ(bench.Report(), Result({{{.ulTbs = 1000, .qpsk = {1}, .crcOk = {1}, .firstBler = {100}, .phase = {1}}}}));
}
