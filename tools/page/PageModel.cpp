#include "page/PageModel.h"

#include "client/Names.h"
#include "data/DiagPacket.h"
#include "page/LogFollower.h"
#include "page/LogSource.h"
#include "page/Metrics.h"
#include "page/MetricsText.h"
#include "page/PacketView.h"
#include "page/PageConfig.h"
#include "page/PageExport.h"
#include "page/PageQueryArgs.h"
#include "page/PageState.h"
#include "page/ViewJson.h"

#include <nlohmann/json.hpp>

using nlohmann::ordered_json;

// The tap's thread and the seconds' change the state under the lock, each for the time of one record or one second.
// Requests copy what they need under it and turn it into text without it: however much a browser asks for, the reader
// of the tap waits for a copy at most.

namespace
{
constexpr uint64_t NS_PER_MINUTE = 60'000'000'000;
constexpr uint64_t MINUTES_MOST = 24 * 60;
constexpr uint64_t PACKETS_LIMIT = 100; // rows, unless the query says otherwise
constexpr uint64_t PACKETS_MOST = 1000;
constexpr size_t REFUSALS_MOST = 256; // different ones that are counted each by itself

bool IsPacket(TAP_KIND enKind)
{
    return enKind >= TAP_KIND::UE_TO_AGENT && enKind <= TAP_KIND::AGENT_TO_CLIENT;
}

PAGE_ANSWER Answer(const ordered_json& value)
{
    return {200, "application/json", JsonText(value)};
}

PAGE_ANSWER NoSuchUe(unsigned int ulUe)
{
    return PageError(404, "no modem was seen as UE " + std::to_string(ulUe));
}
} // namespace

struct CPageModel::IMPL
{
    explicit IMPL(const SETTINGS& st) : stSettings(st), stState(st) {}

    // Each gives the answer to one address.
    PAGE_ANSWER Overview(const PAGE_QUERY& stQuery);
    PAGE_ANSWER Modem(const PAGE_QUERY& stQuery);
    PAGE_ANSWER Plot(const PAGE_QUERY& stQuery);
    PAGE_ANSWER Packets(const PAGE_QUERY& stQuery);
    PAGE_ANSWER Packet(const PAGE_QUERY& stQuery);
    PAGE_ANSWER ExportCapture(const PAGE_QUERY& stQuery);
    PAGE_ANSWER ExportCsv(const PAGE_QUERY& stQuery);
    PAGE_ANSWER Control(const PAGE_QUERY& stQuery);
    PAGE_ANSWER Metrics(const PAGE_QUERY& stQuery);
    PAGE_ANSWER Page(const PAGE_QUERY& stQuery);
    PAGE_ANSWER OfAFleet(const PAGE_QUERY& stQuery);

    /// A plot's points from one time to another, copied.
    struct PLOT_PART
    {
        std::string strId;
        ordered_json plot; // PlotJson
        std::vector<PLOT_LINE> lines;
        std::vector<PLOT_POINT> points;
    };
    /// None, with the answer that says why.
    std::optional<PLOT_PART> CopyPlot(const PAGE_QUERY& stQuery, PAGE_ANSWER& stWrong);
    CPacketSnapshot Snapshot();
    FILTER_CFG_STRU Layout();
    ordered_json ControlJson(unsigned int ulUe) const;

    void TakeConfiguration(ByteView text) REQUIRES(Lock);
    void NoteRefusal(const TAP_RECORD& stRecord, ByteView packet) REQUIRES(Lock);
    void NoteTapLoss(const TAP_RECORD& stRecord, uint64_t ullLost) REQUIRES(Lock);
    void NoteLogLine(std::string_view line) REQUIRES(Lock);
    std::optional<unsigned int> UeOfLogLine(std::string_view text, const std::optional<LOG_LOSS>& loss) const
        REQUIRES(Lock);
    void AddRatePoints() REQUIRES(Lock);
    void FollowLog();
    std::shared_ptr<const std::string> MakeTick(const std::string& strView, unsigned int ulUe);

    const SETTINGS stSettings;
    CONTROL_VIEW controlView; // set before there are threads
    CLogFollower follower;    // of the thread that has the seconds

