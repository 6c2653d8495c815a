#include "capture/PcapngReader.h"
#include "support/PageRecords.h"

#include <gmock/gmock.h>
#include <thread>

// What the page answers after records that are built by hand.

namespace
{
using nlohmann::ordered_json;
using testing::HasSubstr;

class PageModel : public testing::Test
{
protected:
    PageModel() { m_feed.BeginRun(); }

    /// UE 3 with a GU port whose command channel client 7 has bound.
    void AttachModem()
    {
        m_feed.Client(7, CHANNEL_GU_CMD, true);
        m_feed.Channel(3, CHANNEL_GU_CMD, true, true, 7);
        m_feed.Channel(3, CHANNEL_GU_DATA, true, true);
        m_feed.Ue(3, "490154203237518");
    }
    ordered_json Tick(const std::string& strView)
    {
        const auto pTick = m_model.Tick({"/api/events", {{"view", strView}, {"ue", "3"}}});
        return pTick ? ordered_json::parse(*pTick) : ordered_json();
    }

    CPageModel m_model{{.strTap = "/run/vex/tap"}};
    CPageFeed m_feed{m_model};
};

std::vector<CAPTURED_RECORD> ReadCapture(const std::string& strFile)
{
    CPcapngReader reader(MemoryCaptureSource(AsBytes(strFile)));
    std::vector<CAPTURED_RECORD> records;
    CAPTURED_RECORD stRecord;
    CPcapngReader::RESULT enResult{};
    while ((enResult = reader.Next(stRecord)) == CPcapngReader::RESULT::RECORD)
        records.push_back({stRecord.stRecord, {}, stRecord.ullLost, stRecord.strComment});
    EXPECT_EQ(enResult, CPcapngReader::RESULT::END) << reader.Error();
    return records;
}
} // namespace

TEST_F(PageModel, OverviewShowsModemsChannelsAndWhoIsBound)
{
    AttachModem();
    m_feed.Second();
    const ordered_json view = m_feed.View("/api/overview");
    EXPECT_EQ(view["agent"]["connected"], true);
    EXPECT_EQ(view["agent"]["tap"], "/run/vex/tap");
    EXPECT_EQ(view["agent"]["host"], "lab7");
    EXPECT_EQ(view["agent"]["run"], "00000000000000000000000000000001");
    EXPECT_EQ(view["agent"]["start"], PAGE_DAY_MS - 1000);
    EXPECT_EQ(view["time"], PAGE_DAY_MS + 1000);
    ASSERT_EQ(view["modems"].size(), 1U);
    const ordered_json& modem = view["modems"][0];
    EXPECT_EQ(modem["ue"], 3);
    EXPECT_EQ(modem["state"], "confirmed");
    EXPECT_EQ(modem["imei"], "490154203237518");
    EXPECT_EQ(modem["version"], "V100R001");
    EXPECT_EQ(modem["group"], "1-2");
    ASSERT_EQ(modem["channels"].size(), 5U);
    EXPECT_EQ(modem["channels"][0]["attached"], false);
    const ordered_json command = {
        {"channel", "gu-cmd"}, {"port", 103},
        {"name", "ttyUSB0"},   {"attached", true},
        {"confirmed", true},   {"client", {{"client", 7}, {"address", "127.0.0.1"}, {"since", PAGE_DAY_MS}}}};
    EXPECT_EQ(modem["channels"][2], command);
    EXPECT_EQ(modem["channels"][3]["client"], nullptr);
    const ordered_json client = {
        {"client", 7}, {"address", "127.0.0.1"}, {"channel", "gu-cmd"}, {"since", PAGE_DAY_MS}, {"ue", 3},
        {"port", 103}};
    EXPECT_EQ(view["clients"], ordered_json::array({client}));
}

