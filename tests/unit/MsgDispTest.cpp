#include "data/gu/report/MsgProcess.h"

#include "data/gu/report/MsgDispTable.h"
#include "support/GuFixture.h"

#include <gtest/gtest.h>

namespace
{
/// A processor that remembers what it was given. Which of the two ways a request takes is told by its row.
class CProbe : public IMsgProcess
{
public:
    using IMsgProcess::IMsgProcess;
    bool ProcessInd(ByteView packet) override
    {
        indications.emplace_back(packet);
        return bResult;
    }
    bool ProcessCnf(ByteView packet) override
    {
        confirms.emplace_back(packet);
        return IMsgProcess::ProcessCnf(packet);
    }
    bool SendReqToUe(ByteView request) override
    {
        if (m_ulReqMsgId != NO_ID)
            return SendTransReqToUe(request);
        return SendTraceReqToUe(request, &m_ulPid, 1);
    }
    using IMsgProcess::IsReportDue;
    using IMsgProcess::Packet;
    using IMsgProcess::SendReport;

    std::vector<Bytes> indications;
    std::vector<Bytes> confirms;
    bool bResult = true;
};

// A transparent processor with two packets, one of them with a range of its own and a confirm id out of the row.
constexpr MSG_PROCESS_ROW TRANS_ROW = {CreateProcessor<CProbe>,
                                       {0xE602},
                                       0xE601,
                                       0xE600,
                                       {PID_G, 44},
                                       {{{0xE52C, 0xE52D, 0xE52E}, {0xE519, 0xE51B, 0xE51C, 100, 300}}},
                                       500,
                                       2000,
                                       700};
// A trace processor with two indications and no UE confirm.
constexpr MSG_PROCESS_ROW TRACE_ROW = {
    CreateProcessor<CProbe>, {0x1013, 0x1016}, NO_ID, NO_ID, {131, 26}, {{{0xE55C, 0xE55D, 0xE55E}}}, 500, 2000};
constexpr MSG_PROCESS_ROW ON_OFF_ROW = {CreateProcessor<CProbe>,      {0x7502}, NO_ID, NO_ID, {130, 24},
                                        {{{0xE57C, 0xE57D, 0xE57E}}}, 0,        0};

Bytes Request(unsigned short usId, unsigned char ucType, const Bytes& params)
{
    return Join(Le(static_cast<unsigned int>(usId)), Le(static_cast<unsigned short>(ucType)),
                Le(static_cast<unsigned short>(params.size())), params);
}
Bytes Start(unsigned short usPeriod)
{
    return Join(Hex("01 00"), Le(usPeriod));
}
const Bytes STOP = Hex("00 00 00 00");

/// A dispatcher of no kind, with the test's own processors.
struct MsgDisp : testing::Test
{
    GuPacketMatch Cnf(unsigned short usId, unsigned char ucType = 84)
    {
        // Stamp 0xFFFFFFFF, whose complement is 0: the UE of these tests is of no known class.
        return {0x01000000U | unsigned{ucType} << 16 | usId, 0, 0, static_cast<unsigned short>(0x0100 | ucType),
                Fill(4)};
    }
    GuPacketMatch Error(unsigned short usId, unsigned int ulRc, unsigned char ucType = 84)
    {
        return {0x01000000U | unsigned{ucType} << 16 | usId, ulRc, 0, static_cast<unsigned short>(0x0100 | ucType),
                Le(ulRc)};
    }
    void Trans(unsigned short usId, const Bytes& params)
    {
        EXPECT_TRUE(disp.SendReqToUe(Request(usId, 84, params), usId));
    }
    void Trace(unsigned short usId, const Bytes& params)
    {
        EXPECT_TRUE(disp.SendReqToUe(Request(usId, 81, params), usId));
    }
    void ExpectConfirm(const GuPacketMatch& expected)
    {
        const auto packets = gu.Confirms();
        ASSERT_EQ(packets.size(), 1U);
        ExpectPacket(packets[0], expected);
    }

