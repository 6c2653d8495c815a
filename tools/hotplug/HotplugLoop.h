#pragma once

#include "hotplug/Delivery.h"
#include "hotplug/HotplugLog.h"
#include "hotplug/HotplugOptions.h"
#include "hotplug/Ledger.h"
#include "hotplug/PortSource.h"
#include "hotplug/StateFile.h"

/// The daemon: keeps the agent told of the ports that are there. One thread, one poll.
///
/// Nothing of the agent's answers says that it is a new one, so this looks at the number of the socket that it listens
/// on (Listener.h): once a second, and right before and after each record.
class CHotplugLoop
{
public:
    CHotplugLoop(const HOTPLUG_OPTIONS& stOptions, const CRules& rules, CNumbers numbers, CStateFile& stateFile,
                 IPortSource& source, CHotplugLog& log);

    /// Until the descriptor is readable or, with bOnce, until all is told or the agent isn't reached; being stopped
    /// before counts as the latter.
    HOTPLUG_EXIT Run(int nStopFd);

private:
    using TIME = CDelivery::TIME;

    void TakeAll();
    void TakeEvents();
    void Update();
    void LookAtAgent(TIME now);
    void OnNewAgent(uint64_t ullAgent);
    void TellAll();
    bool Tell(TIME now);
    bool StartNext(TIME now);
    void ShowAll();
    void OnDelivered(TIME now);
    void OnFailed(TIME now);
    bool Wait(int nStopFd);

    const HOTPLUG_OPTIONS& m_stOptions;
    const CRules& m_rules;
    CNumbers m_numbers;
    CStateFile& m_stateFile;
    IPortSource& m_source;
    CHotplugLog& m_log;
    CModems m_modems;
    CLedger m_ledger;
    CDelivery m_delivery;
    DEVICE_MONITOR_INFO_STRU m_stRecord; // the one that is under way
    uint64_t m_ullAgent = 0;             // the agent that has been told, 0 for none yet
    bool m_bPresent = false;             // at the last look
    bool m_bWasAbsent = false;           // at some look
    TIME m_nextLook{};
    TIME m_retry{}; // no record starts before
    std::vector<std::string> m_complaints;
};
