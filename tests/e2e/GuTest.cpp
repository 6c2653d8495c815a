#include "e2e/GuBench.h"

// Reports of the GU stack end to end: agent, simulated modem, one client for commands and one for the reports. The
// modem sends every kind of indication at one interval; each report is thinned out to the period of its client.

namespace
{
using std::chrono::milliseconds;

constexpr uint64_t ADVANCE = 250; // ms by which a report may go out early
constexpr uint64_t ROUNDING = 1;  // ms, of stamps

struct ReportRow
{
    uint16_t usReq;
    uint16_t usCnf;
    uint16_t usInd;
    unsigned int ulPeriod;
};

Words Indications(std::initializer_list<ReportRow> rows)
{
    Words ids;
    for (const ReportRow& stRow : rows)
        ids.push_back(stRow.usInd);
    return ids;
}

/// A report that went out with every indication of the modem says when those came: each of them that was due for a
/// slower report, and no other, must have brought it.
void ExpectThinned(const Stamps& all, const Stamps& thinned, uint64_t ullPeriod)
{
    ASSERT_FALSE(thinned.empty());
    Stamps expected = {thinned.front()};
    ASSERT_NE(std::ranges::find(all, thinned.front()), all.end());
    for (const uint64_t ullStamp : all)
        if (ullStamp > expected.back() && ullStamp - expected.back() + ADVANCE >= ullPeriod)
            expected.push_back(ullStamp);
    if (expected.size() == thinned.size() + 1 && expected.back() == all.back())
        expected.pop_back(); // the reading may have ended between the two
    EXPECT_EQ(thinned, expected);
}

/// Reports that each indication brings, and once: their distance on the UE's clock is the modem's interval. Behind an
/// indication that was late the next one follows sooner.
void ExpectEvery(const Stamps& stamps, uint64_t ullInterval)
{
    const auto gaps = Gaps(stamps);
    ASSERT_FALSE(gaps.empty());
    EXPECT_GT(*std::ranges::min_element(gaps), ullInterval / 2);
    EXPECT_LT(Median(gaps), ullInterval + 150);
}

class GuFrameMode : public testing::TestWithParam<const char*>
{
};
class Gu : public testing::Test
{
protected:
    CGuBench m_gu;
};
} // namespace

