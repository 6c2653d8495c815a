#pragma once

#include "uesim/Behaviour.h"
#include "uesim/ReplayRun.h"
#include "uesim/SimUe.h"

#include <functional>

/// A modem that does what a capture has. Its set-up, when that isn't in the capture because the modem was confirmed
/// before, is left to the behaviours behind this one; the modem's time begins when it is over.
class CReplayBehaviour : public IBehaviour
{
public:
    struct SETTINGS
    {
        double dScale = 1;          // how much longer everything takes than then; 0: as fast as possible
        uint64_t ullEnd = 0;        // of the capture
        bool bStartsAtOnce = false; // its first port comes in the capture; else its time begins when a port is opened
    };
    using EVENT_SINK = std::function<void(const REPLAY_EVENT& stEvent)>;

    /// The plan and the names outlive this.
    CReplayBehaviour(CSimUe& ue, const REPLAY_UE& stPlan, const CReplayNames& names, const SETTINGS& stSettings,
                     EVENT_SINK onEvent);

    bool OnPacket(enSerialType enPort, ByteView packet) override;
    void OnPortOpened(enSerialType enPort, SimTime now) override;
    void OnPortClosed(enSerialType enPort) override;
    SimTime OnTick(SimTime now) override;

    /// The set-up is over.
    void OnConfirmed();
    bool IsDone(SimTime now) const { return m_pRun->IsDone(now); }
    /// In some run a request never came, or a packet found no open port.
    bool IsIncomplete() const;
    /// From the start again.
    void Restart(SimTime now);
    /// "ue0: 123 of 123 packets played, ...", and a line for each request that never came, for the first of them.
    std::string Report() const;

private:
    void OnRequest(enSerialType enPort, const std::string& strName);
    bool IsSettingUp(enSerialType enPort) const;

    CSimUe& m_ue;
    const REPLAY_UE& m_stPlan;
    const CReplayNames& m_names;
    const SETTINGS m_stSettings;
    const EVENT_SINK m_onEvent;
    std::unique_ptr<CReplayRun> m_pRun;
    CAtCommands m_atCommands;
    size_t m_szRequests = 0;    // that came
    bool m_bIncomplete = false; // a run before this one
};