    mutable xtl::Mutex Lock;
    PAGE_STATE stState GUARDED_BY(Lock);
    CCapturePicture picture GUARDED_BY(Lock);  // tells the pictures that the agent makes for others
    FILTER_CFG_STRU stLayout GUARDED_BY(Lock); // of the modems' LTE packets
    std::string strLogName GUARDED_BY(Lock);   // with which the agent's log files begin
    bool bFindLog GUARDED_BY(Lock) = true;     // a run has begun since the log file was looked for
    /// Text of each view's newest tick, by view and UE, and the tick.
    std::map<std::pair<std::string, unsigned int>, std::pair<uint64_t, std::shared_ptr<const std::string>>>
        mapTicks GUARDED_BY(Lock);
};

CPageModel::CPageModel(const SETTINGS& stSettings) : m_pImpl(std::make_unique<IMPL>(stSettings))
{
    const xtl::MutexGuard guard(m_pImpl->Lock);
    m_pImpl->strLogName = stSettings.strLog;
}

CPageModel::~CPageModel() = default;

void CPageModel::SetControlView(CONTROL_VIEW view)
{
    m_pImpl->controlView = std::move(view);
}

// ---- What the tap tells ----

void CPageModel::BeginRun(const TAP_HELLO& stHello)
{
    const xtl::MutexGuard guard(m_pImpl->Lock);
    PAGE_STATE& st = m_pImpl->stState;
    st.modems.EndRun(PageTime(st.LatestTime()));
    st.bConnected = true;
    st.stHello = stHello;
    ++st.ullRuns;
    st.ullRunLost = 0;
    st.packets.BeginRun(stHello, st.LatestTime());
    m_pImpl->picture.Clear();
    m_pImpl->bFindLog = true;
}

void CPageModel::EndRun()
{
    const xtl::MutexGuard guard(m_pImpl->Lock);
    PAGE_STATE& st = m_pImpl->stState;
    st.bConnected = false;
    st.modems.EndRun(PageTime(st.LatestTime()));
}

void CPageModel::Take(const TAP_RECORD& stRecord, ByteView bytes, uint64_t ullLost)
{
    const xtl::MutexGuard guard(m_pImpl->Lock);
    PAGE_STATE& st = m_pImpl->stState;
    if (ullLost > 0)
        m_pImpl->NoteTapLoss(stRecord, ullLost);
    const auto szKind = static_cast<size_t>(stRecord.enKind);
    if (szKind == 0 || szKind >= st.aullRecords.size() || m_pImpl->picture.IsForOthers(stRecord))
        return;
    st.ullLatest = stRecord.ullTime;
    ++st.aullRecords[szKind];
    st.aullBytes[szKind] += bytes.size();
    (void)st.packets.Put(stRecord, bytes, ullLost);
    if (IsPacket(stRecord.enKind))
        st.modems.CountPacket(stRecord, bytes.size());
    if (stRecord.enKind == TAP_KIND::AGENT_TO_CLIENT) {
        st.plots.Take(stRecord, bytes);
        m_pImpl->NoteRefusal(stRecord, bytes);
    } else if (stRecord.enKind == TAP_KIND::PORT_EVENT) {
        if (st.modems.TakeEvent(stRecord, bytes))
            st.plots.Forget(stRecord.ucUe);
    } else if (stRecord.enKind == TAP_KIND::CONFIGURATION) {
        m_pImpl->TakeConfiguration(bytes);
    }
}

void CPageModel::IMPL::TakeConfiguration(ByteView text)
{
    const PAGE_CONFIG stConfig = ReadPageConfig({reinterpret_cast<const char*>(text.data()), text.size()});
    stLayout = stConfig.stLayout;
    if (stSettings.strLog.empty())
        strLogName = stConfig.strLogName;
}

void CPageModel::IMPL::NoteTapLoss(const TAP_RECORD& stRecord, uint64_t ullLost)
{
    stState.ullTapLost += ullLost;
    stState.ullRunLost += ullLost;
    stState.NoteLoss({PageTime(stRecord.ullTime), "records that the page was too late for", ullLost, std::nullopt});
}

