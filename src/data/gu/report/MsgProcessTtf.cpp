#include "data/gu/report/MsgProcessTtf.h"

#include "common/Debug.h"
#include "data/gu/base/Percent.h"
#include "data/gu/base/RecordList.h"
#include "data/gu/report/ReportOperation.h"
#include "data/gu/report/ReportRecords.h"

#include <algorithm>
#include <bit>
#include <numeric>

namespace
{
constexpr unsigned short PACKET_USAGE = 0xE549;
constexpr unsigned short PACKET_TIMESLOTS = 0xE579;
constexpr unsigned short PACKET_CURRENT_CODES = 0xE586;
constexpr unsigned short PACKET_CIPHER = 0xE516;
constexpr unsigned short PACKET_CODE_SCALE = 0xE57C;

// Code words: 0 to 3 are CS 1 to 4, 0x1000 and on MCS 1 and on.
constexpr unsigned short CODE_CS_END = 4;
constexpr unsigned short CODE_MCS = 0x1000;
constexpr unsigned short CODE_MCS_LAST_MAINTENANCE = 0x100A;
constexpr unsigned short CODE_MCS_LAST_PACKET_DATA = 0x1008;

bool IsCs(unsigned short usCode)
{
    return usCode < CODE_CS_END;
}
bool IsMcs(unsigned short usCode, unsigned short usLast)
{
    return usCode >= CODE_MCS && usCode <= usLast;
}
unsigned char McsIndex(unsigned short usCode)
{
    return static_cast<unsigned char>(usCode);
}

// Payload of the maintenance information. Each of the two sets has a mask, a code and a byte.
constexpr size_t MNTN_VALUE = 0;  // u32
constexpr size_t MNTN_MASK1 = 10; // u8, bit 7 is timeslot 0
constexpr size_t MNTN_CODE1 = 14; // u16
constexpr size_t MNTN_BYTE1 = 16;
constexpr size_t MNTN_MASK2 = 20;
constexpr size_t MNTN_CODE2 = 24;
constexpr size_t MNTN_BYTE2 = 28;

constexpr size_t COLUMN_CS = 1;
constexpr size_t COLUMN_MCS = 7;
constexpr unsigned short NO_SCHEME = 0xFFFF;
constexpr unsigned char NO_CODE = 255;

constexpr unsigned short MS_PER_SECOND = 1000;

unsigned char At(ByteView payload, size_t szOffset)
{
    return LoadLe<uint8_t>(payload, szOffset);
}

constexpr size_t CIPHER_STATE = 1801; // in the payload

// Payload of the packet data, in 16-bit words.
constexpr size_t BLOCK_COUNT = 11;
constexpr size_t BLOCK_WORDS = 84;
constexpr size_t BLOCK_TN = 14;   // of the first block
constexpr size_t BLOCK_CODE = 15; // of the first block

unsigned short Word(ByteView payload, size_t szIndex)
{
    return LoadLe<uint16_t>(payload, 2 * szIndex);
}

/// Blocks whose timeslot and code lie in the payload.
size_t BlocksIn(ByteView payload)
{
    const size_t szWords = payload.size() / 2;
    return szWords <= BLOCK_CODE ? 0 : (szWords - BLOCK_CODE - 1) / BLOCK_WORDS + 1;
}

constexpr size_t SCALE_ROWS_OFFSET = 4; // in the report, behind u16 block count and u16 0
constexpr size_t SCALE_ROW_SIZE = CPhpPacketDataIndMsg::SCALE_COLUMNS * sizeof(float);
constexpr size_t SCALE_REPORT_SIZE = SCALE_ROWS_OFFSET + CPhpPacketDataIndMsg::BLOCKS * SCALE_ROW_SIZE;
static_assert(SCALE_REPORT_SIZE == 304);
constexpr size_t SCALE_SUM_1 = 13; // column: sum of columns 0 to 7
constexpr size_t SCALE_SUM_2 = 14; // column: sum of columns 8 to 11; client tools rely on 12 being in neither
constexpr size_t SCALE_SPLIT = 8;
constexpr size_t SCALE_END = 12;

constexpr unsigned int MNTN_INDICATION = 0xD006;

/// The maintenance processor behind an indication key; null without one.
CGrmMntnInfoMsg* Maintenance(const IReportOperation& operation, unsigned int ulKey)
{
    const CMsgDisp* const pDisp = operation.GetTransMsgDisp();
    return pDisp ? dynamic_cast<CGrmMntnInfoMsg*>(pDisp->GetProcessorByUeIND(ulKey)) : nullptr;
}
} // namespace

