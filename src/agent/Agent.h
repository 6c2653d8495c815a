#pragma once

#include "agent/StatusRecords.h"
#include "common/Bytes.h"
#include "common/MsgBuf.h"
#include "common/Types.h"
#include "common/UniqueFd.h"
#include "common/xtl.h"
#include "data/DiagPacket.h"
#include "ue/UEManager.h"

#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <netinet/in.h>
#include <span>
#include <string>
#include <sys/time.h>
#include <vector>

class CClient;
class CGUDataProcess;
class COperationGUData;
class CPollSet;

/// Modems of a dual card UE.
enum DSDA_MODEM_ID_ENUM : unsigned int
{
    MODEM_ID_0 = 0,
    MODEM_ID_1 = 1,
};

/// The one central object of the process: the table of channels and bindings, the clients, the UE events, the
/// status towards the monitor. docs/architecture.md lists the threads that come here and the lock order:
/// m_BindMutex, m_ClientListMutex, m_RowMutex, m_StatusMutex.
class CAgent
{
public:
    using CListenSockets = std::array<int, CHANNELNUM>; // by enChannelType; -1 is none

    CAgent();
    ~CAgent();
    CAgent(const CAgent&) = delete;
    CAgent& operator=(const CAgent&) = delete;

    // Process frame (Agent.cpp).

    /// Loads the configuration and makes the log, the queues and the status socket. Always true.
    bool Init(const char* pszConfigFile);
    /// Starts the log into the file of this run; Run does it too. A second call does nothing.
    void StartLog();
    /// Starts everything and serves clients on the calling thread; true when the client loop has ended.
    bool Run();
    /// Ends the loops and stops the queues and the log. Nothing is joined but the log writer, so the object must
    /// live on until the process ends. Always true.
    bool Stop();
    /// "_YYYYMMDD_hhmmss" in local time.
    static std::string Timeval2String(const timeval& stTime);

    // Client sessions (AgentClients.cpp).

    /// Opens the listen sockets of nCount channels. Gives the greatest descriptor made, or a negative value when
    /// not even the first could be made; a later one that fails closes all of them and leaves -1 in every place.
    int CreateListenSocket(int* pnSockets, int nCount);
    /// The client loop of the main thread. Returns 0 when m_bRun clears or a wait fails.
    int ListenFun();
    /// Takes an accepted socket as a new client: default binding first, then the client list. Call with
    /// m_BindMutex held, as OnClientDataArrive does. Null when memory is short.
    CClient* AddClient(int nSocket, enChannelType enType, const sockaddr_in& stAddr);
    /// Sends the bytes on a client's socket and cuts what it sent off data. Waits at most 20 ms at a time for the
    /// socket to take more; what a client doesn't take by then is left in data, and the connection stays. bStalled
    /// says that the last send failed: then nothing is waited for unless the socket takes bytes again, so that a
    /// client that has stopped reading costs nobody else's time. True when all was sent and there was something.
    bool SendData2Client(int nSocket, ByteView& data, const char* pszChannel, bool bStalled = false);

    // UE events (AgentEvents.cpp).

    void ReadAgentMsgFun();
    /// Handles the records in order; the buffers behind them stay the caller's. A record that memory is too short for
    /// is dropped alone.
    void ProcessAgentMsgs(std::span<const MSG_AGENT> msgs);
    void UpdateSerialInfo(const MSG_AGENT& stMsg);
    /// Starts the handshake of the channel. On the LTE diag channel this takes two seconds.
    void ConnectUE(const MSG_AGENT& stMsg);
    void DisconnectUE(const MSG_AGENT& stMsg);
    /// Marks all five rows of a UE as confirmed or not.
    void SetConfirmed(unsigned int ulUeIdx, bool bConfirmed);
    /// Packets of one channel.
    void OnUeDataArrive(std::span<const MSG_AGENT> run);
    /// Whether the packet is the UE's answer to the GU link request; the first one sets the UE's link flag.
    bool JudgeJIANLIANCMD(ByteView packet, unsigned char ucUeIdx);
    /// Sends the 24 switches of LTE_DIAG_INIT_CMD, 50 ms apart: 1.2 seconds.
    void SendDspModuleSwitch(int nUeIdx);
    /// Hands one packet to the serial write thread. Blocks while the queue is full. Null does nothing.
    void SendData2UE(OwnedBytes pucBuf, unsigned int ulLen, int nUeIdx, enChannelType enChannel);
    bool BuildLteDiagReq(unsigned int ulCmdId, ByteView data, OwnedBytes& pucOut, size_t& szOutLen);
    /// Wraps an OM message and sends it on CHANNEL_GU_CMD.
    void SendGUReq2UE(ByteView msg, unsigned char ucUeIdx);
    void EnableTransMsg(unsigned char ucUeIdx);
    void SendUeInfoReqToUe(unsigned char ucUeIdx);
    void QueryUeModemNum(unsigned char ucUeIdx);
    void ModeQuery(DSDA_MODEM_ID_ENUM enModemId, unsigned char ucUeIdx);
    /// A copy of the UE's stored time stamp ack, head and payload (DIAG_PACKET_ACK_STRU); empty while none came.
    std::vector<unsigned char> GetTimeStampPacket(int nUeIdx);

