#include "uesim/GuMessages.h"

#include "common/Bytes.h"

#include <algorithm>

namespace
{
void Put8(GuPayload& payload, size_t szOffset, unsigned int ulValue)
{
    StoreLe<uint8_t>(payload, szOffset, static_cast<uint8_t>(ulValue));
}
void Put16(GuPayload& payload, size_t szOffset, unsigned int ulValue)
{
    StoreLe<uint16_t>(payload, szOffset, static_cast<uint16_t>(ulValue));
}
void Put32(GuPayload& payload, size_t szOffset, unsigned int ulValue)
{
    StoreLe<uint32_t>(payload, szOffset, ulValue);
}
void Put64(GuPayload& payload, size_t szOffset, uint64_t ullValue)
{
    StoreLe<uint64_t>(payload, szOffset, ullValue);
}

/// A value that climbs from ulLow to ulHigh and falls back, one step a round.
unsigned int Wave(unsigned int ulRound, unsigned int ulLow, unsigned int ulHigh)
{
    const unsigned int ulSpan = ulHigh - ulLow;
    const unsigned int ulPhase = ulRound % (2 * ulSpan);
    return ulLow + (ulPhase <= ulSpan ? ulPhase : 2 * ulSpan - ulPhase);
}

// ---- GSM physical layer

GuPayload CellSnr(unsigned int ulRound, const UE_IDENTITY&)
{
    const unsigned int ulCells = Wave(ulRound, 4, 8);
    GuPayload payload(2 + 8 * ulCells, 0);
    Put16(payload, 0, ulCells);
    for (unsigned int i = 0; i < ulCells; ++i) {
        Put16(payload, 2 + 8 * i, 20 + 3 * i);
        Put16(payload, 6 + 8 * i, Wave(ulRound + 7 * i, 200, 260));
    }
    return payload;
}

GuPayload BaListMeas(unsigned int ulRound, const UE_IDENTITY&)
{
    constexpr unsigned int BAND = 1 << 12;
    constexpr unsigned int CELLS = 6;
    const unsigned int ulServing = Wave(ulRound, 30, 90);
    GuPayload payload(12 + 8 * CELLS, 0);
    Put16(payload, 0, BAND | ulServing);
    Put16(payload, 2, Wave(ulRound, 60, 90));
    Put16(payload, 8, CELLS);
    for (unsigned int i = 0; i < CELLS; ++i) { // the neighbours on both sides, the serving channel left out
        Put16(payload, 12 + 8 * i, BAND | (ulServing + i - (i < 3 ? 3 : 2)));
        Put16(payload, 14 + 8 * i, Wave(ulRound + 5 * i, 50, 80));
        Put16(payload, 16 + 8 * i, Wave(ulRound + 3 * i, 0, 63));
    }
    return payload;
}

GuPayload AmrSetting(unsigned int ulRound, const UE_IDENTITY&)
{
    GuPayload payload(24, 0);
    Put16(payload, 0, 2 + ulRound % 3);
    for (unsigned int i = 0; i < 4; ++i)
        Put16(payload, 4 + 2 * i, 2 * i + ulRound % 2);
    for (unsigned int i = 0; i < 3; ++i) {
        Put16(payload, 12 + 2 * i, 2 + i);
        Put16(payload, 18 + 2 * i, Wave(ulRound, 10, 20) + 8 * i);
    }
    return payload;
}

GuPayload AmrCodecUsage(unsigned int ulRound, const UE_IDENTITY&)
{
    GuPayload payload(44, 0);
    Put16(payload, 0, 4);
    for (unsigned int i = 0; i < 4; ++i) {
        Put16(payload, 4 + 2 * i, 2 * i);
        Put32(payload, 12 + 4 * i, ulRound * (i + 1) + 10);
        Put32(payload, 28 + 4 * i, ulRound * (4 - i) + 20);
    }
    return payload;
}

GuPayload AmrCodecStat(unsigned int ulRound, const UE_IDENTITY&)
{
    GuPayload payload(128, 0);
    for (unsigned int i = 0; i < 32; ++i)
        Put32(payload, 4 * i, 5 + ulRound * (1 + i % 8) + i / 8);
    return payload;
}

/// Both forms in turn: four words, and eight with up to four powers.
GuPayload CsTxInfo(unsigned int ulRound, const UE_IDENTITY&)
{
    const bool bLong = ulRound % 2 == 1;
    GuPayload payload(bLong ? 16 : 8, 0);
    Put16(payload, 0, Wave(ulRound, 0, 63));
    Put16(payload, 2, bLong ? 4 : Wave(ulRound, 50, 330));
    for (unsigned int i = 0; bLong && i < 4; ++i)
        Put16(payload, 4 + 2 * i, Wave(ulRound + i, 50, 330));
    Put16(payload, bLong ? 12 : 4, Wave(ulRound, 5, 15));
    return payload;
}

GuPayload CsFer(unsigned int ulRound, const UE_IDENTITY&)
{
    GuPayload payload(16, 0);
    Put32(payload, 0, Wave(ulRound, 0, 20));
    Put32(payload, 4, 480);
    Put32(payload, 8, Wave(ulRound + 10, 0, 12));
    Put32(payload, 12, 480);
    return payload;
}

GuPayload CurrentDsc(unsigned int ulRound, const UE_IDENTITY&)
{
    GuPayload payload(4, 0);
    Put16(payload, 0, Wave(ulRound, 0, 45));
    return payload;
}

// ---- GAS road test: a word, the kind, and a body of 16-bit words

constexpr size_t GAS_BODY = 4;

GuPayload GasBody(unsigned int ulKind, size_t szWords, unsigned int ulRound)
{
    GuPayload payload(GAS_BODY + 2 * szWords, 0);
    Put16(payload, 2, ulKind);
    for (size_t i = 0; i < szWords; ++i)
        Put16(payload, GAS_BODY + 2 * i, static_cast<unsigned int>(i) + ulRound % 50);
    return payload;
}

void GasWord(GuPayload& payload, size_t szWord, unsigned int ulValue)
{
    Put16(payload, GAS_BODY + 2 * szWord, ulValue);
}

GuPayload GasMeasResult(unsigned int ulRound, const UE_IDENTITY&)
{
    constexpr unsigned int WORDS = 70 + 6 * 96;
    GuPayload payload = GasBody(0, WORDS, ulRound);
    GasWord(payload, 10, Wave(ulRound, 0, 20)); // two error rates as count and total
    GasWord(payload, 11, 100);
    GasWord(payload, 12, Wave(ulRound, 5, 30));
    GasWord(payload, 13, ulRound % 10 == 9 ? 0xFFFF : 104);
    GasWord(payload, 20, Wave(ulRound, 1, 6));             // GSM cells
    GasWord(payload, 21, 2);                               // 3G cells
    GasWord(payload, 74, 0x10000 - Wave(ulRound, 20, 60)); // a negative level
    return payload;
}

GuPayload GasServingCell(unsigned int ulRound, const UE_IDENTITY&)
{
    GuPayload payload = GasBody(1, 648, ulRound);
    Put32(payload, GAS_BODY + 16, 460); // MCC
    Put32(payload, GAS_BODY + 20, ulRound % 3);
    GasWord(payload, 12, 1000 + ulRound % 8000);
    GasWord(payload, 7, 5678);
    return payload;
}

GuPayload GasChannel(unsigned int ulRound, const UE_IDENTITY&)
{
    return GasBody(2, 648, ulRound);
}

// ---- NAS

GuPayload NasStatus(unsigned int ulRound, const UE_IDENTITY& stIdentity)
{
    constexpr size_t IMEI = 37;
    GuPayload payload(288, 0);
    Put8(payload, 15, 1 + ulRound % 2);
    StoreText(Slice(ByteSpan(payload), IMEI, 16), stIdentity.strImei);
    Put8(payload, 284, ulRound % 4);
    return payload;
}

GuPayload NasData(unsigned int ulRound, const UE_IDENTITY&)
{
    GuPayload payload(28, 0);
    for (unsigned int i = 0; i < 7; ++i)
        Put32(payload, 4 * i, ulRound * 1200 * (i + 1));
    return payload;
}

GuPayload NasPdpContext(unsigned int ulRound, const UE_IDENTITY&)
{
    constexpr size_t STRIDE = 120;
    const unsigned int ulContexts = 1 + ulRound % 11;
    GuPayload payload(4 + STRIDE * ulContexts, 0);
    Put32(payload, 0, ulContexts);
    for (unsigned int i = 0; i < ulContexts; ++i) {
        const size_t szAt = 4 + STRIDE * i;
        for (const size_t szByte : {0U, 4U, 5U, 6U, 8U})
            Put8(payload, szAt + szByte, static_cast<unsigned int>(szByte) + i + 1);
        StoreText(Slice(ByteSpan(payload), szAt + 9, 101), "internet" + std::to_string(i));
        Put32(payload, szAt + 112, 0x0100000A + (i << 24)); // 10.0.0.x
    }
    return payload;
}

GuPayload NasPdpQos(unsigned int ulRound, const UE_IDENTITY&)
{
    GuPayload payload(8, 0);
    for (unsigned int i = 0; i < 8; ++i)
        Put8(payload, i, i + ulRound % 16);
    return payload;
}

// ---- packet data stack

/// Bit 7 is timeslot 0.
unsigned int TimeslotMask(unsigned int ulRound)
{
    return ulRound % 4 == 3 ? 0x3C : 0x18;
}

/// CS 1 to 4, then MCS 1 to 9.
unsigned int CodingScheme(unsigned int ulRound)
{
    const unsigned int ulStep = ulRound % 13;
    return ulStep < 4 ? ulStep : 0x1000 + ulStep - 4;
}

GuPayload GrmMntnInfo(unsigned int ulRound, const UE_IDENTITY&)
{
    GuPayload payload(32, 0);
    Put32(payload, 0, ulRound);
    Put8(payload, 10, 0x10);
    Put16(payload, 14, CodingScheme(ulRound + 4));
    Put8(payload, 16, Wave(ulRound, 1, 31));
    Put8(payload, 20, TimeslotMask(ulRound));
    Put16(payload, 24, CodingScheme(ulRound));
    Put8(payload, 28, Wave(ulRound, 0, 15));
    return payload;
}

/// Six radio bearers, of which two or three are active; the counters grow.
GuPayload RlcStatistics(unsigned int ulRound, const UE_IDENTITY&)
{
    constexpr size_t STRIDE = 116;
    GuPayload payload(6 * STRIDE, 0);
    for (unsigned int i = 0; i < 6; ++i) {
        const size_t szAt = STRIDE * i;
        const unsigned int ulCount = ulRound * (i + 1);
        Put8(payload, szAt, i < 2 + ulRound % 2 ? 1 : 0);
        Put8(payload, szAt + 1, 5 + i);
        Put64(payload, szAt + 8, uint64_t{ulCount} * 4000);
        Put64(payload, szAt + 16, uint64_t{ulCount} * 3900);
        Put32(payload, szAt + 24, ulCount * 100);
        Put32(payload, szAt + 28, ulCount * 3);
        Put64(payload, szAt + 76, uint64_t{ulCount} * 40000);
        Put64(payload, szAt + 84, uint64_t{ulCount} * 39500);
        Put32(payload, szAt + 92, ulCount * 7);
        Put32(payload, szAt + 96, ulCount * 900);
        Put32(payload, szAt + 100, ulCount * 11);
    }
    return payload;
}

// ---- W cells, neighbours, BLER

GuPayload Bler(unsigned int ulRound, const UE_IDENTITY&)
{
    GuPayload payload(24, 0);
    for (unsigned int i = 0; i < 6; ++i)
        Put32(payload, 4 * i, Wave(ulRound + i, 0, 100));
    return payload;
}

/// szHead bytes, then entries of szStride bytes, 16-bit words with changing values.
GuPayload Cells(size_t szHead, size_t szStride, unsigned int ulCells, unsigned int ulRound)
{
    GuPayload payload(szHead + szStride * ulCells, 0);
    for (size_t i = szHead; i + 1 < payload.size(); i += 2)
        Put16(payload, i, Wave(ulRound + static_cast<unsigned int>(i), 10, 120));
    return payload;
}

GuPayload WCells(unsigned int ulRound, const UE_IDENTITY&)
{
    const unsigned int ulCells = Wave(ulRound, 1, 6);
    GuPayload payload = Cells(8, 24, ulCells, ulRound);
    Put16(payload, 6, ulCells);
    return payload;
}

GuPayload WCellsThird(unsigned int ulRound, const UE_IDENTITY&)
{
    const unsigned int ulFirst = 1 + ulRound % 2;
    GuPayload payload = Cells(12, 24, ulFirst + 2, ulRound);
    Put8(payload, 6, ulFirst);
    Put8(payload, 7, 2);
    return payload;
}

GuPayload GsmNeighbours(unsigned int ulRound, const UE_IDENTITY&)
{
    const unsigned int ulCells = Wave(ulRound, 2, 8);
    GuPayload payload = Cells(4, 20, ulCells, ulRound);
    Put16(payload, 2, ulCells);
    return payload;
}

GuPayload LteNeighbours(unsigned int ulRound, const UE_IDENTITY&)
{
    const unsigned int ulCells = Wave(ulRound, 1, 5);
    GuPayload payload = Cells(4, 12, ulCells, ulRound);
    Put16(payload, 2, ulCells);
    return payload;
}

GuPayload WStatus(unsigned int ulRound, const UE_IDENTITY&)
{
    return Cells(0, 24, 1, ulRound);
}
GuPayload WWord(unsigned int ulRound, const UE_IDENTITY&)
{
    return Cells(0, 4, 1, ulRound);
}

// ---- traces

/// A trace with its byte count at one place.
template <size_t At> GuPayload ByteCount(unsigned int ulRound, const UE_IDENTITY&)
{
    GuPayload payload(64, 0);
    Put16(payload, At, 400 + 100 * (ulRound % 10));
    return payload;
}

GuPayload RlcDlBlocks(unsigned int ulRound, const UE_IDENTITY&)
{
    const unsigned int ulBlocks = 1 + ulRound % 4;
    GuPayload payload(32 + 8 * ulBlocks, 0);
    Put32(payload, 28, ulBlocks);
    for (unsigned int k = 0; k < ulBlocks; ++k)
        Put16(payload, 32 + 8 * k, 30 + 10 * k);
    return payload;
}

GuPayload PsCipher(unsigned int ulRound, const UE_IDENTITY&)
{
    GuPayload payload(1804, 0);
    Put8(payload, 1801, ulRound % 4);
    return payload;
}

/// Blocks on timeslots 3 and 4, which the maintenance information's second mask always holds.
GuPayload PacketData(unsigned int ulRound, const UE_IDENTITY&)
{
    constexpr unsigned int BLOCKS = 4;
    constexpr unsigned int BLOCK_WORDS = 84;
    GuPayload payload(2 * (14 + BLOCK_WORDS * BLOCKS), 0);
    Put16(payload, 22, BLOCKS);
    for (unsigned int i = 0; i < BLOCKS; ++i) {
        Put16(payload, 2 * (14 + BLOCK_WORDS * i), 3 + i % 2);
        Put16(payload, 2 * (15 + BLOCK_WORDS * i), CodingScheme(ulRound + i));
    }
    return payload;
}

constexpr size_t MAC_TRANSACTION = 22;

/// A configuration of MAC-hs. Every second one waits for the confirm of its transaction.
GuPayload MacConfig(unsigned int ulRound, const UE_IDENTITY&)
{
    constexpr unsigned int QUEUES = 3;
    constexpr size_t STRIDE = 38;
    GuPayload payload(28 + STRIDE * 8 + 8, 0);
    Put16(payload, MAC_TRANSACTION, 1 + ulRound);
    Put16(payload, 24, ulRound % 2 == 0 ? 0xFFFF : 100);
    Put8(payload, 27, QUEUES);
    for (unsigned int i = 0; i < QUEUES; ++i) {
        const size_t szAt = 28 + STRIDE * i;
        Put8(payload, szAt, i);
        Put8(payload, szAt + 1, i + 1);
        Put16(payload, szAt + 2, 50 + ulRound % 20);
        Put8(payload, szAt + 4, 16);
        Put16(payload, szAt + 6, 336);
    }
    return payload;
}

GuPayload MacConfirm(unsigned int ulRound, const UE_IDENTITY&)
{
    GuPayload payload(32, 0);
    Put16(payload, MAC_TRANSACTION, 1 + ulRound);
    return payload;
}

// clang-format off
constexpr GU_REPORT_ROW REPORTS[] = {
    {0xE600, 0xE601, 0xE602, CellSnr},
    {0xE603, 0xE604, 0xE605, BaListMeas},
    {0xE606, 0xE607, 0xE608, AmrSetting},
    {0xE609, 0xE60A, 0xE60B, AmrCodecUsage},
    {0xE60C, 0xE60D, 0xE60E, AmrCodecStat},
    {0xE60F, 0xE610, 0xE611, CsTxInfo},
    {0xE612, 0xE613, 0xE614, CsFer},
    {0xE615, 0xE616, 0xE617, CurrentDsc},
    {0xA02C, 0xA02D, 0xA02E, GasMeasResult,  0},
    {0xA02C, 0xA02D, 0xA02E, GasServingCell, 1},
    {0xA02C, 0xA02D, 0xA02E, GasChannel,     2},
    {0xC00B, 0xC00C, 0xC00D, NasData},
    {0xD004, 0xD005, 0xD006, GrmMntnInfo},
    {0xD001, 0xD002, 0xD003, RlcStatistics},
    {0xF020, 0xF021, 0xF022, Bler},
    {0xB010, 0xB011, 0xB012, WCells},
    {0xB013, 0,      0xB015, WCells},
    {0xB063, 0,      0xB065, WCellsThird},
    {0xB016, 0xB017, 0xB018, GsmNeighbours},
    {0xB016, 0xB061, 0xB062, LteNeighbours},
    {0xB019, 0xB01A, 0xB01B, WStatus},
    {0xB01C, 0xB01D, 0xB01E, WWord},
    {0xC001, 0xC011, 0xC002, NasStatus,     -1, true},
    {0xC005, 0,      0xC006, NasPdpContext, -1, true},
    {0xC003, 0,      0xC004, NasPdpQos,     -1, true},
};

constexpr GU_TRACE_ROW TRACES[] = {
    {130, 24, 0x7502, PacketData},
    {130, 24, 0x1030, RlcDlBlocks},
    {130, 24, 0x1122, RlcDlBlocks},
    {130, 24, 0x1120, ByteCount<36>},
    {130, 24, 0x1121, ByteCount<36>},
    {131, 26, 0x1017, PsCipher},
    {131, 26, 0x1013, ByteCount<28>},
    {131, 26, 0x1016, ByteCount<30>},
    {131, 26, 0x1012, ByteCount<54>},
    {131, 26, 0x1015, ByteCount<50>},
    {132, 27, 0x1113, ByteCount<26>},
    {132, 27, 0x1111, ByteCount<26>},
    {132, 27, 0x1112, ByteCount<24>},
    {132, 27, 0x1110, ByteCount<28>},
    {133,  0, 0x0008, MacConfig},
    {133,  0, 0x0000, MacConfirm},
};

constexpr GU_OTA_ROW OTAS[] = {
    {0xA005, 0, 0xA015, 0xA025},
    {0xA035, 1, 0xA015, 0xA025},
    {0xB020, 0, 0xB021, 0xB022},
    {0xC101, 0, 0xC102, 0xC103},
    {0xC104, 1, 0xC102, 0xC103},
};
// clang-format on
} // namespace

std::span<const GU_REPORT_ROW> GuReports()
{
    return REPORTS;
}
std::span<const GU_TRACE_ROW> GuTraces()
{
    return TRACES;
}
std::span<const GU_OTA_ROW> GuOtas()
{
    return OTAS;
}

GuPayload BuildOta(unsigned int ulRound, const UE_IDENTITY&)
{
    const unsigned int ulLen = 12 + 4 * (ulRound % 8);
    GuPayload payload(8 + ulLen, 0);
    Put32(payload, 0, ulRound);
    Put32(payload, 4, ulLen);
    for (unsigned int i = 0; i < ulLen; ++i)
        Put8(payload, 8 + i, ulRound + i);
    return payload;
}
