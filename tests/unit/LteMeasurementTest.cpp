#include "data/LteMeasurement.h"

#include "support/Configure.h"
#include "support/TestBytes.h"

#include <bit>
#include <gtest/gtest.h>

namespace
{

constexpr const char* TDS_LIST =
    "TDS_COMB_IND_MSG_FILTER=0xA0;0xA1;0xA2;0xA3;0xA4;0xA5;0xA6;0xA7;0xA8;0xA9;0xAA;0xAB\n";

/// A message of szSize bytes: the word at offset 2n is 0x4000 + 2n, so a word tells where it comes from.
Bytes Numbered(size_t szSize)
{
    Bytes message(szSize, 0);
    for (size_t i = 0; i < szSize; i += 2)
        StoreLe<uint16_t>(message, i, static_cast<uint16_t>(0x4000 + i));
    return message;
}

/// Where the word at an offset of a record built from Numbered comes from; 0 where nothing was copied.
unsigned int From(const Bytes& record, size_t szOffset)
{
    const unsigned int ulWord = LoadLe<uint16_t>(record, szOffset);
    return ulWord == 0 ? 0 : ulWord - 0x4000;
}

ADE_DATA_PACKET_STRU Packet(Bytes& message, unsigned int ulId = 0x800)
{
    ADE_DATA_PACKET_STRU stPacket;
    stPacket.ulCmdId = ulId;
    stPacket.ucCmdType = 9;
    stPacket.ucIndType = IND_TYPE_LAYER;
    stPacket.ullTimeStamp = 0x0102;
    stPacket.ulAckField = 0x33;
    stPacket.usLen = static_cast<uint16_t>(message.size());
    stPacket.pData = message;
    return stPacket;
}

/// The translation of one message, in an output area that was used before.
struct Built
{
    unsigned int ulRc = 0;
    unsigned int ulCount = 0;
    ADE_DATA_PACKET_STRU stHead;
    Bytes record;
};

template <class Call> Built Build(Call call)
{
    IND_OUTPUT stOut;
    stOut.aucRecord.fill(0xEE);
    Built st;
    st.ulRc = call(stOut, st.ulCount);
    st.stHead = stOut.astPacket[0];
    st.record = Bytes(st.stHead.pData);
    if (st.ulCount > 0) {
        EXPECT_EQ(st.ulCount, 1u);
        EXPECT_EQ(st.stHead.usLen, st.record.size());
        EXPECT_EQ(st.stHead.ucIndType, IND_TYPE_LAYER);
        EXPECT_EQ(st.stHead.ucCmdType, 9);
        EXPECT_EQ(st.stHead.ullTimeStamp, 0x0102u);
        EXPECT_EQ(st.stHead.ulAckField, 0x33u);
    }
    return st;
}

Built Connected(Bytes message)
{
    const ADE_DATA_PACKET_STRU stIn = Packet(message);
    return Build(
        [&](IND_OUTPUT& stOut, unsigned int& ulCount) { return DoPacketMeasConnectedIn(stIn, stOut, ulCount); });
}

Built Tds(unsigned int ulPos, Bytes message)
{
    ConfigureFresh(TDS_LIST);
    const ADE_DATA_PACKET_STRU stIn = Packet(message, 0xA0 + ulPos);
    return Build([&](IND_OUTPUT& stOut, unsigned int& ulCount) { return DoPaketTdsMeasIn(stIn, stOut, ulCount); });
}

timeval g_stNow; // of the idle tests

/// The idle store of one client; its clock starts at 1000.5 s.
class CIdle
{
public:
    CIdle() : m_clock({1000, 500000}, [] { return g_stNow; }) { m_store.ulTimeoutMs = 200; }

