#include "data/LteMeasurement.h"

#include "data/ManagerConfigInfo.h"

#include <cmath>
#include <span>

namespace
{

/// Sends the record out under the head that stOut has.
void PublishRecord(IND_OUTPUT& stOut, size_t szRecord, unsigned int& ulCount)
{
    ADE_DATA_PACKET_STRU& stPacket = stOut.astPacket[0];
    stPacket.usLen = static_cast<uint16_t>(szRecord);
    stPacket.pData = ByteSpan(stOut.aucRecord).first(szRecord);
    ulCount = 1;
}

ByteSpan ClearedRecord(IND_OUTPUT& stOut, size_t szRecord)
{
    const ByteSpan record = ByteSpan(stOut.aucRecord).first(szRecord);
    std::ranges::fill(record, static_cast<unsigned char>(0));
    return record;
}

void CopyBytes(ByteSpan record, size_t szTo, ByteView in, size_t szFrom, size_t szCount)
{
    CopyPadded(Slice(record, szTo, szCount), in, szFrom);
}

// ---- LTE ----

// Record for clients.
constexpr size_t REC_TYPE = 0;      // u16
constexpr size_t REC_CONNECTED = 2; // u8
constexpr size_t REC_DATA = 4;      // 1092 bytes
constexpr size_t REC_COUNT = 8;     // u16, part of the data of kinds 31 and 32
constexpr size_t REC_SERVING = 12;  // u64, the word of the store
constexpr size_t REC_NEIGHBOUR = 20;
// Message of the UE.
constexpr size_t MSG_KIND = 26; // u16
constexpr size_t MSG_DATA = 28;
constexpr size_t MSG_NEIGHBOUR = 36;
constexpr size_t STORE_SERVING = 32; // u64, kept from a message of kind 31

constexpr uint16_t KIND_TRIGGER = 31;
constexpr uint16_t KIND_NEIGHBOUR = 32;
constexpr uint16_t KIND_FULL = 33;
constexpr uint16_t TYPE_TRIGGER = 31;
constexpr uint16_t TYPE_NEIGHBOUR = 0x33;
constexpr uint16_t TYPE_FULL = 0x34;

constexpr size_t DATA_SIZE = LTE_MEAS_RECORD_SIZE - REC_DATA;
constexpr size_t NEIGHBOUR_HEAD_SIZE = 272;
constexpr size_t NEIGHBOUR_LIST_SIZE = 256;

void StoreTrigger(const ADE_DATA_PACKET_STRU& stIn, IDLE_MEAS_STORE& stStore, uint32_t ulElapsedMs)
{
    const ByteSpan place = Slice(ByteSpan(stStore.aucPayload), 0, stIn.pData.size());
    std::copy_n(stIn.pData.begin(), place.size(), place.begin());
    stStore.stHead = stIn;
    stStore.stHead.pData = {}; // the packet goes away
    stStore.stHead.ullTimeStamp = ulElapsedMs;
}

/// Goes out once per time-out; what it says of the serving cell comes from the message before.
unsigned int BuildTrigger(const ADE_DATA_PACKET_STRU& stIn, ByteSpan record, IDLE_MEAS_STORE& stStore,
                          const CMeasClock& clock)
{
    const uint32_t ulElapsedMs = clock.ElapsedMs();
    const bool bDue = stStore.ulTimeoutMs + stStore.stHead.ullTimeStamp < ulElapsedMs;
    if (bDue) {
        StoreLe<uint16_t>(record, REC_TYPE, TYPE_TRIGGER);
        StoreLe<uint16_t>(record, REC_COUNT, 1);
        CopyBytes(record, REC_SERVING, stStore.aucPayload, STORE_SERVING, sizeof(uint64_t));
    }
    StoreTrigger(stIn, stStore, ulElapsedMs);
    return bDue ? DIAG_RC_OK : DIAG_RC_FILTERED;
}

/// The stored word of the serving cell goes in front of the message's list of neighbours, one entry more.
void BuildNeighbour(ByteView in, ByteSpan record, const IDLE_MEAS_STORE& stStore)
{
    CopyBytes(record, REC_DATA, in, MSG_DATA, NEIGHBOUR_HEAD_SIZE);
    CopyBytes(record, REC_SERVING, stStore.aucPayload, STORE_SERVING, sizeof(uint64_t));
    CopyBytes(record, REC_NEIGHBOUR, in, MSG_NEIGHBOUR, NEIGHBOUR_LIST_SIZE);
    StoreLe<uint16_t>(record, REC_COUNT, static_cast<uint16_t>(LoadLe<uint16_t>(record, REC_COUNT) + 1));
    StoreLe<uint16_t>(record, REC_TYPE, TYPE_NEIGHBOUR);
}

void BuildFull(ByteView in, ByteSpan record)
{
    CopyBytes(record, REC_DATA, in, MSG_DATA, DATA_SIZE);
    StoreLe<uint16_t>(record, REC_TYPE, TYPE_FULL);
}

unsigned int BuildIdle(const ADE_DATA_PACKET_STRU& stIn, ByteSpan record, IDLE_MEAS_STORE& stStore,
                       const CMeasClock& clock)
{
    switch (LoadLe<uint16_t>(stIn.pData, MSG_KIND)) {
    case KIND_TRIGGER:
        return BuildTrigger(stIn, record, stStore, clock);
    case KIND_NEIGHBOUR:
        BuildNeighbour(stIn.pData, record, stStore);
        break;
    case KIND_FULL:
        BuildFull(stIn.pData, record);
        break;
    default: // goes out as zeros
        break;
    }
    return DIAG_RC_OK;
}

// ---- TDS: Cmac ----

constexpr size_t CMAC_ENTRIES_MAX = 64;
constexpr size_t CMAC_FORM = 0;  // u8
constexpr size_t CMAC_COUNT = 1; // u8, as the UE gave it
constexpr size_t CMAC_ENTRY = 4;
constexpr size_t CMAC_ENTRY_SIZE = 8;  // u16 channel, u16 cell code, u8 level, 3 bytes zero
constexpr int CMAC_LEVEL_OFFSET = 116; // dBm at level 0, negated

struct CMAC_CELL
{
    uint16_t usChannel;
    uint16_t usCellCode;
    uint8_t ucLevel;
};

void StoreCmacCell(ByteSpan record, size_t szIndex, const CMAC_CELL& stCell)
{
    const ByteSpan entry = Slice(record, CMAC_ENTRY + CMAC_ENTRY_SIZE * szIndex, CMAC_ENTRY_SIZE);
    StoreLe<uint16_t>(entry, 0, stCell.usChannel);
    StoreLe<uint16_t>(entry, 2, stCell.usCellCode);
    StoreLe<uint8_t>(entry, 4, stCell.ucLevel);
}

/// The byte there times 4 plus the next one.
uint16_t CellCode(ByteView in, size_t szOffset)
{
    return static_cast<uint16_t>(LoadLe<uint8_t>(in, szOffset) * 4 + LoadLe<uint8_t>(in, szOffset + 1));
}

/// Low byte of the mean level as an integer. A mean that no integer holds (the sum is any double) gives 0.
uint8_t MeanLevel(double dSum, unsigned int ulSamples)
{
    const double dLevel = std::trunc(dSum / ulSamples - CMAC_LEVEL_OFFSET);
    constexpr double INT_END = 2147483648.0;
    if (!(dLevel >= -INT_END && dLevel < INT_END))
        return 0;
    return static_cast<uint8_t>(static_cast<int32_t>(dLevel));
}

/// Cells with their samples summed up. One cell without a sample drops the whole message.
unsigned int BuildCmacSums(ByteView in, ByteSpan record)
{
    constexpr size_t COUNT = 26, CHANNEL = 28, CELL = 30, SAMPLES = 32, SUM = 36, STEP = 36;
    const auto ucCount = LoadLe<uint8_t>(in, COUNT);
    StoreLe<uint8_t>(record, CMAC_FORM, 1);
    StoreLe<uint8_t>(record, CMAC_COUNT, ucCount);
    for (size_t i = 0; i < std::min<size_t>(ucCount, CMAC_ENTRIES_MAX); ++i) {
        const auto ucSamples = LoadLe<uint8_t>(in, SAMPLES + STEP * i);
        if (ucSamples == 0)
            return DIAG_RC_FILTERED;
        const double dSum = std::bit_cast<double>(LoadLe<uint64_t>(in, SUM + STEP * i));
        StoreCmacCell(
            record, i,
            {LoadLe<uint16_t>(in, CHANNEL + STEP * i), CellCode(in, CELL + STEP * i), MeanLevel(dSum, ucSamples)});
    }
    return DIAG_RC_OK;
}

/// Cells and their levels in lists of their own.
void BuildCmacLists(ByteView in, ByteSpan record)
{
    constexpr size_t COUNT = 24, CHANNEL = 26, CELL = 28, STEP = 4, LEVEL = 282;
    const auto ucCount = LoadLe<uint8_t>(in, COUNT);
    StoreLe<uint8_t>(record, CMAC_COUNT, ucCount);
    for (size_t i = 0; i < std::min<size_t>(ucCount, CMAC_ENTRIES_MAX); ++i)
        StoreCmacCell(record, i,
                      {LoadLe<uint16_t>(in, CHANNEL + STEP * i), CellCode(in, CELL + STEP * i),
                       static_cast<uint8_t>(LoadLe<uint8_t>(in, LEVEL + i) - CMAC_LEVEL_OFFSET)});
}

// ---- TDS: groups of words ----

/// usCount u16 of a record in a row, and where the first of them stands in the message.
struct WORDS
{
    uint16_t usTo;
    uint16_t usFrom;
    uint16_t usCount;
};

/// A record of groups: offsets of the first group and its first entry, and the steps from one to the next. The
/// word at 28 of the message opens every group.
struct GROUP_LAYOUT
{
    size_t szGroups, szToStep, szFromStep;
    std::span<const WORDS> group; // once a group
    size_t szEntries, szEntryStep;
    std::span<const WORDS> entry; // once for each entry of a group
};

constexpr size_t GROUP_HEAD_TO = 4;
constexpr size_t GROUP_HEAD_FROM = 28;
constexpr size_t RECORD_FLAG = 2; // u8

// clang-format off
constexpr WORDS c_astLtGroup[] = {{8, 32, 1}, {10, 34, 1}};
constexpr WORDS c_astLtEntry[] = {{12, 36, 4}};
constexpr GROUP_LAYOUT LT_LAYOUT = {4, 264, 260, c_astLtGroup, 32, 8, c_astLtEntry};

// The words at 36 of a group and at 42 of an entry are left out: client tools expect zeros there.
constexpr WORDS c_astTlGroup[] = {{8, 32, 1}, {10, 34, 1}, {14, 38, 1}};
constexpr WORDS c_astTlEntry[] = {{16, 40, 1}, {20, 44, 1}, {22, 46, 1}};
constexpr GROUP_LAYOUT TL_LAYOUT = {3, 268, 264, c_astTlGroup, 32, 8, c_astTlEntry};

constexpr WORDS c_astGtGroup[] = {{8, 32, 1}, {10, 34, 1}, {12, 36, 1}};
constexpr GROUP_LAYOUT GT_LAYOUT = {32, 12, 8, c_astGtGroup, 0, 0, {}};

constexpr WORDS c_astTgGroup[] = {{8, 32, 1}, {10, 34, 1}, {14, 38, 1}};
constexpr WORDS c_astTgEntry[] = {{16, 40, 2}};
constexpr GROUP_LAYOUT TG_LAYOUT = {9, 140, 136, c_astTgGroup, 32, 4, c_astTgEntry};
// clang-format on

void CopyWords(ByteSpan record, size_t szTo, ByteView in, size_t szFrom, std::span<const WORDS> rows)
{
    for (const WORDS& stRow : rows)
        CopyBytes(record, szTo + stRow.usTo, in, szFrom + stRow.usFrom, 2 * size_t{stRow.usCount});
}

void CopyGroups(ByteSpan record, ByteView in, const GROUP_LAYOUT& stLayout)
{
    for (size_t k = 0; k < stLayout.szGroups; ++k) {
        const size_t szTo = stLayout.szToStep * k;
        const size_t szFrom = stLayout.szFromStep * k;
        CopyBytes(record, szTo + GROUP_HEAD_TO, in, GROUP_HEAD_FROM, 2);
        CopyWords(record, szTo, in, szFrom, stLayout.group);
        for (size_t j = 0; j < stLayout.szEntries; ++j)
            CopyWords(record, szTo + stLayout.szEntryStep * j, in, szFrom + stLayout.szEntryStep * j, stLayout.entry);
    }
}

/// A record that comes under two ids. The message of the first has the flag; that of the second goes out under the
/// id of the first.
unsigned int BuildPaired(const ADE_DATA_PACKET_STRU& stIn, ADE_DATA_PACKET_STRU& stHead, ByteSpan record,
                         const GROUP_LAYOUT& stLayout, unsigned int ulFirstPos)
{
    const unsigned int ulPos = ManagerConfigInfo::GetTdsMeasMsgPos(stIn.ulCmdId);
    if (ulPos != ulFirstPos && ulPos != ulFirstPos + 1)
        return DIAG_RC_FILTERED;
    if (ulPos == ulFirstPos)
        StoreLe<uint8_t>(record, RECORD_FLAG, 1);
    else
        stHead.ulCmdId = ManagerConfigInfo::GetTdsMeasMsgId(ulFirstPos);
    CopyGroups(record, stIn.pData, stLayout);
    return DIAG_RC_OK;
}

/// A record that comes under one id and keeps it.
unsigned int BuildSingle(const ADE_DATA_PACKET_STRU& stIn, ByteSpan record, const GROUP_LAYOUT& stLayout,
                         unsigned int ulPos)
{
    if (ManagerConfigInfo::GetTdsMeasMsgPos(stIn.ulCmdId) != ulPos)
        return DIAG_RC_FILTERED;
    CopyGroups(record, stIn.pData, stLayout);
    return DIAG_RC_OK;
}

struct TDS_ROW
{
    unsigned int (*pfnBuild)(const ADE_DATA_PACKET_STRU&, ADE_DATA_PACKET_STRU&, ByteSpan);
    size_t szRecord;
};

// Tried in this order. Names of the records, as clients know them, at the right.
constexpr TDS_ROW c_astTdsRow[] = {
    {&DoPaketCmacMeasIndMsg, 516}, // DIAG_H_T_CMAC_DCH_MEAS_IND_STRU, positions 0, 1, 2
    {&DoPaketLTMeasIndMsg, 1060},  // DIAG_LRRC_TRRC_MEASURE_IND_STRU, positions 3, 4
    {&DoPaketTLMeasIndMsg, 808},   // DIAG_TRRC_LRRC_MEASURE_IND_STRU, positions 5, 6
    {&DoPaketLGMeasIndMsg, 1060},  // DIAG_LRRC_GRR_MEASURE_IND_STRU, positions 9, 10
    {&DoPaketGTMeasIndMsg, 388},   // DIAG_GRR_TRRC_MEASURE_IND_STRU, position 7
    {&DoPaketTGMeasIndMsg, 1264},  // DIAG_TRRC_GRR_MEASURE_IND_STRU, position 8
};
static_assert(std::ranges::max(c_astTdsRow, {}, &TDS_ROW::szRecord).szRecord == MEAS_RECORD_MAX);

} // namespace

