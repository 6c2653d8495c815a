#include "RelayCase.h"
#include "Relays.h"

#include <cstdio>
#include <list>

// What the tap costs: an agent without one, one whose tap nobody observes and one with three observers take turns with
// the same stream of one modem.

namespace
{
using std::chrono::milliseconds;

constexpr size_t PAYLOAD = 300;
constexpr CASE_PLAN FULL{15, milliseconds(400), milliseconds(0)};
constexpr CASE_PLAN QUICK{3, milliseconds(200), milliseconds(0)};

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

int Run(const CASE_PLAN& stPlan)
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
    const CASE stCase = RunCase(relays, PAYLOAD, 1, stPlan);
    std::printf("\n%zu bytes, 1 UE%27s frames/ms  CPU us/frame  ratio  aim\n", PAYLOAD, "");
    for (size_t i = 0; i < relays.size(); ++i)
        std::printf("%-40s %10.1f  %12.2f  %5.2f  %s\n", CANDIDATES[i].pszWhat,
                    MedianOf(stCase.results[i], &RELAY_RATE::dFramesPerSecond) / 1000,
                    MedianOf(stCase.results[i], &RELAY_RATE::dCpuPerFrame),
                    MedianRatio(stCase.results[i], stCase.results[0], &RELAY_RATE::dCpuPerFrame), CANDIDATES[i].pszAim);
    return 0;
}
} // namespace

int main(int nArgs, char** ppszArgs)
{
    constexpr const char* USAGE = "usage: vex-bench-tap [--quick]\n\n"
                                  "CPU time of the agent for a frame of one modem, without and with its tap.\n";
    const std::string strArg = nArgs > 1 ? ppszArgs[1] : "";
    if (strArg == "-h" || strArg == "--help") {
        std::fputs(USAGE, stdout);
        return 0;
    }
    if (nArgs > 2 || (nArgs == 2 && strArg != "--quick")) {
        std::fputs(USAGE, stderr);
        return 1;
    }
    return Run(nArgs == 2 ? QUICK : FULL);
}
