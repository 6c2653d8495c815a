#include "agent/Agent.h"

#include "agent/Client.h"
#include "common/Config.h"
#include "common/Debug.h"
#include "common/Thread.h"
#include "data/gu/GUDataProcess.h"
#include "data/gu/OperationGUData.h"

#include <arpa/inet.h>
#include <ctime>
#include <sys/eventfd.h>
#include <sys/socket.h>

namespace
{
void* StatusMonitor_Thread(void* pAgent)
{
    if (pAgent)
        static_cast<CAgent*>(pAgent)->StatusMonitorFun();
    return nullptr;
}

void* StatusQuery_Thread(void* pAgent)
{
    if (pAgent)
        static_cast<CAgent*>(pAgent)->StatusQueryFun();
    return nullptr;
}

void* ReadAgentMsg_Thread(void* pAgent)
{
    if (pAgent)
        static_cast<CAgent*>(pAgent)->ReadAgentMsgFun();
    return nullptr;
}
} // namespace

// Without the eventfd everything works too: a thread that waits for the client list then waits for up to a second.
CAgent::CAgent() : m_GUDataProcess(std::make_unique<CGUDataProcess>()), m_WakeUp(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))
{
    for (auto& astUe : m_astChannelInfo)
        for (size_t i = 0; i < astUe.size(); ++i)
            astUe[i].enChannel = static_cast<enChannelType>(i);
    for (auto& pOperation : m_apOperationGU)
        pOperation = std::make_unique<COperationGUData>();
}

/// The status socket stays open: a thread that isn't joined may be sending on it, and the process ends anyway.
CAgent::~CAgent() = default;

bool CAgent::Init(const char* pszConfigFile)
{
    CConfig* pConfig = CConfig::Instance();
    if (pszConfigFile)
        (void)pConfig->LoadConfigFile(pszConfigFile); // without the file the run goes on with the defaults
    CDebug::Instance();
    CMsgBuf::Instance();
    if (pConfig->GetStatusInfoReportInterval() <= 0)
        return true;

    const xtl::MutexGuard guard(m_StatusMutex);
    m_nStatusSocket = socket(AF_INET, SOCK_DGRAM, 0);
    if (m_nStatusSocket < 0) {
        CDebug::Instance()->PrintError("StatusMonitor socket create fail!");
        return true;
    }
    m_stMonitorAddr.sin_family = AF_INET;
    m_stMonitorAddr.sin_port = htons(STATUS_PORT);
    m_stMonitorAddr.sin_addr.s_addr = inet_addr(pConfig->GetMonitorIPAddr());
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
}

bool CAgent::Run()
{
    StartLog();
    CMsgBuf::Instance()->Start();
    (void)m_UEManager.Run(); // without UEs the agent serves its clients all the same

    const bool bStatus = CConfig::Instance()->GetStatusInfoReportInterval() > 0;
    if (bStatus && !StartThread(m_hStatusMonitorThread, StatusMonitor_Thread, "Status Monitor Thread Create Fail!",
                                "Status Monitor Thread Create OK!"))
        return false;
    if (bStatus && !StartThread(m_hStatusQueryThread, StatusQuery_Thread, "Status Query Thread Create Fail!",
                                "Status Query Thread Create OK!"))
        return false;
    if (!StartThread(m_hReadAgentMsgThread, ReadAgentMsg_Thread, "Read Agent Msg Thread Create Fail",
                     "Read Agent Msg Thread Create OK!"))
        return false;
    ListenFun();
    return true;
}

/// A handle that isn't -1 names a thread that runs already.
bool CAgent::StartThread(int& hThread, void* (*pfn)(void*), const char* pszFail, const char* pszOk)
{
    if (hThread != -1)
        return true;
    hThread = start_thread(0, pfn, this);
    if (hThread == -1)
        CDebug::Instance()->PrintError("%s", pszFail);
    else
        CDebug::Instance()->PrintInfo("%s", pszOk);
    return hThread != -1;
}

bool CAgent::Stop()
{
    m_bRun = 0;
    WakeUp();
    if (m_hReadAgentMsgThread != -1) {
        m_hReadAgentMsgThread = -1;
        CDebug::Instance()->PrintInfo("Agent Read Serial Data Thread Exit");
    }
    m_UEManager.Stop();
    CMsgBuf::Instance()->Stop();
    CMsgBuf::Destory();
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
