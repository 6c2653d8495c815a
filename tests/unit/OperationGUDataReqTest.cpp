#include "data/gu/OperationGUData.h"

#include "agent/Client.h"
#include "common/Config.h"
#include "support/GuEvents.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>
#include <thread>

namespace
{
/// A request without its lead bytes.
Bytes Packet(unsigned int ulCmdId, unsigned short usPktType, const Bytes& params)
{
    return Join(Le(ulCmdId), Le(usPktType), Le(static_cast<unsigned short>(params.size())), params);
}

void ExpectOneConfirm(CGuFixture& gu, const GuPacketMatch& expected)
{
    const auto packets = gu.Confirms();
    ASSERT_EQ(packets.size(), 1U);
    ExpectPacket(packets[0], expected);
}
} // namespace

TEST(OperationGUDataReq, PacketTypes)
{
    CGuFixture gu;
    const auto Translate = [&](const Bytes& req) {
        return gu.Operation().TranslateProbePacket(req, &gu.Agent().Agent().Bindings(), gu.Cmd().Get());
    };
    EXPECT_EQ(Translate(Packet(0xA005, 82, {})), 1) << "no parameters";
    EXPECT_EQ(Translate(Packet(0xA005, 83, Fill(4))), 2);
    EXPECT_EQ(Translate(Packet(0xA005, 240, Fill(4))), 2);
    EXPECT_TRUE(gu.ToUe().empty());
    EXPECT_EQ(Translate(Packet(0xA005, 0xAB52, Fill(4))), 0) << "the low byte counts";
    EXPECT_EQ(gu.ToUe().size(), 1U);
    EXPECT_EQ(Translate(Packet(0xFFFFA005, 82, Fill(4))), 0) << "the low 16 bits of the id count";
    EXPECT_EQ(gu.ToUe().size(), 1U);
    for (const unsigned short usType : Words{81, 84, 90})
        EXPECT_EQ(Translate(Packet(0x1111, usType, Fill(4))), 0);
    EXPECT_TRUE(gu.ToUe().empty()) << "unknown ids vanish";
    EXPECT_TRUE(gu.Confirms().empty());
}

TEST(OperationGUDataReq, OtaBytes)
{
    CGuFixture gu;
    gu.Request(0xA005, 82, Hex("11 22 33 44 55 66"));
    EXPECT_EQ(gu.ToUe(), std::vector<Bytes>{Hex("02 00 1C 00  00 00 00 00  69 00 00 00  00 00 00 00"
                                                "80 00 00 00  08 00 00 00  05 A0 00 00  11 22 33 44")});
    gu.Request(0xA005, 82, Hex("11"));
    EXPECT_EQ(Bytes(Slice(ByteView(gu.ToUe().at(0)), 28)), Hex("11 00 00 00"));
}

TEST(OperationGUDataReq, OtaTable)
{
    struct
    {
        unsigned short usId;
        unsigned int ulPid;
        unsigned short usErrCnf; // for a UE that isn't dual card; 0: sent all the same
    } const aRow[] = {
        {0xA005, 128, 0}, {0xA035, 28, 0xA045}, {0xB020, 133, 0}, {0xC101, 141, 0}, {0xC104, 30, 0xC105},
    };
    CGuFixture gu;
    for (const auto& stRow : aRow) {
        SCOPED_TRACE(stRow.usId);
        gu.Request(stRow.usId, 82, Le(1U));
        EXPECT_EQ(gu.ToUe().size(), stRow.usErrCnf == 0 ? 1U : 0U);
        if (stRow.usErrCnf != 0)
            ExpectOneConfirm(gu, {0x01520000U | stRow.usErrCnf, 47, 0, 0x0152, Le(47U)});
    }
    gu.BeDualCard();
    for (const auto& stRow : aRow) {
        SCOPED_TRACE(stRow.usId);
        gu.Request(stRow.usId, 82, Le(1U));
        const auto packets = gu.ToUe();
        ASSERT_EQ(packets.size(), 1U);
        EXPECT_EQ(LoadLe<uint32_t>(packets[0], 16), stRow.ulPid);
        EXPECT_EQ(LoadLe<uint32_t>(packets[0], 24), stRow.usId);
        EXPECT_EQ(packets[0].size(), 32U);
    }
    EXPECT_TRUE(gu.Confirms().empty());
    gu.Request(0xA006, 82, Le(1U));
    EXPECT_TRUE(gu.ToUe().empty());
}

