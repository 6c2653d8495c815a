#include "data/gu/reg/RegDecodingProcess.h"

#include "support/RegFixture.h"

#include <gtest/gtest.h>

namespace
{
using Bench = CStatBench<CRegDecodingStat>;

constexpr unsigned int C1 = 0x80000; // distance of carrier 1's plain registers

/// A result: the count and the 14 words of each record.
Bytes Result(const std::vector<std::vector<uint32_t>>& records)
{
    Bytes bytes = Le(static_cast<uint32_t>(records.size()));
    for (const auto& record : records)
        bytes = Join(bytes, LeWords(record));
    return bytes;
}

/// An HS-SCCH-less frame of a type, its HS-SCCH not decoded.
TestFrame Less(unsigned int ulType, unsigned int ulCrc, unsigned int ulTbs)
{
    return {.ulType = ulType, .ulPart1 = 0, .ulScch = 0, .ulCrc0 = ulCrc, .ulTbs0 = ulTbs};
}

TBSCalInfoSTRU Frame(const TestFrame& stFrame)
{
    return DecodeFrame(stFrame.Registers());
}
} // namespace

TEST(RegDecodingFrame, EveryFieldOfAFrame)
{
    // W0: bit 0, type 7, field 9, part 1, CRC, stream 1 bad, stream 0 good. W1: sizes 0x1234 and 0xABCD.
    // W2: process 11, modulations 2 and 3, new data on stream 1 only. W3: field 5, transmission 6, offset 13.
    const unsigned int aulGood[] = {0x02011971, 0xABCD1234, 0x200E000B, 0x00D00605};
    const TBSCalInfoSTRU st = DecodeFrame(aulGood);
    EXPECT_EQ(st.ucValid, 1);
    EXPECT_EQ(st.ucFrmType, 7);
    EXPECT_EQ(st.ucField2, 9);
    EXPECT_EQ(st.ucScchPart1, 1);
    EXPECT_EQ(st.ucScchCrc, 1);
    EXPECT_EQ(st.aucCrc, (std::array<uint8_t, 2>{1, 0}));
    EXPECT_EQ(st.ausTbs, (std::array<uint16_t, 2>{0x1234, 0xABCD}));
    EXPECT_EQ(st.ucHarqId, 11);
    EXPECT_EQ(st.aucModulation, (std::array<uint8_t, 2>{2, 3}));
    EXPECT_EQ(st.aucNewData, (std::array<uint8_t, 2>{0, 1}));
    EXPECT_EQ(st.ucField17, 5);
    EXPECT_EQ(st.ucTransCnt, 6);
    EXPECT_EQ(st.ucLessOffset, 13);

    // The inverse of each bit gives the inverse of each field.
    const unsigned int aulInverse[] = {~0x02011971U, ~0xABCD1234U, ~0x200E000BU, ~0x00D00605U};
    const TBSCalInfoSTRU stInverse = DecodeFrame(aulInverse);
    EXPECT_EQ(stInverse.ucValid, 0);
    EXPECT_EQ(stInverse.ucFrmType, 8);
    EXPECT_EQ(stInverse.ucField2, 6);
    EXPECT_EQ(stInverse.ucScchPart1, 0);
    EXPECT_EQ(stInverse.ucScchCrc, 0);
    EXPECT_EQ(stInverse.aucCrc, (std::array<uint8_t, 2>{0, 1}));
    EXPECT_EQ(stInverse.ausTbs, (std::array<uint16_t, 2>{0xEDCB, 0x5432}));
    EXPECT_EQ(stInverse.ucHarqId, 4);
    EXPECT_EQ(stInverse.aucModulation, (std::array<uint8_t, 2>{1, 0}));
    EXPECT_EQ(stInverse.aucNewData, (std::array<uint8_t, 2>{1, 0}));
    EXPECT_EQ(stInverse.ucField17, 10);
    EXPECT_EQ(stInverse.ucTransCnt, 1);
    EXPECT_EQ(stInverse.ucLessOffset, 2);
}