TEST_F(PageModel, AClientThatUnbindsOrGoesLeavesItsChannel)
{
    AttachModem();
    m_feed.Channel(3, CHANNEL_GU_CMD, true, true, 0);
    EXPECT_EQ(m_feed.View("/api/overview")["clients"][0]["ue"], nullptr);
    EXPECT_EQ(m_model.GuChannel(3)->ulClient, 0U);
    m_feed.Channel(3, CHANNEL_GU_CMD, true, true, 7);
    EXPECT_EQ(m_model.GuChannel(3)->strAddress, "127.0.0.1");
    m_feed.Client(7, CHANNEL_GU_CMD, false);
    EXPECT_EQ(m_feed.View("/api/overview")["clients"].size(), 0U);
    EXPECT_EQ(m_model.GuChannel(3)->ulClient, 0U);
    EXPECT_FALSE(m_model.GuChannel(4));
}

TEST_F(PageModel, AModemThatWentStaysForTenMinutes)
{
    AttachModem();
    m_feed.Channel(3, CHANNEL_GU_CMD, false, false);
    m_feed.Channel(3, CHANNEL_GU_DATA, false, false);
    m_feed.Second();
    EXPECT_EQ(m_feed.View("/api/overview")["modems"][0]["state"], "gone");
    EXPECT_FALSE(m_model.GuChannel(3));
    m_feed.ullNow += 598 * PAGE_SECOND;
    m_feed.Second(); // 600 s after it went
    EXPECT_EQ(m_feed.View("/api/overview")["modems"].size(), 1U);
    m_feed.Second();
    EXPECT_EQ(m_feed.View("/api/overview")["modems"].size(), 0U);
    EXPECT_EQ(m_feed.Ask("/api/modem", {{"ue", "3"}}).nStatus, 404);
}

TEST_F(PageModel, AnAgentThatEndsTakesModemsAndClientsAlong)
{
    AttachModem();
    m_feed.ToClient(3, CHANNEL_GU_DATA, 8, CqiIndication());
    m_model.EndRun();
    EXPECT_FALSE(m_model.IsConnected());
    m_feed.Second();
    ordered_json view = m_feed.View("/api/overview");
    EXPECT_EQ(view["modems"][0]["state"], "gone");
    EXPECT_EQ(view["clients"].size(), 0U);
    m_feed.BeginRun(2);
    m_feed.Channel(3, CHANNEL_GU_DATA, true, true);
    m_feed.Ue(3, "490154203237518");
    m_feed.Second();
    view = m_feed.View("/api/overview");
    EXPECT_EQ(view["modems"][0]["state"], "confirmed");
    EXPECT_EQ(m_feed.View("/api/plot", {{"ue", "3"}, {"plot", "stat/cqi"}})["t"].size(), 1U); // of the run before
    m_feed.Ue(3, "490154203237526");                                                          // another modem
    EXPECT_EQ(m_feed.Ask("/api/plot", {{"ue", "3"}, {"plot", "stat/cqi"}}).nStatus, 404);
}

TEST_F(PageModel, StatisticsArePlottedUnderTheNamesOfTheClient)
{
    AttachModem();
    m_feed.ToClient(3, CHANNEL_GU_DATA, 8, CqiIndication());
    m_feed.Second();
    const ordered_json view = m_feed.View("/api/plot", {{"ue", "3"}, {"plot", "stat/cqi"}});
    EXPECT_EQ(view["plot"]["title"], "HSDPA CQI");
    EXPECT_EQ(view["plot"]["group"], "HSDPA");
    EXPECT_EQ(view["plot"]["running"], true);
    EXPECT_EQ(view["t"], ordered_json::array({PAGE_DAY_MS}));
    std::map<std::string, ordered_json> values;
    for (size_t i = 0; i < view["v"].size(); ++i)
        values[view["plot"]["lines"][i]["name"]] = view["v"][i][0];
    const std::map<std::string, ordered_json> expected = {{"count", 2},
                                                          {"carriers[0].mean_cqi", 25},
                                                          {"carriers[0].mean_cqi_copy", 25},
                                                          {"carriers[0].mean_first_cqi", 24},
                                                          {"carriers[0].mean_second_cqi", 26},
                                                          {"carriers[1].mean_cqi", 30},
                                                          {"carriers[1].mean_cqi_copy", 30},
                                                          {"carriers[1].mean_first_cqi", 29},
                                                          {"carriers[1].mean_second_cqi", 31}};
    EXPECT_EQ(values, expected);
}

