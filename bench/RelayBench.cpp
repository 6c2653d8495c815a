#include "Relays.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

// The agent beside raw relays: the same framed bytes go into pseudo terminals as fast as they are taken and come out
// of TCP connections. The relays take turns in several rounds, and the median counts, so that what else the machine
// does meets all of them.

namespace
{
using std::chrono::milliseconds;

struct PLAN
{
    int nRounds;
    milliseconds rateTime;
    milliseconds latencyTime;
    milliseconds tripTime;
    std::vector<size_t> sizes; // bytes of payload
    std::vector<size_t> lanes; // UEs at once
};
const PLAN FULL = {3, milliseconds(800), milliseconds(1000), milliseconds(3000), {64, 300, 1500}, {1, 4}};
const PLAN QUICK = {1, milliseconds(500), milliseconds(400), milliseconds(1000), {300, 1500}, {1}};

struct RESULT
{
    RELAY_RATE stRate;
    std::vector<double> latency; // microseconds, sorted
};

struct CASE
{
    size_t szPayload;
    size_t szLanes;
    std::vector<RESULT> results; // of each relay, the agent first
};

/// The round in the middle by frames a second.
RELAY_RATE Median(std::vector<RELAY_RATE> rates)
{
    std::ranges::sort(rates, {}, &RELAY_RATE::dFramesPerSecond);
    RELAY_RATE stRate = rates[rates.size() / 2];
    std::ranges::sort(rates, {}, &RELAY_RATE::dCpuPerFrame);
    stRate.dCpuPerFrame = rates[rates.size() / 2].dCpuPerFrame;
    stRate.dLost = std::ranges::max(rates, {}, &RELAY_RATE::dLost).dLost;
    return stRate;
}

CASE RunCase(std::vector<RELAY>& relays, size_t szPayload, size_t szLanes, const PLAN& plan)
{
    const RELAY_FRAMES frames(szPayload);
    CASE stCase{szPayload, szLanes, {}};
    std::vector<std::vector<RELAY_RATE>> rates(relays.size());
    for (int i = 0; i < plan.nRounds; ++i)
        for (size_t k = 0; k < relays.size(); ++k) {
            rates[k].push_back(MeasureRate(relays[k], szLanes, frames, plan.rateTime));
            DrainSinks(relays[k], milliseconds(50));
        }
    for (size_t k = 0; k < relays.size(); ++k) {
        stCase.results.push_back({Median(rates[k]), MeasureLatency(relays[k], szLanes, frames, plan.latencyTime)});
        DrainSinks(relays[k], milliseconds(50));
    }
    return stCase;
}

double Ratio(double dValue, double dBase)
{
    return dBase > 0 ? dValue / dBase : 0;
}

/// One line for a value of every relay, with the agent's ratio to each of the others.
template <class Value>
void PrintLine(const char* pszWhat, const CASE& stCase, const std::vector<RELAY>& relays, Value value)
{
    std::printf("%5zu B %zu UE  %-16s", stCase.szPayload, stCase.szLanes, pszWhat);
    for (const RESULT& stResult : stCase.results)
        std::printf(" %10.1f", value(stResult));
    for (size_t k = 1; k < relays.size(); ++k)
        std::printf("  %8.2f", Ratio(value(stCase.results[0]), value(stCase.results[k])));
    std::printf("\n");
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
        PrintLine("frames/ms", stCase, relays, [](const RESULT& st) { return st.stRate.dFramesPerSecond / 1000; });
        PrintLine("CPU us/frame", stCase, relays, [](const RESULT& st) { return st.stRate.dCpuPerFrame; });
        PrintLine("latency p50 us", stCase, relays, [](const RESULT& st) { return Percentile(st.latency, 0.5); });
        PrintLine("latency p99 us", stCase, relays, [](const RESULT& st) { return Percentile(st.latency, 0.99); });
        for (size_t k = 0; k < relays.size(); ++k)
            if (stCase.results[k].stRate.dLost > 0)
                std::printf("         %s lost %.2f %% of the bytes\n", relays[k].strName.c_str(),
                            100 * stCase.results[k].stRate.dLost);
    }
}

/// What is aimed at, beside what came out.
void PrintAims(const std::vector<CASE>& cases, const std::vector<RELAY>& relays)
{
    std::printf("\nAims (ratio vex : relay)%24s aim       reached\n", "");
    for (const CASE& stCase : cases)
        for (size_t k = 1; k < relays.size(); ++k) {
            const bool bSocat = relays[k].strName == "socat";
            const RESULT& stVex = stCase.results[0];
            const RESULT& stOther = stCase.results[k];
            const auto print = [&](const char* pszWhat, const char* pszAim, double dReached) {
                std::printf("%5zu B %zu UE  %-24s %-8s %-9s %.2f\n", stCase.szPayload, stCase.szLanes, pszWhat,
                            relays[k].strName.c_str(), pszAim, dReached);
            };
            if (stCase.szPayload >= 300)
                print("throughput", bSocat ? ">= 0.7" : ">= 8",
                      Ratio(stVex.stRate.dFramesPerSecond, stOther.stRate.dFramesPerSecond));
            if (bSocat && stCase.szPayload == 300)
                print("CPU per frame", "<= 3", Ratio(stVex.stRate.dCpuPerFrame, stOther.stRate.dCpuPerFrame));
            if (bSocat)
                print("latency p50", "<= 2", Ratio(Percentile(stVex.latency, 0.5), Percentile(stOther.latency, 0.5)));
        }
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
            cases.push_back(RunCase(relays, szPayload, szLanes, plan));
        }
    PrintCases(cases, relays);
    PrintAims(cases, relays);
    return 0;
}
} // namespace

int main(int nArgs, char** ppszArgs)
{
    const bool bQuick = nArgs == 2 && std::strcmp(ppszArgs[1], "--quick") == 0;
    if (nArgs > 1 && !bQuick) {
        std::fprintf(stderr, "usage: %s [--quick]\n", ppszArgs[0]);
        return 1;
    }
    return Run(bQuick ? QUICK : FULL);
}
