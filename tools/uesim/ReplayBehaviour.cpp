#include "uesim/ReplayBehaviour.h"

#include <algorithm>
#include <iomanip>
#include <sstream>

namespace
{
constexpr size_t MISSED_SHOWN = 20; // lines of a report
} // namespace

CReplayBehaviour::CReplayBehaviour(CSimUe& ue, const REPLAY_UE& stPlan, const CReplayNames& names,
                                   const SETTINGS& stSettings, EVENT_SINK onEvent)
    : m_ue(ue), m_stPlan(stPlan), m_names(names), m_stSettings(stSettings), m_onEvent(std::move(onEvent))
{
    Restart(SimClock::now());
}

void CReplayBehaviour::Restart(SimTime now)
{
    m_bIncomplete = m_pRun && IsIncomplete();
    m_szRequests = 0;
    m_pRun = std::make_unique<CReplayRun>(m_stPlan, m_stSettings.dScale, m_stSettings.ullEnd);
    m_atCommands.Reset();
    if (m_stSettings.bStartsAtOnce)
        m_pRun->Start(now, 0);
}

bool CReplayBehaviour::OnPacket(enSerialType enPort, ByteView packet)
{
    if (IsSettingUp(enPort))
        return false;
    if (enPort == SERIAL_TYPE_AT) {
        for (const std::string& strCommand : m_atCommands.Feed(packet))
            OnRequest(enPort, strCommand);
    } else if (const std::string strName = m_names.Request(enPort, packet); !strName.empty()) {
        OnRequest(enPort, strName);
    }
    return true;
}

/// Of a modem that was set up before the capture began. Its GU side may be asked at any time.
bool CReplayBehaviour::IsSettingUp(enSerialType enPort) const
{
    return m_stPlan.bConfirmed && !m_pRun->IsStarted() && enPort != SERIAL_TYPE_AT;
}

void CReplayBehaviour::OnRequest(enSerialType enPort, const std::string& strName)
{
    ++m_szRequests;
    const bool bPlanned = m_pRun->OnRequest(enPort, strName, SimClock::now());
    m_ue.Log().Event(m_ue.Name(), "%s %s%s", PortLabel(enPort), strName.c_str(),
                     bPlanned ? "" : ", which the capture doesn't have");
}

/// The AT port is opened by its first command, so it tells nothing.
void CReplayBehaviour::OnPortOpened(enSerialType enPort, SimTime now)
{
    if (m_pRun->IsStarted() || m_stPlan.bConfirmed || enPort == SERIAL_TYPE_AT)
        return;
    const auto pFirst = std::ranges::find(m_stPlan.events, true, &REPLAY_EVENT::bArrives);
    const bool bPresent = std::ranges::find(m_stPlan.present, true) != m_stPlan.present.end();
    m_pRun->Start(now, bPresent || pFirst == m_stPlan.events.end() ? 0 : pFirst->ullTime);
}

void CReplayBehaviour::OnPortClosed(enSerialType enPort)
{
    if (enPort == SERIAL_TYPE_AT)
        m_atCommands.Reset();
}

void CReplayBehaviour::OnConfirmed()
{
    if (!m_stPlan.bConfirmed || m_pRun->IsStarted())
        return;
    m_ue.Log().Event(m_ue.Name(), "is set up as it was, the capture begins");
    m_pRun->Start(SimClock::now(), 0);
}

SimTime CReplayBehaviour::OnTick(SimTime now)
{
    const auto stateOf = [&](enSerialType enPort) {
        const auto& pPort = m_ue.GetPorts()[static_cast<size_t>(enPort)];
        if (!pPort || !pPort->IsOpen())
            return CReplayRun::PORT::CLOSED;
        return m_ue.HasRoom(enPort, now) ? CReplayRun::PORT::READY : CReplayRun::PORT::FULL;
    };
    while (const REPLAY_STEP* const pStep = m_pRun->TakeStep(now, stateOf))
        m_ue.Send(pStep->enPort, pStep->packet);
    while (const REPLAY_EVENT* const pEvent = m_pRun->TakeEvent(now))
        m_onEvent(*pEvent);
    return m_pRun->NextLook(now);
}

bool CReplayBehaviour::IsIncomplete() const
{
    return m_bIncomplete || m_pRun->Totals().ullLost > 0 || !m_pRun->Totals().missed.empty();
}

std::string CReplayBehaviour::Report() const
{
    const CReplayRun::TOTALS& stTotals = m_pRun->Totals();
    std::ostringstream text;
    text << m_ue.Name() << ": " << stTotals.ullPlayed << " of " << m_stPlan.steps.size() << " packets played, "
         << stTotals.ullLost << " found no open port, " << m_szRequests << " requests, " << stTotals.missed.size()
         << " of the capture never came, " << stTotals.ullUnplanned << " not in the capture\n";
    for (size_t i = 0; i < std::min(stTotals.missed.size(), MISSED_SHOWN); ++i) {
        const REPLAY_REQUEST& stRequest = m_stPlan.requests[stTotals.missed[i]];
        text << m_ue.Name() << ": never came: " << PortLabel(stRequest.enPort) << " " << stRequest.strName << ", at "
             << std::fixed << std::setprecision(3) << static_cast<double>(stRequest.ullTime) * 1e-9 << " s\n";
    }
    if (stTotals.missed.size() > MISSED_SHOWN)
        text << m_ue.Name() << ": and " << stTotals.missed.size() - MISSED_SHOWN << " more\n";
    return text.str();
}