TEST_F(PageModel, FloatsAreThoseThatAClientPrints)
{
    AttachModem();
    // Statistic sir, id 62728 = 0xF508: one carrier, 0.1f = 0x3DCCCCCD and 12.0f = 0x41400000.
    m_feed.ToClient(3, CHANNEL_GU_DATA, 8,
                    Hex("08F55401 01000000 0000010000000000 5401 0C00 01000000 CDCCCC3D 00004041"));
    const std::string strBody = m_feed.Ask("/api/plot", {{"ue", "3"}, {"plot", "stat/sir"}}).strBody;
    EXPECT_THAT(strBody, HasSubstr("[0.10000000149011612]")); // the float as a double, like vex-client stat --json
    EXPECT_THAT(strBody, HasSubstr("[12.0]"));
    EXPECT_THAT(strBody, HasSubstr("\"unit\":\"dB\""));
}

TEST_F(PageModel, AReportOfTheSecondModemIsAPlotOfItsOwn)
{
    AttachModem();
    // Report dsc of modem 0, id 0xE50E, value 5; of modem 1, 0x100 further, value 6.
    m_feed.ToClient(3, CHANNEL_GU_DATA, 8, Hex("0EE55401 01000000 0000010000000000 5401 0400 05000000"));
    m_feed.ToClient(3, CHANNEL_GU_DATA, 8, Hex("0EE65401 02000000 0000010000000000 5401 0400 06000000"));
    EXPECT_EQ(m_feed.View("/api/plot", {{"ue", "3"}, {"plot", "report/dsc"}})["v"][0][0], 5);
    const ordered_json second = m_feed.View("/api/plot", {{"ue", "3"}, {"plot", "report/dsc/1"}});
    EXPECT_EQ(second["v"][0][0], 6);
    EXPECT_EQ(second["plot"]["title"], "current DSC, modem 1");
    EXPECT_EQ(second["plot"]["group"], "GSM");
}

TEST_F(PageModel, ConfirmsAndStatusRecordsAreNoPoints)
{
    AttachModem();
    // Confirm of the CQI statistic, id 62751; GU status 0x01F00010; bind answer 0x50000040.
    m_feed.ToClient(3, CHANNEL_GU_CMD, 7, Hex("1FF55401 00000000 0000000000000000 5401 0400 00000000"));
    m_feed.ToClient(3, CHANNEL_GU_CMD, 7, Hex("1000F001 00000000 0000000000000000 0001 0400 00000000"));
    m_feed.ToClient(3, CHANNEL_GU_CMD, 7, Hex("40000050 00000000 0000000000000000 F000 0000"));
    EXPECT_EQ(m_feed.View("/api/modem", {{"ue", "3"}})["plots"].size(), 0U);
}

TEST_F(PageModel, AReportForTwoClientsIsOnePoint)
{
    AttachModem();
    for (uint8_t i = 0; i < 3; ++i) {
        m_feed.ToClient(3, CHANNEL_GU_DATA, 8, CqiIndication(i, i));
        m_feed.ToClient(3, CHANNEL_GU_DATA, 9, CqiIndication(static_cast<uint8_t>(i + 5), i)); // numbers of its own
    }
    m_feed.ToClient(3, CHANNEL_GU_DATA, 8, CqiIndication(3, 2)); // the same values again for the same client
    EXPECT_EQ(m_feed.View("/api/plot", {{"ue", "3"}, {"plot", "stat/cqi"}})["t"].size(), 4U);
    EXPECT_THAT(m_feed.Ask("/metrics").strBody, HasSubstr("\nvex_report_duplicates_total 3\n"));
}

