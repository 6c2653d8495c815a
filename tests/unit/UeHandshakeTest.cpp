#include "agent/Agent.h"
#include "data/gu/GuLink.h"
#include "support/AgentFixture.h"
#include "support/LogCapture.h"
#include "ue/UE.h"

#include <atomic>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{
class UeHandshakeTest : public testing::Test
{
protected:
    CAgent& Agent() { return m_fix.Agent(); }
    /// The handshake that the attach of a channel starts.
    void Connect(unsigned int ulUeIdx, enChannelType enChannel)
    {
        Agent().Events().ConnectUE({AGENT_MSG_CONNECT, ulUeIdx, enChannel, {}});
    }
    /// Does everything that is due by then.
    void Run(CDueActions::TIME now)
    {
        while (Agent().Events().RunDueAction(now)) {
        }
    }
    /// Lets a UE's switches and its report go by, from the time on; gives what was sent.
    std::vector<QueuedMsg> RunSwitches(CDueActions::TIME now)
    {
        for (int i = 0; i <= 24; ++i)
            Run(now + i * milliseconds(50));
        return m_fix.ToUe();
    }
    /// The UE answers its host connect in full.
    void Answer(unsigned int ulUeIdx);
    /// One frame on the GU command channel of the UE.
    static void ExpectGuFrame(const QueuedMsg& stMsg, unsigned int ulUeIdx, const Bytes& frame)
    {
        EXPECT_EQ(stMsg.ulMsgType, UE_MSG_SERIAL);
        EXPECT_EQ(stMsg.ulUeIdx, ulUeIdx);
        EXPECT_EQ(stMsg.enChannel, CHANNEL_GU_CMD);
        EXPECT_EQ(stMsg.data, frame);
    }

    CAgentFixture m_fix;
};

const Bytes LINK_ANSWER = Hex("55 55 AA AA 00 00 00 00 00 00 00 00 B2 80");

/// A host connect confirmation's payload of szSize bytes.
Bytes ConnectPayload(size_t szSize)
{
    Bytes payload = Join(Hex("01 02 03 04"), Hex("38 36 31 32 33 34 35 36 37 38 39 30 31 32 33 00"), // IMEI
                         Hex("11 12 13 14 21 22 23 24 31 32 33 34"),                                 // identity
                         Hex("07 00 0B 00 06 00 14 00 03 00 09 00"),                                 // versions
                         Hex("44 45 46 47"), Fill(12, 0x5C), Fill(szSize - 60, 0xEE));
    return payload;
}

void UeHandshakeTest::Answer(unsigned int ulUeIdx)
{
    m_fix.FromUe(ulUeIdx, CHANNEL_LTE_DIAG, LteAck(0x10065000, ConnectPayload(320)));
}

const Bytes HOST_CONNECT = Hex("00 02 20 01 01 00 00 00  00 50 06 10  08 00 00 00  00 00 00 00 00 00 00 00");
const Bytes TIME_STAMP = Hex("00 02 20 01 01 00 00 00  00 70 06 10  08 00 00 00  00 00 00 00 00 00 00 00");

/// The command ids of requests, as the UE gets them.
std::vector<uint32_t> Ids(const std::vector<QueuedMsg>& sent)
{
    std::vector<uint32_t> ids;
    for (const QueuedMsg& stMsg : sent)
        ids.push_back(LoadLe<uint32_t>(stMsg.data, 8));
    return ids;
}
} // namespace

TEST_F(UeHandshakeTest, IndicesBeyondTheTableAreIgnored)
{
    const Bytes packet = LteAck(0x10065000, ConnectPayload(320));
    for (const unsigned int ulUeIdx : {16u, 17u, 0xFFFFFFFFu}) {
        m_fix.Attach(ulUeIdx, CHANNEL_GU_CMD, 1);
        Connect(ulUeIdx, CHANNEL_GU_CMD);
        m_fix.FromUe(ulUeIdx, CHANNEL_LTE_DIAG, packet);
        m_fix.Detach(ulUeIdx, CHANNEL_GU_CMD);
        Agent().Events().SetConfirmed(ulUeIdx, true);
    }
    m_fix.FromUe(0, static_cast<enChannelType>(5), packet);
    m_fix.Attach(0, static_cast<enChannelType>(-1), 1);
    EXPECT_THAT(m_fix.ToUe(), IsEmpty());
}

