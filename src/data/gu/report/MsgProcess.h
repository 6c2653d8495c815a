#pragma once

#include "common/Bytes.h"
#include "data/DiagPacket.h"
#include "data/gu/base/GuPacket.h"
#include "data/gu/base/GuRequest.h"

#include <array>
#include <atomic>
#include <map>
#include <memory>
#include <vector>

// Road-test values: each is the work of a message processor that listens to UE messages, computes, and reports at
// the period that a client chose. CMsgDisp finds the processor, by UE message id for what arrives and by client
// packet id for what is asked for. Requests come on the main thread, UE messages on the UE's thread; what
// both touch (periods, flags, active counts) is atomic.

class CMsgDisp;
class IReportOperation;
class IMsgProcess;

/// One client packet of a processor.
struct CMsgPeriods
{
    CMsgPeriods(unsigned short usReq, unsigned short usCnf, unsigned short usInd, unsigned int ulMin,
                unsigned int ulMax)
        : usReqPacket(usReq), usCnfPacket(usCnf), usIndPacket(usInd), ulMinPeriod(ulMin), ulMaxPeriod(ulMax)
    {
    }

    /// True when a report is due, ulAdvance ms before its time at the earliest; it counts as sent then. The stamp is
    /// real time in 32768 Hz ticks; a wrap of the counter is evened out. Agent message thread.
    bool IsReport(unsigned int ulTimeStamp, unsigned int ulAdvance);

    /// Within the range and a multiple of the minimum. Nothing is a multiple of a minimum of 0.
    bool IsValidPeriod(unsigned int ulPeriodMs) const;

    const unsigned short usReqPacket;
    const unsigned short usCnfPacket;
    const unsigned short usIndPacket;
    unsigned int ulLastReport = 0;          // ms
    std::atomic<unsigned int> ulPeriod = 0; // ms, 0 = off; in a one-shot query the number of answers awaited
    const unsigned int ulMinPeriod;         // ms
    const unsigned int ulMaxPeriod;         // ms
    std::atomic<bool> bWaitCnf = false;
    std::atomic<bool> bTraceOn = false;
};

/// Milliseconds from ulLastMs to ulNowMs on the UE's 32768 Hz counter, one wrap of the counter evened out.
constexpr unsigned int ElapsedMs(unsigned int ulNowMs, unsigned int ulLastMs)
{
    constexpr unsigned int COUNTER_WRAP_MS = 131071999;
    return ulNowMs - ulLastMs + (ulLastMs > ulNowMs ? COUNTER_WRAP_MS : 0);
}

constexpr unsigned int REPORT_ADVANCE_MS = 250; // tolerance of every processor's reports

/// A client packet in the tables: request, confirm and report id of modem 0. Those of modem 1 are 0x100 higher.
struct MSG_PACKET_ROW
{
    unsigned short usReq = 0; // 0: no packet
    unsigned short usCnf = 0;
    unsigned short usInd = 0;
    unsigned int ulMin = 0; // own range of periods; 0, 0: that of the processor
    unsigned int ulMax = 0;
};

constexpr unsigned short NO_ID = 0;
constexpr unsigned int MODEM_KEY_SHIFT = 16; // of the modem in the key of a UE message
constexpr unsigned int PID_G = 0xFFFF0000;   // PID of the GSM physical layer, which depends on the UE's version class

/// A processor in the tables, ids of modem 0. In the maps by UE message id modem 1 has 1 in bit 16.
struct MSG_PROCESS_ROW
{
    std::unique_ptr<IMsgProcess> (*pfnCreate)(CMsgDisp*, const MSG_PROCESS_ROW&, unsigned int ulModem);
    std::array<unsigned short, 2> ausInd; // UE indications, NO_ID: none
    unsigned short usCnf;                 // UE confirm, NO_ID: the UE sends none
    unsigned short usReqMsgId;            // UE request, NO_ID for traces
    std::array<unsigned int, 2> aulPid;   // receiver, or traced PID, of modem 0 and 1
    std::array<MSG_PACKET_ROW, 11> astPacket;
    unsigned int ulMinPeriod;
    unsigned int ulMaxPeriod;
    unsigned short usDefaultPeriod = 500; // the period at which the UE itself runs
};

template <class Processor>
std::unique_ptr<IMsgProcess> CreateProcessor(CMsgDisp* pMsgDisp, const MSG_PROCESS_ROW& stRow, unsigned int ulModem)
{
    return std::make_unique<Processor>(pMsgDisp, stRow, ulModem);
}

/// Base of the processors. A subclass inherits the constructor (using IMsgProcess::IMsgProcess), which registers
/// the processor and its packets by its row of the tables, and names its packets by the ids of modem 0.
class IMsgProcess
{
public:
    /// Another ulModem than 0 or 1 registers no packets.
    IMsgProcess(CMsgDisp* pMsgDisp, const MSG_PROCESS_ROW& stRow, unsigned int ulModem);
    virtual ~IMsgProcess() = default;
    IMsgProcess(const IMsgProcess&) = delete;
    IMsgProcess& operator=(const IMsgProcess&) = delete;

