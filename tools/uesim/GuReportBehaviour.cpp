#include "uesim/GuReportBehaviour.h"

#include <algorithm>

namespace
{
constexpr uint16_t ID_TRACE_SWITCH = 0x8101;
constexpr size_t TRACE_PID_COUNT = 12; // in the whole packet; its parameters start at 6
constexpr size_t TRACE_PIDS = 16;
constexpr size_t TRACE_PARAMS = 6;
constexpr size_t GAS_GROUP = 6; // in the parameters
constexpr uint16_t ID_NAS_STATUS = 0xC001;
constexpr unsigned char c_aucDone[4] = {}; // result 0
constexpr auto RETRY_TIME = std::chrono::milliseconds(10);

/// The agent takes several messages from one frame when their ids are of this range.
bool MayChain(const GU_REPORT_ROW& stRow)
{
    return (stRow.usConfirm >> 8) == 0xF0 && (stRow.usIndication >> 8) == 0xF0;
}
} // namespace

CGuReportBehaviour::CGuReportBehaviour(CSimUe& ue, CGuLine& line) : m_ue(ue), m_line(line)
{
    if (ue.Options().bGuAll)
        StartAll();
}

bool CGuReportBehaviour::OnRequest(const GU_REQUEST& stReq)
{
    if (stReq.ucCategory == GU_CATEGORY_OTA)
        return OnOtaRequest(stReq);
    if (stReq.ucCategory == GU_CATEGORY_TRACE)
        return OnTraceSwitch(stReq);
    return stReq.ucCategory == GU_CATEGORY_TRANS && OnTransRequest(stReq);
}

void CGuReportBehaviour::OnPortClosed(enSerialType enPort)
{
    if (enPort != SERIAL_TYPE_GU)
        return;
    m_states.clear(); // a modem that lost its link reports nothing until it is asked again
    if (m_ue.Options().bGuAll)
        StartAll();
}

SimTime CGuReportBehaviour::OnTick(SimTime now)
{
    SimTime next = NEVER;
    for (auto& [stSource, stState] : m_states) {
        if (!stState.bOn)
            continue;
        if (now >= stState.due && !m_line.HasRoom(now))
            return now + RETRY_TIME;
        if (now >= stState.due) {
            SendOne(stSource, stState);
            stState.due = now + std::chrono::milliseconds(m_ue.Options().ulGuInterval);
        }
        next = std::min(next, stState.due);
    }
    m_line.Flush();
    return next;
}

/// The first parameter byte switches; several rows may share a request. A one-shot request with a result word that
/// isn't 0 doesn't come, so it is answered at once.
bool CGuReportBehaviour::OnTransRequest(const GU_REQUEST& stReq)
{
    const int nGroup = LoadLe<uint16_t>(stReq.params, GAS_GROUP);
    bool bFound = false;
    for (size_t i = 0; i < GuReports().size(); ++i) {
        const GU_REPORT_ROW& stRow = GuReports()[i];
        if (stRow.usRequest != stReq.usId || (stRow.nGroup >= 0 && stRow.nGroup != nGroup))
            continue;
        bFound = true;
        const SOURCE stSource{SOURCE::Kind::Report, i, stReq.ulModem};
        const bool bOn = LoadLe<uint8_t>(stReq.params, 0) != 0;
        if (bOn && MayChain(stRow)) {
            SendChained(stRow, m_states[stSource]);
            Switch(stSource, true);
            continue;
        }
        if (stRow.usConfirm != 0)
            m_line.SendTrans(stReq.ulModem, stRow.usConfirm, c_aucDone);
        if (!stRow.bOnce) {
            Switch(stSource, bOn);
            continue;
        }
        SendOne(stSource, m_states[stSource]);
        if (stReq.usId == ID_NAS_STATUS && m_ue.Options().bDualCard) { // one request asks for both modems
            const SOURCE stSecond{SOURCE::Kind::Report, i, 1};
            SendOne(stSecond, m_states[stSecond]);
        }
    }
    return bFound;
}

