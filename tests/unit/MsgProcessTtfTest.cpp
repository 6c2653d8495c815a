#include "data/gu/report/MsgProcessTtf.h"

#include "support/GuReports.h"
#include "support/LogCapture.h"

namespace
{
using Ttf = GuReports;

/// Maintenance information: for each direction a timeslot mask, a code and a byte.
struct MNTN
{
    unsigned char ucMask1 = 0;
    unsigned int ulCode1 = 0;
    unsigned char ucByte1 = 0;
    unsigned char ucMask2 = 0;
    unsigned int ulCode2 = 0;
    unsigned char ucByte2 = 0;
};
Bytes Mntn(const MNTN& st)
{
    Bytes payload = Join(Hex("78 56 34 12"), Fill(26, 0xEE));
    payload[10] = st.ucMask1;
    StoreLe<uint16_t>(payload, 14, static_cast<uint16_t>(st.ulCode1));
    payload[16] = st.ucByte1;
    payload[20] = st.ucMask2;
    StoreLe<uint16_t>(payload, 24, static_cast<uint16_t>(st.ulCode2));
    payload[28] = st.ucByte2;
    return payload;
}

struct BLOCK
{
    unsigned int ulTn;
    unsigned int ulCode;
};
/// Packet data: the block count at word 11, blocks of 84 words with timeslot and code from word 14 on.
Bytes PacketData(const std::vector<BLOCK>& blocks, unsigned int ulCount)
{
    Bytes payload = Fill(2 * (14 + 84 * blocks.size()), 0xEE);
    StoreLe<uint16_t>(payload, 22, static_cast<uint16_t>(ulCount));
    for (size_t i = 0; i < blocks.size(); ++i) {
        StoreLe<uint16_t>(payload, 28 + 168 * i, static_cast<uint16_t>(blocks[i].ulTn));
        StoreLe<uint16_t>(payload, 30 + 168 * i, static_cast<uint16_t>(blocks[i].ulCode));
    }
    return payload;
}
Bytes PacketData(const std::vector<BLOCK>& blocks)
{
    return PacketData(blocks, static_cast<unsigned int>(blocks.size()));
}

/// A row of the shares: columns that aren't 0.
Bytes Row(std::initializer_list<std::pair<size_t, float>> columns = {})
{
    Bytes row = Fill(60);
    for (const auto& [szColumn, fShare] : columns)
        StoreLe<uint32_t>(row, 4 * szColumn, std::bit_cast<uint32_t>(fShare));
    return row;
}
Bytes Scale(unsigned int ulBlocks, const std::vector<Bytes>& rows)
{
    Bytes report = Le(ulBlocks);
    for (const Bytes& row : rows)
        report = Join(report, row);
    report.resize(304);
    return report;
}
} // namespace

TEST_F(Ttf, TimeslotNumbers)
{
    const struct
    {
        unsigned char ucMask;
        Bytes numbers;
    } astCase[] = {
        {0x80, {0}}, {0x01, {7}}, {0x00, {}}, {0xA5, {0, 2, 5, 7}}, {0xFF, {0, 1, 2, 3, 4, 5, 6, 7}},
    };
    for (const auto& stCase : astCase) {
        Bytes out = Fill(8, 0xEE);
        EXPECT_EQ(CGrmMntnInfoMsg::GetTsNumber(stCase.ucMask, out), stCase.numbers.size());
        EXPECT_EQ(CGrmMntnInfoMsg::GetCountOfTsUsed(stCase.ucMask), stCase.numbers.size());
        EXPECT_EQ(Bytes(Slice(ByteView(out), 0, stCase.numbers.size())), stCase.numbers);
        EXPECT_EQ(Bytes(Slice(ByteView(out), stCase.numbers.size())), Fill(8 - stCase.numbers.size(), 0xEE));
    }
    Bytes small = Fill(2);
    EXPECT_EQ(CGrmMntnInfoMsg::GetTsNumber(0xF0, small), 4) << "the count tells all";
    EXPECT_EQ(small, Hex("00 01"));
}