TEST_F(UeHandshakeTest, ANewLteDiagChannelStartsTheHostConnectTwoSecondsLater)
{
    CLogCapture log;
    const auto before = steady_clock::now();
    Connect(3, CHANNEL_LTE_DIAG);
    const auto after = steady_clock::now();
    EXPECT_FALSE(Agent().Events().RunDueAction(before + milliseconds(1999)));
    EXPECT_THAT(m_fix.ToUe(), IsEmpty());
    EXPECT_TRUE(Agent().Events().RunDueAction(after + seconds(2)));
    const auto sent = m_fix.ToUe();
    ASSERT_THAT(sent, SizeIs(2));
    EXPECT_EQ(sent[0].ulMsgType, UE_MSG_SERIAL);
    EXPECT_EQ(sent[0].ulUeIdx, 3u);
    EXPECT_EQ(sent[0].enChannel, CHANNEL_LTE_DIAG);
    EXPECT_EQ(sent[0].data, HOST_CONNECT);
    EXPECT_EQ(sent[1].data, TIME_STAMP);
    EXPECT_TRUE(log.Saw("[INF] : Send HOST_CONNECT cmd to UE\n"));
    EXPECT_TRUE(log.Saw("[INF] : Send DT_CMD_PACKET_SERIAL_TIMESTAMPID to UE\n"));
    EXPECT_FALSE(Agent().Events().RunDueAction(after + seconds(60))) << "once";
}

TEST_F(UeHandshakeTest, OtherUesAreServedWhileAHostConnectIsDue)
{
    m_fix.AttachUe(0, 1);
    m_fix.Confirm(0);
    CTestClient at = m_fix.AddClient(CHANNEL_AT);
    Connect(1, CHANNEL_LTE_DIAG);
    m_fix.FromUe(0, CHANNEL_AT, Hex("4F 4B"));
    EXPECT_TRUE(at.Read());
    EXPECT_THAT(m_fix.ToUe(), IsEmpty()) << "the host connect of UE 1 is still due";
    Run(steady_clock::now() + seconds(2));
    EXPECT_EQ(Ids(m_fix.ToUe()), (std::vector<uint32_t>{0x10065000, 0x10067000}));
}

TEST_F(UeHandshakeTest, ADetachOfTheLteDiagChannelCancelsWhatIsDue)
{
    const struct
    {
        unsigned int ulUeIdx;
        enChannelType enChannel;
        bool bCancels;
    } astCase[] = {
        {1, CHANNEL_LTE_DIAG, true}, {2, CHANNEL_LTE_DATA, false}, {3, CHANNEL_GU_CMD, false},
        {4, CHANNEL_AT, false},      {15, CHANNEL_LTE_DIAG, true}, {15, CHANNEL_AT, true}, // the whole UE
    };
    for (const auto& stCase : astCase) {
        Connect(stCase.ulUeIdx, CHANNEL_LTE_DIAG);
        m_fix.Detach(stCase.ulUeIdx, stCase.enChannel);
        Run(steady_clock::now() + seconds(2));
        EXPECT_EQ(m_fix.ToUe().size(), stCase.bCancels ? 0u : 2u) << stCase.ulUeIdx << " " << stCase.enChannel;
    }
}

TEST_F(UeHandshakeTest, ADetachEndsTheSwitchesAndTheReport)
{
    CLogCapture log;
    m_fix.AttachUe(2, 9);
    const auto now = steady_clock::now() + seconds(1);
    Answer(2);
    Run(now);
    Run(now + milliseconds(50));
    EXPECT_THAT(m_fix.ToUe(), SizeIs(2));
    m_fix.Detach(2, CHANNEL_LTE_DIAG);
    Run(now + seconds(60));
    EXPECT_THAT(m_fix.ToUe(), IsEmpty());
    EXPECT_EQ(log.Count("UE Connected"), 0);
}