bool CGrmMntnInfoMsg::SendReqToUe(ByteView request)
{
    const DIAG_PACKET_REQ_VIEW stReq = ViewReq(request);
    const unsigned short usPeriodMs = ReqPeriod(stReq.data);
    if (ReqSwitch(stReq.data) == SWITCH_ON && usPeriodMs % MS_PER_SECOND != 0) {
        if (const CMsgPeriods* const pPeriods = FindPacket(ReqPacketId(stReq)))
            Operation().BuildErrCnfPacketToClient(pPeriods->usCnfPacket, PKT_TYPE_GU_TRANS, DIAG_RC_FAIL);
        return true;
    }
    std::vector<unsigned char> inSeconds(request.begin(), request.end());
    StoreLe<uint16_t>(inSeconds, DIAG_PACKET_REQ_STRU::SIZE + REQ_PERIOD,
                      static_cast<unsigned short>(usPeriodMs / MS_PER_SECOND));
    return SendTransReqToUe(inSeconds);
}

bool CGrmMntnInfoMsg::ProcessCnf(ByteView)
{
    m_aulCodeCount = {};
    m_aucTs1 = {};
    m_ucTs1Count = 0;
    m_aucTs2 = {};
    m_ucTs2Count = 0;
    return true;
}

bool CGrmMntnInfoMsg::ProcessInd(ByteView packet)
{
    const ByteView payload = GuPayload(packet);
    m_ucTs1Count = GetTsNumber(At(payload, MNTN_MASK1), m_aucTs1);
    m_ucTs2Count = GetTsNumber(At(payload, MNTN_MASK2), m_aucTs2);
    ReportUsage(payload, GuTimeStamp(packet));
    ReportTimeslots(payload, GuTimeStamp(packet));
    ReportCurrentCodes(payload, GuTimeStamp(packet));
    return true;
}

unsigned char CGrmMntnInfoMsg::GetCountOfTsUsed(unsigned char ucMask)
{
    return static_cast<unsigned char>(std::popcount(ucMask));
}

unsigned char CGrmMntnInfoMsg::GetTsNumber(unsigned char ucMask, ByteSpan out)
{
    unsigned char ucCount = 0;
    for (unsigned int ulTn = 0; ulTn < 8; ++ulTn) {
        if ((ucMask & (0x80U >> ulTn)) == 0)
            continue;
        StoreLe<uint8_t>(out, ucCount, static_cast<uint8_t>(ulTn));
        ++ucCount;
    }
    return ucCount;
}

void CGrmMntnInfoMsg::SetCodeType(unsigned short usCode, ENUM_LEVEL enLevel)
{
    if (IsCs(usCode))
        ++m_aulCodeCount[enLevel][usCode + COLUMN_CS];
    else if (IsMcs(usCode, CODE_MCS_LAST_MAINTENANCE))
        ++m_aulCodeCount[enLevel][McsIndex(usCode) + COLUMN_MCS];
}

unsigned short CGrmMntnInfoMsg::GetCodingScheme(ENUM_LEVEL enLevel) const
{
    const auto& aulCount = m_aulCodeCount[enLevel];
    const auto itMost = std::max_element(aulCount.begin() + COLUMN_CS, aulCount.end());
    return *itMost == 0 ? NO_SCHEME : static_cast<unsigned short>(itMost - aulCount.begin());
}

void CGrmMntnInfoMsg::GetCurrentCodeType(unsigned short usCode, unsigned char& ucCs, unsigned char& ucMcs)
{
    ucCs = IsCs(usCode) ? static_cast<unsigned char>(usCode + 1) : NO_CODE;
    ucMcs = IsMcs(usCode, CODE_MCS_LAST_MAINTENANCE) ? static_cast<unsigned char>(McsIndex(usCode) + 1) : NO_CODE;
}

// Only what passes this report's gate is counted; client tools rely on it.
void CGrmMntnInfoMsg::ReportUsage(ByteView payload, unsigned int ulTimeStamp)
{
    if (!IsReportDue(PACKET_USAGE, ulTimeStamp))
        return;
    SetCodeType(Word(payload, MNTN_CODE1 / 2), ENUM_LEVEL_FIRST);
    SetCodeType(Word(payload, MNTN_CODE2 / 2), ENUM_LEVEL_SECOND);
    const Mntn_Usage_STRU stRec = {GetCountOfTsUsed(At(payload, MNTN_MASK1)),
                                   GetCountOfTsUsed(At(payload, MNTN_MASK2)),
                                   At(payload, MNTN_BYTE1),
                                   At(payload, MNTN_BYTE2),
                                   LoadLe<uint32_t>(payload, MNTN_VALUE),
                                   GetCodingScheme(ENUM_LEVEL_FIRST),
                                   GetCodingScheme(ENUM_LEVEL_SECOND)};
    SendReport(PACKET_USAGE, ulTimeStamp, EncodeRecord(stRec));
}

