#include "e2e/AgentBench.h"
#include "e2e/ScriptedUe.h"

#include <gtest/gtest.h>

namespace
{
constexpr uint32_t PLAIN_CMD = 0x10014003;
constexpr uint32_t DSP_ID = 0x30000001; // config/vex.cfg lets it pass

class Clients : public testing::Test
{
protected:
    void SetUp() override
    {
        m_bench.StartAgent();
        ASSERT_TRUE(m_ue.Confirm());
    }

    CAgentBench m_bench;
    CScriptedUe m_ue{101, "modem"};
};
} // namespace

TEST_F(Clients, TheFirstOfAChannelIsBoundAndTheOthersBindByPort)
{
    ASSERT_TRUE(m_bench.WaitConfirmed(101));
    CTcpClient first(CHANNEL_LTE_DIAG);
    const auto stStatus = first.Receive(); // sent with the default binding
    ASSERT_TRUE(stStatus);
    EXPECT_EQ(stStatus->stHead.ulCmdId, AGENT_CMD_UE_STATUS);
    EXPECT_EQ(Bytes(ByteView(stStatus->payload).first(4)), Hex("01 00 25 4F")); // port 20261
    EXPECT_EQ(FixedText(ByteView(stStatus->payload).subspan(4, 32)), "V001R002C03B004SP05");
    EXPECT_EQ(FixedText(ByteView(stStatus->payload).subspan(36, 16)), "490154203237518");

    CTcpClient second(CHANNEL_LTE_DIAG);
    EXPECT_FALSE(second.Bind(101)); // the row is taken
    const auto stRefused = second.Ask(PLAIN_CMD, PKT_TYPE_CMD);
    ASSERT_TRUE(stRefused);
    EXPECT_EQ(stRefused->stHead.ulRc, DIAG_RC_NOT_BOUND);

    const auto stUnbind = first.Ask(AGENT_CMD_UNBIND, PKT_TYPE_AGENT);
    ASSERT_TRUE(stUnbind);
    EXPECT_EQ(stUnbind->stHead.ulRc, DIAG_RC_OK);
    EXPECT_TRUE(second.Bind(101));
    EXPECT_FALSE(first.Bind(999)); // no such port
}

TEST_F(Clients, BindTellsTheAgentVersion)
{
    CTcpClient client(CHANNEL_LTE_DIAG);
    const auto stAck = client.Ask(AGENT_CMD_BIND, PKT_TYPE_AGENT, Le(101U));
    ASSERT_TRUE(stAck);
    EXPECT_EQ(stAck->stHead.ulRc, DIAG_RC_OK);
    EXPECT_EQ(stAck->payload, Bytes(ByteView(Join(AsBytes("0.1.0"), Bytes{0}))));
}

TEST_F(Clients, ARequestTravelsToTheModemAndItsAckBack)
{
    const auto pClient = m_bench.BoundClient(CHANNEL_LTE_DIAG, 101);
    ASSERT_TRUE(pClient->Send(PLAIN_CMD, PKT_TYPE_CMD, Hex("AA BB")));
    const auto packet = m_ue.ReadPacket(SERIAL_TYPE_DIAG);
    ASSERT_TRUE(packet);
    EXPECT_EQ(*packet, Hex("00 02 20 01 01 00 00 00  03 40 01 10  0A 00 00 00  00 00 00 00  00 00 00 00  AA BB"));
    m_ue.SendAck(PLAIN_CMD, 0, Hex("00 00 00 00 CC DD"));
    const auto stAck = pClient->Await(PLAIN_CMD);
    ASSERT_TRUE(stAck);
    EXPECT_EQ(stAck->stHead.ulRc, 0U);
    EXPECT_EQ(stAck->stHead.usPktType, 0x0210);
    EXPECT_EQ(stAck->payload, Hex("CC DD")); // without the result word
}

