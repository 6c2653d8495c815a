#include "data/gu/report/MsgProcessGas.h"

#include "data/gu/report/ReportOperation.h"

#include <cstdio>

namespace
{
// An indication.
constexpr size_t IND_KIND = 18; // u16 in the packet
constexpr size_t IND_BODY = 20; // u16 words for the most part

constexpr unsigned short NO_VALUE = 0xFFFF; // of a word, and of a ratio of such words
constexpr size_t WORD_SIZE = 2;

/// Word n of the body.
unsigned short B(ByteView body, size_t szIndex)
{
    return LoadLe<uint16_t>(body, WORD_SIZE * szIndex);
}

void PutWords(CByteWriter& writer, ByteView body, std::initializer_list<size_t> indices)
{
    for (const size_t szIndex : indices)
        writer.Field(uint16_t{B(body, szIndex)});
}

/// Consecutive words.
void PutRange(CByteWriter& writer, ByteView body, size_t szFirst, size_t szCount)
{
    for (size_t i = 0; i < szCount; ++i)
        writer.Field(uint16_t{B(body, szFirst + i)});
}

/// Ten thousand times part by whole, the low 16 bits of it.
unsigned short Ratio(unsigned short usPart, unsigned short usWhole)
{
    if (usWhole == 0)
        return 0;
    return static_cast<unsigned short>(static_cast<unsigned int>(static_cast<double>(usPart) / usWhole * 100 * 100));
}

/// Only the divisor is tested: client tools know this ratio with a part of 0xFFFF as a number.
unsigned short FirstRatio(unsigned short usPart, unsigned short usWhole)
{
    return usWhole == NO_VALUE ? NO_VALUE : Ratio(usPart, usWhole);
}

/// Here both are tested: client tools know this ratio as 0xFFFF then.
unsigned short SecondRatio(unsigned short usPart, unsigned short usWhole)
{
    return usPart == NO_VALUE || usWhole == NO_VALUE ? NO_VALUE : Ratio(usPart, usWhole);
}

// Measurement result: serving and neighbour cells.
constexpr size_t CELL_COUNT = 20; // word
constexpr size_t CELL_FIRST = 22; // word of the first cell
constexpr size_t CELL_WORDS = 8;
constexpr unsigned short CELL_MAX = 6;

// Measurement result: 3G neighbours.
constexpr size_t NEIGHBOUR_COUNT = 21; // word
constexpr size_t NEIGHBOUR_FIRST = 70; // word of the first entry
constexpr size_t NEIGHBOUR_WORDS = 6;
constexpr size_t NEIGHBOUR_ENTRIES = 96;
constexpr size_t NEIGHBOUR_ENTRY_SIZE = 16; // in the table
constexpr size_t NEIGHBOUR_TABLE_SIZE = 4 + NEIGHBOUR_ENTRIES * NEIGHBOUR_ENTRY_SIZE;
static_assert(NEIGHBOUR_TABLE_SIZE == 1540);

// u16 x 3, 4 bytes of 0, u16, float: half of a signed word.
void PutNeighbour(CByteWriter& writer, ByteView body, size_t szFirst)
{
    PutRange(writer, body, szFirst, 3);
    writer.Gap(4);
    PutWords(writer, body, {szFirst + 3});
    writer.Field(static_cast<float>(static_cast<int16_t>(B(body, szFirst + 4)) / 2.0));
}

// Cell parameters: country and network code, 32-bit each, in the body.
constexpr size_t CELL_MCC = 16;
constexpr size_t CELL_MNC = 20;
constexpr size_t CELL_LAC_WORD = 12;
constexpr size_t CELL_ID_WORD = 7;
constexpr size_t CELL_TEXT_SIZE = 16;

/// The global id of the cell as digits. What is longer than the field is cut, and a text that fills it has no NUL.
void PutCellText(CByteWriter& writer, ByteView body)
{
    char szText[64];
    (void)std::snprintf(szText, sizeof(szText), "%03d%02d%04d%04d", static_cast<int>(LoadLe<uint32_t>(body, CELL_MCC)),
                        static_cast<int>(LoadLe<uint32_t>(body, CELL_MNC)), B(body, CELL_LAC_WORD),
                        B(body, CELL_ID_WORD));
    CopyPadded(writer.Take(CELL_TEXT_SIZE), AsBytes(szText));
}

// Hopping list.
constexpr size_t HOPPING_LIST = 20; // in the body
constexpr size_t HOPPING_LIST_SIZE = 128;

constexpr size_t REPORT_MAX = 136;

constexpr unsigned int RC_BAD_PERIOD = 1;
constexpr unsigned short REPORT_BY_PERIOD = 2; // second word of the UE request, always
} // namespace