    /// One message, ulMs after the start.
    Built At(unsigned int ulMs, Bytes message)
    {
        const unsigned int ulUsec = 500000 + ulMs % 1000 * 1000;
        g_stNow = {1000 + ulMs / 1000 + ulUsec / 1000000, ulUsec % 1000000};
        const ADE_DATA_PACKET_STRU stIn = Packet(message);
        return Build([&](IND_OUTPUT& stOut, unsigned int& ulCount) {
            return DoPacketMeasIdleIn(stIn, stOut, ulCount, m_store, m_clock);
        });
    }

    IDLE_MEAS_STORE m_store;

private:
    CMeasClock m_clock;
};

/// A message of kind 31 whose word at 32 repeats a byte.
Bytes Trigger(unsigned char ucServing)
{
    return Join(Fill(26, 0x77), Hex("1F 00"), Fill(4, 0x77), Fill(8, ucServing), Fill(8, 0x77));
}

Bytes TriggerRecord(unsigned char ucServing)
{
    return Join(Hex("1F 00 00 00  00 00 00 00  01 00 00 00"), Fill(8, ucServing), Fill(1096 - 20));
}

} // namespace

// ---- LTE, connected ----

TEST(MeasConnected, TypeAndDataComeFromTheMessage)
{
    Bytes message = Numbered(1400);
    const Built st = Connected(message);
    EXPECT_EQ(st.ulRc, 0u);
    EXPECT_EQ(st.stHead.ulCmdId, 0x800u);
    ASSERT_EQ(st.record.size(), 1096u);
    EXPECT_EQ(From(st.record, 0), 26u);
    EXPECT_EQ(st.record[2], 1);
    EXPECT_EQ(st.record[3], 0);
    EXPECT_EQ(Bytes(Slice(ByteView(st.record), 4)), Bytes(Slice(ByteView(message), 28, 1092)));
}

TEST(MeasConnected, AShortMessageIsCompletedWithZeros)
{
    EXPECT_EQ(Connected(Join(Fill(26, 0x77), Hex("05 00 D1 D2 D3"))).record,
              Join(Hex("05 00 01 00 D1 D2 D3"), Fill(1089)));
    EXPECT_EQ(Connected(Bytes{0x77}).record, Join(Hex("00 00 01 00"), Fill(1092)));
}

TEST(MeasConnected, WithoutAPayloadNothingIsBuilt)
{
    IND_OUTPUT stOut;
    unsigned int ulCount = 0;
    EXPECT_EQ(DoPacketMeasConnectedIn({}, stOut, ulCount), 0u);
    EXPECT_EQ(ulCount, 0u);
}

// ---- LTE, idle ----

TEST(MeasIdle, ATriggerGoesOutOncePerTimeoutWithTheWordOfTheOneBefore)
{
    CIdle idle;
    EXPECT_EQ(idle.At(100, Trigger(0x11)).ulRc, DIAG_RC_FILTERED) << "200 ms haven't passed";
    EXPECT_EQ(idle.At(300, Trigger(0x22)).ulRc, DIAG_RC_FILTERED) << "200 after the last one is not above";
    Built st = idle.At(501, Trigger(0x33));
    EXPECT_EQ(st.ulRc, 0u);
    EXPECT_EQ(st.record, TriggerRecord(0x22)) << "a dropped one has replaced the store";
    EXPECT_EQ(idle.At(600, Trigger(0x44)).ulRc, DIAG_RC_FILTERED);
    st = idle.At(10600, Trigger(0x55));
    EXPECT_EQ(st.record, TriggerRecord(0x44));
}

TEST(MeasIdle, TheFirstTriggerGoesOutOnceTheTimeoutHasPassedSinceTheStart)
{
    CIdle early;
    EXPECT_EQ(early.At(200, Trigger(0x11)).ulCount, 0u);
    CIdle late;
    EXPECT_EQ(late.At(201, Trigger(0x11)).record, TriggerRecord(0)) << "the store starts as zeros";
}