TEST_P(GuFrameMode, ReportsOfBothModemsAtTheirOwnPeriods)
{
    constexpr unsigned int INTERVAL = 300;
    CGuBench gu;
    ASSERT_TRUE(gu.Start({"--dual-card", "--gu-mode", GetParam(), "--gu-interval", std::to_string(INTERVAL)}));
    const bool bKnown = GetParam() == std::string("2");
    EXPECT_NE(gu.Bench().Log().find(bKnown ? "Rcv version = MAPLE-20, type=ASIC" : "Rcv version = HAZEL-07, type=ASIC"),
              std::string::npos);
    EXPECT_NE(gu.Bench().Log().find("single and double card model= 1"), std::string::npos);
    // Its value answers the second modem's mode query too.
    EXPECT_EQ(gu.Ask(0x80A7, PKT_TYPE_GU_QUERY, Fill(4), 0x010A80A8), 1U);

    // Two packets of one processor of each modem, and one of another.
    const ReportRow c_stList{0xE52C, 0xE52D, 0xE52E, 500};
    const ReportRow c_stMin{0xE506, 0xE507, 0xE508, 1000};
    const ReportRow c_stBa{0xE529, 0xE52A, 0xE52B, 500};
    const ReportRow c_stList2{0xE62C, 0xE62D, 0xE62E, 500};
    const ReportRow c_stMin2{0xE606, 0xE607, 0xE608, 2000};
    for (const ReportRow& stRow : {c_stList, c_stMin, c_stBa, c_stList2, c_stMin2})
        ASSERT_EQ(gu.Report(stRow.usReq, 1, stRow.ulPeriod, stRow.usCnf), 0U) << std::hex << stRow.usReq;
    ASSERT_TRUE(gu.CollectEach({0xE508, 0xE608}, 3));
    for (const uint16_t usId : Words{0xE52E, 0xE52B, 0xE62E})
        ExpectEvery(gu.StampsOf(usId), INTERVAL);
    ExpectThinned(gu.StampsOf(0xE52E), gu.StampsOf(0xE508), 1000);
    ExpectThinned(gu.StampsOf(0xE62E), gu.StampsOf(0xE608), 2000);

    // The processors are made before the version is known, so its kind doesn't choose the receiver.
    constexpr uint32_t PID = 517;
    constexpr uint32_t PID_2 = 44;
    const Bytes START = Hex("01 00 00 00");
    const Bytes STOP = Hex("00 00 00 00");
    ASSERT_TRUE(gu.Sync());
    EXPECT_EQ(gu.ToldParams(0xE600, PID), (ByteLists{START, START}));
    EXPECT_EQ(gu.ToldParams(0xE603, PID), (ByteLists{START}));
    EXPECT_EQ(gu.ToldParams(0xE600, PID_2), (ByteLists{START, START}));

    // One of two stops: the other goes on, the modem isn't told.
    ASSERT_EQ(gu.Report(0xE52C, 0, 0, 0xE52D), 0U);
    ASSERT_TRUE(gu.Sync());
    EXPECT_EQ(gu.ToldParams(0xE600, PID).size(), 2U);
    EXPECT_TRUE(gu.IsSilent({0xE52E}, milliseconds(700)));
    ASSERT_TRUE(gu.CollectEach({0xE508, 0xE52B, 0xE62E}, 1));

    // The last one of that processor: told, while those of the other processor and the other modem stay.
    ASSERT_EQ(gu.Report(0xE506, 0, 0, 0xE507), 0U);
    ASSERT_TRUE(gu.Sync());
    EXPECT_EQ(gu.ToldParams(0xE600, PID), (ByteLists{START, START, STOP}));
    EXPECT_EQ(gu.ToldParams(0xE603, PID), (ByteLists{START}));
    EXPECT_EQ(gu.ToldParams(0xE600, PID_2), (ByteLists{START, START}));
    ASSERT_EQ(gu.Report(0xE606, 0, 0, 0xE607), 0U);
    ASSERT_EQ(gu.Report(0xE529, 0, 0, 0xE52A), 0U);
    EXPECT_TRUE(gu.IsSilent({0xE52E, 0xE508, 0xE52B, 0xE608}, milliseconds(700)));
    EXPECT_EQ(gu.ToldParams(0xE600, PID_2).size(), 2U);
    ASSERT_EQ(gu.Report(0xE62C, 0, 0, 0xE62D), 0U);
    ASSERT_TRUE(gu.Sync());
    EXPECT_EQ(gu.ToldParams(0xE603, PID), (ByteLists{START, STOP}));
    EXPECT_EQ(gu.ToldParams(0xE600, PID_2), (ByteLists{START, START, STOP}));
    EXPECT_TRUE(gu.IsSilent({0xE62E, 0xE608}, milliseconds(500)));
}
INSTANTIATE_TEST_SUITE_P(, GuFrameMode, testing::Values("1", "2"));

TEST_F(Gu, AModemThatComesBackWorksAgain)
{
    ASSERT_TRUE(m_gu.Start({"--dual-card", "--gu-interval", "260"}));
    ASSERT_EQ(m_gu.Report(0xE62C, 1, 500, 0xE62D), 0U);
    ASSERT_TRUE(m_gu.CollectEach({0xE62E}, 3));

    ASSERT_TRUE(m_gu.Unplug());
    ASSERT_TRUE(m_gu.ModemSaw("ue0 gu closed"));
    CTcpClient early(CHANNEL_GU_CMD);
    EXPECT_FALSE(early.Bind(CGuBench::PORT)); // nobody is there
    early.Close();
    m_gu.Plug();
    ASSERT_TRUE(m_gu.WaitUp());
    ASSERT_TRUE(m_gu.BindClients());
    // It has forgotten what it was told; the agent doesn't start a report by itself.
    EXPECT_TRUE(m_gu.IsSilent({0xE62E, 0xE52E}, milliseconds(600)));
    const size_t szTold = m_gu.Told({0xE600}).size();
    ASSERT_EQ(m_gu.Report(0xE62C, 1, 500, 0xE62D), 0U);
    ASSERT_EQ(m_gu.Report(0xE52C, 1, 500, 0xE52D), 0U);
    ASSERT_TRUE(m_gu.CollectEach({0xE62E, 0xE52E}, 4));
    ExpectEvery(m_gu.StampsOf(0xE62E), 260);
    ExpectEvery(m_gu.StampsOf(0xE52E), 260);
    ASSERT_EQ(m_gu.Report(0xE62C, 0, 0, 0xE62D), 0U);
    ASSERT_TRUE(m_gu.Sync());
    const auto told = m_gu.Told({0xE600});
    ASSERT_EQ(told.size(), szTold + 3); // two starts, and the stop: the report of before doesn't count
    EXPECT_EQ(told.back().params, Hex("00 00 00 00"));
}