TEST_F(UeHandshakeTest, ANewGuCommandChannelStartsTheLinkSetUp)
{
    Connect(1, CHANNEL_GU_CMD);
    const auto sent = m_fix.ToUe();
    ASSERT_THAT(sent, SizeIs(1));
    ExpectGuFrame(sent[0], 1, Hex("10 00 01 01 0A 00 08 00 B1 80 00 00 01 00 00 00"));
}

TEST_F(UeHandshakeTest, OtherChannelsStartNothing)
{
    for (const enChannelType enChannel : {CHANNEL_LTE_DATA, CHANNEL_GU_DATA, CHANNEL_AT})
        Connect(0, enChannel);
    EXPECT_THAT(m_fix.ToUe(), IsEmpty());
}

TEST_F(UeHandshakeTest, TheLinkAnswerIsTheMarkAndTheIdTwelveBytesOn)
{
    const struct
    {
        const char* pszName;
        Bytes packet;
        bool bAnswer;
    } astCase[] = {
        {"the shortest", LINK_ANSWER, true},
        {"13 bytes", Bytes(Slice(ByteView(LINK_ANSWER), 0, 13)), false},
        {"behind a head", Join(Fill(17, 0x55), LINK_ANSWER, Hex("00 00")), true},
        {"another id", Hex("55 55 AA AA 00 00 00 00 00 00 00 00 B3 80"), false},
        {"the first mark counts", Join(Hex("55 55 AA AA 00 00 00 00 00 00 00 00 00 00"), LINK_ANSWER), false},
        {"no mark", Fill(40, 0xAA), false},
        {"nothing", {}, false},
    };
    for (const auto& stCase : astCase)
        EXPECT_EQ(CGuLink().JudgeJIANLIANCMD(stCase.packet), stCase.bAnswer) << stCase.pszName;
}

TEST_F(UeHandshakeTest, TheLinkAnswerIsFollowedByThreeRequests)
{
    CLogCapture log;
    m_fix.FromUe(6, CHANNEL_GU_CMD, LINK_ANSWER);
    const auto sent = m_fix.ToUe();
    ASSERT_THAT(sent, SizeIs(3));
    ExpectGuFrame(sent[0], 6,
                  Hex("01 55 55 AA AA 10 00 01 01"
                      "04 00 08 00 00 50 00 00 00 00 00 00"
                      "AA AA 55 55"));
    ExpectGuFrame(sent[1], 6,
                  Hex("01 55 55 AA AA 24 00 01 01"
                      "04 00 1C 00 00 00 00 00 69 00 00 00 00 00 00 00"
                      "8D 00 00 00 08 00 00 00 01 C0 00 00 00 00 00 00"
                      "AA AA 55 55"));
    ExpectGuFrame(sent[2], 6,
                  Hex("01 55 55 AA AA 10 00 01 01"
                      "0A 00 08 00 81 80 00 00 00 00 00 00"
                      "AA AA 55 55"));
    EXPECT_TRUE(log.Saw("[INF] : JIAN LIAN SUCCESS\n"));
    EXPECT_TRUE(log.Saw("[INF] : gu:send imei query to ue: 0xc001\n"));
    EXPECT_TRUE(log.Saw("[INF] : gu:send version query to ue: 0x8081\n"));
}

TEST_F(UeHandshakeTest, ASecondLinkAnswerIsAnOrdinaryPacketUntilAnyChannelDetaches)
{
    m_fix.FromUe(6, CHANNEL_GU_CMD, LINK_ANSWER);
    EXPECT_THAT(m_fix.ToUe(), SizeIs(3));
    m_fix.FromUe(6, CHANNEL_GU_CMD, LINK_ANSWER);
    EXPECT_THAT(m_fix.ToUe(), IsEmpty());
    m_fix.Detach(6, CHANNEL_AT);
    m_fix.FromUe(6, CHANNEL_GU_CMD, LINK_ANSWER);
    EXPECT_THAT(m_fix.ToUe(), SizeIs(3)) << "the link flag fell with the AT channel";
}

