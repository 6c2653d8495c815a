#include "data/gu/report/MsgProcessNas.h"

#include "support/GuEvents.h"

#include <gtest/gtest.h>

// The UE of these tests is of class 0: its stamps reach the client as they are.

namespace
{
struct ONE_SHOT
{
    unsigned short usPacket;
    unsigned short usReqMsgId;
    unsigned short usInd;
    unsigned int aulPid[2];
    size_t szReport;
};
constexpr ONE_SHOT ONE_SHOTS[] = {
    {0xE546, 0xC001, 0xC002, {141, 141}, 4}, // the first modem's PID for both
    {0xE570, 0xC005, 0xC006, {145, 38}, 1280},
    {0xE573, 0xC003, 0xC004, {145, 38}, 8},
};

struct Nas : testing::Test
{
    Nas()
    {
        gu.BeDualCard();
        Ind(0xC002, Fill(288)); // the first one brings the IMEI, of which the client is told
        gu.Forget();
    }

    void Ind(unsigned short usId, const Bytes& payload, unsigned int ulModem = 0, unsigned int ulStamp = 0x01020304)
    {
        gu.FromUe(GuMsg(usId, payload, ulStamp, ulModem == 0 ? 4 : 68));
    }
    /// The indications without those that the UE's info message becomes by itself.
    std::vector<ClientPacket> Reports()
    {
        auto packets = gu.Indications();
        std::erase_if(packets, [](const ClientPacket& packet) { return packet.stHead.ulCmdId == 0x0154C002; });
        return packets;
    }

    CGuFixture gu{"CEDAR-03"};
};

unsigned int IndId(const ONE_SHOT& stRow, unsigned int ulModem)
{
    return 0x01540000U + stRow.usPacket + 2 + ulModem * 0x100;
}
unsigned short ReqId(const ONE_SHOT& stRow, unsigned int ulModem)
{
    return static_cast<unsigned short>(stRow.usPacket + ulModem * 0x100);
}
Bytes Counting(size_t szCount)
{
    Bytes bytes(szCount);
    for (size_t i = 0; i < szCount; ++i)
        bytes[i] = static_cast<unsigned char>(i * 7 + i / 256);
    return bytes;
}
} // namespace

TEST_F(Nas, OrderOfConfirmAndUeRequest)
{
    CGuEvents events(gu);
    for (const ONE_SHOT& stRow : ONE_SHOTS)
        for (unsigned int ulModem = 0; ulModem < 2; ++ulModem) {
            const unsigned short usReq = ReqId(stRow, ulModem);
            SCOPED_TRACE(usReq);
            gu.Request(usReq, 84, Fill(4));
            EXPECT_EQ(events.Take(),
                      (std::vector<GuEvent>{{GuEvent::CLIENT, 0x01540001U + usReq}, {GuEvent::UE, stRow.usReqMsgId}}))
                << "the query is confirmed at once";
        }
    for (const unsigned short usReq : Words{0xE550, 0xE650, 0xE569, 0xE669, 0xE583, 0xE683}) {
        gu.Request(usReq, 84, Hex("01 00 E8 03"));
        EXPECT_EQ(events.Take(), (std::vector<GuEvent>{{GuEvent::UE, 0xC00B}, {GuEvent::CLIENT, 0x01540001U + usReq}}))
            << usReq << ": a periodic report like others";
    }
}

TEST_F(Nas, QueryAndAnswerOfBothModems)
{
    for (const ONE_SHOT& stRow : ONE_SHOTS)
        for (unsigned int ulModem = 0; ulModem < 2; ++ulModem) {
            const unsigned short usReq = ReqId(stRow, ulModem);
            SCOPED_TRACE(usReq);
            gu.Request(usReq, 84, Hex("00 00 00 00 55 66"));
            EXPECT_EQ(gu.ToUe(),
                      std::vector<Bytes>{TransReq(stRow.usReqMsgId, stRow.aulPid[ulModem], Hex("00 00 00 00 55 66"))});
            auto packets = gu.Confirms();
            ASSERT_EQ(packets.size(), 1U);
            ExpectPacket(packets[0], {0x01540001U + usReq, 0, 0xFFFFFFFF, 0x0154, Fill(4)});
            Ind(stRow.usInd, Fill(300), 1 - ulModem);
            EXPECT_TRUE(Reports().empty()) << "the other modem's";
            Ind(stRow.usInd, Fill(300), ulModem);
            packets = Reports();
            ASSERT_EQ(packets.size(), 1U);
            EXPECT_EQ(packets[0].stHead.ulCmdId, IndId(stRow, ulModem));
            EXPECT_EQ(packets[0].stHead.ullTimeStamp, 0x01020304U);
            EXPECT_EQ(packets[0].payload.size(), stRow.szReport);
            Ind(stRow.usInd, Fill(300), ulModem);
            EXPECT_TRUE(Reports().empty()) << "answered already";
        }
}

