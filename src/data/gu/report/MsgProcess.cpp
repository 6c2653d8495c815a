#include "data/gu/report/MsgProcess.h"

#include "data/gu/report/MsgDispTable.h"
#include "data/gu/report/ReportOperation.h"
#include "data/gu/report/TraceReqCounter.h"

namespace
{
constexpr unsigned int MODEM_COUNT = 2;
constexpr unsigned short MODEM_PACKET_STEP = 0x100;          // from a packet id of modem 0 to that of modem 1
constexpr std::array<unsigned int, 2> PID_GPHY = {205, 517}; // PID_G of the known version classes, of all others

unsigned short PacketOfModem(unsigned short usId, unsigned int ulModem)
{
    return static_cast<unsigned short>(usId + ulModem * MODEM_PACKET_STEP);
}

/// PID_G is settled when the processor is built, long before the UE tells its version.
unsigned int PidOfModem(const MSG_PROCESS_ROW& stRow, unsigned int ulModem, const IReportOperation& operation)
{
    const unsigned int ulPid = ulModem < MODEM_COUNT ? stRow.aulPid[ulModem] : 0;
    return ulPid == PID_G ? PID_GPHY[IsKnownUeVersion(operation.GetUeVersion()) ? 0 : 1] : ulPid;
}

/// Nothing is a multiple of 0.
bool IsMultiple(unsigned int ulValue, unsigned int ulUnit)
{
    return ulUnit != 0 && ulValue % ulUnit == 0;
}

IMsgProcess* Find(const std::map<unsigned int, IMsgProcess*>& map, unsigned int ulKey)
{
    const auto it = map.find(ulKey);
    return it == map.end() ? nullptr : it->second;
}
} // namespace

bool CMsgPeriods::IsReport(unsigned int ulTimeStamp, unsigned int ulAdvance)
{
    const unsigned int ulMs = TicksToMs(ulTimeStamp);
    const unsigned int ulWanted = ulPeriod;
    if (ulWanted == 0)
        return false;
    if (ElapsedMs(ulMs, ulLastReport) + ulAdvance < ulWanted)
        return false;
    ulLastReport = ulMs;
    return true;
}

bool CMsgPeriods::IsValidPeriod(unsigned int ulPeriodMs) const
{
    return ulPeriodMs >= ulMinPeriod && ulPeriodMs <= ulMaxPeriod && IsMultiple(ulPeriodMs, ulMinPeriod);
}

IMsgProcess::IMsgProcess(CMsgDisp* pMsgDisp, const MSG_PROCESS_ROW& stRow, unsigned int ulModem)
    : m_pMsgDisp(pMsgDisp),
      m_ulReqMsgId(stRow.usReqMsgId),
      m_ulPid(PidOfModem(stRow, ulModem, pMsgDisp->Operation())),
      m_usDefaultPeriod(stRow.usDefaultPeriod),
      m_ulModem(ulModem)
{
    for (const unsigned short usInd : stRow.ausInd)
        m_pMsgDisp->AddMap(this, usInd, stRow.usCnf, ulModem);
    if (ulModem >= MODEM_COUNT)
        return;
    for (const MSG_PACKET_ROW& stPacket : stRow.astPacket) {
        if (stPacket.usReq == NO_ID)
            continue;
        const bool bOwnRange = stPacket.ulMax != 0;
        AddPacketMap(PacketOfModem(stPacket.usReq, ulModem), PacketOfModem(stPacket.usCnf, ulModem),
                     PacketOfModem(stPacket.usInd, ulModem), bOwnRange ? stPacket.ulMin : stRow.ulMinPeriod,
                     bOwnRange ? stPacket.ulMax : stRow.ulMaxPeriod);
    }
}

void IMsgProcess::AddPacketMap(unsigned short usReq, unsigned short usCnf, unsigned short usInd, unsigned int ulMin,
                               unsigned int ulMax)
{
    m_mapPackets.try_emplace(usReq, usReq, usCnf, usInd, ulMin, ulMax);
}

unsigned short IMsgProcess::GetCnfFromReq(unsigned short usReq) const
{
    const auto it = m_mapPackets.find(usReq);
    return it == m_mapPackets.end() ? NO_ID : it->second.usCnfPacket;
}

CMsgPeriods* IMsgProcess::FindPacket(unsigned short usReq)
{
    const auto it = m_mapPackets.find(usReq);
    return it == m_mapPackets.end() ? nullptr : &it->second;
}

