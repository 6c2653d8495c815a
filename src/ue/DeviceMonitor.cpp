#include "ue/DeviceMonitor.h"

#include "common/Config.h"
#include "common/Debug.h"
#include "common/ListenSocket.h"
#include "common/NoMemory.h"
#include "common/Thread.h"
#include "common/Turn.h"
#include "common/Wait.h"
#include "ue/UEManager.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <sys/socket.h>

namespace
{
constexpr int LISTEN_BACKLOG = 80;
constexpr std::chrono::milliseconds ACCEPT_PAUSE(100); // after a failed accept, which is likely to fail again at once
constexpr std::chrono::seconds LISTEN_PAUSE(1);        // before a taken port is tried again
constexpr std::chrono::seconds LONGEST_WAIT(10);       // the end of the thread is seen by then, also without a wake-up
constexpr int END_LIMIT_MS = 20'000;
static_assert(CRecordConnections::RECORD_SIZE == DEVICE_MONITOR_INFO_STRU::SIZE);

void* DeviceMonitor_Thread(void* pMonitor)
{
    if (pMonitor != nullptr)
        static_cast<CDeviceMonitor*>(pMonitor)->DeviceMonitorFun();
    return nullptr;
}

} // namespace

bool CDeviceMonitor::CheckConfiguredNames(std::string& strError)
{
    const CConfig* pConfig = CConfig::Instance();
    const size_t szNames = pConfig->GetChannelNames()->size();
    const size_t szPorts = pConfig->GetChannelPorts()->size();
    if (!pConfig->GetChannelNameEnable() || szPorts >= szNames)
        return true;
    strError = "configuration: ChannelName has " + std::to_string(szNames) + " entries but ChannelPort only " +
               std::to_string(szPorts) + "; each name needs its port number";
    return false;
}

bool CDeviceMonitor::Start()
{
    if (m_pUEManager == nullptr)
        return true;
    if (CConfig::Instance()->GetChannelNameEnable())
        return AttachConfiguredNames();
    m_hThread = m_hEnding = start_thread(0, DeviceMonitor_Thread, this);
    if (m_hThread == -1) {
        CDebug::Instance()->PrintError("Device Monitor thread Create Fail!");
        return false;
    }
    CDebug::Instance()->PrintInfo("Device Monitor thread Create OK!");
    return true;
}

bool CDeviceMonitor::AttachConfiguredNames()
{
    std::string strError;
    if (!CheckConfiguredNames(strError)) {
        CDebug::Instance()->PrintError("%s", strError.c_str());
        return false;
    }
    const std::vector<std::string>& vecName = *CConfig::Instance()->GetChannelNames();
    const std::vector<unsigned int>& vecPort = *CConfig::Instance()->GetChannelPorts();
    const size_t szUeCount = vecName.size() / SERIALNUM;
    CDebug::Instance()->PrintInfo("UE count is %d", static_cast<int>(szUeCount));
    for (size_t i = 0; i < szUeCount * SERIALNUM; ++i) {
        const std::string strGroup = std::to_string(i / SERIALNUM);
        CDebug::Instance()->PrintInfo("Group Name is %s serialName is %s port is %d", strGroup.c_str(),
                                      vecName[i].c_str(), vecPort[i]);
        m_pUEManager->AttachConfigured(strGroup, vecName[i], static_cast<enSerialType>(i % SERIALNUM), vecPort[i]);
    }
    return true;
}

bool CDeviceMonitor::Stop()
{
    if (m_hThread != -1) {
        m_bRun = 0;
        m_hThread = -1;
    }
    return true;
}

void CDeviceMonitor::EndThread()
{
    m_bEnd = true;
    m_Wake.Wake();
    (void)wait_thread(m_hEnding, END_LIMIT_MS);
}

void CDeviceMonitor::DeviceMonitorFun()
{
    if (!Listen())
        return;
    bool bServed = false; // a connection, in the last turn
    while (!m_bEnd && (m_bRun || !bServed)) {
        WaitForConnections();
        const CTurn turn(LOOP::DEVICE_MONITOR);
        const auto now = std::chrono::steady_clock::now();
        Accept(now);
        bServed = m_Connections.Serve(now, [this](ByteView record) {
            (void)DropOnNoMemory("a device record", [&] { HandleRecord(DecodeDeviceRecord(record)); });
        });
    }
    m_Listener.Reset();
    m_Connections.Clear();
}

