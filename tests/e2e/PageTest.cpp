#include "e2e/AgentBench.h"
#include "support/HttpClient.h"
#include "support/WaitFor.h"

#include <csignal>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

// The real vex-page between the real agent, simulated modems and HTTP clients.

namespace
{
using nlohmann::json;
using std::chrono::milliseconds;
using testing::HasSubstr;

constexpr uint16_t PAGE_PORT = 8280;
constexpr const char* DECODING = R"({"ue":0,"kind":"stat","name":"decoding","period_ms":500})";
constexpr const char* STOP_DECODING = R"({"ue":0,"kind":"stat","name":"decoding","start":false})";
constexpr const char* CELLS = R"({"ue":0,"kind":"report","name":"cells","period_ms":500})";

class PageTest : public testing::Test
{
protected:
    PageTest() { m_bench.AddConfig("TapSocket = " + Tap() + "\n"); }

    std::string Tap() const { return m_bench.Dir().Path() + "/tap"; }
    void StartPage(const std::vector<std::string>& more = {})
    {
        std::vector<std::string> args = {"--tap", Tap()};
        args.insert(args.end(), more.begin(), more.end());
        m_pPage = std::make_unique<CVexProcess>(std::string(VEX_BIN_DIR) + "/vex-page", args, m_bench.Dir().Path());
        ASSERT_TRUE(WaitFor([&] { return PageSaid("serving http://"); })) << m_pPage->Errors();
    }
    bool PageSaid(const std::string& strText) const { return m_pPage->Errors().find(strText) != std::string::npos; }
    /// An agent with a modem of a register stream, which the page shows as confirmed.
    void StartAll(const std::vector<std::string>& pageArgs = {})
    {
        m_bench.StartAgent();
        ASSERT_TRUE(m_bench.Logged("Read Agent Msg Thread Create OK!"));
        StartPage(pageArgs);
        StartModem();
    }
    void StartModem()
    {
        m_pModem =
            &m_bench.StartModem({"--ues", "1", "--first-port", "101", "--lte-rate", "50", "--lte-start-on-switch"});
        ASSERT_TRUE(AwaitState("confirmed"));
    }

    static json Ask(const std::string& strAddress)
    {
        const HTTP_ANSWER stAnswer = HttpGet(PAGE_PORT, strAddress);
        EXPECT_EQ(stAnswer.nStatus, 200) << strAddress << ": " << stAnswer.strBody;
        return json::parse(stAnswer.strBody, nullptr, false);
    }
    /// The newest tick of the overview; each is a second old at most.
    static json Overview() { return Ask("/api/overview"); }
    static bool AwaitState(const std::string& strState)
    {
        return WaitFor(
            [&] {
                const json modems = Overview()["modems"];
                std::this_thread::sleep_for(milliseconds(50)); // each look is a connection
                return !modems.empty() && modems[0]["state"] == strState;
            },
            std::chrono::seconds(20));
    }
    static bool AwaitConnected(bool bConnected)
    {
        return WaitFor([&] {
            std::this_thread::sleep_for(milliseconds(50));
            return Overview()["agent"]["connected"] == bConnected;
        });
    }
    static HTTP_ANSWER Order(const std::string& strBody) { return HttpPost(PAGE_PORT, "/api/control", strBody); }
    /// The same until it goes well: a modem that was just confirmed hasn't told its registers yet.
    static bool Starts(const std::string& strBody)
    {
        return WaitFor([&] {
            std::this_thread::sleep_for(milliseconds(50));
            return Order(strBody).strBody == R"({"ok":true})";
        });
    }
    /// Whether nobody holds the GU command channel of the modem any more.
    bool IsGuFree() { return m_bench.BoundClient(CHANNEL_GU_CMD, 101)->IsOpen(); }

    CAgentBench m_bench;
    std::unique_ptr<CVexProcess> m_pPage;
    CVexProcess* m_pModem = nullptr;
};
} // namespace

