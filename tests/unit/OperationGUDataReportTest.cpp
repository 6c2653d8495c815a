#include "data/gu/OperationGUData.h"

#include "support/GuFixture.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;

// Reports that the agent times. The UE is of class 0: its stamps are real time.

namespace
{
struct GuReport : testing::Test
{
    /// The payloads of the indications with this id; another id fails the test.
    std::vector<Bytes> Payloads(unsigned short usId)
    {
        std::vector<Bytes> payloads;
        for (const auto& packet : gu.Indications()) {
            EXPECT_EQ(packet.stHead.ulCmdId, 0x01540000U | usId);
            EXPECT_EQ(packet.stHead.usPktType, 0x0154);
            payloads.push_back(packet.payload);
        }
        return payloads;
    }
    /// Sends one packet at each time (ms) and tells at which ones a report came.
    std::vector<unsigned int> ReportedAt(unsigned short usMsgId, unsigned short usInd,
                                         const std::vector<unsigned int>& times, const Bytes& payload)
    {
        std::vector<unsigned int> reported;
        for (const unsigned int ulMs : times) {
            gu.FromUe(GuMsg(usMsgId, payload, Ticks(ulMs)));
            if (!Payloads(usInd).empty())
                reported.push_back(ulMs);
        }
        return reported;
    }
    void Start(unsigned short usId, const Bytes& params)
    {
        gu.Request(usId, 84, params);
        gu.Forget();
    }
    /// Ticks until a W cell report comes, 0 when none comes within 60.
    unsigned int TicksToReport()
    {
        for (unsigned int i = 1; i <= 60; ++i) {
            gu.Operation().TimerProc();
            if (!gu.Indications().empty())
                return i;
        }
        return 0;
    }

    CGuFixture gu{"CEDAR-03"};
};

/// A part of the W cell report: its head with the cell count at offset 6, and its cells.
Bytes WCellPart(size_t szHead, const Bytes& counts, size_t szCells, unsigned char ucFill)
{
    Bytes part = Join(Fill(6, ucFill), counts, Fill(szHead - 8, ucFill));
    return Join(part, Fill(szCells * 24, static_cast<unsigned char>(ucFill + 1)));
}
Bytes ActiveBearer(unsigned char ucId, unsigned long long ullUlA, unsigned long long ullDlA)
{
    return Join(Bytes{1, ucId}, Fill(6), Le(ullUlA), Fill(60), Le(ullDlA), Fill(32));
}
} // namespace

TEST_F(GuReport, BlerGate)
{
    Start(0xF020, Hex("03 00 F4 01")); // 500 ms
    EXPECT_EQ(ReportedAt(0xF022, 0xF022, {1000, 1494, 1495, 1989, 1990, 5000}, Fill(4)),
              (std::vector<unsigned int>{1000, 1495, 1990, 5000}));
    Start(0xF020, Hex("03 00 63 00")); // refused, and so stopped
    EXPECT_TRUE(ReportedAt(0xF022, 0xF022, {9000}, Fill(4)).empty());
}

TEST_F(GuReport, BlerPayload)
{
    Start(0xF020, Hex("03 00 64 00"));
    gu.FromUe(GuMsg(0xF022, Hex("01 02 03 04 05 06 07"), Ticks(1000)));
    const auto packets = gu.Indications();
    ASSERT_EQ(packets.size(), 1U);
    ExpectPacket(packets[0], {0x0154F022, 1, Ticks(1000), 0x0154, Hex("01 02 03 04 05 06 07")}); // all of it
}

