#include "data/gu/report/MsgProcessGdsp.h"

#include "data/gu/base/Percent.h"
#include "data/gu/base/RecordList.h"
#include "data/gu/report/ReportOperation.h"
#include "data/gu/report/ReportRecords.h"

#include <optional>

namespace
{
constexpr unsigned short PACKET_CELL_LIST = 0xE52C;
constexpr unsigned short PACKET_CELL_MINIMUM = 0xE506;
constexpr unsigned short PACKET_BA_LIST = 0xE529;
constexpr unsigned short PACKET_ADJACENT = 0xE530;
constexpr unsigned short PACKET_CS_TX = 0xE503;
constexpr unsigned short PACKET_CS_FER = 0xE509;
constexpr unsigned short PACKET_DSC = 0xE50C;

unsigned short Word(ByteView bytes, size_t szIndex)
{
    return LoadLe<uint16_t>(bytes, 2 * szIndex);
}

// Cells: u16 count, then entries of 8 bytes.
constexpr size_t CELL_FIRST = 2;
constexpr size_t CELL_SIZE = 8;
constexpr size_t CELL_ID = 0;    // u16 in an entry
constexpr size_t CELL_VALUE = 4; // u16 in an entry
constexpr size_t CELL_MAX = 64;
constexpr size_t HISTORY_MAX = 10; // indications

unsigned short CellCount(ByteView payload)
{
    return LoadLe<uint16_t>(payload, 0);
}
template <class Byte> std::span<Byte> Cell(std::span<Byte> payload, size_t szIndex)
{
    return Slice(payload, CELL_FIRST + szIndex * CELL_SIZE, CELL_SIZE);
}
unsigned short CellId(ByteView cell)
{
    return LoadLe<uint16_t>(cell, CELL_ID);
}
unsigned short CellValue(ByteView cell)
{
    return LoadLe<uint16_t>(cell, CELL_VALUE);
}

/// The value of the first cell with that id.
std::optional<unsigned short> FindCell(ByteView payload, unsigned short usId)
{
    for (size_t i = 0; i < CellCount(payload); ++i)
        if (CellId(Cell(payload, i)) == usId)
            return CellValue(Cell(payload, i));
    return std::nullopt;
}

// BA list.
constexpr size_t BA_SERVING_LEVEL = 2; // u16; the serving channel stands at 0
constexpr size_t BA_COUNT = 8;         // u16
constexpr size_t BA_FIRST = 12;        // entries: u16 channel, u16 first and second value, u16 -
constexpr size_t BA_SIZE = 8;
constexpr size_t BA_MAX = 32;

// A channel word: band in bits 12 to 15, ARFCN below.
constexpr unsigned int ARFCN_BITS = 12;
constexpr unsigned int ARFCN_MASK = 0x0FFF;
constexpr unsigned int ARFCN_WRAP = 1024; // of band 1
constexpr unsigned int BAND_THAT_WRAPS = 1;

ByteView BaEntry(ByteView payload, size_t szIndex)
{
    return Slice(payload, BA_FIRST + szIndex * BA_SIZE, BA_SIZE);
}

/// The channel words at ARFCN -2, -1, +1 and +2. Only band 1 wraps, and its lower two only below ARFCN 2.
std::array<unsigned short, 4> AdjacentChannels(unsigned short usServing)
{
    const unsigned int ulArfcn = usServing & ARFCN_MASK;
    const unsigned int ulBand = usServing >> ARFCN_BITS;
    std::array<unsigned int, 4> aulArfcn = {ulArfcn - 2, ulArfcn - 1, ulArfcn + 1, ulArfcn + 2};
    if (ulBand == BAND_THAT_WRAPS) {
        if (ulArfcn < 2) {
            aulArfcn[0] = (ulArfcn + 1022) % ARFCN_WRAP;
            aulArfcn[1] = (ulArfcn + 1023) % ARFCN_WRAP;
        }
        aulArfcn[2] %= ARFCN_WRAP;
        aulArfcn[3] %= ARFCN_WRAP;
    }
    std::array<unsigned short, 4> ausChannel{};
    for (size_t i = 0; i < ausChannel.size(); ++i)
        ausChannel[i] = static_cast<unsigned short>((aulArfcn[i] & ARFCN_MASK) | ulBand << ARFCN_BITS);
    return ausChannel;
}

/// The first value of the first entry of that channel.
std::optional<unsigned short> FindChannel(ByteView payload, unsigned short usChannel)
{
    for (size_t i = 0; i < LoadLe<uint16_t>(payload, BA_COUNT); ++i)
        if (Word(BaEntry(payload, i), 0) == usChannel)
            return Word(BaEntry(payload, i), 1);
    return std::nullopt;
}

// The two forms of the transmit info, in bytes of payload.
constexpr size_t TX_SHORT_LEN = 8;
constexpr size_t TX_LONG_LEN = 16;
constexpr unsigned int TX_VALUES = 4; // words 2 to 5 of the long form
constexpr unsigned int TX_UNIT = 10;

struct TX_INFO
{
    unsigned short usFirst;
    unsigned short usMean;
    unsigned short usLast;
};

/// Mean of the first values, of which there are at most four, though the divisor is the count as it stands: client
/// tools know the figure so.
unsigned short TxMean(ByteView payload)
{
    const unsigned int ulCount = Word(payload, 1);
    unsigned int ulSum = 0;
    for (size_t i = 0; i < std::min(ulCount, TX_VALUES); ++i)
        ulSum += Word(payload, 2 + i);
    return static_cast<unsigned short>(ulCount == 0 ? 0 : ulSum / ulCount / TX_UNIT);
}

std::optional<TX_INFO> ReadTxInfo(ByteView payload, size_t szLen)
{
    if (szLen == TX_SHORT_LEN)
        return TX_INFO{Word(payload, 0), static_cast<unsigned short>(Word(payload, 1) / TX_UNIT), Word(payload, 2)};
    if (szLen == TX_LONG_LEN)
        return TX_INFO{Word(payload, 0), TxMean(payload), Word(payload, 6)};
    return std::nullopt;
}
} // namespace