TEST(MeasIdle, TheStoreKeepsHeadTimeAndPayload)
{
    CIdle idle;
    (void)idle.At(1234, Trigger(0x11));
    EXPECT_EQ(idle.m_store.stHead.ulCmdId, 0x800u);
    EXPECT_EQ(idle.m_store.stHead.ullTimeStamp, 1234u) << "time of arrival, not the UE's stamp";
    EXPECT_EQ(Bytes(Slice(ByteView(idle.m_store.aucPayload), 0, 48)), Trigger(0x11));
    EXPECT_EQ(idle.m_store.stHead.pData.data(), nullptr) << "nothing points to the packet";
    // A shorter message leaves what lies behind it.
    (void)idle.At(1300, Join(Fill(26), Hex("1F 00"), Fill(4)));
    EXPECT_EQ(idle.At(2000, Trigger(0)).record, TriggerRecord(0x11));
}

TEST(MeasIdle, AFullPayloadFitsTheStore)
{
    CIdle idle;
    Bytes message = Fill(8192, 0x5A);
    StoreLe<uint16_t>(message, 26, 31);
    (void)idle.At(1, message);
    EXPECT_EQ(Bytes(ByteView(idle.m_store.aucPayload)), message);
}

TEST(MeasIdle, ANeighbourListGetsTheStoredWordInFrontAndOneEntryMore)
{
    CIdle idle;
    (void)idle.At(1, Trigger(0xAB));
    Bytes message = Numbered(400);
    StoreLe<uint16_t>(message, 26, 32);
    StoreLe<uint16_t>(message, 32, 6); // number of neighbours: lands at record offset 8
    const Built st = idle.At(2, message);
    EXPECT_EQ(st.ulRc, 0u) << "whatever the time";
    ASSERT_EQ(st.record.size(), 1096u);
    EXPECT_EQ(LoadLe<uint16_t>(st.record, 0), 0x33);
    EXPECT_EQ(LoadLe<uint16_t>(st.record, 2), 0);
    EXPECT_EQ(From(st.record, 4), 28u);
    EXPECT_EQ(From(st.record, 6), 30u);
    EXPECT_EQ(LoadLe<uint16_t>(st.record, 8), 7);
    EXPECT_EQ(From(st.record, 10), 34u);
    EXPECT_EQ(Bytes(Slice(ByteView(st.record), 12, 8)), Fill(8, 0xAB));
    EXPECT_EQ(Bytes(Slice(ByteView(st.record), 20, 256)), Bytes(Slice(ByteView(message), 36, 256)));
    // 272 bytes from 28 end at record offset 276, as the list does.
    EXPECT_EQ(Bytes(Slice(ByteView(st.record), 276)), Fill(1096 - 276));
}

TEST(MeasIdle, AFullListIsCopied)
{
    CIdle idle;
    Bytes message = Numbered(1400);
    StoreLe<uint16_t>(message, 26, 33);
    const Built st = idle.At(2, message);
    ASSERT_EQ(st.record.size(), 1096u);
    EXPECT_EQ(LoadLe<uint32_t>(st.record, 0), 0x34u);
    EXPECT_EQ(Bytes(Slice(ByteView(st.record), 4)), Bytes(Slice(ByteView(message), 28, 1092)));
}

TEST(MeasIdle, AnyOtherKindGoesOutAsZeros)
{
    CIdle idle;
    for (const uint16_t usKind : std::initializer_list<uint16_t>{0, 30, 34, 0x1F00}) {
        Bytes message = Numbered(1400);
        StoreLe<uint16_t>(message, 26, usKind);
        const Built st = idle.At(2, message);
        EXPECT_EQ(st.ulRc, 0u);
        EXPECT_EQ(st.record, Fill(1096)) << usKind;
    }
    EXPECT_EQ(idle.At(2, {}).record, Fill(1096)) << "an empty message";
}

TEST(MeasIdle, ShortMessagesAreCompletedWithZeros)
{
    CIdle idle;
    EXPECT_EQ(idle.At(1, Join(Fill(26), Hex("20 00 D1"))).record,
              Join(Hex("33 00 00 00 D1 00 00 00 01 00"), Fill(1086)));
    EXPECT_EQ(idle.At(1, Join(Fill(26), Hex("21 00 D1"))).record, Join(Hex("34 00 00 00 D1"), Fill(1091)));
}