    CGuFixture gu{"TEAK-11"};
    CMsgDisp disp{&gu.Operation(), 0};
    CProbe trans0{&disp, TRANS_ROW, 0};
    CProbe trans1{&disp, TRANS_ROW, 1};
    CProbe trace0{&disp, TRACE_ROW, 0};
    CProbe trace1{&disp, TRACE_ROW, 1};
    CProbe onOff{&disp, ON_OFF_ROW, 0};

    void SetUp() override
    {
        gu.Request(0x80A5, 90, Fill(4));
        gu.Forget();
    } // the client is known
};
} // namespace

TEST_F(MsgDisp, KindsOfDispatchers)
{
    EXPECT_TRUE(MsgProcessTable(2).empty());
    EXPECT_TRUE(MsgProcessTable(0).empty());
    EXPECT_FALSE(MsgProcessTable(MSG_DISP_TRANS).empty());
    const CMsgDisp empty(&gu.Operation(), 3);
    EXPECT_EQ(empty.GetProcessorByUeIND(0xC002), nullptr);
    const CMsgDisp transparent(&gu.Operation(), 4);
    ASSERT_NE(transparent.GetProcessorByUeIND(0xC002), nullptr);
    EXPECT_EQ(transparent.GetProcessorByUeIND(0xC002)->GetModem(), 0U);
    ASSERT_NE(transparent.GetProcessorByUeIND(0x1C002), nullptr);
    EXPECT_EQ(transparent.GetProcessorByUeIND(0x1C002)->GetModem(), 1U);
}

TEST_F(MsgDisp, IdsOfBothModems)
{
    EXPECT_EQ(disp.GetProcessorByUeIND(0xE602), &trans0);
    EXPECT_EQ(disp.GetProcessorByUeIND(0x1E602), &trans1);
    EXPECT_EQ(disp.GetProcessorByUeCNF(0xE601), &trans0);
    EXPECT_EQ(disp.GetProcessorByUeCNF(0x1E601), &trans1);
    EXPECT_EQ(disp.GetProcessorByPacketId(0xE52C), &trans0);
    EXPECT_EQ(disp.GetProcessorByPacketId(0xE62C), &trans1);
    EXPECT_EQ(disp.GetProcessorByPacketId(0xE52D), nullptr);
    EXPECT_EQ(trans1.GetCnfFromReq(0xE62C), 0xE62D);
    EXPECT_EQ(trans1.GetCnfFromReq(0xE52C), 0);
    EXPECT_EQ(disp.GetProcessorByUeIND(0x1013), &trace0);
    EXPECT_EQ(disp.GetProcessorByUeIND(0x1016), &trace0);
    EXPECT_EQ(disp.GetProcessorByUeIND(0x11016), &trace1);
    EXPECT_EQ(disp.GetProcessorByUeCNF(0), nullptr);
    EXPECT_EQ(disp.GetProcessorByUeIND(0), nullptr) << "a row with one indication has no second one";
}

TEST_F(MsgDisp, ConfirmIdThatSkips)
{
    EXPECT_EQ(trans0.GetCnfFromReq(0xE519), 0xE51B);
    EXPECT_EQ(trans1.GetCnfFromReq(0xE619), 0xE61B);
    ASSERT_NE(trans1.FindPacket(0xE619), nullptr);
    EXPECT_EQ(trans1.FindPacket(0xE619)->usIndPacket, 0xE61C);
    EXPECT_EQ(trans1.FindPacket(0xE619)->ulMinPeriod, 100U) << "a range of its own";
    EXPECT_EQ(trans1.FindPacket(0xE619)->ulMaxPeriod, 300U);
    EXPECT_EQ(trans1.FindPacket(0xE62C)->ulMinPeriod, 500U) << "that of the row";
    EXPECT_EQ(trans1.FindPacket(0xE62C)->ulMaxPeriod, 2000U);
}

