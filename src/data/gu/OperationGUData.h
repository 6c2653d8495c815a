#pragma once

#include "common/Bytes.h"
#include "common/ThreadAnnotations.h"
#include "common/Types.h"
#include "common/xtl.h"
#include "data/AgentInterfaces.h"
#include "data/DiagPacket.h"
#include "data/gu/GUDataProcess.h"
#include "data/gu/GuLink.h"
#include "data/gu/report/MsgProcess.h"
#include "data/gu/report/ReportOperation.h"
#include "data/gu/report/TraceReqCounter.h"
#include "data/gu/report/UeReports.h"

#include <array>
#include <atomic>
#include <chrono>
#include <ctime>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <utility>

class CGuRegister;
class CRegisterManager;

// Results of TranslateUEPacket and of the routines that it calls, for tests and logs.
constexpr int GU_RESULT_OK = 0;
constexpr int GU_RESULT_NOTHING = 1; // not yet, or nothing to do
constexpr int GU_RESULT_UNKNOWN_CATEGORY = 2;
constexpr int GU_RESULT_BAD_LENGTH = 3;
constexpr int GU_RESULT_UNKNOWN_ID = 4;
constexpr int GU_RESULT_TRACE_TAKEN = 14; // by a trace processor

/// What tells a COperationGUData the time: the system, unless a test does.
struct GU_CLOCK
{
    std::function<std::chrono::steady_clock::time_point()> fnSteady = std::chrono::steady_clock::now; // of the tick
    std::function<time_t()> fnWall = [] { return std::time(nullptr); }; // seconds; of the UE's RLC counters
};

/// All GU state of one UE. Lives as long as the agent. Requests come on the main thread, UE packets and the UE's
/// disconnect on the UE's thread; what both touch is atomic or under one of the small locks below. None
/// of them is held across a send; the caller may hold one of its own, as a register statistic does in its report.
class COperationGUData : public IGuRequests, public IReportOperation
{
public:
    COperationGUData();
    ~COperationGUData() override;
    COperationGUData(const COperationGUData&) = delete;
    COperationGUData& operator=(const COperationGUData&) = delete;

    // Entries.

    /// A packet from the UE's GU command channel: the answer to the link request, or a block for ProcessSerialData.
    void OnUePacket(IBindings* pBindings, ByteSpan packet, UE_INDEX ulUeIdx);
    /// One block from the UE's GU command channel. Rewritten in place.
    void ProcessSerialData(IBindings* pBindings, ByteSpan data, UE_INDEX ulUeIdx);
    int TranslateProbePacket(ByteView req, IBindings* pBindings, IClientPort* pClient) override;
    /// A GU packet out of a frame. One of GU_RESULT_...
    int TranslateUEPacket(ByteView packet);
    /// Channels of the UE went away: what it said is forgotten, about itself and for reports still to come. With the GU
    /// command channel go a frame of which only a part came, since its rest comes there, and the last client. Frame
    /// mode, SN books and report periods stay. Agent message thread.
    void ClearData(std::span<const enChannelType> gone);
    /// A client goes away: nothing points to it afterwards.
    void ForgetClient(IClientPort* pClient);
    /// For tests, while no other thread uses the object.
    void SetClock(GU_CLOCK stClock) { m_stClock = std::move(stClock); }

    // For the processors, the register reader among them. Any thread.

    void BuildMsgCnfPacket(unsigned short usType, unsigned int ulRc, unsigned int ulTimeStamp, unsigned short usId,
                           ByteView data) override;
    DIAG_PACKET_ACK_STRU BuildMsgIndPacket(unsigned short usType, unsigned int ulTimeStamp, unsigned short usId,
                                           ByteView data) override;
    void BuildErrCnfPacketToClient(unsigned short usId, unsigned int ulType, unsigned int ulRc) override;
    void BuildTransReqMsg(unsigned short usId, ByteView params, unsigned int ulPid) override;
    void BuildTraceReqMsg() override;

    unsigned int GetRealTimeStamp(unsigned int ulStamp) const override;
    unsigned int GetUeVersion() const override { return m_enUeVersion; }
    unsigned int GetModemNum() const override { return m_enModemNum; }
    CMsgDisp* GetTransMsgDisp() const override { return m_pTransDisp.get(); }
    /// The twin of the above; only tests ask for it.
    CMsgDisp* GetTraceMsgDisp() const { return m_pTraceDisp.get(); }
    CTraceReqCounter& TraceCounter() override { return m_TraceCounter; }

    // UE to client. The UE's thread only.
    int ProcOtaMsgFromUe(ByteView packet, unsigned int ulModem);
    int ProcQueryMsgFromUe(ByteView packet, unsigned int ulModem);
    int DecomposeTransMsg(ByteView packet, unsigned int ulModem);
    int ProcTransMsgFromUe(ByteView packet, unsigned int ulModem);
    int ProcTraceMsgFromUe(ByteView packet);
    int CheckWhetherMsgIsLost(unsigned int ulSn, unsigned char ucSsid);
    static bool CheckIfMsgHasSn(unsigned char ucCategory);
    static unsigned int ParseVersion(const std::string& strVersion);
    unsigned int GetCurrentMode(ByteView packet) const;

