#include "agent/Agent.h"

#include "agent/Client.h"
#include "common/Debug.h"
#include "common/LteDiagInitCmd.h"
#include "common/NoMemory.h"
#include "data/DpLteDiag.h"
#include "data/gu/GUDataProcess.h"
#include "data/gu/GuPacket.h"
#include "data/gu/OperationGUData.h"
#include "ue/UE.h"

#include <algorithm>
#include <unistd.h>

// What the UE side reports, taken by one thread: ports that come and go, and packets. Two handshakes start here
// when a channel appears: host connect on the LTE diag channel, link set-up on the GU command channel.

namespace
{
constexpr unsigned int HOST_CONNECT_DELAY_S = 2; // a port that was just opened needs this before it listens
constexpr useconds_t SWITCH_INTERVAL_US = 50000; // between two switch requests

// The GU link request and the UE's answer.
constexpr std::array<unsigned char, 16> LINK_REQUEST = {0x10, 0x00, 0x01, 0x01, 0x0A, 0x00, 0x08, 0x00,
                                                        0xB1, 0x80, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00};
constexpr size_t LINK_ANSWER_ID_OFFSET = 12; // from OM_FRAME_START
constexpr uint16_t LINK_ANSWER_ID = 0x80B2;

// Ids of the GU link set-up.
constexpr uint16_t GU_ENABLE_TRANS = 0x5000;
constexpr uint16_t GU_IMEI_QUERY = 0xC001;
constexpr uint16_t GU_VERSION_QUERY = 0x8081;
constexpr uint16_t GU_MODEM_NUM_QUERY = 0x8211;
constexpr uint16_t GU_MODE_QUERY = 0x80A5;
constexpr uint32_t GU_PID_IMEI = 141; // receiver of the IMEI query

/// A request of szSize bytes with its head, the rest zero.
template <size_t szSize> std::array<unsigned char, szSize> GuRequest(unsigned char ucCategory)
{
    std::array<unsigned char, szSize> aucReq{};
    aucReq[GU_CATEGORY] = ucCategory;
    StoreLe<uint16_t>(aucReq, GU_PACKET_LEN, szSize - GU_LEN_OFFSET_BASE);
    return aucReq;
}

template <size_t szSize> std::array<unsigned char, szSize> GuShortQuery(unsigned char ucCategory, uint16_t usId)
{
    auto aucReq = GuRequest<szSize>(ucCategory);
    StoreLe<uint16_t>(aucReq, GU_QUERY_MSG_ID, usId);
    return aucReq;
}

ByteSpan PacketOf(const MSG_AGENT& stMsg)
{
    return {stMsg.pucData, stMsg.pucData ? stMsg.ulDataLen : 0};
}

/// Handles packet by packet; one that memory is too short for is dropped alone.
template <class Handle> void ForEachPacket(std::span<const MSG_AGENT> run, Handle handle)
{
    for (const MSG_AGENT& stMsg : run)
        (void)DropOnNoMemory("a packet of a UE", [&] { handle(stMsg); });
}

/// How many of the records, of which there is one at least, come at the head as packets of one channel; 1 for a
/// record of another kind.
size_t RunLength(std::span<const MSG_AGENT> msgs)
{
    const MSG_AGENT& stFirst = msgs.front();
    if (stFirst.ulMsgType != AGENT_MSG_DATA)
        return 1;
    const auto isOther = [&](const MSG_AGENT& stMsg) {
        return stMsg.ulMsgType != AGENT_MSG_DATA || stMsg.ulUeIdx != stFirst.ulUeIdx ||
               stMsg.enChannel != stFirst.enChannel;
    };
    return static_cast<size_t>(std::ranges::find_if(msgs, isOther) - msgs.begin());
}

/// The channels that an attach or detach message speaks for.
std::vector<enChannelType> ChannelsOf(const MSG_AGENT& stMsg)
{
    if (stMsg.ulUeIdx == TCP_UE_INDEX)
        return {ALL_CHANNELS.begin(), ALL_CHANNELS.end()};
    return {stMsg.enChannel};
}

UE_ATTACH_INFO_STRU AttachInfoOf(const MSG_AGENT& stMsg)
{
    UE_ATTACH_INFO_STRU stInfo;
    stInfo.ulPortNum = static_cast<uint32_t>(-1); // of a message without block
    if (stMsg.pucData) {
        CByteReader reader(PacketOf(stMsg));
        AttachInfo(reader, stInfo);
    }
    return stInfo;
}

/// What is kept of a full host connect confirmation.
ADE_UE_CONNECTION_ACK_STRU ConnectionAckOf(ByteView payload)
{
    using Ack = ADE_UE_CONNECTION_ACK_STRU;
    Ack stAck;
    std::ranges::copy(Slice(payload, 0, Ack::TAKEN_OVER), stAck.aucData.begin());
    StoreLe<uint32_t>(stAck.aucData, Ack::UE_VER, payload.size() == Ack::FULL_PAYLOAD ? 1 : 2);
    return stAck;
}
} // namespace