/// u8 number of timeslots of each direction, then the lists: the first from byte 2, the second from byte 6 over it.
/// What doesn't fit the report is left out; client tools rely on the 12 bytes.
void CGrmMntnInfoMsg::ReportTimeslots(ByteView payload, unsigned int ulTimeStamp)
{
    if (!IsReportDue(PACKET_TIMESLOTS, ulTimeStamp))
        return;
    std::array<unsigned char, 12> aucReport{};
    aucReport[0] = GetTsNumber(At(payload, MNTN_MASK1), Slice(ByteSpan(aucReport), 2));
    aucReport[1] = GetTsNumber(At(payload, MNTN_MASK2), Slice(ByteSpan(aucReport), 6));
    SendReport(PACKET_TIMESLOTS, ulTimeStamp, aucReport);
}

// u8 number of timeslots of each direction, u8 CS of each direction, u8 MCS of each direction, u16 0.
void CGrmMntnInfoMsg::ReportCurrentCodes(ByteView payload, unsigned int ulTimeStamp)
{
    if (!IsReportDue(PACKET_CURRENT_CODES, ulTimeStamp))
        return;
    std::array<unsigned char, 8> aucReport{};
    aucReport[0] = GetCountOfTsUsed(At(payload, MNTN_MASK1));
    aucReport[1] = GetCountOfTsUsed(At(payload, MNTN_MASK2));
    GetCurrentCodeType(Word(payload, MNTN_CODE1 / 2), aucReport[2], aucReport[4]);
    GetCurrentCodeType(Word(payload, MNTN_CODE2 / 2), aucReport[3], aucReport[5]);
    SendReport(PACKET_CURRENT_CODES, ulTimeStamp, aucReport);
}

// u8 state, 3 bytes of 0.
bool CPsCipherMsg::ProcessInd(ByteView packet)
{
    if (!IsReportDue(PACKET_CIPHER, GuTimeStamp(packet)))
        return false;
    const unsigned char aucReport[4] = {At(GuPayload(packet), CIPHER_STATE)};
    SendReport(PACKET_CIPHER, GuTimeStamp(packet), aucReport, PKT_TYPE_GU_TRACE);
    return true;
}

bool CPhpPacketDataIndMsg::SendReqToUe(ByteView request)
{
    const unsigned char ucSwitch = ReqSwitch(ViewReq(request).data);
    if (ucSwitch == SWITCH_OFF)
        ClearCounts();
    StartMaintenance(ucSwitch);
    return SendTraceReqToUe(request, &m_ulPid, 1);
}

/// The modem's own maintenance information, unless a client's request runs it already. Off for all but a start.
void CPhpPacketDataIndMsg::StartMaintenance(unsigned char ucSwitch)
{
    const CGrmMntnInfoMsg* const pMaintenance =
        Maintenance(Operation(), m_ulModem << MODEM_KEY_SHIFT | MNTN_INDICATION);
    if (!pMaintenance || pMaintenance->GetActive() != 0)
        return;
    unsigned char aucParams[4] = {};
    if (ucSwitch == SWITCH_ON) {
        aucParams[0] = SWITCH_ON;
        StoreLe<uint16_t>(aucParams, REQ_PERIOD, 1);
    }
    Operation().BuildTransReqMsg(static_cast<unsigned short>(pMaintenance->GetReqMsgId()), aucParams,
                                 pMaintenance->GetPid());
}

bool CPhpPacketDataIndMsg::ProcessInd(ByteView packet)
{
    const CMsgPeriods* const pPeriods = Packet(PACKET_CODE_SCALE);
    if (!pPeriods || pPeriods->ulPeriod == 0)
        return false;
    const ByteView payload = GuPayload(packet);
    CountBlocks(payload);
    if (!IsReportDue(PACKET_CODE_SCALE, GuTimeStamp(packet)))
        return false;
    Report(std::min<unsigned short>(Word(payload, BLOCK_COUNT), BLOCKS), GuTimeStamp(packet));
    return true;
}

