#pragma once

#include "common/MsgBuf.h"
#include "support/TestBytes.h"

#include <vector>

/// A queue record with its data taken out.
struct QueuedMsg
{
    unsigned int ulMsgType;
    unsigned int ulUeIdx;
    enChannelType enChannel;
    Bytes data;
};

/// Takes everything that the queue holds, without waiting.
template <class Msg, class Queue> std::vector<QueuedMsg> Drain(Queue& queue)
{
    constexpr unsigned int END_MARK = 0xE0E0E0E0;
    std::vector<QueuedMsg> taken;
    queue.put(Msg{END_MARK, 0, CHANNEL_LTE_DIAG, {}});
    for (Msg stMsg; queue.get(stMsg) && stMsg.ulMsgType != END_MARK;)
        taken.push_back({stMsg.ulMsgType, stMsg.ulUeIdx, stMsg.enChannel, Bytes(stMsg.packet.Bytes())});
    return taken;
}

inline std::vector<QueuedMsg> DrainAgentQueue()
{
    return Drain<MSG_AGENT>(CMsgBuf::Instance()->AgentQueue());
}
inline std::vector<QueuedMsg> DrainUeQueue()
{
    return Drain<MSG_UE>(CMsgBuf::Instance()->UeQueue());
}
