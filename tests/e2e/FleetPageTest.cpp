#include "e2e/HubBench.h"
#include "e2e/Hubs.h"
#include "fleet/FleetState.h"
#include "support/HttpClient.h"
#include "support/WaitFor.h"

#include <chrono>
#include <csignal>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

// vex-page --fleet in front of three real servers, with benches that the test plays itself.

namespace
{
using nlohmann::json;
using std::chrono::milliseconds;
using testing::HasSubstr;

constexpr uint16_t PAGE_PORT = 8280;
constexpr std::chrono::seconds LIMIT{30};

uint64_t NowMs()
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<uint64_t>(std::chrono::duration_cast<milliseconds>(now).count());
}

class FleetPage : public testing::Test
{
protected:
    FleetPage() : m_hubs({"b1", "b2"}) {}

    void StartPage(const std::string& strCertificate = "lab")
    {
        std::vector<std::string> args = m_hubs.Options(strCertificate);
        args.insert(args.begin(), "--fleet");
        m_pPage = std::make_unique<CVexProcess>(std::string(VEX_BIN_DIR) + "/vex-page", args, m_hubs.Dir().Path());
        ASSERT_TRUE(WaitFor([&] { return PageSaid("serving http://") == 1; })) << m_pPage->Errors();
    }
    /// How many lines hold the text.
    size_t PageSaid(const std::string& strText) const
    {
        const std::string strLines = m_pPage->Errors();
        size_t szCount = 0;
        for (size_t szAt = strLines.find(strText); szAt != std::string::npos; szAt = strLines.find(strText, szAt + 1))
            ++szCount;
        return szCount;
    }

    static json Ask(const std::string& strAddress)
    {
        const HTTP_ANSWER stAnswer = HttpGet(PAGE_PORT, strAddress);
        EXPECT_EQ(stAnswer.nStatus, 200) << strAddress << ": " << stAnswer.strBody;
        return json::parse(stAnswer.strBody, nullptr, false);
    }
    /// Asks for the fleet until it is as wanted; a tick is a second old at most.
    template <class Condition> static bool Await(Condition condition)
    {
        return WaitFor(
            [&] {
                std::this_thread::sleep_for(milliseconds(50)); // each look is a connection
                return condition(Ask("/api/fleet"));
            },
            LIMIT);
    }
    static bool AwaitHub(bool bConnected, const std::string& strError = "")
    {
        return Await([&](const json& fleet) {
            return fleet["hub"]["connected"] == bConnected &&
                   fleet["hub"]["error"].get<std::string>().starts_with(strError) &&
                   (fleet["hub"]["error"] == "") == strError.empty();
        });
    }
    /// Puts a state of the bench into the bucket, under the bench's own name or another one.
    natsStatus Put(const std::string& strBench, double dRecordRate, const std::string& strName = "")
    {
        FLEET_BENCH_STATE stState;
        stState.strBench = strName.empty() ? strBench : strName;
        stState.ullTime = NowMs();
        stState.dRecordRate = dRecordRate;
        return PutText(strBench, StateToJson(stState));
    }
    natsStatus PutText(const std::string& strBench, const std::string& strText)
    {
        CHubBench bench(m_hubs.HubOptions(strBench), strBench);
        return bench.IsConnected() ? bench.PutState(strText) : NATS_NO_SERVER;
    }
    /// Deletes a bench's key, as the lab.
    natsStatus Delete(const std::string& strBench)
    {
        std::string strError;
        const auto pHub = CHub::Open(m_hubs.HubOptions("lab"), {}, CHub::PATIENCE::ONCE, strError);
        if (!pHub)
            return NATS_NO_SERVER;
        jsCtx* pJs = nullptr;
        natsStatus enStatus = natsConnection_JetStream(&pJs, pHub->Get(), nullptr);
        const JsContext context(pJs);
        kvStore* pStore = nullptr;
        if (enStatus == NATS_OK)
            enStatus = js_KeyValue(&pStore, pJs, "vex-benches");
        const KvStore store(pStore);
        return enStatus == NATS_OK ? kvStore_Delete(pStore, strBench.c_str()) : enStatus;
    }
    static bool Shows(const json& fleet, const std::string& strBench, double dRecordRate)
    {
        return std::ranges::any_of(fleet["benches"], [&](const json& bench) {
            return bench["bench"] == strBench && bench["records_per_second"] == dRecordRate;
        });
    }

    CHubs m_hubs;
    std::unique_ptr<CVexProcess> m_pPage;
};
} // namespace