void CAgent::ReadAgentMsgFun()
{
    std::array<MSG_AGENT, MSG_RUN_MAX> astMsg;
    std::array<OwnedBytes, MSG_RUN_MAX> apData; // owners of what the records carry
    while (m_bRun) {
        const size_t szCount = CMsgBuf::Instance()->AgentQueue().get(astMsg);
        if (szCount == 0) {
            sleep(1);
            continue;
        }
        for (size_t i = 0; i < szCount; ++i)
            apData[i].reset(astMsg[i].pucData);
        ProcessAgentMsgs(std::span<const MSG_AGENT>(astMsg).first(szCount));
        std::for_each_n(apData.begin(), szCount, [](OwnedBytes& pData) { pData.reset(); });
    }
}

void CAgent::ProcessAgentMsgs(std::span<const MSG_AGENT> msgs)
{
    while (!msgs.empty()) {
        const auto run = msgs.first(RunLength(msgs));
        ProcessRun(run);
        msgs = msgs.subspan(run.size());
    }
}

/// One record, or packets of one channel.
void CAgent::ProcessRun(std::span<const MSG_AGENT> run)
{
    const MSG_AGENT& stMsg = run.front();
    switch (stMsg.ulMsgType) {
    case AGENT_MSG_CONNECT:
        (void)DropOnNoMemory("a port that came", [&] {
            UpdateSerialInfo(stMsg);
            ConnectUE(stMsg);
        });
        break;
    case AGENT_MSG_DISCONNECT:
        (void)DropOnNoMemory("a port that went", [&] {
            UpdateSerialInfo(stMsg);
            DisconnectUE(stMsg);
        });
        break;
    case AGENT_MSG_DATA:
        OnUeDataArrive(run);
        break;
    default:
        CDebug::Instance()->PrintWarn("Invalid data from Agent Msg Deque");
        break;
    }
}

void CAgent::UpdateSerialInfo(const MSG_AGENT& stMsg)
{
    if (!IsRow(stMsg.ulUeIdx, stMsg.enChannel))
        return;
    const char* const pszLabel = strChannelType[static_cast<size_t>(stMsg.enChannel)];
    const xtl::MutexGuard guard(m_BindMutex);
    if (stMsg.ulMsgType == AGENT_MSG_CONNECT) {
        const UE_ATTACH_INFO_STRU stInfo = AttachInfoOf(stMsg);
        CDebug::Instance()->PrintInfo("UE %d %s attached, Serial port name is %s", static_cast<int>(stMsg.ulUeIdx),
                                      pszLabel, stInfo.szSerialName.c_str());
        for (const enChannelType enChannel : ChannelsOf(stMsg))
            AttachRow(stMsg.ulUeIdx, enChannel, stInfo);
        return;
    }
    CDebug::Instance()->PrintInfo("UE %d %s detached", static_cast<int>(stMsg.ulUeIdx), pszLabel);
    for (const enChannelType enChannel : ChannelsOf(stMsg))
        ProcessDetach(stMsg.ulUeIdx, enChannel);
}

void CAgent::AttachRow(unsigned int ulUeIdx, enChannelType enChannel, const UE_ATTACH_INFO_STRU& stInfo)
{
    {
        const xtl::MutexGuard guard(m_RowMutex);
        SERIALCHANNELINFO& stRow = m_astChannelInfo[ulUeIdx][static_cast<size_t>(enChannel)];
        stRow.strSerialName = stInfo.szSerialName;
        stRow.strGroupId = stInfo.szGroupId;
        stRow.nPort = static_cast<int>(stInfo.ulPortNum);
        stRow.enChannel = enChannel;
        stRow.bAttached = true;
    }
    SendSerialConnectInfo({stInfo.szGroupId, stInfo.ulPortNum, static_cast<uint32_t>(enChannel)});
}

