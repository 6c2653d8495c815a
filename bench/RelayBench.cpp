#include "RelayCase.h"
#include "Relays.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <getopt.h>
#include <optional>
#include <sys/resource.h>

// The agent beside raw relays: the same framed bytes go into pseudo terminals as fast as they are taken and come out
// of TCP connections.

namespace
{
using std::chrono::milliseconds;

struct PLAN
{
    CASE_PLAN stCase;
    milliseconds tripTime;
    std::vector<size_t> sizes; // bytes of payload
    std::vector<size_t> lanes; // UEs at once
    milliseconds loadTime;
    bool bLoad = true;                   // all modems at once too
    const char* pszOtherAgent = nullptr; // to compare with
};
const PLAN FULL = {
    {9, milliseconds(300), milliseconds(150)}, milliseconds(3000), {64, 300, 1500}, {1, 4}, milliseconds(10'000)};
const PLAN QUICK = {
    {3, milliseconds(200), milliseconds(150)}, milliseconds(1000), {300, 1500}, {1}, milliseconds(2000)};

/// One line for a value of every relay, with the agent's ratio to each of the others.
template <class Value, class RatioTo>
void PrintLine(const char* pszWhat, const CASE& stCase, Value value, RatioTo ratio)
{
    std::printf("%5zu B %zu UE  %-16s", stCase.szPayload, stCase.szLanes, pszWhat);
    for (const RESULT& stResult : stCase.results)
        std::printf(" %10.1f", value(stResult));
    for (size_t k = 1; k < stCase.results.size(); ++k)
        std::printf("  %8.2f", ratio(stCase.results[0], stCase.results[k]));
    std::printf("\n");
}

void PrintRate(const char* pszWhat, const CASE& stCase, RateValue value, double dUnit)
{
    PrintLine(
        pszWhat, stCase, [&](const RESULT& st) { return MedianOf(st, value) / dUnit; },
        [&](const RESULT& stVex, const RESULT& stOther) { return MedianRatio(stVex, stOther, value); });
}

void PrintLatency(const char* pszWhat, const CASE& stCase, double dShare)
{
    PrintLine(
        pszWhat, stCase, [&](const RESULT& st) { return Latency(st, dShare); },
        [&](const RESULT& stVex, const RESULT& stOther) { return LatencyRatio(stVex, stOther, dShare); });
}

void PrintCases(const std::vector<CASE>& cases, const std::vector<RELAY>& relays)
{
    std::printf("\nLTE indications, terminal to TCP%*s", 0, "");
    for (const RELAY& relay : relays)
        std::printf(" %10s", relay.strName.c_str());
    for (size_t k = 1; k < relays.size(); ++k)
        std::printf(" vs %7s", relays[k].strName.c_str());
    std::printf("\n");
    for (const CASE& stCase : cases) {
        PrintRate("frames/ms", stCase, &RELAY_RATE::dFramesPerSecond, 1000);
        PrintRate("CPU us/frame", stCase, &RELAY_RATE::dCpuPerFrame, 1);
        PrintLatency("latency p50 us", stCase, 0.5);
        PrintLatency("latency p99 us", stCase, 0.99);
        for (size_t k = 0; k < relays.size(); ++k) {
            const double dLost = std::ranges::max(stCase.results[k].rates, {}, &RELAY_RATE::dLost).dLost;
            if (dLost > 0)
                std::printf("         %s lost %.2f %% of the bytes\n", relays[k].strName.c_str(), 100 * dLost);
        }
    }
}

double RateOf(const RESULT& stVex, const RESULT& stOther)
{
    return MedianRatio(stVex, stOther, &RELAY_RATE::dFramesPerSecond);
}

double CpuOf(const RESULT& stVex, const RESULT& stOther)
{
    return MedianRatio(stVex, stOther, &RELAY_RATE::dCpuPerFrame);
}

template <int nPercent> double LatencyOf(const RESULT& stVex, const RESULT& stOther)
{
    return LatencyRatio(stVex, stOther, nPercent / 100.0);
}

/// What is aimed at on a machine that does nothing else, as a ratio to another relay.
struct AIM
{
    const char* pszRelay;
    const char* pszWhat;
    const char* pszAim;
    double (*pfnRatio)(const RESULT& stVex, const RESULT& stOther);
};
constexpr AIM AIMS[] = {
    {"socat", "throughput", ">= 0.95", RateOf},         {"socat", "CPU per frame", "<= 1.3", CpuOf},
    {"socat", "latency p50", "<= 1.15", LatencyOf<50>}, {"socat", "latency p99", "<= 1.3", LatencyOf<99>},
    {"ser2net", "throughput", ">= 8", RateOf},
};

void PrintAims(const std::vector<CASE>& cases, const std::vector<RELAY>& relays)
{
    std::printf("\nAims (ratio vex : relay)%24s aim       reached\n", "");
    for (const CASE& stCase : cases)
        for (size_t k = 1; k < relays.size(); ++k)
            for (const AIM& stAim : AIMS)
                if (relays[k].strName == stAim.pszRelay)
                    std::printf("%5zu B %zu UE  %-24s %-8s %-9s %.2f\n", stCase.szPayload, stCase.szLanes,
                                stAim.pszWhat, stAim.pszRelay, stAim.pszAim,
                                stAim.pfnRatio(stCase.results[0], stCase.results[k]));
}

void PrintRoundTrip(const std::vector<double>& micros)
{
    std::printf("\nRequest, client to modem and back: p50 %.0f us, p99 %.0f us, %zu trips\n", Percentile(micros, 0.5),
                Percentile(micros, 0.99), micros.size());
}

void Progress(const char* pszText)
{
    std::fprintf(stderr, "  %s ...\n", pszText);
}

void AddRelay(std::vector<RELAY>& relays, std::optional<RELAY> relay, const char* pszName)
{
    if (relay)
        relays.push_back(std::move(*relay));
    else
        std::fprintf(stderr, "  %s isn't installed or doesn't run: left out\n", pszName);
}

int Run(const PLAN& plan)
{
    const size_t szUes = std::ranges::max(plan.lanes);
    Progress("starting the agent and its modems");
    CAgentUnderTest agent;
    auto vex = agent.Attach(szUes);
    if (!vex) {
        std::fprintf(stderr, "the agent doesn't take the modems\n");
        return 1;
    }
    std::vector<RELAY> relays;
    relays.push_back(std::move(*vex));
    std::optional<COtherAgent> other;
    if (plan.pszOtherAgent)
        AddRelay(relays, other.emplace(plan.pszOtherAgent).Attach(szUes), plan.pszOtherAgent);
    AddRelay(relays, StartSocat(szUes), "socat");
    AddRelay(relays, StartSer2net(szUes), "ser2net");

    std::printf("Resident at start: vex-agent %zu KiB", agent.StartKiB());
    for (size_t i = 1; i < relays.size(); ++i)
        std::printf(", %s for %zu lanes %zu KiB", relays[i].strName.c_str(), szUes, ResidentKiB(relays[i]));
    std::printf("\n");
    Progress("round trips");
    PrintRoundTrip(agent.MeasureRoundTrip(plan.tripTime));
    std::vector<CASE> cases;
    for (const size_t szPayload : plan.sizes)
        for (const size_t szLanes : plan.lanes) {
            Progress((std::to_string(szPayload) + " bytes, " + std::to_string(szLanes) + " UEs").c_str());
            cases.push_back(RunCase(relays, szPayload, szLanes, plan.stCase));
        }
    PrintCases(cases, relays);
    PrintAims(cases, relays);
    return 0;
}
/// All modems with a steady stream, and a crowd of clients that do nothing.
int RunLoad(milliseconds time)
{
    constexpr size_t SERIAL_MODEMS = 15;
    constexpr size_t BYTES_PER_SECOND = 1'000'000; // of each modem
    constexpr size_t CLIENTS = 1000;
    const rlimit stFiles{8192, 8192};
    (void)setrlimit(RLIMIT_NOFILE, &stFiles); // for the agent too; without it the clients don't all connect
    Progress("16 modems with 1 MB/s each, 1000 idle clients");
    CAgentUnderTest agent;
    auto relay = agent.Attach(SERIAL_MODEMS);
    if (!relay || !agent.AttachNetwork(*relay)) {
        std::fprintf(stderr, "the agent doesn't take the modems\n");
        return 1;
    }
    const RELAY_LOAD stBusy = MeasureLoad(*relay, RELAY_FRAMES(300), BYTES_PER_SECOND, time);
    const bool bConnected = agent.ConnectIdle(CLIENTS);
    const RELAY_LOAD stIdle = MeasureLoad(*relay, RELAY_FRAMES(300), 0, time);
    std::printf("\nShare of one core%32s aim       reached\n", "");
    std::printf("%-49s %-9s %.1f %%\n", "16 modems x 1 MB/s, frames of 300 bytes", "< 25 %", 100 * stBusy.dCores);
    if (stBusy.dLost > 0)
        std::printf("  lost %.3f %% of the bytes\n", 100 * stBusy.dLost);
    std::printf("%-49s %-9s %.2f %%\n", bConnected ? "1000 idle clients" : "fewer than 1000 idle clients", "< 1 %",
                100 * stIdle.dCores);
    return 0;
}

/// One number of the command line; empty for what is none.
std::optional<size_t> NumberOf(const char* pszText)
{
    size_t szNumber = 0;
    const char* const pszEnd = pszText + std::strlen(pszText);
    const auto [pEnd, enError] = std::from_chars(pszText, pszEnd, szNumber);
    return enError == std::errc() && pEnd == pszEnd && szNumber > 0 ? std::optional(szNumber) : std::nullopt;
}

constexpr const char* USAGE =
    R"(usage: vex-bench-relay [--quick] [--payload BYTES] [--ues N] [--rounds N] [--other AGENT]

The agent beside raw relays, in this one run. VEX_AGENT names another agent than that of this build.
  --quick          fewer rounds and sizes
  --payload BYTES  one size of frames only, without the load of 16 modems
  --ues N          one number of modems only (up to 15), likewise
  --rounds N       rounds of each measurement
  --other AGENT    another agent beside this one, in a network namespace of its own
)";

/// False for what isn't understood.
bool TakeOption(int nOption, const char* pszValue, PLAN& plan)
{
    if (nOption == 'q') {
        plan = QUICK;
        return true;
    }
    if (nOption == 'o') {
        plan.pszOtherAgent = pszValue;
        return true;
    }
    const auto szValue = pszValue ? NumberOf(pszValue) : std::nullopt;
    if (!szValue || nOption == '?')
        return false;
    plan.bLoad = plan.bLoad && nOption == 'r';
    if (nOption == 'p')
        plan.sizes = {*szValue};
    else if (nOption == 'u')
        plan.lanes = {*szValue};
    else
        plan.stCase.nRounds = static_cast<int>(*szValue);
    return nOption != 'u' || *szValue < MAXUENUM;
}
} // namespace

int main(int nArgs, char** ppszArgs)
{
    constexpr option OPTIONS[] = {
        {"quick", no_argument, nullptr, 'q'},
        {"payload", required_argument, nullptr, 'p'},
        {"ues", required_argument, nullptr, 'u'},
        {"rounds", required_argument, nullptr, 'r'},
        {"other", required_argument, nullptr, 'o'},
        {"help", no_argument, nullptr, 'h'},
        {},
    };
    PLAN plan = FULL;
    for (int nOption = 0; (nOption = getopt_long(nArgs, ppszArgs, "h", OPTIONS, nullptr)) != -1;) {
        if (nOption == 'h') {
            std::fputs(USAGE, stdout);
            return 0;
        }
        if (!TakeOption(nOption, optarg, plan)) {
            std::fputs(USAGE, stderr);
            return 1;
        }
    }
    const int nResult = Run(plan);
    return nResult != 0 || !plan.bLoad ? nResult : RunLoad(plan.loadTime);
}
