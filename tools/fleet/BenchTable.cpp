#include "fleet/BenchTable.h"

#include "fleet/FleetTime.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace
{
constexpr uint64_t NS_PER_MS = 1'000'000;
using ROW = std::array<std::string, 9>;

ROW RowOf(const FLEET_BENCH_STATE& stBench, uint64_t ullNow)
{
    const std::string strSeen = AgeText(stBench.ullTime * NS_PER_MS, ullNow * NS_PER_MS);
    const std::string strBehind = AgeText(0, stBench.ullBacklogMs * NS_PER_MS);
    return {stBench.strBench,
            strSeen == "now" ? strSeen : strSeen + " ago",
            std::to_string(PresentModems(stBench)),
            ShortNumber(stBench.dRecordRate),
            ShortNumber(stBench.dByteRate),
            ShortNumber(static_cast<double>(stBench.ullBacklogBytes)),
            stBench.ullBacklogBytes > 0 ? strBehind : "-",
            std::to_string(stBench.ullLostRecords) + "/" + std::to_string(stBench.ullLostSegments),
            ShortNumber(static_cast<double>(stBench.ullDiskFree))};
}
} // namespace

std::string ShortNumber(double dNumber)
{
    constexpr double STEP = 1000;
    constexpr double TWO_DIGITS = 9.95; // from here on they stand before the point
    constexpr std::array<const char*, 5> SUFFIXES = {"", "k", "M", "G", "T"};
    size_t szSuffix = 0;
    for (; dNumber >= STEP - 0.5 && szSuffix + 1 < SUFFIXES.size(); ++szSuffix)
        dNumber /= STEP;
    std::array<char, 32> szText{};
    (void)std::snprintf(szText.data(), szText.size(), szSuffix > 0 && dNumber < TWO_DIGITS ? "%.1f%s" : "%.0f%s",
                        dNumber, SUFFIXES[szSuffix]);
    return szText.data();
}

std::string BenchTable(std::vector<FLEET_BENCH_STATE> benches, uint64_t ullNow)
{
    std::ranges::sort(benches, {}, &FLEET_BENCH_STATE::strBench);
    std::vector<ROW> rows = {
        {"BENCH", "SEEN", "MODEMS", "RECORDS/S", "BYTES/S", "BACKLOG", "BEHIND", "LOST", "DISK FREE"}};
    for (const FLEET_BENCH_STATE& stBench : benches)
        rows.push_back(RowOf(stBench, ullNow));
    std::array<size_t, std::tuple_size_v<ROW>> widths{};
    for (const ROW& row : rows)
        for (size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], row[i].size());
    std::string strText;
    for (const ROW& row : rows) {
        std::string strLine;
        for (size_t i = 0; i < row.size(); ++i)
            strLine += row[i] + std::string(widths[i] - row[i].size() + 2, ' ');
        strText += strLine.substr(0, strLine.find_last_not_of(' ') + 1) + '\n';
    }
    return strText;
}