void CAgent::ProcessDetach(unsigned int ulUeIdx, enChannelType enChannel)
{
    const SERIALCHANNELINFO stRow = Row(ulUeIdx, enChannel);
    const auto ulPort = static_cast<uint32_t>(stRow.nPort);
    SendSerialDisconnectInfo({ulPort});
    if (stRow.pClient) {
        SendClientDisconnectInfo({ulPort, static_cast<uint32_t>(stRow.pClient->GetClientType())});
        SetRowClient(ulUeIdx, enChannel, nullptr);
        RemoveLostClient(stRow.pClient);
        CDebug::Instance()->PrintInfo("disconnect client because device loss");
    }
    const xtl::MutexGuard guard(m_RowMutex);
    SERIALCHANNELINFO& stFree = m_astChannelInfo[ulUeIdx][static_cast<size_t>(enChannel)];
    stFree = {};
    stFree.enChannel = enChannel;
}

void CAgent::ConnectUE(const MSG_AGENT& stMsg)
{
    if (stMsg.ulUeIdx >= MAXUENUM)
        return;
    if (stMsg.enChannel == CHANNEL_LTE_DIAG)
        SendHostConnect(static_cast<int>(stMsg.ulUeIdx));
    else if (stMsg.enChannel == CHANNEL_GU_CMD)
        SendLinkRequest(static_cast<int>(stMsg.ulUeIdx));
}

void CAgent::SendHostConnect(int nUeIdx)
{
    OwnedBytes pReq;
    size_t szLen = 0;
    if (BuildLteDiagReq(UE_CMD_HOST_CONNECT, {}, pReq, szLen)) {
        sleep(HOST_CONNECT_DELAY_S); // on this thread: no UE is served meanwhile, once per UE
        CDebug::Instance()->PrintInfo("Send HOST_CONNECT cmd to UE");
        SendData2UE(std::move(pReq), static_cast<unsigned int>(szLen), nUeIdx, CHANNEL_LTE_DIAG);
    }
    if (BuildLteDiagReq(UE_CMD_TIME_STAMP, {}, pReq, szLen)) {
        CDebug::Instance()->PrintInfo("Send DT_CMD_PACKET_SERIAL_TIMESTAMPID to UE");
        SendData2UE(std::move(pReq), static_cast<unsigned int>(szLen), nUeIdx, CHANNEL_LTE_DIAG);
    }
}

/// The request goes out as it stands, without an OM frame.
void CAgent::SendLinkRequest(int nUeIdx)
{
    OwnedBytes pReq = CopyOnHeap(LINK_REQUEST);
    if (!pReq) {
        CDebug::Instance()->PrintInfo("Agent:pBuf Get memory faild");
        return;
    }
    SendData2UE(std::move(pReq), LINK_REQUEST.size(), nUeIdx, CHANNEL_GU_CMD);
}

/// Whichever channel went, the GU state of the UE starts anew.
void CAgent::DisconnectUE(const MSG_AGENT& stMsg)
{
    if (stMsg.ulUeIdx >= MAXUENUM)
        return;
    CUE* const pUE = m_UEManager.GetUE(static_cast<int>(stMsg.ulUeIdx));
    if (stMsg.enChannel == CHANNEL_LTE_DIAG && pUE)
        pUE->ClearUEConnectionAck();
    m_apOperationGU[stMsg.ulUeIdx]->ClearData();
    m_abJianLian[stMsg.ulUeIdx] = false;
}

void CAgent::OnUeDataArrive(std::span<const MSG_AGENT> run)
{
    const MSG_AGENT& stFirst = run.front();
    if (!IsRow(stFirst.ulUeIdx, stFirst.enChannel))
        return;
    if (stFirst.enChannel == CHANNEL_LTE_DIAG) {
        ForEachPacket(run, [&](const MSG_AGENT& stMsg) { OnLteDiagArrive(stMsg); });
    } else if (stFirst.enChannel == CHANNEL_GU_CMD) {
        ForEachPacket(run, [&](const MSG_AGENT& stMsg) {
            OnGuCmdArrive(static_cast<unsigned char>(stMsg.ulUeIdx), PacketOf(stMsg));
        });
    } else {
        Deliver2Client(run);
    }
}

void CAgent::OnLteDiagArrive(const MSG_AGENT& stMsg)
{
    PACKET_CATEGORY_ENUM enCategory = PACKET_CATEGORY_INVALID;
    (void)CDataProcessorLteDiag::GetPacketType(PacketOf(stMsg), enCategory); // the category says all
    if (enCategory == PACKET_CATEGORY_MGR_ACK)
        OnLteDiagMgrArrive(stMsg.ulUeIdx, PacketOf(stMsg));
    else
        Deliver2Client({&stMsg, 1});
}