bool CGuReportBehaviour::OnOtaRequest(const GU_REQUEST& stReq)
{
    const auto pRow = std::ranges::find(GuOtas(), stReq.usId, &GU_OTA_ROW::usRequest);
    if (pRow == GuOtas().end())
        return false;
    m_line.SendOta(pRow->ulModem, pRow->usConfirm, c_aucDone);
    Switch({SOURCE::Kind::Ota, static_cast<size_t>(pRow - GuOtas().begin()), pRow->ulModem},
           LoadLe<uint32_t>(stReq.params, 0) != 0);
    return true;
}

/// The list of traced tasks is always the whole list.
bool CGuReportBehaviour::OnTraceSwitch(const GU_REQUEST& stReq)
{
    if (stReq.usId != ID_TRACE_SWITCH)
        return false;
    const uint32_t ulCount = LoadLe<uint32_t>(stReq.params, TRACE_PID_COUNT - TRACE_PARAMS);
    const ByteView list = Slice(stReq.params, TRACE_PIDS - TRACE_PARAMS, size_t{4} * ulCount);
    std::vector<uint32_t> pids;
    for (size_t i = 0; i + 4 <= list.size(); i += 4)
        pids.push_back(LoadLe<uint32_t>(list, i));
    const auto isTraced = [&](uint32_t ulPid) { return std::ranges::find(pids, ulPid) != pids.end(); };
    for (size_t i = 0; i < GuTraces().size(); ++i) {
        Switch({SOURCE::Kind::Trace, i, 0}, isTraced(GuTraces()[i].ulPid));
        Switch({SOURCE::Kind::Trace, i, 1}, GuTraces()[i].ulSecondPid != 0 && isTraced(GuTraces()[i].ulSecondPid));
    }
    return true;
}

void CGuReportBehaviour::StartAll()
{
    const unsigned int ulModems = m_ue.Options().bDualCard ? 2 : 1;
    for (unsigned int ulModem = 0; ulModem < ulModems; ++ulModem) {
        for (size_t i = 0; i < GuReports().size(); ++i)
            Switch({SOURCE::Kind::Report, i, ulModem}, true);
        for (size_t i = 0; i < GuTraces().size(); ++i)
            Switch({SOURCE::Kind::Trace, i, ulModem}, ulModem == 0 || GuTraces()[i].ulSecondPid != 0);
    }
    for (size_t i = 0; i < GuOtas().size(); ++i)
        Switch({SOURCE::Kind::Ota, i, GuOtas()[i].ulModem}, GuOtas()[i].ulModem < ulModems);
}

/// The confirm and the first indication in one frame.
void CGuReportBehaviour::SendChained(const GU_REPORT_ROW& stRow, STATE& stState)
{
    ++m_ue.Counter("gu indications");
    m_line.SendChain({{stRow.usConfirm, {c_aucDone, c_aucDone + sizeof(c_aucDone)}},
                      {stRow.usIndication, stRow.pfnBuild(stState.ulRound++, m_ue.Identity())}});
    stState.due = SimClock::now() + std::chrono::milliseconds(m_ue.Options().ulGuInterval);
}

/// A source that is on already keeps its pace.
void CGuReportBehaviour::Switch(const SOURCE& stSource, bool bOn)
{
    const auto pState = m_states.find(stSource);
    if (pState == m_states.end() && !bOn)
        return;
    m_states[stSource].bOn = bOn;
}

void CGuReportBehaviour::SendOne(const SOURCE& stSource, STATE& stState)
{
    const unsigned int ulRound = stState.ulRound++;
    const UE_IDENTITY& stIdentity = m_ue.Identity();
    ++m_ue.Counter("gu indications");
    switch (stSource.enKind) {
    case SOURCE::Kind::Report: {
        const GU_REPORT_ROW& stRow = GuReports()[stSource.szRow];
        m_line.SendTrans(stSource.ulModem, stRow.usIndication, stRow.pfnBuild(ulRound, stIdentity));
        return;
    }
    case SOURCE::Kind::Trace: {
        const GU_TRACE_ROW& stRow = GuTraces()[stSource.szRow];
        m_line.SendTrace(stSource.ulModem == 0 ? stRow.ulPid : stRow.ulSecondPid, stRow.usName,
                         stRow.pfnBuild(ulRound, stIdentity));
        return;
    }
    case SOURCE::Kind::Ota:
        m_line.SendOta(stSource.ulModem, GuOtas()[stSource.szRow].usIndication, BuildOta(ulRound, stIdentity));
        return;
    }
}