TEST(OperationGUDataReq, QueryTable)
{
    CGuFixture gu;
    gu.Request(0x80A5, 90, Fill(4));
    EXPECT_EQ(gu.ToUe(), std::vector<Bytes>{Hex("0A 00 08 00 A5 80 00 00 00 00 00 00")});
    gu.Request(0x80A7, 90, Fill(4));
    EXPECT_TRUE(gu.ToUe().empty());
    ExpectOneConfirm(gu, {0x015A80A8, 47, 0, 0x015A, Le(47U)});
    gu.BeDualCard();
    gu.Request(0x80A7, 90, Fill(4));
    EXPECT_EQ(gu.ToUe(), std::vector<Bytes>{Hex("4A 00 08 00 A5 80 00 00 00 00 00 00")});
    gu.Request(0x80A6, 90, Fill(4));
    EXPECT_TRUE(gu.ToUe().empty());
    EXPECT_TRUE(gu.Confirms().empty());
}

TEST(OperationGUDataReq, SingleCardIsNotDual)
{
    CGuFixture gu;
    gu.FromUe(GuAnswer(0x8212, 1));
    EXPECT_EQ(gu.Operation().GetModemNum(), MODEM_NUM_SINGLE);
    gu.Forget();
    gu.Request(0x80A7, 90, Fill(4));
    ExpectOneConfirm(gu, {0x015A80A8, 47, 0, 0x015A, Le(47U)});
}

TEST(OperationGUDataReq, OwnRequestTable)
{
    struct
    {
        unsigned short usId;
        std::vector<unsigned short> sent;
        unsigned int ulPid;
    } const aRow[] = {
        {0xB010, {0xB010, 0xB013, 0xB063}, 133},
        {0xB016, {0xB016}, 133},
        {0xB060, {0xB016}, 133},
        {0xB019, {0xB019}, 133},
        {0xB01C, {0xB01C}, 133},
        {0xC001, {0xC001}, 141},
    };
    CGuFixture gu;
    const Bytes params = Hex("01 02 F4 01 77 88"); // valid as the start of a cell report, with something behind it
    for (const auto& stRow : aRow) {
        std::vector<Bytes> expected;
        for (const unsigned short usSent : stRow.sent)
            expected.push_back(TransReq(usSent, stRow.ulPid, params));
        gu.Request(stRow.usId, 84, params);
        EXPECT_EQ(gu.ToUe(), expected) << stRow.usId;
    }
    EXPECT_TRUE(gu.Confirms().empty()) << "the UE confirms these";
    gu.Request(0xB013, 84, params);
    gu.Request(0xF505, 84, params);
    gu.Request(0xF54F, 84, params);
    EXPECT_TRUE(gu.ToUe().empty());
}

TEST(OperationGUDataReq, BlerRequest)
{
    CGuFixture gu;
    gu.Request(0xF020, 84, Hex("03 00 F4 01"));
    EXPECT_EQ(gu.ToUe(), std::vector<Bytes>{TransReq(0xF020, 515, Hex("03 00 32 00"))}) << "500 as 50";
    CGuFixture known("ROWAN-03");
    known.Request(0xF020, 84, Hex("03 00 64 00 99"));
    EXPECT_EQ(known.ToUe(), std::vector<Bytes>{TransReq(0xF020, 203, Hex("03 00 0A 00 99"))});
}

TEST(OperationGUDataReq, BlerPeriods)
{
    struct
    {
        Bytes params;
        bool bValid;
    } const aRow[] = {
        {Hex("03 00 63 00"), false}, {Hex("03 00 64 00"), true}, {Hex("03 00 D0 07"), true},
        {Hex("03 00 D1 07"), false}, {Hex("00 00 00 00"), true}, {Hex("01 00 F4 01"), false},
        {Hex("03 01 F4 01"), false}, {Hex("03"), false},
    };
    CGuFixture gu;
    for (const auto& stRow : aRow) {
        SCOPED_TRACE(testing::PrintToString(stRow.params));
        gu.Request(0xF020, 84, stRow.params);
        EXPECT_EQ(gu.ToUe().size(), stRow.bValid ? 1U : 0U);
        if (stRow.bValid)
            EXPECT_TRUE(gu.Confirms().empty());
        else
            ExpectOneConfirm(gu, {0x0154F021, 2, 0, 0x0154, Le(2U)});
    }
}