TEST(RegDecodingFrame, CommonRegisters)
{
    const unsigned int aulCommon[] = {0x00010100, 0xFFFFFFF9, 0x84838281, 0xFFFFFFFC, 0x00000100};
    const UPDATE_BY_10MS_STRU st = DecodeCommData(aulCommon);
    EXPECT_EQ(st.ucLessEnable, 1);
    EXPECT_EQ(st.ucLessTbsNum, 4);
    EXPECT_EQ(st.ucLessTable, 1);
    EXPECT_EQ(st.aucLessTbsIdx, (std::array<uint8_t, 4>{1, 2, 3, 4}));
    EXPECT_EQ(st.ucMode, 1);
    EXPECT_EQ(st.ulMonitored, 1U);
    const unsigned int aulInverse[] = {~0x00010100U, 6, 0, 3, ~0x00000100U};
    const UPDATE_BY_10MS_STRU stInverse = DecodeCommData(aulInverse);
    EXPECT_EQ(stInverse.ucLessEnable, 6);
    EXPECT_EQ(stInverse.ucLessTbsNum, 3);
    EXPECT_EQ(stInverse.ucLessTable, 0);
    EXPECT_EQ(stInverse.ucMode, 0);
    EXPECT_EQ(stInverse.ulMonitored, 0U);
}

TEST(RegDecodingFrame, Classes)
{
    for (unsigned int ulType = 0; ulType < 16; ++ulType) {
        SCOPED_TRACE(ulType);
        const TBSCalInfoSTRU stGood = Frame({.ulType = ulType, .ulScch = 1});
        const TBSCalInfoSTRU stBad = Frame({.ulType = ulType, .ulScch = 0});
        const bool bNoData = ulType == 5 || ulType == 14 || ulType == 15;
        EXPECT_EQ(IsLessFrm(stGood), ulType == 1 || ulType == 2 || ulType == 3);
        EXPECT_TRUE(CrcFlag(stGood));
        EXPECT_EQ(CrcFlag(stBad), ulType == 1);
        EXPECT_EQ(IsUsable(stGood), !bNoData);
        EXPECT_EQ(IsUsable(stBad), ulType == 1);
    }
}

TEST(RegDecodingFrame, TheBufferHoldsFourteenFramesAndReachesThirteen)
{
    CFrmFifo fifo;
    EXPECT_FALSE(fifo.GetLessFrm(0));
    for (unsigned int i = 1; i <= 13; ++i) {
        fifo.AddFrmToBuf(Frame({.ulTbs0 = i}));
        ASSERT_TRUE(fifo.GetLessFrm(0));
        EXPECT_EQ(fifo.GetLessFrm(0)->ausTbs[0], i) << "offset 0 is the newest";
        EXPECT_EQ(fifo.GetLessFrm(static_cast<uint8_t>(i - 1))->ausTbs[0], 1) << "the oldest";
        EXPECT_FALSE(fifo.GetLessFrm(static_cast<uint8_t>(i)));
    }
    fifo.AddFrmToBuf(Frame({.ulTbs0 = 14}));
    EXPECT_FALSE(fifo.GetLessFrm(0)) << "the newest of 14 is out of reach";
    EXPECT_EQ(fifo.GetLessFrm(1)->ausTbs[0], 13);
    EXPECT_EQ(fifo.GetLessFrm(13)->ausTbs[0], 1);
    EXPECT_FALSE(fifo.GetLessFrm(14));
    fifo.AddFrmToBuf(Frame({.ulTbs0 = 15}));
    EXPECT_EQ(fifo.GetLessFrm(1)->ausTbs[0], 14);
    EXPECT_EQ(fifo.GetLessFrm(13)->ausTbs[0], 2) << "the oldest was dropped";
    EXPECT_FALSE(fifo.GetLessFrm(15));
}