TEST_F(GuReport, GsmNeighbours)
{
    Start(0xB016, Hex("01 02 E8 03"));
    EXPECT_EQ(ReportedAt(0xB018, 0xB018, {2000, 2994, 2995}, Fill(4)), (std::vector<unsigned int>{2000, 2995}));
    const Bytes two = Join(Hex("AA BB 02 00"), Fill(20, 0x11), Fill(20, 0x22));
    gu.FromUe(GuMsg(0xB018, Join(two, Fill(9, 0x33)), Ticks(5000)));
    EXPECT_EQ(Payloads(0xB018), std::vector<Bytes>{two});
    gu.FromUe(GuMsg(0xB018, Hex("AA BB 03 00 44"), Ticks(7000)));
    EXPECT_EQ(Payloads(0xB018), std::vector<Bytes>{Join(Hex("AA BB 03 00 44"), Fill(59))}) << "completed";
}

TEST_F(GuReport, GsmNeighbourCount)
{
    Start(0xB016, Hex("01 02 E8 03"));
    gu.FromUe(GuMsg(0xB018, Hex("00 00 33 00"), Ticks(5000)));
    EXPECT_TRUE(Payloads(0xB018).empty()) << "51";
    gu.FromUe(GuMsg(0xB018, Hex("00 00 32 00"), Ticks(5001)));
    const auto payloads = Payloads(0xB018);
    ASSERT_EQ(payloads.size(), 1U) << "50; the refused one didn't pass the gate";
    EXPECT_EQ(payloads[0].size(), 1004U);
}

TEST_F(GuReport, LteNeighbours)
{
    Start(0xB060, Hex("01 02 E8 03"));
    EXPECT_EQ(ReportedAt(0xB062, 0xB062, {2000, 2994, 2995}, Fill(4)), (std::vector<unsigned int>{2000, 2995}));
    const Bytes two = Join(Hex("AA BB 02 00"), Fill(12, 0x11), Fill(12, 0x22));
    gu.FromUe(GuMsg(0xB062, Join(two, Fill(9, 0x33)), Ticks(5000)));
    EXPECT_EQ(Payloads(0xB062), std::vector<Bytes>{two});
    gu.FromUe(GuMsg(0xB062, Hex("AA BB 33 00"), Ticks(7000)));
    auto payloads = Payloads(0xB062);
    ASSERT_EQ(payloads.size(), 1U);
    EXPECT_EQ(payloads[0].size(), 616U) << "51 pass here";
    gu.FromUe(GuMsg(0xB062, Hex("AA BB FF FF"), Ticks(9000)));
    payloads = Payloads(0xB062);
    ASSERT_EQ(payloads.size(), 1U);
    EXPECT_EQ(payloads[0].size(), 0xFFF8U) << "65535 * 12 + 4 in 16 bits";
}

TEST_F(GuReport, OffReportsNothing)
{
    for (const unsigned short usId : Words{0xF022, 0xB018, 0xB062, 0xD003})
        gu.FromUe(GuMsg(usId, Fill(64), Ticks(90000)));
    gu.FromUe(GuMsg(0xB012, Fill(8)));
    EXPECT_EQ(TicksToReport(), 0U);
    EXPECT_TRUE(gu.Indications().empty());
}

TEST_F(GuReport, WCellTicks)
{
    struct
    {
        unsigned short usPeriod;
        unsigned int ulTicks;
    } const aRow[] = {{100, 1}, {199, 1}, {200, 2}, {250, 2}, {500, 5}, {1999, 19}, {2000, 20}};
    for (const auto& stRow : aRow) {
        CGuFixture fresh("CEDAR-03");
        fresh.Request(0xB010, 84, Join(Hex("01 02"), Le(stRow.usPeriod)));
        // The version's block made the first tick. Bring the count to a multiple of each row's.
        unsigned int ulSeen = 0;
        std::vector<unsigned int> at;
        for (unsigned int i = 0; i < 60 && at.size() < 3; ++i) {
            fresh.Operation().ProcTransMsgFromUe(GuMsg(0xB012, Fill(8)), 0);
            fresh.Operation().TimerProc();
            ++ulSeen;
            if (!fresh.Indications().empty())
                at.push_back(ulSeen);
        }
        ASSERT_EQ(at.size(), 3U) << stRow.usPeriod;
        EXPECT_EQ(at[1] - at[0], stRow.ulTicks) << stRow.usPeriod;
        EXPECT_EQ(at[2] - at[1], stRow.ulTicks) << stRow.usPeriod;
    }
}