TEST(OperationGUDataReq, CellPeriods)
{
    struct
    {
        Bytes params;
        bool bValid;
    } const aRow[] = {
        {Hex("01 02 63 00"), false}, {Hex("01 02 64 00"), true},  {Hex("01 02 D0 07"), true},
        {Hex("01 02 D1 07"), false}, {Hex("00 00 00 00"), true},  {Hex("00 02 64 00"), true},
        {Hex("05 02 64 00"), true},  {Hex("01 01 64 00"), false},
    };
    struct
    {
        unsigned short usId;
        unsigned int ulErrId;
    } const aId[] = {{0xB010, 0x0154B011}, {0xB016, 0x0154B017}, {0xB060, 0x0154B061}};
    CGuFixture gu;
    for (const auto& stId : aId)
        for (const auto& stRow : aRow) {
            SCOPED_TRACE(testing::PrintToString(stRow.params));
            gu.Request(stId.usId, 84, stRow.params);
            EXPECT_EQ(!gu.ToUe().empty(), stRow.bValid);
            if (stRow.bValid)
                EXPECT_TRUE(gu.Confirms().empty());
            else
                ExpectOneConfirm(gu, {stId.ulErrId, 2, 0, 0x0154, Le(2U)});
        }
}

TEST(OperationGUDataReq, PeriodIsStoredOrCleared)
{
    CPeriodMsgFromUe report;
    EXPECT_TRUE(CUeReports::CheckCellReportPeriodValid(Hex("01 02 F4 01"), report));
    EXPECT_EQ(report.GetPeriod(), 500);
    EXPECT_FALSE(CUeReports::CheckCellReportPeriodValid(Hex("01 02 63 00"), report));
    EXPECT_EQ(report.GetPeriod(), 0) << "the running report stops";
    EXPECT_TRUE(CUeReports::CheckCellReportPeriodValid(Hex("01 02 F4 01"), report));
    EXPECT_TRUE(CUeReports::CheckCellReportPeriodValid(Hex("00 02 F4 01"), report));
    EXPECT_EQ(report.GetPeriod(), 0);
}

TEST(OperationGUDataReq, ErrorConfirmBytes)
{
    CGuFixture gu;
    gu.Operation().ProcessSerialData(&gu.Agent().Agent().Bindings(), {}, 0); // the UE is known
    gu.Operation().BuildErrCnfPacketToClient(0xF020, 84, 2);
    gu.Operation().BuildErrCnfPacketToClient(0xE501, 81, 47);
    EXPECT_EQ(gu.Cmd().Pending(), Hex("9F 9F 21 F0 54 01 02 00 00 00 00 00 00 00 00 00 00 00 54 01 04 00 02 00 00 00"
                                      "9F 9F 01 E5 51 01 2F 00 00 00 00 00 00 00 00 00 00 00 51 01 04 00 2F 00 00 00"));
}

TEST(OperationGUDataReq, BeforeTheUeSpokeTheLastClientGetsTheAnswer)
{
    CGuFixture gu; // not a block from the UE yet, so its index isn't known
    gu.Request(0x80A7, 90, Fill(4));
    ExpectOneConfirm(gu, {0x015A80A8, 47, 0, 0x015A, Le(47U)});
    gu.Operation().ForgetClient(gu.Cmd().Get());
    gu.Operation().BuildErrCnfPacketToClient(0x80A8, 90, 47);
    EXPECT_TRUE(gu.Confirms().empty()) << "nobody";
}

