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

template <class Msg, class Queue> bool Post(Queue& queue, const Msg& stMsg, OwnedBytes pData)
{
    if (!queue.put(stMsg))
        return false;
    (void)pData.release(); // the reader owns it from here
    return true;
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

bool PostAgentMsg(unsigned int ulMsgType, unsigned int ulUeIdx, enChannelType enChannel, OwnedBytes pData,
                  unsigned int ulLen)
{
    const MSG_AGENT stMsg{ulMsgType, ulUeIdx, enChannel, ulLen, pData.get()};
    return Post(CMsgBuf::Instance()->AgentQueue(), stMsg, std::move(pData));
}

bool PostUeMsg(unsigned int ulMsgType, unsigned int ulUeIdx, enChannelType enChannel, OwnedBytes pData,
               unsigned int ulLen)
{
    const MSG_UE stMsg{ulMsgType, ulUeIdx, enChannel, ulLen, pData.get()};
    return Post(CMsgBuf::Instance()->UeQueue(), stMsg, std::move(pData));
}