    /// A tick of 100 ms.
    void TimerProc() { m_Reports.TimerProc(m_bVersionOk); }

private:
    static constexpr size_t SSID_COUNT = 8;
    static constexpr unsigned long long SN_UNSET = ~0ULL;

    void ResetSn();
    void OnCmdChannelGone();
    void SetEntry(IBindings* pBindings) { m_pBindings = pBindings; }
    std::shared_ptr<IClientPort> LastClient();
    std::shared_ptr<CRegisterManager> RegisterManager();

    // Client to UE.
    void ProcOtaMsgFromProbe(const DIAG_PACKET_REQ_VIEW& stReq);
    void ProcTransMsgFromProbe(ByteView req);
    void ProcTraceMsgFromProbe(ByteView req);
    void ProcQueryMsgFromProbe(const DIAG_PACKET_REQ_VIEW& stReq);
    /// Sends a GU packet to this UE in segments, with the configured pause behind each. While the last client that
    /// sent a request is bound to no UE the packet is dropped with a warning; before this UE's first block, when the
    /// object doesn't know which one it is, the packet goes to the UE of that client.
    void SendReq2UE(ByteView packet);
    void SendOwnRequest(const DIAG_PACKET_REQ_VIEW& stReq);
    void SendBlerRequest(const DIAG_PACKET_REQ_VIEW& stReq);
    void SendQuery(unsigned char ucCategory, unsigned short usId);
    UE_INDEX TargetUe();

    // UE to client.
    struct TRANS_MSG_ROW;
    static const TRANS_MSG_ROW c_astTransMsg[];

    void FindFrameMode(ByteView data);
    void ProcessVersionMsg(ByteView packet);
    void RefreshModem(ByteView packet);
    void RefreshMode(ByteView packet);
    static unsigned int SetUeModemId(unsigned int ulValue);
    void TakeImei(ByteView packet);
    int WalkChain(ByteView chain, unsigned int ulModem);
    void PassConfirm(ByteView packet);
    template <size_t LEN> void PassIndication(ByteView packet);
    template <size_t PART> void StoreWCell(ByteView packet);
    template <void (CUeReports::*PFN)(ByteView)> void Report(ByteView packet);
    void StartRlcTime(ByteView packet);
    void BuildRlcReports(ByteView packet);
    void PassRegInd(ByteView packet);
    void PassRegCnf(ByteView packet);
    void TakeDspShareAddr(ByteView packet);
    int OnModeAnswer(ByteView packet);
    void ReplaceRegisterManager();
    void InitRegisterInfo(const std::string& strType, const std::string& strVersion);
    void SetMode(unsigned int ulModem, unsigned int ulMode);
    static DIAG_PACKET_ACK_STRU GuAckHead(unsigned short usType, unsigned short usId);
    /// The present SN, which is then used up.
    unsigned int GetMsgSnValue();
    void SendGUAckToClient(const DIAG_PACKET_ACK_STRU& stAck, ByteView payload);
    void SendGUDataPacket2Client(const DIAG_PACKET_ACK_STRU& stAck, ByteView payload);
    void SendGUPacketToClient(const std::string& strText);
    static void SendTo(IClientPort* pClient, const DIAG_PACKET_ACK_STRU& stAck, ByteView payload);

    std::atomic<unsigned int> m_enModemNum = MODEM_NUM_UNKNOWN;
    std::atomic<unsigned int> m_enUeVersion = UE_VERSION_UNKNOWN;
    CTraceReqCounter m_TraceCounter;
    std::unique_ptr<CMsgDisp> m_pTransDisp;
    std::unique_ptr<CMsgDisp> m_pTraceDisp;
    std::atomic<UE_INDEX> m_ulUeId = UE_NONE;
    std::atomic<unsigned int> m_ulBlerPid;
    std::atomic<IBindings*> m_pBindings = nullptr;
    CUeReports m_Reports;

    // The UE's thread only.
    bool m_bImeiOk = false;
    bool m_bVersionOk = false;
    GU_CLOCK m_stClock;
    std::chrono::steady_clock::time_point m_LastTick{};
    unsigned int m_ulFrameMode = FRAME_MODE_UNKNOWN;
    unsigned int m_ulModeBase = 1;
    CGuLink m_Link;
    CGUDataProcess m_stDataProcess;
    std::unique_ptr<CGuRegister> m_pGuRegister;

    xtl::Mutex m_hSnLock;
    unsigned int m_ulMsgSn GUARDED_BY(m_hSnLock) = 1;
    std::array<unsigned long long, SSID_COUNT> m_aullLastSn GUARDED_BY(m_hSnLock);

    xtl::Mutex m_ClientLock;
    std::weak_ptr<IClientPort> m_pClient GUARDED_BY(m_ClientLock); // the last one that sent a request

    xtl::Mutex m_RegisterLock;
    // Replaced by the version message and dropped by a disconnect while the main thread may be inside it.
    std::shared_ptr<CRegisterManager> m_pRegisterManager GUARDED_BY(m_RegisterLock);
};