TEST(OperationGUDataReq, Segments)
{
    struct
    {
        size_t szParams;
        std::vector<std::pair<size_t, unsigned char>> frames; // payload, number
    } const aRow[] = {
        {1, {{29, 1}}},
        {2048 - 28, {{2048, 1}}},
        {2049 - 28, {{2048, 1}, {1, 2}}},
        {4096 - 28, {{2048, 1}, {2048, 2}}},
        {4097 - 28, {{2048, 1}, {2048, 2}, {1, 3}}},
    };
    CGuFixture gu;
    gu.FromUe(GuAnswer(0, 0));
    gu.Forget();
    for (const auto& stRow : aRow) {
        gu.Operation().BuildTransReqMsg(0x1234, Fill(stRow.szParams, 0x77), 99);
        const auto frames = gu.Agent().ToUe();
        ASSERT_EQ(frames.size(), stRow.frames.size());
        Bytes joined;
        for (size_t i = 0; i < frames.size(); ++i) {
            EXPECT_EQ(LoadLe<uint16_t>(frames[i].data, 5), stRow.frames[i].first + 4);
            EXPECT_EQ(frames[i].data[7], stRow.frames.size()) << "of so many";
            EXPECT_EQ(frames[i].data[8], stRow.frames[i].second);
            EXPECT_EQ(frames[i].ulUeIdx, 0U);
            joined = Join(joined, Slice(ByteView(frames[i].data), 9, stRow.frames[i].first));
        }
        EXPECT_EQ(joined, TransReq(0x1234, 99, Fill(stRow.szParams, 0x77)));
    }
}

TEST(OperationGUDataReq, EachSegmentGoesWithThePauseBehindIt)
{
    CGuFixture gu;
    gu.FromUe(GuAnswer(0, 0));
    gu.Forget();
    CAgentFixture::Configure("TIME_SPACE=3600000"); // an hour: nobody waits for it here
    gu.Operation().BuildTransReqMsg(0x1234, Fill(2049), 99);
    for (int i = 0; i < 2; ++i) {
        MSG_UE stMsg;
        ASSERT_TRUE(CMsgBuf::Instance()->UeQueue().get(stMsg));
        EXPECT_EQ(stMsg.pause, std::chrono::hours(1));
    }
    EXPECT_TRUE(gu.ToUe().empty());
}

TEST(OperationGUDataReq, NoUeToSendTo)
{
    const CLogCapture log;
    COperationGUData alone;
    alone.BuildTransReqMsg(0x1234, Fill(4), 99);
    EXPECT_EQ(log.Count("[WAN] : client is not bind to any channel"), 1);

    CGuFixture gu;
    const auto other = gu.Agent().AddClient(CHANNEL_GU_CMD); // the second of its type is bound by nobody
    (void)gu.Operation().TranslateProbePacket(Packet(0x80A5, 90, Fill(4)), &gu.Agent().Agent().Bindings(), other.Get());
    EXPECT_EQ(log.Count("client is not bind to any channel"), 2);
    EXPECT_TRUE(gu.ToUe().empty());
}

TEST(OperationGUDataReq, ForgottenClientLeavesTheOwnUe)
{
    CGuFixture gu;
    gu.FromUe(GuAnswer(0, 0));
    const auto other = gu.Agent().AddClient(CHANNEL_GU_CMD);
    (void)gu.Operation().TranslateProbePacket(Packet(0x1111, 90, Fill(4)), &gu.Agent().Agent().Bindings(), other.Get());
    gu.Operation().BuildTraceReqMsg();
    EXPECT_TRUE(gu.ToUe().empty()) << "that client is bound to no UE";
    gu.Operation().ForgetClient(gu.Cmd().Get());
    gu.Operation().BuildTraceReqMsg();
    EXPECT_TRUE(gu.ToUe().empty()) << "another one was forgotten";
    gu.Operation().ForgetClient(other.Get());
    gu.Operation().BuildTraceReqMsg();
    EXPECT_EQ(gu.ToUe(), std::vector<Bytes>{TraceSwitch({})});
}