/// On the channels where requests are answered the word behind the id is a result.
void CPageModel::IMPL::NoteRefusal(const TAP_RECORD& stRecord, ByteView packet)
{
    if (stRecord.ucUe == TAP_NO_UE || (stRecord.ucChannel != CHANNEL_LTE_DIAG && stRecord.ucChannel != CHANNEL_GU_CMD))
        return;
    const uint32_t ulRc = ViewAck(packet).stHead.ulRc;
    if (ulRc == DIAG_RC_OK)
        return;
    const bool bNamed = !ResultName(ulRc).empty() && stState.mapRefused.size() < REFUSALS_MOST;
    ++stState.mapRefused[{stRecord.ucUe, stRecord.ucChannel, bNamed ? std::to_string(ulRc) : "other"}];
}

// ---- The seconds ----

void CPageModel::OnSecond(uint64_t ullNow)
{
    m_pImpl->FollowLog();
    const xtl::MutexGuard guard(m_pImpl->Lock);
    PAGE_STATE& st = m_pImpl->stState;
    st.dNow = PageTime(ullNow);
    if (st.ullTick++ == 0)
        st.dStart = st.dNow;
    for (const unsigned int ulUe : st.modems.OnSecond(st.dNow))
        st.plots.Forget(ulUe);
    m_pImpl->AddRatePoints();
    st.plots.MarkTick();
}

/// A point of each modem's rates, with the classes that it has had packets of.
void CPageModel::IMPL::AddRatePoints()
{
    for (const auto& [ulUe, stModem] : stState.modems.Modems()) {
        PLOT_VALUES packets;
        PLOT_VALUES bytes;
        for (size_t szKind = 0; szKind < PACKET_KINDS; ++szKind)
            for (size_t i = 0; i < CHANNELNUM; ++i) {
                if (stModem.astCount[szKind][i].ullPackets == 0)
                    continue;
                const std::string strClass = std::string(KindName(static_cast<TAP_KIND>(szKind + 1))) + ' ' +
                                             ChannelName(static_cast<uint8_t>(i));
                const PAGE_COUNT& stCount = stModem.astClosed[szKind][i];
                packets.push_back({strClass, static_cast<double>(stCount.ullPackets)});
                bytes.push_back({strClass, static_cast<double>(stCount.ullBytes)});
            }
        if (packets.empty())
            continue;
        stState.plots.Add(ulUe, "rate/packets", {"packets by class", "Rates", "packets/s", {}}, stState.dNow, packets);
        stState.plots.Add(ulUe, "rate/bytes", {"bytes by class", "Rates", "bytes/s", {}}, stState.dNow, bytes);
    }
}

/// Reads what the log has got. The file is looked for when a run has begun, and until there is one.
void CPageModel::IMPL::FollowLog()
{
    std::string strName;
    bool bFind = false;
    {
        const xtl::MutexGuard guard(Lock);
        strName = strLogName;
        bFind = bFindLog;
        bFindLog = false;
    }
    if (bFind || follower.Path().empty())
        follower.Follow(NewestLogFile(strName));
    std::vector<std::string> lines;
    follower.Poll([&](std::string_view line) { lines.emplace_back(line); });
    const xtl::MutexGuard guard(Lock);
    stState.strLogSource = follower.Path();
    for (const std::string& strLine : lines)
        NoteLogLine(strLine);
}

void CPageModel::IMPL::NoteLogLine(std::string_view line)
{
    const auto parsed = ParseLogLine(line);
    if (!parsed)
        return;
    ++stState.aullLogLines[static_cast<size_t>(parsed->enLevel)];
    stState.logLines.push_front(*parsed);
    if (stState.logLines.size() > PAGE_STATE::LOG_LINES_MOST)
        stState.logLines.pop_back();
    if (parsed->enLevel == LOG_LEVEL::INFO)
        return;
    const auto loss = LossOf(parsed->strText);
    const auto ue = UeOfLogLine(parsed->strText, loss);
    if (PAGE_MODEM* const pModem = ue ? stState.modems.Find(*ue) : nullptr) {
        ++pModem->ullWarnings;
        pModem->ullLosses += loss ? loss->ullCount : 0;
    }
    if (!loss)
        return;
    stState.NoteLoss({parsed->dTime, loss->pszWhat, loss->ullCount, ue});
    stState.mapLogLosses[{loss->pszReason, loss->channel ? ChannelName(*loss->channel) : ""}] += loss->ullCount;
}

