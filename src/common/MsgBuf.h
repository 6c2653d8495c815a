#pragma once

#include "common/Bytes.h"
#include "common/Types.h"
#include "common/xtl.h"

#include <array>

// Kinds of MSG_AGENT, from the UE side to the agent.
constexpr unsigned int AGENT_MSG_DATA = 1;
constexpr unsigned int AGENT_MSG_CONNECT = 2;
constexpr unsigned int AGENT_MSG_DISCONNECT = 3;
// Kinds of MSG_UE, from the agent to the UE side.
constexpr unsigned int UE_MSG_SERIAL = 1;
constexpr unsigned int UE_MSG_TCP = 2;

constexpr int MSG_QUEUE_CAPACITY = 10000; // records of each queue; a full queue blocks its writers
constexpr size_t MSG_RUN_MAX = 64;        // records that a reader or writer of a queue handles at a time

/// A record from the UE side to the agent. Passed by value; the buffer passes to the reader.
struct MSG_AGENT
{
    unsigned int ulMsgType;  // AGENT_MSG_...
    unsigned int ulUeIdx;    // UE slot
    enChannelType enChannel; // logical channel
    unsigned int ulDataLen;  // bytes in pucData
    unsigned char* pucData;  // heap (array new) or null, owned by whoever holds the record
};

/// A record from the agent to the UE side, of the same shape.
struct MSG_UE
{
    unsigned int ulMsgType; // UE_MSG_...
    unsigned int ulUeIdx;
    enChannelType enChannel;
    unsigned int ulDataLen;
    unsigned char* pucData;
};

/// What an AGENT_MSG_CONNECT carries: which port came. Texts are cut to their fields.
/// For the network UE the port is 0, the name empty and the group id the IP address.
struct UE_ATTACH_INFO_STRU
{
    static constexpr size_t TEXT_SIZE = 128; // of each text on the wire, NUL included
    static constexpr size_t SIZE = 4 + 2 * TEXT_SIZE;

    uint32_t ulPortNum = 0;
    std::string szSerialName;
    std::string szGroupId;
};
/// Order in the block, for CByteReader and CByteWriter alike.
template <class Io, class Info> void AttachInfo(Io& io, Info& stInfo)
{
    io.Field(stInfo.ulPortNum);                                   //   0
    io.Text(stInfo.szSerialName, UE_ATTACH_INFO_STRU::TEXT_SIZE); //   4
    io.Text(stInfo.szGroupId, UE_ATTACH_INFO_STRU::TEXT_SIZE);    // 132
}

using CUeMsgQueue = xtl::BufQueue<MSG_UE, xtl::BufQueue_allocate<MSG_UE>>;
using CAgentMsgQueue = xtl::BufQueue<MSG_AGENT, xtl::BufQueue_allocate<MSG_AGENT>>;

/// The two queues between the agent and the UE side.
class CMsgBuf
{
public:
    /// Creates the object on first use. Safe against several first callers.
    static CMsgBuf* Instance();
    /// Stops the queues and lets go of them. A thread that is still inside one of them leaves it safely.
    static void Destory();

    CMsgBuf();
    ~CMsgBuf();
    CMsgBuf(const CMsgBuf&) = delete;
    CMsgBuf& operator=(const CMsgBuf&) = delete;

    void Start();
    void Stop();

    CUeMsgQueue& UeQueue() { return m_UeQueue; }
    CAgentMsgQueue& AgentQueue() { return m_AgentQueue; }

private:
    /// Stops the queues and frees what is left in them.
    void Clear();

    CUeMsgQueue m_UeQueue;
    CAgentMsgQueue m_AgentQueue;
};

/// Data records on their way to the agent, so that those of one pass of reading are posted together. Its end posts
/// the rest.
class CAgentMsgRun
{
public:
    CAgentMsgRun() = default;
    ~CAgentMsgRun() { Post(); }
    CAgentMsgRun(const CAgentMsgRun&) = delete;
    CAgentMsgRun& operator=(const CAgentMsgRun&) = delete;

    /// Takes the data, as PostAgentMsg does.
    void Add(unsigned int ulUeIdx, enChannelType enChannel, OwnedBytes pData, unsigned int ulLen);

private:
    void Post();

    std::array<MSG_AGENT, MSG_RUN_MAX> m_astMsg;
    size_t m_szCount = 0; // records held
};

/// Posts a record with its data; blocks while the queue is full. Takes the data in every case: the reader frees
/// it, or this function does when the queue is stopped. False then.
bool PostAgentMsg(unsigned int ulMsgType, unsigned int ulUeIdx, enChannelType enChannel, OwnedBytes pData,
                  unsigned int ulLen);
bool PostUeMsg(unsigned int ulMsgType, unsigned int ulUeIdx, enChannelType enChannel, OwnedBytes pData,
               unsigned int ulLen);

/// Hands one packet to the thread that writes to the UEs. Blocks while the queue is full. Null does nothing.
void SendData2UE(OwnedBytes pData, size_t szLen, UE_INDEX ulUeIdx, enChannelType enChannel);