TEST(RegDecodingFrame, LessSizesFollowTheSettings)
{
    std::vector<TBSOfSixPhaseSTRU> vecLess;
    const auto Sizes = [&] {
        std::vector<uint32_t> sizes;
        for (const auto& st : vecLess)
            sizes.push_back(st.ulTbs);
        return sizes;
    };
    UPDATE_BY_10MS_STRU stUpdate{.ucLessTbsNum = 2, .aucLessTbsIdx = {1, 127, 40, 2}};
    UpdateLessFrmArray(vecLess, stUpdate);
    EXPECT_TRUE(vecLess.empty()) << "not enabled";
    stUpdate.ucLessEnable = 1;
    UpdateLessFrmArray(vecLess, stUpdate);
    EXPECT_EQ(Sizes(), (std::vector<uint32_t>{137, 2876})); // table A, k = 1 and 127

    vecLess[0].ulCnt = 77;
    std::swap(vecLess[0], vecLess[1]);
    UpdateLessFrmArray(vecLess, stUpdate);
    EXPECT_EQ(Sizes(), (std::vector<uint32_t>{2876, 137})) << "the same sizes in any order stay";
    EXPECT_EQ(vecLess[1].ulCnt, 77U);

    stUpdate.ucLessTable = 1;
    UpdateLessFrmArray(vecLess, stUpdate);
    EXPECT_EQ(Sizes()[0], 120U) << "table B, k = 1";
    EXPECT_EQ(vecLess[0].ulCnt, 0U);

    stUpdate.ucLessTbsNum = 7;
    UpdateLessFrmArray(vecLess, stUpdate);
    EXPECT_EQ(vecLess.size(), 4U) << "four indices exist";

    stUpdate.aucLessTbsIdx[1] = 0;
    UpdateLessFrmArray(vecLess, stUpdate);
    EXPECT_EQ(vecLess.size(), 3U) << "the index 0 names no size";

    stUpdate.ucLessEnable = 0;
    stUpdate.ucLessTbsNum = 1;
    UpdateLessFrmArray(vecLess, stUpdate);
    EXPECT_EQ(vecLess.size(), 3U) << "not enabled: everything stays";
    stUpdate.ucLessEnable = 2;
    UpdateLessFrmArray(vecLess, stUpdate);
    EXPECT_EQ(vecLess.size(), 3U) << "only 1 enables";
}

// Frames of the one indication:
//   0: single, good, new, process 0           -> single 1, HS-SCCH ok 1, CRC ok 1
//   1: single, bad, new, process 1            -> single 2, HS-SCCH ok 2, single error 1
//   2: single, good, old, process 0 (last good)-> single 3, HS-SCCH ok 3, CRC ok 2, retransmission after good 1
//   3: type 14 with a good HS-SCCH            -> HS-SCCH ok 4, CRC ok 3
//   4: dual, stream 0 good, stream 1 bad      -> dual 1, HS-SCCH ok 5, CRC ok 4, dual error of stream 1
// So: 5 of 5 HS-SCCH = 100 %; 1 / (4 + 1) = 20 %; single 3 / 4 = 75 %, dual 25 %; 1 / 3 = 33.33 %; 0 %; 1 / 1.
TEST(RegDecodingStat, OneCarrier)
{
    Bench bench;
    SetActive(bench, 0);
    SetFrames(bench, 0,
              {{.ulTbs0 = 1000},
               {.ulCrc0 = 0, .ulTbs0 = 1000, .ulHarq = 1},
               {.ulTbs0 = 1000, .ulNew0 = 0},
               {.ulType = 14},
               {.ulType = 7, .ulTbs0 = 2000, .ulTbs1 = 3000, .ulHarq = 2, .ulNew1 = 1}});
    EXPECT_EQ(bench.Sample(4711),
              Result({{5, 5, F(100), F(20), F(0), 3, 1, F(75), F(25), F(75), F(25), F(33.333332F), F(0), F(100)}}));
    EXPECT_EQ(bench.TimeStamp(), 4711U);

    // The same again: counters double but for two: process 0 was last good and now starts with new data, while
    // process 2's new data don't count; frame 2 is again a retransmission after good.
    EXPECT_EQ(bench.Sample(4712),
              Result({{10, 10, F(100), F(20), F(0), 6, 2, F(75), F(25), F(75), F(25), F(33.333332F), F(0), F(100)}}));
    EXPECT_EQ(bench.TimeStamp(), 4712U);
}

