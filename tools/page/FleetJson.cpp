#include "page/FleetJson.h"

#include <cmath>
#include <nlohmann/json.hpp>

using nlohmann::ordered_json;

namespace
{
/// A rate with one digit behind the point, so that it stays short.
double Rate(double dRate)
{
    constexpr double TENTHS = 10;
    return std::round(dRate * TENTHS) / TENTHS;
}

/// A rate that is large where it counts.
uint64_t Whole(double dRate)
{
    return static_cast<uint64_t>(std::round(dRate)); // STATE_RATE_MOST at most
}

double RecordRate(const FLEET_MODEM_STATE& stModem)
{
    double dSum = 0;
    for (const FLEET_CHANNEL_STATE& stChannel : stModem.vecChannels)
        dSum += stChannel.dRecordRate;
    return dSum;
}

ordered_json ModemJson(const FLEET_MODEM_STATE& stModem)
{
    return {{"ue", stModem.ulUe},
            {"name", stModem.strName},
            {"channels", PresentChannels(stModem)},
            {"records_per_second", Rate(RecordRate(stModem))}};
}

ordered_json ModemWithChannelsJson(const FLEET_MODEM_STATE& stModem)
{
    ordered_json channels = ordered_json::array();
    for (const FLEET_CHANNEL_STATE& stChannel : stModem.vecChannels)
        channels.push_back({{"channel", stChannel.strChannel},
                            {"present", stChannel.bPresent},
                            {"records", stChannel.ullRecords},
                            {"records_per_second", Rate(stChannel.dRecordRate)},
                            {"bytes_per_second", Whole(stChannel.dByteRate)}});
    return {{"ue", stModem.ulUe}, {"name", stModem.strName}, {"channels", std::move(channels)}};
}

/// The steps' rates, whole numbers; null where nothing came.
ordered_json StepsJson(const std::deque<BENCH_STEP>& steps, double BENCH_STEP::*pField)
{
    ordered_json list = ordered_json::array();
    for (const BENCH_STEP& stStep : steps)
        list.push_back(stStep.bCame ? ordered_json(Whole(stStep.*pField)) : ordered_json());
    return list;
}

ordered_json HubJson(const FLEET_HUB& stHub)
{
    return {{"connected", stHub.bConnected}, {"server", stHub.strServer}, {"error", stHub.strError}};
}

/// A bench; each of its modems by pfnModem.
ordered_json OneJson(const CFleetBoard& board, const FLEET_BENCH& stBench,
                     ordered_json (*pfnModem)(const FLEET_MODEM_STATE&))
{
    const FLEET_BENCH_STATE& st = stBench.stState;
    ordered_json modems = ordered_json::array();
    for (const FLEET_MODEM_STATE& stModem : st.vecModems)
        modems.push_back(pfnModem(stModem));
    return {{"bench", st.strBench},
            {"state", BENCH_PRESENCE_NAMES[static_cast<size_t>(board.PresenceOf(stBench))]},
            {"seen", stBench.ullSeen},
            {"epoch", st.strEpoch},
            {"version", st.strVersion},
            {"started", st.ullStarted},
            {"records_per_second", Rate(st.dRecordRate)},
            {"bytes_per_second", Whole(st.dByteRate)},
            {"rates",
             {{"time", board.StepEnd()},
              {"step", CBenchSteps::STEP_MS},
              {"records", StepsJson(stBench.steps.Steps(), &BENCH_STEP::dRecords)},
              {"bytes", StepsJson(stBench.steps.Steps(), &BENCH_STEP::dBytes)}}},
            {"modems", std::move(modems)},
            {"lost_records", st.ullLostRecords},
            {"lost_segments", st.ullLostSegments},
            {"backlog_bytes", st.ullBacklogBytes},
            {"backlog_ms", st.ullBacklogMs},
            {"sent_bytes", st.ullSentBytes},
            {"sent_messages", st.ullSentMessages},
            {"spool_bytes", st.ullSpoolBytes},
            {"disk_free", st.ullDiskFree},
            {"disk_size", st.ullDiskSize},
            {"requests", st.bRequests}};
}
} // namespace

ordered_json FleetJson(const CFleetBoard& board)
{
    ordered_json benches = ordered_json::array();
    for (const auto& [strBench, stBench] : board.Benches())
        benches.push_back(OneJson(board, stBench, ModemJson));
    return {
        {"time", board.Now()}, {"tick", board.Tick()}, {"hub", HubJson(board.stHub)}, {"benches", std::move(benches)}};
}

ordered_json BenchJson(const CFleetBoard& board, const FLEET_BENCH& stBench)
{
    return {{"time", board.Now()},
            {"tick", board.Tick()},
            {"hub", HubJson(board.stHub)},
            {"bench", OneJson(board, stBench, ModemWithChannelsJson)}};
}
