#include "uesim/Replay.h"

#include "uesim/GuLinkBehaviour.h"
#include "uesim/LteDiagBehaviour.h"

#include <algorithm>

bool CReplay::Load(const UESIM_OPTIONS& stOptions, std::string& strError)
{
    m_dScale = stOptions.dSpeed > 0 ? 1 / stOptions.dSpeed : 0;
    return m_plan.Load(stOptions.strReplay, strError);
}

std::string CReplay::Gaps() const
{
    std::string strText;
    if (m_plan.Lost() > 0)
        strText += std::to_string(m_plan.Lost()) + " records are missing in the capture\n";
    if (m_plan.Cut() > 0)
        strText += std::to_string(m_plan.Cut()) + " packets in the capture are cut\n";
    if (m_plan.IsCutFile())
        strText += "the file ends early\n";
    return strText;
}

void CReplay::Play(CSimUe& ue, const REPLAY_UE& stPlan, bool bReported, CReplayBehaviour::EVENT_SINK onEvent)
{
    const bool bPresent = std::ranges::find(stPlan.present, true) != stPlan.present.end();
    auto pReplay = std::make_unique<CReplayBehaviour>(
        ue, stPlan, m_names,
        CReplayBehaviour::SETTINGS{m_dScale, m_plan.End(), bReported && !bPresent && !stPlan.bConfirmed},
        std::move(onEvent));
    CReplayBehaviour* const pPlayed = pReplay.get();
    m_behaviours.push_back(pPlayed);
    ue.AddBehaviour(std::move(pReplay));
    if (!stPlan.bConfirmed)
        return;
    ue.SetIdentity(stPlan.strImei, stPlan.strVersion);
    ue.AddBehaviour(std::make_unique<CLteDiagBehaviour>(ue, [pPlayed] { pPlayed->OnConfirmed(); }));
    ue.AddBehaviour(std::make_unique<CGuLinkBehaviour>(ue));
}

bool CReplay::IsDone(SimTime now) const
{
    return std::ranges::all_of(m_behaviours, [&](const auto* pBehaviour) { return pBehaviour->IsDone(now); });
}

void CReplay::Restart(SimTime now)
{
    for (CReplayBehaviour* const pBehaviour : m_behaviours)
        pBehaviour->Restart(now);
}

bool CReplay::IsIncomplete() const
{
    return std::ranges::any_of(m_behaviours, [](const auto* pBehaviour) { return pBehaviour->IsIncomplete(); });
}

std::string CReplay::Report() const
{
    std::string strText;
    for (const CReplayBehaviour* const pBehaviour : m_behaviours)
        strText += pBehaviour->Report();
    return strText;
}
