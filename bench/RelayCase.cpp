#include "RelayCase.h"

#include <algorithm>
#include <iterator>

namespace
{
using std::chrono::milliseconds;

double Ratio(double dValue, double dBase)
{
    return dBase > 0 ? dValue / dBase : 0;
}

double Median(std::vector<double> values)
{
    std::ranges::sort(values);
    return Percentile(values, 0.5);
}
} // namespace

double MedianOf(const RESULT& stResult, RateValue value)
{
    std::vector<double> values;
    std::ranges::transform(stResult.rates, std::back_inserter(values), value);
    return Median(values);
}

double MedianRatio(const RESULT& stVex, const RESULT& stOther, RateValue value)
{
    std::vector<double> ratios;
    for (size_t i = 0; i < stVex.rates.size(); ++i)
        ratios.push_back(Ratio(stVex.rates[i].*value, stOther.rates[i].*value));
    return Median(ratios);
}

double Latency(const RESULT& stResult, double dShare)
{
    std::vector<double> all;
    for (const auto& latency : stResult.latencies)
        all.insert(all.end(), latency.begin(), latency.end());
    std::ranges::sort(all);
    return Percentile(all, dShare);
}

double LatencyRatio(const RESULT& stVex, const RESULT& stOther, double dShare)
{
    std::vector<double> ratios;
    for (size_t i = 0; i < stVex.latencies.size(); ++i)
        ratios.push_back(Ratio(Percentile(stVex.latencies[i], dShare), Percentile(stOther.latencies[i], dShare)));
    return Median(ratios);
}

CASE RunCase(std::vector<RELAY>& relays, size_t szPayload, size_t szLanes, const CASE_PLAN& stPlan)
{
    const RELAY_FRAMES frames(szPayload);
    CASE stCase{szPayload, szLanes, std::vector<RESULT>(relays.size())};
    for (int i = 0; i < stPlan.nRounds; ++i)
        for (size_t k = 0; k < relays.size(); ++k) {
            stCase.results[k].rates.push_back(MeasureRate(relays[k], szLanes, frames, stPlan.rateTime));
            DrainSinks(relays[k], milliseconds(50));
        }
    for (int i = 0; i < stPlan.nRounds && stPlan.latencyTime > milliseconds(0); ++i)
        for (size_t k = 0; k < relays.size(); ++k)
            stCase.results[k].latencies.push_back(MeasureLatency(relays[k], szLanes, frames, stPlan.latencyTime));
    return stCase;
}