CMsgPeriods* IMsgProcess::Packet(unsigned short usReqPacket)
{
    return FindPacket(PacketOfModem(usReqPacket, m_ulModem));
}

IReportOperation& IMsgProcess::Operation() const
{
    return m_pMsgDisp->Operation();
}

bool IMsgProcess::IsReportDue(unsigned short usReqPacket, unsigned int ulTimeStamp)
{
    CMsgPeriods* const pPeriods = Packet(usReqPacket);
    return pPeriods && pPeriods->IsReport(Operation().GetRealTimeStamp(ulTimeStamp), REPORT_ADVANCE_MS);
}

void IMsgProcess::SendReport(unsigned short usReqPacket, unsigned int ulTimeStamp, ByteView report,
                             unsigned short usType)
{
    if (const CMsgPeriods* const pPeriods = Packet(usReqPacket))
        Operation().BuildMsgIndPacket(usType, ulTimeStamp, pPeriods->usIndPacket, report);
}

void IMsgProcess::SendSelfCnf(const CMsgPeriods& stPeriods, unsigned short usType, unsigned int ulRc)
{
    unsigned char aucResult[4];
    StoreLe<uint32_t>(aucResult, 0, ulRc);
    Operation().BuildMsgCnfPacket(usType, ulRc, STAMP_NONE, stPeriods.usCnfPacket, aucResult);
}

void IMsgProcess::StartPacket(CMsgPeriods& stPeriods, unsigned int ulPeriodMs)
{
    if (stPeriods.ulPeriod == 0)
        ++m_usActive;
    stPeriods.bWaitCnf = true;
    stPeriods.ulPeriod = ulPeriodMs;
}

bool IMsgProcess::StopPacket(CMsgPeriods& stPeriods)
{
    stPeriods.ulPeriod = 0;
    if (m_usActive > 0)
        --m_usActive;
    if (m_usActive > 0)
        return false;
    stPeriods.bWaitCnf = true;
    return true;
}

bool IMsgProcess::ProcessCnf(ByteView)
{
    return true;
}

std::vector<unsigned char> IMsgProcess::UeReqParams(const DIAG_PACKET_REQ_VIEW& stReq) const
{
    std::vector<unsigned char> params = ReqParams(stReq);
    if (ReqSwitch(params) == SWITCH_ON)
        StoreLe<uint16_t>(params, REQ_PERIOD, m_usDefaultPeriod); // the gate of each packet makes its own period
    return params;
}

bool IMsgProcess::SendTransReqToUe(ByteView request)
{
    const DIAG_PACKET_REQ_VIEW stReq = ViewReq(request);
    CMsgPeriods* const pPeriods = FindPacket(ReqPacketId(stReq));
    if (!pPeriods)
        return false;
    bool bTellUe = true;
    if (ReqSwitch(stReq.data) == SWITCH_ON && pPeriods->IsValidPeriod(ReqPeriod(stReq.data))) {
        StartPacket(*pPeriods, ReqPeriod(stReq.data));
    } else if (ReqSwitch(stReq.data) == SWITCH_OFF) {
        bTellUe = StopPacket(*pPeriods);
    } else {
        Operation().BuildErrCnfPacketToClient(pPeriods->usCnfPacket, PKT_TYPE_GU_TRANS, DIAG_RC_FAIL);
        return true;
    }
    if (bTellUe)
        Operation().BuildTransReqMsg(static_cast<unsigned short>(m_ulReqMsgId), UeReqParams(stReq), m_ulPid);
    pPeriods->bWaitCnf = false;
    SendSelfCnf(*pPeriods, PKT_TYPE_GU_TRANS, 0);
    return true;
}

namespace
{
/// The period at which a trace is to run; 0: there is none such. A packet without a range is only on or off; the
/// upper bound of a range isn't looked at here: client tools ask for longer periods.
unsigned int TracePeriod(const CMsgPeriods& stPeriods, unsigned int ulPeriodMs)
{
    if (stPeriods.ulMinPeriod == 0 && stPeriods.ulMaxPeriod == 0)
        return 1;
    return IsMultiple(ulPeriodMs, stPeriods.ulMinPeriod) ? ulPeriodMs : 0;
}
} // namespace

