#include "data/DataProcessor.h"

#include "agent/Client.h"
#include "data/DpAt.h"
#include "data/DpGuCmd.h"
#include "data/DpGuData.h"
#include "data/DpLteData.h"
#include "data/DpLteDiag.h"
#include "support/AgentFixture.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

namespace
{
const std::string WITH_VERSION = std::string(TEST_LAYOUT) + "agentver=1.2.3\n";

/// The frame with nothing of its own.
struct CPlainProcessor : CDataProcessor
{
    using CDataProcessor::CDataProcessor;
    using CDataProcessor::m_enChannelType;
    int ProcessClientData(ByteView /*packet*/) override { return 0; }
    int ProcessSerialData(ByteSpan /*data*/) override { return 0; }
};

Bytes BindRequest(unsigned int ulPort)
{
    return Join(Hex("40 00 00 50  F0 A5  04 00"), Le(ulPort));
}
} // namespace

TEST(DataProcessor, EachChannelHasItsClass)
{
    const auto Make = [](int iType) {
        return CreateDataProcessor(static_cast<enChannelType>(iType), nullptr, nullptr);
    };
    EXPECT_NE(dynamic_cast<CDataProcessorLteDiag*>(Make(0).get()), nullptr);
    EXPECT_NE(dynamic_cast<CDataProcessorLteData*>(Make(1).get()), nullptr);
    EXPECT_NE(dynamic_cast<CDataProcessorGuCmd*>(Make(2).get()), nullptr);
    EXPECT_NE(dynamic_cast<CDataProcessorGuData*>(Make(3).get()), nullptr);
    EXPECT_NE(dynamic_cast<CDataProcessorAt*>(Make(4).get()), nullptr);
    EXPECT_EQ(Make(5), nullptr);
    EXPECT_EQ(Make(-1), nullptr);
}

TEST(DataProcessor, ABindOnLteDiagIsAnsweredWithTheVersionText)
{
    CAgentFixture fixture(WITH_VERSION);
    const CLogCapture log;
    CTestClient client = fixture.AddClient(CHANNEL_LTE_DIAG);
    fixture.AttachUe(2, 17);
    fixture.Confirm(2);
    client.Send(Join(Hex("9F 9F"), BindRequest(17)));
    const auto status = client.Read(); // the UE's status comes first
    ASSERT_TRUE(status);
    EXPECT_EQ(status->stHead.ulCmdId, AGENT_CMD_UE_STATUS);
    EXPECT_EQ(client.Pending(), Hex("9F 9F  40 00 00 50  00 00 00 00  00 00 00 00 00 00 00 00  F0 A5  06 00"
                                    "31 2E 32 2E 33 00")); // "1.2.3" with its NUL
    EXPECT_EQ(fixture.Agent().Bindings().GetBindedUE(client.Get()), 2);
    EXPECT_EQ(log.Count("Agent version: 1.2.3"), 1);
}

TEST(DataProcessor, TheStatusOfAUeCutsAnImeiWithoutItsNul)
{
    CAgentFixture fixture(WITH_VERSION);
    CTestClient client = fixture.AddClient(CHANNEL_LTE_DIAG);
    fixture.AttachUe(2, 17);
    ADE_UE_CONNECTION_ACK_STRU stAck;
    CopyPadded(Slice(ByteSpan(stAck.aucData), ADE_UE_CONNECTION_ACK_STRU::IMEI, 16), AsBytes("0123456789ABCDEF"));
    fixture.Agent().UEManager().GetUE(2)->SetUEConnectionAck(stAck);
    fixture.Confirm(2);
    client.Send(Join(Hex("9F 9F"), BindRequest(17)));
    const auto status = client.Read();
    ASSERT_TRUE(status);
    ASSERT_EQ(status->payload.size(), 92u);
    EXPECT_EQ(Bytes(Slice(ByteView(status->payload), 0, 4)), Hex("01 02 25 4F")); // UE 2, data port 20261
    EXPECT_EQ(Bytes(Slice(ByteView(status->payload), 36)), Join(AsBytes("0123456789ABCDE"), Fill(41)));
}

