#include "data/gu/report/UeReports.h"

#include "common/Debug.h"
#include "data/gu/base/GuPacket.h"
#include "data/gu/base/GuRequest.h"
#include "data/gu/report/MsgProcess.h"
#include "data/gu/report/ReportOperation.h"
#include "data/gu/report/RlcThroughput.h"
#include "data/gu/report/TraceReqCounter.h"

#include <algorithm>

namespace
{
constexpr unsigned int OWN_ADVANCE_MS = 5; // tolerance of the UE's own reports
constexpr unsigned int TICK_MS = 100;

constexpr unsigned short OWN_PERIOD_MIN = 100; // ms
constexpr unsigned short OWN_PERIOD_MAX = 2000;
constexpr unsigned short BLER_MODE_STOP = 0;
constexpr unsigned short BLER_MODE_PERIOD = 3;
constexpr unsigned char CELL_MODE_PERIOD = 2;

/// Stores the period of a start, or stops the report. False for a start that isn't valid; the report stops then too.
bool TakePeriod(CPeriodMsgFromUe& report, ByteView params, bool bStop, bool bStart)
{
    const unsigned short usPeriod = ReqPeriod(params);
    const bool bValid = bStart && usPeriod >= OWN_PERIOD_MIN && usPeriod <= OWN_PERIOD_MAX;
    report.SetPeriod(bValid ? usPeriod : static_cast<unsigned short>(0));
    return bValid || bStop;
}
} // namespace

bool CUeReports::CheckReportPeriodValid(ByteView params, unsigned short usId)
{
    switch (usId) {
    case ID_BLER: {
        const unsigned short usMode = LoadLe<uint16_t>(params, 0);
        return TakePeriod(m_BlerReport, params, usMode == BLER_MODE_STOP, usMode == BLER_MODE_PERIOD);
    }
    case ID_W_CELL:
        return CheckCellReportPeriodValid(params, m_aWCellReport[0]);
    case ID_GSM_NEIGHBOUR:
        return CheckCellReportPeriodValid(params, m_GsmNeighbour);
    case ID_LTE_NEIGHBOUR:
        return CheckCellReportPeriodValid(params, m_LteNeighbour);
    default:
        return true;
    }
}

bool CUeReports::CheckCellReportPeriodValid(ByteView params, CPeriodMsgFromUe& report)
{
    const bool bStop = ReqSwitch(params) == SWITCH_OFF;
    return TakePeriod(report, params, bStop, !bStop && LoadLe<uint8_t>(params, 1) == CELL_MODE_PERIOD);
}

/// The other reports keep nothing.
void CUeReports::Forget()
{
    for (CPeriodMsgFromUe& part : m_aWCellReport)
        part.DeleteData();
    m_MacReport.ForgetConfig();
    m_ReorderReport.ForgetConfig();
}

void CUeReports::TimerProc(bool bVersionOk)
{
    ++m_ulTick;
    if (bVersionOk)
        Timer_BuildIndPacket(m_aWCellReport[0]);
}

void CUeReports::Timer_BuildIndPacket(CPeriodMsgFromUe& report)
{
    const unsigned int ulPeriod = report.GetPeriod();
    if (ulPeriod == 0)
        return;
    if (m_ulTick % std::max(1U, ulPeriod / TICK_MS) == 0)
        Timer_BuildWCellIndPacket();
}