void CAgent::OnGuCmdArrive(unsigned char ucUeIdx, ByteSpan packet)
{
    if (JudgeJIANLIANCMD(packet, ucUeIdx)) {
        EnableTransMsg(ucUeIdx);
        SendUeInfoReqToUe(ucUeIdx);
    } else {
        m_apOperationGU[ucUeIdx]->ProcessSerialData(this, packet, ucUeIdx);
    }
}

/// Packets of one channel. What they make for the client is sent together: they are all there, so none of it waits
/// for a packet that is still to come.
void CAgent::Deliver2Client(std::span<const MSG_AGENT> run)
{
    const xtl::MutexGuard guard(m_BindMutex);
    CClient* const pClient = GetBindedClient(static_cast<int>(run.front().ulUeIdx), run.front().enChannel);
    if (!pClient)
        return;
    const CClient::CSendTogether together(*pClient);
    ForEachPacket(run, [&](const MSG_AGENT& stMsg) { pClient->OnSerialData(PacketOf(stMsg)); });
}

bool CAgent::JudgeJIANLIANCMD(ByteView packet, unsigned char ucUeIdx)
{
    if (ucUeIdx >= MAXUENUM || m_abJianLian[ucUeIdx])
        return false;
    size_t szMark = 0;
    while (szMark < packet.size() && LoadLe<uint32_t>(packet, szMark) != OM_FRAME_START)
        ++szMark;
    const size_t szId = szMark + LINK_ANSWER_ID_OFFSET;
    if (szId + 1 >= packet.size() || LoadLe<uint16_t>(packet, szId) != LINK_ANSWER_ID)
        return false;
    CDebug::Instance()->PrintInfo("JIAN LIAN SUCCESS");
    m_abJianLian[ucUeIdx] = true;
    return true;
}

void CAgent::OnLteDiagMgrArrive(unsigned int ulUeIdx, ByteView packet)
{
    ADE_ACK_PACKET_STRU stAck;
    if (!CDataProcessorLteDiag::GetAdeAck(packet, stAck))
        return;
    if (stAck.ulCmdId == UE_CMD_HOST_CONNECT || stAck.ulCmdId == UE_CMD_HOST_CONNECT_CNF)
        OnHostConnectCnf(ulUeIdx, stAck);
    else if (stAck.ulCmdId == UE_CMD_TIME_STAMP)
        StoreTimeStamp(ulUeIdx, stAck);
    else
        CDebug::Instance()->PrintInfo("Received Manager Packet(%x) from lte diag channel", stAck.ulCmdId);
}

void CAgent::OnHostConnectCnf(unsigned int ulUeIdx, const ADE_ACK_PACKET_STRU& stAck)
{
    CDebug::Instance()->PrintInfo("Received host connect cnf msg(%x) from lte diag channel", stAck.ulCmdId);
    CUE* const pUE = m_UEManager.GetUE(static_cast<int>(ulUeIdx));
    if (!pUE)
        return;
    if (stAck.pData.size() < ADE_UE_CONNECTION_ACK_STRU::FULL_PAYLOAD) {
        SetConfirmed(ulUeIdx, false);
        return;
    }
    pUE->SetUEConnectionAck(ConnectionAckOf(stAck.pData));
    SetConfirmed(ulUeIdx, true);
    SendDspModuleSwitch(static_cast<int>(ulUeIdx));
    UEConnect stInfo = UeInfo(ulUeIdx);
    stInfo.szGroupId = Row(ulUeIdx, CHANNEL_LTE_DIAG).strGroupId;
    SendUEConnectInfo(stInfo);
}

/// Keeps the ack in the form in which clients ask for it.
void CAgent::StoreTimeStamp(unsigned int ulUeIdx, const ADE_ACK_PACKET_STRU& stAck)
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

std::vector<unsigned char> CAgent::GetTimeStampPacket(int nUeIdx)
{
    if (static_cast<unsigned int>(nUeIdx) >= MAXUENUM)
        return {};
    const xtl::MutexGuard guard(m_TimeStampMutex);
    const ByteView block = m_aucTimeStampAck[static_cast<size_t>(nUeIdx)];
    DIAG_PACKET_ACK_STRU stHead;
    CByteReader reader(block);
    AckHead(reader, stHead);
    if (stHead.ulCmdId != AGENT_CMD_TIME_STAMP)
        return {};
    const ByteView packet = Slice(block, 0, DIAG_PACKET_ACK_STRU::SIZE + stHead.usLen);
    return {packet.begin(), packet.end()};
}

