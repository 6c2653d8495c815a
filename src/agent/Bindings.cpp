#include "agent/Bindings.h"

#include "agent/Client.h"
#include "common/Debug.h"
#include "common/MsgBuf.h"
#include "data/gu/OperationGUData.h"
#include "ue/UEManager.h"

namespace
{
constexpr uint32_t SYS_MODE_LTE = 0; // bits 8-11 of usPktType in the UE status packets
constexpr uint32_t SYS_MODE_GU = 1;

uint16_t UeStatusPktType(uint32_t ulSysMode, UE_INDEX ulUeIdx)
{
    return static_cast<uint16_t>(PKT_TYPE_AGENT | ulSysMode << 8 | (ulUeIdx & 0xFu) << 12);
}

UE_STATUS_STRU UeStatus(UE_INDEX ulUeIdx, enChannelType enDataChannel, const UEConnect& stInfo)
{
    UE_STATUS_STRU stStatus;
    stStatus.ucUeIdx = static_cast<uint8_t>(ulUeIdx);
    stStatus.usPort = LISTENPORT[static_cast<size_t>(enDataChannel)];
    stStatus.szVersion = stInfo.szVersion;
    stStatus.szText = stInfo.szImei.substr(0, ADE_UE_CONNECTION_ACK_STRU::IMEI_SIZE - 1);
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

CBindings::CBindings(CChannelTable& table, CStatusReporter& status, CUEManager& ueManager,
                     const CGuOperations& operations)
    : m_table(table), m_status(status), m_ueManager(ueManager), m_operations(operations)
{
}

bool CBindings::BindUE(CClient* pClient, UE_INDEX ulUeIdx)
{
    if (!pClient)
        return false;
    const enChannelType enType = pClient->GetClientType();
    const SERIALCHANNELINFO stRow = m_table.Row(ulUeIdx, enType);
    if (!stRow.IsBindable())
        return false;
    m_table.SetClient(ulUeIdx, enType, pClient);
    if (ChannelsOf(RowOf(enType)->enPort).size() == 1) // or it would hold up the client of the line's other channel
        pClient->SetSource(CMsgBuf::Instance()->LoadFromUe(ulUeIdx, enType));
    const auto ulPort = static_cast<unsigned int>(stRow.nPort);
    m_status.SendClientConnectInfo({ulPort, static_cast<uint32_t>(enType), pClient->GetAddressText()});
    CDebug::Instance()->PrintInfo("%s binded to %d", strChannelType[static_cast<size_t>(enType)], stRow.nPort);
    SendUEStatus2Client(enType, pClient, ulUeIdx);
    pClient->SetBindUePort(ulPort);
    return true;
}

bool CBindings::BindCOM(IClientPort* pClient, unsigned int ulPort)
{
    UnBindUE(pClient); // also when the bind fails
    for (UE_INDEX i = 0; i < MAXUENUM; ++i)
        for (const enChannelType enChannel : ALL_CHANNELS) {
            const SERIALCHANNELINFO stRow = m_table.Row(i, enChannel);
            if (stRow.bConfirmed && static_cast<unsigned int>(stRow.nPort) == ulPort)
                return BindUE(static_cast<CClient*>(pClient), i); // the agent knows no other kind of client
        }
    return false;
}

bool CBindings::UnBindUE(IClientPort* pClient)
{
    const CChannelTable::ROW_PLACE stPlace = m_table.FindClient(pClient);
    if (stPlace.ulUeIdx == UE_NONE)
        return true;
    m_status.SendClientDisconnectInfo({static_cast<uint32_t>(m_table.Row(stPlace.ulUeIdx, stPlace.enChannel).nPort),
                                       static_cast<uint32_t>(pClient->GetClientType())});
    m_table.SetClient(stPlace.ulUeIdx, stPlace.enChannel, nullptr);
    return true;
}

std::shared_ptr<IClientPort> CBindings::GetGUDataClient(UE_INDEX ulUeIdx, enChannelType enChannel)
{
    return m_table.GetGUDataClient(ulUeIdx, enChannel);
}

IGuRequests* CBindings::GetOperationGUFromClient(const IClientPort* pClient)
{
    const UE_INDEX ulUeIdx = m_table.FindClient(pClient).ulUeIdx;
    return ulUeIdx == UE_NONE ? nullptr : m_operations[ulUeIdx].get();
}

ADE_UE_CONNECTION_ACK_STRU CBindings::GetUEConnectionAck(UE_INDEX ulUeIdx)
{
    CUE* const pUE = m_ueManager.GetUE(ulUeIdx);
    return pUE ? pUE->GetUEConnectionAck() : ADE_UE_CONNECTION_ACK_STRU{};
}

void CBindings::StoreTimeStamp(UE_INDEX ulUeIdx, const ADE_ACK_PACKET_STRU& stAck)
{
    const size_t szTotal = DIAG_PACKET_ACK_STRU::SIZE + stAck.pData.size();
    if (szTotal > TIME_STAMP_BLOCK) {
        CDebug::Instance()->PrintWarn("Time stamp ack of UE %u is too large, %zu bytes of payload", ulUeIdx,
                                      stAck.pData.size());
        return;
    }
    DIAG_PACKET_ACK_STRU stHead;
    stHead.ulCmdId = AGENT_CMD_TIME_STAMP;
    stHead.ulRc = DIAG_RC_OK;
    stHead.ullTimeStamp = stAck.ullTimeStamp;
    stHead.usPktType =
        static_cast<uint16_t>(PKT_TYPE_CMD | (stAck.ucSysMode & 0xF) << 8 | (stAck.ucReserved & 0xF) << 12);
    stHead.usLen = static_cast<uint16_t>(stAck.pData.size());

    std::array<unsigned char, TIME_STAMP_BLOCK> aucBlock{};
    CByteWriter writer(aucBlock);
    AckHead(writer, stHead);
    writer.Bytes(stAck.pData);
    CDebug::Instance()->PrintRawData("TimeStamp Ack DIAG_PACKET_ACK_STRU* pdiagack",
                                     Slice(ByteView(aucBlock), 0, szTotal));
    const xtl::MutexGuard guard(m_TimeStampMutex);
    m_aucTimeStampAck[ulUeIdx] = aucBlock;
}

std::vector<unsigned char> CBindings::GetTimeStampPacket(UE_INDEX ulUeIdx)
{
    if (ulUeIdx >= MAXUENUM)
        return {};
    const xtl::MutexGuard guard(m_TimeStampMutex);
    const ByteView block = m_aucTimeStampAck[ulUeIdx];
    DIAG_PACKET_ACK_STRU stHead;
    CByteReader reader(block);
    AckHead(reader, stHead);
    if (stHead.ulCmdId != AGENT_CMD_TIME_STAMP)
        return {};
    const ByteView packet = Slice(block, 0, DIAG_PACKET_ACK_STRU::SIZE + stHead.usLen);
    return {packet.begin(), packet.end()};
}

UEConnect CBindings::UeInfo(UE_INDEX ulUeIdx)
{
    const ADE_UE_CONNECTION_ACK_STRU stAck = GetUEConnectionAck(ulUeIdx);
    UEConnect stInfo;
    stInfo.szImei = stAck.Imei();
    stInfo.szVersion = VersionText(stAck);
    return stInfo;
}

void CBindings::SendUEStatus2Client(enChannelType enChannel, CClient* pClient, UE_INDEX ulUeIdx)
{
    if (!IsChannelOK(ulUeIdx, CHANNEL_LTE_DIAG))
        return;
    if (enChannel == CHANNEL_LTE_DIAG)
        SendLTEPacketToClient(pClient, ulUeIdx, UeInfo(ulUeIdx));
    else if (enChannel == CHANNEL_GU_CMD)
        SendGUPacketToClient(pClient, ulUeIdx, UeInfo(ulUeIdx));
}

void CBindings::SendLTEPacketToClient(CClient* pClient, UE_INDEX ulUeIdx, const UEConnect& stInfo)
{
    pClient->SendAck(AGENT_CMD_UE_STATUS, UeStatusPktType(SYS_MODE_LTE, ulUeIdx), DIAG_RC_OK,
                     EncodeRecord(UeStatus(ulUeIdx, CHANNEL_LTE_DATA, stInfo)), 0);
}

void CBindings::SendGUPacketToClient(CClient* pClient, UE_INDEX ulUeIdx, const UEConnect& stInfo)
{
    DIAG_PACKET_ACK_STRU stHead;
    stHead.ulCmdId = AGENT_CMD_GU_STATUS;
    stHead.usPktType = UeStatusPktType(SYS_MODE_GU, ulUeIdx);
    if (!SendClientPacket(*pClient, stHead, EncodeRecord(UeStatus(ulUeIdx, CHANNEL_GU_DATA, stInfo))))
        CDebug::Instance()->PrintInfo("Agent: ptmp Get memory faild");
}