TEST_F(Clients, ADpiMessageTravelsUnderTheIdsOfBothSides)
{
    const auto pClient = m_bench.BoundClient(CHANNEL_LTE_DIAG, 101);
    ASSERT_TRUE(pClient->Send(0x00410001, PKT_TYPE_MSG, Hex("DE AD")));
    const auto stReq = m_ue.ReadRequest();
    ASSERT_TRUE(stReq);
    EXPECT_EQ(stReq->ulCmdId, 0x10020001U);
    EXPECT_EQ(stReq->ucCmdType, 5);
    // PIDs 120 and 130 for UE version 1, length 22, the DPI id, the low half of the command id.
    EXPECT_EQ(stReq->data, Join(Hex("00 00 00 00 78 00 00 00 00 00 00 00 82 00 00 00 16 00 00 00 01 00 41 00"),
                                Fill(12), Hex("01 00 00 00 DE AD")));
    // The UE answers with the same head, a result of 7 and two bytes.
    m_ue.SendAck(0x10020001, 5, Join(Fill(20), Hex("01 00 41 00"), Fill(16), Hex("07 00 00 00 BE EF")));
    const auto stAck = pClient->Await(0x00410001);
    ASSERT_TRUE(stAck);
    EXPECT_EQ(stAck->stHead.ulRc, 7U);
    EXPECT_EQ(stAck->payload, Hex("BE EF"));
}

TEST_F(Clients, NvReadModifyWrite)
{
    const auto pClient = m_bench.BoundClient(CHANNEL_LTE_DIAG, 101);
    // Item 0x21, one change at offset 1: bits 2 to 5 of a byte become 9.
    ASSERT_TRUE(pClient->Send(UE_CMD_NV_WRITE, PKT_TYPE_AGENT,
                              Hex("21 00 00 00  01 00 00 00  01 00 00 00  01 01 02 05  09 00 00 00")));
    const auto stRead = m_ue.ReadRequest();
    ASSERT_TRUE(stRead);
    EXPECT_EQ(stRead->ulCmdId, UE_CMD_NV_READ);
    EXPECT_EQ(stRead->ucCmdType, 5);
    EXPECT_EQ(stRead->data, Hex("21 00 00 00"));
    m_ue.SendAck(UE_CMD_NV_READ, 5, Hex("00 00 00 00  21 00 00 00  03 00 00 00  11 FF 33"));
    const auto stWrite = m_ue.ReadRequest();
    ASSERT_TRUE(stWrite);
    EXPECT_EQ(stWrite->ulCmdId, UE_CMD_NV_WRITE);
    // 0xFF without the mask 0x3C is 0xC3; 9 << 2 is 0x24.
    EXPECT_EQ(stWrite->data, Hex("21 00 00 00  03 00 00 00  11 E7 33"));
    m_ue.SendAck(UE_CMD_NV_WRITE, 5, Hex("00 00 00 00"));
    const auto stAck = pClient->Await(UE_CMD_NV_WRITE);
    ASSERT_TRUE(stAck);
    EXPECT_EQ(stAck->stHead.usPktType & 0xFF, PKT_TYPE_AGENT);
}

TEST_F(Clients, OneSwitchBecomesThreeCommandsAndThreeAcks)
{
    const auto pClient = m_bench.BoundClient(CHANNEL_LTE_DIAG, 101);
    ASSERT_TRUE(pClient->Send(UE_CMD_USER_PLANE_SWITCH, PKT_TYPE_CMD,
                              Hex("01 00 00 00 01 00 00 00 0A 00 00 00"     // air, value 10
                                  "02 00 00 00 03 00 00 00 0B 00 00 00"     // event, value 11
                                  "03 00 00 00 02 00 00 00 0C 00 00 00"))); // user plane, value 12
    const struct
    {
        uint32_t ulId;
        Bytes data;
        Bytes result;
        uint32_t ulRc;
    } astExpected[] = {
        {UE_CMD_AIR_SWITCH, Hex("0A 00 00 00 01 00 00 00"), Hex("00 00 00 00"), DIAG_RC_OK},
        {UE_CMD_EVENT_SWITCH, Hex("0B 00 00 00"), Hex("05 00 00 00"), DIAG_RC_OK},
        {UE_CMD_USER_PLANE_SWITCH, Hex("03 00 00 00 00 10 00 00 0C 00 00 00"), Hex("01 00 00 00"), DIAG_RC_UE_FAIL},
    };
    for (const auto& stRow : astExpected) {
        const auto stReq = m_ue.ReadRequest();
        ASSERT_TRUE(stReq);
        EXPECT_EQ(stReq->ulCmdId, stRow.ulId);
        EXPECT_EQ(stReq->data, stRow.data);
        m_ue.SendAck(stRow.ulId, 0, stRow.result);
        const auto stAck = pClient->Await(UE_CMD_USER_PLANE_SWITCH);
        ASSERT_TRUE(stAck);
        EXPECT_EQ(stAck->stHead.ulRc, stRow.ulRc);
        EXPECT_EQ(stAck->payload, Bytes());
    }
}

