#include "Relays.h"
#include "support/HttpClient.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <memory>
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <vector>

// What viewers of the page cost: 15 modems stream, and the page is watched by nobody and by fifty, one of whom doesn't
// read.

namespace
{
using std::chrono::seconds;
using Microseconds = std::chrono::microseconds;

constexpr size_t PAYLOAD = 300;
constexpr size_t BYTES_PER_SECOND = 2'000'000; // of all modems together
constexpr size_t VIEWERS = 50;
constexpr uint16_t PAGE_PORT = 8280;
constexpr double MOST_CORES = 0.20; // of the page with all viewers

/// Browsers, half of them at the overview and half at a modem. The first one never reads.
class CViewers
{
public:
    CViewers(size_t szCount, size_t szModems)
    {
        for (size_t i = 0; i < szCount; ++i) {
            auto pClient = std::make_unique<CHttpClient>(PAGE_PORT);
            const std::string strView = i % 2 == 0 ? "overview" : "modem&ue=" + std::to_string(i / 2 % szModems);
            if (pClient->Send("GET", "/api/events?view=" + strView))
                m_clients.push_back(std::move(pClient));
        }
        m_reader = std::jthread([this](const std::stop_token& stop) { Read(stop); });
    }
    size_t Count() const { return m_clients.size(); }
    size_t Bytes() const { return m_szBytes; }

private:
    void Read(const std::stop_token& stop)
    {
        std::vector<pollfd> polls;
        for (size_t i = 1; i < m_clients.size(); ++i)
            polls.push_back({m_clients[i]->Fd().Get(), POLLIN, 0});
        std::vector<char> chunk(size_t{64} * 1024);
        while (!stop.stop_requested()) {
            (void)poll(polls.data(), polls.size(), 100);
            for (const pollfd& stPoll : polls)
                if (stPoll.revents != 0)
                    m_szBytes += static_cast<size_t>(
                        std::max<ssize_t>(0, recv(stPoll.fd, chunk.data(), chunk.size(), MSG_DONTWAIT)));
        }
    }

    std::vector<std::unique_ptr<CHttpClient>> m_clients;
    std::atomic<size_t> m_szBytes = 0;
    std::jthread m_reader; // the last member: it uses the others
};

struct COST
{
    double dPage = 0; // cores
    double dAgent = 0;
    double dLost = 0; // share of frames that clients missed
    double dKBytesPerSecond = 0;
    size_t szPageKiB = 0; // resident
};

COST Measure(RELAY& agent, const CVexProcess& page, size_t szViewers, seconds time)
{
    const size_t szModems = agent.lanes.size();
    const CViewers viewers(szViewers, szModems);
    if (viewers.Count() != szViewers)
        std::fprintf(stderr, "only %zu of %zu viewers are connected\n", viewers.Count(), szViewers);
    RELAY server;
    server.pids = {page.Pid()};
    const double dBefore = CpuMicros(server);
    const auto start = std::chrono::steady_clock::now();
    const RELAY_LOAD stLoad = MeasureLoad(agent, RELAY_FRAMES(PAYLOAD), BYTES_PER_SECOND / szModems, time);
    const auto spent = std::chrono::duration_cast<Microseconds>(std::chrono::steady_clock::now() - start);
    const double dPage = (CpuMicros(server) - dBefore) / static_cast<double>(spent.count());
    return {dPage, stLoad.dCores, stLoad.dLost,
            static_cast<double>(viewers.Bytes()) / 1000 / static_cast<double>(time.count()), page.ResidentKiB()};
}

int Run(size_t szModems, seconds time)
{
    CAgentUnderTest agent(0);
    auto relay = agent.Attach(szModems);
    if (!relay) {
        std::fprintf(stderr, "the agent doesn't take the modems\n");
        return 1;
    }
    const CTempDir dir;
    CVexProcess page(std::string(VEX_BIN_DIR) + "/vex-page", {"--tap", agent.TapPath(), "--memory", "16"}, dir.Path());
    if (HttpGet(PAGE_PORT, "/healthz").nStatus != 200) {
        std::fprintf(stderr, "%s", page.Errors().c_str());
        return 1;
    }
    (void)Measure(*relay, page, 0, seconds(1)); // the page's memory for packets fills
    std::printf("\n%zu modems, 2 MB/s in all; viewers get a tick a second\n", szModems);
    std::printf("viewers  page, %% of a core  agent, %% of a core  lost by clients  to viewers, kB/s  page, MiB\n");
    COST stCost;
    for (const size_t szViewers : {size_t{0}, VIEWERS, size_t{0}, VIEWERS}) {
        stCost = Measure(*relay, page, szViewers, time);
        std::printf("%7zu  %18.1f  %19.1f  %13.3f %%  %16.0f  %9zu\n", szViewers, 100 * stCost.dPage,
                    100 * stCost.dAgent, 100 * stCost.dLost, stCost.dKBytesPerSecond, stCost.szPageKiB / 1024);
    }
    page.Signal(SIGTERM);
    return page.WaitExit() == 0 && stCost.dPage < MOST_CORES ? 0 : 1;
}
} // namespace

int main(int nArgs, char** ppszArgs)
{
    constexpr const char* USAGE =
        "usage: vex-bench-page [--quick]\n\n"
        "CPU time of vex-page and of the agent, without viewers and with fifty of them, one of\n"
        "whom doesn't read.\n";
    const std::string strArg = nArgs > 1 ? ppszArgs[1] : "";
    if (strArg == "-h" || strArg == "--help") {
        std::fputs(USAGE, stdout);
        return 0;
    }
    const bool bQuick = strArg == "--quick";
    if (nArgs > 2 || (nArgs == 2 && !bQuick)) {
        std::fputs(USAGE, stderr);
        return 1;
    }
    return bQuick ? Run(3, seconds(2)) : Run(15, seconds(15));
}