/// All blocks, also those that the report has no room for. The count may say up to 65535, whatever the message holds:
/// blocks that aren't there must neither count as timeslot 0 nor cost time.
void CPhpPacketDataIndMsg::CountBlocks(ByteView payload)
{
    const size_t szBlocks = std::min<size_t>(Word(payload, BLOCK_COUNT), BlocksIn(payload));
    for (size_t i = 0; i < szBlocks; ++i) {
        const unsigned short usPos = GetPosOfTsNumber(Word(payload, BLOCK_TN + BLOCK_WORDS * i));
        if (usPos < TS_POS_NONE)
            SetCodeType(Word(payload, BLOCK_CODE + BLOCK_WORDS * i), static_cast<unsigned char>(usPos));
    }
}

// u16 number of blocks, u16 0, then five rows of 15 floats.
void CPhpPacketDataIndMsg::Report(unsigned short usBlocks, unsigned int ulTimeStamp)
{
    float afScale[BLOCKS][SCALE_COLUMNS] = {};
    CalculateCodeTypeScale(afScale, usBlocks);
    std::array<unsigned char, SCALE_REPORT_SIZE> aucReport{};
    CByteWriter writer(aucReport);
    writer.Field(uint16_t{usBlocks});
    writer.Gap(2);
    for (const auto& afRow : afScale)
        for (const float fShare : afRow)
            writer.Field(fShare);
    SendReport(PACKET_CODE_SCALE, ulTimeStamp, aucReport, PKT_TYPE_GU_TRACE);
}

/// The first modem's set serves both modems; client tools rely on it.
unsigned short CPhpPacketDataIndMsg::GetPosOfTsNumber(unsigned short usTn) const
{
    const CGrmMntnInfoMsg* const pMaintenance = Maintenance(Operation(), MNTN_INDICATION);
    if (!pMaintenance || pMaintenance->SecondTimeslotCount() >= 8) {
        CDebug::Instance()->PrintError("error fail file:%s, line:%d", "./src/data/gu/MsgProcessTtf.cpp", __LINE__);
        return TS_POS_NONE;
    }
    const ByteView set = Slice(pMaintenance->SecondTimeslots(), 0, pMaintenance->SecondTimeslotCount());
    const auto it = std::find(set.begin(), set.end(), usTn);
    return it == set.end() ? TS_POS_NONE : static_cast<unsigned short>(it - set.begin());
}

/// Positions beyond the tables and unknown codes count nowhere.
void CPhpPacketDataIndMsg::SetCodeType(unsigned short usCode, unsigned char ucPos)
{
    if (ucPos >= BLOCKS)
        return;
    const xtl::MutexGuard guard(m_Lock);
    if (IsCs(usCode))
        ++m_aulCsCount[ucPos][usCode];
    else if (IsMcs(usCode, CODE_MCS_LAST_PACKET_DATA))
        ++m_aulMcsCount[ucPos][McsIndex(usCode)];
}

unsigned long long CPhpPacketDataIndMsg::StaticCodeTypeByTN(unsigned char ucPos) const
{
    unsigned long long ullTotal = 0;
    for (const unsigned int ulCount : m_aulCsCount[ucPos])
        ullTotal += ulCount;
    for (const unsigned int ulCount : m_aulMcsCount[ucPos])
        ullTotal += ulCount;
    return ullTotal;
}

void CPhpPacketDataIndMsg::CalculateCodeTypeScale(SCALE_TABLE pafScale, unsigned short usRows)
{
    const xtl::MutexGuard guard(m_Lock);
    for (unsigned char ucPos = 0; ucPos < std::min<size_t>(usRows, BLOCKS); ++ucPos) {
        float(&afRow)[SCALE_COLUMNS] = pafScale[ucPos];
        const auto dTotal = static_cast<double>(StaticCodeTypeByTN(ucPos));
        for (size_t i = 0; i < CS_COUNT; ++i)
            afRow[i] = PercentOrZero(m_aulCsCount[ucPos][i], dTotal);
        for (size_t i = 0; i < MCS_COUNT; ++i)
            afRow[CS_COUNT + i] = PercentOrZero(m_aulMcsCount[ucPos][i], dTotal);
        afRow[SCALE_SUM_1] = std::accumulate(afRow, afRow + SCALE_SPLIT, 0.0F);
        afRow[SCALE_SUM_2] = std::accumulate(afRow + SCALE_SPLIT, afRow + SCALE_END, 0.0F);
    }
}

void CPhpPacketDataIndMsg::ClearCounts()
{
    const xtl::MutexGuard guard(m_Lock);
    m_aulCsCount = {};
    m_aulMcsCount = {};
}