namespace
{
constexpr unsigned int PORT_UE_0 = 7; // of the fixture
constexpr unsigned int PORT_UE_1 = 9;
constexpr unsigned int PORT_NETWORK = 20;
constexpr int NOWHERE = -1;

/// The UE that a request of this object's own goes to, when there is one.
int OwnRequestGoesTo(COperationGUData& operation)
{
    operation.BuildTraceReqMsg();
    const auto sent = DrainUeQueue();
    return sent.empty() ? NOWHERE : static_cast<int>(sent[0].ulUeIdx);
}

struct OwnRequests : testing::Test
{
    OwnRequests()
    {
        for (const auto& [ulUeIdx, ulPort] : {std::pair{1U, PORT_UE_1}, std::pair{15U, PORT_NETWORK}}) {
            gu.Agent().AttachUe(ulUeIdx, ulPort);
            gu.Agent().Confirm(ulUeIdx);
        }
        gu.Request(0x1111, 90, Fill(4)); // nobody knows the id, but the client is the last one now
    }
    /// The UE has spoken, so the object knows which one it is.
    static void Speak(CGuFixture& gu, COperationGUData& operation, unsigned char ucUeIdx)
    {
        operation.ProcessSerialData(&gu.Agent().Agent().Bindings(), {}, ucUeIdx);
    }
    void Unbind()
    {
        const xtl::MutexGuard guard(gu.Agent().Agent().Bindings().Mutex());
        gu.Agent().Agent().Bindings().UnBindUE(gu.Cmd().Get());
    }

    CGuFixture gu;
};
} // namespace

TEST_F(OwnRequests, StayWithTheUeWhereverTheLastClientWent)
{
    Speak(gu, gu.Operation(), 0);
    EXPECT_EQ(OwnRequestGoesTo(gu.Operation()), 0) << "bound here";
    ASSERT_TRUE(gu.Agent().Bind(gu.Cmd(), PORT_UE_1));
    EXPECT_EQ(OwnRequestGoesTo(gu.Operation()), 0) << "bound to another UE";
    ASSERT_TRUE(gu.Agent().Bind(gu.Cmd(), PORT_UE_0));
    EXPECT_EQ(OwnRequestGoesTo(gu.Operation()), 0) << "bound here again";
}

TEST_F(OwnRequests, AreDroppedWhileTheLastClientIsUnbound)
{
    const CLogCapture log;
    Speak(gu, gu.Operation(), 0);
    Unbind();
    EXPECT_EQ(OwnRequestGoesTo(gu.Operation()), NOWHERE);
    EXPECT_EQ(log.Count("[WAN] : client is not bind to any channel"), 1);
}

TEST_F(OwnRequests, GoToTheClientsUeBeforeTheOwnIndexIsKnown)
{
    EXPECT_EQ(OwnRequestGoesTo(gu.Operation()), 0);
    ASSERT_TRUE(gu.Agent().Bind(gu.Cmd(), PORT_UE_1));
    EXPECT_EQ(OwnRequestGoesTo(gu.Operation()), 1);
}

TEST_F(OwnRequests, SetUpOfAUeThatCameBackStaysWithIt)
{
    ASSERT_TRUE(gu.Agent().Bind(gu.Cmd(), PORT_UE_1));
    gu.FromUe(GuVersion("CEDAR-03"));
    const auto sent = gu.Agent().ToUe();
    EXPECT_GE(sent.size(), 4U) << "tool attached, DSP address, mode, cards";
    for (const QueuedMsg& stMsg : sent)
        EXPECT_EQ(stMsg.ulUeIdx, 0U);
}

TEST_F(OwnRequests, LastClientIsForgottenAtTheDetachOfTheCommandChannel)
{
    Speak(gu, gu.Operation(), 0);
    Unbind(); // or the detach would close it
    for (const enChannelType enGone : {CHANNEL_LTE_DIAG, CHANNEL_LTE_DATA, CHANNEL_GU_DATA, CHANNEL_AT}) {
        gu.Agent().Detach(0, enGone);
        EXPECT_EQ(OwnRequestGoesTo(gu.Operation()), NOWHERE) << enGone;
    }
    gu.Agent().Detach(1, CHANNEL_GU_CMD);
    EXPECT_EQ(OwnRequestGoesTo(gu.Operation()), NOWHERE) << "another UE's";
    gu.Agent().Detach(0, CHANNEL_GU_CMD);
    EXPECT_EQ(OwnRequestGoesTo(gu.Operation()), 0);
}

