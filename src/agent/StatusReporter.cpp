#include "agent/StatusReporter.h"

#include "agent/AgentTap.h"
#include "common/Config.h"
#include "common/Debug.h"
#include "common/Types.h"
#include "common/Wait.h"

#include <arpa/inet.h>
#include <cerrno>
#include <sys/socket.h>

void CStatusReporter::Open()
{
    const CConfig* const pConfig = CConfig::Instance();
    if (pConfig->GetStatusInfoReportInterval() <= 0)
        return;
    const xtl::MutexGuard guard(m_StatusMutex);
    m_nStatusSocket = socket(AF_INET, SOCK_DGRAM, 0);
    if (m_nStatusSocket < 0) {
        CDebug::Instance()->PrintError("StatusMonitor socket create fail!");
        return;
    }
    m_stMonitorAddr.sin_family = AF_INET;
    m_stMonitorAddr.sin_port = htons(STATUS_PORT);
    m_stMonitorAddr.sin_addr.s_addr = inet_addr(pConfig->GetMonitorIPAddr());
}

template <class Record> void CStatusReporter::SendRecord(const Record& stRecord)
{
    std::array<unsigned char, DATAGRAM_SIZE<Record>> datagram{};
    CByteWriter writer(datagram);
    const STATUS_HEAD_STRU stHead{Record::MSG_ID, Record::SIZE};
    STATUS_HEAD_STRU::Fields(writer, stHead);
    Record::Fields(writer, stRecord);
    SendStatus2UI(datagram);
}

void CStatusReporter::SendSerialConnectInfo(const SerialPortConnect& stInfo)
{
    CDebug::Instance()->PrintInfo("Serial Port %d is connected, groupid is %s", static_cast<int>(stInfo.ulPort),
                                  stInfo.szGroupId.c_str());
    SendRecord(stInfo);
}

void CStatusReporter::SendSerialDisconnectInfo(const SerialPortDisconnect& stInfo)
{
    SendRecord(stInfo);
}

void CStatusReporter::SendUEConnectInfo(const UEConnect& stInfo)
{
    CDebug::Instance()->PrintInfo("UE Connected, nMsgID is %d, payLoadSize is %d, groupid is %s, IMEI is %s, ver is %s",
                                  UEConnect::MSG_ID, static_cast<int>(UEConnect::SIZE), stInfo.szGroupId.c_str(),
                                  stInfo.szImei.c_str(), stInfo.szVersion.c_str());
    SendRecord(stInfo);
}

void CStatusReporter::SendClientConnectInfo(const ClientConnect& stInfo)
{
    CDebug::Instance()->PrintInfo("Client Connected, com port is %d, ip is %s", static_cast<int>(stInfo.ulPort),
                                  stInfo.szAddress.c_str());
    SendRecord(stInfo);
}

void CStatusReporter::SendClientDisconnectInfo(const ClientDisconnect& stInfo)
{
    CDebug::Instance()->PrintInfo("Client Disonnected, com port is %d", static_cast<int>(stInfo.ulPort));
    SendRecord(stInfo);
}

void CStatusReporter::SendSerialTransferInfo(const SerialPortTransfer& stInfo)
{
    SendRecord(stInfo);
}

void CStatusReporter::SendAgentVer()
{
    int iMajor = 0, iMinor = 0, iPatch = 0;
    CConfig::Instance()->GetVersion(iMajor, iMinor, iPatch);
    SendRecord(AgentVer{static_cast<uint32_t>(iMajor), static_cast<uint32_t>(iMinor), static_cast<uint32_t>(iPatch)});
}

void CStatusReporter::SendStatus2UI(ByteView datagram)
{
    if (datagram.data() == nullptr)
        return;
    xtl::MutexGuard guard(m_StatusMutex);
    if (m_nStatusSocket < 0)
        return;
    TapStatus(datagram);
    const auto* const pAddr = reinterpret_cast<const sockaddr*>(&m_stMonitorAddr);
    const int nSocket = m_nStatusSocket;
    const ssize_t lSent =
        RetryOnEintr([&] { return sendto(nSocket, datagram.data(), datagram.size(), 0, pAddr, sizeof(sockaddr_in)); });
    const int iError = errno;
    guard.Unlock();
    if (lSent <= 0)
        CDebug::Instance()->PrintWarn("send udp status msg error, errno is %d", iError);
}