TEST_F(PageModel, LteMeasurementsArePlottedByCell)
{
    AttachModem();
    // Idle record: type 0x33, count 2 at 8; the serving cell's words 1, 2, 3, 4 at 12, one neighbour at 20.
    const Bytes record = Join(Hex("3300 00 00 0000 0000 0200 0000 0100020003000400 0500060007000800"), Fill(1068));
    m_feed.ToClient(3, CHANNEL_LTE_DATA, 8, Join(Hex("00002031 00000000 0000000000000000 0202 4804"), record));
    const ordered_json view = m_feed.View("/api/plot", {{"ue", "3"}, {"plot", "lte/cells"}});
    std::map<std::string, ordered_json> values;
    for (size_t i = 0; i < view["v"].size(); ++i)
        values[view["plot"]["lines"][i]["name"]] = view["v"][i][0];
    EXPECT_EQ(values["record_type"], 0x33);
    EXPECT_EQ(values["count"], 2);
    EXPECT_EQ(values["cells[0].words[3]"], 4);
    EXPECT_EQ(values["cells[1].words[0]"], 5);
    EXPECT_FALSE(values.contains("cells[2].words[0]")); // nothing stands there
    EXPECT_EQ(view["plot"]["group"], "LTE");
}

TEST_F(PageModel, RatesCountEachClassBySeconds)
{
    AttachModem();
    m_feed.Take(m_feed.Record(TAP_KIND::UE_TO_AGENT, 3, CHANNEL_LTE_DATA), Fill(100));
    m_feed.Take(m_feed.Record(TAP_KIND::UE_TO_AGENT, 3, CHANNEL_GU_CMD), Fill(10));
    m_feed.Take(m_feed.Record(TAP_KIND::AGENT_TO_UE, 3, CHANNEL_GU_CMD), Fill(7));
    m_feed.Second();
    m_feed.Second();
    const ordered_json rates = m_feed.View("/api/overview")["modems"][0]["rates"];
    EXPECT_EQ(rates["time"], PAGE_DAY_MS + 2000);
    EXPECT_EQ(rates["step"], 1000);
    ASSERT_EQ(rates["from_ue_bytes"].size(), 60U);
    EXPECT_EQ(rates["from_ue_bytes"][58], 110);
    EXPECT_EQ(rates["from_ue_bytes"][59], 0);
    EXPECT_EQ(rates["from_ue_packets"][58], 2);
    EXPECT_EQ(rates["to_ue_bytes"][58], 7);
    const ordered_json plot = m_feed.View("/api/plot", {{"ue", "3"}, {"plot", "rate/bytes"}});
    const ordered_json lines = {{{"name", "from-ue lte-data"}, {"unit", "bytes/s"}},
                                {{"name", "from-ue gu-cmd"}, {"unit", "bytes/s"}},
                                {{"name", "to-ue gu-cmd"}, {"unit", "bytes/s"}}};
    EXPECT_EQ(plot["plot"]["lines"], lines);
    EXPECT_EQ(plot["v"], (ordered_json{{100, 0}, {10, 0}, {7, 0}}));
    EXPECT_EQ(plot["t"], (ordered_json{PAGE_DAY_MS + 1000, PAGE_DAY_MS + 2000}));
}

TEST_F(PageModel, APlotIsCutByTimeAndStep)
{
    AttachModem();
    for (uint8_t i = 0; i < 10; ++i, m_feed.ullNow += 100 * PAGE_MS)
        m_feed.ToClient(3, CHANNEL_GU_DATA, 8, CqiIndication(i, i));
    const auto from = std::to_string(1'700'000'000'200), to = std::to_string(1'700'000'000'800);
    const ordered_json view =
        m_feed.View("/api/plot", {{"ue", "3"}, {"plot", "stat/cqi"}, {"from", from}, {"to", to}, {"step", "300"}});
    EXPECT_EQ(view["t"], (ordered_json{PAGE_DAY_MS + 200, PAGE_DAY_MS + 500, PAGE_DAY_MS + 800}));
}