/// One report. Its packets are those of the dispatcher's table; ids are those of modem 0.
struct CGasRoadTestInfoMsg::REPORT_ROW
{
    unsigned short usReq;
    unsigned short usGroup;
    size_t szReport;  // bytes
    size_t szPerCell; // more bytes for each cell of the body; 0: the report has no cells
    void (*pfnCalculate)(ByteView body, ByteSpan report);
};

// clang-format off
const CGasRoadTestInfoMsg::REPORT_ROW CGasRoadTestInfoMsg::c_astReport[] = {
    {0xE500, 0, 32,  0,  CalculateRadioParameter},
    {0xE536, 0, 24,  16, CalculateServingAndNeighborCells},
    {0xE526, 0, 16,  0,  Calculate3GNeighborCellMeasurement},
    {0xE533, 0, 4,   0,  CalculateGprsStatusGasMeas},
    {0xE51D, 1, 8,   0,  CalculateCcchParam},
    {0xE520, 1, 12,  0,  CalculateRachParam},
    {0xE523, 1, 20,  0,  CalculateReselectionParam},
    {0xE543, 1, 8,   0,  CalculateGprsStatusGas},
    {0xE510, 1, 36,  0,  CalculateCellParam},
    {0xE513, 2, 20,  0,  CalculateChannel},
    {0xE519, 2, 136, 0,  CalculateHoppingParam},
};
// clang-format on

CGasRoadTestInfoMsg::CGasRoadTestInfoMsg(CMsgDisp* pMsgDisp, const MSG_PROCESS_ROW& stRow, unsigned int ulModem)
    : IMsgProcess(pMsgDisp, stRow, ulModem)
{
    for (const REPORT_ROW& stReport : c_astReport)
        if (const CMsgPeriods* const pPeriods = Packet(stReport.usReq))
            m_mapGroup[pPeriods->usReqPacket] = stReport.usGroup;
}

bool CGasRoadTestInfoMsg::ProcessInd(ByteView packet)
{
    switch (LoadLe<uint16_t>(packet, IND_KIND)) {
    case GROUP_MEAS_RESULT:
        ProcessMeasResult(packet);
        return true;
    case GROUP_SCELL_PARA:
        ProcessScellPara(packet);
        return true;
    case GROUP_SCELL_DCH_CHAN_PARA:
        ProcessScellDchChanPara(packet);
        return true;
    default:
        return false;
    }
}

void CGasRoadTestInfoMsg::ReportGroup(unsigned short usGroup, ByteView packet)
{
    for (const REPORT_ROW& stRow : c_astReport)
        if (stRow.usGroup == usGroup)
            Report(stRow, packet);
}

void CGasRoadTestInfoMsg::Report(const REPORT_ROW& stRow, ByteView packet)
{
    const ByteView body = Slice(packet, IND_BODY);
    const size_t szCells = stRow.szPerCell == 0 ? 0 : B(body, CELL_COUNT);
    if (szCells > CELL_MAX || !IsReportDue(stRow.usReq, GuTimeStamp(packet)))
        return;
    std::array<unsigned char, REPORT_MAX> aucReport{};
    const ByteSpan report = Slice(ByteSpan(aucReport), 0, stRow.szReport + szCells * stRow.szPerCell);
    stRow.pfnCalculate(body, report);
    SendReport(stRow.usReq, GuTimeStamp(packet), report);
}

