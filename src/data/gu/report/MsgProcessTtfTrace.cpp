#include "data/gu/report/MsgProcessTtfTrace.h"

#include "data/gu/base/RecordList.h"
#include "data/gu/report/ReportOperation.h"
#include "data/gu/report/ReportRecords.h"

namespace
{
constexpr size_t TRACE_NAME = GU_TRACE_MSG_NAME - GU_PAYLOAD;

/// The byte count of a layer stands at one place in messages of one name and at another in all others.
struct LENGTH_FIELD
{
    unsigned short usName;
    size_t szOfName;  // u16 in the payload
    size_t szOfOther; // u16 in the payload
};
constexpr LENGTH_FIELD SNDCP_UL = {0x1110, 28, 24};
constexpr LENGTH_FIELD LLC_UL = {0x1012, 54, 50};
constexpr LENGTH_FIELD LLC_DL = {0x1013, 28, 30};
constexpr size_t SNDCP_DL_LENGTH = 26; // u16
constexpr size_t RLC_UL_LENGTH = 36;   // u16

// Downlink RLC: a list of blocks.
constexpr size_t RLC_DL_COUNT = 28;  // u32
constexpr size_t RLC_DL_LENGTH = 32; // u16, of the first block
constexpr size_t RLC_DL_STRIDE = 8;

unsigned short Length(ByteView payload, const LENGTH_FIELD& stField)
{
    const bool bOfName = LoadLe<uint16_t>(payload, TRACE_NAME) == stField.usName;
    return LoadLe<uint16_t>(payload, bOfName ? stField.szOfName : stField.szOfOther);
}
} // namespace

// No time between two reports gives an infinity, or NaN without bytes; client tools rely on both.
void CMsgProcessThroughput::SendIndPacketToClient(unsigned int ulTimeStamp, CMsgPeriods* pstPeriods, CMsgDisp* pDisp)
{
    const unsigned int ulNow = TicksToMs(ulTimeStamp);
    float fRate = 0;
    if (!pstPeriods->bTraceOn.exchange(false))
        fRate = static_cast<float>((m_ulBytes * 8.0 / 1000.0) / (ElapsedMs(ulNow, m_ulLastTime) / 1000.0));
    // The stamp is real time already and is made so once more; client tools rely on it.
    pDisp->Operation().BuildMsgIndPacket(PKT_TYPE_GU_TRACE, ulTimeStamp, pstPeriods->usIndPacket,
                                         EncodeRecord<Throughput_STRU>({m_ulBytes, fRate}));
    m_ulLastTime = ulNow;
    m_ulBytes = 0;
}

bool CTraceThroughputMsg::ProcessInd(ByteView packet)
{
    if (m_mapPackets.empty())
        return false;
    CMsgPeriods& stPeriods = m_mapPackets.begin()->second;
    if (stPeriods.ulPeriod == 0) {
        m_ulBytes = 0;
        return false;
    }
    m_ulBytes += ByteCount(GuPayload(packet));
    const unsigned int ulRealTime = Operation().GetRealTimeStamp(GuTimeStamp(packet));
    if (!stPeriods.IsReport(ulRealTime, REPORT_ADVANCE_MS))
        return false;
    SendIndPacketToClient(ulRealTime, &stPeriods, m_pMsgDisp);
    return true;
}

unsigned int SndcpUlBytes(ByteView payload)
{
    return Length(payload, SNDCP_UL);
}

unsigned int SndcpDlBytes(ByteView payload)
{
    return LoadLe<uint16_t>(payload, SNDCP_DL_LENGTH);
}

unsigned int LlcUlBytes(ByteView payload)
{
    return Length(payload, LLC_UL);
}

unsigned int LlcDlBytes(ByteView payload)
{
    return Length(payload, LLC_DL);
}

unsigned int RlcUlBytes(ByteView payload)
{
    return LoadLe<uint16_t>(payload, RLC_UL_LENGTH);
}

unsigned int RlcDlBytes(ByteView payload)
{
    const size_t szCount = LoadLe<uint32_t>(payload, RLC_DL_COUNT);
    unsigned int ulBytes = 0;
    for (size_t i = 0; i < szCount && RLC_DL_LENGTH + RLC_DL_STRIDE * i < payload.size(); ++i)
        ulBytes += LoadLe<uint16_t>(payload, RLC_DL_LENGTH + RLC_DL_STRIDE * i);
    return ulBytes;
}