TEST_F(Nas, NobodyAsked)
{
    for (const ONE_SHOT& stRow : ONE_SHOTS)
        Ind(stRow.usInd, Fill(300));
    EXPECT_TRUE(Reports().empty());
}

TEST_F(Nas, TwoQueriesTwoAnswers)
{
    for (const ONE_SHOT& stRow : ONE_SHOTS) {
        gu.Request(stRow.usPacket, 84, Fill(4));
        gu.Request(stRow.usPacket, 84, Fill(4));
        for (int i = 0; i < 3; ++i)
            Ind(stRow.usInd, Fill(300));
        EXPECT_EQ(Reports().size(), 2U);
    }
}

TEST_F(Nas, ParametersMustBeZero)
{
    for (const ONE_SHOT& stRow : ONE_SHOTS) {
        (void)gu.ToUe();
        gu.Request(stRow.usPacket, 84, Hex("00 00 00 01"));
        const auto packets = gu.Confirms();
        ASSERT_EQ(packets.size(), 1U);
        ExpectPacket(packets[0], {0x01540001U + stRow.usPacket, 1, 0xFFFFFFFF, 0x0154, Hex("01 00 00 00")});
        EXPECT_TRUE(gu.ToUe().empty());
        Ind(stRow.usInd, Fill(300));
        EXPECT_TRUE(Reports().empty());
    }
}

TEST_F(Nas, UnknownPacketIsTaken)
{
    IMsgProcess* const pStatus = gu.Operation().GetTransMsgDisp()->GetProcessorByUeIND(0xC002);
    EXPECT_TRUE(pStatus->SendReqToUe(Join(Le(0xE5FFU), Le(static_cast<unsigned short>(84)), Hex("04 00"), Fill(4))));
    EXPECT_TRUE(gu.Confirms().empty());
    EXPECT_TRUE(gu.ToUe().empty());
}

TEST_F(Nas, StatusReport)
{
    gu.Request(0xE546, 84, Fill(4));
    Bytes payload = Fill(288, 0xEE);
    payload[284] = 0x84;
    payload[15] = 0x15;
    Ind(0xC002, payload);
    const auto packets = Reports();
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(packets[0].payload, Hex("84 15 00 00"));
}

TEST_F(Nas, QosReport)
{
    gu.Request(0xE573, 84, Fill(4));
    Ind(0xC004, Hex("A0 A1 A2 A3 A4 A5 A6 A7"));
    const auto packets = Reports();
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(packets[0].payload, Hex("A1 A2 A4 A3 A5 00 00 00"));
}

TEST_F(Nas, ContextReport)
{
    const Bytes payload = Join(Le(11U), Counting(11 * 120));
    Bytes expected = Join(Le(11U), Fill(1276));
    for (size_t i = 0; i < 11; ++i)
        for (const size_t k : {0, 4, 5, 6, 8})
            expected[4 + 116 * i + k] = payload[4 + 120 * i + k];
    for (size_t i = 0; i < 11; ++i) {
        std::copy_n(payload.begin() + static_cast<long>(4 + 120 * i + 9), 101,
                    expected.begin() + static_cast<long>(4 + 116 * i + 9));
        std::copy_n(payload.begin() + static_cast<long>(4 + 120 * i + 112), 4,
                    expected.begin() + static_cast<long>(4 + 116 * i + 112));
    }
    gu.Request(0xE570, 84, Fill(4));
    Ind(0xC006, payload);
    const auto packets = Reports();
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(packets[0].payload.size(), 1280U);
    EXPECT_EQ(packets[0].payload, expected);
}

