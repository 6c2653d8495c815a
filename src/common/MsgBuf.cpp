#include "common/MsgBuf.h"

#include "common/SingletonSlot.h"

namespace
{

/// Frees the data of records that nobody will take. The queue is stopped.
template <class Msg, class Queue> void FreeRest(Queue& queue)
{
    for (Msg stMsg{}; queue.get(stMsg);)
        delete[] stMsg.pucData;
}

/// Puts the records on the queue; the data of those that it refuses is freed.
template <class Queue, class Msg> bool Post(Queue& queue, std::span<const Msg> msgs)
{
    const size_t szPut = queue.put(msgs);
    for (const Msg& stMsg : msgs.subspan(szPut))
        delete[] stMsg.pucData;
    return szPut == msgs.size();
}

template <class Queue, class Msg> bool Post(Queue& queue, const Msg& stMsg)
{
    return Post(queue, std::span<const Msg>(&stMsg, 1));
}

} // namespace

CMsgBuf::CMsgBuf() : m_UeQueue(MSG_QUEUE_CAPACITY), m_AgentQueue(MSG_QUEUE_CAPACITY) {}

CMsgBuf::~CMsgBuf()
{
    Clear();
}

CMsgBuf* CMsgBuf::Instance()
{
    return CSingletonSlot<CMsgBuf>::Slot().Get([](bool) { return std::make_unique<CMsgBuf>(); });
}

void CMsgBuf::Destory()
{
    if (CMsgBuf* pMsgBuf = CSingletonSlot<CMsgBuf>::Slot().Retire())
        pMsgBuf->Clear();
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

void CMsgBuf::Clear()
{
    Stop();
    FreeRest<MSG_UE>(m_UeQueue);
    FreeRest<MSG_AGENT>(m_AgentQueue);
}

void CAgentMsgRun::Add(unsigned int ulUeIdx, enChannelType enChannel, OwnedBytes pData, unsigned int ulLen)
{
    m_astMsg[m_szCount++] = {AGENT_MSG_DATA, ulUeIdx, enChannel, ulLen, pData.release()};
    if (m_szCount == m_astMsg.size())
        Post();
}

void CAgentMsgRun::Post()
{
    if (m_szCount == 0)
        return;
    (void)::Post(CMsgBuf::Instance()->AgentQueue(), std::span<const MSG_AGENT>(m_astMsg).first(m_szCount));
    m_szCount = 0;
}

bool PostAgentMsg(unsigned int ulMsgType, unsigned int ulUeIdx, enChannelType enChannel, OwnedBytes pData,
                  unsigned int ulLen)
{
    return Post(CMsgBuf::Instance()->AgentQueue(), MSG_AGENT{ulMsgType, ulUeIdx, enChannel, ulLen, pData.release()});
}

bool PostUeMsg(unsigned int ulMsgType, unsigned int ulUeIdx, enChannelType enChannel, OwnedBytes pData,
               unsigned int ulLen)
{
    return Post(CMsgBuf::Instance()->UeQueue(), MSG_UE{ulMsgType, ulUeIdx, enChannel, ulLen, pData.release()});
}

void SendData2UE(OwnedBytes pData, size_t szLen, UE_INDEX ulUeIdx, enChannelType enChannel)
{
    if (pData)
        (void)PostUeMsg(ulUeIdx == TCP_UE_INDEX ? UE_MSG_TCP : UE_MSG_SERIAL, ulUeIdx, enChannel, std::move(pData),
                        static_cast<unsigned int>(szLen));
}
