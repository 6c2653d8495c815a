#include "data/gu/report/ChannelConfigReports.h"

#include "data/gu/report/MsgProcess.h"
#include "support/GuFixture.h"

#include <gtest/gtest.h>

namespace
{
Bytes Stored(CPeriodMsgFromUe& report)
{
    const xtl::MutexGuard guard(report.Mutex());
    return Bytes(report.GetData());
}

/// A channel configuration: its entries of 38 bytes behind the head.
Bytes Config(unsigned short usTransaction, unsigned short usTime, unsigned char ucCount, const Bytes& entries)
{
    return GuMsg(0x8003, Join(Fill(22), Le(usTransaction), Le(usTime), Bytes{0, ucCount}, entries));
}
/// An entry {first, flow, third, second, list count, list}, filled up to its 38 bytes.
Bytes Entry(unsigned char ucFirst, unsigned char ucFlow, unsigned short usThird, unsigned char ucSecond,
            unsigned char ucListCount, unsigned short usList)
{
    return Join(Bytes{ucFirst, ucFlow}, Le(usThird), Bytes{ucSecond, ucListCount}, Le(usList), Fill(30, 0xEE));
}
} // namespace

TEST(PeriodMsg, Milliseconds)
{
    EXPECT_EQ(TicksToMs(0), 0U);
    EXPECT_EQ(TicksToMs(32767), 999U);
    EXPECT_EQ(TicksToMs(32768), 1000U);
    EXPECT_EQ(TicksToMs(0xFFFFFFFF), 131071999U);
}

TEST(PeriodMsg, StoresOneMessage)
{
    CPeriodMsgFromUe report;
    EXPECT_EQ(Stored(report), Bytes());
    report.InsertData(Hex("01 02 03"));
    report.InsertData(Hex("04 05"));
    EXPECT_EQ(Stored(report), Hex("04 05"));
    EXPECT_EQ(Bytes(ByteView(report.TakeData())), Hex("04 05"));
    EXPECT_EQ(Stored(report), Bytes());
    report.InsertData(Hex("06"));
    report.DeleteData();
    EXPECT_EQ(Stored(report), Bytes());
}

TEST(PeriodMsg, UnlockedForms)
{
    CPeriodMsgFromUe report;
    report.EnterCritical();
    report.InsertDataUnlocked(Hex("01 02"));
    EXPECT_EQ(report.GetDataLength(), 2U);
    report.DeleteDataUnlocked();
    EXPECT_EQ(report.GetDataLength(), 0U);
    report.LeaveCritical();
}

TEST(PeriodMsg, Gate)
{
    CPeriodMsgFromUe report;
    EXPECT_FALSE(report.IsReport(Ticks(100000), 5)) << "off";
    report.SetPeriod(500);
    EXPECT_FALSE(report.IsReport(Ticks(494), 5));
    EXPECT_TRUE(report.IsReport(Ticks(495), 5)) << "5 ms early";
    EXPECT_FALSE(report.IsReport(Ticks(989), 5)) << "494 after the last one";
    EXPECT_TRUE(report.IsReport(Ticks(990), 5));
    EXPECT_FALSE(report.IsReport(Ticks(1239), 250));
    EXPECT_TRUE(report.IsReport(Ticks(1240), 250));
    report.SetPeriod(0);
    EXPECT_FALSE(report.IsReport(Ticks(9000), 5));
}

TEST(PeriodMsg, WrapOfTheCounterPassesAtOnce)
{
    // 131071999 ms, then 0: a difference of 1 in truth, but 4163895297 in 32 bits.
    CPeriodMsgFromUe report;
    report.SetPeriod(2000);
    EXPECT_TRUE(report.IsReport(0xFFFFFFFF, 5));
    EXPECT_TRUE(report.IsReport(0, 5));
    EXPECT_FALSE(report.IsReport(Ticks(100), 5));
}

TEST(MsgPeriods, Gate)
{
    CMsgPeriods periods(0xE550, 0xE551, 0xE552, 500, 2000);
    EXPECT_FALSE(periods.IsReport(Ticks(100000), 250)) << "off";
    periods.ulPeriod = 1000;
    EXPECT_FALSE(periods.IsReport(Ticks(749), 250));
    EXPECT_TRUE(periods.IsReport(Ticks(750), 250));
    EXPECT_FALSE(periods.IsReport(Ticks(1499), 250));
    EXPECT_TRUE(periods.IsReport(Ticks(1500), 250));
    EXPECT_EQ(periods.ulLastReport, 1500U);
}