TEST_F(FleetPage, BenchesComeAndGoAndWhatIsNoneIsToldOnce)
{
    m_hubs.Start();
    StartPage();
    ASSERT_TRUE(AwaitHub(true, "the hub has no bucket vex-benches; vex-fleet init makes it"));
    ASSERT_TRUE(m_hubs.Init());
    ASSERT_TRUE(AwaitHub(true));
    EXPECT_EQ(HttpGet(PAGE_PORT, "/healthz").strBody, "ok\n");
    EXPECT_EQ(Ask("/api/page")["source"], "fleet");
    EXPECT_EQ(HttpGet(PAGE_PORT, "/api/overview").nStatus, 404);
    EXPECT_EQ(HttpPost(PAGE_PORT, "/api/control", "{}").nStatus, 404);

    // A viewer sees a bench's news in one of the ticks.
    CHttpClient viewer(PAGE_PORT);
    ASSERT_TRUE(viewer.Send("GET", "/api/events?view=fleet"));
    ASSERT_EQ(viewer.ReceiveHead().nStatus, 200);
    EXPECT_EQ(viewer.ReceiveEvent(), "retry: 1000\n\n");
    ASSERT_EQ(Put("b1", 5210), NATS_OK);
    EXPECT_TRUE(WaitFor([&] {
        const std::string strEvent = viewer.ReceiveEvent();
        return Shows(json::parse(strEvent.substr(strEvent.find('{')), nullptr, false), "b1", 5210);
    }));
    EXPECT_EQ(Ask("/api/bench?bench=b1")["bench"]["state"], "live");

    ASSERT_EQ(PutText("b2", "<script>"), NATS_OK);
    ASSERT_EQ(PutText("b2", "{}"), NATS_OK);
    ASSERT_EQ(Put("b2", 1, "b1"), NATS_OK) << "the bucket lets it say that it is another one";
    ASSERT_EQ(Put("b2", 2), NATS_OK);
    ASSERT_TRUE(Await([&](const json& fleet) { return Shows(fleet, "b2", 2); }));
    EXPECT_EQ(PageSaid("what stands for b2 isn't a bench's state"), 1u);
    EXPECT_TRUE(Shows(Ask("/api/fleet"), "b1", 5210)) << "it is what its own key says";

    m_hubs.Dir().Write("metrics", HttpGet(PAGE_PORT, "/metrics").strBody);
    CVexProcess promtool("/bin/sh", {"-c", "promtool check metrics <metrics"}, m_hubs.Dir().Path());
    EXPECT_EQ(promtool.WaitExit(), 0) << promtool.Output() << promtool.Errors();
    EXPECT_THAT(m_hubs.Dir().Read("metrics"), HasSubstr("vex_bench_records_per_second{bench=\"b1\"} 5210\n"));

    ASSERT_EQ(Delete("b2"), NATS_OK);
    EXPECT_TRUE(Await([&](const json& fleet) { return fleet["benches"].size() == 1; }));
    EXPECT_EQ(HttpGet(PAGE_PORT, "/api/bench?bench=b2").nStatus, 404);
    m_pPage->Signal(SIGTERM);
    EXPECT_EQ(m_pPage->WaitExit(), 0) << m_pPage->Errors();
}

TEST_F(FleetPage, AHubThatGoesIsWaitedForAndTheBenchesStay)
{
    StartPage(); // before any hub
    ASSERT_TRUE(AwaitHub(false, "no hub at tls://127.0.0.1:4221,"));
    EXPECT_THAT(HttpGet(PAGE_PORT, "/healthz").strBody, HasSubstr("ok, but there is no hub at tls://127.0.0.1:4221,"));
    m_hubs.Start();
    ASSERT_TRUE(m_hubs.Init());
    ASSERT_EQ(Put("b1", 1), NATS_OK);
    ASSERT_TRUE(Await([&](const json& fleet) { return Shows(fleet, "b1", 1); }));

    const size_t szLeader = m_hubs.StreamLeader();
    ASSERT_LT(szLeader, CHubs::COUNT);
    m_hubs.Kill(szLeader); // the others go on; whatever the page had there is made anew
    EXPECT_TRUE(WaitFor([&] { return Put("b1", 2) == NATS_OK; }, LIMIT));
    EXPECT_TRUE(Await([&](const json& fleet) { return Shows(fleet, "b1", 2); }));

    for (size_t i = 0; i < CHubs::COUNT; ++i)
        m_hubs.Kill(i);
    ASSERT_TRUE(AwaitHub(false, "no hub at "));
    EXPECT_TRUE(Shows(Ask("/api/fleet"), "b1", 2));
    EXPECT_EQ(Ask("/api/fleet")["hub"]["server"], "");
    m_hubs.Start();
    EXPECT_TRUE(WaitFor([&] { return Put("b1", 3) == NATS_OK; }, LIMIT));
    EXPECT_TRUE(Await([&](const json& fleet) { return Shows(fleet, "b1", 3) && fleet["hub"]["connected"] == true; }));
    m_pPage->Signal(SIGTERM);
    EXPECT_EQ(m_pPage->WaitExit(), 0) << m_pPage->Errors();
}

TEST_F(FleetPage, ABenchsCertificateShowsNothingAndSaysWhy)
{
    m_hubs.Start();
    ASSERT_TRUE(m_hubs.Init());
    StartPage("b1");
    EXPECT_TRUE(AwaitHub(true, "bucket vex-benches: Timeout; Permissions Violation for Publish to"));
    m_pPage.reset();
    StartPage("stranger");
    EXPECT_TRUE(AwaitHub(false, "no hub at " + HubNames(m_hubs.HubOptions("lab")) + ": Authentication Violation"));
}

TEST_F(FleetPage, ACertificateThatCantBeReadIsSaid)
{
    CVexProcess page(std::string(VEX_BIN_DIR) + "/vex-page", {"--fleet", "--cert", "none.pem", "--key", "none.key"},
                     m_hubs.Dir().Path());
    EXPECT_EQ(page.WaitExit(), 2);
    EXPECT_THAT(page.Errors(), HasSubstr("none.pem, none.key"));
}