TEST(DataProcessor, ABindOnOtherChannelsHasNoPayload)
{
    CAgentFixture fixture(WITH_VERSION);
    CTestClient client = fixture.AddClient(CHANNEL_LTE_DATA);
    fixture.AttachUe(2, 17);
    fixture.Confirm(2);
    client.Send(Join(Hex("9F 9F"), BindRequest(17)));
    EXPECT_EQ(client.Pending(), Hex("9F 9F  40 00 00 50  00 00 00 00  00 00 00 00 00 00 00 00  F0 A5  00 00"));
}

TEST(DataProcessor, AFailedBindHasResult2AndNoPayloadOnEveryChannel)
{
    CAgentFixture fixture(WITH_VERSION);
    for (const enChannelType enType :
         {CHANNEL_LTE_DIAG, CHANNEL_LTE_DATA, CHANNEL_GU_CMD, CHANNEL_GU_DATA, CHANNEL_AT}) {
        CTestClient client = fixture.AddClient(enType);
        client.Send(Join(Hex("9F 9F"), BindRequest(17)));
        EXPECT_EQ(client.Pending(), Hex("9F 9F  40 00 00 50  02 00 00 00  00 00 00 00 00 00 00 00  F0 A5  00 00"))
            << "channel " << enType;
    }
}

TEST(DataProcessor, ABindWithoutParametersReadsPort0)
{
    CAgentFixture fixture;
    CTestClient client = fixture.AddClient(CHANNEL_AT);
    fixture.AttachUe(TCP_UE_INDEX, 0, "", "10.0.0.1");
    fixture.Confirm(TCP_UE_INDEX);
    client.Request(AGENT_CMD_BIND, PKT_TYPE_AGENT);
    const auto ack = client.Read();
    ASSERT_TRUE(ack);
    EXPECT_EQ(ack->stHead.ulRc, DIAG_RC_OK);
    EXPECT_EQ(fixture.Agent().Bindings().GetBindedUE(client.Get()), 15);
}

TEST(DataProcessor, NullRequests)
{
    CAgentFixture fixture;
    fixture.AttachUe(0, 17);
    fixture.Confirm(0);
    CTestClient client = fixture.AddClient(CHANNEL_LTE_DATA);
    CPlainProcessor processor(&fixture.Agent().Bindings(), client.Get());
    EXPECT_FALSE(processor.ProcessBind(nullptr));
    EXPECT_EQ(fixture.Agent().Bindings().GetBindedUE(client.Get()), 0);
    EXPECT_TRUE(processor.ProcessUnBind(nullptr)) << "as at the client's end";
    EXPECT_EQ(fixture.Agent().Bindings().GetBindedUE(client.Get()), UE_NONE);
    EXPECT_TRUE(client.Pending().empty()) << "no ack";
    CPlainProcessor alone(nullptr, nullptr);
    const DIAG_PACKET_REQ_VIEW stReq;
    EXPECT_FALSE(alone.ProcessUnBind(&stReq));
    EXPECT_FALSE(alone.ProcessBind(&stReq));
}

TEST(DataProcessor, AnAckHasAtMost8192BytesOfPayload)
{
    CAgentFixture fixture;
    const CLogCapture log;
    CTestClient client = fixture.AddClient(CHANNEL_LTE_DATA);
    CPlainProcessor processor(&fixture.Agent().Bindings(), client.Get());
    processor.SendAckToClient(0x1234, 0x0210, 7, Fill(8192, 0xAB), 0x1122334455667788);
    const auto ack = client.Read();
    ASSERT_TRUE(ack);
    EXPECT_EQ(ack->stHead.ulCmdId, 0x1234u);
    EXPECT_EQ(ack->stHead.usPktType, 0x0210);
    EXPECT_EQ(ack->stHead.ulRc, 7u);
    EXPECT_EQ(ack->stHead.ullTimeStamp, 0x1122334455667788u);
    EXPECT_EQ(ack->payload, Fill(8192, 0xAB));

    processor.SendAckToClient(0x1234, 0x0210, 0, Fill(8193, 0xAB), 0);
    EXPECT_TRUE(client.Pending().empty());
    CPlainProcessor alone(nullptr, nullptr);
    alone.SendAckToClient(0x1234, 0x0210, 0, {}, 0);
    EXPECT_EQ(log.Count("[WAN] : Send Ack to Client has too large packet"), 2);
}