// Words: 3 to 7, 20, 25, 33, 41, 49, 57, 65, 9, 8 of the body, then two ratios.
void CGasRoadTestInfoMsg::CalculateRadioParameter(ByteView body, ByteSpan report)
{
    CByteWriter writer(report);
    PutRange(writer, body, 3, 5);
    PutWords(writer, body, {20, 25, 33, 41, 49, 57, 65, 9, 8});
    writer.Field(uint16_t{FirstRatio(B(body, 10), B(body, 11))});
    writer.Field(uint16_t{SecondRatio(B(body, 12), B(body, 13))});
}

// Words 0, 2, 1, 5, 4, 3, 14 to 17 of the body, u32 count, then each cell with its second and third word swapped.
void CGasRoadTestInfoMsg::CalculateServingAndNeighborCells(ByteView body, ByteSpan report)
{
    CByteWriter writer(report);
    PutWords(writer, body, {0, 2, 1, 5, 4, 3});
    PutRange(writer, body, 14, 4);
    writer.Field(uint32_t{B(body, CELL_COUNT)});
    for (size_t i = 0; i < B(body, CELL_COUNT); ++i) {
        const size_t szCell = CELL_FIRST + CELL_WORDS * i;
        PutWords(writer, body, {szCell, szCell + 2, szCell + 1});
        PutRange(writer, body, szCell + 3, CELL_WORDS - 3);
    }
}

/// The whole table is u32 count and 96 entries, of which the report holds the count and the start of the first entry:
/// client tools expect 16 bytes.
void CGasRoadTestInfoMsg::Calculate3GNeighborCellMeasurement(ByteView body, ByteSpan report)
{
    std::array<unsigned char, NEIGHBOUR_TABLE_SIZE> aucTable{};
    CByteWriter writer(aucTable);
    writer.Field(uint32_t{B(body, NEIGHBOUR_COUNT)});
    for (size_t i = 0; i < NEIGHBOUR_ENTRIES; ++i)
        PutNeighbour(writer, body, NEIGHBOUR_FIRST + NEIGHBOUR_WORDS * i);
    CopyPadded(report, aucTable);
}

// Words 18, 19 of the body.
void CGasRoadTestInfoMsg::CalculateGprsStatusGasMeas(ByteView body, ByteSpan report)
{
    CByteWriter writer(report);
    PutWords(writer, body, {18, 19});
}

// Words 14 to 17 of the body.
void CGasRoadTestInfoMsg::CalculateCcchParam(ByteView body, ByteSpan report)
{
    CByteWriter writer(report);
    PutRange(writer, body, 14, 4);
}

// Words 18, 19, 20, 30, 21 of the body, u16 0.
void CGasRoadTestInfoMsg::CalculateRachParam(ByteView body, ByteSpan report)
{
    CByteWriter writer(report);
    PutWords(writer, body, {18, 19, 20, 30, 21});
}

// Words 22 to 30 of the body, u16 0.
void CGasRoadTestInfoMsg::CalculateReselectionParam(ByteView body, ByteSpan report)
{
    CByteWriter writer(report);
    PutRange(writer, body, 22, 9);
}

// Words 3, 13, 647, 2 of the body.
void CGasRoadTestInfoMsg::CalculateGprsStatusGas(ByteView body, ByteSpan report)
{
    CByteWriter writer(report);
    PutWords(writer, body, {3, 13, 647, 2});
}

