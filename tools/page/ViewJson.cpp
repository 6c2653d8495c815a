#include "page/ViewJson.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>

using nlohmann::ordered_json;

namespace
{
template <class T> ordered_json OrNull(const std::optional<T>& value)
{
    return value ? ordered_json(*value) : ordered_json();
}

ordered_json ChannelJson(const PAGE_STATE& stState, uint8_t ucChannel, const PAGE_CHANNEL& stChannel)
{
    ordered_json client;
    if (stChannel.ulClient != 0) {
        const PAGE_CLIENT* const pClient = stState.modems.FindClient(stChannel.ulClient);
        client = {{"client", stChannel.ulClient},
                  {"address", pClient == nullptr ? "" : pClient->strAddress},
                  {"since", stChannel.dClientSince}};
    }
    return {{"channel", ChannelName(ucChannel)}, {"port", stChannel.ulPort},          {"name", stChannel.strName},
            {"attached", stChannel.bAttached},   {"confirmed", stChannel.bConfirmed}, {"client", client}};
}

/// SECONDS values, zeros where the page doesn't reach back so far.
ordered_json RateSeries(const PAGE_RATES& stRates, TAP_KIND enKind, uint64_t PAGE_COUNT::*pField)
{
    const size_t szKind = static_cast<size_t>(enKind) - static_cast<size_t>(TAP_KIND::UE_TO_AGENT);
    ordered_json series = ordered_json::array();
    for (size_t i = stRates.seconds.size(); i < PAGE_RATES::SECONDS; ++i)
        series.push_back(0);
    for (const auto& astSecond : stRates.seconds)
        series.push_back(astSecond[szKind].*pField);
    return series;
}

ordered_json RatesJson(const PAGE_RATES& stRates)
{
    return {{"time", stRates.dTime},
            {"step", 1000},
            {"from_ue_bytes", RateSeries(stRates, TAP_KIND::UE_TO_AGENT, &PAGE_COUNT::ullBytes)},
            {"to_ue_bytes", RateSeries(stRates, TAP_KIND::AGENT_TO_UE, &PAGE_COUNT::ullBytes)},
            {"from_ue_packets", RateSeries(stRates, TAP_KIND::UE_TO_AGENT, &PAGE_COUNT::ullPackets)},
            {"to_client_bytes", RateSeries(stRates, TAP_KIND::AGENT_TO_CLIENT, &PAGE_COUNT::ullBytes)}};
}

ordered_json AgentJson(const PAGE_STATE& stState)
{
    std::array<char, 40> szRun{};
    (void)std::snprintf(szRun.data(), szRun.size(), "%016llx%016llx",
                        static_cast<unsigned long long>(stState.stHello.ullRunHigh),
                        static_cast<unsigned long long>(stState.stHello.ullRunLow));
    const bool bKnown = stState.ullRuns > 0;
    return {{"connected", stState.bConnected},
            {"tap", stState.stSettings.strTap},
            {"host", stState.stHello.strHost},
            {"run", bKnown ? szRun.data() : ""},
            {"start", PageTime(stState.stHello.ullAgentStart)},
            {"lost", stState.ullRunLost}};
}

ordered_json LineJson(const PLOT_LINE& stLine)
{
    return {{"name", stLine.strName}, {"unit", UnitOf(stLine.strName)}};
}
} // namespace

ordered_json ModemJson(const PAGE_STATE& stState, const PAGE_MODEM& stModem)
{
    ordered_json channels = ordered_json::array();
    for (size_t i = 0; i < stModem.astChannel.size(); ++i)
        channels.push_back(ChannelJson(stState, static_cast<uint8_t>(i), stModem.astChannel[i]));
    return {{"ue", stModem.ulUe},      {"state", StateName(stModem.State())}, {"version", stModem.strVersion},
            {"imei", stModem.strImei}, {"group", stModem.strGroup},           {"since", stModem.dSince},
            {"last", stModem.dLast},   {"losses", stModem.ullLosses},         {"warnings", stModem.ullWarnings},
            {"channels", channels},    {"rates", RatesJson(stModem.stRates)}};
}

