#pragma once

#include "common/Config.h"
#include "uesim/DeviceRecords.h"
#include "uesim/Replay.h"
#include "uesim/SimUe.h"

#include <atomic>
#include <csignal>
#include <memory>
#include <string>
#include <vector>

/// All simulated modems and the one loop that serves them.
class CSimulator
{
public:
    /// The options, the configuration and the replay must outlive the simulator.
    /// pReplay, if given, is the capture that the modems play.
    CSimulator(const UESIM_OPTIONS& stOptions, const CConfig& config, CSimLog& log, CReplay* pReplay = nullptr);

    /// Opens the ports and writes the links and channels.cfg. False with the reason.
    bool Start(std::string& strError);

    /// The configuration lines that tell the agent of the ports.
    std::string ChannelLines() const;

    /// Serves until the flag is set or --run-for is over, then lets the queues run empty for a moment and sends the
    /// detach records. pWaitMask, if given, is the signal mask while the loop waits.
    void Run(const std::atomic<bool>& bStop, const sigset_t* pWaitMask = nullptr);

    /// With --attach: the modems leave, or come back, at the loop's next pass. Safe in a signal handler.
    void ToggleAttached() { m_bToggle = true; }

    const std::vector<std::unique_ptr<CSimUe>>& Ues() const { return m_ues; }

private:
    /// What the device monitor knows of a port that the agent can open.
    struct CHANNEL
    {
        unsigned int ulUe;
        DEVICE_RECORD stRecord; // as it arrives, or is to come later
        bool bAttached = false;
    };

    bool AddSimulatedUes(std::string& strError);
    bool AddReplayedUes(std::string& strError);
    bool AddPtyUe(unsigned int ulIndex, std::string& strError);
    bool AddNetworkUe(std::string& strError);
    bool AddReplayedUe(const REPLAY_UE& stPlan, std::string& strError);
    void PlayEvent(unsigned int ulUe, const REPLAY_EVENT& stEvent);
    /// A port whose record lacks the name alone.
    bool AddPty(unsigned int ulUe, DEVICE_RECORD stRecord, CSimUe::Ports& ports, std::string& strError);
    bool MakeNetworkPorts(CSimUe::Ports& ports, std::string& strError);
    CSimUe& AddUe(unsigned int ulIndex, CSimUe::Ports ports);
    void AddBehaviours(CSimUe& ue) const;
    void AddGuBehaviours(CSimUe& ue) const;
    /// The stable name of a port, or its own without --dir; empty with the reason.
    std::string MakeLink(const CSimPort& port, const std::string& strName, std::string& strError) const;
    bool WriteChannels(std::string& strError) const;
    void QueueAtStart();
    void QueueRecords(bool bArrives);
    void QueueRecord(CHANNEL& stChannel, bool bArrives);

    void Pass(SimTime limit, bool bTick, const sigset_t* pWaitMask);
    void Wait(SimTime until, const sigset_t* pWaitMask);
    void Finish(const sigset_t* pWaitMask);
    bool IsDrained() const;
    bool IsReplayDone(const sigset_t* pWaitMask);
    bool IsClosed() const;

    const UESIM_OPTIONS& m_stOptions;
    const CConfig& m_config;
    CSimLog& m_log;
    std::vector<std::unique_ptr<CSimUe>> m_ues;
    CReplay* const m_pReplay;
    std::vector<CHANNEL> m_channels;
    CDeviceRecords m_records;
    SimTime m_nextProbe{};
    std::atomic<bool> m_bToggle = false;
    bool m_bAttached = false;
};

/// The totals at the end, as text or as one JSON object.
std::string TotalsText(const CSimulator& simulator);
std::string TotalsJson(const CSimulator& simulator);
