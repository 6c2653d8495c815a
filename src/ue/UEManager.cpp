#include "ue/UEManager.h"

#include "common/Config.h"
#include "common/Debug.h"
#include "common/NoMemory.h"
#include "common/Thread.h"
#include "ue/ReadSet.h"
#include "ue/TcpChannel.h"

#include <unistd.h>

namespace
{
constexpr int READ_TICK_MS = 1000;   // longest wait of the read loop; it bounds how long a detach waits
constexpr unsigned int MSG_WAKE = 0; // a kind of MSG_UE that means nothing
constexpr int END_LIMIT_MS = 20'000;

void* SerialR_Thread(void* pManager)
{
    if (pManager != nullptr)
        static_cast<CUEManager*>(pManager)->ReadSerialFun();
    return nullptr;
}

void* SerialW_Thread(void* pManager)
{
    if (pManager != nullptr)
        static_cast<CUEManager*>(pManager)->WriteSerialFun();
    return nullptr;
}
} // namespace

CUEManager::CUEManager()
{
    for (size_t i = 0; i < m_aUE.size(); ++i)
        m_aUE[i].SetUEIdx(static_cast<UE_INDEX>(i));
}

CUEManager::~CUEManager()
{
    m_DeviceMonitor.EndThread();
    m_bRun = false;
    (void)wait_thread(m_hReadEnding, END_LIMIT_MS);
    if (!wait_thread(m_hWriteEnding, 0)) {
        PostUeMsg(MSG_WAKE, 0, CHANNEL_LTE_DIAG, {}); // it may be waiting for a record
        (void)wait_thread(m_hWriteEnding, END_LIMIT_MS);
    }
    const xtl::MutexGuard readGuard(m_TcpReadLock);
    const xtl::MutexGuard writeGuard(m_TcpWriteLock);
    DropLinks();
}

bool CUEManager::Run()
{
    m_bRun = true;
    if (!StartDeviceMonitor()) {
        CDebug::Instance()->PrintError("StartDeviceMonitor\n");
        return false;
    }
    if (!StartSerialRW()) {
        CDebug::Instance()->PrintError("StartSerialRW\n");
        StopDeviceMonitor();
        return false;
    }
    CDebug::Instance()->PrintInfo("UEManager::Run OK!");
    return true;
}

bool CUEManager::Stop()
{
    StopDeviceMonitor();
    StopSerialRW();
    return true;
}

bool CUEManager::StartDeviceMonitor()
{
    m_DeviceMonitor.SetUEManager(this);
    if (m_DeviceMonitor.Start())
        return true;
    CDebug::Instance()->PrintError("DeviceMonitor Start Error");
    return false;
}

bool CUEManager::StopDeviceMonitor()
{
    m_DeviceMonitor.Stop();
    CDebug::Instance()->PrintInfo("DeviceMonitor Stop");
    return true;
}

bool CUEManager::StartSerialRW()
{
    m_bRun = true;
    m_hReadThread = m_hReadEnding = start_thread(0, SerialR_Thread, this);
    if (m_hReadThread == -1)
        return false;
    m_hWriteThread = m_hWriteEnding = start_thread(0, SerialW_Thread, this);
    if (m_hWriteThread == -1) {
        m_bRun = false;
        m_hReadThread = -1;
        return false;
    }
    return true;
}

bool CUEManager::StopSerialRW()
{
    m_bRun = false;
    m_hReadThread = -1;
    m_hWriteThread = -1;
    return true;
}

void CUEManager::OnSerialAttach(const std::string& groupid, const std::string& name, enSerialType type,
                                unsigned int port)
{
    if (port == 0) {
        ProcessTCPUE(groupid, true);
        return;
    }
    const xtl::MutexGuard guard(m_UELock); // over the opening of the port too: attaches come one at a time
    CDebug::Instance()->PrintInfo("CUEManager::OnSerialAttach groupid is %s, name is %s, nComNum is %d",
                                  groupid.c_str(), name.c_str(), port);
    CUE* pUE = FindUEForGroup(groupid);
    if (pUE == nullptr)
        return; // a sixteenth modem isn't seen
    pUE->SetGroupid(groupid);
    pUE->OnSerialAttach(name, type, port);
}