    /// A UE indication, head included. True when the processor took it.
    virtual bool ProcessInd(ByteView packet) = 0;
    /// A client request (DIAG_PACKET_REQ_STRU, parameters {u8 switch, u8 spare, u16 period, ...}) for one of the
    /// packets of this processor. False when it is unknown here and nothing was done.
    virtual bool SendReqToUe(ByteView request) = 0;
    /// The way of a transparent message: the UE runs at the default period while any packet of the processor runs.
    virtual bool SendTransReqToUe(ByteView request);
    /// A UE confirm.
    virtual bool ProcessCnf(ByteView packet);
    /// The way of a trace: counts the PIDs and tells the UE which ones to trace.
    virtual bool SendTraceReqToUe(ByteView request, const unsigned int* pulPids, int nCount);

    void AddPacketMap(unsigned short usReq, unsigned short usCnf, unsigned short usInd, unsigned int ulMin = 500,
                      unsigned int ulMax = 2000);
    bool IsValidReqPacketId(unsigned short usReq) const { return m_mapPackets.contains(usReq); }
    /// 0 for an unknown request.
    unsigned short GetCnfFromReq(unsigned short usReq) const;
    /// The packet of a request id as the client sends it, null when it isn't here.
    CMsgPeriods* FindPacket(unsigned short usReq);

    unsigned short GetActive() const { return m_usActive; }
    unsigned int GetReqMsgId() const { return m_ulReqMsgId; }
    unsigned int GetPid() const { return m_ulPid; }
    unsigned int GetModem() const { return m_ulModem; }
    void SetSelfCnf() { m_bSelfCnf = true; }

protected:
    /// Parameters of the request to the UE for a client's start or stop by the transparent way: the client's own,
    /// with the UE's default period in a start.
    virtual std::vector<unsigned char> UeReqParams(const DIAG_PACKET_REQ_VIEW& stReq) const;

    IReportOperation& Operation() const;
    /// The packet of this processor's modem; the id is that of modem 0 and must be in the processor's row.
    CMsgPeriods* Packet(unsigned short usReqPacket);
    /// The gate of a report, REPORT_ADVANCE_MS early at most. The stamp is the message's own.
    bool IsReportDue(unsigned short usReqPacket, unsigned int ulTimeStamp);
    /// Sends a report under the packet's report id. The stamp is the message's own.
    void SendReport(unsigned short usReqPacket, unsigned int ulTimeStamp, ByteView report,
                    unsigned short usType = PKT_TYPE_GU_TRANS);
    /// The agent's confirm: the result in ulRc and as four bytes.
    void SendSelfCnf(const CMsgPeriods& stPeriods, unsigned short usType, unsigned int ulRc);
    /// Notes that a packet runs at a period from now on, or that it stops. StopPacket: true when no packet of the
    /// processor runs any more. Both note a confirm of the UE to come where the UE is to be told.
    void StartPacket(CMsgPeriods& stPeriods, unsigned int ulPeriodMs);
    bool StopPacket(CMsgPeriods& stPeriods);

    CMsgDisp* m_pMsgDisp;
    std::map<unsigned short, CMsgPeriods> m_mapPackets; // by request id; fixed after construction
    std::atomic<unsigned short> m_usActive = 0;         // running reports
    unsigned int m_ulReqMsgId;
    unsigned int m_ulPid;
    unsigned short m_usDefaultPeriod;
    bool m_bSelfCnf = true; // never cleared
    unsigned int m_ulModem;
};

constexpr unsigned int MSG_DISP_TRACE = 1; // kinds of CMsgDisp
constexpr unsigned int MSG_DISP_TRANS = 4;

/// The processors of one kind. Fixed at construction.
class CMsgDisp
{
public:
    /// Builds every processor of the kind's table for both modems; another kind leaves it empty.
    CMsgDisp(IReportOperation* pOperation, unsigned int ulKind);
    virtual ~CMsgDisp();
    CMsgDisp(const CMsgDisp&) = delete;
    CMsgDisp& operator=(const CMsgDisp&) = delete;

    /// Enters a processor under a UE indication and a UE confirm. An indication that is taken stays with its first
    /// processor, and the confirm isn't entered then.
    void AddMap(IMsgProcess* pProcess, unsigned int ulInd, unsigned int ulCnf, unsigned int ulModem);
    /// A UE message; the key is the message id, with the modem from bit 16 up. True when a processor took it.
    bool Process(ByteView packet, unsigned int ulKey);
    /// A client request. True when a processor handled it.
    bool SendReqToUe(ByteView request, unsigned int ulId);

    /// Null when there is none.
    IMsgProcess* GetProcessorByUeIND(unsigned int ulKey) const;
    IMsgProcess* GetProcessorByUeCNF(unsigned int ulKey) const;
    IMsgProcess* GetProcessorByPacketId(unsigned short usId) const;

    void IncreaseCounter(const unsigned int* pulPids, int nCount);
    void DecreaseCounter(const unsigned int* pulPids, int nCount);

    IReportOperation& Operation() const { return *m_pOperation; }

private:
    std::map<unsigned int, IMsgProcess*> m_mapInd;
    std::map<unsigned int, IMsgProcess*> m_mapCnf;
    IReportOperation* m_pOperation;
    std::vector<std::unique_ptr<IMsgProcess>> m_vecProcess;
    unsigned int m_ulPktType = 0;
};