TEST_F(Gu, RefusalsNeverReachTheModem)
{
    ASSERT_TRUE(m_gu.Start({})); // one card
    EXPECT_NE(m_gu.Bench().Log().find("single and double card model= 0"), std::string::npos);
    EXPECT_EQ(m_gu.Report(0xE62C, 1, 500, 0xE62D), DIAG_RC_NOT_DUAL_CARD);
    EXPECT_EQ(m_gu.Report(0xE600, 1, 500, 0xE601), DIAG_RC_NOT_DUAL_CARD);
    EXPECT_EQ(m_gu.Ask(0x80A7, PKT_TYPE_GU_QUERY, Fill(4), 0x015A80A8), DIAG_RC_NOT_DUAL_CARD);
    EXPECT_EQ(m_gu.Ask(0xA035, PKT_TYPE_GU_OTA, Le(1U), 0x0152A045), DIAG_RC_NOT_DUAL_CARD);
    EXPECT_EQ(m_gu.Ask(0xC104, PKT_TYPE_GU_OTA, Le(1U), 0x0152C105), DIAG_RC_NOT_DUAL_CARD);

    for (const unsigned int ulPeriod : {499U, 750U, 2001U, 2500U})
        EXPECT_EQ(m_gu.Report(0xE52C, 1, ulPeriod, 0xE52D), DIAG_RC_FAIL) << ulPeriod;
    EXPECT_EQ(m_gu.Report(0xE52C, 2, 500, 0xE52D), DIAG_RC_FAIL); // no such switch
    for (const unsigned int ulPeriod : {500U, 1500U, 3000U})
        EXPECT_EQ(m_gu.Report(0xE550, 1, ulPeriod, 0xE551), DIAG_RC_FAIL) << ulPeriod;
    EXPECT_EQ(m_gu.Report(0xE500, 1, 700, 0xE501), 1U); // the road test's own code
    for (const unsigned int ulPeriod : {99U, 2001U}) {
        const Bytes period = Le(static_cast<uint16_t>(ulPeriod));
        EXPECT_EQ(m_gu.Ask(0xB010, PKT_TYPE_GU_TRANS, Join(Hex("01 02"), period), 0x0154B011), DIAG_RC_FAIL);
        EXPECT_EQ(m_gu.Ask(0xF020, PKT_TYPE_GU_TRANS, Join(Hex("03 00"), period), 0x0154F021), DIAG_RC_FAIL);
    }
    ASSERT_TRUE(m_gu.Sync());
    EXPECT_TRUE(m_gu.Told({0xE600, 0xC00B, 0xA02C, 0xB010, 0xF020}).empty());
    EXPECT_EQ(m_gu.Told({0xC101}).size(), 1U); // what Sync sends does go there
    EXPECT_TRUE(m_gu.Told({0xA035, 0xC104}).empty());

    // The bounds themselves pass.
    EXPECT_EQ(m_gu.Report(0xE52C, 1, 2000, 0xE52D), 0U);
    EXPECT_EQ(m_gu.Ask(0xF020, PKT_TYPE_GU_TRANS, Join(Hex("03 00"), Hex("64 00")), 0x0154F021), 0U);
    ASSERT_TRUE(m_gu.CollectEach({0xE52E, 0xF022}, 1));
}