TEST_F(OwnRequests, LastClientOfTheNetworkUeIsForgottenAtItsOneDetach)
{
    ASSERT_TRUE(gu.Agent().Bind(gu.Cmd(), PORT_NETWORK));
    COperationGUData& network =
        dynamic_cast<COperationGUData&>(*gu.Agent().Agent().Bindings().GetOperationGUFromClient(gu.Cmd().Get()));
    Speak(gu, network, 15);
    gu.Request(0x1111, 90, Fill(4));
    Unbind();
    EXPECT_EQ(OwnRequestGoesTo(network), NOWHERE);
    gu.Agent().Detach(15, CHANNEL_LTE_DIAG);
    EXPECT_EQ(OwnRequestGoesTo(network), 15);
}

TEST(OperationGUDataReq, RegisterRange)
{
    CGuFixture gu;
    gu.Request(0xF506, 84, Hex("01 00 F4 01"));
    EXPECT_TRUE(gu.Confirms().empty()) << "without a manager nobody answers";
    gu.FromUe(GuVersion("TEAK-11"));
    gu.Forget();
    // Known statistics answer with code 4, their addresses aren't known; 0xF508 is nobody's.
    gu.Request(0xF506, 84, Hex("01 00 F4 01"));
    ExpectOneConfirm(gu, {0x0154F507, 4, 0, 0x0154, Le(4U)});
    gu.Request(0xF536, 84, Hex("01 00 F4 01"));
    ExpectOneConfirm(gu, {0x0154F537, 4, 0, 0x0154, Le(4U)});
    gu.Request(0xF508, 84, Hex("01 00 F4 01"));
    EXPECT_TRUE(gu.Confirms().empty());
    EXPECT_TRUE(gu.ToUe().empty());
    // The ids that are taken out of the range, and the first behind it.
    gu.Request(0xF518, 84, Hex("00"));
    ExpectOneConfirm(gu, {0x0154F519, 0, 0, 0x0154, Fill(4)});
    gu.Request(0xF51B, 84, Hex("00"));
    ExpectOneConfirm(gu, {0x0154F51C, 0, 0, 0x0154, Fill(4)});
    gu.Request(0xF539, 84, Hex("00 00 00 00"));
    ExpectOneConfirm(gu, {0x0154F53A, 0, 0, 0x0154, Fill(4)});
}

TEST(OperationGUDataReq, ThroughputRequests)
{
    CGuFixture gu("CEDAR-03");
    const Bytes on = TransReq(0xD001, 138, Hex("01 07 00 00 01 00 00 00"));
    const Bytes off = TransReq(0xD001, 138, Hex("00 07 00 00 01 00 00 00"));
    EXPECT_EQ(LoadLe<uint16_t>(on, 2), 32);
    EXPECT_EQ(LoadLe<uint32_t>(on, 20), 12U);
    const unsigned short ausId[] = {0xF539, 0xF53C, 0xF53F, 0xF542};
    for (const unsigned short usId : ausId) {
        for (const Bytes& bad : {Hex("01 00 E7 03"), Hex("01 00 89 13"), Hex("02 00 E8 03"), Hex("FF 00 00 00")}) {
            gu.Request(usId, 84, bad);
            ExpectOneConfirm(gu, {0x01540001U + usId, 2, 0xFFFFFFFF, 0x0154, Le(2U)});
            EXPECT_TRUE(gu.ToUe().empty());
        }
        for (const Bytes& good : {Hex("01 00 88 13"), Hex("01 00 E8 03")}) {
            gu.Request(usId, 84, good);
            ExpectOneConfirm(gu, {0x01540001U + usId, 0, 0xFFFFFFFF, 0x0154, Fill(4)});
            EXPECT_EQ(gu.ToUe(), std::vector<Bytes>{on});
        }
    }
    for (const unsigned short usId : ausId) {
        gu.Request(usId, 84, Hex("00 00 00 00"));
        ExpectOneConfirm(gu, {0x01540001U + usId, 0, 0xFFFFFFFF, 0x0154, Fill(4)});
        EXPECT_EQ(gu.ToUe(), usId == 0xF542 ? std::vector<Bytes>{off} : std::vector<Bytes>{}) << "the last stop tells";
    }
}