TEST_F(Ttf, MaintenanceReportsOfBothModems)
{
    for (unsigned short usModem = 0; usModem < 2; ++usModem) {
        const auto Id = [usModem](unsigned int ulId) { return static_cast<unsigned short>(ulId + usModem * 0x100U); };
        for (const unsigned short usReq : Words{0xE549, 0xE579, 0xE586})
            Start(Id(usReq), 1000);
        Ind(0xD006, Mntn({0xC1, 2, 0xB1, 0x30, 0x1003, 0xB2}), usModem);
        const auto reports = Reports({Id(0xE54B), Id(0xE57B), Id(0xE588)});
        ASSERT_EQ(reports.size(), 3U);
        EXPECT_EQ(reports[0], Hex("03 02 B1 B2  78 56 34 12  03 00 0A 00")) << "columns 2 + 1 and 3 + 7";
        EXPECT_EQ(reports[1], Hex("03 02  00 01 07 00  02 03 00 00 00 00"));
        EXPECT_EQ(reports[2], Hex("03 02  03 FF  FF 04  00 00"));
    }
}

TEST_F(Ttf, TimeslotListsOverEachOther)
{
    Start(0xE579, 1000);
    const struct
    {
        unsigned char ucMask1;
        unsigned char ucMask2;
        const char* pszReport;
    } astCase[] = {
        {0xFF, 0x00, "08 00  00 01 02 03 04 05 06 07 00 00"},
        {0xFF, 0x01, "08 01  00 01 02 03 07 05 06 07 00 00"}, // the second from byte 6 on
        {0xFF, 0xFF, "08 08  00 01 02 03 00 01 02 03 04 05"}, // 6 and 7 don't fit
        {0x00, 0xFF, "00 08  00 00 00 00 00 01 02 03 04 05"},
    };
    for (const auto& stCase : astCase) {
        Ind(0xD006, Mntn({stCase.ucMask1, 0, 0, stCase.ucMask2, 0, 0}));
        EXPECT_EQ(Report(0xE57B), Hex(stCase.pszReport));
    }
}

TEST_F(Ttf, CurrentCodes)
{
    const struct
    {
        unsigned int ulCode;
        unsigned char ucCs;
        unsigned char ucMcs;
    } astCase[] = {{0, 1, 255},      {3, 4, 255},       {4, 255, 255},      {0x0FFF, 255, 255}, {0x1000, 255, 1},
                   {0x1008, 255, 9}, {0x100A, 255, 11}, {0x100B, 255, 255}, {0x2000, 255, 255}, {0xFFFF, 255, 255}};
    for (const auto& stCase : astCase) {
        unsigned char ucCs = 0;
        unsigned char ucMcs = 0;
        CGrmMntnInfoMsg::GetCurrentCodeType(static_cast<unsigned short>(stCase.ulCode), ucCs, ucMcs);
        EXPECT_EQ(ucCs, stCase.ucCs) << stCase.ulCode;
        EXPECT_EQ(ucMcs, stCase.ucMcs) << stCase.ulCode;
    }
}