TEST_F(PageModel, ATickHasThePointsSinceTheOneBefore)
{
    AttachModem();
    m_feed.ToClient(3, CHANNEL_GU_DATA, 8, CqiIndication(1, 1));
    m_feed.Second();
    m_feed.ToClient(3, CHANNEL_GU_DATA, 8, CqiIndication(2, 2)); // of the next tick
    const ordered_json first = Tick("modem");
    EXPECT_EQ(first["new"]["stat/cqi"]["t"], ordered_json::array({PAGE_DAY_MS}));
    EXPECT_EQ(first["modem"]["ue"], 3);
    EXPECT_EQ(first["control"], (ordered_json{{"enabled", false}}));
    m_feed.Second();
    const ordered_json second = Tick("modem");
    EXPECT_EQ(second["new"]["stat/cqi"]["t"], ordered_json::array({PAGE_DAY_MS + 1000}));
    EXPECT_EQ(second["tick"].get<int>(), first["tick"].get<int>() + 1);
    m_feed.Second();
    EXPECT_FALSE(Tick("modem")["new"].contains("stat/cqi"));
    EXPECT_EQ(Tick("overview")["modems"].size(), 1U);
    EXPECT_TRUE(Tick("nothing").is_null());
    EXPECT_EQ(m_model.Tick({"/api/events", {{"view", "modem"}, {"ue", "4"}}}), nullptr);
}

TEST_F(PageModel, ATickIsMadeOnceForAll)
{
    m_feed.Second();
    const PAGE_QUERY stQuery{"/api/events", {{"view", "overview"}}};
    const auto pTick = m_model.Tick(stQuery);
    EXPECT_EQ(m_model.Tick(stQuery), pTick);
    m_feed.Second();
    EXPECT_NE(m_model.Tick(stQuery), pTick);
}

TEST_F(PageModel, PacketsComeNewestFirstAndCanBeChosen)
{
    AttachModem();
    m_feed.Take(m_feed.Record(TAP_KIND::CLIENT_TO_AGENT, 3, CHANNEL_GU_CMD, 7), Hex("1EF50000 5400 0400 01000005"));
    m_feed.ToClient(3, CHANNEL_GU_DATA, 8, CqiIndication());
    m_feed.Take(m_feed.Record(TAP_KIND::UE_TO_AGENT, 3, CHANNEL_AT), Bytes(AsBytes("+CSQ: 20,99\r\n")));
    const ordered_json rows = m_feed.View("/api/packets", {{"ue", "3"}, {"limit", "3"}})["packets"];
    ASSERT_EQ(rows.size(), 3U);
    EXPECT_EQ(rows[0]["direction"], "from-ue");
    EXPECT_EQ(rows[0]["channel"], "at");
    EXPECT_EQ(rows[0]["summary"], "+CSQ: 20,99");
    EXPECT_EQ(rows[0]["id"], nullptr);
    EXPECT_EQ(rows[1]["id"], "0x0154F520");
    EXPECT_EQ(rows[1]["name"], "cqi");
    EXPECT_EQ(rows[1]["length"], 56);
    EXPECT_EQ(rows[1]["client"], 8);
    EXPECT_EQ(rows[2]["name"], "cqi"); // the request 62750 = 0xF51E
    EXPECT_EQ(rows[2]["type"], "trans");
    const ordered_json chosen = m_feed.View("/api/packets", {{"channel", "gu-cmd"}, {"direction", "from-client"}});
    ASSERT_EQ(chosen["packets"].size(), 1U);
    EXPECT_EQ(chosen["packets"][0], rows[2]);
    const std::string strNumber = std::to_string(rows[1]["number"].get<uint64_t>());
    EXPECT_EQ(m_feed.View("/api/packets", {{"ue", "3"}, {"after", strNumber}})["packets"].size(), 1U);
    EXPECT_EQ(m_feed.View("/api/packets", {{"ue", "3"}, {"before", strNumber}})["packets"][0], rows[2]);
}