// C0: one single frame, good and new: single 1, HS-SCCH 1, CRC ok 1.
// C1: process 0 was last good on C0, so that an old frame counts as a retransmission after good on C1 (1); it is
//     bad (single error 1, of 2); then a dual frame, both streams good.
//     single 2 (frames 0 and 1), dual 1: 2 / 3 and 1 / 3, rounded to float before they are made percent:
//     0.66666669 x 100 = 66.666669 and 0.33333334 x 100 = 33.333334, whose nearest floats are 66.66667 (0x42855556)
//     and 33.333336 (0x42055556), while the error rates, percent before they are rounded, would give 66.666664 and
//     33.333332. CRC ok: frame 1, both streams of frame 2 = 3.
//     Retransmissions: frame 0 (last good on C0) 1, frame 1 is new. HS-SCCH 3 of 5. 1 / (3 + 1) = 25 %.
// Total: subframes 10, HS-SCCH 4 (40 %), retransmissions 2 x 0 of C0 -> 0 %, less 2 x 0; single 3, dual 1: 75, 25;
//     single errors 1 / 3; dual 0 / 1.
TEST(RegDecodingStat, TwoCarriersAndTheTotal)
{
    Bench bench;
    SetActive(bench, 0);
    SetActive(bench, 1);
    SetFrames(bench, 0, {{.ulTbs0 = 1000}});
    SetFrames(bench, 1,
              {{.ulCrc0 = 0, .ulTbs0 = 1000, .ulNew0 = 0},
               {.ulTbs0 = 1000, .ulHarq = 1},
               {.ulType = 7, .ulCrc1 = 1, .ulTbs0 = 1000, .ulTbs1 = 500, .ulHarq = 2, .ulNew1 = 1}});
    EXPECT_EQ(bench.Sample(),
              Result({{5, 1, F(20), F(0), F(0), 1, 0, F(100), F(0), F(100), F(0), F(0), F(0), F(0)},
                      {5, 3, F(60), F(25), F(0), 2, 1, F(66.66667F), F(33.333336F), F(66.66667F), F(33.333336F), F(50),
                       F(0), F(0)},
                      {10, 4, F(40), F(0), F(0), 3, 1, F(75), F(25), F(75), F(25), F(33.333332F), F(0), F(0)}}));
}

// C0: frame 0 new and good, frame 1 old on the same process: one retransmission after good; frame 2 HS-SCCH-less of
//     type 1, good: less 1. CRC ok 3, so 1 / 4 = 25 %; less 1 / 5 = 20 %; HS-SCCH ok 2.
// C1: the same on process 3: 25 %, 20 %.
// Total: not 2 of each as sums, but 2 x C0's: 2 / (6 + 2) = 25 %, 2 / 10 = 20 %. Then C1 has a third one alone, and
//     the total doesn't see it.
TEST(RegDecodingStat, TheTotalDoublesTwoFieldsOfCarrier0)
{
    Bench bench;
    SetActive(bench, 0);
    SetActive(bench, 1);
    SetFrames(bench, 0, {{.ulTbs0 = 1000}, {.ulTbs0 = 1000, .ulNew0 = 0}, Less(1, 1, 137)});
    SetFrames(bench, 1,
              {{.ulTbs0 = 1000, .ulHarq = 3}, {.ulTbs0 = 1000, .ulHarq = 3, .ulNew0 = 0}, {.ulHarq = 5}, {}, {}});
    // C1's frames 2 to 4 are single and good without a size: single 5, HS-SCCH ok 5, CRC ok 5, retransmissions 1.
    // 1 / 6 = 16.67 %. Total: 2 / (3 + 5 + 2) = 20 %, less 2 x 1 / 10 = 20 % though C1 had none; HS-SCCH 7 / 10.
    EXPECT_EQ(bench.Sample(),
              Result({{5, 2, F(40), F(25), F(20), 2, 0, F(100), F(0), F(100), F(0), F(0), F(0), F(0)},
                      {5, 5, F(100), F(16.666666F), F(0), 5, 0, F(100), F(0), F(100), F(0), F(0), F(0), F(0)},
                      {10, 7, F(70), F(20), F(20), 7, 0, F(100), F(0), F(100), F(0), F(0), F(0), F(0)}}));
}

