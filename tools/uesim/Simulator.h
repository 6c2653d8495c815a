#pragma once

#include "common/Config.h"
#include "uesim/DeviceRecords.h"
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
    /// The options and the configuration must outlive the simulator.
    CSimulator(const UESIM_OPTIONS& stOptions, const CConfig& config, CSimLog& log);

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
    bool AddPtyUe(unsigned int ulIndex, std::string& strError);
    bool AddNetworkUe(std::string& strError);
    void AddUe(unsigned int ulIndex, const std::string& strName, CSimUe::Ports ports);
    void AddGuBehaviours(CSimUe& ue) const;
    bool MakeLink(const CSimPort& port, const std::string& strName, std::string& strError);
    bool WriteChannels(std::string& strError) const;
    void QueueRecords(bool bArrives);

    void Pass(SimTime limit, bool bTick, const sigset_t* pWaitMask);
    void Wait(SimTime until, const sigset_t* pWaitMask);
    void Finish(const sigset_t* pWaitMask);
    bool IsDrained() const;
    bool IsClosed() const;

    const UESIM_OPTIONS& m_stOptions;
    const CConfig& m_config;
    CSimLog& m_log;
    std::vector<std::unique_ptr<CSimUe>> m_ues;
    std::vector<std::string> m_channelNames; // what the agent opens, four a UE
    std::vector<uint32_t> m_channelPorts;
    CDeviceRecords m_records;
    SimTime m_nextProbe{};
    std::atomic<bool> m_bToggle = false;
    bool m_bAttached = false;
};

/// The totals at the end, as text or as one JSON object.
std::string TotalsText(const CSimulator& simulator);
std::string TotalsJson(const CSimulator& simulator);