TEST_F(PageModel, APacketIsDecodedWhenItIsAskedFor)
{
    AttachModem();
    m_feed.ToClient(3, CHANNEL_GU_DATA, 8, CqiIndication());
    const auto ullNumber = m_feed.View("/api/packets")["packets"][0]["number"].get<uint64_t>();
    const ordered_json packet = m_feed.View("/api/packet", {{"number", std::to_string(ullNumber)}});
    EXPECT_EQ(packet["decoded"]["carriers"][1]["mean_cqi"], 30);
    EXPECT_THAT(packet["hex"].get<std::string>(), testing::StartsWith("20F55401"));
    EXPECT_EQ(packet["hex_cut"], false);
    EXPECT_EQ(packet["head"]["mode"], "GU");
    m_feed.Take(m_feed.Record(TAP_KIND::UE_TO_AGENT, 3, CHANNEL_LTE_DATA), Fill(4097));
    const ordered_json longer = m_feed.View("/api/packet", {{"number", std::to_string(ullNumber + 1)}});
    EXPECT_EQ(longer["hex"].get<std::string>().size(), 2 * 4096U);
    EXPECT_EQ(longer["hex_cut"], true);
    EXPECT_EQ(longer["decoded"], nullptr);
    EXPECT_EQ(m_feed.Ask("/api/packet", {{"number", std::to_string(ullNumber + 2)}}).nStatus, 404);
}

TEST_F(PageModel, PacketsOfAModemAreNamedByTheConfiguredHeader)
{
    // The tag, 3 for an indication, is the byte 4; the id stands at 8, the payload begins at 28.
    const std::string strConfig = "DATA_ACK_CHL_PACKET_OFFSET = 8\nDATA_ACK_CHL_PACKET_UID = {8,4}; {4,1}; {5,1}\n"
                                  "DATA_CHL_PACKET_PAYLOAD_OFFSET = 28\n"
                                  "DATA_CHL_PACKET_HEADER = {8,4}; {12,4}; {5,1}; {16,8}; {24,4}\n";
    m_feed.Take(m_feed.Record(TAP_KIND::CONFIGURATION, TAP_NO_UE, TAP_NO_CHANNEL), Bytes(AsBytes(strConfig)));
    AttachModem();
    m_feed.Take(m_feed.Record(TAP_KIND::UE_TO_AGENT, 3, CHANNEL_LTE_DATA),
                Join(Hex("00000000 03000000 00000420"), Fill(16), Hex("ABCD")));
    const ordered_json row = m_feed.View("/api/packets", {{"limit", "1"}})["packets"][0];
    EXPECT_EQ(row["id"], "0x20040000");
    EXPECT_EQ(row["name"], "event");
    EXPECT_EQ(row["type"], "indication");
    EXPECT_EQ(row["summary"], "AB CD");
}

TEST_F(PageModel, WrongQueriesAreToldWhatIsWrong)
{
    const struct
    {
        const char* pszPath;
        std::map<std::string, std::string> mapArgs;
        int nStatus;
        const char* pszError;
    } cases[] = {
        {"/api/modem", {}, 400, "ue has to be given"},
        {"/api/modem", {{"ue", "x"}}, 400, "ue has to be a whole number up to 15"},
        {"/api/modem", {{"ue", "16"}}, 400, "ue has to be a whole number up to 15"},
        {"/api/modem", {{"ue", "15"}}, 404, "no modem was seen as UE 15"},
        {"/api/plot", {{"ue", "3"}, {"plot", "no"}}, 404, "UE 3 has no plot no"},
        {"/api/plot", {{"ue", "3"}, {"from", "nan"}}, 400, "from has to be a number"},
        {"/api/packets", {{"limit", "-1"}}, 400, "limit has to be a whole number up to 1000"},
        {"/api/packet", {}, 400, "number has to be given"},
        {"/api/packet", {{"number", "1e3"}}, 400, "number has to be a whole number up to 18446744073709551614"},
        {"/api/export.pcapng", {{"minutes", "0"}}, 400, "minutes has to be 1 or more"},
        {"/api/export.csv", {{"ue", "3"}}, 404, "UE 3 has no plot "},
        {"/api/control", {}, 400, "ue has to be given"},
    };
    for (const auto& stCase : cases) {
        const PAGE_ANSWER stAnswer = m_feed.Ask(stCase.pszPath, stCase.mapArgs);
        EXPECT_EQ(stAnswer.nStatus, stCase.nStatus) << stCase.pszPath;
        EXPECT_EQ(stAnswer.strBody, ordered_json({{"error", stCase.pszError}}).dump()) << stCase.pszPath;
    }
    EXPECT_FALSE(m_model.Get({"/index.html", {}}));
}