TEST_F(PageTest, TheOverviewShowsTheModemAsAClientSeesIt)
{
    StartAll();
    const json overview = Overview();
    EXPECT_TRUE(overview["agent"]["connected"]);
    EXPECT_FALSE(overview["control"]);
    ASSERT_EQ(overview["modems"].size(), 1U);
    const json modem = overview["modems"][0];
    CVexProcess& client = m_bench.StartClient({"--json", "--bind", "101", "version"});
    ASSERT_EQ(client.WaitExit(), 0);
    EXPECT_THAT(client.Output(), HasSubstr("\"version\":" + modem["version"].dump()));
    EXPECT_THAT(client.Output(), HasSubstr("\"imei\":" + modem["imei"].dump()));
    std::map<std::string, int> mapPorts;
    for (const json& channel : modem["channels"])
        mapPorts[channel["channel"]] = channel["port"];
    EXPECT_EQ(mapPorts, (std::map<std::string, int>{
                            {"lte-diag", 101}, {"lte-data", 102}, {"gu-cmd", 103}, {"gu-data", 103}, {"at", 104}}));
    EXPECT_EQ(HttpGet(PAGE_PORT, "/healthz").strBody, "ok\n");
}

TEST_F(PageTest, ControlIsOffUnlessItIsAskedFor)
{
    StartAll();
    const HTTP_ANSWER stAnswer = Order(DECODING);
    EXPECT_EQ(stAnswer.nStatus, 403);
    EXPECT_EQ(stAnswer.strBody, R"({"error":"control is off; start vex-page with --control"})");
    EXPECT_FALSE(Ask("/api/control?ue=0")["enabled"]);
    EXPECT_TRUE(IsGuFree());
}