TEST_F(GuReport, WCellJoinsThreeParts)
{
    const CLogCapture log;
    Start(0xB010, Hex("01 02 64 00"));
    const Bytes first = WCellPart(8, Hex("02 00"), 2, 0x10);
    const Bytes second = WCellPart(8, Hex("01 00"), 1, 0x20);
    const Bytes third = WCellPart(12, Hex("01 02"), 3, 0x30);
    gu.Operation().ProcTransMsgFromUe(GuMsg(0xB015, second, 6), 0);
    gu.Operation().ProcTransMsgFromUe(GuMsg(0xB065, third, 7), 0);
    gu.Operation().ProcTransMsgFromUe(GuMsg(0xB012, Fill(8), 4), 0);
    gu.Operation().ProcTransMsgFromUe(GuMsg(0xB012, first, 5), 0);
    gu.Operation().TimerProc();
    const auto packets = gu.Indications();
    ASSERT_EQ(packets.size(), 1U);
    ExpectPacket(packets[0], {0x0154B012, 1, 5, 0x0154, Join(first, second, third)}); // the last of each kind
    EXPECT_EQ(packets[0].payload.size(), 8U + 48 + 8 + 24 + 12 + 72);
    EXPECT_EQ(log.Count("Timer_BuildWCellIndPacket Buffer=0x"), 1);
    EXPECT_EQ(log.Count(",Length=192,dump=0x12,0xb0,0x54,0x01,"), 1) << "head and payload";
    gu.Operation().TimerProc();
    EXPECT_TRUE(gu.Indications().empty()) << "sent once";
    gu.Operation().ProcTransMsgFromUe(GuMsg(0xB012, Fill(8), 8), 0);
    gu.Operation().TimerProc();
    EXPECT_EQ(Payloads(0xB012), std::vector<Bytes>{Fill(28)}) << "the other parts are gone too";
}

TEST_F(GuReport, WCellNeedsTheFirstPart)
{
    Start(0xB010, Hex("01 02 64 00"));
    const Bytes second = WCellPart(8, Hex("01 00"), 1, 0x20);
    gu.Operation().ProcTransMsgFromUe(GuMsg(0xB015, second), 0);
    gu.Operation().TimerProc();
    EXPECT_TRUE(gu.Indications().empty());
    gu.Operation().ProcTransMsgFromUe(GuMsg(0xB012, Fill(8)), 0);
    gu.Operation().TimerProc();
    EXPECT_EQ(Payloads(0xB012), std::vector<Bytes>{Join(Fill(8), second, Fill(12))}) << "it waited; no part 3";
}

TEST_F(GuReport, WCellPartsCutShort)
{
    Start(0xB010, Hex("01 02 64 00"));
    gu.Operation().ProcTransMsgFromUe(GuMsg(0xB012, Hex("01 02 03 04 05 06 02 00 07")), 0); // two cells announced
    gu.Operation().TimerProc();
    EXPECT_EQ(Payloads(0xB012), std::vector<Bytes>{Join(Hex("01 02 03 04 05 06 02 00 07"), Fill(47), Fill(20))});
    gu.Operation().ProcTransMsgFromUe(GuMsg(0xB012, Hex("00 00 00 00 00 00 FF FF")), 0);
    gu.Operation().TimerProc();
    const auto payloads = Payloads(0xB012);
    ASSERT_EQ(payloads.size(), 1U);
    EXPECT_EQ(payloads[0].size(), (65535U * 24 + 28) & 0xFFFF) << "a length has 16 bits";
}

