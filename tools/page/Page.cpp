#include "page/Page.h"

#include "client/Stop.h"
#include "page/FleetSource.h"
#include "page/PageServer.h"
#include "page/TapSource.h"

#include <chrono>
#include <csignal>
#include <thread>

namespace
{
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::system_clock;

constexpr milliseconds STOP_CHECK{50};

std::unique_ptr<IPageSource> MakeSource(const PAGE_OPTIONS& stOptions, CPageLog& log)
{
    if (stOptions.bFleet)
        return std::make_unique<CFleetSource>(stOptions, log);
    return std::make_unique<CTapSource>(stOptions, log);
}

/// The server in front of what the page shows. The main thread has the seconds.
class CPage
{
public:
    CPage(const PAGE_OPTIONS& stOptions, CPageLog& log)
        : m_stOptions(stOptions), m_log(log), m_pSource(MakeSource(stOptions, log))
    {
    }

    bool Start(const std::string& strWeb)
    {
        CPageServer::SETTINGS stSettings;
        stSettings.stAccess = m_stOptions.stAccess;
        stSettings.strWeb = strWeb;
        m_pSource->Equip(stSettings);
        const bool bControl = stSettings.bControl;
        std::string strError;
        OnSecond(); // the first viewer finds a tick
        m_pServer = CPageServer::Start(std::move(stSettings), m_pSource->Views(), strError);
        if (m_pServer == nullptr || !m_pSource->Start(strError)) {
            m_log.Line(strError);
            return false;
        }
        m_pServer->Tick(); // both count the ticks alike
        PAGE_ADDRESS stAddress = m_stOptions.stAccess.stListen;
        stAddress.usPort = m_pServer->Port();
        m_log.Line("serving http://" + stAddress.Text() + "/" + (bControl ? " with control" : ""));
        return true;
    }

    void Serve()
    {
        while (AwaitSecond()) {
            OnSecond();
            m_pServer->Tick();
        }
        m_pSource->Stop();
        m_pServer.reset();
    }

private:
    void OnSecond()
    {
        const auto now = std::chrono::duration_cast<std::chrono::nanoseconds>(system_clock::now().time_since_epoch());
        m_pSource->OnSecond(static_cast<uint64_t>(now.count()));
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
    std::unique_ptr<IPageSource> m_pSource;
    std::unique_ptr<CPageServer> m_pServer; // goes before the source
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
