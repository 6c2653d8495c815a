#pragma once

#include "agent/Bindings.h"
#include "agent/DueActions.h"
#include "agent/ServiceNotify.h"
#include "common/MsgBuf.h"

#include <atomic>
#include <chrono>
#include <span>

class CClientServer;

/// Takes everything that the UE side reports: ports that come and go, on the agent message thread, and packets, there
/// or on the thread that has read them; of one UE on one thread at a time. Two handshakes start here when a channel
/// appears: host connect on the LTE diag channel, link set-up on the GU command channel.
class CUeEvents : public IAgentMsgTaker
{
public:
    CUeEvents(CBindings& bindings, CChannelTable& table, CStatusReporter& status, CClientServer& clients,
              CUEManager& ueManager, const CGuOperations& operations);

    /// Tells the loop to end; it does once its queue gives it something, or is stopped.
    void Stop() { m_bRun = false; }

    /// Body of the thread.
    void ReadAgentMsgFun();
    /// Packets that find nobody at work on their UE are handled where they were read, so they cross no thread.
    bool TryTake(std::span<MSG_AGENT> msgs) override;
    /// Does one thing that is due by now; false when there is none. For the thread, and tests, which tell the time.
    bool RunDueAction(std::chrono::steady_clock::time_point now) EXCLUDES(m_DueLock);
    /// Handles the records in order and lets go of each: of its packet, which may be rewritten in place, and its
    /// charge. Waits for whoever is at work on their UEs.
    void ProcessAgentMsgs(std::span<MSG_AGENT> msgs);
    void UpdateSerialInfo(const MSG_AGENT& stMsg);
    /// Starts the handshake of the channel. On the LTE diag channel the host connect is due two seconds later.
    void ConnectUE(const MSG_AGENT& stMsg);
    void DisconnectUE(const MSG_AGENT& stMsg);
    /// Marks all five rows of a UE as confirmed or not.
    void SetConfirmed(UE_INDEX ulUeIdx, bool bConfirmed);
    /// Packets of one channel.
    void OnUeDataArrive(std::span<MSG_AGENT> run);
    /// From now on the 24 switches of LTE_DIAG_INIT_CMD are due, 50 ms apart, and then the report to the monitor.
    void SendDspModuleSwitch(UE_INDEX ulUeIdx);
    /// A request of the agent itself; false, with a line in the log, when it can't be built.
    static CPacket BuildLteDiagReq(unsigned int ulCmdId, ByteView data);

private:
    /// The records of a UE are handled by whoever holds its lock.
    struct UE_LOCK
    {
        xtl::Mutex lock;                   // before every other lock of the agent
        std::atomic<bool> bWanted = false; // by the thread: readers leave it the lock, however busy they are
    };

    UE_LOCK& LockOf(UE_INDEX ulUeIdx) { return m_aUeLock[ulUeIdx % MAXUENUM]; }
    size_t TakeMsgs(std::span<MSG_AGENT> msgs) EXCLUDES(m_DueLock);
    bool IsDueSooner() EXCLUDES(m_DueLock);
    void ProcessAlone(std::span<MSG_AGENT> run);
    void AttachRow(UE_INDEX ulUeIdx, enChannelType enChannel, const UE_ATTACH_INFO_STRU& stInfo)
        REQUIRES(m_bindings.Mutex());
    void ProcessDetach(UE_INDEX ulUeIdx, enChannelType enChannel) REQUIRES(m_bindings.Mutex());
    void RunDue();
    void SendHostConnect(UE_INDEX ulUeIdx);
    void SendSwitch(UE_INDEX ulUeIdx, const LTE_DIAG_INIT_CMD_STRU& stRow);
    void ReportConnected(UE_INDEX ulUeIdx);
    void ProcessRun(std::span<MSG_AGENT> run);
    void OnLteDiagArrive(MSG_AGENT& stMsg);
    void Deliver2Client(std::span<MSG_AGENT> run);
    void DeliverLteData(std::span<MSG_AGENT> run);
    void OnLteDiagMgrArrive(UE_INDEX ulUeIdx, ByteView packet);
    void OnHostConnectCnf(UE_INDEX ulUeIdx, const ADE_ACK_PACKET_STRU& stAck);

    CBindings& m_bindings;
    CChannelTable& m_table;
    CStatusReporter& m_status;
    CClientServer& m_clients;
    CUEManager& m_ueManager;
    const CGuOperations& m_operations;
    std::array<UE_LOCK, MAXUENUM> m_aUeLock;
    CWatchdog m_watchdog; // of the thread
    xtl::Mutex m_DueLock; // around a look or a change
    CDueActions m_due GUARDED_BY(m_DueLock);
    std::chrono::steady_clock::time_point m_WaitEnd GUARDED_BY(m_DueLock){}; // of the thread's wait, or of its last one
    std::atomic<bool> m_bRun = true;
};
