#include "page/FleetModel.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

// What the page answers of a fleet, after states that are built by hand. Times are ms since 1970.

namespace
{
using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

constexpr uint64_t NOW = 1'700'000'000'000; // a whole step of 5 s
constexpr uint64_t NS_PER_MS = 1'000'000;

FLEET_BENCH_STATE StateOf(const std::string& strBench, uint64_t ullTime)
{
    FLEET_BENCH_STATE stState;
    stState.strBench = strBench;
    stState.ullTime = ullTime;
    return stState;
}

class PageFleet : public testing::Test
{
protected:
    PageFleet() { Second(NOW); }

    void Second(uint64_t ullMs) { m_model.OnSecond(ullMs * NS_PER_MS); }
    /// A state that reaches the hub as soon as it is made.
    bool Take(const FLEET_BENCH_STATE& stState) { return m_model.Take(stState, stState.ullTime); }
    /// A state with rates, made right before ullMs, at which a second ends.
    void TakeRates(uint64_t ullMs, double dRecords, double dBytes)
    {
        FLEET_BENCH_STATE stState = StateOf("b1", ullMs - 1);
        stState.dRecordRate = dRecords;
        stState.dByteRate = dBytes;
        EXPECT_TRUE(Take(stState));
        Second(ullMs);
    }
    PAGE_ANSWER Get(const std::string& strPath, std::map<std::string, std::string> mapArgs = {})
    {
        return m_model.Get({strPath, std::move(mapArgs)}).value_or(PAGE_ANSWER{0, "", "null"});
    }
    json View(const std::string& strPath, std::map<std::string, std::string> mapArgs = {})
    {
        const PAGE_ANSWER stAnswer = Get(strPath, std::move(mapArgs));
        EXPECT_EQ(stAnswer.nStatus, 200) << stAnswer.strBody;
        return json::parse(stAnswer.strBody, nullptr, false);
    }
    json Bench() { return View("/api/bench", {{"bench", "b1"}})["bench"]; }
    /// "car-7 live, b1 away" as the fleet's view has them.
    std::string Presence()
    {
        std::string strText;
        const json fleet = View("/api/fleet");
        for (const json& bench : fleet["benches"])
            strText += (strText.empty() ? "" : ", ") + bench["bench"].get<std::string>() + ' ' +
                       bench["state"].get<std::string>();
        return strText;
    }
    std::string Metrics() { return Get("/metrics").strBody; }

    CFleetModel m_model;
};
} // namespace

TEST_F(PageFleet, SaysWhatItIsFor)
{
    EXPECT_EQ(Get("/api/page").strBody, R"({"source":"fleet"})");
    for (const char* const pszPath : {"/api/overview", "/api/modem", "/api/plot", "/api/packets", "/api/packet",
                                      "/api/export.pcapng", "/api/export.csv", "/api/control"}) {
        const PAGE_ANSWER stAnswer = Get(pszPath);
        EXPECT_EQ(stAnswer.nStatus, 404) << pszPath;
        EXPECT_THAT(stAnswer.strBody, HasSubstr(R"({"error":"this page shows a fleet; )"));
    }
    EXPECT_EQ(m_model.Get({"/index.html", {}}), std::nullopt) << "that is for the files";
}

TEST_F(PageFleet, AllOfAStateIsInTheViews)
{
    FLEET_BENCH_STATE stState = StateOf("b1", NOW - 2000);
    stState.strEpoch = "0a";
    stState.strVersion = "0.1.0";
    stState.ullStarted = NOW - 60'000;
    stState.dRecordRate = 12.34;
    stState.dByteRate = 4567.8;
    stState.ullLostRecords = 1;
    stState.ullLostSegments = 2;
    stState.ullBacklogBytes = 3;
    stState.ullBacklogMs = 4;
    stState.ullSentBytes = 5;
    stState.ullSentMessages = 6;
    stState.ullSpoolBytes = 7;
    stState.ullDiskFree = 8;
    stState.ullDiskSize = 9;
    stState.bRequests = true;
    stState.vecModems = {{3, "modem \"A\"", {{"lte-data", true, 40, 2.25, 800}, {"at", false, 1, 0.5, 10}}}};
    (void)Take(stState);
    m_model.SetHub({true, "nats://hub:4222", ""});
    Second(NOW + 1000);

    json expected = json::parse(R"({"bench":"b1","state":"live","seen":1699999998000,"epoch":"0a","version":"0.1.0",
        "started":1699999940000,"records_per_second":12.3,"bytes_per_second":4568,
        "rates":{"time":1700000000000,"step":5000,"records":[],"bytes":[]},
        "modems":[{"ue":3,"name":"modem \"A\"","channels":1,"records_per_second":2.8}],
        "lost_records":1,"lost_segments":2,"backlog_bytes":3,"backlog_ms":4,"sent_bytes":5,"sent_messages":6,
        "spool_bytes":7,"disk_free":8,"disk_size":9,"requests":true})");
    const json fleet = View("/api/fleet");
    EXPECT_EQ(fleet["time"], NOW + 1000);
    EXPECT_EQ(fleet["hub"], json::parse(R"({"connected":true,"server":"nats://hub:4222","error":""})"));
    EXPECT_EQ(fleet["benches"], json::array({expected})) << fleet["benches"];
    expected["modems"] = json::parse(R"([{"ue":3,"name":"modem \"A\"","channels":[
        {"channel":"lte-data","present":true,"records":40,"records_per_second":2.3,"bytes_per_second":800},
        {"channel":"at","present":false,"records":1,"records_per_second":0.5,"bytes_per_second":10}]}])");
    EXPECT_EQ(Bench(), expected) << Bench();
}

