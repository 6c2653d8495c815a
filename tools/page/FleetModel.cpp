#include "page/FleetModel.h"

#include "page/FleetJson.h"
#include "page/FleetMetrics.h"
#include "page/MetricsText.h"
#include "page/PageQueryArgs.h"
#include "page/ViewJson.h"

#include <nlohmann/json.hpp>

using nlohmann::ordered_json;

// A view is made under the lock as values, and turned into text without it; whoever reads the hub waits for that copy
// at most.

namespace
{
constexpr uint64_t NS_PER_MS = 1'000'000;
} // namespace

void CFleetModel::SetHub(FLEET_HUB stHub)
{
    const xtl::MutexGuard guard(m_Lock);
    m_board.stHub = std::move(stHub);
}

bool CFleetModel::Take(const FLEET_BENCH_STATE& stState, uint64_t ullStored)
{
    const xtl::MutexGuard guard(m_Lock);
    return m_board.Take(stState, ullStored);
}

void CFleetModel::Forget(const std::string& strBench)
{
    const xtl::MutexGuard guard(m_Lock);
    m_board.Forget(strBench);
}

void CFleetModel::KeepOnly(const std::set<std::string>& benches)
{
    const xtl::MutexGuard guard(m_Lock);
    m_board.KeepOnly(benches);
}

void CFleetModel::OnSecond(uint64_t ullNow)
{
    const xtl::MutexGuard guard(m_Lock);
    m_board.OnSecond(ullNow / NS_PER_MS);
    m_mapTicks.clear();
}

bool CFleetModel::IsConnected() const
{
    const xtl::MutexGuard guard(m_Lock);
    return m_board.stHub.bConnected;
}

std::optional<PAGE_ANSWER> CFleetModel::Get(const PAGE_QUERY& stQuery)
{
    static const std::map<std::string, PAGE_ANSWER (CFleetModel::*)(const PAGE_QUERY&)> s_views = {
        {"/api/page", &CFleetModel::Page},           {"/api/fleet", &CFleetModel::Fleet},
        {"/api/bench", &CFleetModel::Bench},         {"/metrics", &CFleetModel::Metrics},
        {"/api/overview", &CFleetModel::OfTheTap},   {"/api/modem", &CFleetModel::OfTheTap},
        {"/api/plot", &CFleetModel::OfTheTap},       {"/api/packets", &CFleetModel::OfTheTap},
        {"/api/packet", &CFleetModel::OfTheTap},     {"/api/export.pcapng", &CFleetModel::OfTheTap},
        {"/api/export.csv", &CFleetModel::OfTheTap}, {"/api/control", &CFleetModel::OfTheTap},
    };
    const auto view = s_views.find(stQuery.strPath);
    if (view == s_views.end())
        return std::nullopt;
    return (this->*view->second)(stQuery);
}

PAGE_ANSWER CFleetModel::Page(const PAGE_QUERY&)
{
    return {200, "application/json", R"({"source":"fleet"})"};
}

PAGE_ANSWER CFleetModel::Fleet(const PAGE_QUERY&)
{
    return {200, "application/json", *MakeTick("")};
}

PAGE_ANSWER CFleetModel::Bench(const PAGE_QUERY& stQuery)
{
    const std::string strBench = CPageArgs(stQuery).Text("bench");
    if (strBench.empty())
        return PageError(400, "bench has to be given");
    const auto pText = MakeTick(strBench);
    return pText ? PAGE_ANSWER{200, "application/json", *pText} : PageError(404, "no bench was seen as " + strBench);
}

PAGE_ANSWER CFleetModel::Metrics(const PAGE_QUERY&)
{
    const xtl::MutexGuard guard(m_Lock);
    return {200, METRICS_TYPE, FleetMetricsText(m_board)};
}

PAGE_ANSWER CFleetModel::OfTheTap(const PAGE_QUERY& stQuery)
{
    return PageError(404,
                     "this page shows a fleet; " + stQuery.strPath + " is of a page that a bench has of its agent");
}

std::shared_ptr<const std::string> CFleetModel::Tick(const PAGE_QUERY& stQuery)
{
    const CPageArgs args(stQuery);
    const std::string strView = args.Text("view");
    if (strView == "fleet")
        return MakeTick("");
    const std::string strBench = args.Text("bench");
    return strView == "bench" && !strBench.empty() ? MakeTick(strBench) : nullptr;
}

/// The text of the newest tick of a bench's view, or of the fleet's without one; null for a bench that isn't known. The
/// first who asks makes it, for all.
std::shared_ptr<const std::string> CFleetModel::MakeTick(const std::string& strBench)
{
    ordered_json view;
    uint64_t ullTick = 0;
    {
        const xtl::MutexGuard guard(m_Lock);
        const FLEET_BENCH* const pBench = m_board.Find(strBench);
        if (pBench == nullptr && !strBench.empty())
            return nullptr;
        if (const auto made = m_mapTicks.find(strBench); made != m_mapTicks.end())
            return made->second;
        ullTick = m_board.Tick();
        view = pBench == nullptr ? FleetJson(m_board) : BenchJson(m_board, *pBench);
    }
    auto pText = std::make_shared<const std::string>(JsonText(view));
    const xtl::MutexGuard guard(m_Lock);
    if (m_board.Tick() == ullTick)
        m_mapTicks[strBench] = pText;
    return pText;
}