TEST_F(Gu, RoadTestGroupsStartAndStop)
{
    constexpr unsigned int INTERVAL = 300;
    // In each group the first report goes out with every indication.
    const ReportRow astGroup[][5] = {
        {{0xE500, 0xE501, 0xE502, 500},
         {0xE536, 0xE537, 0xE538, 1000},
         {0xE526, 0xE527, 0xE528, 1500},
         {0xE533, 0xE534, 0xE535, 2000}},
        {{0xE51D, 0xE51E, 0xE51F, 500},
         {0xE520, 0xE521, 0xE522, 1000},
         {0xE523, 0xE524, 0xE525, 2000},
         {0xE543, 0xE544, 0xE545, 1500},
         {0xE510, 0xE511, 0xE512, 500}},
        {{0xE513, 0xE514, 0xE515, 500}, {0xE519, 0xE51B, 0xE51C, 2000}}, // a confirm id left out
    };
    const std::map<uint16_t, size_t> sizes = {{0xE502, 32}, {0xE528, 16}, {0xE535, 4},  {0xE51F, 8},  {0xE522, 12},
                                              {0xE525, 20}, {0xE545, 8},  {0xE512, 36}, {0xE515, 20}, {0xE51C, 136}};
    constexpr uint32_t PID = 128;
    ByteLists told;
    const auto request = [](unsigned int ulAction, unsigned int ulGroup) { // action, 2, UE period, group
        return Join(Le(static_cast<uint16_t>(ulAction)), Hex("02 00 F4 01"), Le(static_cast<uint16_t>(ulGroup)));
    };

    ASSERT_TRUE(m_gu.Start({"--gu-interval", std::to_string(INTERVAL)}));
    Words all;
    for (unsigned int ulGroup = 0; ulGroup < 3; ++ulGroup)
        for (const ReportRow& stRow : astGroup[ulGroup]) {
            if (stRow.usReq == 0)
                continue;
            ASSERT_EQ(m_gu.Report(stRow.usReq, 1, stRow.ulPeriod, stRow.usCnf), 0U) << std::hex << stRow.usReq;
            told.push_back(request(1, ulGroup));
            all.push_back(stRow.usInd);
        }
    ASSERT_EQ(all.size(), 11U);
    ASSERT_TRUE(m_gu.CollectEach(all, 3));
    for (const auto& group : astGroup) {
        ExpectEvery(m_gu.StampsOf(group[0].usInd), INTERVAL);
        for (const ReportRow& stRow : group)
            if (stRow.usReq != 0)
                ExpectThinned(m_gu.StampsOf(group[0].usInd), m_gu.StampsOf(stRow.usInd), stRow.ulPeriod);
    }
    for (const auto& [usId, szSize] : sizes)
        for (const TcpPacket& stReport : m_gu.Reports(usId))
            EXPECT_EQ(stReport.payload.size(), szSize) << std::hex << usId;
    for (const TcpPacket& stReport : m_gu.Reports(0xE538))
        EXPECT_EQ(stReport.payload.size(), 24 + 16 * LoadLe<uint32_t>(stReport.payload, 20));

    // What the modem got, at each step: whole lists, so that nothing else is among it.
    const auto expectTold = [&] {
        ASSERT_TRUE(m_gu.Sync());
        EXPECT_EQ(m_gu.ToldParams(0xA02C, PID), told);
    };
    const auto stop = [&](const ReportRow& stRow) {
        EXPECT_EQ(m_gu.Report(stRow.usReq, 0, 0, stRow.usCnf), 0U) << std::hex << stRow.usReq;
    };
    expectTold();
    // A running one again with another period: the modem is told again, and the group counts it once more.
    ASSERT_EQ(m_gu.Report(0xE500, 1, 1000, 0xE501), 0U);
    told.push_back(request(1, 0));
    m_gu.Forget();
    ASSERT_TRUE(m_gu.CollectEach({0xE502}, 3));
    const auto slower = Gaps(m_gu.StampsOf(0xE502));
    EXPECT_GE(*std::ranges::min_element(slower) + ROUNDING, 1000 - ADVANCE);

    // Group 2: one stopped and started again, then both.
    stop(astGroup[2][0]);
    expectTold();
    EXPECT_TRUE(m_gu.IsSilent({0xE515}, milliseconds(500)));
    ASSERT_EQ(m_gu.Report(0xE513, 1, 500, 0xE514), 0U);
    told.push_back(request(1, 2));
    ASSERT_TRUE(m_gu.CollectEach({0xE515}, 2));
    stop(astGroup[2][1]);
    expectTold();
    stop(astGroup[2][0]);
    told.push_back(request(0, 2));
    expectTold();

    for (const ReportRow& stRow : astGroup[1]) {
        expectTold();
        stop(stRow);
    }
    told.push_back(request(0, 1));
    expectTold();

    // Group 0: the second start of 0xE500 keeps it running in the modem, though no report is left.
    for (size_t i = 0; i < 4; ++i)
        stop(astGroup[0][i]);
    expectTold();
    EXPECT_TRUE(m_gu.IsSilent(all, milliseconds(600)));
    stop(astGroup[0][0]);
    told.push_back(request(0, 0));
    expectTold();
    stop(astGroup[0][0]); // of nothing: told all the same
    told.push_back(request(0, 0));
    expectTold();
}