TEST_F(Ttf, CodingSchemeSeenMostOften)
{
    auto* const pProcess =
        dynamic_cast<CGrmMntnInfoMsg*>(gu.Operation().GetTransMsgDisp()->GetProcessorByUeIND(0xD006));
    ASSERT_NE(pProcess, nullptr);
    EXPECT_EQ(pProcess->GetCodingScheme(ENUM_LEVEL_FIRST), 0xFFFF);
    for (const unsigned short usUnknown : Words{4, 0x0FFF, 0x100B, 0x2000})
        pProcess->SetCodeType(usUnknown, ENUM_LEVEL_FIRST);
    EXPECT_EQ(pProcess->GetCodingScheme(ENUM_LEVEL_FIRST), 0xFFFF);
    pProcess->SetCodeType(2, ENUM_LEVEL_FIRST);
    pProcess->SetCodeType(1, ENUM_LEVEL_FIRST);
    EXPECT_EQ(pProcess->GetCodingScheme(ENUM_LEVEL_FIRST), 2) << "equal counts in columns 2 and 3";
    EXPECT_EQ(pProcess->GetCodingScheme(ENUM_LEVEL_SECOND), 0xFFFF) << "the other direction";
    pProcess->SetCodeType(0x100A, ENUM_LEVEL_FIRST);
    pProcess->SetCodeType(0x100A, ENUM_LEVEL_FIRST);
    EXPECT_EQ(pProcess->GetCodingScheme(ENUM_LEVEL_FIRST), 17) << "the last column";
    for (int i = 0; i < 3; ++i)
        pProcess->SetCodeType(0, ENUM_LEVEL_FIRST);
    EXPECT_EQ(pProcess->GetCodingScheme(ENUM_LEVEL_FIRST), 1) << "the first column";
}

TEST_F(Ttf, CodesAreCountedWhileTheReportRunsUntilTheConfirm)
{
    const auto Schemes = [this] { return Bytes(Slice(ByteView(Report(0xE54B)), 8)); };
    for (int i = 0; i < 3; ++i)
        Ind(0xD006, Mntn({0, 0, 0, 0, 0, 0}));
    Start(0xE549, 1000);
    Ind(0xD006, Mntn({0, 1, 0, 0, 0xFFFF, 0}));
    EXPECT_EQ(Schemes(), WordsOf({2, 0xFFFF})) << "what came before the start isn't counted";
    for (int i = 0; i < 2; ++i) {
        Ind(0xD006, Mntn({0, 3, 0, 0, 0x1000, 0}));
        EXPECT_EQ(Schemes(), WordsOf({i == 0 ? 2U : 4U, 7}));
    }
    Ind(0xD005, Fill(4));
    Ind(0xD006, Mntn({0, 0xFFFF, 0, 0, 0xFFFF, 0}));
    EXPECT_EQ(Schemes(), WordsOf({0xFFFF, 0xFFFF}));
}

TEST_F(Ttf, MaintenanceReportsWithEachIndication)
{
    Start(0xE549, 2000);
    for (const unsigned int ulMs : {10000U, 10001U, 10002U}) {
        gu.FromUe(GuMsg(0xD006, Mntn({}), Ticks(ulMs)));
        EXPECT_EQ(gu.Indications().size(), 1U) << "the gate's period is 2";
    }
    Stop(0xE549);
    gu.FromUe(GuMsg(0xD006, Mntn({}), Ticks(20000)));
    EXPECT_TRUE(NoReport());
}

TEST_F(Ttf, MaintenancePeriodsAreWholeSeconds)
{
    const struct
    {
        unsigned short usReq;
        unsigned int ulMs;
        bool bGood;
    } astCase[] = {{0xE549, 1000, true}, {0xE549, 2000, true},  {0xE549, 1500, false}, {0xE549, 3000, false},
                   {0xE549, 0, false},   {0xE549, 500, false},  {0xE579, 5000, true},  {0xE579, 6000, false},
                   {0xE586, 5000, true}, {0xE586, 5001, false}, {0xE686, 4000, true},  {0xE649, 3000, false}};
    for (const auto& stCase : astCase) {
        SCOPED_TRACE(stCase.ulMs);
        const bool bSecond = stCase.usReq >= 0xE600;
        gu.Request(stCase.usReq, 84, Join(Hex("01 55"), W(stCase.ulMs), Hex("77")));
        const auto confirms = gu.Confirms();
        ASSERT_EQ(confirms.size(), 1U);
        const unsigned int ulCnf = 0x01540001U + stCase.usReq;
        if (stCase.bGood) {
            ExpectPacket(confirms[0], {ulCnf, 0, 0xFFFFFFFF, 0x0154, Fill(4)});
            EXPECT_EQ(gu.ToUe(), std::vector<Bytes>{TransReq(0xD004, bSecond ? 24 : 130, Hex("01 55 01 00 77"))});
        } else {
            ExpectPacket(confirms[0], {ulCnf, 2, 0, 0x0154, Le(2U)});
            EXPECT_TRUE(gu.ToUe().empty());
        }
    }
}

