#pragma once

#include "agent/StatusRecords.h"
#include "common/Bytes.h"
#include "common/MsgBuf.h"
#include "common/Types.h"
#include "common/xtl.h"
#include "data/DiagPacket.h"
#include "ue/UEManager.h"

#include <array>
#include <atomic>
#include <memory>
#include <string>
#include <vector>

class CClient;
class COperationGUData;

/// Modems of a dual card UE.
enum DSDA_MODEM_ID_ENUM : unsigned int
{
    MODEM_ID_0 = 0,
    MODEM_ID_1 = 1,
};

/// The one central object of the process: the table of channels and bindings, the clients, the UE events, the
/// status towards the monitor. docs/architecture.md lists the threads that come here and the lock order.
class CAgent
{
public:
    CAgent();
    ~CAgent();
    CAgent(const CAgent&) = delete;
    CAgent& operator=(const CAgent&) = delete;

    // Run: process frame.
    bool Init(const char* pszConfigFile);
    /// Starts everything and serves clients on the calling thread; true when the client loop has ended.
    bool Run();
    bool Stop();

    // Client sessions.
    int CreateListenSocket(int* pnSockets, int nCount);
    int ListenFun();
    /// Takes an accepted socket as a new client: default binding first, then the client list. Call with
    /// m_BindMutex held, as OnClientDataArrive does.
    CClient* AddClient(int nSocket, enChannelType enType, const sockaddr_in& stAddr);
    /// Sends the bytes on a client's socket. Waits at most 20 ms at a time for the socket to take more; what a
    /// client doesn't take is lost, and the connection stays.
    bool SendData2Client(int nSocket, ByteView data, const char* pszChannel);

    // UE events.
    void ReadAgentMsgFun();
    /// Handles one record; the buffer behind it stays the caller's.
    void ProcessAgentMsg(const MSG_AGENT& stMsg);
    void UpdateSerialInfo(const MSG_AGENT& stMsg);
    /// Marks all five rows of a UE as confirmed or not.
    void SetConfirmed(unsigned int ulUeIdx, bool bConfirmed);
    void OnUeDataArrive(const MSG_AGENT& stMsg);
    /// Hands one packet to the serial write thread. Blocks while the queue is full. Null does nothing.
    void SendData2UE(OwnedBytes pucBuf, unsigned int ulLen, int nUeIdx, enChannelType enChannel);
    bool BuildLteDiagReq(unsigned int ulCmdId, ByteView data, OwnedBytes& pucOut, size_t& szOutLen);
    /// Wraps an OM message and sends it on CHANNEL_GU_CMD.
    void SendGUReq2UE(ByteView msg, unsigned char ucUeIdx);
    void QueryUeModemNum(unsigned char ucUeIdx);
    void ModeQuery(DSDA_MODEM_ID_ENUM enModemId, unsigned char ucUeIdx);
    /// A copy of the UE's stored time stamp ack, head and payload (DIAG_PACKET_ACK_STRU); empty while none came.
    std::vector<unsigned char> GetTimeStampPacket(int nUeIdx);

    // Channel binding. BindUE, BindCOM, UnBindUE and DefaultBindClient: with m_BindMutex held.
    bool BindUE(CClient* pClient, int nUeIdx);
    bool BindCOM(CClient* pClient, unsigned int ulPort);
    bool UnBindUE(CClient* pClient);
    void DefaultBindClient(CClient* pClient);
    /// UE index that the client is bound to, or -1. From any thread, with or without m_BindMutex held.
    int GetBindedUE(CClient* pClient);
    /// The bound client, null without one. Use with m_BindMutex held only.
    CClient* GetBindedClient(int nUeIdx, enChannelType enChannel);
    /// The same for a thread without m_BindMutex: the client can't go away while the pointer is held.
    std::shared_ptr<CClient> GetGUDataClient(unsigned char ucUeIdx, unsigned char ucChannel);
    COperationGUData* GetOperationGUFromClient(CClient* pClient);
    bool IsChannelOK(int nUeIdx, enChannelType enChannel);
    /// The 3520 bytes of DIAG_PACKET_AGENT_CHANNEL_QUERY_ACK_STRU.
    std::vector<unsigned char> GetChannelsInfo();

    CUEManager& UEManager() { return m_UEManager; }
    xtl::Mutex& BindMutex() { return m_BindMutex; }

private:
    xtl::Mutex m_BindMutex;
    CUEManager m_UEManager;
};