TEST_F(GuReport, WCellWaitsForTheVersion)
{
    CGuFixture fresh;
    fresh.Operation().SetClock({.fnSteady = [] { return std::chrono::steady_clock::time_point(); }}); // no tick
    fresh.Request(0xB010, 84, Hex("01 02 2C 01"));                                                    // 3 ticks
    fresh.Operation().ProcTransMsgFromUe(GuMsg(0xB012, Fill(8)), 0);
    for (int i = 0; i < 5; ++i)
        fresh.Operation().TimerProc();
    EXPECT_TRUE(fresh.Indications().empty());
    fresh.FromUe(GuVersion("CEDAR-03"));
    EXPECT_TRUE(fresh.Indications().empty());
    fresh.Operation().TimerProc();
    EXPECT_EQ(fresh.Indications().size(), 1U) << "the sixth: ticks were counted";
}

TEST_F(GuReport, WCellPartsEndWithTheConnection)
{
    Start(0xB010, Hex("01 02 64 00"));
    for (const unsigned short usId : Words{0xB012, 0xB015, 0xB065})
        gu.Operation().ProcTransMsgFromUe(GuMsg(usId, Join(Fill(6, 0x11), Fill(6))), 0);
    gu.Agent().Detach(0, CHANNEL_AT);
    gu.FromUe(GuVersion("CEDAR-03"));
    gu.Operation().TimerProc();
    EXPECT_TRUE(gu.Indications().empty());
    gu.FromUe(GuMsg(0xB012, Fill(8)));
    gu.Operation().TimerProc();
    EXPECT_EQ(Payloads(0xB012), std::vector<Bytes>{Fill(28)}) << "the period survives, no part does";
}

TEST_F(GuReport, TicksComeWithDataOnly)
{
    auto now = std::chrono::steady_clock::now() + 1h; // the version's block made a tick in real time
    gu.Operation().SetClock({.fnSteady = [&] { return now; }});
    const auto StoreMessage = [this] { gu.Operation().ProcTransMsgFromUe(GuMsg(0xB012, Fill(8)), 0); };
    const auto ReportsAfter = [&](std::chrono::milliseconds passed) {
        now += passed;
        StoreMessage();
        gu.Operation().ProcessSerialData(&gu.Agent().Agent().Bindings(), {}, 0);
        return !Payloads(0xB012).empty();
    };
    Start(0xB010, Hex("01 02 64 00")); // with each tick
    EXPECT_TRUE(ReportsAfter(0ms));
    EXPECT_FALSE(ReportsAfter(99ms));
    EXPECT_TRUE(ReportsAfter(1ms));
    EXPECT_FALSE(ReportsAfter(99ms)) << "the interval starts anew";
    now += 5s;
    StoreMessage();
    EXPECT_TRUE(gu.Indications().empty()) << "nothing but data from the UE makes a tick";
    EXPECT_TRUE(ReportsAfter(0ms));
    EXPECT_FALSE(ReportsAfter(0ms)) << "one tick, however long the UE was silent";
}

TEST_F(GuReport, ThroughputReports)
{
    // Without a start of the counters the time runs from 1970: every figure is small but the ids and counts stand.
    struct
    {
        unsigned short usReq;
        unsigned short usInd;
        size_t szPayload;
    } const aRow[] = {{0xF539, 0xF53B, 12}, {0xF53C, 0xF53E, 20}, {0xF53F, 0xF541, 12}, {0xF542, 0xF544, 20}};
    const Bytes payload = Join(ActiveBearer(5, 1000, 2000), ActiveBearer(6, 1000, 2000));
    unsigned int ulMs = 0;
    for (const auto& stRow : aRow) {
        SCOPED_TRACE(stRow.usReq);
        Start(stRow.usReq, Hex("01 00 E8 03"));
        ulMs += 10000;
        EXPECT_EQ(ReportedAt(0xD003, stRow.usInd, {ulMs, ulMs + 749, ulMs + 750}, payload),
                  (std::vector<unsigned int>{ulMs, ulMs + 750}));
        gu.FromUe(GuMsg(0xD003, payload, Ticks(ulMs + 2000)));
        const auto payloads = Payloads(stRow.usInd);
        ASSERT_EQ(payloads.size(), 1U);
        EXPECT_EQ(payloads[0].size(), stRow.szPayload);
        Start(stRow.usReq, Hex("00 00 00 00"));
        EXPECT_TRUE(ReportedAt(0xD003, stRow.usInd, {ulMs + 9000}, payload).empty()) << "stopped";
    }
}

