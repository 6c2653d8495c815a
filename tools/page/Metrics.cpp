#include "page/Metrics.h"

#include "page/MetricsText.h"

namespace
{
constexpr double MS_PER_S = 1000;

std::string Ue(unsigned int ulUe)
{
    return std::to_string(ulUe);
}

void AddAgent(CMetricsText& text, const PAGE_STATE& st)
{
    text.Single("vex_up", GAUGE, "Whether the agent's tap is read.", uint64_t{st.bConnected});
    text.Single("vex_agent_start_time_seconds", GAUGE, "Start of the agent's run, seconds since 1970; 0 before any.",
                PageTime(st.stHello.ullAgentStart) / MS_PER_S);
    text.Single("vex_agent_runs_total", COUNTER, "Connections to the tap of an agent.", st.ullRuns);
    text.Single("vex_tap_lost_records_total", COUNTER, "Records that the page was too late for.", st.ullTapLost);
    text.Begin("vex_tap_records_total", COUNTER, "Records read from the tap.");
    for (size_t i = 1; i < st.aullRecords.size(); ++i)
        text.Value({{"direction", KindName(static_cast<TAP_KIND>(i))}}, st.aullRecords[i]);
    text.Begin("vex_tap_bytes_total", COUNTER, "Bytes of the records read from the tap.");
    for (size_t i = 1; i < st.aullBytes.size(); ++i)
        text.Value({{"direction", KindName(static_cast<TAP_KIND>(i))}}, st.aullBytes[i]);
}

/// One metric with a value for each modem.
void AddUeMetric(CMetricsText& text, const PAGE_STATE& st, const char* pszName, const char* pszType,
                 const char* pszHelp, double (*pfnValue)(const PAGE_MODEM&))
{
    text.Begin(pszName, pszType, pszHelp);
    for (const auto& [ulUe, stModem] : st.modems.Modems())
        text.Value({{"ue", Ue(ulUe)}}, pfnValue(stModem));
}

void AddModems(CMetricsText& text, const PAGE_STATE& st)
{
    using STATE = PAGE_MODEM::STATE;
    AddUeMetric(text, st, "vex_ue_attached", GAUGE, "Whether a port of the modem is there.",
                [](const PAGE_MODEM& stModem) { return stModem.State() != STATE::GONE ? 1.0 : 0.0; });
    AddUeMetric(text, st, "vex_ue_confirmed", GAUGE, "Whether the modem has confirmed the host connect.",
                [](const PAGE_MODEM& stModem) { return stModem.State() == STATE::CONFIRMED ? 1.0 : 0.0; });
    AddUeMetric(text, st, "vex_ue_state_change_timestamp_seconds", GAUGE, "When the modem came to its state.",
                [](const PAGE_MODEM& stModem) { return stModem.dSince / MS_PER_S; });
    AddUeMetric(text, st, "vex_ue_last_packet_timestamp_seconds", GAUGE,
                "Time of the newest packet from the modem; 0 before any.",
                [](const PAGE_MODEM& stModem) { return stModem.dLast / MS_PER_S; });
    AddUeMetric(text, st, "vex_ue_losses_total", COUNTER, "Losses that the agent's log tells of the modem.",
                [](const PAGE_MODEM& stModem) { return static_cast<double>(stModem.ullLosses); });
    AddUeMetric(text, st, "vex_ue_warnings_total", COUNTER, "Warnings and errors in the agent's log about the modem.",
                [](const PAGE_MODEM& stModem) { return static_cast<double>(stModem.ullWarnings); });
}

/// One metric with a value for each channel of each modem.
void AddChannelMetric(CMetricsText& text, const PAGE_STATE& st, const char* pszName, const char* pszHelp,
                      bool (*pfnValue)(const PAGE_CHANNEL&))
{
    text.Begin(pszName, GAUGE, pszHelp);
    for (const auto& [ulUe, stModem] : st.modems.Modems())
        for (size_t i = 0; i < stModem.astChannel.size(); ++i)
            text.Value({{"ue", Ue(ulUe)}, {"channel", ChannelName(static_cast<uint8_t>(i))}},
                       uint64_t{pfnValue(stModem.astChannel[i])});
}

/// One counter with a value for each class of packets of each modem.
void AddClassMetric(CMetricsText& text, const PAGE_STATE& st, const char* pszName, const char* pszHelp,
                    uint64_t PAGE_COUNT::*pField)
{
    text.Begin(pszName, COUNTER, pszHelp);
    for (const auto& [ulUe, stModem] : st.modems.Modems())
        for (size_t szKind = 0; szKind < PACKET_KINDS; ++szKind)
            for (size_t i = 0; i < CHANNELNUM; ++i)
                text.Value({{"ue", Ue(ulUe)},
                            {"channel", ChannelName(static_cast<uint8_t>(i))},
                            {"direction", KindName(static_cast<TAP_KIND>(szKind + 1))}},
                           stModem.astCount[szKind][i].*pField);
}

void AddChannels(CMetricsText& text, const PAGE_STATE& st)
{
    AddChannelMetric(text, st, "vex_channel_attached", "Whether the channel's port is there.",
                     [](const PAGE_CHANNEL& stChannel) { return stChannel.bAttached; });
    AddChannelMetric(text, st, "vex_channel_bound", "Whether a client is bound to the channel.",
                     [](const PAGE_CHANNEL& stChannel) { return stChannel.ulClient != 0; });
    AddClassMetric(text, st, "vex_packets_total", "Packets, by direction as the agent sees it.",
                   &PAGE_COUNT::ullPackets);
    AddClassMetric(text, st, "vex_packet_bytes_total", "Bytes of the packets.", &PAGE_COUNT::ullBytes);
}

void AddClients(CMetricsText& text, const PAGE_STATE& st)
{
    std::array<uint64_t, CHANNELNUM> aullClients{};
    for (const auto& [ulClient, stClient] : st.modems.Clients())
        if (stClient.ucChannel < CHANNELNUM)
            ++aullClients[stClient.ucChannel];
    text.Begin("vex_clients", GAUGE, "Clients that are connected, as far as the page has seen them come.");
    for (size_t i = 0; i < CHANNELNUM; ++i)
        text.Value({{"channel", ChannelName(static_cast<uint8_t>(i))}}, aullClients[i]);
    text.Begin("vex_client_connections_total", COUNTER, "Connections of clients.");
    for (size_t i = 0; i < CHANNELNUM; ++i)
        text.Value({{"channel", ChannelName(static_cast<uint8_t>(i))}}, st.modems.Connections(i));
    text.Begin("vex_refused_requests_total", COUNTER, "Answers to clients with a result other than 0.");
    for (const auto& [key, ullCount] : st.mapRefused)
        text.Value({{"ue", Ue(std::get<0>(key))},
                    {"channel", ChannelName(static_cast<uint8_t>(std::get<1>(key)))},
                    {"reason", std::get<2>(key)}},
                   ullCount);
}

void AddLog(CMetricsText& text, const PAGE_STATE& st)
{
    text.Begin("vex_log_lines_total", COUNTER, "Lines of the agent's log.");
    for (size_t i = 0; i < st.aullLogLines.size(); ++i)
        text.Value({{"level", LogLevelName(static_cast<LOG_LEVEL>(i))}}, st.aullLogLines[i]);
    text.Begin("vex_lost_packets_total", COUNTER, "Packets lost, as the agent's log tells.");
    for (const auto& [key, ullCount] : st.mapLogLosses)
        text.Value({{"reason", key.first}, {"channel", key.second}}, ullCount);
}

void AddPage(CMetricsText& text, const PAGE_STATE& st)
{
    text.Single("vex_page_start_time_seconds", GAUGE, "Start of the page, seconds since 1970.", st.dStart / MS_PER_S);
    text.Single("vex_page_ticks_total", COUNTER, "Ticks of the event streams.", st.ullTick);
    text.Single("vex_page_plots", GAUGE, "Plots that are kept.", uint64_t{st.plots.Count()});
    text.Single("vex_page_plot_points", GAUGE, "Points of the plots.", uint64_t{st.plots.Points()});
    text.Single("vex_page_plot_bytes", GAUGE, "Memory of the points.", uint64_t{st.plots.Bytes()});
    text.Single("vex_page_kept_packets", GAUGE, "Records that are kept.",
                st.packets.Newest() == 0 ? 0 : st.packets.Newest() - st.packets.Oldest() + 1);
    text.Single("vex_page_kept_packet_bytes", GAUGE, "Memory of the records.", uint64_t{st.packets.Bytes()});
    text.Single("vex_reports_total", COUNTER, "Statistics, reports and measurements that were plotted.",
                st.plots.Reports());
    text.Single("vex_report_duplicates_total", COUNTER, "Those that went to several clients, beyond the first.",
                st.plots.Duplicates());
}
} // namespace

std::string MetricsText(const PAGE_STATE& stState)
{
    CMetricsText text;
    AddAgent(text, stState);
    AddModems(text, stState);
    AddChannels(text, stState);
    AddClients(text, stState);
    AddLog(text, stState);
    AddPage(text, stState);
    return text.Text();
}
