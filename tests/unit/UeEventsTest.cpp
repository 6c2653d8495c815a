#include "agent/Agent.h"
#include "agent/Client.h"
#include "support/AgentFixture.h"
#include "support/LogCapture.h"
#include "ue/UE.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <thread>

using testing::IsEmpty;
using testing::SizeIs;

namespace
{
class UeEventsTest : public testing::Test
{
protected:
    CAgent& Agent() { return m_fix.Agent(); }

    CAgentFixture m_fix;
};
} // namespace

TEST_F(UeEventsTest, AnUnknownKindIsWarnedOf)
{
    CLogCapture log;
    m_fix.Process({9, 0, CHANNEL_LTE_DIAG, {}});
    EXPECT_TRUE(log.Saw("[WAN] : Invalid data from Agent Msg Deque\n"));
}

TEST_F(UeEventsTest, AnAttachFillsTheRowOfItsChannel)
{
    CLogCapture log;
    m_fix.Attach(2, CHANNEL_GU_DATA, 5, "/dev/ttyUSB7");
    EXPECT_TRUE(log.Saw("[INF] : UE 2 Guom Data attached, Serial port name is /dev/ttyUSB7\n"));
    EXPECT_TRUE(log.Saw("[INF] : Serial Port 5 is connected, groupid is group-1\n"));
    m_fix.Confirm(2);
    EXPECT_TRUE(Agent().Bindings().IsChannelOK(2, CHANNEL_GU_DATA));
    EXPECT_FALSE(Agent().Bindings().IsChannelOK(2, CHANNEL_GU_CMD));
    m_fix.Detach(2, CHANNEL_GU_DATA);
    EXPECT_TRUE(log.Saw("[INF] : UE 2 Guom Data detached\n"));
    m_fix.Attach(2, CHANNEL_GU_DATA, 5);
    EXPECT_FALSE(Agent().Bindings().IsChannelOK(2, CHANNEL_GU_DATA)) << "the confirmation went with the row";
}

TEST_F(UeEventsTest, AnAttachWithoutBlockHasNoPort)
{
    Agent().Events().UpdateSerialInfo({AGENT_MSG_CONNECT, 0, CHANNEL_LTE_DIAG, {}});
    m_fix.Confirm(0);
    EXPECT_EQ(Bytes(Slice(ByteView(Agent().Bindings().GetChannelsInfo()), 0, 44)),
              Join(Fill(32), Hex("FF FF FF FF 01 00 00 00 00 00 00 00")));
}

TEST_F(UeEventsTest, APortThatComesAfterTheConfirmationIsBindableAtOnce)
{
    m_fix.Attach(0, CHANNEL_LTE_DIAG, 1);
    m_fix.Confirm(0);
    CTestClient client = m_fix.AddClient(CHANNEL_AT);
    EXPECT_FALSE(m_fix.Bind(client, 1));
    m_fix.Attach(0, CHANNEL_AT, 4);
    EXPECT_TRUE(m_fix.Bind(client, 1));
}

TEST_F(UeEventsTest, TheNetworkUeComesAndGoesWithOneMessage)
{
    m_fix.Attach(15, CHANNEL_LTE_DIAG, 0, "", "192.0.2.9");
    m_fix.Confirm(15);
    for (const enChannelType enChannel : ALL_CHANNELS)
        EXPECT_TRUE(Agent().Bindings().IsChannelOK(15, enChannel)) << strChannelType[static_cast<size_t>(enChannel)];
    m_fix.Detach(15, CHANNEL_LTE_DIAG);
    for (const enChannelType enChannel : ALL_CHANNELS)
        EXPECT_FALSE(Agent().Bindings().IsChannelOK(15, enChannel)) << strChannelType[static_cast<size_t>(enChannel)];
}

TEST_F(UeEventsTest, ADetachEndsTheClientOfItsChannelAlone)
{
    CLogCapture log;
    m_fix.AttachUe(0, 1);
    m_fix.Confirm(0);
    CTestClient at = m_fix.AddClient(CHANNEL_AT);
    CTestClient data = m_fix.AddClient(CHANNEL_LTE_DATA);
    m_fix.Detach(0, CHANNEL_AT);
    EXPECT_TRUE(at.IsClosed());
    EXPECT_EQ(at.Get(), nullptr);
    EXPECT_TRUE(log.Saw("[INF] : disconnect client because device loss\n"));
    EXPECT_FALSE(data.IsClosed());
    EXPECT_EQ(Agent().Bindings().GetBindedUE(data.Get()), 0);
    m_fix.Detach(0, CHANNEL_GU_DATA);
    EXPECT_EQ(log.Count("because device loss"), 1) << "nobody was bound there";
}

