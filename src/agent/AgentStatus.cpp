#include "agent/Agent.h"

#include "agent/Client.h"
#include "common/Config.h"
#include "common/Debug.h"
#include "common/NoMemory.h"
#include "common/Wait.h"
#include "ue/TcpChannel.h"
#include "ue/UE.h"

#include <algorithm>
#include <optional>
#include <sys/socket.h>
#include <unistd.h>

// The agent's state: datagrams to the monitor as things happen, the whole picture when the monitor asks for it,
// and the UE status that a client gets when it is bound.

namespace
{
constexpr uint32_t SYS_MODE_LTE = 0; // bits 8-11 of usPktType in the UE status packets
constexpr uint32_t SYS_MODE_GU = 1;

uint16_t UeStatusPktType(uint32_t ulSysMode, unsigned char ucUeIdx)
{
    return static_cast<uint16_t>(PKT_TYPE_AGENT | ulSysMode << 8 | (ucUeIdx & 0xFu) << 12);
}

UE_STATUS_STRU UeStatus(unsigned char ucUeIdx, enChannelType enDataChannel, const UEConnect& stInfo)
{
    UE_STATUS_STRU stStatus;
    stStatus.ucUeIdx = ucUeIdx;
    stStatus.usDataPort = LISTENPORT[static_cast<size_t>(enDataChannel)];
    stStatus.szVersion = stInfo.szVersion;
    stStatus.szImei = stInfo.szImei;
    return stStatus;
}

std::string VersionText(const ADE_UE_CONNECTION_ACK_STRU& stAck)
{
    char szText[64];
    (void)snprintf(szText, sizeof(szText), "V%03dR%03dC%02dB%03dSP%02d", stAck.Version(0), stAck.Version(1),
                   stAck.Version(2), stAck.Version(3), stAck.Version(4));
    return szText;
}
} // namespace

template <class Record> void CAgent::SendRecord(const Record& stRecord)
{
    std::array<unsigned char, DATAGRAM_SIZE<Record>> datagram{};
    CByteWriter writer(datagram);
    const STATUS_HEAD_STRU stHead{Record::MSG_ID, Record::SIZE};
    STATUS_HEAD_STRU::Fields(writer, stHead);
    Record::Fields(writer, stRecord);
    SendStatus2UI(datagram);
}

void CAgent::SendSerialConnectInfo(const SerialPortConnect& stInfo)
{
    CDebug::Instance()->PrintInfo("Serial Port %d is connected, groupid is %s", static_cast<int>(stInfo.ulPort),
                                  stInfo.szGroupId.c_str());
    SendRecord(stInfo);
}

void CAgent::SendSerialDisconnectInfo(const SerialPortDisconnect& stInfo)
{
    SendRecord(stInfo);
}

void CAgent::SendUEConnectInfo(const UEConnect& stInfo)
{
    CDebug::Instance()->PrintInfo("UE Connected, nMsgID is %d, payLoadSize is %d, groupid is %s, IMEI is %s, ver is %s",
                                  UEConnect::MSG_ID, static_cast<int>(UEConnect::SIZE), stInfo.szGroupId.c_str(),
                                  stInfo.szImei.c_str(), stInfo.szVersion.c_str());
    SendRecord(stInfo);
}

void CAgent::SendClientConnectInfo(const ClientConnect& stInfo)
{
    CDebug::Instance()->PrintInfo("Client Connected, com port is %d, ip is %s", static_cast<int>(stInfo.ulPort),
                                  stInfo.szAddress.c_str());
    SendRecord(stInfo);
}

void CAgent::SendClientDisconnectInfo(const ClientDisconnect& stInfo)
{
    CDebug::Instance()->PrintInfo("Client Disonnected, com port is %d", static_cast<int>(stInfo.ulPort));
    SendRecord(stInfo);
}

void CAgent::SendSerialTransferInfo(const SerialPortTransfer& stInfo)
{
    SendRecord(stInfo);
}

