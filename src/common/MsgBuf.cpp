#include "common/MsgBuf.h"

#include "common/Debug.h"
#include "common/SingletonSlot.h"

namespace
{
/// Frees the records that nobody will take. The queue is stopped.
template <class Msg, class Queue> void FreeRest(Queue& queue)
{
    for (Msg stMsg; queue.get(stMsg);) {
    }
}
} // namespace

CMsgBuf::CMsgBuf() : m_UeQueue(MSG_QUEUE_CAPACITY), m_AgentQueue(MSG_QUEUE_CAPACITY)
{
    for (size_t i = 0; i < MAXUENUM; ++i)
        for (size_t j = 0; j < SERIALNUM; ++j) {
            m_FromUe[i][j].SetWakeUp(ReadWake(static_cast<UE_INDEX>(i)));
            m_ToUe[i][j].SetWakeUp(m_RoomWake);
        }
}

CLineLoad* CMsgBuf::LoadOf(CLineLoads& loads, UE_INDEX ulUeIdx, enChannelType enChannel)
{
    const CHANNEL_ROW* const pRow = RowOf(enChannel);
    return ulUeIdx < MAXUENUM && pRow ? &loads[ulUeIdx][static_cast<size_t>(pRow->enPort)] : nullptr;
}

CLineLoad* CMsgBuf::LoadFromUe(UE_INDEX ulUeIdx, enChannelType enChannel)
{
    return LoadOf(m_FromUe, ulUeIdx, enChannel);
}

CLineLoad* CMsgBuf::LoadToUe(UE_INDEX ulUeIdx, enChannelType enChannel)
{
    return LoadOf(m_ToUe, ulUeIdx, enChannel);
}

CMsgBuf* CMsgBuf::Instance()
{
    return CSingletonSlot<CMsgBuf>::Slot().Get([](bool) { return std::make_unique<CMsgBuf>(); });
}

void CMsgBuf::Destory()
{
    CMsgBuf* const pMsgBuf = CSingletonSlot<CMsgBuf>::Slot().Retire();
    if (!pMsgBuf)
        return;
    pMsgBuf->Stop();
    FreeRest<MSG_UE>(pMsgBuf->m_UeQueue);
    FreeRest<MSG_AGENT>(pMsgBuf->m_AgentQueue);
}

void CMsgBuf::Start()
{
    m_UeQueue.start();
    m_AgentQueue.start();
}

void CMsgBuf::Stop()
{
    m_UeQueue.stop();
    m_AgentQueue.stop();
}

/// Those that go through the queue count as on their way.
void CMsgBuf::Charge(std::span<MSG_AGENT> msgs)
{
    for (MSG_AGENT& stMsg : msgs)
        if (CLineLoad* const pLoad = LoadFromUe(stMsg.ulUeIdx, stMsg.enChannel))
            stMsg.charge = CLineCharge(*pLoad, stMsg.packet.size());
}

size_t CMsgBuf::PostToAgent(std::span<MSG_AGENT> msgs, bool bData)
{
    IAgentMsgTaker* const pTaker = m_pAgentTaker;
    const UE_INDEX ulUeIdx = msgs.front().ulUeIdx;
    if (bData && pTaker != nullptr && WithAgent(ulUeIdx) == 0 && pTaker->TryTake(msgs))
        return msgs.size();
    if (bData)
        Charge(msgs);
    WithAgent(ulUeIdx) += static_cast<int64_t>(msgs.size()); // before: from here on nothing may overtake them
    const size_t szPut = m_AgentQueue.put(msgs);
    OnAgentMsgsDone(ulUeIdx, msgs.size() - szPut);
    return szPut;
}

void CAgentMsgRun::Add(UE_INDEX ulUeIdx, enChannelType enChannel, CPacket packet)
{
    if (m_szCount > 0 && m_astMsg.front().ulUeIdx != ulUeIdx)
        Post();
    m_astMsg[m_szCount++] = {AGENT_MSG_DATA, ulUeIdx, enChannel, std::move(packet), {}};
    if (m_szCount == m_astMsg.size())
        Post();
}

void CAgentMsgRun::Post()
{
    if (m_szCount == 0)
        return;
    (void)CMsgBuf::Instance()->PostToAgent(std::span(m_astMsg).first(m_szCount), true);
    m_szCount = 0;
}

bool PostAgentMsg(unsigned int ulMsgType, UE_INDEX ulUeIdx, enChannelType enChannel, CPacket packet)
{
    MSG_AGENT stMsg{ulMsgType, ulUeIdx, enChannel, std::move(packet), {}};
    return CMsgBuf::Instance()->PostToAgent({&stMsg, 1}, false) == 1;
}

bool PostUeMsg(unsigned int ulMsgType, UE_INDEX ulUeIdx, enChannelType enChannel, CPacket packet,
               std::chrono::milliseconds pause)
{
    CMsgBuf* const pMsgBuf = CMsgBuf::Instance();
    MSG_UE stMsg{ulMsgType, ulUeIdx, enChannel, std::move(packet), pause, {}};
    if (CLineLoad* const pLoad = pMsgBuf->LoadToUe(ulUeIdx, enChannel))
        stMsg.charge = CLineCharge(*pLoad, stMsg.packet.size(), pause.count() > 0);
    const bool bPut = pMsgBuf->UeQueue().put(std::move(stMsg));
    pMsgBuf->WriteWake().Wake();
    return bPut;
}

void SendData2UE(CPacket packet, UE_INDEX ulUeIdx, enChannelType enChannel, std::chrono::milliseconds pause)
{
    if (!packet)
        return;
    CLineLoad* const pLoad = CMsgBuf::Instance()->LoadToUe(ulUeIdx, enChannel);
    if (pLoad == nullptr || !pLoad->IsOverLimit())
        (void)PostUeMsg(ulUeIdx == TCP_UE_INDEX ? UE_MSG_TCP : UE_MSG_SERIAL, ulUeIdx, enChannel, std::move(packet),
                        pause);
    else if (pLoad->IsFirstLoss())
        CDebug::Instance()->PrintWarn("UE %u %s: too many packets wait to be written, what comes now is lost", ulUeIdx,
                                      RowOf(enChannel)->pszLabel);
}