namespace
{
// Parts of the W cell report: a fixed head, and the cells that it counts.
constexpr size_t W_CELL_ENTRY = 24;
constexpr size_t W_CELL_COUNT = 6; // in a part: u16, in the third one two u8
constexpr size_t W_CELL_HEAD[] = {8, 8, 12};
constexpr unsigned short ID_W_CELL_IND = 0xB012;

/// Bytes of a part; of a part that isn't there, its empty head.
size_t WCellPartLen(size_t szPart, ByteView message)
{
    const ByteView part = GuPayload(message);
    const size_t szCells = szPart < 2
                               ? LoadLe<uint16_t>(part, W_CELL_COUNT)
                               : size_t{LoadLe<uint8_t>(part, W_CELL_COUNT)} + LoadLe<uint8_t>(part, W_CELL_COUNT + 1);
    return W_CELL_HEAD[szPart] + szCells * W_CELL_ENTRY;
}

/// One line with the packet as a client gets it, lead bytes left out.
void LogPacket(const char* pszTitle, const DIAG_PACKET_ACK_STRU& stAck, ByteView payload)
{
    const CPacket packet = BuildClientPacket(stAck, payload);
    if (packet)
        CDebug::Instance()->PrintRawData(pszTitle, Slice(packet.Bytes(), LEAD_LEN));
}
} // namespace

bool CUeReports::JoinWCellParts(std::vector<unsigned char>& payload, unsigned int& ulTimeStamp)
{
    CPeriodMsgFromUe& first = m_aWCellReport[0];
    CPeriodMsgFromUe& second = m_aWCellReport[1];
    CPeriodMsgFromUe& third = m_aWCellReport[2];
    const xtl::MutexGuard firstGuard(first.Mutex());
    const xtl::MutexGuard secondGuard(second.Mutex());
    const xtl::MutexGuard thirdGuard(third.Mutex());
    const ByteView aMessage[W_CELL_PARTS] = {first.GetData(), second.GetData(), third.GetData()};
    if (aMessage[0].empty())
        return false;
    ulTimeStamp = GuTimeStamp(aMessage[0]);
    size_t szTotal = 0;
    for (size_t i = 0; i < W_CELL_PARTS; ++i)
        szTotal += WCellPartLen(i, aMessage[i]);
    payload.assign(static_cast<uint16_t>(szTotal), 0); // a length has 16 bits towards clients
    CByteWriter writer(payload);
    for (size_t i = 0; i < W_CELL_PARTS; ++i)
        CopyPadded(writer.Take(WCellPartLen(i, aMessage[i])), GuPayload(aMessage[i]));
    first.DeleteDataUnlocked();
    second.DeleteDataUnlocked();
    third.DeleteDataUnlocked();
    return true;
}

void CUeReports::Timer_BuildWCellIndPacket()
{
    std::vector<unsigned char> payload;
    unsigned int ulTimeStamp = 0;
    if (!JoinWCellParts(payload, ulTimeStamp))
        return;
    const DIAG_PACKET_ACK_STRU stAck =
        m_operation.BuildMsgIndPacket(PKT_TYPE_GU_TRANS, ulTimeStamp, ID_W_CELL_IND, payload);
    LogPacket("Timer_BuildWCellIndPacket", stAck, payload);
}

void CUeReports::SendByArrival(CPeriodMsgFromUe& report, ByteView packet, unsigned short usId, size_t szLen)
{
    if (!report.IsReport(m_operation.GetRealTimeStamp(GuTimeStamp(packet)), OWN_ADVANCE_MS))
        return;
    std::vector<unsigned char> payload(static_cast<uint16_t>(szLen)); // a length has 16 bits towards clients
    CopyPadded(payload, GuPayload(packet));
    m_operation.BuildMsgIndPacket(PKT_TYPE_GU_TRANS, GuTimeStamp(packet), usId, payload);
}

void CUeReports::BuildWBlerIndPacket(ByteView packet)
{
    constexpr size_t HEAD_COUNTED = GU_PAYLOAD - GU_LEN_OFFSET_BASE; // of the head, in usPacketLen
    SendByArrival(m_BlerReport, packet, 0xF022, size_t{GuPacketLen(packet)} - HEAD_COUNTED);
}

namespace
{
constexpr size_t NEIGHBOUR_COUNT = 18; // u16
constexpr size_t NEIGHBOUR_HEAD = 4;
constexpr size_t GSM_NEIGHBOUR_SIZE = 20;
constexpr size_t GSM_NEIGHBOUR_MAX = 50;
constexpr size_t LTE_NEIGHBOUR_SIZE = 12;
} // namespace

