#include "page/FleetMetrics.h"

#include "page/MetricsText.h"

namespace
{
constexpr double MS_PER_S = 1000;

double Seconds(uint64_t ullMs)
{
    return static_cast<double>(ullMs) / MS_PER_S;
}

/// One metric with a value for each bench.
struct BENCH_ROW
{
    const char* pszName;
    const char* pszType;
    const char* pszHelp;
    double (*pfnValue)(const FLEET_BENCH_STATE&);
};
const BENCH_ROW g_astRow[] = {
    {"vex_bench_records_per_second", GAUGE, "Records that the bench captures.",
     [](const FLEET_BENCH_STATE& st) { return st.dRecordRate; }},
    {"vex_bench_bytes_per_second", GAUGE, "Bytes that the bench captures.",
     [](const FLEET_BENCH_STATE& st) { return st.dByteRate; }},
    {"vex_bench_modems", GAUGE, "Modems with a port that is there.",
     [](const FLEET_BENCH_STATE& st) { return static_cast<double>(PresentModems(st)); }},
    {"vex_bench_backlog_bytes", GAUGE, "Bytes in the spool that the hub doesn't have.",
     [](const FLEET_BENCH_STATE& st) { return static_cast<double>(st.ullBacklogBytes); }},
    {"vex_bench_backlog_age_seconds", GAUGE, "Age of the oldest of the backlog.",
     [](const FLEET_BENCH_STATE& st) { return Seconds(st.ullBacklogMs); }},
    {"vex_bench_lost_records", GAUGE, "Records that the capture lost, in the segment that is being written.",
     [](const FLEET_BENCH_STATE& st) { return static_cast<double>(st.ullLostRecords); }},
    {"vex_bench_lost_segments_total", COUNTER, "Segments gone before they were sent, since the forwarder's start.",
     [](const FLEET_BENCH_STATE& st) { return static_cast<double>(st.ullLostSegments); }},
    {"vex_bench_spool_bytes", GAUGE, "Size of the spool.",
     [](const FLEET_BENCH_STATE& st) { return static_cast<double>(st.ullSpoolBytes); }},
    {"vex_bench_disk_free_bytes", GAUGE, "Free on the spool's file system.",
     [](const FLEET_BENCH_STATE& st) { return static_cast<double>(st.ullDiskFree); }},
    {"vex_bench_disk_size_bytes", GAUGE, "Size of the spool's file system.",
     [](const FLEET_BENCH_STATE& st) { return static_cast<double>(st.ullDiskSize); }},
};

void AddFleet(CMetricsText& text, const CFleetBoard& board)
{
    text.Single("vex_fleet_hub_connected", GAUGE, "Whether there is a connection to the hub.",
                uint64_t{board.stHub.bConnected});
    std::array<uint64_t, BENCH_PRESENCE_NAMES.size()> aullBenches{};
    for (const auto& [strBench, stBench] : board.Benches())
        ++aullBenches[static_cast<size_t>(board.PresenceOf(stBench))];
    text.Begin("vex_fleet_benches", GAUGE, "Benches, by the age of their newest state.");
    for (size_t i = 0; i < aullBenches.size(); ++i)
        text.Value({{"state", BENCH_PRESENCE_NAMES[i]}}, aullBenches[i]);
}
} // namespace

std::string FleetMetricsText(const CFleetBoard& board)
{
    CMetricsText text;
    AddFleet(text, board);
    text.Begin("vex_bench_seen_age_seconds", GAUGE, "Age of the bench's newest state.");
    for (const auto& [strBench, stBench] : board.Benches())
        text.Value({{"bench", strBench}}, Seconds(board.AgeMs(stBench)));
    for (const BENCH_ROW& stRow : g_astRow) {
        text.Begin(stRow.pszName, stRow.pszType, stRow.pszHelp);
        for (const auto& [strBench, stBench] : board.Benches())
            text.Value({{"bench", strBench}}, stRow.pfnValue(stBench.stState));
    }
    text.Single("vex_page_start_time_seconds", GAUGE, "Start of the page, seconds since 1970.", Seconds(board.Start()));
    text.Single("vex_page_ticks_total", COUNTER, "Ticks of the event streams.", board.Tick());
    return text.Text();
}