uint32_t CMeasClock::ElapsedMs() const
{
    const timeval stNow = m_pfnNow();
    const int64_t llMs =
        (int64_t{stNow.tv_sec} - m_stStart.tv_sec) * 1000 + (int64_t{stNow.tv_usec} - m_stStart.tv_usec) / 1000;
    return static_cast<uint32_t>(llMs);
}

timeval CMeasClock::TimeOfDay()
{
    timeval stNow{};
    gettimeofday(&stNow, nullptr);
    return stNow;
}

unsigned int DoPacketMeasConnectedIn(const ADE_DATA_PACKET_STRU& stIn, IND_OUTPUT& stOut, unsigned int& ulCount)
{
    if (stIn.pData.data() == nullptr)
        return DIAG_RC_OK;
    const ByteSpan record = ClearedRecord(stOut, LTE_MEAS_RECORD_SIZE);
    CopyBytes(record, REC_TYPE, stIn.pData, MSG_KIND, sizeof(uint16_t));
    StoreLe<uint8_t>(record, REC_CONNECTED, 1);
    CopyBytes(record, REC_DATA, stIn.pData, MSG_DATA, DATA_SIZE);
    stOut.astPacket[0] = stIn;
    PublishRecord(stOut, record.size(), ulCount);
    return DIAG_RC_OK;
}