TEST_F(Ttf, MaintenanceStop)
{
    Start(0xE549, 1000);
    Start(0xE579, 1000);
    gu.Request(0xE549, 84, Hex("00 00 DC 05"));
    EXPECT_TRUE(gu.ToUe().empty());
    gu.Request(0xE579, 84, Hex("00 00 DC 05"));
    EXPECT_EQ(gu.ToUe(), std::vector<Bytes>{TransReq(0xD004, 130, Hex("00 00 01 00"))}) << "1500 ms is 1 s";
    EXPECT_EQ(gu.Confirms().size(), 2U);
    gu.Request(0xE579, 84, Hex("02 00 E8 03"));
    const auto confirms = gu.Confirms();
    ASSERT_EQ(confirms.size(), 1U);
    ExpectPacket(confirms[0], {0x0154E57A, 2, 0, 0x0154, Le(2U)});
    IMsgProcess* const pProcess = gu.Operation().GetTransMsgDisp()->GetProcessorByUeIND(0xD006);
    EXPECT_TRUE(pProcess->SendReqToUe(Join(Le(0xE5FFU), Le(0x00040054U), Hex("01 00 DC 05")))) << "taken, no answer";
    EXPECT_FALSE(pProcess->SendReqToUe(Join(Le(0xE5FFU), Le(0x00040054U), Hex("01 00 E8 03"))));
    EXPECT_TRUE(gu.Confirms().empty());
}

TEST_F(Ttf, CipherState)
{
    Start(0xE516, 60000, 81);
    Start(0xE616, 60000, 81);
    ulNowMs = 70000;
    Bytes payload = Fill(1802, 0xEE);
    payload[1801] = 0xC1;
    Trace(0x1017, payload);
    EXPECT_EQ(Report(0xE518, 81), Hex("C1 00 00 00"));
    Trace(0x1017, payload, 1);
    EXPECT_EQ(Report(0xE618, 81), Hex("C1 00 00 00"));
    ulNowMs += 50000;
    Trace(0x1017, payload);
    EXPECT_TRUE(NoReport()) << "not 59750 ms yet";
    ulNowMs += 60000;
    Trace(0x1017, Fill(1801, 0xEE));
    EXPECT_EQ(Report(0xE518, 81), Fill(4)) << "the byte isn't there";
}

TEST_F(Ttf, CodeScale)
{
    Start(0xE57C, 500, 81);
    Ind(0xD006, Mntn({0, 0, 0, 0xE0, 0, 0})); // timeslots 0, 1, 2 at positions 0, 1, 2
    Trace(0x7502, PacketData({{1, 0}, {1, 0x1008}, {1, 0x1004}, {1, 0x1001}, {7, 0}}));
    // Position 1: CS 1, MCS 9, MCS 5, MCS 2; the sums are of columns 0 to 7 and 8 to 11.
    EXPECT_EQ(Report(0xE57E, 81), Scale(5, {Row(), Row({{0, 25}, {5, 25}, {8, 25}, {12, 25}, {13, 50}, {14, 25}})}));
    // The counters go on: position 1 has CS 1, 4 and MCS 9, 5, 2, and position 2 isn't below the two rows.
    Trace(0x7502, PacketData({{1, 3}, {2, 2}}));
    EXPECT_EQ(Report(0xE57E, 81),
              Scale(2, {Row(), Row({{0, 20}, {3, 20}, {5, 20}, {8, 20}, {12, 20}, {13, 60}, {14, 20}})}));
    Trace(0x7502, PacketData({{7, 3}, {7, 3}, {7, 3}}));
    EXPECT_EQ(Report(0xE57E, 81),
              Scale(3, {Row(), Row({{0, 20}, {3, 20}, {5, 20}, {8, 20}, {12, 20}, {13, 60}, {14, 20}}),
                        Row({{2, 100}, {13, 100}})}));
    Trace(0x7502, PacketData({}, 0));
    EXPECT_EQ(Report(0xE57E, 81), Fill(304));
}

