#include "data/gu/report/MsgProcessGdsp.h"

#include "support/GuReports.h"

namespace
{
using Gdsp = GuReports;

/// An entry of the cells: id, value, and bytes that are passed through.
Bytes CellOf(unsigned int ulId, unsigned int ulValue)
{
    return Join(W(ulId), Hex("A1 A2"), W(ulValue), Hex("B1 B2"));
}
Bytes Cells(unsigned int ulCount, const std::vector<Bytes>& cells)
{
    Bytes payload = W(ulCount);
    for (const Bytes& cell : cells)
        payload = Join(payload, cell);
    return payload;
}
Bytes BaList(unsigned int ulServing, unsigned int ulLevel, const std::vector<Bytes>& entries)
{
    Bytes payload =
        Join(W(ulServing), W(ulLevel), Hex("E1 E2 E3 E4"), W(static_cast<unsigned>(entries.size())), Fill(2));
    for (const Bytes& entry : entries)
        payload = Join(payload, entry);
    return payload;
}
Bytes BaEntry(unsigned int ulChannel, unsigned int ulFirst, unsigned int ulSecond)
{
    return Join(WordsOf({ulChannel, ulFirst, ulSecond}), Hex("C1 C2"));
}
} // namespace

TEST_F(Gdsp, CellListAndMinimumOfBothModems)
{
    for (unsigned short usModem = 0; usModem < 2; ++usModem) {
        const auto usShift = static_cast<unsigned short>(usModem * 0x100);
        Start(static_cast<unsigned short>(0xE52C + usShift), 500);
        Start(static_cast<unsigned short>(0xE506 + usShift), 500);
        Ind(0xE602, Hex("02 00  11 00 A1 A2 64 01 B1 B2  22 00 A3 A4 C8 00 B3 B4"), usModem);
        const auto reports =
            Reports({static_cast<unsigned short>(0xE52E + usShift), static_cast<unsigned short>(0xE508 + usShift)});
        ASSERT_EQ(reports.size(), 2U);
        EXPECT_EQ(reports[0], Hex("02 00 00 00  11 00 A1 A2 64 01 B1 B2  22 00 A3 A4 C8 00 B3 B4"));
        EXPECT_EQ(reports[1], Hex("C8 00 00 00"));
    }
}

TEST_F(Gdsp, SmoothingOverTenIndications)
{
    Start(0xE506, 500);
    // (own + sum of up to nine older ones) / their number: the twelfth is (1200 + 300 + ... + 1100) / 9.
    const unsigned int aulExpected[] = {100, 300, 300, 333, 375, 420, 466, 514, 562, 611, 722, 833};
    unsigned int ulValue = 0;
    for (const unsigned int ulExpected : aulExpected) {
        Ind(0xE602, Cells(1, {CellOf(0x11, ulValue += 100)}));
        EXPECT_EQ(Report(0xE508), Le(ulExpected)) << ulValue;
    }
}

TEST_F(Gdsp, IndicationsWithoutCellsTakePlacesInTheHistory)
{
    struct
    {
        unsigned int ulFull;  // indications with the cell at 10
        unsigned int ulEmpty; // behind them
        unsigned int ulExpected;
    } const astCase[] = {
        {1, 8, 30},  // the tenth: (20 + 10) / 1
        {1, 9, 20},  // the eleventh pushes the cell out
        {10, 8, 30}, // one of ten is left
        {10, 10, 20},
    };
    Start(0xE506, 500);
    for (const auto& stCase : astCase) {
        Ind(0xE601, Fill(4)); // starts anew
        for (unsigned int i = 0; i < stCase.ulFull; ++i)
            Ind(0xE602, Cells(1, {CellOf(0x11, 10)}));
        for (unsigned int i = 0; i < stCase.ulEmpty; ++i)
            Ind(0xE602, Join(Cells(0, {}), Fill(2))); // a shorter packet is none
        gu.Forget();
        Ind(0xE602, Cells(1, {CellOf(0x11, 20)}));
        EXPECT_EQ(Report(0xE508), Le(stCase.ulExpected)) << stCase.ulFull << " and " << stCase.ulEmpty;
    }
}