void CAgent::SendAgentVer()
{
    int iMajor = 0, iMinor = 0, iPatch = 0;
    CConfig::Instance()->GetVersion(iMajor, iMinor, iPatch);
    SendRecord(AgentVer{static_cast<uint32_t>(iMajor), static_cast<uint32_t>(iMinor), static_cast<uint32_t>(iPatch)});
}

void CAgent::SendStatus2UI(ByteView datagram)
{
    if (datagram.data() == nullptr)
        return;
    xtl::MutexGuard guard(m_StatusMutex);
    if (m_nStatusSocket < 0)
        return;
    const auto* const pAddr = reinterpret_cast<const sockaddr*>(&m_stMonitorAddr);
    const int nSocket = m_nStatusSocket;
    const ssize_t lSent =
        RetryOnEintr([&] { return sendto(nSocket, datagram.data(), datagram.size(), 0, pAddr, sizeof(sockaddr_in)); });
    const int iError = errno;
    guard.Unlock();
    if (lSent <= 0)
        CDebug::Instance()->PrintWarn("send udp status msg error, errno is %d", iError);
}

void CAgent::StatusMonitorFun()
{
    const int iInterval = CConfig::Instance()->GetStatusInfoReportInterval();
    while (m_bRun && iInterval > 0) {
        (void)DropOnNoMemory("a transfer report", [this] { SendTransferReport(); });
        sleep(static_cast<unsigned int>(iInterval));
    }
}

void CAgent::SendTransferReport()
{
    for (int i = 0; i < static_cast<int>(TCP_UE_INDEX); ++i)
        for (int j = 0; j < static_cast<int>(SERIALNUM); ++j) {
            CSerial* const pSerial = m_UEManager.GetUE(i)->GetSerial(static_cast<enSerialType>(j));
            if (pSerial->IsOpen())
                SendSerialTransferInfo(
                    {0, pSerial->GetPortNum(), pSerial->GetTotalBytesRead(), pSerial->GetTotalBytesWrite()});
        }
    for (uint32_t i = 0; i < SERIALNUM; ++i)
        if (const auto pLink = m_UEManager.GetTcp(static_cast<enSerialType>(i)))
            SendSerialTransferInfo({i == SERIAL_TYPE_AT ? static_cast<uint32_t>(CHANNEL_AT) : i, 0,
                                    pLink->GetTotalBytesRead(), pLink->GetTotalBytesWrite()});
}

void CAgent::StatusQueryFun()
{
    const CUniqueFd queryFd(socket(AF_INET, SOCK_DGRAM, 0));
    if (!queryFd.IsOpen()) {
        CDebug::Instance()->PrintError("StatusQuery socket create fail!");
        return;
    }
    sockaddr_in stAddr{};
    stAddr.sin_family = AF_INET;
    stAddr.sin_port = htons(STATUS_QUERY_PORT);
    stAddr.sin_addr.s_addr = htonl(INADDR_ANY);
    if (bind(queryFd.Get(), reinterpret_cast<const sockaddr*>(&stAddr), sizeof(stAddr)) != 0) {
        CDebug::Instance()->PrintError("Status Query socket bind address fail!");
        return;
    }
    while (m_bRun) {
        std::array<unsigned char, STATUS_QUERY_MAX> aucQuery;
        const ssize_t lRead = RetryOnEintr(
            [&] { return recvfrom(queryFd.Get(), aucQuery.data(), aucQuery.size(), 0, nullptr, nullptr); });
        if (lRead < 0)
            sleep(1); // a broken socket must not keep a core busy
        if (lRead < 1 || aucQuery[0] != AGENT_STATUS_QUERY_CURRENT)
            continue;
        CDebug::Instance()->PrintInfo("Receive AGENT_STATUS_QUERY_CURRENT cmd");
        // To the monitor, whoever asked.
        (void)DropOnNoMemory("the answer to a status query", [this] { SendAgentCurrentStatus(); });
    }
}