unsigned int DoPacketMeasIdleIn(const ADE_DATA_PACKET_STRU& stIn, IND_OUTPUT& stOut, unsigned int& ulCount,
                                IDLE_MEAS_STORE& stStore, const CMeasClock& clock)
{
    const ByteSpan record = ClearedRecord(stOut, LTE_MEAS_RECORD_SIZE);
    const unsigned int ulRc = BuildIdle(stIn, record, stStore, clock);
    if (ulRc != DIAG_RC_OK)
        return ulRc;
    stOut.astPacket[0] = stIn;
    PublishRecord(stOut, record.size(), ulCount);
    return DIAG_RC_OK;
}

unsigned int DoPaketTdsMeasIn(const ADE_DATA_PACKET_STRU& stIn, IND_OUTPUT& stOut, unsigned int& ulCount)
{
    ADE_DATA_PACKET_STRU& stHead = stOut.astPacket[0];
    stHead = stIn; // the system mode too: client tools expect such a record without the TDS mark
    for (const TDS_ROW& stRow : c_astTdsRow) {
        if (stRow.pfnBuild(stIn, stHead, ClearedRecord(stOut, stRow.szRecord)) != DIAG_RC_OK)
            continue;
        PublishRecord(stOut, stRow.szRecord, ulCount);
        return DIAG_RC_OK;
    }
    return DIAG_RC_FILTERED;
}