TEST(MeasClock, Milliseconds)
{
    const auto Elapsed = [](const timeval& stStart, const timeval& stNow) {
        g_stNow = stNow;
        return CMeasClock(stStart, [] { return g_stNow; }).ElapsedMs();
    };
    EXPECT_EQ(Elapsed({100, 0}, {100, 999}), 0u);
    EXPECT_EQ(Elapsed({100, 0}, {100, 1000}), 1u);
    EXPECT_EQ(Elapsed({100, 900000}, {102, 100000}), 1200u);
    EXPECT_EQ(Elapsed({100, 500}, {101, 0}), 1000u) << "the microseconds are cut on their own";
    EXPECT_EQ(Elapsed({0, 0}, {4294967, 296000}), 0u) << "32 bits";
    const timeval stStart = CMeasClock::TimeOfDay();
    EXPECT_GT(stStart.tv_sec, 1000000000);
    EXPECT_LT(CMeasClock(stStart).ElapsedMs(), 60000u);
}

// ---- TDS ----

TEST(MeasTds, EachPositionHasItsRecordAndItsId)
{
    const struct
    {
        unsigned int ulPos;
        size_t szRecord;
        unsigned int ulId, ulFlag;
    } c_astCase[] = {
        {1, 516, 0xA0, 0}, {2, 516, 0xA0, 0}, {3, 1060, 0xA3, 1}, {4, 1060, 0xA3, 0}, {5, 808, 0xA5, 1},
        {6, 808, 0xA5, 0}, {7, 388, 0xA7, 0}, {8, 1264, 0xA8, 0}, {9, 1060, 0xA9, 1}, {10, 1060, 0xA9, 0},
    };
    for (const auto& st : c_astCase) {
        const Built built = Tds(st.ulPos, Fill(2000));
        EXPECT_EQ(built.ulRc, 0u) << st.ulPos;
        EXPECT_EQ(built.stHead.ulCmdId, st.ulId) << st.ulPos;
        EXPECT_EQ(built.stHead.ucSysMode, 2) << "not marked as TDS: client tools expect it so";
        if (st.ulPos > 2) {
            EXPECT_EQ(built.record,
                      Join(Hex("00 00"), Bytes{static_cast<unsigned char>(st.ulFlag)}, Fill(st.szRecord - 3)))
                << st.ulPos;
        }
        EXPECT_EQ(built.record.size(), st.szRecord) << st.ulPos;
    }
    EXPECT_EQ(Tds(11, Fill(2000)).ulRc, DIAG_RC_FILTERED) << "no record for position 11";
    EXPECT_EQ(Tds(11, Fill(2000)).ulCount, 0u);
    EXPECT_EQ(Tds(100, Fill(2000)).ulRc, DIAG_RC_FILTERED) << "not in the list";
}

TEST(MeasTds, RoutinesRefuseOtherPositions)
{
    ConfigureFresh(TDS_LIST);
    const struct
    {
        unsigned int (*pfn)(const ADE_DATA_PACKET_STRU&, ADE_DATA_PACKET_STRU&, ByteSpan);
        unsigned int ulFirst, ulLast;
    } c_astRoutine[] = {
        {&DoPaketCmacMeasIndMsg, 0, 2}, {&DoPaketLTMeasIndMsg, 3, 4}, {&DoPaketTLMeasIndMsg, 5, 6},
        {&DoPaketGTMeasIndMsg, 7, 7},   {&DoPaketTGMeasIndMsg, 8, 8}, {&DoPaketLGMeasIndMsg, 9, 10},
    };
    for (const auto& st : c_astRoutine)
        for (unsigned int ulPos = 0; ulPos <= 12; ++ulPos) {
            Bytes message = Fill(2000), record = Fill(1264);
            ADE_DATA_PACKET_STRU stHead;
            const bool bTaken = st.pfn(Packet(message, 0xA0 + ulPos), stHead, record) == DIAG_RC_OK;
            EXPECT_EQ(bTaken, ulPos >= st.ulFirst && ulPos <= st.ulLast) << st.ulFirst << " at " << ulPos;
        }
}

