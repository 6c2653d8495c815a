#include "page/PageControl.h"

#include "page/PlotSource.h"

#include <nlohmann/json.hpp>

namespace
{
using nlohmann::ordered_json;

std::string HolderText(uint32_t ulClient, const std::string& strAddress)
{
    if (ulClient == 0)
        return "";
    return (strAddress.empty() ? "" : strAddress + ", ") + "client " + std::to_string(ulClient);
}

ordered_json Holder(uint32_t ulClient, const std::string& strAddress)
{
    return {{"client", ulClient}, {"address", strAddress}};
}

/// Who is in the way of an order; null when nobody is.
ordered_json HeldBy(const CPageControl::CHANNEL& stChannel)
{
    if (stChannel.ulClient != 0)
        return Holder(stChannel.ulClient, stChannel.strAddress);
    if (stChannel.ulDataClient != 0)
        return Holder(stChannel.ulDataClient, stChannel.strDataAddress);
    return nullptr;
}

ordered_json Choice(const REPORT_ROW& stRow, const char* pszKind)
{
    return {{"kind", pszKind},
            {"name", stRow.pszName},
            {"what", stRow.pszWhat},
            {"group", ReportGroup(stRow)},
            {"period_ms", HasPeriod(stRow.enForm) ? ordered_json(stRow.usPeriodMs) : ordered_json()},
            {"modem_1", stRow.usModemStep != 0},
            {"once", IsOnce(stRow.enForm)}};
}

/// As text: it never changes, and every tick of a modem shows it.
const std::string& Choices()
{
    static const std::string s_strChoices = [] {
        ordered_json choices = ordered_json::array();
        for (const REPORT_ROW& stRow : StatReports())
            choices.push_back(Choice(stRow, "stat"));
        for (const REPORT_ROW& stRow : GuReports())
            choices.push_back(Choice(stRow, "report"));
        return choices.dump();
    }();
    return s_strChoices;
}

ordered_json Running(const std::vector<CControlWorker::RUNNING>& running)
{
    ordered_json list = ordered_json::array();
    for (const auto& stRunning : running)
        list.push_back({{"kind", stRunning.stOrder.bStat ? "stat" : "report"},
                        {"name", stRunning.stOrder.stReport.pstRow->pszName},
                        {"modem", stRunning.stOrder.stReport.ulModem},
                        {"period_ms", stRunning.stOrder.usPeriodMs},
                        {"since", stRunning.dSince}});
    return list;
}
} // namespace

PAGE_ANSWER AnswerOf(const CONTROL_RESULT& stResult)
{
    ordered_json body = {{"ok", stResult.IsOk()}};
    if (!stResult.IsOk())
        body["error"] = stResult.strError;
    return {stResult.nStatus, "application/json", body.dump()};
}

void CPageControl::Post(const CONTROL_ORDER& stOrder, CControlWorker::DONE done)
{
    if (CControlWorker* const pWorker = Worker(stOrder.ulUe))
        pWorker->Post(stOrder, std::move(done));
    else
        done({409, "the page is about to end"});
}

/// Made with the first order for the modem, and kept.
CControlWorker* CPageControl::Worker(unsigned int ulUe)
{
    const xtl::MutexGuard guard(m_Lock);
    if (m_bStopped || ulUe >= m_apWorker.size())
        return nullptr;
    const auto& channel = m_stSettings.channel;
    if (m_apWorker[ulUe] == nullptr) {
        CControlWorker::MODEM stModem;
        stModem.port = [channel, ulUe] {
            const auto found = channel(ulUe);
            return found ? std::optional<unsigned int>(found->ulPort) : std::nullopt;
        };
        stModem.holder = [channel, ulUe](enChannelType enChannel) {
            const CHANNEL stFound = channel(ulUe).value_or(CHANNEL{});
            return enChannel == CHANNEL_GU_CMD ? HolderText(stFound.ulClient, stFound.strAddress)
                                               : HolderText(stFound.ulDataClient, stFound.strDataAddress);
        };
        m_apWorker[ulUe] = std::make_unique<CControlWorker>(m_stSettings.strAgent, std::move(stModem));
    }
    return m_apWorker[ulUe].get();
}

CControlWorker::STATE CPageControl::StateOf(unsigned int ulUe) const
{
    const xtl::MutexGuard guard(m_Lock);
    return ulUe < m_apWorker.size() && m_apWorker[ulUe] != nullptr ? m_apWorker[ulUe]->State()
                                                                   : CControlWorker::STATE{};
}

std::string CPageControl::View(unsigned int ulUe) const
{
    const auto channel = m_stSettings.channel(ulUe);
    const CControlWorker::STATE stState = StateOf(ulUe);
    const ordered_json view = {{"enabled", m_stSettings.bEnabled},
                               {"port", channel ? ordered_json(channel->ulPort) : ordered_json()},
                               {"held_by", channel && !stState.bBound ? HeldBy(*channel) : ordered_json()},
                               {"running", Running(stState.running)},
                               {"error", stState.strError}};
    std::string strView = view.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
    strView.pop_back();
    return strView + ",\"choices\":" + Choices() + "}";
}

void CPageControl::Stop()
{
    const xtl::MutexGuard guard(m_Lock);
    m_bStopped = true;
    for (const auto& pWorker : m_apWorker)
        if (pWorker != nullptr)
            pWorker->AskToStop(); // all side by side
    for (const auto& pWorker : m_apWorker)
        if (pWorker != nullptr)
            pWorker->Stop();
}
