#include "ue/UEManager.h"

#include "common/Config.h"
#include "common/Debug.h"
#include "common/NoMemory.h"
#include "common/Thread.h"
#include "common/Turn.h"
#include "ue/ReadSet.h"
#include "ue/TcpChannel.h"
#include "ue/WriteLoop.h"

#include <algorithm>
#include <unistd.h>

namespace
{
constexpr int READ_TICK_MS = 1000; // longest wait of the read loop
constexpr int END_LIMIT_MS = 20'000;
constexpr std::chrono::seconds LOOK_PERIOD(1); // between two looks for ports that are gone or back
} // namespace

void* CUEManager::SerialR_Thread(void* pReader)
{
    const READER& stReader = *static_cast<READER*>(pReader);
    stReader.pManager->ReadSerialFun(stReader.szIndex);
    return nullptr;
}

void* CUEManager::SerialW_Thread(void* pManager)
{
    static_cast<CUEManager*>(pManager)->WriteSerialFun();
    return nullptr;
}

CUEManager::CUEManager() : m_Links(m_aUE[TCP_UE_INDEX].Worker())
{
    for (size_t i = 0; i < m_aUE.size(); ++i) {
        m_aUE[i].SetUEIdx(static_cast<UE_INDEX>(i));
        m_aUE[i].SetOnOpenFailed([this, i](enSerialType enType) { OnOpenFailed(m_aUE[i], enType); });
    }
    for (size_t i = 0; i < m_aReader.size(); ++i) {
        m_aReader[i].pManager = this;
        m_aReader[i].szIndex = i;
    }
}

CUEManager::~CUEManager()
{
    m_DeviceMonitor.EndThread();
    StopSerialRW();
    for (const READER& stReader : m_aReader)
        (void)wait_thread(stReader.hThread, END_LIMIT_MS);
    (void)wait_thread(m_hWriteThread, END_LIMIT_MS);
    for (CUE& ue : m_aUE)
        ue.Worker().Stop();
    for (CUE& ue : m_aUE)
        ue.Worker().End();
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
    CloseAll();
    return true;
}

void CUEManager::CloseAll()
{
    for (CUE& ue : m_aUE)
        ue.Worker().Stop();
    const xtl::MutexGuard guard(m_UELock);
    for (CUE& ue : m_aUE)
        for (size_t j = 0; j < SERIALNUM; ++j) {
            CSerial* const pSerial = ue.GetSerial(static_cast<enSerialType>(j));
            if (pSerial->IsOpen() || pSerial->IsOpening())
                pSerial->CloseSerial();
        }
    m_Links.Drop();
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
    for (READER& stReader : m_aReader)
        stReader.hThread = start_thread(0, SerialR_Thread, &stReader);
    m_hWriteThread = start_thread(0, SerialW_Thread, this);
    const auto isMissing = [](const READER& stReader) { return stReader.hThread == -1; };
    if (m_hWriteThread != -1 && std::ranges::none_of(m_aReader, isMissing))
        return true;
    m_bRun = false;
    return false;
}

bool CUEManager::StopSerialRW()
{
    m_bRun = false;
    WakeReaders();
    CMsgBuf::Instance()->WriteWake().Wake();
    return true;
}

void CUEManager::WakeReaders()
{
    for (UE_INDEX i = 0; i < READ_THREADS; ++i)
        CMsgBuf::Instance()->ReadWake(i).Wake();
}

void CUEManager::OnSerialAttach(const std::string& groupid, const std::string& name, enSerialType type,
                                unsigned int port)
{
    if (port == 0) {
        ProcessTCPUE(groupid, true);
        return;
    }
    const xtl::MutexGuard guard(m_UELock);
    CDebug::Instance()->PrintInfo("CUEManager::OnSerialAttach groupid is %s, name is %s, nComNum is %d",
                                  groupid.c_str(), name.c_str(), port);
    if (CConfig::Instance()->GetRecovery())
        DetachOtherName(name, port);
    if (CUE* const pUE = TakeSlot(groupid)) // a sixteenth modem isn't seen
        pUE->OnSerialAttach(name, type, port);
}

/// The port that has the number under another name is gone: its modem has come back as another device.
void CUEManager::DetachOtherName(const std::string& name, unsigned int port)
{
    CSerial* const pSerial = FindPort(port);
    if (pSerial != nullptr && pSerial->GetName() != name)
        pSerial->GetUE()->OnSerialDetach(pSerial->GetSerialType());
}

CUE* CUEManager::TakeSlot(const std::string& groupid)
{
    CUE* const pUE = FindUEForGroup(groupid);
    if (pUE != nullptr)
        pUE->SetGroupid(groupid);
    return pUE;
}

/// An attach that came meanwhile has its turn. Else, with Recovery, the slot of a UE of which no port is there is free
/// again; with configured names it is kept for it.
void CUEManager::OnOpenFailed(CUE& ue, enSerialType enType)
{
    const xtl::MutexGuard guard(m_UELock);
    if (ue.AttachKept(enType) || !CConfig::Instance()->GetRecovery() || CConfig::Instance()->GetChannelNameEnable())
        return;
    if (ue.IsUEPresent() || ue.IsAttached(SERIAL_TYPE_AT))
        return;
    ue.ForgetPorts();
    ue.SetGroupid("");
}

