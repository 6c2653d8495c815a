#include "agent/Agent.h"

#include "agent/Client.h"
#include "agent/ServiceNotify.h"
#include "common/Config.h"
#include "common/ConfigCheck.h"
#include "common/Debug.h"
#include "common/Thread.h"
#include "common/Turn.h"
#include "data/gu/OperationGUData.h"

#include <ctime>

namespace
{
void* StatusMonitor_Thread(void* pService)
{
    if (pService)
        static_cast<CStatusService*>(pService)->StatusMonitorFun();
    return nullptr;
}

void* StatusQuery_Thread(void* pService)
{
    if (pService)
        static_cast<CStatusService*>(pService)->StatusQueryFun();
    return nullptr;
}

void* ReadAgentMsg_Thread(void* pEvents)
{
    if (pEvents)
        static_cast<CUeEvents*>(pEvents)->ReadAgentMsgFun();
    return nullptr;
}

CGuOperations MakeOperations()
{
    CGuOperations apOperation;
    for (auto& pOperation : apOperation)
        pOperation = std::make_unique<COperationGUData>();
    return apOperation;
}
} // namespace

CAgent::CAgent()
    : m_apOperationGU(MakeOperations()),
      m_Bindings(m_Table, m_Status, m_UEManager, m_apOperationGU),
      m_Clients(m_Bindings, m_Table, m_Status, m_apOperationGU),
      m_Events(m_Bindings, m_Table, m_Status, m_Clients, m_UEManager, m_apOperationGU),
      m_StatusService(m_Status, m_Bindings, m_Table, m_UEManager),
      m_Tap(m_Bindings, m_Table)
{
}

CAgent::~CAgent() = default;

bool CAgent::Init(const char* pszConfigFile)
{
    CConfig* pConfig = CConfig::Instance();
    if (pszConfigFile)
        (void)pConfig->LoadConfigFile(pszConfigFile); // without the file the run goes on with the defaults
    m_strConfigFile = pszConfigFile ? pszConfigFile : "";
    CDebug::Instance();
    CMsgBuf::Instance();
    m_Status.Open();
    return true;
}

void CAgent::StartLog()
{
    if (m_bLogStarted)
        return;
    m_bLogStarted = true;
    timeval stNow{};
    gettimeofday(&stNow, nullptr);
    const std::string strFile = CConfig::Instance()->GetDebugFileName() + Timeval2String(stNow) + ".d";
    CDebug::Instance()->Start(strFile.c_str());
    LogConfigFindings();
}

void CAgent::LogConfigFindings() const
{
    const auto text = ReadConfigText(m_strConfigFile);
    if (!text)
        return;
    for (const CONFIG_FINDING& stFinding : CheckConfig(*text))
        CDebug::Instance()->PrintWarn("%s", FindingText(m_strConfigFile, stFinding).c_str());
}

bool CAgent::Run()
{
    StartLog();
    CMsgBuf::Instance()->Start();
    m_Tap.Start();           // before there is anything to see
    (void)m_UEManager.Run(); // without UEs the agent serves its clients all the same

    const bool bStatus = CConfig::Instance()->GetStatusInfoReportInterval() > 0;
    if (bStatus && !StartThread(m_hStatusMonitorThread, StatusMonitor_Thread, &m_StatusService,
                                "Status Monitor Thread Create Fail!", "Status Monitor Thread Create OK!"))
        return false;
    if (bStatus && !StartThread(m_hStatusQueryThread, StatusQuery_Thread, &m_StatusService,
                                "Status Query Thread Create Fail!", "Status Query Thread Create OK!"))
        return false;
    if (!StartThread(m_hReadAgentMsgThread, ReadAgentMsg_Thread, &m_Events, "Read Agent Msg Thread Create Fail",
                     "Read Agent Msg Thread Create OK!"))
        return false;
    m_Clients.ListenFun([] { (void)NotifyService("READY=1"); });
    return true;
}

/// A handle that isn't -1 names a thread that runs already.
bool CAgent::StartThread(int& hThread, void* (*pfn)(void*), void* pArg, const char* pszFail, const char* pszOk)
{
    if (hThread != -1)
        return true;
    hThread = start_thread(0, pfn, pArg);
    if (hThread == -1)
        CDebug::Instance()->PrintError("%s", pszFail);
    else
        CDebug::Instance()->PrintInfo("%s", pszOk);
    return hThread != -1;
}

bool CAgent::Stop()
{
    (void)NotifyService("STOPPING=1");
    m_Clients.Stop();
    m_Events.Stop();
    m_StatusService.Stop();
    m_Tap.Stop();
    if (m_hReadAgentMsgThread != -1) {
        m_hReadAgentMsgThread = -1;
        CDebug::Instance()->PrintInfo("Agent Read Serial Data Thread Exit");
    }
    m_UEManager.Stop();
    CMsgBuf::Instance()->Stop();
    CMsgBuf::Destory();
    CTurn::LogLongest();
    CDebug::Instance()->Stop();
    CDebug::Destory();
    CConfig::Destory();
    return true;
}

std::string CAgent::Timeval2String(const timeval& stTime)
{
    tm stLocal{};
    localtime_r(&stTime.tv_sec, &stLocal);
    char szText[256];
    (void)snprintf(szText, sizeof(szText), "_%04d%02d%02d_%02d%02d%02d", stLocal.tm_year + 1900, stLocal.tm_mon + 1,
                   stLocal.tm_mday, stLocal.tm_hour, stLocal.tm_min, stLocal.tm_sec);
    return szText;
}