TEST(MeasTds, AShortListServesThePositionsThatItHas)
{
    ConfigureFresh("TDS_COMB_IND_MSG_FILTER=0xA0;0xA1\n");
    const auto BuildOf = [](unsigned int ulCmdId) {
        Bytes message = Fill(400);
        const ADE_DATA_PACKET_STRU stIn = Packet(message, ulCmdId);
        return Build([&](IND_OUTPUT& stOut, unsigned int& ulCount) { return DoPaketTdsMeasIn(stIn, stOut, ulCount); });
    };
    const Built stSecond = BuildOf(0xA1);
    EXPECT_EQ(stSecond.ulRc, DIAG_RC_OK);
    EXPECT_EQ(stSecond.stHead.ulCmdId, 0xA0u) << "goes out under the id of the first";
    EXPECT_EQ(BuildOf(0xA2).ulRc, DIAG_RC_FILTERED) << "not in the list";
}

namespace
{
/// A Cmac message of position 0: its cells at 28, 36 bytes each.
struct SumCell
{
    uint16_t usChannel;
    uint8_t ucCellHigh, ucCellLow, ucSamples;
    double dSum;
};
Bytes SumMessage(unsigned char ucCount, const std::vector<SumCell>& cells)
{
    Bytes message = Fill(28 + 36 * cells.size(), 0x77);
    message[26] = ucCount;
    for (size_t i = 0; i < cells.size(); ++i) {
        StoreLe<uint16_t>(message, 28 + 36 * i, cells[i].usChannel);
        message[30 + 36 * i] = cells[i].ucCellHigh;
        message[31 + 36 * i] = cells[i].ucCellLow;
        message[32 + 36 * i] = cells[i].ucSamples;
        StoreLe<uint64_t>(message, 36 + 36 * i, std::bit_cast<uint64_t>(cells[i].dSum));
    }
    return message;
}
} // namespace

TEST(MeasTds, CmacWithSums)
{
    // -1000 / 10 - 116 = -216, low byte 0x28; 100 / 3 - 116 = -82.67, cut to -82 = 0xAE; 600 / 2 - 116 = 184 = 0xB8.
    const Built st =
        Tds(0, SumMessage(3, {{10055, 5, 3, 10, -1000.0}, {0x2233, 255, 255, 3, 100.0}, {1, 0, 1, 2, 600.0}}));
    EXPECT_EQ(st.ulRc, 0u);
    EXPECT_EQ(st.stHead.ulCmdId, 0xA0u) << "it keeps its id";
    EXPECT_EQ(st.record, Join(Hex("01 03 00 00"
                                  "47 27  17 00  28 00 00 00" // 10055, 5 * 4 + 3 = 23
                                  "33 22  FB 04  AE 00 00 00" // 255 * 4 + 255 = 1275
                                  "01 00  01 00  B8 00 00 00"),
                              Fill(516 - 28)));
}

TEST(MeasTds, CmacWithSumsWritesAtMost64Cells)
{
    const Built st = Tds(0, SumMessage(65, std::vector<SumCell>(65, {7, 1, 2, 1, 117.0})));
    EXPECT_EQ(st.record[1], 65) << "the count as the UE gave it";
    ASSERT_EQ(st.record.size(), 516u);
    EXPECT_EQ(Bytes(Slice(ByteView(st.record), 4 + 8 * 63)), Hex("07 00 06 00 01 00 00 00"));
    const Built all = Tds(0, SumMessage(255, std::vector<SumCell>(70, {7, 1, 2, 1, 117.0})));
    EXPECT_EQ(all.record[1], 255);
    EXPECT_EQ(all.record.size(), 516u);
}