/// The slot of the group, else the first free one, else null.
CUE* CUEManager::FindUEForGroup(const std::string& groupid)
{
    for (size_t i = 0; i < TCP_UE_INDEX; ++i)
        if (m_aUE[i].GetGroupid() == groupid)
            return &m_aUE[i];
    for (size_t i = 0; i < TCP_UE_INDEX; ++i) {
        if (m_aUE[i].GetGroupid().empty()) {
            CDebug::Instance()->PrintInfo("SerialAttach: slot %d is empty", static_cast<int>(i));
            return &m_aUE[i];
        }
    }
    return nullptr;
}

void CUEManager::OnSerialDetach(unsigned int port)
{
    if (port == 0)
        ProcessTCPUE("", false);
    const xtl::MutexGuard guard(m_UELock);
    if (CSerial* pSerial = FindPort(port))
        pSerial->GetUE()->OnSerialDetach(pSerial->GetSerialType());
}

/// Null for the number that unused ports have, too.
CSerial* CUEManager::FindPort(unsigned int port)
{
    if (port == UNUSED_PORT_NUM)
        return nullptr;
    for (size_t i = 0; i < TCP_UE_INDEX; ++i) {
        for (size_t j = 0; j < SERIALNUM; ++j) {
            CSerial* pSerial = m_aUE[i].GetSerial(static_cast<enSerialType>(j));
            if (pSerial->GetPortNum() == port)
                return pSerial;
        }
    }
    return nullptr;
}

void CUEManager::OnSerialDetach(UE_INDEX ue, enSerialType type)
{
    if (ue >= TCP_UE_INDEX)
        return;
    const xtl::MutexGuard guard(m_UELock);
    m_aUE[ue].OnSerialDetach(type);
}

void CUEManager::ProcessTCPUE(const std::string& ip, bool attach)
{
    if (attach)
        AttachTcpUE(ip);
    else
        DetachTcpUE();
}

void CUEManager::AttachTcpUE(const std::string& ip)
{
    CDebug::Instance()->PrintInfo("Network attach, ip is %s", ip.c_str());
    const CConfig* pConfig = CConfig::Instance();
    if (pConfig == nullptr) {
        CDebug::Instance()->PrintError("create monitor port fail!");
        return;
    }
    const std::vector<PORT_INFO>& vecPort = *pConfig->GetMonitorPortInfo();
    if (vecPort.size() > SERIALNUM)
        CDebug::Instance()->PrintWarn("MonitorPort has %d rows, only the first %d are used",
                                      static_cast<int>(vecPort.size()), static_cast<int>(SERIALNUM));
    for (size_t i = 0; i < std::min<size_t>(vecPort.size(), SERIALNUM); ++i)
        SetTcp(i, std::make_shared<TCPChannel>(ip, vecPort[i].uiPort, vecPort[i].uiIsTcp != 0,
                                               static_cast<enChannelType>(i)));
    PostAttach(TCP_UE_INDEX, CHANNEL_LTE_DIAG, 0, "", ip);
}

void CUEManager::SetTcp(size_t szIndex, std::shared_ptr<TCPChannel> pLink)
{
    const xtl::MutexGuard guard(m_TcpTableLock);
    if (m_apTcp[szIndex])
        m_vecReplacedTcp.push_back(std::move(m_apTcp[szIndex]));
    m_apTcp[szIndex] = std::move(pLink);
}

void CUEManager::DetachTcpUE()
{
    PostDetach(TCP_UE_INDEX, CHANNEL_LTE_DIAG);
    // m_UELock keeps the read thread from starting another pass; otherwise it would take m_TcpReadLock again and
    // again before this thread is woken.
    const xtl::MutexGuard ueGuard(m_UELock);
    const xtl::MutexGuard readGuard(m_TcpReadLock);
    const xtl::MutexGuard writeGuard(m_TcpWriteLock);
    DropLinks();
}

void CUEManager::DropLinks()
{
    const xtl::MutexGuard guard(m_TcpTableLock);
    m_apTcp.fill(nullptr);
}

CChildChannel* CUEManager::GetSerialChannel(UE_INDEX ue, enChannelType type)
{
    return ue < TCP_UE_INDEX ? &m_aUE[ue].GetSerialChannel(type) : nullptr;
}