TEST_F(Ttf, CodeScaleCountsWhileTheGateHoldsAndForgetsAtAStop)
{
    Start(0xE57C, 500, 81);
    Ind(0xD006, Mntn({0, 0, 0, 0x80, 0, 0}));
    Trace(0x7502, PacketData({{0, 0}}));
    EXPECT_EQ(Report(0xE57E, 81), Scale(1, {Row({{0, 100}, {13, 100}})}));
    ulNowMs -= STEP_MS;
    Trace(0x7502, PacketData({{0, 1}}));
    EXPECT_TRUE(NoReport());
    Trace(0x7502, PacketData({{0, 4}, {0, 0x1009}, {0, 0x0FFF}})); // no codes of this statistic
    EXPECT_EQ(Report(0xE57E, 81), Scale(3, {Row({{0, 50}, {1, 50}, {13, 100}})}));
    Start(0xE57C, 1000, 81);
    Trace(0x7502, PacketData({{0, 1}, {0, 1}}));
    EXPECT_EQ(Report(0xE57E, 81), Scale(2, {Row({{0, 25}, {1, 75}, {13, 100}})})) << "a start forgets nothing";
    Stop(0xE57C, 81);
    Trace(0x7502, PacketData({{0, 2}}));
    EXPECT_TRUE(NoReport());
    Start(0xE57C, 500, 81);
    Trace(0x7502, PacketData({{0, 3}}));
    EXPECT_EQ(Report(0xE57E, 81), Scale(1, {Row({{3, 100}, {13, 100}})})) << "a stop forgets, and off nothing counts";
}

TEST_F(Ttf, MoreThanFiveBlocks)
{
    Start(0xE57C, 500, 81);
    Ind(0xD006, Mntn({0, 0, 0, 0xFE, 0, 0})); // seven timeslots
    Trace(0x7502, PacketData({{4, 0}, {5, 1}, {6, 2}, {0, 0}, {1, 0}, {2, 1}, {3, 0x1000}}));
    const Bytes cs1 = Row({{0, 100}, {13, 100}});
    const Bytes cs2 = Row({{1, 100}, {13, 100}});
    const Bytes mcs1 = Row({{4, 100}, {13, 100}});
    EXPECT_EQ(Report(0xE57E, 81), Scale(5, {cs1, cs1, cs2, mcs1, cs1})) << "positions 5 and 6 have no counters";
    Trace(0x7502, PacketData({{0, 1}}, 6));
    EXPECT_EQ(Report(0xE57E, 81), Scale(5, {Row({{0, 50}, {1, 50}, {13, 100}}), cs1, cs2, mcs1, cs1}));
}

// One block of CS 2 in timeslot 0, whatever the count says: the blocks that aren't there would read as CS 1.
TEST_F(Ttf, BlocksBeyondTheMessageDoNotCount)
{
    Start(0xE57C, 500, 81);
    Ind(0xD006, Mntn({0, 0, 0, 0xFE, 0, 0}));
    const Bytes cs2 = Row({{1, 100}, {13, 100}});
    for (const unsigned int ulCount : {1U, 2U, 5U, 6U, 0xFFFFU}) {
        Trace(0x7502, PacketData({{0, 1}}, ulCount));
        EXPECT_EQ(Report(0xE57E, 81), Scale(std::min(ulCount, 5U), {cs2})) << ulCount;
    }
    // Block i has its timeslot at byte 28 + 168 i and its code at 30 + 168 i.
    const Bytes blocks = PacketData({{0, 1}, {0, 0}});
    for (const size_t szCut : {29U, 31U, 196U, 199U}) {
        Trace(0x7502, Bytes(Slice(ByteView(blocks), 0, szCut)));
        EXPECT_EQ(Report(0xE57E, 81), Scale(2, {cs2})) << szCut;
    }
    // Seven of CS 2 so far, and one of each more: 1 / 9 and 8 / 9.
    Trace(0x7502, Bytes(Slice(ByteView(blocks), 0, 200)));
    EXPECT_EQ(Report(0xE57E, 81), Scale(2, {Row({{0, 11.111111F}, {1, 88.888889F}, {13, 100}})}));
}