// C0: a dual frame that fails on both streams. C1: one that fails on both, and one that fails on stream 1.
// C0: HS-SCCH 1 (20 %), dual 1: errors 1 / 1, 1 / 1. C1: HS-SCCH 2, CRC ok 1 (stream 0), dual 2: 1 / 2, 2 / 2.
// Total: HS-SCCH 3 / 10, dual 3: 2 / 3 and 3 / 3.
TEST(RegDecodingStat, TheTotalAddsTheDualErrors)
{
    Bench bench;
    SetActive(bench, 0);
    SetActive(bench, 1);
    SetFrames(bench, 0, {{.ulType = 7, .ulCrc0 = 0, .ulTbs0 = 1000, .ulTbs1 = 1000, .ulNew1 = 1}});
    SetFrames(bench, 1,
              {{.ulType = 7, .ulCrc0 = 0, .ulTbs0 = 1000, .ulTbs1 = 1000, .ulHarq = 1, .ulNew1 = 1},
               {.ulType = 7, .ulTbs0 = 1000, .ulTbs1 = 1000, .ulHarq = 2, .ulNew1 = 1}});
    EXPECT_EQ(bench.Sample(),
              Result({{5, 1, F(20), F(0), F(0), 0, 1, F(0), F(100), F(0), F(100), F(0), F(100), F(100)},
                      {5, 2, F(40), F(0), F(0), 0, 2, F(0), F(100), F(0), F(100), F(0), F(50), F(100)},
                      {10, 3, F(30), F(0), F(0), 0, 3, F(0), F(100), F(0), F(100), F(0), F(66.666664F), F(100)}}));
}

// Without its HS-SCCH a bad frame counts by its type, but as no error: single 1 of 2 bad, dual 1 of 2 on stream 0.
// HS-SCCH 2 of 5; CRC ok 0; single and dual 2 of 4.
TEST(RegDecodingStat, ErrorsNeedTheHsScch)
{
    Bench bench;
    SetActive(bench, 0);
    SetFrames(bench, 0,
              {{.ulCrc0 = 0, .ulTbs0 = 1000},
               {.ulScch = 0, .ulCrc0 = 0, .ulTbs0 = 1000, .ulHarq = 1},
               {.ulType = 7, .ulCrc0 = 0, .ulTbs0 = 1000, .ulHarq = 2},
               {.ulType = 7, .ulScch = 0, .ulCrc0 = 0, .ulTbs0 = 1000, .ulHarq = 3}});
    EXPECT_EQ(bench.Sample(),
              Result({{5, 2, F(40), F(0), F(0), 2, 2, F(50), F(50), F(50), F(50), F(50), F(50), F(50)}}));
}

// What C0 counted stays in the total when C0 goes idle: 5 + 10 subframes, and 1 + 0 HS-SCCH.
TEST(RegDecodingStat, Carrier1AloneGivesTwoRecords)
{
    Bench bench;
    SetActive(bench, 0);
    SetFrames(bench, 0, {{.ulTbs0 = 1000}});
    SetFrames(bench, 1, {});
    (void)bench.Sample();
    SetActive(bench, 0, false);
    SetActive(bench, 1);
    (void)bench.Sample();
    EXPECT_EQ(bench.Sample(),
              Result({{10, 0, F(0), F(0), F(0), 0, 0, F(0), F(0), F(0), F(0), F(0), F(0), F(0)},
                      {15, 1, F(6.6666665F), F(0), F(0), 1, 0, F(100), F(0), F(100), F(0), F(0), F(0), F(0)}}));
}

