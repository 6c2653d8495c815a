#include "data/gu/report/MsgProcessTtfTrace.h"

#include "support/GuReports.h"

#include <cmath>

namespace
{
using TtfTrace = GuReports;

struct TRACE
{
    const char* pszName;
    unsigned short usReq;
    unsigned short usMsg;
    size_t szLength; // place of the byte count
};
constexpr TRACE TRACES[] = {
    {"SNDCP up", 0xE553, 0x1110, 28},   {"SNDCP up", 0xE553, 0x1112, 24}, {"SNDCP down", 0xE556, 0x1111, 26},
    {"SNDCP down", 0xE556, 0x1113, 26}, {"LLC up", 0xE559, 0x1012, 54},   {"LLC up", 0xE559, 0x1015, 50},
    {"LLC down", 0xE55C, 0x1013, 28},   {"LLC down", 0xE55C, 0x1016, 30}, {"RLC up", 0xE560, 0x1120, 36},
    {"RLC up", 0xE560, 0x1121, 36},
};
unsigned short Id(unsigned int ulId, unsigned int ulModem)
{
    return static_cast<unsigned short>(ulId + ulModem * 0x100);
}
/// A message with so many bytes; all else in it counts as well if it is taken for the byte count.
Bytes Sized(size_t szPlace, unsigned int ulBytes)
{
    Bytes payload = Fill(60, 0x11);
    StoreLe<uint16_t>(payload, szPlace, static_cast<uint16_t>(ulBytes));
    return payload;
}
Bytes Blocks(unsigned int ulCount, std::initializer_list<unsigned int> lengths)
{
    Bytes payload = Join(Fill(28, 0x11), Le(ulCount));
    for (const unsigned int ulLength : lengths)
        payload = Join(payload, W(ulLength), Fill(6, 0x11));
    return payload;
}

/// The counter without its messages.
class CCounter : public CMsgProcessThroughput
{
public:
    void Set(unsigned int ulBytes, unsigned int ulLastTime)
    {
        m_ulBytes = ulBytes;
        m_ulLastTime = ulLastTime;
    }
};
} // namespace

TEST_F(TtfTrace, BytesAndRateOfBothModems)
{
    for (unsigned int ulModem = 0; ulModem < 2; ++ulModem)
        for (const TRACE& stTrace : TRACES) {
            SCOPED_TRACE(std::string(stTrace.pszName) + " " + std::to_string(stTrace.usMsg));
            const unsigned short usInd = Id(stTrace.usReq + 2U, ulModem);
            Start(Id(stTrace.usReq, ulModem), 500, 81);
            Trace(stTrace.usMsg, Sized(stTrace.szLength, 0x1234), ulModem);
            EXPECT_EQ(Report(usInd, 81), Hex("34 12 00 00  00 00 00 00")) << "no rate in the first one";
            Trace(stTrace.usMsg, Sized(stTrace.szLength, 1000), ulModem);
            EXPECT_EQ(Report(usInd, 81), Hex("E8 03 00 00  00 00 80 40")) << "8 kbit in 2 s";
            Trace(stTrace.usMsg, Sized(stTrace.szLength, 1000), 1 - ulModem);
            EXPECT_TRUE(NoReport()) << "the other modem's";
            Stop(Id(stTrace.usReq, ulModem), 81);
        }
}

TEST_F(TtfTrace, DownlinkRlcSumsItsBlocks)
{
    for (const unsigned short usMsg : Words{0x1030, 0x1122}) {
        Start(0xE563, 500, 81);
        Trace(usMsg, Blocks(3, {100, 200, 300}));
        EXPECT_EQ(Report(0xE565, 81), Join(Le(600U), F(0)));
        Trace(usMsg, Blocks(2, {100, 200, 300}));
        EXPECT_EQ(Report(0xE565, 81), Join(Le(300U), F(1.2F))); // 2.4 kbit in 2 s
        Trace(usMsg, Blocks(0, {100}));
        EXPECT_EQ(Report(0xE565, 81), Fill(8));
        Trace(usMsg, Blocks(0xFFFFFFFF, {500, 500}));
        EXPECT_EQ(Report(0xE565, 81), Join(Le(1000U), F(4.0F))) << "as many blocks as there are";
        Bytes cut = Blocks(2, {500});
        cut.push_back(0x07); // the low byte of the second length
        Trace(usMsg, cut);
        EXPECT_EQ(Report(0xE565, 81), Join(Le(507U), F(2.028F)));
    }
}

TEST_F(TtfTrace, BytesGatherWhileTheGateHolds)
{
    Start(0xE560, 2000, 81);
    Trace(0x1120, Sized(36, 1));
    gu.Forget();
    for (const unsigned int ulMs : {500U, 1000U, 1749U}) {
        gu.FromUe(TraceMsg(0x1121, Sized(36, 500), 0, Ticks(ulNowMs + ulMs)));
        EXPECT_TRUE(NoReport()) << ulMs;
    }
    Trace(0x1120, Sized(36, 500));
    EXPECT_EQ(Report(0xE562, 81), Join(Le(2000U), F(8.0F))); // 16 kbit in 2 s
    Trace(0x1120, Sized(36, 500));
    EXPECT_EQ(Report(0xE562, 81), Join(Le(500U), F(2.0F))) << "counted anew";
}