std::optional<unsigned int> CPageModel::IMPL::UeOfLogLine(std::string_view text,
                                                          const std::optional<LOG_LOSS>& loss) const
{
    if (const auto ue = UeOfLine(text))
        return ue;
    if (const auto port = PortOfLine(text))
        return stState.modems.UeOfPort(*port);
    // A client's loss names its channel: while one client alone is bound there, it is that one's.
    return loss && loss->channel ? stState.modems.OnlyBoundUe(*loss->channel) : std::nullopt;
}

// ---- What the browsers ask ----

std::optional<CPageModel::GU_CHANNEL> CPageModel::GuChannel(unsigned int ulUe) const
{
    const IMPL& impl = *m_pImpl;
    const xtl::MutexGuard guard(impl.Lock);
    const PAGE_STATE& st = impl.stState;
    const PAGE_MODEM* const pModem = st.modems.Find(ulUe);
    if (pModem == nullptr || !pModem->astChannel[CHANNEL_GU_CMD].bAttached)
        return std::nullopt;
    const PAGE_CHANNEL& stCommand = pModem->astChannel[CHANNEL_GU_CMD];
    const PAGE_CHANNEL& stData = pModem->astChannel[CHANNEL_GU_DATA];
    const PAGE_CLIENT* const pClient = st.modems.FindClient(stCommand.ulClient);
    const PAGE_CLIENT* const pDataClient = st.modems.FindClient(stData.ulClient);
    return GU_CHANNEL{stCommand.ulPort, stCommand.ulClient, pClient == nullptr ? "" : pClient->strAddress,
                      stData.ulClient, pDataClient == nullptr ? "" : pDataClient->strAddress};
}

bool CPageModel::IsConnected() const
{
    const IMPL& impl = *m_pImpl;
    const xtl::MutexGuard guard(impl.Lock);
    return impl.stState.bConnected;
}

std::optional<PAGE_ANSWER> CPageModel::Get(const PAGE_QUERY& stQuery)
{
    static const std::map<std::string, PAGE_ANSWER (IMPL::*)(const PAGE_QUERY&)> s_views = {
        {"/api/overview", &IMPL::Overview},
        {"/api/modem", &IMPL::Modem},
        {"/api/plot", &IMPL::Plot},
        {"/api/packets", &IMPL::Packets},
        {"/api/packet", &IMPL::Packet},
        {"/api/export.pcapng", &IMPL::ExportCapture},
        {"/api/export.csv", &IMPL::ExportCsv},
        {"/api/control", &IMPL::Control},
        {"/metrics", &IMPL::Metrics},
        {"/api/page", &IMPL::Page},
        {"/api/fleet", &IMPL::OfAFleet},
        {"/api/bench", &IMPL::OfAFleet},
    };
    const auto view = s_views.find(stQuery.strPath);
    if (view == s_views.end())
        return std::nullopt;
    return (m_pImpl.get()->*view->second)(stQuery);
}

PAGE_ANSWER CPageModel::IMPL::Overview(const PAGE_QUERY&)
{
    ordered_json view;
    {
        const xtl::MutexGuard guard(Lock);
        view = OverviewJson(stState);
    }
    return Answer(view);
}

PAGE_ANSWER CPageModel::IMPL::Modem(const PAGE_QUERY& stQuery)
{
    CPageArgs args(stQuery);
    const unsigned int ulUe = args.Ue();
    if (!args.Ok())
        return PageError(400, args.Error());
    ordered_json view;
    {
        const xtl::MutexGuard guard(Lock);
        const PAGE_MODEM* const pModem = stState.modems.Find(ulUe);
        if (pModem == nullptr)
            return NoSuchUe(ulUe);
        view = {{"time", stState.dNow},
                {"tick", stState.ullTick},
                {"modem", ModemJson(stState, *pModem)},
                {"plots", PlotsJson(stState, ulUe)}};
    }
    view["control"] = ControlJson(ulUe);
    return Answer(view);
}

