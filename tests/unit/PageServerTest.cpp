#include "page/PageServer.h"
#include "support/HttpClient.h"
#include "support/VexProcess.h"
#include "support/WaitFor.h"

#include <atomic>
#include <gmock/gmock.h>
#include <mutex>
#include <thread>

// The real server on a loopback port, in front of views that the test makes up.

namespace
{
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* ORDER = R"({"ue":0,"kind":"stat","name":"sir"})";

/// Knows /api/echo, /api/big and the stream "overview".
class CFakeViews : public IPageViews
{
public:
    std::optional<PAGE_ANSWER> Get(const PAGE_QUERY& stQuery) override
    {
        if (stQuery.strPath == "/api/big")
            return PAGE_ANSWER{200, "text/plain", std::string(szBig, 'b'), "big.txt"};
        if (stQuery.strPath == "/metrics")
            return PAGE_ANSWER{200, "text/plain", "views_metric 1\n", ""};
        if (stQuery.strPath != "/api/echo")
            return std::nullopt;
        std::string strBody;
        for (const auto& [strName, strValue] : stQuery.mapArgs)
            strBody += strName + "=" + strValue + ";";
        return PAGE_ANSWER{200, "text/plain", strBody, ""};
    }
    std::shared_ptr<const std::string> Tick(const PAGE_QUERY& stQuery) override
    {
        const std::lock_guard guard(m_lock);
        const auto found = stQuery.mapArgs.find("view");
        return found != stQuery.mapArgs.end() && found->second == "overview" ? m_pTick : nullptr;
    }
    void SetTick(std::string strText)
    {
        const std::lock_guard guard(m_lock);
        m_pTick = std::make_shared<std::string>(std::move(strText));
    }
    std::weak_ptr<const std::string> Newest()
    {
        const std::lock_guard guard(m_lock);
        return m_pTick;
    }

    size_t szBig = size_t{100} * 1024 * 1024;

private:
    std::mutex m_lock;
    std::shared_ptr<const std::string> m_pTick = std::make_shared<std::string>("{}");
};

class PageServerTest : public testing::Test
{
protected:
    PageServerTest()
    {
        m_dir.Write("index.html", "the page");
        m_dir.Write("app.js", "the script");
        m_stSettings.stAccess.stListen.usPort = 0;
        m_stSettings.strWeb = m_dir.Path();
        m_stSettings.health = [] { return "ok"; };
        m_stSettings.order = [](const CONTROL_ORDER&, const std::function<void(PAGE_ANSWER)>& done) {
            done({200, "application/json", R"({"ok":true})", ""});
        };
    }

    uint16_t Start()
    {
        std::string strError;
        m_pServer = CPageServer::Start(m_stSettings, m_views, strError);
        EXPECT_TRUE(m_pServer) << strError;
        return m_pServer ? m_pServer->Port() : uint16_t{0};
    }
    void Tick(const std::string& strText)
    {
        m_views.SetTick(strText);
        m_pServer->Tick();
    }
    /// A viewer of the overview that has got the head of its stream.
    static std::unique_ptr<CHttpClient> View(uint16_t usPort)
    {
        auto pViewer = std::make_unique<CHttpClient>(usPort);
        EXPECT_TRUE(pViewer->Send("GET", "/api/events?view=overview"));
        const HTTP_ANSWER stHead = pViewer->ReceiveHead();
        EXPECT_EQ(stHead.nStatus, 200);
        EXPECT_EQ(stHead.mapHeaders.at("content-type"), "text/event-stream");
        EXPECT_EQ(pViewer->ReceiveEvent(), "retry: 1000\n\n");
        return pViewer;
    }

    CTempDir m_dir;
    CFakeViews m_views;
    CPageServer::SETTINGS m_stSettings;
    std::unique_ptr<CPageServer> m_pServer;
};
} // namespace