TEST(MsgPeriods, SurvivesTheWrapOfTheCounter)
{
    CMsgPeriods periods(0xE550, 0xE551, 0xE552, 500, 2000);
    periods.ulPeriod = 1000;
    EXPECT_TRUE(periods.IsReport(0xFFFFFFFF, 0)) << "131071999 ms";
    EXPECT_FALSE(periods.IsReport(0, 0));
    EXPECT_FALSE(periods.IsReport(Ticks(999), 0));
    EXPECT_TRUE(periods.IsReport(Ticks(1000), 0)) << "1000 - 131071999 + 131071999";
}

TEST(MsgPeriods, ElapsedOverTheWrap)
{
    EXPECT_EQ(ElapsedMs(1500, 500), 1000U);
    EXPECT_EQ(ElapsedMs(500, 500), 0U);
    EXPECT_EQ(ElapsedMs(400, 131071999), 400U);
    EXPECT_EQ(ElapsedMs(0, 1), 131071998U);
}

TEST(MsgPeriods, ValidPeriods)
{
    const CMsgPeriods periods(0xE550, 0xE551, 0xE552, 500, 2000);
    for (const unsigned int ulGood : {500U, 1000U, 1500U, 2000U})
        EXPECT_TRUE(periods.IsValidPeriod(ulGood)) << ulGood;
    for (const unsigned int ulBad : {0U, 499U, 750U, 1001U, 2001U, 2500U})
        EXPECT_FALSE(periods.IsValidPeriod(ulBad)) << ulBad;
    const CMsgPeriods noRange(0xE546, 0xE547, 0xE548, 0, 0);
    EXPECT_FALSE(noRange.IsValidPeriod(0)) << "nothing is a multiple of 0, and nothing divides by it";
    EXPECT_FALSE(noRange.IsValidPeriod(1));
}

TEST(PeriodMac, OffDoesNothing)
{
    CPeriodMACMsgFromUe report;
    EXPECT_FALSE(report.MsgProcess(Config(1, 0xFFFF, 1, Entry(1, 2, 3, 4, 0, 0))));
    EXPECT_FALSE(report.ConfirmMsg(GuMsg(0x8003, Fill(30))));
    EXPECT_EQ(Stored(report), Bytes());
}

TEST(PeriodMac, ReportsAtOnce)
{
    CPeriodMACMsgFromUe report;
    report.SetPeriod(1);
    EXPECT_TRUE(
        report.MsgProcess(Config(1, 0xFFFF, 2, Join(Entry(0x11, 0x12, 0, 0, 0, 0), Entry(0x21, 0x22, 0, 0, 0, 0)))));
    EXPECT_EQ(Stored(report), Hex("02 00 00 00"
                                  "12 00 00 00 00 00 00 00 11 00 00 00"
                                  "22 00 00 00 00 00 00 00 21 00 00 00"));
}

TEST(PeriodMac, WaitsForTheConfirmation)
{
    CPeriodMACMsgFromUe report;
    report.SetPeriod(1);
    EXPECT_FALSE(report.MsgProcess(Config(0x1234, 0xFFFE, 1, Entry(0x11, 0x12, 0, 0, 0, 0))));
    EXPECT_EQ(Stored(report), Bytes());
    EXPECT_FALSE(report.ConfirmMsg(GuMsg(0x8003, Join(Fill(22), Hex("35 12")))));
    EXPECT_TRUE(report.ConfirmMsg(GuMsg(0x8003, Join(Fill(22), Hex("34 12"))))) << "the number at packet offset 38";
    EXPECT_EQ(Stored(report), Hex("01 00 00 00 12 00 00 00 00 00 00 00 11 00 00 00"));
    EXPECT_TRUE(report.MsgProcess(Config(0x1234, 0xFFFF, 0, {})));
    EXPECT_FALSE(report.ConfirmMsg(GuMsg(0x8003, Join(Fill(22), Hex("34 12"))))) << "0 is awaited now";
    EXPECT_TRUE(report.ConfirmMsg(GuMsg(0x8003, Fill(24))));
}

TEST(PeriodMac, ForgottenConfiguration)
{
    CPeriodMACMsgFromUe report;
    report.SetPeriod(1);
    EXPECT_FALSE(report.MsgProcess(Config(0x1234, 0xFFFE, 1, Entry(0x11, 0x12, 0, 0, 0, 0))));
    report.ForgetConfig();
    EXPECT_FALSE(report.ConfirmMsg(GuMsg(0x8003, Join(Fill(22), Hex("34 12")))));
    EXPECT_TRUE(report.ConfirmMsg(GuMsg(0x8003, Fill(24)))) << "0 is awaited, as at first";
    EXPECT_EQ(Stored(report), Fill(4)) << "no flow is left";
}

