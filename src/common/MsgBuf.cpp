#include "common/MsgBuf.h"

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

CMsgBuf::CMsgBuf() : m_UeQueue(MSG_QUEUE_CAPACITY), m_AgentQueue(MSG_QUEUE_CAPACITY) {}

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

void CAgentMsgRun::Add(UE_INDEX ulUeIdx, enChannelType enChannel, CPacket packet)
{
    m_astMsg[m_szCount++] = {AGENT_MSG_DATA, ulUeIdx, enChannel, std::move(packet)};
    if (m_szCount == m_astMsg.size())
        Post();
}

void CAgentMsgRun::Post()
{
    if (m_szCount == 0)
        return;
    (void)CMsgBuf::Instance()->AgentQueue().put(std::span(m_astMsg).first(m_szCount));
    m_szCount = 0;
}

bool PostAgentMsg(unsigned int ulMsgType, UE_INDEX ulUeIdx, enChannelType enChannel, CPacket packet)
{
    return CMsgBuf::Instance()->AgentQueue().put(MSG_AGENT{ulMsgType, ulUeIdx, enChannel, std::move(packet)});
}

bool PostUeMsg(unsigned int ulMsgType, UE_INDEX ulUeIdx, enChannelType enChannel, CPacket packet)
{
    return CMsgBuf::Instance()->UeQueue().put(MSG_UE{ulMsgType, ulUeIdx, enChannel, std::move(packet)});
}

void SendData2UE(CPacket packet, UE_INDEX ulUeIdx, enChannelType enChannel)
{
    if (packet)
        (void)PostUeMsg(ulUeIdx == TCP_UE_INDEX ? UE_MSG_TCP : UE_MSG_SERIAL, ulUeIdx, enChannel, std::move(packet));
}
