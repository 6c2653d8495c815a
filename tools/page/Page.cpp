#include "page/Page.h"

#include "client/Stop.h"
#include "page/PageControl.h"
#include "page/PageModel.h"
#include "page/PageServer.h"
#include "page/TapLoop.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <mutex>
#include <ostream>
#include <thread>

namespace
{
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::system_clock;

constexpr milliseconds STOP_CHECK{50};

/// Lines for whoever looks after the program. From any thread.
class CPageLog
{
public:
    explicit CPageLog(std::ostream& out) : m_out(out) {}
    void Line(const std::string& strText)
    {
        const std::lock_guard guard(m_lock);
        m_out << "vex-page: " << strText << std::endl;
    }

private:
    std::mutex m_lock; // over the stream
    std::ostream& m_out;
};

CPageModel::SETTINGS ModelOf(const PAGE_OPTIONS& stOptions)
{
    CPageModel::SETTINGS stSettings;
    stSettings.strTap = stOptions.strTap;
    stSettings.strLog = stOptions.strLog;
    stSettings.bControl = stOptions.bControl;
    stSettings.szPacketBytes = size_t{stOptions.ulMemoryMiB} * 1024 * 1024;
    return stSettings;
}

/// The parts of the page and the threads between them. The main thread has the seconds.
class CPage
{
public:
    CPage(const PAGE_OPTIONS& stOptions, CPageLog& log)
        : m_stOptions(stOptions),
          m_log(log),
          m_model(ModelOf(stOptions)),
          m_control(
              {stOptions.bControl, stOptions.strAgent, [this](unsigned int ulUe) { return m_model.GuChannel(ulUe); }})
    {
        m_model.SetControlView([this](unsigned int ulUe) { return m_control.View(ulUe); });
    }

    bool Start(const std::string& strWeb)
    {
        std::string strError;
        OnSecond(); // the first viewer finds a tick
        m_pServer = CPageServer::Start(ServerSettings(strWeb), m_model, strError);
        if (m_pServer == nullptr) {
            m_log.Line(strError);
            return false;
        }
        m_pServer->Tick(); // both count the ticks alike
        m_tap = std::thread([this] { ReadTap(); });
        PAGE_ADDRESS stAddress = m_stOptions.stAccess.stListen;
        stAddress.usPort = m_pServer->Port();
        m_log.Line("serving http://" + stAddress.Text() + "/" + (m_stOptions.bControl ? " with control" : ""));
        return true;
    }

    void Serve()
    {
        while (AwaitSecond()) {
            OnSecond();
            m_pServer->Tick();
        }
        ForgetStop(); // what was started is still to be stopped
        m_control.Stop();
        m_pServer.reset();
        m_bEnd = true;
        m_tap.join();
    }

private:
    CPageServer::SETTINGS ServerSettings(const std::string& strWeb)
    {
        CPageServer::SETTINGS stSettings;
        stSettings.stAccess = m_stOptions.stAccess;
        stSettings.strWeb = strWeb;
        stSettings.bControl = m_stOptions.bControl;
        stSettings.order = [this](const CONTROL_ORDER& stOrder, const std::function<void(PAGE_ANSWER)>& done) {
            m_control.Post(stOrder, [done](const CONTROL_RESULT& stResult) { done(AnswerOf(stResult)); });
        };
        stSettings.health = [this] {
            return m_model.IsConnected() ? "ok" : "ok, but there is no agent at " + m_stOptions.strTap;
        };
        return stSettings;
    }

    void ReadTap()
    {
        CTapLoop::FEED stFeed;
        stFeed.begin = [this](const TAP_HELLO& stHello) { m_model.BeginRun(stHello); };
        stFeed.take = [this](const TAP_RECORD& stRecord, ByteView bytes, uint64_t ullLost) {
            m_model.Take(stRecord, bytes, ullLost);
        };
        stFeed.end = [this] { m_model.EndRun(); };
        stFeed.tell = [this](const std::string& strText) { m_log.Line(strText); };
        stFeed.isStopped = [this] { return m_bEnd.load(); };
        CTapLoop(m_stOptions.strTap, std::move(stFeed)).Run();
    }

    void OnSecond()
    {
        const auto now = std::chrono::duration_cast<std::chrono::nanoseconds>(system_clock::now().time_since_epoch());
        m_model.OnSecond(static_cast<uint64_t>(now.count()));
    }

    /// Sleeps to the next second; false when the program is to end. Late by more than one, it goes on from now.
    bool AwaitSecond()
    {
        const auto now = std::chrono::steady_clock::now();
        m_next = std::max(m_next + seconds(1), now);
        while (!StopRequested()) {
            const auto left = m_next - std::chrono::steady_clock::now();
            if (left <= left.zero())
                return true;
            std::this_thread::sleep_for(std::min<std::chrono::nanoseconds>(left, STOP_CHECK));
        }
        return false;
    }

    const PAGE_OPTIONS& m_stOptions;
    CPageLog& m_log;
    CPageModel m_model;
    CPageControl m_control;
    std::unique_ptr<CPageServer> m_pServer;
    std::atomic<bool> m_bEnd = false;
    std::thread m_tap;
    std::chrono::steady_clock::time_point m_next = std::chrono::steady_clock::now();
};
} // namespace

PAGE_EXIT RunPage(std::vector<std::string> args, std::ostream& out, std::ostream& errors)
{
    PAGE_OPTIONS stOptions;
    if (const auto end = ParsePageOptions(std::move(args), stOptions, out, errors))
        return *end;
    CatchStopSignals();
    (void)signal(SIGPIPE, SIG_IGN); // a browser may go: writing says so
    CPageLog log(errors);
    const std::string strWeb = stOptions.strWeb.empty() ? OwnPageFolder() : stOptions.strWeb;
    if (!CPageFiles(strWeb).HasIndex()) {
        log.Line("the page's files aren't in " + strWeb + "; --web names their folder");
        return PAGE_NO_SERVER;
    }
    CPage page(stOptions, log);
    if (!page.Start(strWeb))
        return PAGE_NO_SERVER;
    page.Serve();
    return PAGE_DONE;
}