TEST(OperationGUDataReq, MacRequests)
{
    CGuFixture gu("CEDAR-03");
    gu.Request(0xF518, 84, Hex("01"));
    ExpectOneConfirm(gu, {0x0154F519, 0, 0xFFFFFFFF, 0x0154, Fill(4)});
    EXPECT_EQ(gu.ToUe(), std::vector<Bytes>{Hex("01 00 10 00 01 81 00 00 01 00 01 00 01 00 00 00 85 00 00 00")})
        << "PID 133; 139 isn't counted";
    gu.Request(0xF51B, 84, Hex("01"));
    EXPECT_EQ(gu.Operation().TraceCounter().GetCounter(133), 2);
    gu.Request(0xF51B, 84, Hex("02"));
    EXPECT_EQ(gu.ToUe(), (std::vector<Bytes>(2, TraceSwitch({133})))) << "sent for an unknown switch too";
    auto packets = gu.Confirms();
    ASSERT_EQ(packets.size(), 2U);
    ExpectPacket(packets[1], {0x0154F51C, 0, 0xFFFFFFFF, 0x0154, Le(2U)});
    gu.Request(0xF518, 84, Hex("00"));
    EXPECT_EQ(gu.ToUe(), std::vector<Bytes>{TraceSwitch({133})});
    gu.Request(0xF51B, 84, Hex("00"));
    EXPECT_EQ(gu.ToUe(), std::vector<Bytes>{Hex("01 00 0C 00 01 81 00 00 01 00 01 00 00 00 00 00")});
}

TEST(OperationGUDataReq, OrderOfUeRequestAndConfirm)
{
    const struct
    {
        unsigned short usId;
        unsigned int ulToUe;
    } astCase[] = {{0xF539, 0xD001}, {0xF53C, 0xD001}, {0xF53F, 0xD001},
                   {0xF542, 0xD001}, {0xF518, 0x8101}, {0xF51B, 0x8101}};
    CGuFixture gu("CEDAR-03");
    CGuEvents events(gu);
    for (const auto& stCase : astCase)
        for (const Bytes& params : {Hex("01 00 E8 03"), Hex("00 00 00 00")}) {
            gu.Request(stCase.usId, 84, params);
            EXPECT_EQ(events.Take(), (std::vector<GuEvent>{{GuEvent::UE, stCase.ulToUe},
                                                           {GuEvent::CLIENT, 0x01540001U + stCase.usId}}))
                << stCase.usId;
        }
}

TEST(OperationGUDataReq, RequestsAndUeMessagesAtOnce)
{
    CGuFixture gu("CEDAR-03");
    std::thread requests([&] {
        for (unsigned int i = 0; i < 200; ++i) {
            const Bytes params = i % 3 == 0 ? Hex("00 00 00 00") : Hex("01 02 E8 03");
            for (const unsigned short usId : Words{0xB010, 0xB016, 0xF539, 0xF518, 0xE550, 0xE570, 0xF506})
                gu.Request(usId, 84, params);
        }
    });
    for (unsigned int i = 0; i < 200; ++i) {
        gu.FromUe(GuMsg(0xC00D, Fill(28), Ticks(i * 500)));
        gu.FromUe(GuMsg(0xC006, Fill(28), Ticks(i * 500)));
        gu.FromUe(GuMsg(0xD003, Fill(696), Ticks(i * 500)));
        gu.FromUe(GuMsg(0xB012, Fill(8), Ticks(i * 500)));
        gu.FromUe(GuMsg(0xB018, Fill(8), Ticks(i * 500)));
        gu.FromUe(GuTrace(8, 133, Fill(60, 0xFF), Ticks(i * 500)));
        gu.Operation().TimerProc();
        if (i % 50 == 49) {
            gu.Operation().ClearData({}); // as at the detach of another channel
            gu.FromUe(GuVersion("CEDAR-03"));
        }
        gu.Forget();
    }
    requests.join();
    gu.Forget();
    gu.Request(0x80A5, 90, Fill(4));
    EXPECT_EQ(gu.ToUe().size(), 1U) << "all is well afterwards";
}