void CAgent::SendAgentCurrentStatus()
{
    SendAgentVer();
    for (unsigned int i = 0; i < MAXUENUM; ++i)
        for (const enChannelType enChannel : ALL_CHANNELS)
            SendRowStatus(i, enChannel);
}

/// The lock is held while the row is read, not while it is sent: a picture may mix states before and after a change.
void CAgent::SendRowStatus(unsigned int ulUeIdx, enChannelType enChannel)
{
    xtl::MutexGuard guard(m_BindMutex);
    const SERIALCHANNELINFO stRow = Row(ulUeIdx, enChannel);
    if (!stRow.bAttached)
        return;
    const auto ulPort = static_cast<uint32_t>(stRow.nPort);
    std::optional<UEConnect> stUe;
    if (enChannel == CHANNEL_LTE_DIAG && stRow.bConfirmed) {
        stUe = UeInfo(ulUeIdx);
        stUe->szGroupId = stRow.strGroupId;
    }
    std::optional<ClientConnect> stClient;
    if (stRow.pClient)
        stClient = {ulPort, static_cast<uint32_t>(stRow.pClient->GetClientType()), stRow.pClient->GetAddressText()};
    guard.Unlock();

    SendSerialConnectInfo({stRow.strGroupId, ulPort, static_cast<uint32_t>(enChannel)});
    if (stUe)
        SendUEConnectInfo(*stUe);
    if (stClient)
        SendClientConnectInfo(*stClient);
}

/// IMEI and version text of a UE; the group id stays empty.
UEConnect CAgent::UeInfo(unsigned int ulUeIdx)
{
    UEConnect stInfo;
    if (CUE* const pUE = m_UEManager.GetUE(static_cast<int>(ulUeIdx))) {
        const ADE_UE_CONNECTION_ACK_STRU stAck = pUE->GetUEConnectionAck();
        stInfo.szImei = stAck.Imei();
        stInfo.szVersion = VersionText(stAck);
    }
    return stInfo;
}

void CAgent::SendUEStatus2Client(enChannelType enChannel, CClient* pClient, unsigned char ucUeIdx)
{
    if (!IsChannelOK(ucUeIdx, CHANNEL_LTE_DIAG) || !m_UEManager.GetUE(ucUeIdx))
        return;
    if (enChannel == CHANNEL_LTE_DIAG)
        SendLTEPacketToClient(pClient, ucUeIdx, UeInfo(ucUeIdx));
    else if (enChannel == CHANNEL_GU_CMD)
        SendGUPacketToClient(pClient, ucUeIdx, UeInfo(ucUeIdx));
}

void CAgent::SendLTEPacketToClient(CClient* pClient, unsigned char ucUeIdx, const UEConnect& stInfo)
{
    pClient->SendAck(AGENT_CMD_UE_STATUS, UeStatusPktType(SYS_MODE_LTE, ucUeIdx), DIAG_RC_OK,
                     EncodeRecord(UeStatus(ucUeIdx, CHANNEL_LTE_DATA, stInfo)), 0);
}

void CAgent::SendGUPacketToClient(CClient* pClient, unsigned char ucUeIdx, const UEConnect& stInfo)
{
    DIAG_PACKET_ACK_STRU stHead;
    stHead.ulCmdId = AGENT_CMD_GU_STATUS;
    stHead.usPktType = UeStatusPktType(SYS_MODE_GU, ucUeIdx);
    size_t szTotal = 0;
    OwnedBytes pPacket = BuildClientPacket(stHead, EncodeRecord(UeStatus(ucUeIdx, CHANNEL_GU_DATA, stInfo)), szTotal);
    if (!pPacket) {
        CDebug::Instance()->PrintInfo("Agent: ptmp Get memory faild");
        return;
    }
    pClient->SendData2Client(std::move(pPacket), szTotal);
}