std::vector<unsigned char> CGphyMsgProcess::UeReqParams(const DIAG_PACKET_REQ_VIEW& stReq) const
{
    return {ReqSwitch(stReq.data), 0, 0, 0};
}

bool CGsmCellSnrMsg::ProcessInd(ByteView packet)
{
    const ByteView payload = GuPayload(packet);
    if (CellCount(payload) > CELL_MAX)
        return false;
    PushElem(payload);
    std::array<unsigned char, CELL_FIRST + CELL_MAX * CELL_SIZE> aucCells{};
    CopyPadded(aucCells, payload);
    SmoothData(aucCells);
    ReportCells(aucCells, GuTimeStamp(packet));
    ReportMinimum(aucCells, GuTimeStamp(packet));
    return true;
}

bool CGsmCellSnrMsg::ProcessCnf(ByteView)
{
    ClearQueue();
    return true;
}

void CGsmCellSnrMsg::PushElem(ByteView payload)
{
    if (m_dequeHistory.size() >= HISTORY_MAX)
        m_dequeHistory.pop_front();
    m_dequeHistory.emplace_back(payload.begin(), payload.end());
}

void CGsmCellSnrMsg::SmoothData(ByteSpan payload) const
{
    for (size_t i = 0; i < CellCount(payload); ++i)
        SmoothCell(Cell(payload, i));
}

/// Adds the cell's values in the older entries, in 16 bits, and divides by their number. The cell's own value isn't
/// counted in the divisor: client tools know the figure so.
void CGsmCellSnrMsg::SmoothCell(ByteSpan cell) const
{
    unsigned short usSum = CellValue(cell);
    unsigned short usMatches = 0;
    for (size_t i = 0; i + 1 < m_dequeHistory.size(); ++i) {
        const auto usOlder = FindCell(m_dequeHistory[i], CellId(cell));
        if (!usOlder)
            continue;
        usSum = static_cast<unsigned short>(usSum + *usOlder);
        ++usMatches;
    }
    if (usMatches > 0)
        StoreLe<uint16_t>(cell, CELL_VALUE, static_cast<unsigned short>(usSum / usMatches));
}

// u32 count, then the cells with their smoothed values.
void CGsmCellSnrMsg::ReportCells(ByteView payload, unsigned int ulTimeStamp)
{
    if (!IsReportDue(PACKET_CELL_LIST, ulTimeStamp))
        return;
    std::array<unsigned char, 4 + CELL_MAX * CELL_SIZE> aucReport{};
    CByteWriter writer(aucReport);
    writer.Field(uint32_t{CellCount(payload)});
    const ByteView cells = Slice(payload, CELL_FIRST, CellCount(payload) * CELL_SIZE);
    writer.Bytes(cells);
    SendReport(PACKET_CELL_LIST, ulTimeStamp, Slice(ByteView(aucReport), 0, 4 + cells.size()));
}