TEST_F(PageFleet, PresenceGoesByTheAgeOfTheState)
{
    const struct
    {
        uint64_t ullAge;
        const char* pszState;
    } c_astAge[] = {{0, "live"},      {14'999, "live"}, {15'000, "late"},
                    {59'999, "late"}, {60'000, "away"}, {3'600'000, "away"}};
    (void)Take(StateOf("b1", NOW));
    for (const auto& stAge : c_astAge) {
        Second(NOW + stAge.ullAge);
        EXPECT_EQ(Presence(), std::string("b1 ") + stAge.pszState) << stAge.ullAge;
    }
    (void)Take(StateOf("b1", NOW + 3'600'000));
    Second(NOW + 3'600'001);
    EXPECT_EQ(Presence(), "b1 live") << "it is back";
}

TEST_F(PageFleet, AClockThatIsWrongMakesNoStateOfTheFuture)
{
    (void)m_model.Take(StateOf("ahead", NOW + 3'600'000), NOW - 1000); // the hub got it a second ago
    (void)m_model.Take(StateOf("never", UINT64_MAX), NOW);
    (void)m_model.Take(StateOf("zero", 0), NOW);
    Second(NOW);
    EXPECT_EQ(Presence(), "ahead live, never live, zero away");
    EXPECT_EQ(View("/api/fleet")["benches"][0]["seen"], NOW - 1000);
    EXPECT_THAT(Metrics(), HasSubstr("vex_bench_seen_age_seconds{bench=\"ahead\"} 1\n"));
    Second(NOW - 10'000); // the page's own clock is put back
    EXPECT_THAT(Metrics(), HasSubstr("vex_bench_seen_age_seconds{bench=\"ahead\"} 0\n"));
    Second(NOW + 60'000);
    EXPECT_EQ(Presence(), "ahead away, never away, zero away") << "they have said nothing for a minute";
}

TEST_F(PageFleet, RatesAreThoseThatCameInEachStep)
{
    TakeRates(NOW + 1000, 10, 100);
    TakeRates(NOW + 3000, 20, 300);
    Second(NOW + 5000); // the mean of two
    TakeRates(NOW + 6000, 7, 70);
    Second(NOW + 10'000); // the one
    Second(NOW + 15'000); // none: the last one holds
    Second(NOW + 20'000); // none again
    TakeRates(NOW + 24'000, 9, 90);
    Second(NOW + 35'000); // two steps at once: the one, and it holds
    EXPECT_EQ(Bench()["rates"], json::parse(R"({"time":1700000035000,"step":5000,
        "records":[15,7,7,null,9,9,null],"bytes":[200,70,70,null,90,90,null]})"))
        << Bench()["rates"];
    Second(NOW + 36'000'000);
    EXPECT_EQ(Bench()["rates"]["bytes"], json(std::vector<json>(CBenchSteps::MOST))) << "nothing but null";
}

TEST_F(PageFleet, WhatLayInTheBucketLongBeforeIsNoRateOfNow)
{
    FLEET_BENCH_STATE stState = StateOf("b1", NOW - 15'000);
    stState.dRecordRate = 10;
    (void)Take(stState);
    Second(NOW + 5000);
    EXPECT_EQ(Bench()["rates"]["records"], json::parse("[null]"));
    EXPECT_EQ(Bench()["records_per_second"], 10.0);
    EXPECT_TRUE(Take(stState)) << "it is read again, and is no news";
    Second(NOW + 10'000);
    EXPECT_EQ(Bench()["rates"]["records"], json::parse("[null,null]"));
}

TEST_F(PageFleet, BenchesStandByNameAndGoAtOnce)
{
    for (const char* const pszBench : {"car-7", "b2", "b1"})
        (void)Take(StateOf(pszBench, NOW));
    Second(NOW);
    EXPECT_EQ(Presence(), "b1 live, b2 live, car-7 live");
    m_model.Forget("b2");
    m_model.Forget("unknown");
    EXPECT_EQ(Get("/api/bench", {{"bench", "b2"}}).nStatus, 404);
    EXPECT_EQ(m_model.Tick({"/api/events", {{"view", "bench"}, {"bench", "b2"}}}), nullptr);
    Second(NOW + 1000);
    EXPECT_EQ(Presence(), "b1 live, car-7 live");
    m_model.KeepOnly({"car-7", "other"});
    Second(NOW + 2000);
    EXPECT_EQ(Presence(), "car-7 live");
}

TEST_F(PageFleet, ThereIsRoomForSoManyBenches)
{
    for (size_t i = 0; i < CFleetBoard::MOST_BENCHES; ++i)
        ASSERT_TRUE(Take(StateOf("b" + std::to_string(i), NOW)));
    EXPECT_FALSE(Take(StateOf("more", NOW)));
    EXPECT_TRUE(Take(StateOf("b7", NOW + 1))) << "a known one";
    m_model.Forget("b8");
    EXPECT_TRUE(Take(StateOf("more", NOW)));
    EXPECT_EQ(View("/api/fleet")["benches"].size(), 5000u);
}

TEST_F(PageFleet, ATickIsMadeOnceForAll)
{
    (void)Take(StateOf("b1", NOW));
    Second(NOW);
    const PAGE_QUERY stFleet{"/api/events", {{"view", "fleet"}}};
    const PAGE_QUERY stBench{"/api/events", {{"view", "bench"}, {"bench", "b1"}}};
    const auto pFleet = m_model.Tick(stFleet);
    ASSERT_TRUE(pFleet);
    EXPECT_EQ(m_model.Tick(stFleet), pFleet);
    EXPECT_EQ(Get("/api/fleet").strBody, *pFleet) << "the same";
    ASSERT_TRUE(m_model.Tick(stBench));
    EXPECT_EQ(Get("/api/bench", {{"bench", "b1"}}).strBody, *m_model.Tick(stBench));
    Second(NOW + 1000);
    EXPECT_NE(m_model.Tick(stFleet), pFleet);
    for (const auto& mapArgs : std::vector<std::map<std::string, std::string>>{
             {}, {{"view", "overview"}}, {{"view", "bench"}}, {{"view", "bench"}, {"bench", "b9"}}})
        EXPECT_EQ(m_model.Tick({"/api/events", mapArgs}), nullptr);
}

TEST_F(PageFleet, WrongQuestionsAreAnsweredSo)
{
    EXPECT_EQ(Get("/api/bench").strBody, R"({"error":"bench has to be given"})");
    EXPECT_EQ(Get("/api/bench").nStatus, 400);
    EXPECT_EQ(Get("/api/bench", {{"bench", "b\"9"}}).strBody, R"({"error":"no bench was seen as b\"9"})");
    EXPECT_EQ(Get("/api/bench", {{"bench", "b9"}}).nStatus, 404);
}

TEST_F(PageFleet, MetricsTellOfEachBench)
{
    FLEET_BENCH_STATE stState = StateOf("b1", NOW - 1500);
    stState.dRecordRate = 10.5;
    stState.ullBacklogBytes = 1000;
    stState.ullBacklogMs = 2500;
    stState.ullLostSegments = 3;
    stState.ullDiskFree = 77;
    stState.vecModems = {{3, "A", {{.strChannel = "at", .bPresent = true}}}, {4, "B", {}}};
    (void)Take(stState);
    (void)Take(StateOf("b2", NOW - 20'000));
    m_model.SetHub({true, "nats://hub:4222", ""});
    const std::string strMetrics = Metrics();
    for (const char* const pszLine : {
             "vex_fleet_hub_connected 1\n",
             "vex_fleet_benches{state=\"live\"} 1\n",
             "vex_fleet_benches{state=\"late\"} 1\n",
             "vex_fleet_benches{state=\"away\"} 0\n",
             "vex_bench_seen_age_seconds{bench=\"b1\"} 1.5\n",
             "vex_bench_seen_age_seconds{bench=\"b2\"} 20\n",
             "vex_bench_records_per_second{bench=\"b1\"} 10.5\n",
             "vex_bench_modems{bench=\"b1\"} 1\n",
             "vex_bench_backlog_bytes{bench=\"b1\"} 1000\n",
             "vex_bench_backlog_age_seconds{bench=\"b1\"} 2.5\n",
             "# TYPE vex_bench_lost_segments_total counter\n",
             "vex_bench_lost_segments_total{bench=\"b1\"} 3\n",
             "vex_bench_disk_free_bytes{bench=\"b1\"} 77\n",
         })
        EXPECT_THAT(strMetrics, HasSubstr(pszLine));
    m_model.SetHub({});
    EXPECT_THAT(Metrics(), HasSubstr("vex_fleet_hub_connected 0\n"));
    m_model.Forget("b1");
    EXPECT_THAT(Metrics(), Not(HasSubstr("b1")));
}

TEST_F(PageFleet, NastyNamesStayWithinTheirLabels)
{
    (void)Take(StateOf("a\"} 1\nb\\", NOW));
    EXPECT_THAT(Metrics(), HasSubstr("vex_bench_modems{bench=\"a\\\"} 1\\nb\\\\\"} 0\n"));
}

TEST_F(PageFleet, TextThatIsNoUtf8IsReplaced)
{
    FLEET_BENCH_STATE stState = StateOf("b1", NOW);
    stState.vecModems = {{0, "cut \xE2\x82", {}}};
    (void)Take(stState);
    EXPECT_EQ(Bench()["modems"][0]["name"], "cut \xEF\xBF\xBD");
}