TEST_F(PageTest, WhatIsStartedRunsAndHoldsTheChannelUntilItIsStopped)
{
    StartAll({"--control"});
    ASSERT_TRUE(Starts(DECODING));
    const json running = Ask("/api/control?ue=0");
    ASSERT_EQ(running["running"].size(), 1U);
    EXPECT_EQ(running["running"][0]["name"], "decoding");
    EXPECT_EQ(running["running"][0]["period_ms"], 500);
    EXPECT_EQ(running["held_by"], nullptr) << "the page itself isn't in its way";
    EXPECT_FALSE(IsGuFree());
    const auto hasPoints = [&] {
        const HTTP_ANSWER stAnswer = HttpGet(PAGE_PORT, "/api/plot?ue=0&plot=stat/decoding");
        return stAnswer.nStatus == 200 && json::parse(stAnswer.strBody)["t"].size() >= 3;
    };
    EXPECT_TRUE(WaitFor(hasPoints));
    // A viewer gets them as they come.
    CHttpClient viewer(PAGE_PORT);
    ASSERT_TRUE(viewer.Send("GET", "/api/events?view=modem&ue=0"));
    ASSERT_EQ(viewer.ReceiveHead().nStatus, 200);
    EXPECT_EQ(viewer.ReceiveEvent(), "retry: 1000\n\n");
    (void)viewer.ReceiveEvent();
    const std::string strEvent = viewer.ReceiveEvent();
    const json tick = json::parse(strEvent.substr(strEvent.find('{')), nullptr, false);
    EXPECT_FALSE(tick["new"]["stat/decoding"]["t"].empty());

    ASSERT_EQ(Order(STOP_DECODING).strBody, R"({"ok":true})");
    EXPECT_TRUE(WaitFor([&] { return IsGuFree(); }));
    EXPECT_EQ(Ask("/api/control?ue=0")["running"].size(), 0U);
    EXPECT_EQ(Order(STOP_DECODING).strBody, R"({"ok":false,"error":"decoding wasn't started from this page"})");
}

TEST_F(PageTest, AClientThatHoldsTheChannelIsNamed)
{
    StartAll({"--control"});
    const auto pClient = m_bench.BoundClient(CHANNEL_GU_CMD, 103);
    ASSERT_TRUE(pClient->IsOpen());
    const auto holder = [] { return Ask("/api/control?ue=0")["held_by"]; };
    ASSERT_TRUE(WaitFor([&] { return !holder().is_null(); }));
    EXPECT_EQ(holder()["address"], "127.0.0.1");
    const HTTP_ANSWER stAnswer = Order(DECODING);
    EXPECT_EQ(stAnswer.nStatus, 409);
    EXPECT_EQ(json::parse(stAnswer.strBody)["error"],
              "another client holds GU command of port 103: 127.0.0.1, client " +
                  std::to_string(holder()["client"].get<int>()));
    EXPECT_EQ(Ask("/api/control?ue=0")["running"].size(), 0U);
    EXPECT_EQ(Order(R"({"ue":7,"kind":"stat","name":"sir"})").strBody,
              R"({"ok":false,"error":"the modem has no GU channel now"})");
}

TEST_F(PageTest, ReportsStopWithThePage)
{
    StartAll({"--control"});
    ASSERT_TRUE(Starts(CELLS));
    ASSERT_TRUE(Starts(DECODING));
    m_pPage->Signal(SIGTERM);
    EXPECT_EQ(m_pPage->WaitExit(), 0);
    // Two periods in which whoever holds the channels would get what still runs.
    const auto pData = m_bench.BoundClient(CHANNEL_GU_DATA, 103);
    ASSERT_TRUE(pData->IsOpen());
    EXPECT_TRUE(pData->IsSilent(milliseconds(1100)));
}

TEST_F(PageTest, AnAgentThatRestartsIsShownAgainAndControlSaysThatItsReportsEnded)
{
    StartPage({"--control"}); // before any agent
    EXPECT_TRUE(WaitFor([&] { return PageSaid("waiting for an agent at " + Tap()); }));
    EXPECT_THAT(HttpGet(PAGE_PORT, "/healthz").strBody, HasSubstr("there is no agent at"));
    m_bench.StartAgent();
    ASSERT_TRUE(AwaitConnected(true));
    StartModem();
    ASSERT_TRUE(Starts(DECODING));
    const std::string strRun = Overview()["agent"]["run"];

    m_bench.Agent().Signal(SIGTERM);
    ASSERT_EQ(m_bench.Agent().WaitExit(), 0);
    ASSERT_TRUE(AwaitConnected(false));
    const auto hasEnded = [] { return Ask("/api/control?ue=0")["running"].empty(); };
    EXPECT_TRUE(WaitFor(hasEnded));
    EXPECT_EQ(Ask("/api/control?ue=0")["error"],
              "the agent has closed the connection: what was started here has ended");
    m_pModem->Signal(SIGTERM);
    ASSERT_TRUE(m_pModem->WaitExit());

    m_bench.StartAgent();
    ASSERT_TRUE(AwaitConnected(true));
    StartModem();
    EXPECT_NE(Overview()["agent"]["run"], strRun);
    EXPECT_TRUE(Starts(DECODING));
}

TEST_F(PageTest, TheMetricsAreAsPrometheusWantsThem)
{
    StartAll();
    m_bench.Dir().Write("metrics", HttpGet(PAGE_PORT, "/metrics").strBody);
    CVexProcess promtool("/bin/sh", {"-c", "promtool check metrics <metrics"}, m_bench.Dir().Path());
    ASSERT_TRUE(promtool.WaitExit());
    EXPECT_EQ(promtool.WaitExit(), 0) << promtool.Output() << promtool.Errors();
}

TEST_F(PageTest, BeyondThisMachineATokenIsNeeded)
{
    CVexProcess page(std::string(VEX_BIN_DIR) + "/vex-page", {"--listen", "0.0.0.0:8280"}, m_bench.Dir().Path());
    EXPECT_EQ(page.WaitExit(), 1);
    EXPECT_THAT(page.Errors(), HasSubstr("0.0.0.0:8280 is reached from other machines: give --token-file or --token"));
    StartPage({"--listen", "0.0.0.0:8280", "--token", "0123456789abcdef"});
    EXPECT_EQ(HttpGet(PAGE_PORT, "/api/overview").nStatus, 401);
    EXPECT_EQ(HttpGet(PAGE_PORT, "/api/overview", "Authorization: Bearer 0123456789abcdef\r\n").nStatus, 200);
    CVexProcess second(std::string(VEX_BIN_DIR) + "/vex-page", {}, m_bench.Dir().Path());
    EXPECT_EQ(second.WaitExit(), 2);
    EXPECT_THAT(second.Errors(), HasSubstr("127.0.0.1:8280: Address already in use"));
}