TEST_F(PageServerTest, EachPathHasItsAnswer)
{
    const uint16_t usPort = Start();
    const struct
    {
        const char* pszMethod;
        const char* pszAddress;
        int nStatus;
        const char* pszBody;
    } c_astCase[] = {
        {"GET", "/healthz", 200, "ok\n"},
        {"GET", "/", 200, "the page"},
        {"GET", "/modem?ue=1", 200, "the page"},
        {"GET", "/app.js", 200, "the script"},
        {"GET", "/api/echo?b=2&a=%41+b&a=3", 200, "a=A b;b=2;"},
        {"GET", "/none", 404, R"({"error":"there is nothing at /none"})"},
        {"GET", "/../app.js", 404, R"({"error":"there is nothing at /../app.js"})"},
        {"GET", "/%2e%2e/app.js", 404, R"({"error":"there is nothing at /../app.js"})"},
        {"GET", "/api/events?view=other", 404,
         R"({"error":"there is no such view, or nothing was seen of what it shows"})"},
        {"PUT", "/app.js", 405, R"({"error":"PUT isn't answered here"})"},
        {"POST", "/api/echo", 405, R"({"error":"POST isn't answered here"})"},
        {"DELETE", "/api/control", 405, R"({"error":"DELETE isn't answered here"})"},
    };
    for (const auto& stCase : c_astCase) {
        CHttpClient client(usPort);
        ASSERT_TRUE(client.Send(stCase.pszMethod, stCase.pszAddress));
        const HTTP_ANSWER stAnswer = client.Receive();
        EXPECT_EQ(stAnswer.nStatus, stCase.nStatus) << stCase.pszAddress;
        EXPECT_EQ(stAnswer.strBody, stCase.pszBody) << stCase.pszAddress;
    }
    EXPECT_EQ(HttpGet(usPort, "/metrics").strBody.find("views_metric 1\n# HELP vex_page_viewers"), 0U);
}

TEST_F(PageServerTest, EveryAnswerHasTheHeadersThatKeepThePageAlone)
{
    const uint16_t usPort = Start();
    for (const char* pszAddress : {"/", "/app.js", "/api/echo", "/none", "/metrics"}) {
        auto stAnswer = HttpGet(usPort, pszAddress);
        EXPECT_THAT(stAnswer.mapHeaders["content-security-policy"], StartsWith("default-src 'self';")) << pszAddress;
        EXPECT_EQ(stAnswer.mapHeaders["x-content-type-options"], "nosniff") << pszAddress;
        EXPECT_EQ(stAnswer.mapHeaders["referrer-policy"], "no-referrer") << pszAddress;
        EXPECT_FALSE(stAnswer.mapHeaders.contains("access-control-allow-origin")) << pszAddress;
    }
    EXPECT_EQ(HttpGet(usPort, "/api/echo").mapHeaders["cache-control"], "no-store");
}

TEST_F(PageServerTest, AFileThatTheBrowserHasIsNotSentAgain)
{
    const uint16_t usPort = Start();
    auto stFirst = HttpGet(usPort, "/app.js");
    EXPECT_EQ(stFirst.mapHeaders["cache-control"], "no-cache");
    const std::string strTag = stFirst.mapHeaders["etag"];
    ASSERT_NE(strTag, "");
    EXPECT_EQ(HttpGet(usPort, "/app.js", "If-None-Match: " + strTag + "\r\n").nStatus, 304);
    EXPECT_EQ(HttpGet(usPort, "/app.js", "If-None-Match: \"other\"\r\n").nStatus, 200);
}

TEST_F(PageServerTest, ForeignHostsAndOriginsAreRefusedWhateverTheyAskFor)
{
    m_stSettings.bControl = true;
    const uint16_t usPort = Start();
    for (const char* pszAddress : {"/", "/app.js", "/api/echo", "/api/events?view=overview", "/metrics", "/healthz"}) {
        EXPECT_EQ(HttpGet(usPort, pszAddress, "Host: evil.example\r\n").nStatus, 403) << pszAddress;
        EXPECT_EQ(HttpGet(usPort, pszAddress, "Origin: http://evil.example\r\n").nStatus, 403) << pszAddress;
    }
    EXPECT_EQ(HttpPost(usPort, "/api/control", ORDER, "Host: evil.example\r\n").nStatus, 403);
    EXPECT_EQ(HttpPost(usPort, "/api/control", ORDER, "Origin: null\r\n").nStatus, 403);
    const std::string strOwn = "Origin: http://localhost:" + std::to_string(usPort) + "\r\n";
    EXPECT_EQ(HttpPost(usPort, "/api/control", ORDER, strOwn).nStatus, 200);
    EXPECT_THAT(HttpGet(usPort, "/metrics").strBody, HasSubstr("\nvex_page_http_refused_total 14\n"));
}

TEST_F(PageServerTest, WithATokenNothingIsServedWithoutIt)
{
    m_stSettings.stAccess.strToken = "0123456789abcdef";
    const uint16_t usPort = Start();
    for (const char* pszAddress : {"/", "/app.js", "/api/echo", "/api/events?view=overview", "/metrics"}) {
        auto stAnswer = HttpGet(usPort, pszAddress);
        EXPECT_EQ(stAnswer.nStatus, 401) << pszAddress;
        EXPECT_EQ(stAnswer.mapHeaders["www-authenticate"], "Bearer");
    }
    EXPECT_EQ(HttpGet(usPort, "/healthz").nStatus, 200);
    EXPECT_EQ(HttpGet(usPort, "/api/echo", "Authorization: Bearer 0123456789abcdef\r\n").nStatus, 200);
    EXPECT_EQ(HttpGet(usPort, "/api/echo", "Authorization: Bearer 0123456789abcdeF\r\n").nStatus, 401);

    auto stPage = HttpGet(usPort, "/modem?token=0123456789abcdef");
    EXPECT_EQ(stPage.nStatus, 303);
    EXPECT_EQ(stPage.mapHeaders["location"], "/modem");
    const std::string strCookie = stPage.mapHeaders["set-cookie"];
    EXPECT_EQ(strCookie, "vex_page_token=0123456789abcdef; Path=/; HttpOnly; SameSite=Strict");
    EXPECT_EQ(HttpGet(usPort, "/", "Cookie: vex_page_token=0123456789abcdef\r\n").strBody, "the page");
    EXPECT_EQ(HttpGet(usPort, "/?token=wrong").nStatus, 401);
    // The views never see it.
    EXPECT_EQ(HttpGet(usPort, "/api/echo?token=0123456789abcdef&a=1").strBody, "a=1;");
}

TEST_F(PageServerTest, AnOrderNeedsControlAndABodyThatIsOne)
{
    uint16_t usPort = Start();
    EXPECT_EQ(HttpPost(usPort, "/api/control", ORDER).nStatus, 403);
    m_pServer.reset();
    m_stSettings.bControl = true;
    usPort = Start();
    EXPECT_EQ(HttpPost(usPort, "/api/control", ORDER).strBody, R"({"ok":true})");
    EXPECT_EQ(HttpPost(usPort, "/api/control", "{}").nStatus, 400);
    EXPECT_EQ(HttpPost(usPort, "/api/control", ORDER, "Content-Type: text/plain\r\n").nStatus, 400);
    const std::string strLong(CPageServer::LARGEST_BODY, ' ');
    EXPECT_EQ(HttpPost(usPort, "/api/control", strLong.substr(std::string(ORDER).size()) + ORDER).nStatus, 200);
    EXPECT_EQ(HttpPost(usPort, "/api/control", strLong + " ").nStatus, 413);
    // Longer than it said: the connection ends.
    CHttpClient chunked(usPort);
    ASSERT_TRUE(
        chunked.Send("POST", "/api/control", "Transfer-Encoding: chunked\r\nContent-Type: application/json\r\n"));
    ASSERT_TRUE(SendAll(chunked.Fd(), AsBytes("8000\r\n" + strLong + strLong)));
    EXPECT_TRUE(SawClose(chunked.Fd()));
    EXPECT_EQ(HttpGet(usPort, "/healthz").nStatus, 200);
}

TEST_F(PageServerTest, AnOrderThatTakesLongHoldsUpNobody)
{
    m_stSettings.bControl = true;
    std::mutex lock;
    std::function<void(PAGE_ANSWER)> answer;
    m_stSettings.order = [&](const CONTROL_ORDER&, std::function<void(PAGE_ANSWER)> done) {
        const std::lock_guard guard(lock);
        answer = std::move(done);
    };
    const uint16_t usPort = Start();
    CHttpClient client(usPort);
    ASSERT_TRUE(client.Send("POST", "/api/control", "Content-Type: application/json\r\n", ORDER));
    const auto isUnderWay = [&] {
        const std::lock_guard guard(lock);
        return answer != nullptr;
    };
    ASSERT_TRUE(WaitFor(isUnderWay));
    EXPECT_EQ(HttpGet(usPort, "/healthz").nStatus, 200);
    answer(PAGE_ANSWER{409, "application/json", "late", ""});
    const HTTP_ANSWER stAnswer = client.Receive();
    EXPECT_EQ(stAnswer.nStatus, 409);
    EXPECT_EQ(stAnswer.strBody, "late");
}

TEST_F(PageServerTest, AViewerGetsEachTickInOrder)
{
    const uint16_t usPort = Start();
    Tick("{\"n\":1}");
    const auto pViewer = View(usPort);
    EXPECT_EQ(pViewer->ReceiveEvent(), "id: 1\ndata: {\"n\":1}\n\n") << "the newest one at once";
    for (int i = 2; i <= 20; ++i) {
        const std::string strText = "{\"n\":" + std::to_string(i) + "}";
        Tick(strText);
        EXPECT_EQ(pViewer->ReceiveEvent(), "id: " + std::to_string(i) + "\ndata: " + strText + "\n\n");
    }
    EXPECT_EQ(m_pServer->Viewers(), 1U);
}

TEST_F(PageServerTest, AViewerThatStallsGoesOnWithTheNewestTickAndHoldsNothingUp)
{
    const uint16_t usPort = Start();
    const std::string strBig(size_t{1024} * 1024, 'x'); // ticks that no socket's buffer holds
    const auto pStalled = View(usPort);
    const auto pReader = View(usPort);
    const auto lastOf = [](const std::string& strEvent) { return strEvent.substr(strEvent.size() - 5, 3); };
    for (int i = 101; i <= 150; ++i) {
        Tick(strBig + std::to_string(i));
        ASSERT_EQ(lastOf(pReader->ReceiveEvent()), std::to_string(i));
    }
    // It has the one that was under way, and then the newest.
    std::string strFirst = pStalled->ReceiveEvent();
    int nBefore = 0;
    for (; lastOf(strFirst) != "150" && !strFirst.empty(); ++nBefore)
        strFirst = pStalled->ReceiveEvent();
    EXPECT_EQ(lastOf(strFirst), "150");
    EXPECT_LT(nBefore, 20) << "what the sockets had room for";
}

TEST_F(PageServerTest, AViewerThatTakesNothingForLongIsCutOff)
{
    m_stSettings.ulIdleSeconds = 1;
    const uint16_t usPort = Start();
    const auto pStalled = View(usPort);
    Tick(std::string(size_t{16} * 1024 * 1024, 'x')); // more than the sockets hold
    ASSERT_EQ(m_pServer->Viewers(), 1U);
    EXPECT_TRUE(WaitFor([&] { return m_pServer->Viewers() == 0; }));
}

TEST_F(PageServerTest, AViewerThatGoesLeavesNothingBehind)
{
    const uint16_t usPort = Start();
    auto pViewer = View(usPort);
    Tick("{\"n\":1}");
    const auto pOld = m_views.Newest();
    ASSERT_NE(pViewer->ReceiveEvent(), "");
    pViewer.reset();
    const auto isGone = [&] {
        Tick("{}"); // the next tick notices
        return m_pServer->Viewers() == 0 && pOld.expired();
    };
    EXPECT_TRUE(WaitFor(isGone));
}

TEST_F(PageServerTest, ThereAreSoManyViewersAndNoMore)
{
    const uint16_t usPort = Start();
    std::vector<std::unique_ptr<CHttpClient>> viewers;
    for (size_t i = 0; i < CEventStreams::MOST_VIEWERS; ++i)
        viewers.push_back(View(usPort));
    EXPECT_EQ(HttpGet(usPort, "/api/events?view=overview").nStatus, 503);
    EXPECT_EQ(HttpGet(usPort, "/").nStatus, 200) << "others are still served";
}

TEST_F(PageServerTest, LargeAnswersAreBoundedTogether)
{
    const uint16_t usPort = Start();
    // Two answers of 100 MiB that nobody reads are under way; a third one would be beyond 256 MiB.
    CHttpClient first(usPort);
    CHttpClient second(usPort);
    for (CHttpClient* pClient : {&first, &second}) {
        ASSERT_TRUE(pClient->Send("GET", "/api/big"));
        EXPECT_EQ(pClient->ReceiveHead().mapHeaders["content-disposition"], "attachment; filename=\"big.txt\"");
    }
    EXPECT_EQ(HttpGet(usPort, "/api/big").nStatus, 503);
}

TEST_F(PageServerTest, StreamsEndInOrderWithTheServer)
{
    const uint16_t usPort = Start();
    Tick("{\"n\":1}");
    const auto pViewer = View(usPort);
    EXPECT_EQ(pViewer->ReceiveEvent(), "id: 1\ndata: {\"n\":1}\n\n");
    std::thread end([this] { m_pServer.reset(); });
    // The chunk of no bytes that ends a body, not a torn connection.
    const Bytes bytes = ReceiveBytes(pViewer->Fd(), 5);
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "0\r\n\r\n");
    end.join();
    std::string strError;
    m_stSettings.stAccess.stListen.usPort = usPort;
    EXPECT_TRUE(CPageServer::Start(m_stSettings, m_views, strError)) << "the port is free again: " << strError;
}

TEST_F(PageServerTest, APortThatIsTakenIsAnError)
{
    m_stSettings.stAccess.stListen.usPort = Start();
    std::string strError;
    EXPECT_FALSE(CPageServer::Start(m_stSettings, m_views, strError));
    EXPECT_EQ(strError, m_stSettings.stAccess.stListen.Text() + ": Address already in use");
}