    // Channel binding (AgentBinding.cpp). BindUE, BindCOM, UnBindUE and DefaultBindClient: with m_BindMutex held.

    bool BindUE(CClient* pClient, int nUeIdx);
    /// Binds to the UE that has the port, whichever of its channels that is. Frees the earlier binding first, also
    /// when no UE has the port.
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

    // Status reporting and status query (AgentStatus.cpp).

    void SendSerialConnectInfo(const SerialPortConnect& stInfo);
    void SendSerialDisconnectInfo(const SerialPortDisconnect& stInfo);
    void SendUEConnectInfo(const UEConnect& stInfo);
    void SendClientConnectInfo(const ClientConnect& stInfo);
    void SendClientDisconnectInfo(const ClientDisconnect& stInfo);
    void SendSerialTransferInfo(const SerialPortTransfer& stInfo);
    void SendAgentVer();
    /// One datagram to the monitor; nothing without a status socket.
    void SendStatus2UI(ByteView datagram);
    void StatusMonitorFun();
    /// Reports the bytes of every open port and link once.
    void SendTransferReport();
    void StatusQueryFun();
    /// Replays the whole picture to the monitor.
    void SendAgentCurrentStatus();
    /// Tells a client that was just bound about its UE, on CHANNEL_LTE_DIAG and CHANNEL_GU_CMD.
    void SendUEStatus2Client(enChannelType enChannel, CClient* pClient, unsigned char ucUeIdx);
    void SendLTEPacketToClient(CClient* pClient, unsigned char ucUeIdx, const UEConnect& stInfo);
    void SendGUPacketToClient(CClient* pClient, unsigned char ucUeIdx, const UEConnect& stInfo);

    CUEManager& UEManager() { return m_UEManager; }
    xtl::Mutex& BindMutex() RETURN_CAPABILITY(m_BindMutex) { return m_BindMutex; }

private:
    /// One row of the channel table: a logical channel of a UE. The defaults are those of a free row.
    struct SERIALCHANNELINFO
    {
        int nPort = -1; // COM port number; 0 for the network UE
        std::string strSerialName;
        std::string strGroupId;                     // for the network UE its IP address
        enChannelType enChannel = CHANNEL_LTE_DIAG; // the column
        bool bAttached = false;                     // the port is there
        bool bConfirmed = false;                    // the UE answered the host connect request
        CClient* pClient = nullptr;                 // the bound client; not owned

        bool IsBindable() const { return bAttached && bConfirmed && !pClient; }
    };
    /// Where a row stands; nUeIdx is -1 for nowhere.
    struct ROW_PLACE
    {
        int nUeIdx = -1;
        enChannelType enChannel = CHANNEL_LTE_DIAG;
    };
    static constexpr size_t TIME_STAMP_BLOCK = 5120;

    bool StartThread(int& hThread, void* (*pfn)(void*), const char* pszFail, const char* pszOk);

    bool ServeClients(CPollSet& fds, const CListenSockets& anListen);
    int WaitForClients(CPollSet& fds, const CListenSockets& anListen);
    void FillPollSet(CPollSet& fds, const CListenSockets& anListen) const REQUIRES(m_ClientListMutex);
    void WakeUp();
    void LetListWaitersIn();
    void OnClientDataArrive(const CPollSet& fds, const CListenSockets& anListen);
    void ReadClients(const CPollSet& fds) REQUIRES(m_BindMutex);
    void ReadClient(std::shared_ptr<CClient>& pClient) REQUIRES(m_BindMutex);
    void AcceptClients(int nListen, enChannelType enType) REQUIRES(m_BindMutex);
    bool AcceptClient(int nListen, enChannelType enType) REQUIRES(m_BindMutex);
    void MakeRoomForClient();
    void ForgetClient(CClient* pClient);
    void RemoveLostClient(CClient* pClient) REQUIRES(m_BindMutex);
    void ReleaseClients();