void CUeReports::BuildGSMNeighberIndPacket(ByteView packet)
{
    const size_t szCount = LoadLe<uint16_t>(packet, NEIGHBOUR_COUNT);
    if (szCount <= GSM_NEIGHBOUR_MAX)
        SendByArrival(m_GsmNeighbour, packet, 0xB018, szCount * GSM_NEIGHBOUR_SIZE + NEIGHBOUR_HEAD);
}

void CUeReports::BuildLTENeighberIndPacket(ByteView packet)
{
    const size_t szCount = LoadLe<uint16_t>(packet, NEIGHBOUR_COUNT);
    SendByArrival(m_LteNeighbour, packet, 0xB062, szCount * LTE_NEIGHBOUR_SIZE + NEIGHBOUR_HEAD);
}

/// A report without a second of counting behind it is dropped, but counts as sent: its gate comes first.
void CUeReports::BuildRlcReports(ByteView packet, time_t now)
{
    const struct
    {
        CPeriodMsgFromUe& report;
        unsigned short usId;
        std::vector<unsigned char> (*pfnBuild)(ByteView payload, int iSeconds);
    } c_aRow[] = {
        {m_RlcUlReport, 0xF53B, RlcUlReport},
        {m_RbUlReport, 0xF53E, RbUlReport},
        {m_RlcDlReport, 0xF541, RlcDlReport},
        {m_RbDlReport, 0xF544, RbDlReport},
    };
    const unsigned int ulTimeStamp = GuTimeStamp(packet);
    const int iSeconds = static_cast<int>(now - m_tRlcStart);
    for (const auto& stRow : c_aRow)
        if (stRow.report.IsReport(m_operation.GetRealTimeStamp(ulTimeStamp), REPORT_ADVANCE_MS) && iSeconds > 0)
            m_operation.BuildMsgIndPacket(PKT_TYPE_GU_TRANS, ulTimeStamp, stRow.usId,
                                          stRow.pfnBuild(GuPayload(packet), iSeconds));
}

void CUeReports::OnMacConfirm(ByteView packet)
{
    if (m_MacReport.ConfirmMsg(packet))
        BuildMAC_dIndPacket(GuTimeStamp(packet));
    if (m_ReorderReport.ConfirmMsg(packet))
        BuildReorderingQueueIndPacket(GuTimeStamp(packet));
}

void CUeReports::OnMacConfig(ByteView packet)
{
    if (m_MacReport.MsgProcess(packet))
        BuildMAC_dIndPacket(GuTimeStamp(packet));
    if (m_ReorderReport.MsgProcess(packet))
        BuildReorderingQueueIndPacket(GuTimeStamp(packet));
}

void CUeReports::SendStored(CPeriodMsgFromUe& report, unsigned int ulTimeStamp, unsigned short usId)
{
    const std::vector<unsigned char> data = report.TakeData();
    if (!data.empty())
        m_operation.BuildMsgIndPacket(PKT_TYPE_GU_TRANS, ulTimeStamp, usId, data);
}

void CUeReports::BuildMAC_dIndPacket(unsigned int ulTimeStamp)
{
    SendStored(m_MacReport, ulTimeStamp, 0xF51A);
}

void CUeReports::BuildReorderingQueueIndPacket(unsigned int ulTimeStamp)
{
    SendStored(m_ReorderReport, ulTimeStamp, 0xF51D);
}

namespace
{
constexpr unsigned short ID_MAC_REPORT = 0xF518;
constexpr unsigned short ID_REORDER_REPORT = 0xF51B;
constexpr unsigned short RLC_PERIOD_MIN = 1000; // ms
constexpr unsigned short RLC_PERIOD_MAX = 5000;
constexpr unsigned short ID_RLC_SWITCH = 0xD001;
constexpr unsigned int PID_RLC = 138;
constexpr unsigned int MAC_PIDS[] = {133, 139};

std::array<unsigned char, 4> AsBytes32(unsigned int ulValue)
{
    std::array<unsigned char, 4> aucValue{};
    StoreLe<uint32_t>(aucValue, 0, ulValue);
    return aucValue;
}

/// The confirm of a request that the agent itself answers has the id behind the request's.
unsigned short OwnCnfId(const DIAG_PACKET_REQ_VIEW& stReq)
{
    return static_cast<unsigned short>(ReqPacketId(stReq) + 1);
}
} // namespace