TEST(MeasTds, CmacWithACellWithoutSamplesIsDropped)
{
    EXPECT_EQ(Tds(0, SumMessage(2, {{7, 1, 2, 1, 117.0}, {7, 1, 2, 0, 117.0}})).ulRc, DIAG_RC_FILTERED);
    EXPECT_EQ(Tds(0, SumMessage(1, {{7, 1, 2, 1, 117.0}, {7, 1, 2, 0, 117.0}})).ulRc, 0u) << "beyond the count";
    EXPECT_EQ(Tds(0, SumMessage(2, {{7, 1, 2, 1, 117.0}})).ulRc, DIAG_RC_FILTERED) << "a cell that isn't there";
    EXPECT_EQ(Tds(0, SumMessage(0, {})).record, Join(Hex("01 00"), Fill(514)));
}

TEST(MeasTds, CmacSumsThatNoIntegerHoldsGiveLevel0)
{
    for (const double dSum : {1e300, -1e300, std::numeric_limits<double>::quiet_NaN(),
                              std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()}) {
        const Built st = Tds(0, SumMessage(1, {{7, 1, 2, 1, dSum}}));
        EXPECT_EQ(st.ulRc, 0u);
        EXPECT_EQ(st.record[8], 0) << dSum;
    }
    // 65652 - 116 = 0x10000, whose 16 bits are 0; 65653 gives 1.
    EXPECT_EQ(Tds(0, SumMessage(1, {{7, 1, 2, 1, 65653.0}})).record[8], 1);
}

TEST(MeasTds, CmacWithLists)
{
    Bytes message = Fill(400, 0x77);
    message[24] = 2;
    const Bytes cells = Hex("47 27 05 03  33 22 FF FF");
    std::ranges::copy(cells, message.begin() + 26);
    message[282] = 200; // 200 - 116 = 84
    message[283] = 100; // -16
    for (const unsigned int ulPos : {1u, 2u}) {
        const Built st = Tds(ulPos, message);
        EXPECT_EQ(st.stHead.ulCmdId, 0xA0u);
        EXPECT_EQ(st.record, Join(Hex("00 02 00 00"
                                      "47 27  17 00  54 00 00 00"
                                      "33 22  FB 04  F0 00 00 00"),
                                  Fill(516 - 20)));
    }
    message[24] = 65;
    const Built st = Tds(1, message);
    EXPECT_EQ(st.record[1], 65);
    EXPECT_EQ(Bytes(Slice(ByteView(st.record), 4 + 8 * 63)), Hex("77 77 53 02 03 00 00 00")) // 0x77 * 5; 0x77 - 116
        << "64 of them";
}

TEST(MeasTds, LtAndLg)
{
    const Bytes message = Numbered(1200);
    for (const unsigned int ulPos : {3u, 4u, 9u, 10u}) {
        const Bytes record = Tds(ulPos, message).record;
        ASSERT_EQ(record.size(), 1060u);
        EXPECT_EQ(From(record, 0), 0u);
        EXPECT_EQ(LoadLe<uint16_t>(record, 2), ulPos == 3 || ulPos == 9 ? 1 : 0);
        for (unsigned int k = 0; k < 4; ++k) {
            EXPECT_EQ(From(record, 4 + 264 * k), 28u) << k;
            EXPECT_EQ(From(record, 6 + 264 * k), 0u) << k;
            EXPECT_EQ(From(record, 8 + 264 * k), 32 + 260 * k);
            EXPECT_EQ(From(record, 10 + 264 * k), 34 + 260 * k);
            for (unsigned int j = 0; j < 32; ++j)
                for (unsigned int w = 0; w < 8; w += 2)
                    EXPECT_EQ(From(record, 12 + 264 * k + 8 * j + w), 36 + 260 * k + 8 * j + w) << k << " " << j;
        }
    }
}