// u32 smallest value; without cells the one at the place of the first.
void CGsmCellSnrMsg::ReportMinimum(ByteView payload, unsigned int ulTimeStamp)
{
    if (!IsReportDue(PACKET_CELL_MINIMUM, ulTimeStamp))
        return;
    unsigned short usMinimum = CellValue(Cell(payload, 0));
    for (size_t i = 1; i < CellCount(payload); ++i)
        usMinimum = std::min(usMinimum, CellValue(Cell(payload, i)));
    std::array<unsigned char, 4> aucReport{};
    StoreLe<uint32_t>(aucReport, 0, usMinimum);
    SendReport(PACKET_CELL_MINIMUM, ulTimeStamp, aucReport);
}

bool CBaListMeasMsg::ProcessInd(ByteView packet)
{
    const ByteView payload = GuPayload(packet);
    if (LoadLe<uint16_t>(payload, BA_COUNT) > BA_MAX)
        return false;
    ReportList(payload, GuTimeStamp(packet));
    ReportAdjacent(payload, GuTimeStamp(packet));
    return true;
}

// A record for each entry; always 32 places.
void CBaListMeasMsg::ReportList(ByteView payload, unsigned int ulTimeStamp)
{
    if (!IsReportDue(PACKET_BA_LIST, ulTimeStamp))
        return;
    std::array<unsigned char, BA_MAX * BA_Channel_STRU::SIZE> aucReport{};
    CByteWriter writer(aucReport);
    for (size_t i = 0; i < LoadLe<uint16_t>(payload, BA_COUNT); ++i) {
        const ByteView entry = BaEntry(payload, i);
        const BA_Channel_STRU stChannel = {static_cast<uint16_t>(Word(entry, 0) & ARFCN_MASK),
                                           static_cast<uint16_t>(Word(entry, 0) >> ARFCN_BITS), Word(entry, 1),
                                           Word(entry, 2)};
        BA_Channel_STRU::Fields(writer, stChannel);
    }
    SendReport(PACKET_BA_LIST, ulTimeStamp, aucReport);
}

// For each of the four channels u16 level, u16 serving level less that level; 0, 0 for one that isn't in the list.
void CBaListMeasMsg::ReportAdjacent(ByteView payload, unsigned int ulTimeStamp)
{
    if (!IsReportDue(PACKET_ADJACENT, ulTimeStamp))
        return;
    const unsigned short usServingLevel = LoadLe<uint16_t>(payload, BA_SERVING_LEVEL);
    std::array<unsigned char, 16> aucReport{};
    CByteWriter writer(aucReport);
    for (const unsigned short usChannel : AdjacentChannels(Word(payload, 0))) {
        const auto usLevel = FindChannel(payload, usChannel);
        writer.Field(uint16_t{usLevel.value_or(0)});
        writer.Field(static_cast<uint16_t>(usLevel ? usServingLevel - *usLevel : 0));
    }
    SendReport(PACKET_ADJACENT, ulTimeStamp, aucReport);
}

bool CCsTxInfoMsg::ProcessInd(ByteView packet)
{
    if (!IsReportDue(PACKET_CS_TX, GuTimeStamp(packet)))
        return true;
    const auto stInfo = ReadTxInfo(GuPayload(packet), GuPacketSize(packet) - GU_PAYLOAD);
    if (!stInfo)
        return false;
    SendReport(PACKET_CS_TX, GuTimeStamp(packet),
               EncodeRecord<CS_Tx_STRU>({stInfo->usFirst, stInfo->usMean, stInfo->usLast}));
    return true;
}

// From four u32 counters. Nothing guards a divisor of 0: client tools take infinity and NaN for nothing counted.
bool CCsFerMsg::ProcessInd(ByteView packet)
{
    if (!IsReportDue(PACKET_CS_FER, GuTimeStamp(packet)))
        return true;
    const ByteView payload = GuPayload(packet);
    const CS_Fer_STRU stRec = {Percent(LoadLe<uint32_t>(payload, 0), LoadLe<uint32_t>(payload, 4)),
                               Percent(LoadLe<uint32_t>(payload, 8), LoadLe<uint32_t>(payload, 12))};
    SendReport(PACKET_CS_FER, GuTimeStamp(packet), EncodeRecord(stRec));
    return true;
}

// A 16-bit of the UE as u32.
bool CGetCurrentDscMsg::ProcessInd(ByteView packet)
{
    if (!IsReportDue(PACKET_DSC, GuTimeStamp(packet)))
        return true;
    std::array<unsigned char, 4> aucReport{};
    StoreLe<uint32_t>(aucReport, 0, Word(GuPayload(packet), 0));
    SendReport(PACKET_DSC, GuTimeStamp(packet), aucReport);
    return true;
}
