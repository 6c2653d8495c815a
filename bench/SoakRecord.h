#pragma once

#include <chrono>
#include <string>
#include <sys/types.h>
#include <vector>

/// What the agent holds at a moment of a long run.
struct SOAK_SAMPLE
{
    double dSeconds = 0; // since the start
    double dResidentKiB = 0;
    double dFiles = 0; // open descriptors
    double dThreads = 0;
};
SOAK_SAMPLE TakeSample(pid_t lPid, double dSeconds);

/// One of the values over time.
struct SOAK_SERIES
{
    const char* pszName;
    double SOAK_SAMPLE::*pValue;
    double dMargin; // what the last quarter's mean may be above that of the second quarter
};
const std::vector<SOAK_SERIES>& SoakSeries();

double MeanOf(const std::vector<SOAK_SAMPLE>& samples, double SOAK_SAMPLE::*pValue, size_t szQuarter);
/// Whether the value grew without bound: the first quarter, in which everything starts, doesn't count.
bool HasGrown(const std::vector<SOAK_SAMPLE>& samples, const SOAK_SERIES& stSeries);
/// A few lines with the values over time.
void PrintSamples(const std::vector<SOAK_SAMPLE>& samples);
/// A plot of each value, one below the other.
std::string PlotSvg(const std::vector<SOAK_SAMPLE>& samples);
