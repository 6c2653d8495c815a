#include "RelayCase.h"
#include "Relays.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <list>

// What the tap costs: an agent without one, one whose tap nobody observes and one with three observers take turns with
// the same stream of one modem. And what a recorder costs, and loses, beside a full bench.

namespace
{
using std::chrono::milliseconds;
using std::chrono::seconds;
using Microseconds = std::chrono::microseconds;

constexpr size_t PAYLOAD = 300;
constexpr CASE_PLAN FULL{15, milliseconds(400), milliseconds(0)};
constexpr CASE_PLAN QUICK{3, milliseconds(200), milliseconds(0)};
constexpr int STEADY_TIMES = 2; // a light load's round takes so many times as long

struct CANDIDATE
{
    const char* pszWhat;
    std::optional<size_t> observers;
    const char* pszAim; // CPU, as a ratio to the agent without a tap
};
constexpr CANDIDATE CANDIDATES[] = {
    {"no tap", std::nullopt, ""},
    {"a tap, nobody observes", 0, "not measurable"},
    {"a tap, three observers", 3, "< 1.10"},
};

void PrintCost(const char* pszLoad, const CASE& stCase)
{
    std::printf("\n%zu bytes, 1 UE, %-22s  frames/ms  CPU us/frame  ratio  aim\n", PAYLOAD, pszLoad);
    for (size_t i = 0; i < stCase.results.size(); ++i)
        std::printf("%-40s %10.1f  %12.2f  %5.2f  %s\n", CANDIDATES[i].pszWhat,
                    MedianOf(stCase.results[i], &RELAY_RATE::dFramesPerSecond) / 1000,
                    MedianOf(stCase.results[i], &RELAY_RATE::dCpuPerFrame),
                    MedianRatio(stCase.results[i], stCase.results[0], &RELAY_RATE::dCpuPerFrame), CANDIDATES[i].pszAim);
}

/// The relays take turns with a load that none of them is busy with, so that each has the same packets at a time.
CASE RunSteady(std::vector<RELAY>& relays, const CASE_PLAN& stPlan)
{
    constexpr size_t BYTES_PER_SECOND = 1'000'000;
    const auto time = stPlan.rateTime * STEADY_TIMES;
    const RELAY_FRAMES frames(PAYLOAD);
    CASE stCase{PAYLOAD, 1, std::vector<RESULT>(relays.size())};
    for (int i = 0; i < stPlan.nRounds; ++i)
        for (size_t k = 0; k < relays.size(); ++k) {
            const RELAY_LOAD stLoad = MeasureLoad(relays[k], frames, BYTES_PER_SECOND, time);
            const double dSeconds = std::chrono::duration<double>(time).count();
            const auto dFrames = static_cast<double>(stLoad.szFrames);
            stCase.results[k].rates.push_back(
                {dFrames / dSeconds, stLoad.dCores * dSeconds * 1e6 / dFrames, stLoad.dLost});
        }
    return stCase;
}

int RunCost(const CASE_PLAN& stPlan)
{
    std::list<COtherAgent> agents; // they don't move
    std::vector<RELAY> relays;
    for (const CANDIDATE& stCandidate : CANDIDATES) {
        auto relay = agents.emplace_back("", stCandidate.observers).Attach(1);
        if (!relay) {
            std::fprintf(stderr, "%s: the agent doesn't take the modem, or no network namespace can be made\n",
                         stCandidate.pszWhat);
            return 1;
        }
        relays.push_back(std::move(*relay));
    }
    PrintCost("1 MB/s", RunSteady(relays, stPlan));
    PrintCost("as fast as it goes", RunCase(relays, PAYLOAD, 1, stPlan));
    return 0;
}

/// The numbers of the recorder's last line: "N records, N bytes, N lost".
struct CAPTURED
{
    unsigned long long ullRecords = 0;
    unsigned long long ullBytes = 0;
    unsigned long long ullLost = 0;
};
std::optional<CAPTURED> LastLine(const std::string& strErrors)
{
    CAPTURED stCaptured;
    const size_t szLine = strErrors.rfind("vex-capture: ");
    if (szLine == std::string::npos ||
        std::sscanf(strErrors.c_str() + szLine, "vex-capture: %llu records, %llu bytes, %llu lost",
                    &stCaptured.ullRecords, &stCaptured.ullBytes, &stCaptured.ullLost) != 3)
        return std::nullopt;
    return stCaptured;
}

/// 15 serial modems and the network one, a client bound to each, and a recorder with a spool.
int RunCapture(seconds time)
{
    constexpr size_t SERIAL_MODEMS = 15;
    constexpr size_t BYTES_PER_SECOND = 20'000'000 / (SERIAL_MODEMS + 1);
    const CTempDir dir;
    CAgentUnderTest agent(0);
    auto relay = agent.Attach(SERIAL_MODEMS);
    if (!relay || !agent.AttachNetwork(*relay)) {
        std::fprintf(stderr, "the agent doesn't take the modems\n");
        return 1;
    }
    CVexProcess capture(std::string(VEX_BIN_DIR) + "/vex-capture",
                        {"--tap", agent.TapPath(), "--spool", "spool", "--keep", "1G"}, dir.Path());
    RELAY recorder;
    recorder.pids = {capture.Pid()};
    const double dBefore = CpuMicros(recorder);
    const RELAY_LOAD stLoad = MeasureLoad(*relay, RELAY_FRAMES(PAYLOAD), BYTES_PER_SECOND, time);
    const double dCores = (CpuMicros(recorder) - dBefore) / static_cast<double>(Microseconds(time).count());
    capture.Signal(SIGINT);
    const auto status = capture.WaitExit(std::chrono::seconds(60));
    const auto captured = LastLine(capture.Errors());
    if (status != 0 || !captured) {
        std::fprintf(stderr, "vex-capture: %s\n", capture.Errors().c_str());
        return 1;
    }
    std::printf("\n16 modems, 20 MB/s in all for %lld s: %zu frames sent, %.3f %% lost on the way to the clients\n",
                static_cast<long long>(time.count()), stLoad.szFrames, 100 * stLoad.dLost);
    std::printf("recorded: %llu records, %.0f MB, %llu lost; recorder %.1f %% of a core, agent %.1f %%\n",
                captured->ullRecords, static_cast<double>(captured->ullBytes) / 1e6, captured->ullLost, 100 * dCores,
                100 * stLoad.dCores);
    return captured->ullLost == 0 && captured->ullRecords >= 2 * stLoad.szFrames ? 0 : 1;
}
} // namespace

int main(int nArgs, char** ppszArgs)
{
    constexpr const char* USAGE =
        "usage: vex-bench-tap [--quick]\n\n"
        "CPU time of the agent for a frame of one modem, without and with its tap; then a recorder\n"
        "beside 16 modems for a minute.\n";
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
    const int nResult = RunCost(bQuick ? QUICK : FULL);
    const int nCapture = RunCapture(seconds(bQuick ? 3 : 60));
    return std::max(nResult, nCapture);
}
