#pragma once

#include "common/Types.h"

#include <atomic>

class CBindings;
class CChannelTable;
class CStatusReporter;
class CUEManager;

/// The two threads of the status: transfer reports at the configured interval, and the whole picture whenever the
/// monitor asks for it.
class CStatusService
{
public:
    CStatusService(CStatusReporter& status, CBindings& bindings, const CChannelTable& table, CUEManager& ueManager);

    /// Tells the loops to end; the query thread stays in its wait until the process ends.
    void Stop() { m_bRun = false; }

    /// Bodies of the threads.
    void StatusMonitorFun();
    void StatusQueryFun();

    /// Reports the bytes of every open port and link once.
    void SendTransferReport();
    /// Replays the whole picture to the monitor.
    void SendAgentCurrentStatus();

private:
    void SendRowStatus(UE_INDEX ulUeIdx, enChannelType enChannel);

    CStatusReporter& m_status;
    CBindings& m_bindings;
    const CChannelTable& m_table;
    CUEManager& m_ueManager;
    std::atomic<bool> m_bRun = true;
};