TEST_F(Ttf, TimeslotPositions)
{
    auto* const pScale =
        dynamic_cast<CPhpPacketDataIndMsg*>(gu.Operation().GetTraceMsgDisp()->GetProcessorByUeIND(0x17502));
    ASSERT_NE(pScale, nullptr);
    EXPECT_EQ(pScale->GetPosOfTsNumber(0), 255) << "no timeslots yet";
    Ind(0xD006, Mntn({0xFF, 0, 0, 0x5A, 0, 0}));
    EXPECT_EQ(pScale->GetPosOfTsNumber(1), 0) << "the second modem looks at the first modem's set";
    EXPECT_EQ(pScale->GetPosOfTsNumber(3), 1);
    EXPECT_EQ(pScale->GetPosOfTsNumber(4), 2);
    EXPECT_EQ(pScale->GetPosOfTsNumber(6), 3);
    EXPECT_EQ(pScale->GetPosOfTsNumber(0), 255);
    EXPECT_EQ(pScale->GetPosOfTsNumber(0x101), 255);
    Ind(0xD006, Mntn({0, 0, 0, 0xFF, 0, 0}));
    {
        CLogCapture log;
        EXPECT_EQ(pScale->GetPosOfTsNumber(0), 255) << "eight timeslots are more than the set holds";
        EXPECT_EQ(log.Count("error fail file:./src/data/gu/MsgProcessTtf.cpp, line:"), 1U);
    }
    Ind(0xD006, Mntn({0, 0, 0, 0x40, 0, 0}));
    Ind(0xD005, Fill(4));
    EXPECT_EQ(pScale->GetPosOfTsNumber(1), 255) << "the confirm forgets the set";
}

TEST_F(Ttf, CodeScaleRequestsRunTheMaintenance)
{
    using Sent = std::vector<Bytes>;
    const auto Send = [this](unsigned short usReq, const Bytes& params) {
        gu.Request(usReq, 81, params);
        return gu.ToUe();
    };
    const Bytes start = Hex("01 00 F4 01");
    EXPECT_EQ(Send(0xE57C, start), (Sent{TransReq(0xD004, 130, Hex("01 00 01 00")), TraceSwitch({130})}));
    EXPECT_EQ(Send(0xE67C, start), (Sent{TransReq(0xD004, 24, Hex("01 00 01 00")), TraceSwitch({24, 130})}));
    EXPECT_EQ(Send(0xE67C, Fill(4)), (Sent{TransReq(0xD004, 24, Fill(4)), TraceSwitch({130})}));
    EXPECT_EQ(gu.Confirms().size(), 3U);
    EXPECT_EQ(Send(0xE57C, Hex("01 00 EE 02")), Sent{TransReq(0xD004, 130, Hex("01 00 01 00"))}) << "750 ms";
    EXPECT_EQ(Send(0xE57C, Hex("02 00 F4 01")), Sent{TransReq(0xD004, 130, Fill(4))});
    for (const ClientPacket& packet : gu.Confirms())
        ExpectPacket(packet, {0x0151E57D, 2, 0, 0x0151, Le(2U)});
    Start(0xE586, 1000);
    EXPECT_EQ(Send(0xE57C, start), Sent{TraceSwitch({130})}) << "a client's own request runs it";
    EXPECT_EQ(Send(0xE57C, Fill(4)), Sent{TraceSwitch({130})}) << "one of two starts is left";
    EXPECT_EQ(Send(0xE57C, Fill(4)), Sent{TraceSwitch({})});
}