bool IMsgProcess::SendTraceReqToUe(ByteView request, const unsigned int* pulPids, int nCount)
{
    const DIAG_PACKET_REQ_VIEW stReq = ViewReq(request);
    CMsgPeriods* const pPeriods = FindPacket(ReqPacketId(stReq));
    if (!pPeriods)
        return false;
    const unsigned int ulPeriodMs = TracePeriod(*pPeriods, ReqPeriod(stReq.data));
    if (ReqSwitch(stReq.data) == SWITCH_ON && ulPeriodMs != 0) {
        pPeriods->bTraceOn = true; // ahead of the period, with which the reports of the other thread begin
        pPeriods->ulPeriod = ulPeriodMs;
        m_pMsgDisp->IncreaseCounter(pulPids, nCount);
    } else if (ReqSwitch(stReq.data) == SWITCH_OFF) {
        pPeriods->ulPeriod = 0;
        m_pMsgDisp->DecreaseCounter(pulPids, nCount);
    } else {
        Operation().BuildErrCnfPacketToClient(pPeriods->usCnfPacket, PKT_TYPE_GU_TRACE, DIAG_RC_FAIL);
        return true;
    }
    pPeriods->bWaitCnf = false;
    Operation().BuildTraceReqMsg();
    SendSelfCnf(*pPeriods, PKT_TYPE_GU_TRACE, 0);
    return true;
}

CMsgDisp::CMsgDisp(IReportOperation* pOperation, unsigned int ulKind) : m_pOperation(pOperation)
{
    if (ulKind == MSG_DISP_TRANS)
        m_ulPktType = PKT_TYPE_GU_TRANS;
    else if (ulKind == MSG_DISP_TRACE)
        m_ulPktType = PKT_TYPE_GU_TRACE;
    for (const MSG_PROCESS_ROW& stRow : MsgProcessTable(ulKind))
        for (unsigned int ulModem = 0; ulModem < MODEM_COUNT; ++ulModem)
            m_vecProcess.push_back(stRow.pfnCreate(this, stRow, ulModem));
}

CMsgDisp::~CMsgDisp() = default;

void CMsgDisp::AddMap(IMsgProcess* pProcess, unsigned int ulInd, unsigned int ulCnf, unsigned int ulModem)
{
    if (ulInd == NO_ID)
        return;
    const unsigned int ulModemKey = ulModem << MODEM_KEY_SHIFT;
    if (!m_mapInd.try_emplace(ulInd | ulModemKey, pProcess).second)
        return;
    if (ulCnf == NO_ID)
        pProcess->SetSelfCnf();
    else
        m_mapCnf.try_emplace(ulCnf | ulModemKey, pProcess);
}

bool CMsgDisp::Process(ByteView packet, unsigned int ulKey)
{
    if (IMsgProcess* const pProcess = GetProcessorByUeIND(ulKey))
        return pProcess->ProcessInd(packet);
    if (IMsgProcess* const pProcess = GetProcessorByUeCNF(ulKey))
        return pProcess->ProcessCnf(packet);
    return false;
}

bool CMsgDisp::SendReqToUe(ByteView request, unsigned int ulId)
{
    const auto usId = static_cast<unsigned short>(ulId);
    IMsgProcess* const pProcess = GetProcessorByPacketId(usId);
    if (!pProcess)
        return false;
    if (pProcess->GetModem() == 1 && m_pOperation->GetModemNum() != MODEM_NUM_DUAL) {
        m_pOperation->BuildErrCnfPacketToClient(pProcess->GetCnfFromReq(usId), m_ulPktType, DIAG_RC_NOT_DUAL_CARD);
        return false;
    }
    return pProcess->SendReqToUe(request);
}

IMsgProcess* CMsgDisp::GetProcessorByUeIND(unsigned int ulKey) const
{
    return Find(m_mapInd, ulKey);
}

IMsgProcess* CMsgDisp::GetProcessorByUeCNF(unsigned int ulKey) const
{
    return Find(m_mapCnf, ulKey);
}

IMsgProcess* CMsgDisp::GetProcessorByPacketId(unsigned short usId) const
{
    for (const auto& [ulKey, pProcess] : m_mapInd)
        if (pProcess->IsValidReqPacketId(usId))
            return pProcess;
    return nullptr;
}

void CMsgDisp::IncreaseCounter(const unsigned int* pulPids, int nCount)
{
    m_pOperation->TraceCounter().IncreaseCounter(pulPids, nCount);
}

void CMsgDisp::DecreaseCounter(const unsigned int* pulPids, int nCount)
{
    m_pOperation->TraceCounter().DecreaseCounter(pulPids, nCount);
}