void CAgent::SendDspModuleSwitch(int nUeIdx)
{
    for (const LTE_DIAG_INIT_CMD_STRU& stRow : LTE_DIAG_INIT_CMD) {
        OwnedBytes pReq;
        size_t szLen = 0;
        if (BuildLteDiagReq(stRow.ulCmdId, stRow.Data(), pReq, szLen))
            SendData2UE(std::move(pReq), static_cast<unsigned int>(szLen), nUeIdx, CHANNEL_LTE_DIAG);
        usleep(SWITCH_INTERVAL_US); // the UE takes no faster; once per UE
    }
}

bool CAgent::BuildLteDiagReq(unsigned int ulCmdId, ByteView data, OwnedBytes& pucOut, size_t& szOutLen)
{
    DIAG_PACKET_REQ_VIEW stReq;
    stReq.stHead.ulCmdId = ulCmdId;
    stReq.stHead.usLen = static_cast<uint16_t>(data.size());
    stReq.data = data;
    if (CDataProcessorLteDiag::BuildUeBuf(stReq, 0, pucOut, szOutLen))
        return true;
    CDebug::Instance()->PrintError("Agent BuildLteDiagReq Error!");
    return false;
}

void CAgent::SendData2UE(OwnedBytes pucBuf, unsigned int ulLen, int nUeIdx, enChannelType enChannel)
{
    if (!pucBuf)
        return;
    const auto ulUeIdx = static_cast<unsigned int>(nUeIdx);
    (void)PostUeMsg(ulUeIdx == TCP_UE_INDEX ? UE_MSG_TCP : UE_MSG_SERIAL, ulUeIdx, enChannel, std::move(pucBuf), ulLen);
}

void CAgent::SendGUReq2UE(ByteView msg, unsigned char ucUeIdx)
{
    std::vector<unsigned char> frame;
    if (!m_GUDataProcess->OM_UsbFrameEncap(msg, frame, 1, 1))
        return;
    OwnedBytes pFrame = CopyOnHeap(frame);
    if (!pFrame) {
        CDebug::Instance()->PrintInfo("DpGuCmd function SendReq2UE Get memory Faild");
        return;
    }
    SendData2UE(std::move(pFrame), static_cast<unsigned int>(frame.size()), ucUeIdx, CHANNEL_GU_CMD);
}

void CAgent::EnableTransMsg(unsigned char ucUeIdx)
{
    SendGUReq2UE(GuShortQuery<12>(GU_CATEGORY_TRANS, GU_ENABLE_TRANS), ucUeIdx);
}

void CAgent::SendUeInfoReqToUe(unsigned char ucUeIdx)
{
    auto aucImei = GuRequest<32>(GU_CATEGORY_TRANS);
    StoreLe<uint32_t>(aucImei, GU_REQ_SENDER_PID, GU_PID_AGENT);
    StoreLe<uint32_t>(aucImei, GU_REQ_RECEIVER_PID, GU_PID_IMEI);
    StoreLe<uint32_t>(aucImei, GU_REQ_PARAM_LEN, 8); // four bytes of parameters, all zero
    StoreLe<uint16_t>(aucImei, GU_REQ_MSG_ID, GU_IMEI_QUERY);
    CDebug::Instance()->PrintInfo("gu:send imei query to ue: 0x%04x", GU_IMEI_QUERY);
    SendGUReq2UE(aucImei, ucUeIdx);
    CDebug::Instance()->PrintInfo("gu:send version query to ue: 0x%04x", GU_VERSION_QUERY);
    SendGUReq2UE(GuShortQuery<12>(GU_CATEGORY_QUERY, GU_VERSION_QUERY), ucUeIdx);
}

void CAgent::QueryUeModemNum(unsigned char ucUeIdx)
{
    CDebug::Instance()->PrintInfo("Query is or not insist single double card ueid = %d", ucUeIdx);
    SendGUReq2UE(GuShortQuery<8>(GU_CATEGORY_QUERY, GU_MODEM_NUM_QUERY), ucUeIdx);
}

void CAgent::ModeQuery(DSDA_MODEM_ID_ENUM enModemId, unsigned char ucUeIdx)
{
    CDebug::Instance()->PrintInfo("ModeQuery");
    const unsigned char ucModem = enModemId == MODEM_ID_1 ? GU_CATEGORY_MODEM_1 : 0;
    CDebug::Instance()->PrintInfo("Send Query Mode request enModemId = %d", static_cast<int>(enModemId));
    SendGUReq2UE(GuShortQuery<12>(GU_CATEGORY_QUERY | ucModem, GU_MODE_QUERY), ucUeIdx);
}