TEST(RegDecodingStat, NoActiveCarrierGivesACountOfZero)
{
    Bench bench;
    EXPECT_EQ(bench.Sample(), Hex("00 00 00 00"));
    bench.Reg(0x8070) = 2;
    EXPECT_EQ(bench.Sample(), Hex("00 00 00 00")) << "only 1 is active";
}

TEST(RegDecodingStat, AMissingRegisterLeavesTheResult)
{
    Bench bench;
    SetActive(bench, 0);
    SetFrames(bench, 0, {{.ulTbs0 = 1000}});
    const Bytes first = bench.Sample(1);
    bench.Regs().erase(WBBP + C1 + 0x8070);
    EXPECT_EQ(bench.Sample(2), first) << "the last register of the second half";
    EXPECT_EQ(bench.TimeStamp(), 1U);
    bench.Reg(C1 + 0x8070) = 0;
    bench.Regs().erase(WBBP + 0x8710);
    EXPECT_EQ(bench.Sample(3), first) << "a register that is fetched, though never read";
    bench.Reg(0x8710) = 0;
    // The indication without the second half was counted for C0 all the same: 3 x 5 subframes.
    EXPECT_EQ(LoadLe<uint32_t>(bench.Sample(4), 4), 15U);
}

// Frame 0: HS-SCCH-less type 1, bad: not counted, but kept. Frame 1: type 2 with its HS-SCCH, good, pointing one
// frame back: less 1, HS-SCCH ok 1, CRC ok 1; and with hindsight frame 0: less 2.
TEST(RegDecodingStat, HindsightCountsTheFailedFrame)
{
    Bench bench;
    SetActive(bench, 0);
    SetFrames(bench, 0, {Less(1, 0, 137), {.ulType = 2, .ulTbs0 = 137, .ulOffset = 1}});
    EXPECT_EQ(bench.Sample(), Result({{5, 1, F(20), F(0), F(40), 0, 0, F(0), F(0), F(0), F(0), F(0), F(0), F(0)}}));
}

TEST(RegDecodingStat, WhatHindsightNeedsToSeeTheFailedFrame)
{
    struct
    {
        const char* pszName;
        TestFrame stFirst;
        TestFrame stSecond;
        unsigned int ulLessPercent; // 20 a frame
    } const aRow[] = {
        {"type 3", Less(1, 0, 137), {.ulType = 3, .ulTbs0 = 137, .ulOffset = 1}, 40},
        {"type 2 before", Less(2, 0, 137), {.ulType = 3, .ulTbs0 = 137, .ulOffset = 1}, 40},
        {"the later frame is bad too", Less(1, 0, 137), {.ulType = 2, .ulCrc0 = 0, .ulTbs0 = 137, .ulOffset = 1}, 20},
        {"type 1 doesn't point back", Less(1, 0, 137), {.ulType = 1, .ulTbs0 = 137, .ulOffset = 1}, 20},
        {"without its HS-SCCH", Less(1, 0, 137), {.ulType = 2, .ulScch = 0, .ulTbs0 = 137, .ulOffset = 1}, 20},
        {"beyond the buffer", Less(1, 0, 137), {.ulType = 2, .ulTbs0 = 137, .ulOffset = 2}, 20},
        {"the earlier frame was good", Less(1, 1, 137), {.ulType = 2, .ulTbs0 = 137, .ulOffset = 1}, 40},
        {"the earlier frame isn't HS-SCCH-less",
         {.ulCrc0 = 0, .ulTbs0 = 137},
         {.ulType = 2, .ulTbs0 = 137, .ulOffset = 1},
         20},
        {"the earlier frame had no size", Less(1, 0, 0), {.ulType = 2, .ulTbs0 = 137, .ulOffset = 1}, 20},
        {"the later frame has no size", Less(1, 0, 137), {.ulType = 2, .ulOffset = 1}, 20},
        {"its own place", Less(1, 0, 137), {.ulType = 2, .ulTbs0 = 137, .ulOffset = 0}, 20},
    };
    for (const auto& stRow : aRow) {
        Bench bench;
        SetActive(bench, 0);
        SetFrames(bench, 0, {stRow.stFirst, stRow.stSecond});
        const float fLess = std::bit_cast<float>(LoadLe<uint32_t>(bench.Sample(), 4 + 16));
        EXPECT_EQ(fLess, static_cast<float>(stRow.ulLessPercent)) << stRow.pszName;
    }
}