std::optional<CPageModel::IMPL::PLOT_PART> CPageModel::IMPL::CopyPlot(const PAGE_QUERY& stQuery, PAGE_ANSWER& stWrong)
{
    CPageArgs args(stQuery);
    const unsigned int ulUe = args.Ue();
    const std::string strPlot = args.Text("plot");
    const double dFrom = args.Real("from").value_or(0);
    const double dTo = args.Real("to").value_or(std::numeric_limits<double>::infinity());
    const double dStep = args.Real("step").value_or(0);
    if (!args.Ok()) {
        stWrong = PageError(400, args.Error());
        return std::nullopt;
    }
    const xtl::MutexGuard guard(Lock);
    const CPlotStore::ENTRY* const pEntry = stState.plots.Find(ulUe, strPlot);
    if (pEntry == nullptr) {
        stWrong = PageError(404, "UE " + std::to_string(ulUe) + " has no plot " + strPlot);
        return std::nullopt;
    }
    PLOT_PART stPart{strPlot, PlotJson(strPlot, *pEntry, stState.dNow), pEntry->plot.Lines(), {}};
    double dNext = dFrom;
    for (const PLOT_POINT& stPoint : pEntry->plot.Points())
        if (stPoint.dTime >= dNext && stPoint.dTime <= dTo) {
            stPart.points.push_back(stPoint);
            dNext = stPoint.dTime + dStep;
        }
    return stPart;
}

PAGE_ANSWER CPageModel::IMPL::Plot(const PAGE_QUERY& stQuery)
{
    PAGE_ANSWER stWrong;
    const auto part = CopyPlot(stQuery, stWrong);
    if (!part)
        return stWrong;
    ordered_json view = PointsJson(part->lines, part->points);
    view["plot"] = part->plot;
    return Answer(view);
}

PAGE_ANSWER CPageModel::IMPL::ExportCsv(const PAGE_QUERY& stQuery)
{
    PAGE_ANSWER stAnswer;
    const auto part = CopyPlot(stQuery, stAnswer);
    if (!part)
        return stAnswer;
    std::string strFile = "ue" + CPageArgs(stQuery).Text("ue") + '-' + part->strId + ".csv";
    std::ranges::replace(strFile, '/', '-');
    return {200, "text/csv; charset=utf-8", PlotCsv(part->lines, part->points), strFile};
}

CPacketSnapshot CPageModel::IMPL::Snapshot()
{
    const xtl::MutexGuard guard(Lock);
    return stState.packets.Snapshot();
}

FILTER_CFG_STRU CPageModel::IMPL::Layout()
{
    const xtl::MutexGuard guard(Lock);
    return stLayout;
}

PAGE_ANSWER CPageModel::IMPL::Packets(const PAGE_QUERY& stQuery)
{
    CPageArgs args(stQuery);
    const auto ue = args.UeIfAny();
    const uint64_t ullAfter = args.Number("after").value_or(0);
    const uint64_t ullBefore = args.Number("before").value_or(UINT64_MAX);
    const uint64_t ullLimit = args.Number("limit", PACKETS_MOST).value_or(PACKETS_LIMIT);
    const std::string strChannel = args.Text("channel");
    const std::string strDirection = args.Text("direction");
    if (!args.Ok())
        return PageError(400, args.Error());
    const CPacketSnapshot snapshot = Snapshot();
    const auto isWanted = [&](const TAP_RECORD& stRecord) {
        return IsPacketRow(stRecord) && (!ue || stRecord.ucUe == *ue) &&
               (strChannel.empty() || strChannel == ChannelName(stRecord.ucChannel)) &&
               (strDirection.empty() || strDirection == KindName(stRecord.enKind));
    };
    const FILTER_CFG_STRU stPackets = Layout();
    ordered_json rows = ordered_json::array();
    snapshot.ForEachBefore(ullBefore, [&](const KEPT_PACKET& stPacket) {
        if (stPacket.ullNumber <= ullAfter || rows.size() >= ullLimit)
            return false;
        if (isWanted(stPacket.stRecord))
            rows.push_back(PacketRow(stPacket, stPackets));
        return true;
    });
    return Answer({{"packets", rows}, {"oldest", snapshot.Oldest()}});
}

PAGE_ANSWER CPageModel::IMPL::Packet(const PAGE_QUERY& stQuery)
{
    CPageArgs args(stQuery);
    const auto number = args.Number("number", UINT64_MAX - 1);
    if (!number)
        return PageError(400, args.Ok() ? "number has to be given" : args.Error());
    ordered_json detail;
    const CPacketSnapshot snapshot = Snapshot();
    snapshot.ForEachBefore(*number + 1, [&](const KEPT_PACKET& stPacket) {
        if (stPacket.ullNumber == *number && IsPacketRow(stPacket.stRecord))
            detail = PacketDetail(stPacket, Layout());
        return false;
    });
    if (detail.is_null())
        return PageError(404, "packet " + std::to_string(*number) + " isn't kept");
    return Answer(detail);
}