void CUeReports::ProcessRequest(const DIAG_PACKET_REQ_VIEW& stReq)
{
    switch (ReqPacketId(stReq)) {
    case 0xF539:
        return RLC_ThroughputReqPro(stReq, m_RlcUlReport);
    case 0xF53C:
        return RLC_ThroughputReqPro(stReq, m_RbUlReport);
    case 0xF53F:
        return RLC_ThroughputReqPro(stReq, m_RlcDlReport);
    case 0xF542:
        return RLC_ThroughputReqPro(stReq, m_RbDlReport);
    case ID_MAC_REPORT:
        return MacHsConfigReqPro(stReq, m_MacReport);
    case ID_REORDER_REPORT:
        return MacHsConfigReqPro(stReq, m_ReorderReport);
    default:
        return;
    }
}

void CUeReports::RLC_ThroughputReqPro(const DIAG_PACKET_REQ_VIEW& stReq, CPeriodMsgFromUe& report)
{
    unsigned int ulRc = DIAG_RC_OK;
    const unsigned short usPeriod = ReqPeriod(stReq.data);
    if (ReqSwitch(stReq.data) == SWITCH_OFF) {
        report.DeleteData();
        report.SetPeriod(0);
        if (!IsRlcReporting())
            SendRlcSwitch(false);
    } else if (ReqSwitch(stReq.data) == SWITCH_ON && usPeriod >= RLC_PERIOD_MIN && usPeriod <= RLC_PERIOD_MAX) {
        report.SetPeriod(usPeriod);
        SendRlcSwitch(true);
    } else {
        ulRc = DIAG_RC_FAIL;
    }
    m_operation.BuildMsgCnfPacket(PKT_TYPE_GU_TRANS, ulRc, STAMP_NONE, OwnCnfId(stReq), AsBytes32(ulRc));
}

bool CUeReports::IsRlcReporting() const
{
    return m_RlcUlReport.GetPeriod() != 0 || m_RlcDlReport.GetPeriod() != 0 || m_RbUlReport.GetPeriod() != 0 ||
           m_RbDlReport.GetPeriod() != 0;
}

/// Starts or stops the UE's RLC counters.
void CUeReports::SendRlcSwitch(bool bEnable)
{
    std::array<unsigned char, 8> aucParams{};
    CByteWriter writer(aucParams);
    writer.Field(static_cast<uint8_t>(bEnable ? 1 : 0));
    writer.Field(uint8_t{7});
    writer.Field(uint16_t{0});
    writer.Field(uint32_t{1});
    m_operation.BuildTransReqMsg(ID_RLC_SWITCH, aucParams, PID_RLC);
}

void CUeReports::MacHsConfigReqPro(const DIAG_PACKET_REQ_VIEW& stReq, CPeriodMsgFromUe& report)
{
    unsigned int ulResult = DIAG_RC_OK;
    constexpr int PID_COUNT = static_cast<int>(std::size(MAC_PIDS));
    if (ReqSwitch(stReq.data) == SWITCH_OFF) {
        report.DeleteData();
        report.SetPeriod(0);
        m_operation.TraceCounter().DecreaseCounter(MAC_PIDS, PID_COUNT);
    } else if (ReqSwitch(stReq.data) == SWITCH_ON) {
        report.SetPeriod(1);
        m_operation.TraceCounter().IncreaseCounter(MAC_PIDS, PID_COUNT);
    } else {
        ulResult = DIAG_RC_FAIL;
    }
    m_operation.BuildTraceReqMsg();
    m_operation.BuildMsgCnfPacket(PKT_TYPE_GU_TRANS, 0, STAMP_NONE, OwnCnfId(stReq), AsBytes32(ulResult));
}