TEST_F(MsgDisp, PidsAreSettledAtConstruction)
{
    EXPECT_EQ(trans0.GetPid(), 517U) << "no known version class";
    EXPECT_EQ(trans1.GetPid(), 44U);
    CGuFixture known("CEDAR-03");
    CMsgDisp later(&known.Operation(), 0);
    EXPECT_EQ(CProbe(&later, TRANS_ROW, 0).GetPid(), 205U);
    EXPECT_EQ(CProbe(&later, TRANS_ROW, 1).GetPid(), 44U);
}

TEST_F(MsgDisp, AnotherModemHasNoPackets)
{
    CMsgDisp other(&gu.Operation(), 0);
    CProbe probe(&other, TRANS_ROW, 2);
    EXPECT_EQ(other.GetProcessorByUeIND(0x2E602), &probe);
    EXPECT_EQ(other.GetProcessorByPacketId(0xE52C), nullptr);
    EXPECT_EQ(other.GetProcessorByPacketId(0xE72C), nullptr);
}

TEST_F(MsgDisp, FirstProcessorKeepsAnIndication)
{
    CMsgDisp other(&gu.Operation(), 0);
    CProbe first(&other, TRACE_ROW, 0);
    CProbe second(&other, ON_OFF_ROW, 0);
    other.AddMap(&second, 0x1013, 0x9999, 0);
    EXPECT_EQ(other.GetProcessorByUeIND(0x1013), &first);
    EXPECT_EQ(other.GetProcessorByUeCNF(0x9999), nullptr) << "the confirm isn't entered either";
    other.AddMap(&second, 0x2222, 0x9999, 1);
    EXPECT_EQ(other.GetProcessorByUeIND(0x12222), &second);
    EXPECT_EQ(other.GetProcessorByUeCNF(0x19999), &second);
    other.AddMap(&first, 0x2223, 0x9999, 1);
    EXPECT_EQ(other.GetProcessorByUeCNF(0x19999), &second) << "a confirm stays with its first one too";
    other.AddMap(&first, 0, 0x7777, 0);
    EXPECT_EQ(other.GetProcessorByUeCNF(0x7777), nullptr);
}

TEST_F(MsgDisp, MessagesFindTheirProcessor)
{
    const Bytes packet = GuMsg(0xE602, Hex("01 02 03 04"));
    EXPECT_TRUE(disp.Process(packet, 0x1E602));
    EXPECT_EQ(trans1.indications, std::vector<Bytes>{packet});
    EXPECT_TRUE(trans0.indications.empty());
    trans0.bResult = false;
    EXPECT_FALSE(disp.Process(packet, 0xE602)) << "its own result";
    EXPECT_TRUE(disp.Process(packet, 0xE601));
    EXPECT_EQ(trans0.confirms, std::vector<Bytes>{packet});
    EXPECT_FALSE(disp.Process(packet, 0xE603)) << "nobody's";
}

TEST_F(MsgDisp, UnknownRequest)
{
    EXPECT_FALSE(disp.SendReqToUe(Request(0xE5FF, 84, Start(500)), 0xE5FF));
    EXPECT_TRUE(gu.Confirms().empty());
    EXPECT_TRUE(gu.ToUe().empty());
    EXPECT_FALSE(trans0.SendTransReqToUe(Request(0xE62C, 84, Start(500))));
    EXPECT_FALSE(trace0.SendTraceReqToUe(Request(0xE65C, 81, Start(500)), nullptr, 0));
}

TEST_F(MsgDisp, SecondModemNeedsADualCard)
{
    CMsgDisp& transparent = *gu.Operation().GetTransMsgDisp();
    EXPECT_FALSE(transparent.SendReqToUe(Request(0xE650, 84, Start(1000)), 0xE650));
    ExpectConfirm(Error(0xE651, 47));
    EXPECT_TRUE(gu.ToUe().empty());
    gu.BeDualCard();
    EXPECT_TRUE(transparent.SendReqToUe(Request(0xE650, 84, Start(1000)), 0xE650));
    ExpectConfirm(Cnf(0xE651));
    EXPECT_EQ(gu.ToUe(), std::vector<Bytes>{TransReq(0xC00B, 40, Start(1000))});
}