TEST_F(TtfTrace, AStopForgetsWithTheNextMessage)
{
    Start(0xE556, 2000, 81);
    Trace(0x1111, Sized(26, 1));
    gu.Forget();
    gu.FromUe(TraceMsg(0x1111, Sized(26, 700), 0, Ticks(ulNowMs + 500)));
    Stop(0xE556, 81);
    Start(0xE556, 2000, 81);
    Trace(0x1111, Sized(26, 10));
    EXPECT_EQ(Report(0xE558, 81), Join(Le(710U), F(0))) << "no message while it was off; the interval starts anew";
    gu.FromUe(TraceMsg(0x1111, Sized(26, 700), 0, Ticks(ulNowMs + 500)));
    Stop(0xE556, 81);
    Trace(0x1111, Sized(26, 5));
    EXPECT_TRUE(NoReport());
    Start(0xE556, 2000, 81);
    Trace(0x1111, Sized(26, 10));
    EXPECT_EQ(Report(0xE558, 81), Join(Le(10U), F(0)));
    Start(0xE556, 2000, 81);
    Trace(0x1111, Sized(26, 10));
    EXPECT_EQ(Report(0xE558, 81), Join(Le(10U), F(0))) << "a second start has a first report too";
}

TEST_F(TtfTrace, TheCountersWrap)
{
    Start(0xE55C, 500, 81);
    ulNowMs = 131071000 - STEP_MS;
    Trace(0x1013, Sized(28, 1));
    EXPECT_EQ(Report(0xE55E, 81), Join(Le(1U), F(0)));
    ulNowMs = 1000 - STEP_MS;
    Trace(0x1013, Sized(28, 1999)); // 1000 - 131071000 + 131071999 = 1999 ms
    EXPECT_EQ(Report(0xE55E, 81), Join(Le(1999U), F(8.0F)));
}

TEST_F(TtfTrace, NoTimeBetweenReports)
{
    CMsgDisp& disp = *gu.Operation().GetTraceMsgDisp();
    CMsgPeriods stPeriods(0xE553, 0xE554, 0xE555, 500, 2000);
    CCounter counter;
    counter.Set(5, 1000);
    counter.SendIndPacketToClient(32768, &stPeriods, &disp);
    counter.SendIndPacketToClient(32768, &stPeriods, &disp);
    auto packets = gu.Indications();
    ASSERT_EQ(packets.size(), 2U);
    EXPECT_EQ(packets[0].payload, Hex("05 00 00 00  00 00 80 7F")) << "infinity";
    EXPECT_EQ(LoadLe<uint32_t>(packets[1].payload, 4) & 0x7FFFFFFF, 0x7FC00000U) << "NaN";
    counter.Set(0xFFFFFFFF, 0);
    stPeriods.bTraceOn = true;
    counter.SendIndPacketToClient(32768, &stPeriods, &disp);
    EXPECT_FALSE(stPeriods.bTraceOn);
    packets = gu.Indications();
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(packets[0].payload, Hex("FF FF FF FF  00 00 00 00"));
}

TEST_F(TtfTrace, FieldsThatAreNotThere)
{
    Start(0xE559, 500, 81);
    Trace(0x1012, Fill(26));
    EXPECT_EQ(Report(0xE55B, 81), Fill(8));
    Trace(0x1012, Fill(55, 0x22));
    EXPECT_EQ(Report(0xE55B, 81), Join(Le(0x22U), F(0.136F)));
}

TEST(TtfTraceStamp, IsMadeRealTimeTwice)
{
    // A UE of no known class counts downwards: the gate and the rate see the complement, and the report's stamp,
    // complemented once more, is the message's own.
    CGuFixture gu("TEAK-11");
    gu.Request(0xE560, 81, Hex("01 00 F4 01"));
    gu.Request(0xE503, 84, Hex("01 00 F4 01"));
    gu.Forget();
    gu.FromUe(GuReports::TraceMsg(0x1120, Sized(36, 1), 0, ~Ticks(4000)));
    gu.FromUe(GuReports::TraceMsg(0x1120, Sized(36, 1000), 0, ~Ticks(5000)));
    gu.FromUe(GuMsg(0xE611, WordsOf({1, 20, 3, 0}), ~Ticks(4000)));
    const auto packets = gu.Indications();
    ASSERT_EQ(packets.size(), 3U);
    ExpectPacket(packets[1], {0x0151E562, 2, ~Ticks(5000), 0x0151, Join(Le(1000U), F(8.0F))});
    ExpectPacket(packets[2], {0x0154E505, 3, Ticks(4000), 0x0154, WordsOf({1, 2, 3, 0})});
}