TEST_F(UeHandshakeTest, TheQueriesForCardAndMode)
{
    CLogCapture log;
    CGuLink::QueryUeModemNum(4);
    CGuLink::ModeQuery(MODEM_ID_0, 4);
    CGuLink::ModeQuery(MODEM_ID_1, 4);
    const auto sent = m_fix.ToUe();
    ASSERT_THAT(sent, SizeIs(3));
    ExpectGuFrame(sent[0], 4, Hex("01 55 55 AA AA 0C 00 01 01  0A 00 04 00 11 82 00 00  AA AA 55 55"));
    ExpectGuFrame(sent[1], 4, Hex("01 55 55 AA AA 10 00 01 01  0A 00 08 00 A5 80 00 00 00 00 00 00  AA AA 55 55"));
    ExpectGuFrame(sent[2], 4, Hex("01 55 55 AA AA 10 00 01 01  4A 00 08 00 A5 80 00 00 00 00 00 00  AA AA 55 55"));
    EXPECT_TRUE(log.Saw("[INF] : Query is or not insist single double card ueid = 4\n"));
    EXPECT_TRUE(log.Saw("[INF] : ModeQuery\n"));
    EXPECT_TRUE(log.Saw("[INF] : Send Query Mode request enModemId = 1\n"));
}

TEST_F(UeHandshakeTest, TheHostConnectConfirmationOpensTheUe)
{
    CLogCapture log;
    m_fix.AttachUe(2, 9, "/dev/ttyUSB2", "usb-1-2");
    m_fix.FromUe(2, CHANNEL_LTE_DIAG, LteAck(0x10066000, ConnectPayload(320)));
    for (const enChannelType enChannel : ALL_CHANNELS)
        EXPECT_TRUE(Agent().Bindings().IsChannelOK(2, enChannel)) << "at once";
    EXPECT_TRUE(log.Saw("[INF] : Received host connect cnf msg(10066000) from lte diag channel\n"));
    const auto sent = RunSwitches(steady_clock::now());
    EXPECT_TRUE(log.Saw("[INF] : UE Connected, nMsgID is 2, payLoadSize is 301, groupid is usb-1-2, "
                        "IMEI is 861234567890123, ver is V007R011C06B020SP03\n"));

    const ADE_UE_CONNECTION_ACK_STRU stAck = Agent().UEManager().GetUE(2)->GetUEConnectionAck();
    EXPECT_EQ(Bytes(stAck.aucData), Join(Slice(ByteView(ConnectPayload(320)), 0, 60), Fill(152), Hex("01 00 00 00")));

    // The 24 switches.
    const unsigned char aucIdLow[24] = {0x99, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0A, 0x0B,
                                        0x0C, 0x0D, 0x0E, 0x0F, 0x10, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17};
    ASSERT_THAT(sent, SizeIs(24));
    for (size_t i = 0; i < 24; ++i) {
        const Bytes rest = i == 0 ? Hex("00 90 30  0C 00 00 00  00 00 00 00 00 00 00 00  01 00 00 00")
                                  : Hex("00 90 30  16 00 00 00  00 00 00 00 00 00 00 00"
                                        "01 00 01 00 00 00 00 00 00 00 00 00 00 00");
        EXPECT_EQ(sent[i].data, Join(Hex("00 02 30 01 01 00 00 00"), Bytes{aucIdLow[i]}, rest)) << "row " << i;
        EXPECT_EQ(sent[i].ulUeIdx, 2u);
        EXPECT_EQ(sent[i].enChannel, CHANNEL_LTE_DIAG);
    }
}

TEST_F(UeHandshakeTest, TheSwitchesGoOut50MsApartAndTheReportBehindThem)
{
    CLogCapture log;
    m_fix.AttachUe(0, 1);
    const auto now = steady_clock::now() + seconds(1);
    Answer(0);
    Run(now);
    EXPECT_THAT(m_fix.ToUe(), SizeIs(1)) << "at once";
    for (int i = 1; i < 24; ++i) {
        Run(now + milliseconds(i * 50 - 1));
        EXPECT_THAT(m_fix.ToUe(), IsEmpty()) << "switch " << i;
        Run(now + milliseconds(i * 50));
        EXPECT_THAT(m_fix.ToUe(), SizeIs(1)) << "switch " << i;
    }
    Run(now + milliseconds(24 * 50 - 1));
    EXPECT_EQ(log.Count("UE Connected"), 0);
    Run(now + milliseconds(24 * 50));
    EXPECT_EQ(log.Count("UE Connected"), 1);
    EXPECT_THAT(m_fix.ToUe(), IsEmpty());
}