TEST_F(MsgDisp, StartRunsTheUeAtTheDefaultPeriod)
{
    Trans(0xE52C, Join(Hex("01 77"), Hex("E8 03"), Hex("AA BB")));
    EXPECT_EQ(gu.ToUe(), std::vector<Bytes>{TransReq(0xE600, 517, Hex("01 77 BC 02 AA BB"))}) << "700 for 1000";
    ExpectConfirm(Cnf(0xE52D));
    EXPECT_EQ(trans0.GetActive(), 1);
    EXPECT_EQ(trans0.FindPacket(0xE52C)->ulPeriod, 1000U);
    EXPECT_FALSE(trans0.FindPacket(0xE52C)->bWaitCnf);
}

TEST_F(MsgDisp, PeriodsOfAStart)
{
    for (const unsigned short usBad : Words{0, 499, 750, 2001, 2500}) {
        Trans(0xE52C, Start(usBad));
        ExpectConfirm(Error(0xE52D, 2));
        EXPECT_TRUE(gu.ToUe().empty()) << usBad;
        EXPECT_EQ(trans0.GetActive(), 0);
    }
    for (const unsigned short usGood : Words{500, 1000, 1500, 2000}) {
        Trans(0xE52C, Start(usGood));
        ExpectConfirm(Cnf(0xE52D));
        EXPECT_EQ(gu.ToUe(), std::vector<Bytes>{TransReq(0xE600, 517, Start(700))}) << usGood;
        EXPECT_EQ(trans0.GetActive(), 1) << "a restart counts once";
    }
    Trans(0xE52C, Start(750));
    ExpectConfirm(Error(0xE52D, 2));
    EXPECT_EQ(trans0.FindPacket(0xE52C)->ulPeriod, 2000U) << "a bad start changes nothing";
}

TEST_F(MsgDisp, UnknownSwitch)
{
    Trans(0xE52C, Join(Hex("02 00"), Hex("F4 01")));
    ExpectConfirm(Error(0xE52D, 2));
    EXPECT_TRUE(gu.ToUe().empty());
    Trace(0xE55C, Join(Hex("02 00"), Hex("F4 01")));
    ExpectConfirm(Error(0xE55D, 2, 81));
    EXPECT_TRUE(gu.ToUe().empty());
}

TEST_F(MsgDisp, LastStopReachesTheUe)
{
    Trans(0xE52C, Start(500));
    Trans(0xE519, Start(200));
    EXPECT_EQ(gu.ToUe().size(), 2U) << "the second start sends the request again";
    EXPECT_EQ(trans0.GetActive(), 2);
    gu.Forget();
    Trans(0xE52C, STOP);
    ExpectConfirm(Cnf(0xE52D));
    EXPECT_TRUE(gu.ToUe().empty()) << "the other still runs";
    EXPECT_EQ(trans0.FindPacket(0xE52C)->ulPeriod, 0U);
    Trans(0xE519, Hex("00 11 22 33"));
    ExpectConfirm(Cnf(0xE51B));
    EXPECT_EQ(gu.ToUe(), std::vector<Bytes>{TransReq(0xE600, 517, Hex("00 11 22 33"))}) << "parameters as they came";
    Trans(0xE519, STOP);
    ExpectConfirm(Cnf(0xE51B));
    EXPECT_EQ(gu.ToUe(), std::vector<Bytes>{TransReq(0xE600, 517, STOP)}) << "a stop at 0 is sent as well";
    EXPECT_EQ(trans0.GetActive(), 0);
}