TEST_F(Clients, ASlowClientLosesFramesAndHoldsNobodyUp)
{
    ASSERT_TRUE(m_ue.Attach(SERIAL_TYPE_DATA));
    ASSERT_TRUE(m_bench.Logged("UE 0 Lte Data attached"));
    const auto pSlow = m_bench.BoundClient(CHANNEL_LTE_DATA, 101);
    ASSERT_TRUE(pSlow->IsOpen());
    const auto pDiag = m_bench.BoundClient(CHANNEL_LTE_DIAG, 101);
    ASSERT_TRUE(pDiag->IsOpen());

    // Far more than the sockets' buffers take while the client doesn't read.
    constexpr int FLOOD = 4000;
    for (int i = 0; i < FLOOD; ++i)
        m_ue.SendIndication(DSP_ID, 0, static_cast<uint64_t>(i), Fill(1500, 0x5A));
    EXPECT_TRUE(m_bench.Logged("Client SendDataToClient select TimeOut, channel:Lte Data"));

    // The diag client is served meanwhile.
    ASSERT_TRUE(pDiag->Send(PLAIN_CMD, PKT_TYPE_CMD));
    ASSERT_TRUE(m_ue.ReadRequest());
    m_ue.SendAck(PLAIN_CMD, 0, Hex("00 00 00 00"));
    EXPECT_TRUE(pDiag->Await(PLAIN_CMD, std::chrono::seconds(30)));

    // The slow one still has its connection: what it reads begins with whole packets.
    const auto stFirst = pSlow->Receive();
    ASSERT_TRUE(stFirst);
    EXPECT_EQ(stFirst->payload.size(), 1500U);
    EXPECT_FALSE(SawClose(pSlow->Fd(), std::chrono::milliseconds(0)));
}

TEST_F(Clients, TwoHundredAtOnceAreServed)
{
    std::vector<std::unique_ptr<CTcpClient>> clients;
    for (int i = 0; i < 200; ++i)
        clients.push_back(std::make_unique<CTcpClient>(ALL_CHANNELS[static_cast<size_t>(i) % CHANNELNUM]));
    for (size_t i = 0; i < clients.size(); ++i) {
        ASSERT_TRUE(clients[i]->IsOpen()) << i;
        // Every channel answers an unbind, bound or not.
        ASSERT_TRUE(clients[i]->Send(AGENT_CMD_UNBIND, PKT_TYPE_AGENT)) << i;
    }
    for (size_t i = 0; i < clients.size(); ++i) {
        const auto stAck = clients[i]->Await(AGENT_CMD_UNBIND);
        ASSERT_TRUE(stAck) << i;
        EXPECT_EQ(stAck->stHead.ulRc, DIAG_RC_OK) << i;
    }
    EXPECT_TRUE(m_bench.Agent().IsRunning());
}

TEST_F(Clients, RequestsMayBeCutAndJoinedAnywhere)
{
    CTcpClient client(CHANNEL_LTE_DIAG);
    const Bytes request = Hex("9F 9F 50 00 00 50 F0 00 00 00"); // unbind
    for (size_t cut = 1; cut < request.size(); ++cut) {
        ASSERT_TRUE(client.SendRaw(ByteView(request).first(cut)));
        ASSERT_TRUE(client.SendRaw(ByteView(request).subspan(cut)));
        EXPECT_TRUE(client.Await(AGENT_CMD_UNBIND)) << "cut at " << cut;
    }
    ASSERT_TRUE(client.SendRaw(Join(Hex("00 9F 01 02"), request, request, Hex("9F 9F"), request)));
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(client.Await(AGENT_CMD_UNBIND)) << "packet " << i;
}