TEST_F(PageModel, ControlIsAskedOutsideTheLock)
{
    CPageModel model({});
    model.SetControlView([&](unsigned int ulUe) {
        EXPECT_FALSE(model.GuChannel(ulUe)); // would hang under the model's lock
        return std::string(R"({"enabled":true,"port":null})");
    });
    CPageFeed feed(model);
    EXPECT_EQ(feed.View("/api/control", {{"ue", "0"}}), (ordered_json{{"enabled", true}, {"port", nullptr}}));
}

TEST_F(PageModel, AnswersWhileRecordsComeAndSecondsPass)
{
    AttachModem();
    std::thread seconds([&] {
        for (uint64_t i = 1; i <= 50; ++i)
            m_model.OnSecond(PAGE_DAY + i * PAGE_SECOND);
    });
    std::thread asks([&] {
        for (int i = 0; i < 10; ++i)
            for (const char* pszPath : {"/api/overview", "/api/packets", "/api/modem", "/api/plot", "/metrics"})
                (void)m_model.Get({pszPath, {{"ue", "3"}, {"plot", "stat/cqi"}, {"limit", "5"}}});
    });
    for (int i = 0; i < 200; ++i) {
        m_feed.ToClient(3, CHANNEL_GU_DATA, 8, CqiIndication(0, static_cast<uint8_t>(i)));
        (void)Tick("modem");
    }
    seconds.join();
    asks.join();
    EXPECT_THAT(m_feed.Ask("/metrics").strBody, HasSubstr("\nvex_reports_total 200\n"));
}

TEST_F(PageModel, LossesOfTheTapAreCountedTogether)
{
    m_feed.Take(m_feed.Record(TAP_KIND::STATUS, TAP_NO_UE, TAP_NO_CHANNEL), Fill(4), 5);
    m_feed.Take(m_feed.Record(TAP_KIND::STATUS, TAP_NO_UE, TAP_NO_CHANNEL), Fill(4), 2);
    m_feed.ullNow += 10 * PAGE_SECOND;
    m_feed.Take(m_feed.Record(TAP_KIND::STATUS, TAP_NO_UE, TAP_NO_CHANNEL), Fill(4), 1);
    const ordered_json view = m_feed.View("/api/overview");
    EXPECT_EQ(view["agent"]["lost"], 8);
    ASSERT_EQ(view["losses"].size(), 2U);
    EXPECT_EQ(view["losses"][0]["count"], 1);
    EXPECT_EQ(view["losses"][1]["count"], 7);
}

TEST_F(PageModel, ThePlotAsCsv)
{
    AttachModem();
    m_feed.ToClient(3, CHANNEL_GU_DATA, 8, Hex("0EE55401 01000000 0000010000000000 5401 0400 05000000"));
    m_feed.ullNow += 1500 * PAGE_MS;
    m_feed.ToClient(3, CHANNEL_GU_DATA, 8, Hex("0EE55401 02000000 0100010000000000 5401 0400 07000000"));
    const PAGE_ANSWER stAnswer = m_feed.Ask("/api/export.csv", {{"ue", "3"}, {"plot", "report/dsc"}});
    EXPECT_EQ(stAnswer.strBody, "time,dsc\r\n2023-11-14T22:13:20.000Z,5\r\n2023-11-14T22:13:21.500Z,7\r\n");
    EXPECT_EQ(stAnswer.strFile, "ue3-report-dsc.csv");
    EXPECT_EQ(stAnswer.strType, "text/csv; charset=utf-8");
}