TEST_F(GuReport, ThroughputOfAllFourInOrder)
{
    for (const unsigned short usId : Words{0xF539, 0xF53C, 0xF53F, 0xF542})
        Start(usId, Hex("01 00 E8 03"));
    gu.FromUe(GuMsg(0xD003, Fill(696), Ticks(5000)));
    std::vector<unsigned int> ids;
    for (const auto& packet : gu.Indications())
        ids.push_back(packet.stHead.ulCmdId);
    EXPECT_EQ(ids, (std::vector<unsigned int>{0x0154F53B, 0x0154F53E, 0x0154F541, 0x0154F544}));
}

TEST_F(GuReport, ThroughputNeedsASecondOfCounting)
{
    time_t now = 1000;
    gu.Operation().SetClock({.fnWall = [&] { return now; }});
    Start(0xF53C, Hex("01 00 E8 03"));
    const Bytes payload = ActiveBearer(5, 6000000, 0);
    gu.FromUe(GuMsg(0xD002, Fill(4)));
    gu.FromUe(GuMsg(0xD003, payload, Ticks(5000)));
    EXPECT_TRUE(gu.Indications().empty()) << "no time has passed";
    now = 1001;
    gu.FromUe(GuMsg(0xD003, payload, Ticks(5749)));
    EXPECT_TRUE(gu.Indications().empty()) << "the dropped one counts as reported";
    gu.FromUe(GuMsg(0xD003, payload, Ticks(5750)));
    EXPECT_EQ(Payloads(0xF53E), std::vector<Bytes>{Hex("01 00 00 00 05 00 00 00 00 1B B7 4A")}) << "6000000.0";
    now = 1004;
    gu.FromUe(GuMsg(0xD003, payload, Ticks(6500)));
    EXPECT_EQ(Payloads(0xF53E), std::vector<Bytes>{Hex("01 00 00 00 05 00 00 00 00 1B B7 49")}) << "6000000 / 4 s";
    now = 999; // the system's time was set back
    gu.FromUe(GuMsg(0xD003, payload, Ticks(7250)));
    EXPECT_TRUE(gu.Indications().empty());
    gu.FromUe(GuMsg(0xD002, Fill(4)));
    now = 1001;
    gu.FromUe(GuMsg(0xD003, payload, Ticks(8000)));
    EXPECT_EQ(Payloads(0xF53E), std::vector<Bytes>{Hex("01 00 00 00 05 00 00 00 00 1B 37 4A")}) << "since the restart";
}

TEST_F(GuReport, MacAndReorderingReports)
{
    Start(0xF518, Hex("01"));
    Start(0xF51B, Hex("01"));
    // One entry {0x11, 0x12, 0x1413, 0x15, no list}, valid at once.
    const Bytes entry = Hex("11 12 13 14 15 00");
    gu.FromUe(GuTrace(8, 133, Join(Hex("34 12 FF FF 00 01"), entry), 3));
    auto packets = gu.Indications();
    ASSERT_EQ(packets.size(), 2U);
    ExpectPacket(packets[0], {0x0154F51A, 1, 3, 0x0154, Hex("01 00 00 00 12 00 00 00 00 00 00 00 11 00 00 00")});
    ExpectPacket(packets[1],
                 {0x0154F51D, 2, 3, 0x0154, Join(Hex("01 00 00 00 11 00 00 00 15 00 00 00 13 14 00 00"), Fill(32))});
    // Valid later: the confirmation with the transaction number brings the reports.
    gu.FromUe(GuTrace(8, 133, Join(Hex("34 12 10 00 00 01"), entry), 4));
    EXPECT_TRUE(gu.Indications().empty());
    gu.FromUe(GuTrace(0, 133, Hex("35 12 00 00"), 5));
    EXPECT_TRUE(gu.Indications().empty());
    gu.FromUe(GuTrace(0, 133, Hex("34 12 00 00"), 6));
    packets = gu.Indications();
    ASSERT_EQ(packets.size(), 2U);
    EXPECT_EQ(packets[0].stHead.ulCmdId, 0x0154F51AU);
    EXPECT_EQ(packets[0].stHead.ullTimeStamp, 6U);
    EXPECT_EQ(packets[1].stHead.ulCmdId, 0x0154F51DU);
    // One of them stopped.
    Start(0xF518, Hex("00"));
    gu.FromUe(GuTrace(8, 133, Join(Hex("34 12 FF FF 00 01"), entry), 7));
    packets = gu.Indications();
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(packets[0].stHead.ulCmdId, 0x0154F51DU);
}