TEST_F(Gdsp, SmoothingLooksAtTheFirstCellOfAnEntry)
{
    Start(0xE52C, 500);
    Ind(0xE602, Cells(3, {CellOf(0x11, 10), CellOf(0x22, 7), CellOf(0x11, 20)}));
    Ind(0xE602, Cells(1, {CellOf(0x33, 1)}));
    gu.Forget();
    Ind(0xE602, Cells(4, {CellOf(0x11, 100), CellOf(0x44, 5), CellOf(0x22, 1), CellOf(0x11, 200)}));
    EXPECT_EQ(Report(0xE52E), Join(Le(4U), CellOf(0x11, 110), CellOf(0x44, 5), CellOf(0x22, 8), CellOf(0x11, 210)));
    // The history holds what came, not what was smoothed: (1 + 10 + 100) / 2.
    Ind(0xE602, Cells(1, {CellOf(0x11, 1)}));
    EXPECT_EQ(Report(0xE52E), Join(Le(1U), CellOf(0x11, 55)));
}

TEST_F(Gdsp, SmoothingSumHasSixteenBits)
{
    Start(0xE506, 500);
    Ind(0xE602, Cells(1, {CellOf(0x11, 40000)}));
    gu.Forget();
    Ind(0xE602, Cells(1, {CellOf(0x11, 40000)}));
    EXPECT_EQ(Report(0xE508), Le(14464U)); // 80000 - 65536
}

TEST_F(Gdsp, ConfirmRestartsTheSmoothing)
{
    Start(0xE506, 500);
    Ind(0xE602, Cells(1, {CellOf(0x11, 10)}));
    Ind(0xE602, Cells(1, {CellOf(0x11, 20)}), 1); // the other modem has a history of its own
    Ind(0xE601, Fill(4));
    gu.Forget();
    Ind(0xE602, Cells(1, {CellOf(0x11, 30)}));
    EXPECT_EQ(Report(0xE508), Le(30U));
    Start(0xE606, 500);
    Ind(0xE602, Cells(1, {CellOf(0x11, 30)}), 1);
    EXPECT_EQ(Report(0xE608), Le(50U));
}

TEST_F(Gdsp, HistoryGrowsWhileNobodyAsks)
{
    Ind(0xE602, Cells(1, {CellOf(0x11, 10)}));
    EXPECT_TRUE(NoReport());
    Start(0xE506, 500);
    Ind(0xE602, Cells(1, {CellOf(0x11, 20)}));
    EXPECT_EQ(Report(0xE508), Le(30U));
    ulNowMs -= STEP_MS; // no time passes: the gate holds, the history grows
    Ind(0xE602, Cells(1, {CellOf(0x11, 20)}));
    EXPECT_TRUE(NoReport());
    Ind(0xE602, Cells(1, {CellOf(0x11, 20)}));
    EXPECT_EQ(Report(0xE508), Le(23U)); // (20 + 10 + 20 + 20) / 3
}

TEST_F(Gdsp, CellCounts)
{
    Start(0xE52C, 500);
    Start(0xE506, 500);
    Ind(0xE602, Hex("00 00 01 02 03 04 05 00 07 08"));
    auto reports = Reports({0xE52E, 0xE508});
    ASSERT_EQ(reports.size(), 2U);
    EXPECT_EQ(reports[0], Fill(4));
    EXPECT_EQ(reports[1], Le(5U)) << "without cells the value at the place of the first";

    IMsgProcess* const pProcess = gu.Operation().GetTransMsgDisp()->GetProcessorByUeIND(0xE602);
    EXPECT_FALSE(pProcess->ProcessInd(GuMsg(0xE602, Cells(65, std::vector<Bytes>(65, CellOf(0x11, 9))), NextStamp())));
    EXPECT_TRUE(NoReport());
    EXPECT_TRUE(pProcess->ProcessInd(GuMsg(0xE602, Cells(64, std::vector<Bytes>(64, CellOf(0x11, 9))), NextStamp())));
    reports = Reports({0xE52E, 0xE508});
    ASSERT_EQ(reports.size(), 2U);
    EXPECT_EQ(reports[0].size(), 516U);
    EXPECT_EQ(reports[1], Le(9U)) << "the refused one is not in the history";
}