TEST_F(Gu, PacketDataOfTheSecondModemStartsAndStops)
{
    constexpr unsigned int INTERVAL = 900;
    const ReportRow c_stAmount{0xE650, 0xE651, 0xE652, 1000};
    const ReportRow c_stRates{0xE669, 0xE66A, 0xE66B, 2000};
    const ReportRow c_stTotal{0xE683, 0xE684, 0xE685, 1000};
    const std::initializer_list<ReportRow> rows = {c_stAmount, c_stRates, c_stTotal};
    constexpr uint32_t PID = 40;
    const Bytes START = Hex("01 00 E8 03"); // at the modem's own period, whatever the client's is
    const Bytes STOP = Hex("00 00 00 00");
    ByteLists told;
    const auto expectTold = [&] {
        ASSERT_TRUE(m_gu.Sync());
        EXPECT_EQ(m_gu.ToldParams(0xC00B, PID), told);
    };

    ASSERT_TRUE(m_gu.Start({"--dual-card", "--gu-interval", std::to_string(INTERVAL)}));
    for (const ReportRow& stRow : rows) {
        ASSERT_EQ(m_gu.Report(stRow.usReq, 1, stRow.ulPeriod, stRow.usCnf), 0U) << std::hex << stRow.usReq;
        told.push_back(START);
    }
    ASSERT_TRUE(m_gu.CollectEach({0xE66B}, 3));
    ExpectEvery(m_gu.StampsOf(0xE652), INTERVAL);
    ExpectThinned(m_gu.StampsOf(0xE652), m_gu.StampsOf(0xE66B), 2000);
    ExpectThinned(m_gu.StampsOf(0xE652), m_gu.StampsOf(0xE685), 1000);
    for (const auto& [usId, szSize] : std::map<uint16_t, size_t>{{0xE652, 8}, {0xE66B, 16}, {0xE685, 8}})
        for (const TcpPacket& stReport : m_gu.Reports(usId))
            EXPECT_EQ(stReport.payload.size(), szSize) << std::hex << usId;
    expectTold();

    // A running one again: told again, but it still counts once.
    ASSERT_EQ(m_gu.Report(0xE683, 1, 2000, 0xE684), 0U);
    told.push_back(START);
    m_gu.Forget();
    ASSERT_TRUE(m_gu.CollectEach({0xE685}, 2));
    EXPECT_GE(Gaps(m_gu.StampsOf(0xE685)).front() + ROUNDING, 2000 - ADVANCE);

    ASSERT_EQ(m_gu.Report(0xE650, 0, 0, 0xE651), 0U);
    expectTold();
    ASSERT_EQ(m_gu.Report(0xE669, 0, 0, 0xE66A), 0U);
    expectTold();
    EXPECT_TRUE(m_gu.IsSilent({0xE652, 0xE66B}, milliseconds(1000)));
    ASSERT_TRUE(m_gu.CollectEach({0xE685}, 1));
    ASSERT_EQ(m_gu.Report(0xE683, 0, 0, 0xE684), 0U);
    told.push_back(STOP);
    expectTold();
    EXPECT_TRUE(m_gu.IsSilent(Indications(rows), milliseconds(1000)));
    ASSERT_EQ(m_gu.Report(0xE669, 0, 0, 0xE66A), 0U); // of nothing: told all the same
    told.push_back(STOP);
    expectTold();
    EXPECT_EQ(m_gu.Told({0xC00B}).size(), told.size()); // none went to the first modem's task
}