    void AttachRow(unsigned int ulUeIdx, enChannelType enChannel, const UE_ATTACH_INFO_STRU& stInfo)
        REQUIRES(m_BindMutex);
    void ProcessDetach(unsigned int ulUeIdx, enChannelType enChannel) REQUIRES(m_BindMutex);
    void SendHostConnect(int nUeIdx);
    void SendLinkRequest(int nUeIdx);
    void ProcessRun(std::span<const MSG_AGENT> run);
    void OnLteDiagArrive(const MSG_AGENT& stMsg);
    void OnGuCmdArrive(unsigned char ucUeIdx, ByteSpan packet);
    void Deliver2Client(std::span<const MSG_AGENT> run);
    void OnLteDiagMgrArrive(unsigned int ulUeIdx, ByteView packet);
    void OnHostConnectCnf(unsigned int ulUeIdx, const ADE_ACK_PACKET_STRU& stAck);
    void StoreTimeStamp(unsigned int ulUeIdx, const ADE_ACK_PACKET_STRU& stAck);

    static bool IsRow(unsigned int ulUeIdx, enChannelType enChannel);
    /// A copy of the row; a free one for a place outside the table.
    SERIALCHANNELINFO Row(unsigned int ulUeIdx, enChannelType enChannel);
    /// The first row that holds the client.
    ROW_PLACE FindClient(const CClient* pClient);
    void SetRowClient(unsigned int ulUeIdx, enChannelType enChannel, CClient* pClient);
    static SERAIL_CHANNEL_STATUS PutChannelInfo2Ack(const SERIALCHANNELINFO& stInfo);

    template <class Record> void SendRecord(const Record& stRecord);
    void SendRowStatus(unsigned int ulUeIdx, enChannelType enChannel);
    UEConnect UeInfo(unsigned int ulUeIdx);

    std::array<bool, MAXUENUM> m_abJianLian{}; // the GU link is up; agent message thread only
    xtl::Mutex m_TimeStampMutex;               // around a copy of a block, nothing else
    std::array<std::array<unsigned char, TIME_STAMP_BLOCK>, MAXUENUM> m_aucTimeStampAck GUARDED_BY(m_TimeStampMutex){};
    std::unique_ptr<CGUDataProcess> m_GUDataProcess; // frames of the agent's own GU requests; encapsulation only
    xtl::Mutex m_BindMutex;                          // bindings change, and clients are used, under it
    xtl::Mutex m_ClientListMutex;                    // the main thread holds it while it waits for sockets
    xtl::Mutex m_StatusMutex;                        // around one sendto
    xtl::Mutex m_RowMutex; // contents of the rows, for threads that don't hold m_BindMutex; never held across a call
    CUEManager m_UEManager;
    std::atomic<int> m_bRun = 1;
    int m_hStatusMonitorThread = -1;
    int m_hStatusQueryThread = -1;
    int m_hReadAgentMsgThread = -1;
    std::vector<std::shared_ptr<CClient>> m_vecClients GUARDED_BY(m_ClientListMutex);
    int m_nStatusSocket GUARDED_BY(m_StatusMutex) = -1;
    sockaddr_in m_stMonitorAddr GUARDED_BY(m_StatusMutex){};
    std::array<std::array<SERIALCHANNELINFO, CHANNELNUM>, MAXUENUM> m_astChannelInfo GUARDED_BY(m_RowMutex);
    std::array<std::unique_ptr<COperationGUData>, MAXUENUM> m_apOperationGU; // made once, never replaced

    CUniqueFd m_WakeUp;                                  // an eventfd that ends the main thread's wait early
    std::atomic<int> m_nListWaiters = 0;                 // threads that want m_ClientListMutex next
    bool m_bLogStarted = false;                          // main thread only
    std::chrono::steady_clock::time_point m_AcceptAgain; // no accept before, after the system ran short; main thread
};
