#pragma once

#include "agent/AgentTap.h"
#include "agent/Bindings.h"
#include "agent/ChannelTable.h"
#include "agent/ClientServer.h"
#include "agent/StatusReporter.h"
#include "agent/StatusService.h"
#include "agent/UeEvents.h"
#include "ue/UEManager.h"

#include <string>
#include <sys/time.h>

/// The process: puts its parts together, starts and stops them. docs/architecture.md lists the threads and the lock
/// order.
class CAgent
{
public:
    CAgent();
    ~CAgent();
    CAgent(const CAgent&) = delete;
    CAgent& operator=(const CAgent&) = delete;

    /// Loads the configuration and makes the log, the queues and the status socket. Always true.
    bool Init(const char* pszConfigFile);
    /// Starts the log into the file of this run; Run does it too. A second call does nothing.
    void StartLog();
    /// Starts everything and serves clients on the calling thread; true when the client loop has ended.
    bool Run();
    /// Ends the loops and stops the queues and the log. Nothing is joined but the log writer, so the object must
    /// live on until the process ends. Always true.
    bool Stop();
    /// "_YYYYMMDD_hhmmss" in local time.
    static std::string Timeval2String(const timeval& stTime);

    CChannelTable& Table() { return m_Table; }
    CStatusReporter& Status() { return m_Status; }
    CBindings& Bindings() { return m_Bindings; }
    CClientServer& Clients() { return m_Clients; }
    CUeEvents& Events() { return m_Events; }
    CStatusService& StatusService() { return m_StatusService; }
    CUEManager& UEManager() { return m_UEManager; }

private:
    void LogConfigFindings() const;
    bool StartThread(int& hThread, void* (*pfn)(void*), void* pArg, const char* pszFail, const char* pszOk);

    CUEManager m_UEManager;
    CChannelTable m_Table;
    CStatusReporter m_Status;
    CGuOperations m_apOperationGU;
    CBindings m_Bindings;
    CClientServer m_Clients;
    CUeEvents m_Events;
    CStatusService m_StatusService;
    CAgentTap m_Tap;
    int m_hStatusMonitorThread = -1;
    int m_hStatusQueryThread = -1;
    int m_hReadAgentMsgThread = -1;
    std::string m_strConfigFile;
    bool m_bLogStarted = false; // main thread only
};