void CUEManager::GetOpenedSerial(std::vector<CSerial*>& out)
{
    out.clear();
    const xtl::MutexGuard guard(m_UELock);
    for (size_t i = 0; i < TCP_UE_INDEX; ++i) {
        for (size_t j = 0; j < SERIALNUM; ++j) {
            CSerial* pSerial = m_aUE[i].GetSerial(static_cast<enSerialType>(j));
            if (pSerial->IsOpen())
                out.push_back(pSerial);
        }
    }
}

CUE* CUEManager::GetUE(UE_INDEX ue)
{
    return ue < MAXUENUM ? &m_aUE[ue] : nullptr;
}

std::shared_ptr<TCPChannel> CUEManager::GetTcp(enSerialType i) const
{
    const auto szIndex = static_cast<size_t>(i);
    return szIndex < SERIALNUM ? Links()[szIndex] : nullptr;
}

CUEManager::LinkTable CUEManager::Links() const
{
    const xtl::MutexGuard guard(m_TcpTableLock);
    return m_apTcp;
}

void CUEManager::ReadSerialFun()
{
    CReadSet readSet;
    while (m_bRun) {
        bool bWaited = true;
        const bool bDone = DropOnNoMemory("a pass over the ports", [&] { bWaited = ReadPass(readSet); });
        readSet.ReleasePorts();
        if (!bWaited)
            CDebug::Instance()->PrintError("read serial select fail!");
        if (!bWaited || !bDone)
            usleep(READ_TICK_MS * 1000); // what is wrong now is most likely wrong on the next pass
    }
}

/// Waits, and reads what is there. False when the wait failed. Ports may be left locked.
bool CUEManager::ReadPass(CReadSet& readSet)
{
    GetOpenedSerial(readSet.OpenPorts());
    readSet.LockPorts();
    const int nReady = WaitForData(readSet);
    if (nReady > 0) {
        readSet.ReadPorts();
        ReadLinks(readSet);
    }
    return nReady >= 0;
}

/// Adds the links to the set and waits.
int CUEManager::WaitForData(CReadSet& readSet)
{
    const xtl::MutexGuard guard(m_TcpReadLock);
    const LinkTable apLink = Links();
    for (size_t i = 0; i < SERIALNUM; ++i)
        if (apLink[i] && apLink[i]->GetSocket() != -1 && !apLink[i]->IsPeerClosed())
            readSet.AddLink(i, apLink[i]->GetSocket());
    return readSet.Wait(READ_TICK_MS);
}

void CUEManager::ReadLinks(const CReadSet& readSet)
{
    const xtl::MutexGuard guard(m_TcpReadLock);
    const LinkTable apLink = Links();
    for (size_t i = 0; i < SERIALNUM; ++i)
        if (apLink[i] && readSet.IsLinkReadable(i, apLink[i]->GetSocket()))
            (void)DropOnNoMemory("what a link received", [&] { apLink[i]->RecvData(); });
}

void CUEManager::WriteSerialFun()
{
    while (m_bRun) {
        MSG_UE stMsg;
        if (!CMsgBuf::Instance()->UeQueue().get(stMsg)) {
            sleep(1);
            continue;
        }
        (void)DropOnNoMemory("a packet for a UE", [&] { WriteToUE(stMsg); });
    }
}

/// Writes one packet. Results aren't looked at: what can't be written is lost, and the line's own log tells.
void CUEManager::WriteToUE(const MSG_UE& stMsg)
{
    if (stMsg.ulMsgType == UE_MSG_SERIAL) {
        if (CChildChannel* pChannel = GetSerialChannel(stMsg.ulUeIdx, stMsg.enChannel))
            (void)pChannel->WriteChannel(stMsg.packet.Bytes());
    } else if (stMsg.ulMsgType == UE_MSG_TCP) {
        const xtl::MutexGuard guard(m_TcpWriteLock);
        const CHANNEL_ROW* const pRow = RowOf(stMsg.enChannel);
        if (const auto pLink = pRow ? GetTcp(pRow->enPort) : nullptr)
            (void)pLink->SendData(stMsg.packet.Bytes());
    }
}