TEST_F(Nas, ContextCounts)
{
    gu.Request(0xE570, 84, Fill(4));
    Ind(0xC006, Fill(4));
    auto packets = Reports();
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(packets[0].payload, Fill(1280)) << "no context, the same length";

    gu.Request(0xE570, 84, Fill(4));
    IMsgProcess* const pContext = gu.Operation().GetTransMsgDisp()->GetProcessorByUeIND(0xC006);
    EXPECT_FALSE(pContext->ProcessInd(GuMsg(0xC006, Join(Le(12U), Counting(12 * 120)))));
    EXPECT_TRUE(Reports().empty());
    Ind(0xC006, Fill(4));
    EXPECT_TRUE(Reports().empty()) << "the refused answer was counted as one";

    gu.Request(0xE570, 84, Fill(4));
    Ind(0xC006, Join(Le(2U), Fill(10, 0x5A))); // cut off in the first context
    packets = Reports();
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(packets[0].payload, Join(Hex("02 00 00 00  5A 00 00 00 5A 5A 5A 00 5A 5A"), Fill(1266)));
}

TEST_F(Nas, DataReportsOfBothModems)
{
    const Bytes payload = Hex("00 01 02 03 10 11 12 13 20 21 22 23 30 31 32 33 40 41 42 43 50 51 52 53 60 61 62 63");
    for (unsigned int ulModem = 0; ulModem < 2; ++ulModem) {
        for (const unsigned short usPacket : Words{0xE550, 0xE569, 0xE583})
            gu.Request(static_cast<unsigned short>(usPacket + ulModem * 0x100), 84, Hex("01 00 E8 03"));
        EXPECT_EQ(gu.ToUe(), std::vector<Bytes>(3, TransReq(0xC00B, ulModem == 0 ? 152 : 40, Hex("01 00 E8 03"))));
        EXPECT_EQ(gu.Confirms().size(), 3U);
        Ind(0xC00D, payload, ulModem, Ticks(5000));
        const auto packets = gu.Indications();
        ASSERT_EQ(packets.size(), 3U);
        const unsigned int ulFirst = 0x01540000 + ulModem * 0x100;
        EXPECT_EQ(packets[0].stHead.ulCmdId, ulFirst + 0xE552);
        EXPECT_EQ(packets[0].payload, Hex("00 01 02 03 10 11 12 13"));
        EXPECT_EQ(packets[1].stHead.ulCmdId, ulFirst + 0xE56B);
        EXPECT_EQ(packets[1].payload, Hex("30 31 32 33 40 41 42 43 50 51 52 53 60 61 62 63"));
        EXPECT_EQ(packets[2].stHead.ulCmdId, ulFirst + 0xE585);
        EXPECT_EQ(packets[2].payload, Hex("00 01 02 03 10 11 12 13"));
    }
}

TEST_F(Nas, DataReportGate)
{
    gu.Request(0xE550, 84, Hex("01 00 E8 03"));
    gu.Request(0xE569, 84, Hex("01 00 D0 07"));
    Ind(0xC00D, Fill(28), 0, Ticks(10000));
    EXPECT_EQ(gu.Indications().size(), 2U);
    Ind(0xC00D, Fill(28), 0, Ticks(10749));
    EXPECT_TRUE(gu.Indications().empty());
    Ind(0xC00D, Fill(28), 0, Ticks(10750));
    EXPECT_EQ(gu.Indications().size(), 1U) << "750 ms of 1000, 250 of tolerance";
    Ind(0xC00D, Fill(28), 0, Ticks(11750));
    EXPECT_EQ(gu.Indications().size(), 2U) << "1750 of 2000";
}

TEST_F(Nas, DataPeriods)
{
    for (const unsigned short usBad : Words{500, 999, 1500, 2001}) {
        gu.Request(0xE583, 84, Join(Hex("01 00"), Le(usBad)));
        const auto packets = gu.Confirms();
        ASSERT_EQ(packets.size(), 1U);
        ExpectPacket(packets[0], {0x0154E584, 2, 0, 0x0154, Hex("02 00 00 00")});
    }
    EXPECT_TRUE(gu.ToUe().empty());
    gu.Request(0xE583, 84, Hex("01 00 D0 07"));
    EXPECT_EQ(gu.ToUe(), std::vector<Bytes>{TransReq(0xC00B, 152, Hex("01 00 E8 03"))}) << "the UE runs at 1000";
}

TEST_F(Nas, DataConfirmIsTaken)
{
    EXPECT_TRUE(gu.Operation().GetTransMsgDisp()->Process(GuMsg(0xC00C, Fill(4)), 0xC00C));
    EXPECT_TRUE(gu.Operation().GetTransMsgDisp()->Process(GuMsg(0xC00C, Fill(4)), 0x1C00C));
}