TEST(MeasTds, Tl)
{
    const Bytes message = Numbered(1000);
    for (const unsigned int ulPos : {5u, 6u}) {
        const Bytes record = Tds(ulPos, message).record;
        ASSERT_EQ(record.size(), 808u);
        EXPECT_EQ(LoadLe<uint32_t>(record, 0), ulPos == 5 ? 0x00010000u : 0u);
        for (unsigned int k = 0; k < 3; ++k) {
            EXPECT_EQ(From(record, 4 + 268 * k), 28u);
            EXPECT_EQ(From(record, 6 + 268 * k), 0u);
            EXPECT_EQ(From(record, 8 + 268 * k), 32 + 264 * k);
            EXPECT_EQ(From(record, 10 + 268 * k), 34 + 264 * k);
            EXPECT_EQ(From(record, 12 + 268 * k), 0u) << "left out: required";
            EXPECT_EQ(From(record, 14 + 268 * k), 38 + 264 * k);
            for (unsigned int j = 0; j < 32; ++j) {
                EXPECT_EQ(From(record, 16 + 268 * k + 8 * j), 40 + 264 * k + 8 * j);
                EXPECT_EQ(From(record, 18 + 268 * k + 8 * j), 0u) << "left out: required";
                EXPECT_EQ(From(record, 20 + 268 * k + 8 * j), 44 + 264 * k + 8 * j);
                EXPECT_EQ(From(record, 22 + 268 * k + 8 * j), 46 + 264 * k + 8 * j);
            }
        }
    }
}

TEST(MeasTds, Gt)
{
    const Bytes record = Tds(7, Numbered(400)).record;
    ASSERT_EQ(record.size(), 388u);
    EXPECT_EQ(LoadLe<uint32_t>(record, 0), 0u);
    for (unsigned int i = 0; i < 32; ++i) {
        EXPECT_EQ(From(record, 4 + 12 * i), 28u);
        EXPECT_EQ(From(record, 6 + 12 * i), 0u);
        EXPECT_EQ(From(record, 8 + 12 * i), 32 + 8 * i);
        EXPECT_EQ(From(record, 10 + 12 * i), 34 + 8 * i);
        EXPECT_EQ(From(record, 12 + 12 * i), 36 + 8 * i);
        EXPECT_EQ(From(record, 14 + 12 * i), 0u);
    }
}

TEST(MeasTds, Tg)
{
    const Bytes record = Tds(8, Numbered(1400)).record;
    ASSERT_EQ(record.size(), 1264u);
    EXPECT_EQ(LoadLe<uint32_t>(record, 0), 0u);
    for (unsigned int i = 0; i < 9; ++i) {
        EXPECT_EQ(From(record, 4 + 140 * i), 28u);
        EXPECT_EQ(From(record, 6 + 140 * i), 0u);
        EXPECT_EQ(From(record, 8 + 140 * i), 32 + 136 * i);
        EXPECT_EQ(From(record, 10 + 140 * i), 34 + 136 * i);
        EXPECT_EQ(From(record, 12 + 140 * i), 0u);
        EXPECT_EQ(From(record, 14 + 140 * i), 38 + 136 * i);
        for (unsigned int j = 0; j < 32; ++j) {
            EXPECT_EQ(From(record, 16 + 140 * i + 4 * j), 40 + 136 * i + 4 * j);
            EXPECT_EQ(From(record, 18 + 140 * i + 4 * j), 42 + 136 * i + 4 * j);
        }
    }
}

TEST(MeasTds, ShortMessagesAreCompletedWithZeros)
{
    EXPECT_EQ(Tds(3, Join(Fill(28), Hex("AA BB 00 00 CC"))).record,
              Join(Hex("00 00 01 00 AA BB 00 00 CC"), Fill(259), Hex("AA BB"), Fill(262), Hex("AA BB"), Fill(262),
                   Hex("AA BB"), Fill(262)));
    EXPECT_EQ(Tds(7, {}).record, Fill(388));
}