unsigned int DoPaketCmacMeasIndMsg(const ADE_DATA_PACKET_STRU& stIn, ADE_DATA_PACKET_STRU& stHead, ByteSpan record)
{
    const unsigned int ulPos = ManagerConfigInfo::GetTdsMeasMsgPos(stIn.ulCmdId);
    if (ulPos == 0)
        return BuildCmacSums(stIn.pData, record);
    if (ulPos != 1 && ulPos != 2)
        return DIAG_RC_FILTERED;
    BuildCmacLists(stIn.pData, record);
    stHead.ulCmdId = ManagerConfigInfo::GetTdsMeasMsgId(0);
    return DIAG_RC_OK;
}

unsigned int DoPaketLTMeasIndMsg(const ADE_DATA_PACKET_STRU& stIn, ADE_DATA_PACKET_STRU& stHead, ByteSpan record)
{
    return BuildPaired(stIn, stHead, record, LT_LAYOUT, 3);
}

unsigned int DoPaketTLMeasIndMsg(const ADE_DATA_PACKET_STRU& stIn, ADE_DATA_PACKET_STRU& stHead, ByteSpan record)
{
    return BuildPaired(stIn, stHead, record, TL_LAYOUT, 5);
}

unsigned int DoPaketLGMeasIndMsg(const ADE_DATA_PACKET_STRU& stIn, ADE_DATA_PACKET_STRU& stHead, ByteSpan record)
{
    return BuildPaired(stIn, stHead, record, LT_LAYOUT, 9);
}

unsigned int DoPaketGTMeasIndMsg(const ADE_DATA_PACKET_STRU& stIn, ADE_DATA_PACKET_STRU& /*stHead*/, ByteSpan record)
{
    return BuildSingle(stIn, record, GT_LAYOUT, 7);
}

unsigned int DoPaketTGMeasIndMsg(const ADE_DATA_PACKET_STRU& stIn, ADE_DATA_PACKET_STRU& /*stHead*/, ByteSpan record)
{
    return BuildSingle(stIn, record, TG_LAYOUT, 8);
}
