#pragma once

#include "uesim/ReplayBehaviour.h"

#include <string>
#include <vector>

/// A capture that is played by all modems of the simulator.
class CReplay
{
public:
    /// False with the reason.
    bool Load(const UESIM_OPTIONS& stOptions, std::string& strError);

    const CReplayPlan& Plan() const { return m_plan; }
    /// What isn't in the capture, for the user; empty when it has all.
    std::string Gaps() const;

    /// Makes the modem of the plan what the capture has. bReported: its ports come and go by the sink.
    void Play(CSimUe& ue, const REPLAY_UE& stPlan, bool bReported, CReplayBehaviour::EVENT_SINK onEvent);
    bool IsDone(SimTime now) const;
    void Restart(SimTime now);
    bool IsIncomplete() const;
    std::string Report() const;

private:
    CReplayPlan m_plan;
    CReplayNames m_names{*m_plan.Config().GetFilterCfg()};
    double m_dScale = 1;
    std::vector<CReplayBehaviour*> m_behaviours; // owned by their modems
};