TEST_F(MsgDisp, ShortParameters)
{
    Trans(0xE52C, Hex("01")); // a period that isn't there is 0
    ExpectConfirm(Error(0xE52D, 2));
    Trans(0xE52C, Hex("00"));
    ExpectConfirm(Cnf(0xE52D));
    EXPECT_EQ(gu.ToUe(), std::vector<Bytes>{TransReq(0xE600, 517, Hex("00"))});
}

TEST_F(MsgDisp, TraceStartAndStop)
{
    Trace(0xE55C, Start(500));
    EXPECT_EQ(gu.ToUe(), std::vector<Bytes>{TraceSwitch({131})});
    ExpectConfirm(Cnf(0xE55D, 81));
    EXPECT_TRUE(trace0.FindPacket(0xE55C)->bTraceOn);
    EXPECT_EQ(trace0.FindPacket(0xE55C)->ulPeriod, 500U);
    EXPECT_EQ(gu.Operation().TraceCounter().GetCounter(131), 1);
    Trace(0xE55C, Start(2500));
    ExpectConfirm(Cnf(0xE55D, 81));
    EXPECT_EQ(trace0.FindPacket(0xE55C)->ulPeriod, 2500U) << "the upper bound isn't checked";
    EXPECT_EQ(gu.Operation().TraceCounter().GetCounter(131), 2) << "each start counts";
    for (const unsigned short usBad : Words{0, 499, 750}) {
        (void)gu.ToUe();
        Trace(0xE55C, Start(usBad));
        ExpectConfirm(Error(0xE55D, 2, 81));
        EXPECT_TRUE(gu.ToUe().empty()) << usBad;
    }
    Trace(0xE55C, STOP);
    EXPECT_EQ(gu.ToUe(), std::vector<Bytes>{TraceSwitch({131})});
    Trace(0xE55C, STOP);
    EXPECT_EQ(gu.ToUe(), std::vector<Bytes>{TraceSwitch({})}) << "12 bytes and no PID";
    EXPECT_EQ(trace0.FindPacket(0xE55C)->ulPeriod, 0U);
    EXPECT_EQ(gu.Confirms().size(), 2U);
}

TEST_F(MsgDisp, TraceWithoutARangeIsOnOrOff)
{
    Trace(0xE57C, Start(12345));
    ExpectConfirm(Cnf(0xE57D, 81));
    EXPECT_EQ(onOff.FindPacket(0xE57C)->ulPeriod, 1U);
    EXPECT_EQ(gu.ToUe(), std::vector<Bytes>{TraceSwitch({130})});
    Trace(0xE57C, Start(0));
    ExpectConfirm(Cnf(0xE57D, 81));
}

TEST_F(MsgDisp, ReportAndItsGate)
{
    // The stamp is the complement of the real one for this UE: 750 ms real time is ~Ticks(750).
    trans1.FindPacket(0xE62C)->ulPeriod = 1000;
    EXPECT_FALSE(trans1.IsReportDue(0xE52C, ~Ticks(749)));
    EXPECT_TRUE(trans1.IsReportDue(0xE52C, ~Ticks(750)));
    EXPECT_FALSE(trans0.IsReportDue(0xE52C, ~Ticks(5000))) << "off";
    EXPECT_FALSE(trans0.IsReportDue(0xE5AA, ~Ticks(5000))) << "no such packet";
    trans1.SendReport(0xE52C, ~0x11223344U, Hex("0A 0B 0C"));
    trans1.SendReport(0xE52C, 0, Hex("0D"), PKT_TYPE_GU_TRACE);
    trans1.SendReport(0xE5AA, 0, Hex("0E"));
    const auto packets = gu.Indications();
    ASSERT_EQ(packets.size(), 2U);
    ExpectPacket(packets[0], {0x0154E62E, 1, 0x11223344, 0x0154, Hex("0A 0B 0C")});
    ExpectPacket(packets[1], {0x0151E62E, 2, 0xFFFFFFFF, 0x0151, Hex("0D")});
}
