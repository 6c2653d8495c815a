#include "agent/UeEvents.h"

#include "agent/AgentTap.h"
#include "agent/Client.h"
#include "agent/ClientServer.h"
#include "common/Debug.h"
#include "common/LteDiagInitCmd.h"
#include "common/NoMemory.h"
#include "common/Turn.h"
#include "data/DpLteDiag.h"
#include "data/gu/OperationGUData.h"
#include "ue/UEManager.h"

#include <algorithm>
#include <chrono>
#include <unistd.h>

// What the UE side reports: ports that come and go, and packets. Two handshakes start here when a channel appears: host
// connect on the LTE diag channel, link set-up on the GU command channel. The agent message thread serves all UEs, so
// it waits for none of them: what a UE is to be sent later is due then, beside what the others report.

namespace
{
/// Handles packet by packet; one that memory is too short for is dropped alone.
template <class Handle> void ForEachPacket(std::span<MSG_AGENT> run, Handle handle)
{
    for (MSG_AGENT& stMsg : run)
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

/// Handles run by run, and lets go of each record.
template <class Handle> void ForEachRun(std::span<MSG_AGENT> msgs, Handle handle)
{
    while (!msgs.empty()) {
        const auto run = msgs.first(RunLength(msgs));
        handle(run);
        for (MSG_AGENT& stMsg : run)
            stMsg = {}; // its memory and its charge: now, and not when the next record comes into its place
        msgs = msgs.subspan(run.size());
    }
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
    if (stMsg.packet) {
        CByteReader reader(stMsg.packet.Bytes());
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

CUeEvents::CUeEvents(CBindings& bindings, CChannelTable& table, CStatusReporter& status, CClientServer& clients,
                     CUEManager& ueManager, const CGuOperations& operations)
    : m_bindings(bindings),
      m_table(table),
      m_status(status),
      m_clients(clients),
      m_ueManager(ueManager),
      m_operations(operations)
{
}

void CUeEvents::SetConfirmed(UE_INDEX ulUeIdx, bool bConfirmed)
{
    const xtl::MutexGuard guard(m_bindings.Mutex());
    m_table.SetConfirmed(ulUeIdx, bConfirmed);
}

void CUeEvents::ReadAgentMsgFun()
{
    std::array<MSG_AGENT, MSG_RUN_MAX> astMsg;
    CMsgBuf* const pMsgBuf = CMsgBuf::Instance();
    pMsgBuf->SetAgentTaker(this);
    while (m_bRun) {
        const size_t szCount = TakeMsgs(astMsg);
        if (szCount == 0 && !pMsgBuf->AgentQueue().running()) {
            sleep(1);
            continue;
        }
        {
            const CTurn turn(LOOP::AGENT_MESSAGES);
            RunDue();
            ForEachRun(std::span(astMsg).first(szCount), [&](std::span<MSG_AGENT> run) {
                ProcessAlone(run);
                pMsgBuf->OnAgentMsgsDone(run.front().ulUeIdx, run.size());
            });
            RunDue(); // what the records have started begins at once
        }
        m_watchdog.Ping(std::chrono::steady_clock::now());
    }
    pMsgBuf->SetAgentTaker(nullptr);
}

/// Waits for records until something is due.
size_t CUeEvents::TakeMsgs(std::span<MSG_AGENT> msgs)
{
    xtl::MutexGuard guard(m_DueLock);
    const auto end = m_WaitEnd = std::min(m_due.NextTime(), m_watchdog.NextPing());
    guard.Unlock();
    return CMsgBuf::Instance()->AgentQueue().get(msgs, end);
}

bool CUeEvents::TryTake(std::span<MSG_AGENT> msgs)
{
    UE_LOCK& stLock = LockOf(msgs.front().ulUeIdx);
    if (stLock.bWanted || !stLock.lock.TryLock())
        return false;
    {
        const CTurn turn(LOOP::AGENT_MESSAGES);
        ForEachRun(msgs, [this](std::span<MSG_AGENT> run) { ProcessRun(run); });
    }
    stLock.lock.Unlock();
    if (IsDueSooner())
        PostAgentMsg(AGENT_MSG_WAKE, 0, CHANNEL_LTE_DIAG, {});
    return true;
}

/// Whether the thread waits for longer than it should by now.
bool CUeEvents::IsDueSooner()
{
    const xtl::MutexGuard guard(m_DueLock);
    return m_due.NextTime() < m_WaitEnd;
}

void CUeEvents::RunDue()
{
    // The time is taken anew for each action, so that none leaves too close behind the one before of its UE.
    while (RunDueAction(std::chrono::steady_clock::now())) {
    }
}

bool CUeEvents::RunDueAction(std::chrono::steady_clock::time_point now)
{
    xtl::MutexGuard guard(m_DueLock);
    const auto stAction = m_due.Take(now);
    guard.Unlock();
    if (!stAction)
        return false;
    (void)DropOnNoMemory("a request of the agent", [&] {
        switch (stAction->enKind) {
        case DUE_ACTION::HOST_CONNECT:
            SendHostConnect(stAction->ulUeIdx);
            break;
        case DUE_ACTION::SWITCH:
            SendSwitch(stAction->ulUeIdx, LTE_DIAG_INIT_CMD[stAction->szSwitch]);
            break;
        case DUE_ACTION::CONNECTED:
            ReportConnected(stAction->ulUeIdx);
            break;
        }
    });
    return true;
}

void CUeEvents::ProcessAgentMsgs(std::span<MSG_AGENT> msgs)
{
    ForEachRun(msgs, [this](std::span<MSG_AGENT> run) { ProcessAlone(run); });
}

/// Waits for whoever is at work on the UE.
void CUeEvents::ProcessAlone(std::span<MSG_AGENT> run)
{
    UE_LOCK& stLock = LockOf(run.front().ulUeIdx);
    stLock.bWanted = true;
    const xtl::MutexGuard guard(stLock.lock);
    stLock.bWanted = false;
    ProcessRun(run);
}

/// One record, or packets of one channel.
void CUeEvents::ProcessRun(std::span<MSG_AGENT> run)
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
        TapFromUe(m_table, run);
        OnUeDataArrive(run);
        break;
    case AGENT_MSG_WAKE:
        break;
    default:
        CDebug::Instance()->PrintWarn("Invalid data from Agent Msg Deque");
        break;
    }
}

void CUeEvents::UpdateSerialInfo(const MSG_AGENT& stMsg)
{
    if (!CChannelTable::IsRow(stMsg.ulUeIdx, stMsg.enChannel))
        return;
    const char* const pszLabel = strChannelType[static_cast<size_t>(stMsg.enChannel)];
    const xtl::MutexGuard guard(m_bindings.Mutex());
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

void CUeEvents::AttachRow(UE_INDEX ulUeIdx, enChannelType enChannel, const UE_ATTACH_INFO_STRU& stInfo)
{
    m_table.Attach(ulUeIdx, enChannel, static_cast<int>(stInfo.ulPortNum), stInfo.szSerialName, stInfo.szGroupId);
    m_status.SendSerialConnectInfo({stInfo.szGroupId, stInfo.ulPortNum, static_cast<uint32_t>(enChannel)});
}

void CUeEvents::ProcessDetach(UE_INDEX ulUeIdx, enChannelType enChannel)
{
    const SERIALCHANNELINFO stRow = m_table.Row(ulUeIdx, enChannel);
    const auto ulPort = static_cast<uint32_t>(stRow.nPort);
    m_status.SendSerialDisconnectInfo({ulPort});
    if (stRow.pClient) {
        m_status.SendClientDisconnectInfo({ulPort, static_cast<uint32_t>(stRow.pClient->GetClientType())});
        m_table.SetClient(ulUeIdx, enChannel, nullptr);
        m_clients.RemoveLostClient(stRow.pClient);
        CDebug::Instance()->PrintInfo("disconnect client because device loss");
    }
    m_table.Free(ulUeIdx, enChannel);
}

void CUeEvents::ConnectUE(const MSG_AGENT& stMsg)
{
    if (stMsg.ulUeIdx >= MAXUENUM)
        return;
    if (stMsg.enChannel == CHANNEL_LTE_DIAG) {
        const xtl::MutexGuard guard(m_DueLock);
        m_due.StartHostConnect(stMsg.ulUeIdx, std::chrono::steady_clock::now());
    } else if (stMsg.enChannel == CHANNEL_GU_CMD)
        CGuLink::SendLinkRequest(stMsg.ulUeIdx);
}

void CUeEvents::SendHostConnect(UE_INDEX ulUeIdx)
{
    if (CPacket request = BuildLteDiagReq(UE_CMD_HOST_CONNECT, {})) {
        CDebug::Instance()->PrintInfo("Send HOST_CONNECT cmd to UE");
        SendData2UE(std::move(request), ulUeIdx, CHANNEL_LTE_DIAG);
    }
    if (CPacket request = BuildLteDiagReq(UE_CMD_TIME_STAMP, {})) {
        CDebug::Instance()->PrintInfo("Send DT_CMD_PACKET_SERIAL_TIMESTAMPID to UE");
        SendData2UE(std::move(request), ulUeIdx, CHANNEL_LTE_DIAG);
    }
}

/// Whichever channel went, what the UE said of itself on its GU channel is forgotten and the GU link counts as down.
void CUeEvents::DisconnectUE(const MSG_AGENT& stMsg)
{
    if (stMsg.ulUeIdx >= MAXUENUM)
        return;
    CUE* const pUE = m_ueManager.GetUE(stMsg.ulUeIdx);
    if (stMsg.enChannel == CHANNEL_LTE_DIAG && pUE)
        pUE->ClearUEConnectionAck();
    if (stMsg.enChannel == CHANNEL_LTE_DIAG || stMsg.ulUeIdx == TCP_UE_INDEX) { // which goes as a whole
        const xtl::MutexGuard guard(m_DueLock);
        m_due.Cancel(stMsg.ulUeIdx);
    }
    m_operations[stMsg.ulUeIdx]->ClearData(ChannelsOf(stMsg));
}

void CUeEvents::OnUeDataArrive(std::span<MSG_AGENT> run)
{
    const MSG_AGENT& stFirst = run.front();
    if (!CChannelTable::IsRow(stFirst.ulUeIdx, stFirst.enChannel))
        return;
    if (stFirst.enChannel == CHANNEL_LTE_DIAG) {
        ForEachPacket(run, [&](MSG_AGENT& stMsg) { OnLteDiagArrive(stMsg); });
    } else if (stFirst.enChannel == CHANNEL_GU_CMD) {
        ForEachPacket(run, [&](MSG_AGENT& stMsg) {
            m_operations[stMsg.ulUeIdx]->OnUePacket(&m_bindings, stMsg.packet.Bytes(), stMsg.ulUeIdx);
        });
    } else if (stFirst.enChannel == CHANNEL_LTE_DATA) {
        DeliverLteData(run);
    } else {
        Deliver2Client(run);
    }
}

void CUeEvents::OnLteDiagArrive(MSG_AGENT& stMsg)
{
    PACKET_CATEGORY_ENUM enCategory = PACKET_CATEGORY_INVALID;
    (void)CDataProcessorLteDiag::GetPacketType(stMsg.packet.Bytes(), enCategory); // the category says all
    if (enCategory == PACKET_CATEGORY_MGR_ACK)
        OnLteDiagMgrArrive(stMsg.ulUeIdx, stMsg.packet.Bytes());
    else
        Deliver2Client({&stMsg, 1});
}

/// Packets of one channel. What they make for the client is sent together: they are all there, so none of it waits
/// for a packet that is still to come.
void CUeEvents::Deliver2Client(std::span<MSG_AGENT> run)
{
    const xtl::MutexGuard guard(m_bindings.Mutex());
    CClient* const pClient = m_table.GetBindedClient(run.front().ulUeIdx, run.front().enChannel);
    if (!pClient)
        return;
    const CClient::CSendTogether together(*pClient);
    ForEachPacket(run, [&](MSG_AGENT& stMsg) { pClient->OnSerialData(stMsg.packet.Bytes()); });
}

/// The same without the lock that all clients share, so that the streams of several UEs don't wait for each other. The
/// client's own keeps its requests apart from what comes here: nothing overtakes the answer to its bind, or comes
/// behind that to its unbind.
void CUeEvents::DeliverLteData(std::span<MSG_AGENT> run)
{
    const UE_INDEX ulUeIdx = run.front().ulUeIdx;
    const auto pClient = m_table.GetGUDataClient(ulUeIdx, CHANNEL_LTE_DATA);
    if (!pClient)
        return;
    const xtl::MutexGuard guard(pClient->ProcessorMutex());
    if (m_table.GetBindedClient(ulUeIdx, CHANNEL_LTE_DATA) != pClient.get())
        return; // not any more
    const CClient::CSendTogether together(*pClient);
    ForEachPacket(run, [&](MSG_AGENT& stMsg) { pClient->OnSerialData(stMsg.packet.Bytes()); });
}

void CUeEvents::OnLteDiagMgrArrive(UE_INDEX ulUeIdx, ByteView packet)
{
    ADE_ACK_PACKET_STRU stAck;
    if (!CDataProcessorLteDiag::GetAdeAck(packet, stAck))
        return;
    if (stAck.ulCmdId == UE_CMD_HOST_CONNECT || stAck.ulCmdId == UE_CMD_HOST_CONNECT_CNF)
        OnHostConnectCnf(ulUeIdx, stAck);
    else if (stAck.ulCmdId == UE_CMD_TIME_STAMP)
        m_bindings.StoreTimeStamp(ulUeIdx, stAck);
    else
        CDebug::Instance()->PrintInfo("Received Manager Packet(%x) from lte diag channel", stAck.ulCmdId);
}

void CUeEvents::OnHostConnectCnf(UE_INDEX ulUeIdx, const ADE_ACK_PACKET_STRU& stAck)
{
    CDebug::Instance()->PrintInfo("Received host connect cnf msg(%x) from lte diag channel", stAck.ulCmdId);
    CUE* const pUE = m_ueManager.GetUE(ulUeIdx);
    if (!pUE)
        return;
    if (stAck.pData.size() < ADE_UE_CONNECTION_ACK_STRU::FULL_PAYLOAD) {
        SetConfirmed(ulUeIdx, false);
        return;
    }
    pUE->SetUEConnectionAck(ConnectionAckOf(stAck.pData));
    SetConfirmed(ulUeIdx, true);
    TapUe(m_bindings, ulUeIdx);
    SendDspModuleSwitch(ulUeIdx);
}

void CUeEvents::SendDspModuleSwitch(UE_INDEX ulUeIdx)
{
    const xtl::MutexGuard guard(m_DueLock);
    m_due.StartSwitches(ulUeIdx, std::chrono::steady_clock::now());
}

void CUeEvents::SendSwitch(UE_INDEX ulUeIdx, const LTE_DIAG_INIT_CMD_STRU& stRow)
{
    SendData2UE(BuildLteDiagReq(stRow.ulCmdId, stRow.Data()), ulUeIdx, CHANNEL_LTE_DIAG);
}

void CUeEvents::ReportConnected(UE_INDEX ulUeIdx)
{
    UEConnect stInfo = m_bindings.UeInfo(ulUeIdx);
    stInfo.szGroupId = m_table.Row(ulUeIdx, CHANNEL_LTE_DIAG).strGroupId;
    m_status.SendUEConnectInfo(stInfo);
}

CPacket CUeEvents::BuildLteDiagReq(unsigned int ulCmdId, ByteView data)
{
    DIAG_PACKET_REQ_VIEW stReq;
    stReq.stHead.ulCmdId = ulCmdId;
    stReq.stHead.usLen = static_cast<uint16_t>(data.size());
    stReq.data = data;
    CPacket packet = CDataProcessorLteDiag::BuildUeBuf(stReq, 0);
    if (!packet)
        CDebug::Instance()->PrintError("Agent BuildLteDiagReq Error!");
    return packet;
}