/// Opens the listen socket. With recovery a port that is taken is tried until it is free; false when there is no more
/// need to listen.
bool CDeviceMonitor::Listen()
{
    static constexpr const char* FAIL_LINES[] = {"CDeviceMonitor socket create fail!", // by LISTEN_STEP
                                                 "CDeviceMonitor socket bind fail!",
                                                 "CDeviceMonitor socket listen fail!"};
    for (bool bTold = false; m_bRun && !m_bEnd; bTold = true) {
        LISTEN_STEP enFailed{};
        m_Listener = OpenListenSocket(DEVICE_MONITOR_PORT, LISTEN_BACKLOG, enFailed);
        if (m_Listener.IsOpen())
            return true;
        if (errno != EADDRINUSE || !CConfig::Instance()->GetRecovery()) {
            CDebug::Instance()->PrintError("%s", FAIL_LINES[static_cast<size_t>(enFailed)]);
            return false;
        }
        if (!bTold)
            TellTaken();
        m_fds.clear();
        WaitUntil(std::chrono::steady_clock::now() + LISTEN_PAUSE);
    }
    return false;
}

void CDeviceMonitor::TellTaken()
{
    constexpr char FORMAT[] = "TCP port %d, for the device monitor, is taken; it is tried again every second%s";
    (void)fprintf(stderr, FORMAT, DEVICE_MONITOR_PORT, "\n");
    CDebug::Instance()->PrintError(FORMAT, DEVICE_MONITOR_PORT, "");
}

void CDeviceMonitor::WaitForConnections()
{
    const auto now = std::chrono::steady_clock::now();
    auto end = std::min(now + LONGEST_WAIT, m_Connections.NextTime());
    m_fds.clear();
    m_Connections.AppendTo(m_fds);
    if (now < m_AcceptFrom)
        end = std::min(end, m_AcceptFrom);
    else if (!m_Connections.IsFull())
        m_fds.push_back({m_Listener.Get(), POLLIN, 0});
    WaitUntil(end);
}

/// Waits for the descriptors in m_fds, until then at most. The end of the thread ends it too.
void CDeviceMonitor::WaitUntil(std::chrono::steady_clock::time_point end)
{
    m_Wake.FallAsleep();
    m_fds.push_back({m_Wake.Fd(), POLLIN, 0});
    if (!m_bEnd)
        (void)PollFor(m_fds, MsUntil(end)); // every connection is asked behind it
    m_Wake.Rise();
}

void CDeviceMonitor::Accept(std::chrono::steady_clock::time_point now)
{
    if (now < m_AcceptFrom)
        return;
    for (int i = 0; i < LISTEN_BACKLOG && !m_Connections.IsFull(); ++i) {
        sockaddr_in stPeer{};
        socklen_t ulPeer = sizeof(stPeer);
        CUniqueFd peer(RetryOnEintr([&] {
            return accept4(m_Listener.Get(), reinterpret_cast<sockaddr*>(&stPeer), &ulPeer,
                           SOCK_NONBLOCK | SOCK_CLOEXEC);
        }));
        if (!peer.IsOpen()) {
            if (errno == EAGAIN)
                return;
            CDebug::Instance()->PrintError("Device Monitor accept error, errno:%d", errno);
            m_AcceptFrom = now + ACCEPT_PAUSE;
            return;
        }
        if (IsConnectionAllowed(stPeer))
            m_Connections.Add(std::move(peer), now);
    }
}

void CDeviceMonitor::HandleRecord(const DEVICE_MONITOR_INFO_STRU& stInfo)
{
    if (m_pUEManager == nullptr)
        return;
    switch (stInfo.barrive) {
    case DEVICE_MONITOR_INFO_STRU::ARRIVED:
        AttachPort(stInfo);
        break;
    case DEVICE_MONITOR_INFO_STRU::LEFT:
        CDebug::Instance()->PrintInfo("serial %s detach, port is %d", stInfo.szSerialName.c_str(), stInfo.ulPortNum);
        m_pUEManager->OnSerialDetach(stInfo.ulPortNum);
        break;
    default:
        CDebug::Instance()->PrintInfo("info.barrive: %d", stInfo.barrive);
    }
}

void CDeviceMonitor::AttachPort(const DEVICE_MONITOR_INFO_STRU& stInfo)
{
    const bool bNetworkUe = stInfo.ulPortNum == 0; // its record needs no type
    if (!bNetworkUe && stInfo.cSerialType >= SERIALNUM) {
        CDebug::Instance()->PrintError("serial %s attach, port is %d: unknown serial type %d, dropped",
                                       stInfo.szSerialName.c_str(), stInfo.ulPortNum,
                                       static_cast<int8_t>(stInfo.cSerialType));
        return;
    }
    CDebug::Instance()->PrintInfo("serial %s attach, port is %d", stInfo.szSerialName.c_str(), stInfo.ulPortNum);
    m_pUEManager->OnSerialAttach(stInfo.szGroupId, stInfo.szSerialName, static_cast<enSerialType>(stInfo.cSerialType),
                                 stInfo.ulPortNum);
}