TEST_F(UeEventsTest, PacketsForTheNetworkUeHaveTheirOwnKind)
{
    SendData2UE(CPacket::Copy(Hex("07 08")), 15, CHANNEL_AT);
    SendData2UE({}, 0, CHANNEL_AT);
    const auto sent = m_fix.ToUe();
    ASSERT_THAT(sent, SizeIs(1));
    EXPECT_EQ(sent[0].ulMsgType, UE_MSG_TCP);
    EXPECT_EQ(sent[0].ulUeIdx, 15u);
    EXPECT_EQ(sent[0].enChannel, CHANNEL_AT);
    EXPECT_EQ(sent[0].data, Hex("07 08"));
}

TEST_F(UeEventsTest, ARequestThatCannotBeBuiltIsLogged)
{
    CLogCapture log;
    EXPECT_EQ(CUeEvents::BuildLteDiagReq(0x10010001, Fill(4076)).size(), 24u + 4076u);
    EXPECT_FALSE(CUeEvents::BuildLteDiagReq(0x10010001, Fill(4077)));
    EXPECT_TRUE(log.Saw("[ERR] : Agent BuildLteDiagReq Error!\n"));
}

TEST_F(UeEventsTest, PacketsReachTheClientOfTheirChannel)
{
    m_fix.AttachUe(0, 1);
    m_fix.Confirm(0);
    CTestClient at = m_fix.AddClient(CHANNEL_AT);
    CTestClient diag = m_fix.AddClient(CHANNEL_LTE_DIAG);
    ASSERT_TRUE(diag.Read()) << "the UE status";
    m_fix.FromUe(0, CHANNEL_AT, Hex("4F 4B 0D 0A"));
    const auto text = at.Read();
    ASSERT_TRUE(text);
    EXPECT_EQ(text->payload, Hex("4F 4B 0D 0A"));
    m_fix.FromUe(0, CHANNEL_LTE_DIAG, LteAck(0x10010001, Hex("00 00 00 00 AA")));
    const auto ack = diag.Read();
    ASSERT_TRUE(ack);
    EXPECT_EQ(ack->stHead.ulCmdId, 0x10010001u);
    EXPECT_THAT(at.Pending(), IsEmpty());
}

TEST_F(UeEventsTest, RecordsTakenTogetherAreHandledInTheirOrder)
{
    CLogCapture log;
    m_fix.AttachUe(0, 1);
    m_fix.AttachUe(1, 6);
    m_fix.Confirm(0);
    m_fix.Confirm(1);
    CTestClient first = m_fix.AddClient(CHANNEL_AT);
    CTestClient second = m_fix.AddClient(CHANNEL_AT);
    ASSERT_TRUE(m_fix.Bind(second, 6));
    Bytes texts[] = {Hex("41"), Hex("42"), Hex("43"), Hex("44"), Hex("45"), Hex("46")};
    const auto data = [&](unsigned int ulUeIdx, size_t i) {
        return MSG_AGENT{AGENT_MSG_DATA, ulUeIdx, CHANNEL_AT, CPacket::Copy(texts[i])};
    };
    MSG_AGENT astMsg[] = {data(0, 0),
                          data(0, 1),
                          data(1, 2),
                          {9, 0, CHANNEL_AT, {}},
                          data(0, 3),
                          data(1, 4),
                          {AGENT_MSG_DISCONNECT, 1, CHANNEL_AT, {}},
                          data(1, 5),
                          data(0, 5)};
    Agent().Events().ProcessAgentMsgs(astMsg);

    for (const size_t i : {0u, 1u, 3u, 5u}) {
        const auto packet = first.Read();
        ASSERT_TRUE(packet);
        EXPECT_EQ(packet->payload, texts[i]);
    }
    for (const size_t i : {2u, 4u}) {
        const auto packet = second.Read();
        ASSERT_TRUE(packet);
        EXPECT_EQ(packet->payload, texts[i]) << "before the detach";
    }
    EXPECT_THAT(first.Pending(), IsEmpty());
    EXPECT_TRUE(second.IsClosed());
    EXPECT_EQ(log.Count("Invalid data from Agent Msg Deque"), 1);
}

TEST_F(UeEventsTest, AcksOfOneRunAreSortedOneByOne)
{
    CLogCapture log;
    m_fix.AttachUe(0, 1);
    m_fix.Confirm(0);
    CTestClient diag = m_fix.AddClient(CHANNEL_LTE_DIAG);
    ASSERT_TRUE(diag.Read()) << "the UE status";
    std::vector<MSG_AGENT> msgs;
    for (const unsigned int ulCmdId : {0x10010001u, 0x10061234u, 0x10010002u})
        msgs.push_back({AGENT_MSG_DATA, 0, CHANNEL_LTE_DIAG, CPacket::Copy(LteAck(ulCmdId, Hex("00 00 00 00 AA")))});
    Agent().Events().ProcessAgentMsgs(msgs);
    for (const unsigned int ulCmdId : {0x10010001u, 0x10010002u}) {
        const auto ack = diag.Read();
        ASSERT_TRUE(ack);
        EXPECT_EQ(ack->stHead.ulCmdId, ulCmdId);
    }
    EXPECT_THAT(diag.Pending(), IsEmpty());
    EXPECT_EQ(log.Count("Received Manager Packet(10061234)"), 1);
}