PAGE_ANSWER CPageModel::IMPL::ExportCapture(const PAGE_QUERY& stQuery)
{
    CPageArgs args(stQuery);
    const auto minutes = args.Number("minutes", MINUTES_MOST);
    const auto ue = args.UeIfAny();
    if (!args.Ok() || !minutes || *minutes == 0)
        return PageError(400, args.Ok() ? "minutes has to be 1 or more" : args.Error());
    uint64_t ullNow = 0;
    {
        const xtl::MutexGuard guard(Lock);
        ullNow = stState.LatestTime();
    }
    const uint64_t ullBack = *minutes * NS_PER_MINUTE;
    const auto ucUe = ue ? std::optional(static_cast<uint8_t>(*ue)) : std::nullopt;
    std::string strFile =
        "vex-" + std::string(ue ? "ue" + std::to_string(*ue) + '-' : "") + std::to_string(*minutes) + "min.pcapng";
    return {200, "application/x-pcapng", CaptureFile(Snapshot(), ullNow > ullBack ? ullNow - ullBack : 0, ullNow, ucUe),
            strFile};
}

ordered_json CPageModel::IMPL::ControlJson(unsigned int ulUe) const
{
    if (!controlView)
        return {{"enabled", false}};
    return ordered_json::parse(controlView(ulUe), nullptr, false);
}

PAGE_ANSWER CPageModel::IMPL::Control(const PAGE_QUERY& stQuery)
{
    CPageArgs args(stQuery);
    const unsigned int ulUe = args.Ue();
    return args.Ok() ? Answer(ControlJson(ulUe)) : PageError(400, args.Error());
}

PAGE_ANSWER CPageModel::IMPL::Metrics(const PAGE_QUERY&)
{
    const xtl::MutexGuard guard(Lock);
    return {200, METRICS_TYPE, MetricsText(stState)};
}

PAGE_ANSWER CPageModel::IMPL::Page(const PAGE_QUERY&)
{
    return {200, "application/json", R"({"source":"tap"})"};
}

PAGE_ANSWER CPageModel::IMPL::OfAFleet(const PAGE_QUERY& stQuery)
{
    return PageError(404, "this page shows an agent; start vex-page with --fleet for " + stQuery.strPath);
}

// ---- Ticks ----

std::shared_ptr<const std::string> CPageModel::Tick(const PAGE_QUERY& stQuery)
{
    CPageArgs args(stQuery);
    const std::string strView = args.Text("view");
    if (strView == "overview")
        return m_pImpl->MakeTick(strView, 0);
    if (strView != "modem")
        return nullptr;
    const unsigned int ulUe = args.Ue();
    return args.Ok() ? m_pImpl->MakeTick(strView, ulUe) : nullptr;
}

/// The text of a view's newest tick. The first who asks makes it, for all.
std::shared_ptr<const std::string> CPageModel::IMPL::MakeTick(const std::string& strView, unsigned int ulUe)
{
    const bool bModem = strView == "modem";
    ordered_json view;
    uint64_t ullTick = 0;
    {
        const xtl::MutexGuard guard(Lock);
        const auto& made = mapTicks[{strView, ulUe}];
        const PAGE_MODEM* const pModem = stState.modems.Find(ulUe);
        if (bModem && pModem == nullptr)
            return nullptr;
        if (made.second && made.first == stState.ullTick)
            return made.second;
        ullTick = stState.ullTick;
        view = !bModem ? OverviewJson(stState)
                       : ordered_json{{"time", stState.dNow},
                                      {"tick", ullTick},
                                      {"modem", ModemJson(stState, *pModem)},
                                      {"plots", PlotsJson(stState, ulUe)},
                                      {"new", NewPointsJson(stState, ulUe)},
                                      {"newest", stState.packets.Newest()}};
    }
    if (bModem)
        view["control"] = ControlJson(ulUe);
    auto pText = std::make_shared<const std::string>(JsonText(view));
    const xtl::MutexGuard guard(Lock);
    mapTicks[{strView, ulUe}] = {ullTick, pText};
    return pText;
}
