#include "ue/DeviceMonitor.h"

#include "common/Config.h"
#include "common/Debug.h"
#include "common/NoMemory.h"
#include "common/Thread.h"
#include "common/Wait.h"
#include "ue/UEManager.h"

#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
constexpr int LISTEN_BACKLOG = 80;
constexpr std::chrono::seconds
    RECORD_TIME_LIMIT(10);                      // for each piece: a connection that says nothing holds up all others
constexpr useconds_t ACCEPT_PAUSE_US = 100'000; // after a failed accept, which is likely to fail again at once
constexpr int END_LIMIT_MS = 20'000;

constexpr uint8_t PORT_LEFT = 0;
constexpr uint8_t PORT_ARRIVED = 1;

/// Order on the wire, for CByteReader and CByteWriter alike.
template <class Io, class Info> void DeviceRecord(Io& io, Info& stInfo)
{
    io.Field(stInfo.ulPortNum);                                        //   0
    io.Field(stInfo.cSerialType);                                      //   4
    io.Field(stInfo.barrive);                                          //   5
    io.Text(stInfo.szSerialName, DEVICE_MONITOR_INFO_STRU::NAME_SIZE); //   6
    io.Text(stInfo.szGroupId, DEVICE_MONITOR_INFO_STRU::GROUP_SIZE);   // 262
}

/// The field list is little-endian, the port number is in network order.
constexpr uint32_t SwapPortNum(uint32_t ulPortNum)
{
    return __builtin_bswap32(ulPortNum);
}

void* DeviceMonitor_Thread(void* pMonitor)
{
    if (pMonitor != nullptr)
        static_cast<CDeviceMonitor*>(pMonitor)->DeviceMonitorFun();
    return nullptr;
}

} // namespace

std::array<unsigned char, DEVICE_MONITOR_INFO_STRU::SIZE> EncodeDeviceRecord(const DEVICE_MONITOR_INFO_STRU& stInfo)
{
    std::array<unsigned char, DEVICE_MONITOR_INFO_STRU::SIZE> record{};
    DEVICE_MONITOR_INFO_STRU stWire = stInfo;
    stWire.ulPortNum = SwapPortNum(stInfo.ulPortNum);
    CByteWriter writer(record);
    DeviceRecord(writer, stWire);
    return record;
}

DEVICE_MONITOR_INFO_STRU DecodeDeviceRecord(ByteView record)
{
    DEVICE_MONITOR_INFO_STRU stInfo;
    CByteReader reader(record);
    DeviceRecord(reader, stInfo);
    stInfo.ulPortNum = SwapPortNum(stInfo.ulPortNum);
    return stInfo;
}

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
    m_bRun = 0;
    {
        const xtl::MutexGuard guard(m_ListenLock);
        if (m_Listener.IsOpen())
            (void)shutdown(m_Listener.Get(), SHUT_RDWR); // wakes accept; the thread closes the socket
    }
    (void)wait_thread(m_hEnding, END_LIMIT_MS);
}

bool CDeviceMonitor::Listen()
{
    const xtl::MutexGuard guard(m_ListenLock);
    m_Listener.Reset(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP));
    if (!m_Listener.IsOpen()) {
        CDebug::Instance()->PrintError("CDeviceMonitor socket create fail!");
        return false;
    }
    sockaddr_in stAddr{};
    stAddr.sin_family = AF_INET;
    stAddr.sin_port = htons(DEVICE_MONITOR_PORT);
    stAddr.sin_addr.s_addr = htonl(INADDR_ANY);
    if (bind(m_Listener.Get(), reinterpret_cast<const sockaddr*>(&stAddr), sizeof(stAddr)) != 0) {
        m_Listener.Reset();
        CDebug::Instance()->PrintError("CDeviceMonitor socket bind fail!");
        return false;
    }
    if (listen(m_Listener.Get(), LISTEN_BACKLOG) != 0) {
        m_Listener.Reset();
        CDebug::Instance()->PrintError("CDeviceMonitor socket listen fail!");
        return false;
    }
    return true;
}

void CDeviceMonitor::CloseListener()
{
    const xtl::MutexGuard guard(m_ListenLock);
    m_Listener.Reset();
}

void CDeviceMonitor::DeviceMonitorFun()
{
    if (!Listen())
        return;
    while (m_bRun)
        (void)DropOnNoMemory("a device record", [this] {
            if (const auto stInfo = ReceiveRecord())
                HandleRecord(*stInfo);
        });
    CloseListener();
}

/// Waits for the next connection and reads its record; none when either fails.
std::optional<DEVICE_MONITOR_INFO_STRU> CDeviceMonitor::ReceiveRecord() NO_THREAD_SAFETY_ANALYSIS
{
    // Without the lock: only this thread changes the listener.
    const int nListener = m_Listener.Get();
    const CUniqueFd peer(RetryOnEintr([=] { return accept4(nListener, nullptr, nullptr, SOCK_CLOEXEC); }));
    if (!peer.IsOpen()) {
        CDebug::Instance()->PrintError("Device Monitor accept error, errno:%d", errno);
        usleep(ACCEPT_PAUSE_US);
        return std::nullopt;
    }
    const timeval stLimit{RECORD_TIME_LIMIT.count(), 0};
    (void)setsockopt(peer.Get(), SOL_SOCKET, SO_RCVTIMEO, &stLimit, sizeof(stLimit));
    std::array<unsigned char, DEVICE_MONITOR_INFO_STRU::SIZE> record{};
    for (ByteSpan rest(record); !rest.empty();) {
        const ssize_t nRead = RetryOnEintr([&] { return recv(peer.Get(), rest.data(), rest.size(), 0); },
                                           std::chrono::steady_clock::now() + RECORD_TIME_LIMIT);
        if (nRead <= 0) {
            CDebug::Instance()->PrintError("Device Monitor Thread Read Data Error %d", errno);
            return std::nullopt;
        }
        rest = rest.subspan(static_cast<size_t>(nRead));
    }
    return DecodeDeviceRecord(record);
}

void CDeviceMonitor::HandleRecord(const DEVICE_MONITOR_INFO_STRU& stInfo)
{
    if (m_pUEManager == nullptr)
        return;
    switch (stInfo.barrive) {
    case PORT_ARRIVED:
        AttachPort(stInfo);
        break;
    case PORT_LEFT:
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
