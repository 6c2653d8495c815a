#include "SoakRecord.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace
{
constexpr size_t TABLE_ROWS = 12;
constexpr double PLOT_WIDTH = 720;
constexpr double PLOT_HEIGHT = 130; // of one value
constexpr double PLOT_GAP = 50;     // above each, for its name
constexpr double PLOT_LEFT = 90;

/// A number of /proc/PID/status, such as "Threads"; 0 when the process is gone.
double StatusNumber(pid_t lPid, const std::string& strField)
{
    std::ifstream status("/proc/" + std::to_string(lPid) + "/status");
    for (std::string strLine; std::getline(status, strLine);)
        if (strLine.starts_with(strField + ":"))
            return std::stod(strLine.substr(strField.size() + 1));
    return 0;
}

double CountFiles(pid_t lPid)
{
    std::error_code ignored; // a process that has ended has none
    double dCount = 0;
    for (std::filesystem::directory_iterator entry("/proc/" + std::to_string(lPid) + "/fd", ignored), end; entry != end;
         entry.increment(ignored))
        ++dCount;
    return dCount;
}

std::string Number(double dValue)
{
    char szText[32];
    (void)std::snprintf(szText, sizeof(szText), "%.1f", dValue);
    return szText;
}

std::string PlotText(double dX, double dY, const std::string& strText)
{
    return "<text x=\"" + Number(dX) + "\" y=\"" + Number(dY) + "\">" + strText + "</text>\n";
}

/// One value's curve from 0 to its peak, with its top at dTop.
std::string PlotSeries(const std::vector<SOAK_SAMPLE>& samples, const SOAK_SERIES& stSeries, double dTop)
{
    const double dPeak = std::max(1.0, std::ranges::max(samples, {}, stSeries.pValue).*(stSeries.pValue));
    const double dTime = std::max(1.0, samples.back().dSeconds);
    std::string strPoints;
    for (const SOAK_SAMPLE& stSample : samples)
        strPoints += Number(PLOT_LEFT + PLOT_WIDTH * stSample.dSeconds / dTime) + "," +
                     Number(dTop + PLOT_HEIGHT * (1 - stSample.*(stSeries.pValue) / dPeak)) + " ";
    return PlotText(PLOT_LEFT, dTop - 8, stSeries.pszName) + PlotText(8, dTop + 10, Number(dPeak)) +
           PlotText(8, dTop + PLOT_HEIGHT, "0") + "<rect x=\"" + Number(PLOT_LEFT) + "\" y=\"" + Number(dTop) +
           "\" width=\"" + Number(PLOT_WIDTH) + "\" height=\"" + Number(PLOT_HEIGHT) +
           "\" fill=\"none\" stroke=\"#999\"/>\n<polyline fill=\"none\" stroke=\"#06c\" points=\"" + strPoints +
           "\"/>\n";
}
} // namespace

SOAK_SAMPLE TakeSample(pid_t lPid, double dSeconds)
{
    return {dSeconds, StatusNumber(lPid, "VmRSS"), CountFiles(lPid), StatusNumber(lPid, "Threads")};
}

const std::vector<SOAK_SERIES>& SoakSeries()
{
    // Room for a queue that is fuller than before, and for the clients and modems that come and go.
    static const std::vector<SOAK_SERIES> series = {
        {"resident memory, KiB", &SOAK_SAMPLE::dResidentKiB, 8192},
        {"open descriptors", &SOAK_SAMPLE::dFiles, 10},
        {"threads", &SOAK_SAMPLE::dThreads, 4},
    };
    return series;
}

double MeanOf(const std::vector<SOAK_SAMPLE>& samples, double SOAK_SAMPLE::*pValue, size_t szQuarter)
{
    const size_t szBegin = samples.size() * szQuarter / 4;
    const size_t szEnd = samples.size() * (szQuarter + 1) / 4;
    double dSum = 0;
    for (size_t i = szBegin; i < szEnd; ++i)
        dSum += samples[i].*pValue;
    return szEnd > szBegin ? dSum / static_cast<double>(szEnd - szBegin) : 0;
}

bool HasGrown(const std::vector<SOAK_SAMPLE>& samples, const SOAK_SERIES& stSeries)
{
    return MeanOf(samples, stSeries.pValue, 3) > MeanOf(samples, stSeries.pValue, 1) + stSeries.dMargin;
}

void PrintSamples(const std::vector<SOAK_SAMPLE>& samples)
{
    std::printf("\n%10s %14s %14s %10s\n", "seconds", "resident KiB", "descriptors", "threads");
    const size_t szStep = std::max<size_t>(1, samples.size() / TABLE_ROWS);
    for (size_t i = 0; i < samples.size(); i += szStep)
        std::printf("%10.0f %14.0f %14.0f %10.0f\n", samples[i].dSeconds, samples[i].dResidentKiB, samples[i].dFiles,
                    samples[i].dThreads);
    for (const SOAK_SERIES& stSeries : SoakSeries())
        std::printf("%-22s mean of the second quarter %.1f, of the last %.1f, at most %.0f more: %s\n",
                    stSeries.pszName, MeanOf(samples, stSeries.pValue, 1), MeanOf(samples, stSeries.pValue, 3),
                    stSeries.dMargin, HasGrown(samples, stSeries) ? "GROWS" : "good");
}

std::string PlotSvg(const std::vector<SOAK_SAMPLE>& samples)
{
    std::ostringstream svg;
    const double dHeight = static_cast<double>(SoakSeries().size()) * (PLOT_HEIGHT + PLOT_GAP) + 30;
    svg << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << PLOT_LEFT + PLOT_WIDTH + 20 << "\" height=\""
        << dHeight << "\" font-family=\"sans-serif\" font-size=\"12\">\n<rect width=\"100%\" height=\"100%\" "
        << "fill=\"#fff\"/>\n";
    double dTop = PLOT_GAP;
    for (const SOAK_SERIES& stSeries : samples.empty() ? std::vector<SOAK_SERIES>() : SoakSeries()) {
        svg << PlotSeries(samples, stSeries, dTop);
        dTop += PLOT_HEIGHT + PLOT_GAP;
    }
    if (!samples.empty())
        svg << PlotText(PLOT_LEFT + PLOT_WIDTH - 60, dHeight - 8, Number(samples.back().dSeconds) + " s");
    svg << "</svg>\n";
    return svg.str();
}