TEST(PeriodMac, AtMostEightEntries)
{
    CPeriodMACMsgFromUe report;
    report.SetPeriod(1);
    EXPECT_TRUE(report.MsgProcess(Config(1, 0xFFFF, 9, Fill(38 * 9, 5))));
    EXPECT_EQ(Stored(report).size(), 4U + 8 * 12);
    EXPECT_EQ(Stored(report)[0], 8);
    EXPECT_TRUE(report.MsgProcess(Config(1, 0xFFFF, 255, Entry(0x11, 0x12, 0, 0, 0, 0)))) << "a packet cut short";
    EXPECT_EQ(Stored(report), Join(Hex("08 00 00 00 12 00 00 00 00 00 00 00 11 00 00 00"), Fill(7 * 12)));
}

TEST(PeriodReordering, EntryWithoutList)
{
    CPeriodReorderingMsgFromUe report;
    EXPECT_FALSE(report.MsgProcess(Config(1, 0xFFFF, 1, Entry(1, 2, 3, 4, 0, 0))));
    report.SetPeriod(1);
    EXPECT_TRUE(report.MsgProcess(Config(1, 0xFFFF, 1, Entry(0x11, 0xEE, 0x3231, 0x44, 0, 0x6665))));
    EXPECT_EQ(Stored(report), Join(Hex("01 00 00 00 11 00 00 00 44 00 00 00 31 32 00 00"), Fill(32)));
}

TEST(PeriodReordering, WalkPassesOverEntries)
{
    // Entries 0 and 1 have lists, entry 2 ends the walk and is passed over too; entry 3 comes next.
    CPeriodReorderingMsgFromUe report;
    report.SetPeriod(1);
    EXPECT_TRUE(
        report.MsgProcess(Config(1, 0xFFFF, 4,
                                 Join(Entry(0x10, 0, 0x13, 0x12, 3, 0xA0A0), Entry(0x20, 0, 0x23, 0x22, 1, 0xB1B2),
                                      Entry(0x30, 0, 0x33, 0x32, 0, 0xC0C0), Entry(0x40, 0, 0x43, 0x42, 0, 0xD0D0)))));
    EXPECT_EQ(Stored(report), Join(Hex("02 00 00 00"
                                       "10 00 00 00 12 00 00 00 13 00 00 00 B2 B1 00 00"),
                                   Fill(28), Hex("40 00 00 00 42 00 00 00 43 00 00 00"), Fill(32)));
}

TEST(PeriodReordering, WalkEndsWithThePacket)
{
    CPeriodReorderingMsgFromUe report;
    report.SetPeriod(1);
    EXPECT_TRUE(
        report.MsgProcess(Config(1, 0xFFFF, 2, Join(Entry(1, 0, 3, 2, 9, 0x0505), Entry(6, 0, 7, 8, 9, 0x0A0B)))));
    EXPECT_EQ(Stored(report), Join(Hex("01 00 00 00 01 00 00 00 02 00 00 00 03 00 00 00 0B 0A 00 00"), Fill(28)));
}

TEST(PeriodReordering, Confirmation)
{
    CPeriodReorderingMsgFromUe report;
    report.SetPeriod(1);
    EXPECT_FALSE(report.MsgProcess(Config(7, 0, 1, Entry(1, 0, 3, 2, 0, 0))));
    EXPECT_FALSE(report.ConfirmMsg(GuMsg(0x8003, Fill(24))));
    EXPECT_TRUE(report.ConfirmMsg(GuMsg(0x8003, Join(Fill(22), Hex("07 00")))));
    EXPECT_EQ(Stored(report).size(), 4U + 44);
}

TEST(PeriodReordering, ForgottenConfiguration)
{
    CPeriodReorderingMsgFromUe report;
    report.SetPeriod(1);
    EXPECT_FALSE(report.MsgProcess(Config(7, 0, 1, Entry(1, 0, 3, 2, 0, 0))));
    report.ForgetConfig();
    EXPECT_FALSE(report.ConfirmMsg(GuMsg(0x8003, Join(Fill(22), Hex("07 00")))));
    EXPECT_TRUE(report.ConfirmMsg(GuMsg(0x8003, Fill(24)))) << "0 is awaited, as at first";
    EXPECT_EQ(Stored(report), Fill(4)) << "no queue is left";
}