TEST_F(Gdsp, CellsThatAreNotThereAreZero)
{
    Start(0xE52C, 500);
    Ind(0xE602, Join(W(3), CellOf(0x11, 10), Hex("22 00 A1")));
    EXPECT_EQ(Report(0xE52E), Join(Le(3U), CellOf(0x11, 10), Hex("22 00 A1 00 00 00 00 00"), Fill(8)));
}

TEST_F(Gdsp, BaListReports)
{
    Start(0xE529, 500);
    Start(0xE530, 500);
    // Serving: band 3, ARFCN 100, level 0x50. Looked for: 0x3062, 0x3063, 0x3065, 0x3066.
    Ind(0xE605,
        BaList(0x3064, 0x0050,
               {BaEntry(0x3062, 0x0020, 0x1111), BaEntry(0x2063, 0x0099, 0x2222), BaEntry(0x3063, 0x0021, 0x3333),
                BaEntry(0x3065, 0x0060, 0x4444), BaEntry(0x3062, 0x0077, 0x5555)}));
    const auto reports = Reports({0xE52B, 0xE532});
    ASSERT_EQ(reports.size(), 2U);
    EXPECT_EQ(reports[0], Join(Hex("62 00 03 00 20 00 11 11  63 00 02 00 99 00 22 22  63 00 03 00 21 00 33 33 "
                                   "65 00 03 00 60 00 44 44  62 00 03 00 77 00 55 55"),
                               Fill(216)));
    EXPECT_EQ(reports[1], Hex("20 00 30 00  21 00 2F 00  60 00 F0 FF  00 00 00 00"));
}

TEST_F(Gdsp, AdjacentChannelsWrapInBandOne)
{
    const struct
    {
        unsigned int ulServing;
        unsigned int aulLookedFor[4];
    } astCase[] = {
        {0x1000, {0x13FE, 0x13FF, 0x1001, 0x1002}}, {0x1001, {0x13FF, 0x1000, 0x1002, 0x1003}},
        {0x1002, {0x1000, 0x1001, 0x1003, 0x1004}}, {0x13FE, {0x13FC, 0x13FD, 0x13FF, 0x1000}},
        {0x13FF, {0x13FD, 0x13FE, 0x1000, 0x1001}}, {0x03FF, {0x03FD, 0x03FE, 0x0400, 0x0401}},
        {0x2001, {0x2FFF, 0x2000, 0x2002, 0x2003}}, {0x2000, {0x2FFE, 0x2FFF, 0x2001, 0x2002}},
    };
    Start(0xE530, 500);
    for (const auto& stCase : astCase) {
        std::vector<Bytes> entries;
        for (unsigned int i = 0; i < 4; ++i)
            entries.push_back(BaEntry(stCase.aulLookedFor[i], i + 1, 0));
        Ind(0xE605, BaList(stCase.ulServing, 10, entries));
        EXPECT_EQ(Report(0xE532), WordsOf({1, 9, 2, 8, 3, 7, 4, 6})) << std::hex << stCase.ulServing;
    }
}

TEST_F(Gdsp, BaListCounts)
{
    Start(0xE629, 500);
    IMsgProcess* const pProcess = gu.Operation().GetTransMsgDisp()->GetProcessorByUeIND(0x1E605);
    const Bytes full = BaList(0, 0, std::vector<Bytes>(32, BaEntry(0x5123, 0xABCD, 0x4567)));
    EXPECT_TRUE(pProcess->ProcessInd(GuMsg(0xE605, full, NextStamp())));
    const Bytes report = Report(0xE62B);
    EXPECT_EQ(report.size(), 256U);
    EXPECT_EQ(Bytes(Slice(ByteView(report), 248)), Hex("23 01 05 00 CD AB 67 45"));
    Bytes tooMany = full;
    tooMany[8] = 33;
    EXPECT_FALSE(pProcess->ProcessInd(GuMsg(0xE605, tooMany, NextStamp())));
    EXPECT_TRUE(NoReport());
}