ordered_json OverviewJson(const PAGE_STATE& stState)
{
    ordered_json modems = ordered_json::array();
    for (const auto& [ulUe, stModem] : stState.modems.Modems())
        modems.push_back(ModemJson(stState, stModem));
    ordered_json clients = ordered_json::array();
    for (const auto& [ulClient, st] : stState.modems.Clients())
        clients.push_back({{"client", ulClient},
                           {"address", st.strAddress},
                           {"channel", ChannelName(st.ucChannel)},
                           {"since", st.dSince},
                           {"ue", OrNull(st.ue)},
                           {"port", OrNull(st.port)}});
    ordered_json losses = ordered_json::array();
    for (const PAGE_LOSS& st : stState.losses)
        losses.push_back({{"time", st.dTime}, {"what", st.strWhat}, {"count", st.ullCount}, {"ue", OrNull(st.ue)}});
    ordered_json lines = ordered_json::array();
    for (const PAGE_LOG_LINE& st : stState.logLines)
        lines.push_back({{"time", st.dTime}, {"level", LogLevelName(st.enLevel)}, {"text", st.strText}});
    return {{"time", stState.dNow},
            {"tick", stState.ullTick},
            {"agent", AgentJson(stState)},
            {"control", stState.stSettings.bControl},
            {"modems", modems},
            {"clients", clients},
            {"losses", losses},
            {"log", lines},
            {"log_source", stState.strLogSource}};
}

ordered_json PlotJson(const std::string& strId, const CPlotStore::ENTRY& stEntry, double dNow)
{
    ordered_json lines = ordered_json::array();
    for (const PLOT_LINE& stLine : stEntry.plot.Lines())
        lines.push_back(stEntry.strUnit.empty() ? LineJson(stLine)
                                                : ordered_json{{"name", stLine.strName}, {"unit", stEntry.strUnit}});
    return {{"id", strId},
            {"title", stEntry.strTitle},
            {"group", stEntry.strGroup},
            {"lines", lines},
            {"more", stEntry.plot.LinesBeyond()},
            {"points", stEntry.plot.Points().size()},
            {"last", stEntry.plot.Last()},
            {"running", stEntry.plot.IsRunning(dNow)}};
}

ordered_json PlotsJson(const PAGE_STATE& stState, unsigned int ulUe)
{
    ordered_json plots = ordered_json::array();
    for (const auto& [strId, stEntry] : stState.plots.Of(ulUe))
        plots.push_back(PlotJson(strId, stEntry, stState.dNow));
    return plots;
}

ordered_json PlotNumber(const PLOT_LINE& stLine, double dValue)
{
    constexpr double EXACT = 9007199254740992.0; // 2^53
    if (stLine.bWhole && std::abs(dValue) <= EXACT)
        return static_cast<int64_t>(dValue);
    return dValue;
}

ordered_json PointsJson(const std::vector<PLOT_LINE>& lines, std::span<const PLOT_POINT> points)
{
    ordered_json times = ordered_json::array();
    std::vector<ordered_json> values(lines.size(), ordered_json::array());
    for (const PLOT_POINT& stPoint : points) {
        times.push_back(stPoint.dTime);
        for (size_t i = 0; i < lines.size(); ++i)
            values[i].push_back((stPoint.ullHas >> i & 1) != 0 ? PlotNumber(lines[i], stPoint.vecValues[i])
                                                               : ordered_json());
    }
    return {{"t", std::move(times)}, {"v", std::move(values)}};
}

ordered_json NewPointsJson(const PAGE_STATE& stState, unsigned int ulUe)
{
    ordered_json plots = ordered_json::object();
    for (const auto& [strId, stEntry] : stState.plots.Of(ulUe)) {
        const auto& points = stEntry.plot.Points();
        const std::vector<PLOT_POINT> tick(points.begin() + static_cast<ptrdiff_t>(stEntry.plot.TickBegin()),
                                           points.begin() + static_cast<ptrdiff_t>(stEntry.plot.TickEnd()));
        if (!tick.empty())
            plots[strId] = PointsJson(stEntry.plot.Lines(), tick);
    }
    return plots;
}

std::string IsoTime(double dTime)
{
    const double dSeconds = std::floor(dTime / 1000);
    const auto tSeconds = static_cast<time_t>(dSeconds);
    tm stUtc{};
    gmtime_r(&tSeconds, &stUtc);
    std::array<char, 80> szTime{};
    (void)std::snprintf(szTime.data(), szTime.size(), "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", stUtc.tm_year + 1900,
                        stUtc.tm_mon + 1, stUtc.tm_mday, stUtc.tm_hour, stUtc.tm_min, stUtc.tm_sec,
                        static_cast<int>(dTime - dSeconds * 1000));
    return szTime.data();
}

std::string JsonText(const ordered_json& value)
{
    return value.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}