void CUEManager::AttachConfigured(const std::string& groupid, const std::string& name, enSerialType type,
                                  unsigned int port)
{
    OnSerialAttach(groupid, name, type, port);
    if (!CConfig::Instance()->GetRecovery() || port == 0)
        return;
    const xtl::MutexGuard guard(m_UELock);
    const CSerial* const pSerial = FindPort(port);
    if (pSerial == nullptr)
        return;
    CUE& ue = *pSerial->GetUE();
    ue.Worker().AddTick(LOOK_PERIOD, [this, stPort = CONFIGURED_PORT{ue.GetUEIdx(), groupid, name, type, port}] {
        LookForPort(stPort);
    });
}

/// Closes a port whose device is gone, and opens one whose device is back.
void CUEManager::LookForPort(const CONFIGURED_PORT& stPort)
{
    const xtl::MutexGuard guard(m_UELock);
    CUE& ue = m_aUE[stPort.ulUeIdx];
    const CSerial& serial = *ue.GetSerial(stPort.enType);
    if (serial.IsOpening())
        return;
    const bool bAttached = serial.IsOpen() || (serial.IsOpenedByWrite() && ue.IsAttached(stPort.enType));
    const bool bGone = serial.IsOpen() ? serial.HasReadFault() : access(stPort.strName.c_str(), F_OK) != 0;
    if (bAttached == !bGone)
        return;
    if (bAttached) {
        CDebug::Instance()->PrintWarn("serial %s is gone, port is %d", stPort.strName.c_str(), stPort.uiPort);
        ue.OnSerialDetach(stPort.enType);
        return;
    }
    ue.SetGroupid(stPort.strGroupid);
    ue.OnSerialAttach(stPort.strName, stPort.enType, stPort.uiPort, true);
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
    for (CUE& ue : m_aUE)
        ue.ForgetKept(port);
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
        m_Links.Attach(ip);
    else
        m_Links.Detach();
}

CChildChannel* CUEManager::GetSerialChannel(UE_INDEX ue, enChannelType type)
{
    return ue < TCP_UE_INDEX ? &m_aUE[ue].GetSerialChannel(type) : nullptr;
}

void CUEManager::GetOpenedSerial(std::vector<CSerial*>& out)
{
    GetOpenedSerial(out, 0, 1);
}

void CUEManager::GetOpenedSerial(std::vector<CSerial*>& out, size_t szFirst, size_t szStep)
{
    out.clear();
    const xtl::MutexGuard guard(m_UELock);
    for (size_t i = szFirst; i < TCP_UE_INDEX; i += szStep) {
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

void CUEManager::ReadSerialFun(size_t szReader)
{
    READER& stReader = m_aReader.at(szReader);
    CReadSet readSet(CMsgBuf::Instance()->ReadWake(static_cast<UE_INDEX>(szReader)));
    while (m_bRun) {
        bool bWaited = true;
        const bool bDone = DropOnNoMemory("a pass over the ports", [&] { bWaited = ReadPass(stReader, readSet); });
        if (!bWaited)
            CDebug::Instance()->PrintError("read serial select fail!");
        if (!bWaited || !bDone)
            usleep(READ_TICK_MS * 1000); // what is wrong now is most likely wrong on the next pass
    }
}

/// Waits, and reads what is there. False when the wait failed.
bool CUEManager::ReadPass(READER& stReader, CReadSet& readSet)
{
    CWakeUp& wake = CMsgBuf::Instance()->ReadWake(static_cast<UE_INDEX>(stReader.szIndex));
    wake.FallAsleep(); // from here on no change is missed
    CollectLines(stReader, readSet.Lines());
    const bool bWaited = readSet.Wait(READ_TICK_MS);
    wake.Rise();
    const CTurn turn(LOOP::SERIAL_READ);
    if (bWaited)
        readSet.ReadLines();
    return bWaited;
}

void CUEManager::CollectLines(READER& stReader, std::vector<std::shared_ptr<ILine>>& lines)
{
    lines.clear();
    GetOpenedSerial(stReader.vecOpened, stReader.szIndex, READ_THREADS);
    for (CSerial* const pSerial : stReader.vecOpened)
        lines.emplace_back(std::shared_ptr<ILine>(), pSerial); // ports live as long as the manager
    if (ReaderOf(TCP_UE_INDEX) != stReader.szIndex)
        return;
    for (const auto& pLink : m_Links.Table())
        if (pLink)
            lines.push_back(pLink);
}

void CUEManager::WriteSerialFun()
{
    CWriteLoop writeLoop([this](UE_INDEX ue, enSerialType enPort) { return LineOf(ue, enPort); });
    while (m_bRun)
        (void)DropOnNoMemory("a packet for a UE", [&] { writeLoop.Pass(); });
}

std::shared_ptr<ILine> CUEManager::LineOf(UE_INDEX ue, enSerialType enPort)
{
    if (ue == TCP_UE_INDEX)
        return m_Links.Get(enPort);
    return {std::shared_ptr<ILine>(), m_aUE[ue].GetSerial(enPort)};
}