// Words 7, 5, 0, 1, 31, 12 of the body, u32 MNC, u32 MCC, 16 bytes of text.
void CGasRoadTestInfoMsg::CalculateCellParam(ByteView body, ByteSpan report)
{
    CByteWriter writer(report);
    PutWords(writer, body, {CELL_ID_WORD, 5, 0, 1, 31, CELL_LAC_WORD});
    writer.Field(LoadLe<uint32_t>(body, CELL_MNC));
    writer.Field(LoadLe<uint32_t>(body, CELL_MCC));
    PutCellText(writer, body);
}

// Words 646, 2, 3, 4 of the body, u16 0, words 5, 6, 0, 1, 7.
void CGasRoadTestInfoMsg::CalculateChannel(ByteView body, ByteSpan report)
{
    CByteWriter writer(report);
    PutWords(writer, body, {646, 2, 3, 4});
    writer.Gap(WORD_SIZE);
    PutWords(writer, body, {5, 6, 0, 1, 7});
}

// Words 8, 9 of the body, 128 bytes of the list, words 74, 75.
void CGasRoadTestInfoMsg::CalculateHoppingParam(ByteView body, ByteSpan report)
{
    CByteWriter writer(report);
    PutWords(writer, body, {8, 9});
    CopyPadded(writer.Take(HOPPING_LIST_SIZE), body, HOPPING_LIST);
    PutWords(writer, body, {74, 75});
}

bool CGasRoadTestInfoMsg::IsValidPeriod(const CMsgPeriods& stPeriods, unsigned int ulPeriodMs) const
{
    return ulPeriodMs >= stPeriods.ulMinPeriod && ulPeriodMs <= stPeriods.ulMaxPeriod &&
           ulPeriodMs % m_usDefaultPeriod == 0;
}

bool CGasRoadTestInfoMsg::SendReqToUe(ByteView request)
{
    const DIAG_PACKET_REQ_VIEW stReq = ViewReq(request);
    CMsgPeriods* const pPeriods = FindPacket(ReqPacketId(stReq));
    const auto itGroup = m_mapGroup.find(ReqPacketId(stReq));
    if (!pPeriods || itGroup == m_mapGroup.end())
        return false;
    const unsigned char ucSwitch = ReqSwitch(stReq.data);
    const bool bValid =
        ucSwitch == SWITCH_OFF || (ucSwitch == SWITCH_ON && IsValidPeriod(*pPeriods, ReqPeriod(stReq.data)));
    if (!bValid) {
        Operation().BuildErrCnfPacketToClient(pPeriods->usCnfPacket, PKT_TYPE_GU_TRANS, RC_BAD_PERIOD);
        return true;
    }
    const bool bTellUe = Switch(*pPeriods, itGroup->second, stReq.data);
    Operation().BuildErrCnfPacketToClient(pPeriods->usCnfPacket, PKT_TYPE_GU_TRANS, DIAG_RC_OK);
    if (bTellUe)
        SendGroupReq(ucSwitch, itGroup->second);
    return true;
}

/// Starts and stops are counted as they come: a second start of a running packet counts again, and a stop without a
/// start takes the count below 0. Client tools stop as often as they start.
bool CGasRoadTestInfoMsg::Switch(CMsgPeriods& stPeriods, unsigned short usGroup, ByteView params)
{
    int& nCount = m_anGroupCount[usGroup];
    if (ReqSwitch(params) == SWITCH_ON) {
        stPeriods.ulPeriod = ReqPeriod(params);
        ++nCount;
        return true;
    }
    stPeriods.ulPeriod = 0;
    --nCount;
    return nCount <= 0;
}

void CGasRoadTestInfoMsg::SendGroupReq(unsigned char ucSwitch, unsigned short usGroup)
{
    std::array<unsigned char, 8> aucParams{};
    CByteWriter writer(aucParams);
    for (const unsigned short usWord :
         {static_cast<unsigned short>(ucSwitch), REPORT_BY_PERIOD, m_usDefaultPeriod, usGroup})
        writer.Field(uint16_t{usWord});
    Operation().BuildTransReqMsg(static_cast<unsigned short>(m_ulReqMsgId), aucParams, m_ulPid);
}
