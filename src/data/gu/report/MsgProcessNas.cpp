#include "data/gu/report/MsgProcessNas.h"

#include "data/gu/report/ReportOperation.h"

namespace
{
constexpr unsigned short PACKET_STATUS = 0xE546;
constexpr unsigned short PACKET_PDP_CONTEXT = 0xE570;
constexpr unsigned short PACKET_PDP_QOS = 0xE573;

constexpr unsigned int PID_STATUS_QUERY = 141;

unsigned char At(ByteView payload, size_t szOffset)
{
    return LoadLe<uint8_t>(payload, szOffset);
}

// PDP contexts in the payload and in the report, both behind a 32-bit count.
constexpr size_t CONTEXT_FIRST = 4;
constexpr size_t CONTEXT_STRIDE_IND = 120;
constexpr size_t CONTEXT_STRIDE_REPORT = 116;
constexpr unsigned int CONTEXT_MAX = 11;
constexpr size_t CONTEXT_REPORT_SIZE = CONTEXT_FIRST + CONTEXT_MAX * CONTEXT_STRIDE_REPORT;
static_assert(CONTEXT_REPORT_SIZE == 1280);

struct FIELD
{
    size_t szOffset;
    size_t szSize;
};
// What the report takes over of a context, each to the same place.
constexpr FIELD CONTEXT_FIELDS[] = {{0, 1}, {4, 1}, {5, 1}, {6, 1}, {8, 1}, {9, 101}, {112, 4}};

void CopyContext(ByteSpan report, ByteView context)
{
    for (const FIELD& stField : CONTEXT_FIELDS)
        CopyPadded(Slice(report, stField.szOffset, stField.szSize), context, stField.szOffset);
}

// Reports of the data counters: consecutive 32-bit words of the payload.
struct DATA_REPORT
{
    unsigned short usPacket;
    size_t szFirstWord;
    size_t szWords;
};
constexpr DATA_REPORT DATA_REPORTS[] = {{0xE550, 0, 2}, {0xE569, 3, 4}, {0xE583, 0, 2}};
constexpr size_t DATA_MAX_WORDS = 4;
} // namespace

bool CNasQueryMsg::SendReqToUe(ByteView request)
{
    const DIAG_PACKET_REQ_VIEW stReq = ViewReq(request);
    CMsgPeriods* const pPeriods = FindPacket(ReqPacketId(stReq));
    if (!pPeriods)
        return true;
    const unsigned int ulResult = LoadLe<uint32_t>(stReq.data, 0) == 0 ? 0 : 1;
    SendSelfCnf(*pPeriods, PKT_TYPE_GU_TRANS, ulResult);
    if (ulResult != 0)
        return true;
    ++pPeriods->ulPeriod;
    Operation().BuildTransReqMsg(static_cast<unsigned short>(m_ulReqMsgId), ReqParams(stReq), QueryPid());
    return true;
}

bool CNasQueryMsg::TakeAnswer(unsigned short usReqPacket)
{
    CMsgPeriods* const pPeriods = Packet(usReqPacket);
    if (!pPeriods || pPeriods->ulPeriod == 0)
        return false;
    --pPeriods->ulPeriod; // this thread is the only one that counts down
    return true;
}

/// The query of either modem goes to the first modem's PID: the UE answers there.
unsigned int CGPRSStatusNasMsg::QueryPid() const
{
    return PID_STATUS_QUERY;
}

bool CGPRSStatusNasMsg::ProcessInd(ByteView packet)
{
    if (!TakeAnswer(PACKET_STATUS))
        return true;
    const ByteView payload = GuPayload(packet);
    const unsigned char aucReport[4] = {At(payload, 284), At(payload, 15)};
    SendReport(PACKET_STATUS, GuTimeStamp(packet), aucReport);
    return true;
}

bool CGPRSPdpContextQosNasMsg::ProcessInd(ByteView packet)
{
    if (!TakeAnswer(PACKET_PDP_QOS))
        return true;
    const ByteView payload = GuPayload(packet);
    const unsigned char aucReport[8] = {At(payload, 1), At(payload, 2), At(payload, 4), At(payload, 3), At(payload, 5)};
    SendReport(PACKET_PDP_QOS, GuTimeStamp(packet), aucReport);
    return true;
}

bool CGPRSPdpContextNasMsg::ProcessInd(ByteView packet)
{
    if (!TakeAnswer(PACKET_PDP_CONTEXT))
        return true;
    const ByteView payload = GuPayload(packet);
    const unsigned int ulCount = LoadLe<uint32_t>(payload, 0);
    if (ulCount > CONTEXT_MAX)
        return false;
    std::array<unsigned char, CONTEXT_REPORT_SIZE> aucReport{};
    StoreLe<uint32_t>(aucReport, 0, ulCount);
    for (size_t i = 0; i < ulCount; ++i)
        CopyContext(Slice(ByteSpan(aucReport), CONTEXT_FIRST + i * CONTEXT_STRIDE_REPORT, CONTEXT_STRIDE_REPORT),
                    Slice(payload, CONTEXT_FIRST + i * CONTEXT_STRIDE_IND, CONTEXT_STRIDE_IND));
    SendReport(PACKET_PDP_CONTEXT, GuTimeStamp(packet), aucReport);
    return true;
}

bool CGPRSDataNasMsg::ProcessInd(ByteView packet)
{
    for (const DATA_REPORT& stReport : DATA_REPORTS) {
        if (!IsReportDue(stReport.usPacket, GuTimeStamp(packet)))
            continue;
        std::array<unsigned char, DATA_MAX_WORDS * 4> aucReport{};
        const ByteSpan report = Slice(ByteSpan(aucReport), 0, stReport.szWords * 4);
        CopyPadded(report, GuPayload(packet), stReport.szFirstWord * 4);
        SendReport(stReport.usPacket, GuTimeStamp(packet), report);
    }
    return true;
}