TEST_F(UeHandshakeTest, ARepeatedConfirmationStartsTheSwitchesAgain)
{
    CLogCapture log;
    m_fix.AttachUe(0, 1);
    const auto now = steady_clock::now() + seconds(1);
    Answer(0);
    for (int i = 0; i < 3; ++i)
        Run(now + i * milliseconds(50));
    EXPECT_EQ(Ids(m_fix.ToUe()), (std::vector<uint32_t>{0x30900099, 0x30900001, 0x30900002}));
    Answer(0);
    const auto sent = RunSwitches(now + milliseconds(150));
    ASSERT_THAT(sent, SizeIs(24)) << "one sequence, not two";
    EXPECT_EQ(Ids(sent).front(), 0x30900099u);
    EXPECT_EQ(Ids(sent).back(), 0x30900017u);
    EXPECT_EQ(log.Count("UE Connected"), 1);
}

TEST_F(UeHandshakeTest, AShortConfirmationDoesNotStopTheSwitches)
{
    CLogCapture log;
    m_fix.AttachUe(0, 1);
    Answer(0);
    m_fix.FromUe(0, CHANNEL_LTE_DIAG, LteAck(0x10065000, ConnectPayload(319)));
    EXPECT_FALSE(Agent().Bindings().IsChannelOK(0, CHANNEL_LTE_DIAG));
    EXPECT_THAT(RunSwitches(steady_clock::now()), SizeIs(24));
    EXPECT_EQ(log.Count("UE Connected"), 1);
}

TEST_F(UeHandshakeTest, ALongerConfirmationIsOfTheSecondVersion)
{
    m_fix.FromUe(0, CHANNEL_LTE_DIAG, LteAck(0x10065000, ConnectPayload(321)));
    EXPECT_EQ(Agent().UEManager().GetUE(0)->GetUEConnectionAck().UeVer(), 2u);
    m_fix.Detach(0, CHANNEL_AT);
    EXPECT_EQ(Agent().UEManager().GetUE(0)->GetUEConnectionAck().UeVer(), 2u) << "not the LTE diag channel";
    m_fix.Detach(0, CHANNEL_LTE_DIAG);
    EXPECT_EQ(Bytes(Agent().UEManager().GetUE(0)->GetUEConnectionAck().aucData), Fill(216));
}

TEST_F(UeHandshakeTest, AShortConfirmationLeavesTheUeUnconfirmed)
{
    CLogCapture log;
    m_fix.AttachUe(0, 1);
    m_fix.Confirm(0);
    m_fix.FromUe(0, CHANNEL_LTE_DIAG, LteAck(0x10065000, ConnectPayload(319)));
    for (const enChannelType enChannel : ALL_CHANNELS)
        EXPECT_FALSE(Agent().Bindings().IsChannelOK(0, enChannel));
    EXPECT_THAT(m_fix.ToUe(), IsEmpty());
    EXPECT_EQ(log.Count("UE Connected"), 0);
    EXPECT_EQ(Agent().UEManager().GetUE(0)->GetUEConnectionAck().UeVer(), 0u);
}

TEST_F(UeHandshakeTest, TheTimeStampIsKeptAsClientsWillAskForIt)
{
    CLogCapture log;
    EXPECT_THAT(Agent().Bindings().GetTimeStampPacket(1), IsEmpty());
    m_fix.FromUe(1, CHANNEL_LTE_DIAG, LteAck(0x10067000, Hex("AA BB CC"), 0x1122334455667788));
    EXPECT_EQ(Bytes(ByteView(Agent().Bindings().GetTimeStampPacket(1))),
              Hex("70 00 00 50  00 00 00 00  88 77 66 55 44 33 22 11  10 02  03 00  AA BB CC"));
    EXPECT_TRUE(log.Saw("[DAT] : TimeStamp Ack DIAG_PACKET_ACK_STRU* pdiagack Buffer=0x"));
    EXPECT_TRUE(log.Saw(",Length=23,dump=0x70,0x00,0x00,0x50,"));
    EXPECT_THAT(Agent().Bindings().GetTimeStampPacket(0), IsEmpty());
    EXPECT_THAT(Agent().Bindings().GetTimeStampPacket(16), IsEmpty());
    EXPECT_THAT(Agent().Bindings().GetTimeStampPacket(-1), IsEmpty());

    m_fix.FromUe(1, CHANNEL_LTE_DIAG, LteAck(0x10067000, Hex("DD")));
    EXPECT_EQ(Bytes(ByteView(Agent().Bindings().GetTimeStampPacket(1))),
              Hex("70 00 00 50  00 00 00 00  00 00 00 00 00 00 00 00  10 02  01 00  DD"));
}