TEST_F(Gdsp, CsTxForms)
{
    const struct
    {
        const char* pszName;
        Bytes payload;
        Bytes report;
    } astCase[] = {
        {"short", WordsOf({7, 259, 3, 0xEEEE}), WordsOf({7, 25, 3, 0})},
        {"four values", WordsOf({7, 4, 100, 200, 300, 407, 9, 0xEEEE}), WordsOf({7, 25, 9, 0})}, // 1007 / 4 / 10
        {"two values", WordsOf({7, 2, 100, 200, 300, 400, 9, 0}), WordsOf({7, 15, 9, 0})},
        {"more than four", WordsOf({7, 8, 100, 200, 300, 400, 9, 0}), WordsOf({7, 12, 9, 0})}, // 1000 / 8 / 10
        {"none", WordsOf({7, 0, 100, 200, 300, 400, 9, 0}), WordsOf({7, 0, 9, 0})},
        {"wide sum", WordsOf({7, 4, 65535, 65535, 65535, 65535, 9, 0}), WordsOf({7, 6553, 9, 0})},
    };
    Start(0xE503, 500);
    for (const auto& stCase : astCase) {
        Ind(0xE611, stCase.payload);
        EXPECT_EQ(Report(0xE505), stCase.report) << stCase.pszName;
    }
}

TEST_F(Gdsp, CsTxOfAnotherLengthSpendsThePeriod)
{
    Start(0xE503, 1000);
    IMsgProcess* const pProcess = gu.Operation().GetTransMsgDisp()->GetProcessorByUeIND(0xE611);
    for (const size_t szLen : {4U, 6U, 10U, 14U, 18U}) {
        EXPECT_FALSE(pProcess->ProcessInd(GuMsg(0xE611, Fill(szLen), NextStamp()))) << szLen;
        EXPECT_TRUE(pProcess->ProcessInd(GuMsg(0xE611, Fill(8), Ticks(ulNowMs + 749))))
            << "749 ms later the gate holds";
    }
    EXPECT_TRUE(NoReport());
    Stop(0xE503);
    EXPECT_TRUE(pProcess->ProcessInd(GuMsg(0xE611, Fill(10), NextStamp()))) << "off: not looked at";
}

TEST_F(Gdsp, CsFer)
{
    Start(0xE509, 500);
    Ind(0xE614, Join(Le(1U), Le(4U), Le(1U), Le(3U)));
    EXPECT_EQ(Report(0xE50B), Hex("00 00 C8 41  55 55 05 42")) << "25 and 33.333332";
    Ind(0xE614, Join(Le(0xFFFFFFFFU), Le(1U), Le(5U), Le(0U)));
    EXPECT_EQ(Report(0xE50B), Join(F(429496729500.0F), Hex("00 00 80 7F"))) << "a divisor of 0 gives infinity";
    Ind(0xE614, Join(Le(0U), Le(0U), Le(0U), Le(7U)));
    const Bytes report = Report(0xE50B);
    ASSERT_EQ(report.size(), 8U);
    EXPECT_EQ(LoadLe<uint32_t>(report, 0) & 0x7FFFFFFF, 0x7FC00000U) << "NaN";
    EXPECT_EQ(LoadLe<uint32_t>(report, 4), 0U);
}

TEST_F(Gdsp, CurrentDsc)
{
    Start(0xE60C, 500);
    Ind(0xE617, Hex("34 12 78 56"));
    EXPECT_TRUE(NoReport()) << "the other modem";
    Ind(0xE617, Hex("34 12 78 56"), 1);
    EXPECT_EQ(Report(0xE60E), Hex("34 12 00 00"));
}

TEST_F(Gdsp, GateOfEachPacket)
{
    Start(0xE52C, 500);
    Start(0xE506, 2000);
    const Bytes cells = Cells(1, {CellOf(1, 1)});
    Ind(0xE602, cells);
    EXPECT_EQ(Reports({0xE52E, 0xE508}).size(), 2U);
    ulNowMs += 249;
    gu.FromUe(GuMsg(0xE602, cells, Ticks(ulNowMs)));
    EXPECT_TRUE(NoReport());
    ulNowMs += 1;
    gu.FromUe(GuMsg(0xE602, cells, Ticks(ulNowMs)));
    EXPECT_EQ(gu.Indications().size(), 1U) << "250 ms early is early enough";
    ulNowMs += 1500;
    gu.FromUe(GuMsg(0xE602, cells, Ticks(ulNowMs)));
    EXPECT_EQ(gu.Indications().size(), 2U) << "1750 of 2000 ms";
}