TEST_F(PageModel, TheLastMinutesAsACaptureFileBeginWithWhatWasThere)
{
    m_feed.Take(m_feed.Record(TAP_KIND::CONFIGURATION, TAP_NO_UE, TAP_NO_CHANNEL), Bytes(AsBytes("a = b\n")));
    AttachModem();
    m_feed.ToClient(3, CHANNEL_GU_DATA, 8, CqiIndication(1, 1));
    m_feed.ullNow += 90 * PAGE_SECOND;
    m_feed.ToClient(3, CHANNEL_GU_DATA, 8, CqiIndication(2, 2));
    m_feed.ToClient(4, CHANNEL_GU_DATA, 9, CqiIndication(3, 3));
    m_feed.Second();
    const PAGE_ANSWER stAnswer = m_feed.Ask("/api/export.pcapng", {{"minutes", "1"}, {"ue", "3"}});
    EXPECT_EQ(stAnswer.strFile, "vex-ue3-1min.pcapng");
    const auto records = ReadCapture(stAnswer.strBody);
    std::vector<std::pair<TAP_KIND, int>> seen;
    for (const CAPTURED_RECORD& st : records)
        seen.emplace_back(st.stRecord.enKind, st.stRecord.ucFlags);
    // The configuration, two channels and the UE as they were, then the one packet of the last minute.
    const std::vector<std::pair<TAP_KIND, int>> expected = {{TAP_KIND::CONFIGURATION, TAP_REPLAYED},
                                                            {TAP_KIND::PORT_EVENT, TAP_REPLAYED},
                                                            {TAP_KIND::PORT_EVENT, TAP_REPLAYED},
                                                            {TAP_KIND::PORT_EVENT, TAP_REPLAYED},
                                                            {TAP_KIND::AGENT_TO_CLIENT, 0}};
    EXPECT_EQ(seen, expected);
    EXPECT_EQ(records[0].strComment,
              "run 00000000000000000000000000000001, agent since 2023-11-14T22:13:19Z, bench lab7");
    EXPECT_EQ(ReadCapture(m_feed.Ask("/api/export.pcapng", {{"minutes", "2"}}).strBody).size(), 8U); // all there were
}

TEST_F(PageModel, MetricsCountWithoutSayingWho)
{
    AttachModem();
    m_feed.ToClient(3, CHANNEL_GU_DATA, 8, CqiIndication());
    m_feed.ToClient(3, CHANNEL_GU_CMD, 7, Hex("1FF55401 29000000 0000000000000000 5401 0000")); // 41: not bound
    m_feed.ToClient(3, CHANNEL_GU_CMD, 7, Hex("1FF55401 78563412 0000000000000000 5401 0000")); // a code of the modem
    m_feed.Second();
    const std::string strText = m_feed.Ask("/metrics").strBody;
    for (const char* pszLine :
         {"vex_up 1\n", "vex_ue_confirmed{ue=\"3\"} 1\n", "vex_channel_bound{ue=\"3\",channel=\"gu-cmd\"} 1\n",
          "vex_channel_bound{ue=\"3\",channel=\"gu-data\"} 0\n",
          "vex_packets_total{ue=\"3\",channel=\"gu-data\",direction=\"to-client\"} 1\n",
          "vex_packet_bytes_total{ue=\"3\",channel=\"gu-data\",direction=\"to-client\"} 56\n",
          "vex_client_connections_total{channel=\"gu-cmd\"} 1\n", "vex_reports_total 1\n",
          "vex_refused_requests_total{ue=\"3\",channel=\"gu-cmd\",reason=\"41\"} 1\n",
          "vex_refused_requests_total{ue=\"3\",channel=\"gu-cmd\",reason=\"other\"} 1\n",
          "vex_agent_start_time_seconds 1699999999\n"})
        EXPECT_THAT(strText, HasSubstr(std::string("\n") + pszLine));
    EXPECT_THAT(strText, testing::Not(HasSubstr("490154203237518")));
    EXPECT_THAT(strText, testing::Not(HasSubstr("127.0.0.1")));
    size_t szMetrics = 0;
    for (size_t szAt = 0; (szAt = strText.find("# TYPE ", szAt)) != std::string::npos; ++szAt)
        ++szMetrics;
    EXPECT_GE(szMetrics, 20U);
}

TEST_F(PageModel, SaysThatItIsForAnAgent)
{
    EXPECT_EQ(m_model.Get({"/api/page", {}})->strBody, R"({"source":"tap"})");
    for (const char* const pszPath : {"/api/fleet", "/api/bench"}) {
        const auto answer = m_model.Get({pszPath, {}});
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->nStatus, 404);
        EXPECT_THAT(answer->strBody, HasSubstr(R"({"error":"this page shows an agent; )"));
    }
}