TEST_F(GuReport, ConfigurationsEndWithTheConnection)
{
    Start(0xF518, Hex("01"));
    Start(0xF51B, Hex("01"));
    const Bytes config = GuTrace(8, 133, Hex("34 12 10 00 00 01 11 12 13 14 15 00")); // waits for its confirmation
    const Bytes confirm = GuTrace(0, 133, Hex("34 12 00 00"));
    gu.FromUe(config);
    gu.Agent().Detach(0, CHANNEL_AT);
    gu.FromUe(GuVersion("CEDAR-03"));
    gu.FromUe(confirm);
    EXPECT_TRUE(gu.Indications().empty()) << "of a configuration from before";
    gu.FromUe(config);
    gu.FromUe(confirm);
    EXPECT_EQ(gu.Indications().size(), 2U) << "the reports still run";
}

// A UE of no known class counts downwards: the gates see the complement of its stamps.
TEST(GuReportOfUnknownClass, GatesTakeRealTime)
{
    struct
    {
        unsigned short usReq;
        Bytes params;
        unsigned short usMsg;
        unsigned int ulEarly; // ms before the period's end at which the next report is due
    } const aRow[] = {
        {0xF020, Hex("03 00 E8 03"), 0xF022, 5},   {0xB016, Hex("01 02 E8 03"), 0xB018, 5},
        {0xB060, Hex("01 02 E8 03"), 0xB062, 5},   {0xF539, Hex("01 00 E8 03"), 0xD003, 250},
        {0xF53C, Hex("01 00 E8 03"), 0xD003, 250}, {0xF53F, Hex("01 00 E8 03"), 0xD003, 250},
        {0xF542, Hex("01 00 E8 03"), 0xD003, 250},
    };
    for (const auto& stRow : aRow) {
        SCOPED_TRACE(stRow.usReq);
        CGuFixture gu("TEAK-11");
        gu.Request(stRow.usReq, 84, stRow.params);
        const auto Reported = [&](unsigned int ulMs) {
            gu.FromUe(GuMsg(stRow.usMsg, Fill(4), ~Ticks(ulMs)));
            const auto packets = gu.Indications();
            EXPECT_TRUE(packets.empty() || packets[0].stHead.ullTimeStamp == Ticks(ulMs));
            return packets.size();
        };
        EXPECT_EQ(Reported(20000), 1U);
        EXPECT_EQ(Reported(20999 - stRow.ulEarly), 0U);
        EXPECT_EQ(Reported(21000 - stRow.ulEarly), 1U);
    }
}

TEST(GuReportOfUnknownClass, WCellStamp)
{
    CGuFixture gu("TEAK-11");
    gu.Request(0xB010, 84, Hex("01 02 64 00"));
    gu.Operation().ProcTransMsgFromUe(GuMsg(0xB012, Fill(8), 0x12345678), 0);
    gu.Operation().TimerProc();
    const auto packets = gu.Indications();
    ASSERT_EQ(packets.size(), 1U);
    ExpectPacket(packets[0], {0x0154B012, 1, 0xEDCBA987, 0x0154, Fill(28)});
}
