#include "support/AgentFixture.h"
#include "support/LogCapture.h"

#include "agent/Client.h"
#include "data/DpGuCmd.h"
#include "data/DpGuData.h"

#include <gtest/gtest.h>

TEST(DpGuData, OnlyBindingIsTaken)
{
    CAgentFixture fixture;
    const CLogCapture log;
    fixture.AttachUe(0, 21);
    fixture.Confirm(0);
    CTestClient client = fixture.AddClient(CHANNEL_GU_DATA);
    client.Request(AGENT_CMD_UNBIND, 0x05F0);
    auto ack = client.Read();
    ASSERT_TRUE(ack);
    EXPECT_EQ(ack->stHead.ulCmdId, 0x50000050u);
    EXPECT_EQ(ack->stHead.ulRc, DIAG_RC_OK);
    EXPECT_EQ(fixture.Agent().Bindings().GetBindedUE(client.Get()), UE_NONE);

    client.Request(AGENT_CMD_BIND, 0x05F0, Le(21u));
    ack = client.Read();
    ASSERT_TRUE(ack);
    EXPECT_EQ(ack->stHead.ulRc, DIAG_RC_OK);
    EXPECT_EQ(ack->stHead.usPktType, 0x05F0);
    EXPECT_TRUE(ack->payload.empty());
    EXPECT_EQ(fixture.Agent().Bindings().GetBindedUE(client.Get()), 0);

    client.Request(0x1234, PKT_TYPE_GU_TRANS, Fill(4));
    EXPECT_EQ(log.Count("[WAN] : Invalid Command send to Lte Data channel"), 1);
    EXPECT_TRUE(client.Pending().empty());
}

TEST(DpGuCmd, ACommandBeforeAnyBindIsLoggedAndDropped)
{
    CAgentFixture fixture;
    const CLogCapture log;
    CTestClient client = fixture.AddClient(CHANNEL_GU_CMD);
    client.Request(0x8081, PKT_TYPE_GU_QUERY, Fill(4));
    EXPECT_EQ(log.Count("[INF] : Client to UE(com 0): gu cmd id is 0x8081, line:"), 1);
    EXPECT_EQ(log.Count("POperationGUData IS NULL"), 1);
    EXPECT_TRUE(client.Pending().empty());
    EXPECT_TRUE(fixture.ToUe().empty());
}

TEST(DpGuCmd, BindAndUnbindAreAnsweredHere)
{
    CAgentFixture fixture;
    CTestClient client = fixture.AddClient(CHANNEL_GU_CMD);
    client.Request(AGENT_CMD_BIND, PKT_TYPE_AGENT, Le(99u));
    auto ack = client.Read();
    ASSERT_TRUE(ack);
    EXPECT_EQ(ack->stHead.ulCmdId, 0x50000040u);
    EXPECT_EQ(ack->stHead.ulRc, DIAG_RC_FAIL);
    client.Request(AGENT_CMD_UNBIND, PKT_TYPE_AGENT);
    ack = client.Read();
    ASSERT_TRUE(ack);
    EXPECT_EQ(ack->stHead.ulRc, DIAG_RC_OK);
}

TEST(DpGuCmd, ARequestWithoutParametersIsDropped)
{
    CAgentFixture fixture;
    fixture.AttachUe(0, 21);
    fixture.Confirm(0);
    CTestClient client = fixture.AddClient(CHANNEL_GU_CMD);
    (void)client.Pending(); // the UE status packet of the default binding
    client.Request(0x1234, PKT_TYPE_GU_TRANS);
    EXPECT_TRUE(client.Pending().empty());
    EXPECT_TRUE(fixture.ToUe().empty());
}

TEST(DpGu, NothingComesFromTheSerialSideAndNullIsRefused)
{
    CDataProcessorGuCmd cmd(nullptr, nullptr);
    CDataProcessorGuData data(nullptr, nullptr);
    Bytes packet = Fill(8);
    EXPECT_EQ(cmd.ProcessSerialData(packet), 0);
    EXPECT_EQ(data.ProcessSerialData(packet), 0);
    EXPECT_EQ(cmd.ProcessClientData({}), 0);
    EXPECT_EQ(data.ProcessClientData({}), 0);
    EXPECT_EQ(cmd.ProcessClientData(packet), 1) << "without an agent too";
}