TEST_F(UeEventsTest, PacketsOfARunLeaveInOneCall)
{
    // Each send to a socket of this type is a message of its own.
    int anPair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, anPair), 0);
    const CUniqueFd far(anPair[0]);
    m_fix.AttachUe(0, 1);
    m_fix.Confirm(0);
    {
        const xtl::MutexGuard guard(Agent().Bindings().Mutex());
        ASSERT_NE(Agent().Clients().AddClient(anPair[1], CHANNEL_AT, {}), nullptr);
    }
    const Bytes text = Hex("41 42");
    const auto Msg = [&] { return MSG_AGENT{AGENT_MSG_DATA, 0, CHANNEL_AT, CPacket::Copy(text)}; };
    MSG_AGENT astMsg[] = {Msg(), Msg(), Msg()};
    Agent().Events().ProcessAgentMsgs(astMsg);
    m_fix.Process(Msg());

    const auto Receive = [&] {
        Bytes message(1000, 0);
        message.resize(static_cast<size_t>(std::max<ssize_t>(0, recv(far.Get(), message.data(), message.size(), 0))));
        return message;
    };
    constexpr size_t PACKET = LEAD_LEN + DIAG_PACKET_ACK_STRU::SIZE + 2;
    const Bytes three = Receive();
    const Bytes one = Receive();
    ASSERT_THAT(three, SizeIs(3 * PACKET));
    ASSERT_THAT(one, SizeIs(PACKET));
    EXPECT_EQ(three, Join(one, one, one));
    EXPECT_THAT(Receive(), IsEmpty());
}

TEST_F(UeEventsTest, APacketWithoutClientIsDropped)
{
    m_fix.AttachUe(0, 1);
    m_fix.Confirm(0);
    m_fix.FromUe(0, CHANNEL_LTE_DATA, Fill(100));
    m_fix.FromUe(0, CHANNEL_GU_DATA, Fill(100));
    m_fix.FromUe(0, CHANNEL_AT, {});
    EXPECT_THAT(m_fix.ToUe(), IsEmpty());
}

TEST_F(UeEventsTest, AManagerAckNeverReachesAClient)
{
    CLogCapture log;
    m_fix.AttachUe(0, 1);
    m_fix.Confirm(0);
    CTestClient diag = m_fix.AddClient(CHANNEL_LTE_DIAG);
    ASSERT_TRUE(diag.Read()) << "the UE status";
    m_fix.FromUe(0, CHANNEL_LTE_DIAG, LteAck(0x10061234, Hex("00 00 00 00 AA")));
    EXPECT_TRUE(log.Saw("[INF] : Received Manager Packet(10061234) from lte diag channel\n"));
    EXPECT_THAT(diag.Pending(), IsEmpty());
}

TEST_F(UeEventsTest, AnAckThatCannotBeReadIsDroppedInSilence)
{
    CLogCapture log;
    Bytes packet = LteAck(0x10061234, {});
    packet.resize(20); // long enough to be sorted, too short for an ack
    m_fix.FromUe(0, CHANNEL_LTE_DIAG, packet);
    EXPECT_EQ(log.Count(""), 1) << "nothing but the mark itself";
}

TEST_F(UeEventsTest, ARecordsChargeGoesWithItsPacket)
{
    CMsgBuf* const pMsgBuf = CMsgBuf::Instance();
    CLineLoad& load = *pMsgBuf->LoadFromUe(0, CHANNEL_AT);
    {
        CAgentMsgRun run;
        run.Add(0, CHANNEL_AT, CPacket::Zeroed(CLineLoad::ROOM));
        run.Add(1, CHANNEL_AT, CPacket::Zeroed(1));
    }
    std::array<MSG_AGENT, 2> astMsg;
    ASSERT_EQ(pMsgBuf->AgentQueue().get(astMsg), 2u);
    EXPECT_FALSE(load.HasRoom()) << "taken, not handled";
    Agent().Events().ProcessAgentMsgs(astMsg);
    EXPECT_TRUE(load.HasRoom());
    EXPECT_FALSE(astMsg[0].packet);
}

TEST_F(UeEventsTest, TheThreadTakesRecordsUntilTheRunEnds)
{
    CLogCapture log;
    std::thread reader([&] { Agent().Events().ReadAgentMsgFun(); });
    PostAgentMsg(77, 0, CHANNEL_AT, CPacket::Zeroed(4));
    EXPECT_TRUE(log.Saw("Invalid data from Agent Msg Deque"));
    PostAgentMsg(AGENT_MSG_DISCONNECT, 1, CHANNEL_AT, {});
    EXPECT_TRUE(log.Saw("UE 1 AT detached"));
    Agent().Stop();
    reader.join();
}