TEST_F(UeHandshakeTest, ATimeStampThatDoesNotFitIsNotKept)
{
    CLogCapture log;
    m_fix.FromUe(0, CHANNEL_LTE_DIAG, LteAck(0x10067000, Fill(5100, 1)));
    EXPECT_EQ(Agent().Bindings().GetTimeStampPacket(0).size(), 5120u);
    EXPECT_EQ(log.Count("[WAN]"), 0);
    m_fix.FromUe(0, CHANNEL_LTE_DIAG, LteAck(0x10067000, Fill(5101, 2)));
    EXPECT_EQ(log.Count("[WAN]"), 1);
    EXPECT_EQ(Agent().Bindings().GetTimeStampPacket(0).size(), 5120u);
    EXPECT_EQ(Agent().Bindings().GetTimeStampPacket(0)[20], 1) << "the last good one stays";
}

TEST_F(UeHandshakeTest, TheThreadDoesWhatIsDueWhileNothingComes)
{
    CLogCapture log;
    std::thread reader([&] { Agent().Events().ReadAgentMsgFun(); });
    m_fix.AttachUe(2, 9);
    const auto start = steady_clock::now();
    PostAgentMsg(AGENT_MSG_DATA, 2, CHANNEL_LTE_DIAG, CPacket::Copy(LteAck(0x10065000, ConnectPayload(320))));
    EXPECT_TRUE(log.Saw("UE Connected"));
    EXPECT_GE(steady_clock::now() - start, milliseconds(24 * 50)) << "the pauses were kept";
    EXPECT_THAT(m_fix.ToUe(), SizeIs(24));
    Agent().Stop();
    reader.join();
}

namespace
{
/// A packet as the thread that reads a line posts it.
void PostAsReader(unsigned int ulUeIdx, enChannelType enChannel, const Bytes& packet)
{
    CAgentMsgRun run;
    run.Add(ulUeIdx, enChannel, CPacket::Copy(packet));
}
} // namespace

TEST_F(UeHandshakeTest, WhatAPacketMakesDueIsDoneAlsoWhenAReaderHandledIt)
{
    CLogCapture log;
    std::thread reader([&] { Agent().Events().ReadAgentMsgFun(); });
    m_fix.AttachUe(2, 9);
    // From when the thread waits, without anything due, the packet goes past it.
    std::this_thread::sleep_for(milliseconds(50));
    PostAsReader(2, CHANNEL_LTE_DIAG, LteAck(0x10065000, ConnectPayload(320)));
    EXPECT_TRUE(log.Saw("UE Connected"));
    EXPECT_THAT(m_fix.ToUe(), SizeIs(24));
    Agent().Stop();
    reader.join();
}

TEST_F(UeHandshakeTest, AStreamThatReadersHandleKeepsNothingThatIsDueWaiting)
{
    CLogCapture log;
    std::thread reader([&] { Agent().Events().ReadAgentMsgFun(); });
    m_fix.AttachUe(2, 9);
    m_fix.AttachUe(3, 10);
    std::atomic<bool> bRun = true;
    std::thread stream([&] {
        while (bRun)
            PostAsReader(3, CHANNEL_LTE_DATA, Fill(60, 1));
    });
    const auto start = steady_clock::now();
    PostAsReader(2, CHANNEL_LTE_DIAG, LteAck(0x10065000, ConnectPayload(320)));
    EXPECT_TRUE(log.Saw("UE Connected"));
    EXPECT_LT(steady_clock::now() - start, seconds(3)) << "1.2 s are needed";
    bRun = false;
    stream.join();
    Agent().Stop();
    reader.join();
}
