#pragma once

#include "common/LineLoad.h"
#include "common/Packet.h"
#include "common/Types.h"
#include "common/WakeUp.h"
#include "common/xtl.h"

#include <array>
#include <atomic>
#include <chrono>
#include <span>

// Kinds of MSG_AGENT, from the UE side to the agent.
constexpr unsigned int AGENT_MSG_WAKE = 0; // the reader is to look at its times anew
constexpr unsigned int AGENT_MSG_DATA = 1;
constexpr unsigned int AGENT_MSG_CONNECT = 2;
constexpr unsigned int AGENT_MSG_DISCONNECT = 3;
// Kinds of MSG_UE, from the agent to the UE side.
constexpr unsigned int UE_MSG_SERIAL = 1;
constexpr unsigned int UE_MSG_TCP = 2;

constexpr int MSG_QUEUE_CAPACITY = 10000; // records of each queue; a full queue blocks its writers
constexpr size_t MSG_RUN_MAX = 256;       // records that a reader or writer of a queue handles at a time
constexpr size_t READ_THREADS = 4;        // they share the UEs

/// A record from the UE side to the agent.
struct MSG_AGENT
{
    unsigned int ulMsgType = 0;                 // AGENT_MSG_...
    UE_INDEX ulUeIdx = 0;                       // UE slot
    enChannelType enChannel = CHANNEL_LTE_DIAG; // logical channel
    CPacket packet;                             // owned; none in a disconnect
    CLineCharge charge{};                       // data only
};

/// A record from the agent to the UE side.
struct MSG_UE
{
    unsigned int ulMsgType = 0; // UE_MSG_...
    UE_INDEX ulUeIdx = 0;
    enChannelType enChannel = CHANNEL_LTE_DIAG;
    CPacket packet;
    std::chrono::milliseconds pause{0}; // nothing more is written to the line for so long behind the packet
    CLineCharge charge{};
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

/// Sees what goes to the UEs.
class IToUeObserver
{
public:
    virtual ~IToUeObserver() = default;

    /// A packet that begins to be written to its line, before it is framed. On the write thread, which is not to wait.
    virtual void OnPacketToUe(UE_INDEX ulUeIdx, enChannelType enChannel, ByteView packet) = 0;
};

/// Which of the threads that read from the UEs has this one.
constexpr size_t ReaderOf(UE_INDEX ulUeIdx)
{
    return ulUeIdx % READ_THREADS;
}

/// Whoever handles the records for the agent.
class IAgentMsgTaker
{
public:
    virtual ~IAgentMsgTaker() = default;

    /// Handles data records of one UE on the calling thread when that can be done at once; false, and they are as they
    /// were, when another thread is at that UE. No record of it is on the queue. From any thread.
    virtual bool TryTake(std::span<MSG_AGENT> msgs) = 0;
};

/// The two queues between the agent and the UE side.
class CMsgBuf
{
public:
    /// Creates the object on first use. Safe against several first callers.
    static CMsgBuf* Instance();
    /// Stops the queues, frees what is left in them and lets go of them. A thread that is still inside one of them
    /// leaves it safely.
    static void Destory();

    CMsgBuf();
    CMsgBuf(const CMsgBuf&) = delete;
    CMsgBuf& operator=(const CMsgBuf&) = delete;

    void Start();
    void Stop();

    CUeMsgQueue& UeQueue() { return m_UeQueue; }
    CAgentMsgQueue& AgentQueue() { return m_AgentQueue; }

    /// From now on data records that find no other of their UE on its way are handed over on the thread that posts
    /// them.
    void SetAgentTaker(IAgentMsgTaker* pTaker) { m_pAgentTaker = pTaker; }
    /// Hands the records, which are of one UE, over, or puts them on the queue: the count of those that were taken.
    size_t PostToAgent(std::span<MSG_AGENT> msgs, bool bData);
    /// Records of the UE that were on the queue are handled.
    void OnAgentMsgsDone(UE_INDEX ulUeIdx, size_t szCount) { WithAgent(ulUeIdx) -= static_cast<int64_t>(szCount); }

    /// Null for none, which is so from the start.
    void SetToUeObserver(IToUeObserver* pObserver) { m_pToUeObserver = pObserver; }
    IToUeObserver* ToUeObserver() const { return m_pToUeObserver; }

    /// Packets of the line that carries the channel, on their way to the agent. Null for what is no channel of a UE.
    CLineLoad* LoadFromUe(UE_INDEX ulUeIdx, enChannelType enChannel);
    /// Packets on their way to that line.
    CLineLoad* LoadToUe(UE_INDEX ulUeIdx, enChannelType enChannel);
    /// Of the thread that reads from the UE: a line has room again, has come or gone.
    CWakeUp& ReadWake(UE_INDEX ulUeIdx) { return m_aReadWake[ReaderOf(ulUeIdx)]; }
    /// Of the thread that writes to the UEs: a record is on the queue.
    CWakeUp& WriteWake() { return m_WriteWake; }
    /// Of the client loop: a line takes requests again.
    CWakeUp& RoomWake() { return m_RoomWake; }

private:
    using CLineLoads = std::array<std::array<CLineLoad, SERIALNUM>, MAXUENUM>; // by UE and port

    void Charge(std::span<MSG_AGENT> msgs);
    static CLineLoad* LoadOf(CLineLoads& loads, UE_INDEX ulUeIdx, enChannelType enChannel);
    std::atomic<int64_t>& WithAgent(UE_INDEX ulUeIdx) { return m_allWithAgent[ulUeIdx % MAXUENUM]; }

    std::atomic<IAgentMsgTaker*> m_pAgentTaker = nullptr;
    std::atomic<IToUeObserver*> m_pToUeObserver = nullptr;
    std::array<std::atomic<int64_t>, MAXUENUM> m_allWithAgent{}; // records on the queue or with its reader, by UE
    std::array<CWakeUp, READ_THREADS> m_aReadWake;
    CWakeUp m_WriteWake;
    CWakeUp m_RoomWake;
    CLineLoads m_FromUe; // before the queues, whose records hold charges
    CLineLoads m_ToUe;
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

    /// A record of another UE posts those before.
    void Add(UE_INDEX ulUeIdx, enChannelType enChannel, CPacket packet);

private:
    void Post();

    std::array<MSG_AGENT, MSG_RUN_MAX> m_astMsg;
    size_t m_szCount = 0; // records held
};

/// Posts a record; blocks while the queue is full. False when the queue is stopped: the packet is gone then.
bool PostAgentMsg(unsigned int ulMsgType, UE_INDEX ulUeIdx, enChannelType enChannel, CPacket packet);
bool PostUeMsg(unsigned int ulMsgType, UE_INDEX ulUeIdx, enChannelType enChannel, CPacket packet,
               std::chrono::milliseconds pause = {});

/// Hands one packet to the thread that writes to the UEs, which lets the line rest for the pause behind it. Waits for
/// no line: when too much waits for this one already, the packet is lost, with a line in the log for the first. Clients
/// are held back before it comes to that (CLineLoad::HasRoom). A packet without a buffer does nothing.
void SendData2UE(CPacket packet, UE_INDEX ulUeIdx, enChannelType enChannel, std::chrono::milliseconds pause = {});
