#pragma once

#include "RelayRun.h"

// One case of a comparison: relays take turns in many short rounds. A ratio is the median of the rounds' ratios, so
// that what else the machine does, and how fast it runs at the moment, meets all of them.

struct CASE_PLAN
{
    int nRounds;
    std::chrono::milliseconds rateTime;    // of a round
    std::chrono::milliseconds latencyTime; // of a round; with 0 latencies aren't measured
};

struct RESULT
{
    // Of each round:
    std::vector<RELAY_RATE> rates;
    std::vector<std::vector<double>> latencies; // microseconds, sorted
};

struct CASE
{
    size_t szPayload;
    size_t szLanes;
    std::vector<RESULT> results; // of each relay, in their order
};

CASE RunCase(std::vector<RELAY>& relays, size_t szPayload, size_t szLanes, const CASE_PLAN& stPlan);

using RateValue = double RELAY_RATE::*;

double MedianOf(const RESULT& stResult, RateValue value);
double MedianRatio(const RESULT& stVex, const RESULT& stOther, RateValue value);
/// Over all rounds.
double Latency(const RESULT& stResult, double dShare);
double LatencyRatio(const RESULT& stVex, const RESULT& stOther, double dShare);