// A frame without a size is counted, but enters neither the buffer nor the HARQ memory: so the old frame behind it,
// on the same process, is no retransmission after good.
TEST(RegDecodingStat, AFrameWithoutSizeLeavesNoTrace)
{
    Bench bench;
    SetActive(bench, 0);
    SetFrames(bench, 0, {{.ulTbs0 = 0}, {.ulTbs0 = 1000, .ulNew0 = 0}});
    EXPECT_EQ(bench.Sample(), Result({{5, 2, F(40), F(0), F(0), 2, 0, F(100), F(0), F(100), F(0), F(0), F(0), F(0)}}));
}

// The flag that a process has been seen is one for both streams. Frame 0 (dual, stream 1 good) leaves a good CRC on
// stream 1; frame 1, single and new on stream 0, has no new data on stream 1: a retransmission after good. It leaves
// a bad CRC there, so frame 2 counts nothing on stream 1.
TEST(RegDecodingStat, HarqMemoryIsKeptForEachStream)
{
    Bench bench;
    SetActive(bench, 0);
    SetFrames(bench, 0,
              {{.ulType = 7, .ulCrc0 = 0, .ulCrc1 = 1, .ulTbs0 = 1000, .ulTbs1 = 1000, .ulNew1 = 1},
               {.ulTbs0 = 1000},
               {.ulTbs0 = 1000}});
    // CRC ok: stream 1 of frame 0, frames 1 and 2 = 3; 1 / (3 + 1) = 25 %. Dual error of stream 0: 1 / 1.
    EXPECT_EQ(bench.Sample(), Result({{5, 3, F(60), F(25), F(0), 2, 1, F(66.66667F), F(33.333336F), F(66.66667F),
                                       F(33.333336F), F(0), F(100), F(0)}}));
}

TEST(RegDecodingStat, AStopForgetsEverything)
{
    Bench bench;
    SetActive(bench, 0);
    SetFrames(bench, 0, {{.ulTbs0 = 1000}, Less(1, 0, 137)});
    (void)bench.Sample();
    bench.Stop();
    EXPECT_EQ(bench.Statistic().GetPeriod(), 0);
    // Neither counters nor HARQ memory nor the buffer are left: the old frame on process 0 is no retransmission, and
    // the type 2 frame finds nothing to point back to.
    SetFrames(bench, 0, {{.ulType = 2, .ulTbs0 = 137, .ulHarq = 1, .ulOffset = 1}, {.ulTbs0 = 1000, .ulNew0 = 0}});
    EXPECT_EQ(bench.Sample(), Result({{5, 2, F(40), F(0), F(20), 1, 0, F(100), F(0), F(100), F(0), F(0), F(0), F(0)}}));
}

TEST(RegDecodingStat, KnownKindsHaveOtherRegisters)
{
    Bench bench(true);
    const auto registers = TestFrame{.ulTbs0 = 1000}.Registers();
    for (unsigned int k = 0; k < 4; ++k)
        bench.Reg(0x9730 + 4 * k) = registers[k]; // the second block
    bench.Reg(0x9070) = 1;
    EXPECT_EQ(bench.Sample(), Result({{5, 1, F(20), F(0), F(0), 1, 0, F(100), F(0), F(100), F(0), F(0), F(0), F(0)}}));
}
