#include "agent/Agent.h"
#include "agent/Client.h"
#include "agent/StatusRecords.h"
#include "support/AgentFixture.h"
#include "support/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::IsEmpty;

namespace
{
class ChannelBindingTest : public testing::Test
{
protected:
    void Ready(unsigned int ulUeIdx, unsigned int ulPort)
    {
        m_fix.AttachUe(ulUeIdx, ulPort);
        m_fix.Confirm(ulUeIdx);
    }
    int UeOf(const CTestClient& client) { return Agent().Bindings().GetBindedUE(client.Get()); }
    void UnBind(const CTestClient& client)
    {
        const xtl::MutexGuard guard(Agent().Bindings().Mutex());
        EXPECT_TRUE(Agent().Bindings().UnBindUE(client.Get()));
    }
    bool BindUE(CClient* pClient, int nUeIdx)
    {
        const xtl::MutexGuard guard(Agent().Bindings().Mutex());
        return Agent().Bindings().BindUE(pClient, nUeIdx);
    }
    Bytes Status(size_t szUe, size_t szChannel)
    {
        return Bytes(Slice(ByteView(Agent().Bindings().GetChannelsInfo()), szUe * 220 + szChannel * 44, 44));
    }
    CAgent& Agent() { return m_fix.Agent(); }

    CAgentFixture m_fix;
};
} // namespace

TEST_F(ChannelBindingTest, TheFirstClientGetsTheLowestConfirmedUe)
{
    Ready(4, 40);
    Ready(2, 20); // attached later
    CTestClient client = m_fix.AddClient(CHANNEL_LTE_DIAG);
    EXPECT_EQ(UeOf(client), 2);
    EXPECT_EQ(Agent().Table().GetBindedClient(2, CHANNEL_LTE_DIAG), client.Get());
    EXPECT_EQ(Agent().Table().GetBindedClient(4, CHANNEL_LTE_DIAG), nullptr);
}

TEST_F(ChannelBindingTest, ASecondClientOfATypeIsNotBoundByItself)
{
    Ready(0, 1);
    Ready(1, 2);
    CTestClient first = m_fix.AddClient(CHANNEL_LTE_DATA);
    CTestClient second = m_fix.AddClient(CHANNEL_LTE_DATA);
    CTestClient other = m_fix.AddClient(CHANNEL_AT);
    EXPECT_EQ(UeOf(first), 0);
    EXPECT_EQ(UeOf(second), -1);
    EXPECT_EQ(UeOf(other), 0) << "the first of its own type";
}

TEST_F(ChannelBindingTest, AClientThatCameBeforeTheUeStaysUnbound)
{
    m_fix.AttachUe(0, 1);
    CTestClient client = m_fix.AddClient(CHANNEL_LTE_DIAG);
    EXPECT_EQ(UeOf(client), -1);
    m_fix.Confirm(0);
    EXPECT_EQ(UeOf(client), -1);
}

TEST_F(ChannelBindingTest, TheDefaultBindingLooksAtTheLteDiagRowWhateverTheType)
{
    m_fix.Attach(0, CHANNEL_AT, 7); // no LTE diag channel: no candidate
    m_fix.Confirm(0);
    m_fix.Attach(1, CHANNEL_LTE_DIAG, 8); // a candidate, but without AT channel
    m_fix.Confirm(1);
    CTestClient client = m_fix.AddClient(CHANNEL_AT);
    EXPECT_EQ(UeOf(client), -1) << "the first candidate is tried, and no other";
    EXPECT_TRUE(m_fix.Bind(client, 7));
    EXPECT_EQ(UeOf(client), 0);
}

TEST_F(ChannelBindingTest, ARowIsBindableWhenAttachedConfirmedAndFree)
{
    m_fix.AttachUe(0, 1);
    CTestClient first = m_fix.AddClient(CHANNEL_GU_CMD);
    EXPECT_FALSE(BindUE(first.Get(), 0)) << "not confirmed";
    m_fix.Confirm(0);
    EXPECT_TRUE(BindUE(first.Get(), 0));
    CTestClient second = m_fix.AddClient(CHANNEL_GU_CMD);
    EXPECT_FALSE(BindUE(second.Get(), 0)) << "taken";
    m_fix.Confirm(1);
    EXPECT_FALSE(BindUE(second.Get(), 1)) << "confirmed but not attached";
    EXPECT_FALSE(BindUE(second.Get(), 16));
    EXPECT_FALSE(BindUE(second.Get(), -1));
    EXPECT_FALSE(BindUE(nullptr, 0));
}

TEST_F(ChannelBindingTest, ABindIsLogged)
{
    CLogCapture log;
    Ready(0, 77);
    CTestClient client = m_fix.AddClient(CHANNEL_GU_DATA);
    EXPECT_TRUE(log.Saw("[INF] : Client Connected, com port is 77, ip is 192.0.2.1\n"));
    EXPECT_TRUE(log.Saw("[INF] : Guom Data binded to 77\n"));
}

TEST_F(ChannelBindingTest, APortNamesItsUeWhicheverChannelItCarries)
{
    m_fix.Attach(5, CHANNEL_LTE_DIAG, 50);
    m_fix.Attach(5, CHANNEL_LTE_DATA, 51);
    m_fix.Attach(5, CHANNEL_AT, 52);
    m_fix.Confirm(5);
    CTestClient client = m_fix.AddClient(CHANNEL_AT);
    UnBind(client);
    EXPECT_TRUE(m_fix.Bind(client, 51));
    EXPECT_EQ(Agent().Table().GetBindedClient(5, CHANNEL_AT), client.Get()) << "the row of the client's own type";
    EXPECT_EQ(Agent().Table().GetBindedClient(5, CHANNEL_LTE_DATA), nullptr);
}

TEST_F(ChannelBindingTest, AClientMayBindToThePortThatItHas)
{
    Ready(0, 9);
    CTestClient client = m_fix.AddClient(CHANNEL_LTE_DIAG);
    EXPECT_TRUE(m_fix.Bind(client, 9));
    EXPECT_EQ(UeOf(client), 0);
}

TEST_F(ChannelBindingTest, AFailedBindLeavesTheClientUnbound)
{
    Ready(0, 1);
    Ready(1, 2);
    CTestClient first = m_fix.AddClient(CHANNEL_LTE_DIAG);
    CTestClient second = m_fix.AddClient(CHANNEL_LTE_DIAG);
    EXPECT_TRUE(m_fix.Bind(second, 2));
    EXPECT_FALSE(m_fix.Bind(second, 1)) << "held by the first";
    EXPECT_EQ(UeOf(second), -1);
    EXPECT_EQ(UeOf(first), 0);
    EXPECT_FALSE(m_fix.Bind(first, 99)) << "nobody has this port";
    EXPECT_EQ(UeOf(first), -1);
}

TEST_F(ChannelBindingTest, AnUnconfirmedUeIsNotFoundByItsPort)
{
    m_fix.AttachUe(0, 1);
    CTestClient client = m_fix.AddClient(CHANNEL_LTE_DIAG);
    EXPECT_FALSE(m_fix.Bind(client, 1));
}

TEST_F(ChannelBindingTest, PortZeroReachesTheNetworkUe)
{
    m_fix.AttachUe(15, 0, "", "192.0.2.7");
    m_fix.Confirm(15);
    CTestClient first = m_fix.AddClient(CHANNEL_LTE_DATA);
    EXPECT_EQ(UeOf(first), 15) << "a candidate of the default binding too";
    UnBind(first);
    EXPECT_TRUE(m_fix.Bind(first, 0));
    EXPECT_EQ(UeOf(first), 15);
}

TEST_F(ChannelBindingTest, AnUnbindFreesTheRowAndAlwaysSucceeds)
{
    CLogCapture log;
    Ready(0, 33);
    CTestClient client = m_fix.AddClient(CHANNEL_LTE_DIAG);
    UnBind(client);
    EXPECT_EQ(UeOf(client), -1);
    EXPECT_EQ(log.Count("[INF] : Client Disonnected, com port is 33"), 1);
    UnBind(client);
    EXPECT_EQ(log.Count("Client Disonnected"), 1) << "no record without a row";
}

TEST_F(ChannelBindingTest, QuestionsOutsideTheTableHaveAnAnswer)
{
    EXPECT_EQ(Agent().Table().GetBindedClient(16, CHANNEL_AT), nullptr);
    EXPECT_EQ(Agent().Table().GetBindedClient(UE_NONE, CHANNEL_AT), nullptr);
    EXPECT_EQ(Agent().Bindings().GetGUDataClient(16, CHANNEL_GU_DATA), nullptr);
    EXPECT_EQ(Agent().Bindings().GetGUDataClient(0, static_cast<enChannelType>(5)), nullptr);
    EXPECT_FALSE(Agent().Bindings().IsChannelOK(16, CHANNEL_AT));
    EXPECT_FALSE(Agent().Bindings().IsChannelOK(UE_NONE, CHANNEL_AT));
    EXPECT_EQ(Agent().Bindings().GetBindedUE(nullptr), UE_NONE);
    EXPECT_EQ(Agent().Bindings().GetOperationGUFromClient(nullptr), nullptr);
}

TEST_F(ChannelBindingTest, AChannelIsUpWhenAttachedAndConfirmed)
{
    m_fix.Attach(0, CHANNEL_LTE_DIAG, 1);
    EXPECT_FALSE(Agent().Bindings().IsChannelOK(0, CHANNEL_LTE_DIAG));
    m_fix.Confirm(0);
    EXPECT_TRUE(Agent().Bindings().IsChannelOK(0, CHANNEL_LTE_DIAG));
    EXPECT_FALSE(Agent().Bindings().IsChannelOK(0, CHANNEL_AT));
}

TEST_F(ChannelBindingTest, AClientHasTheOperationOfItsUe)
{
    Ready(0, 1);
    Ready(1, 2);
    CTestClient client = m_fix.AddClient(CHANNEL_GU_CMD);
    const IGuRequests* const pOfUe0 = Agent().Bindings().GetOperationGUFromClient(client.Get());
    EXPECT_NE(pOfUe0, nullptr);
    EXPECT_TRUE(m_fix.Bind(client, 2));
    EXPECT_NE(Agent().Bindings().GetOperationGUFromClient(client.Get()), nullptr);
    EXPECT_NE(Agent().Bindings().GetOperationGUFromClient(client.Get()), pOfUe0);
    UnBind(client);
    EXPECT_EQ(Agent().Bindings().GetOperationGUFromClient(client.Get()), nullptr);
}

TEST_F(ChannelBindingTest, AClientInUseOutlivesItsRemoval)
{
    Ready(0, 1);
    CTestClient client = m_fix.AddClient(CHANNEL_GU_DATA);
    auto pHeld = Agent().Bindings().GetGUDataClient(0, CHANNEL_GU_DATA);
    ASSERT_EQ(pHeld.get(), client.Get());
    m_fix.Detach(0, CHANNEL_GU_DATA);
    EXPECT_EQ(Agent().Bindings().GetGUDataClient(0, CHANNEL_GU_DATA), nullptr);
    EXPECT_FALSE(client.IsClosed());
    pHeld.reset();
    EXPECT_TRUE(client.IsClosed());
}

TEST_F(ChannelBindingTest, TheChannelTableShowsEveryState)
{
    EXPECT_EQ(Agent().Bindings().GetChannelsInfo().size(), 3520u);
    const Bytes free = Join(Fill(32), Hex("FF FF FF FF 00 00 00 00 00 00 00 00"));
    EXPECT_EQ(Status(0, 0), free);
    EXPECT_EQ(Status(15, 4), free);

    const Bytes name = Join(Hex("2F 64 65 76 2F 74 74 79 41 43 4D 30"), Fill(20)); // /dev/ttyACM0
    m_fix.AttachUe(1, 0x0102, "/dev/ttyACM0");
    EXPECT_EQ(Status(1, 2), Join(name, Hex("FF FF FF FF 00 00 00 00 00 00 00 00"))) << "attached";
    m_fix.Confirm(1);
    EXPECT_EQ(Status(1, 2), Join(name, Hex("02 01 00 00 01 00 00 00 00 00 00 00"))) << "confirmed";
    CTestClient client = m_fix.AddClient(CHANNEL_GU_CMD);
    EXPECT_EQ(Status(1, 2), Join(name, Hex("02 01 00 00 01 00 00 00 01 00 00 00"))) << "bound";
    EXPECT_EQ(Status(1, 3), Join(name, Hex("02 01 00 00 01 00 00 00 00 00 00 00"))) << "its neighbour";
}

TEST_F(ChannelBindingTest, ALongPortNameIsCutAt31Characters)
{
    m_fix.AttachUe(0, 1, "0123456789012345678901234567890123456789");
    EXPECT_EQ(Bytes(Slice(ByteView(Status(0, 0)), 0, 32)),
              Join(Hex("30 31 32 33 34 35 36 37 38 39 30 31 32 33 34 35 36 37 38 39"),
                   Hex("30 31 32 33 34 35 36 37 38 39 30 00")));
}

TEST_F(ChannelBindingTest, AClientFindsItsBindingsByRequests)
{
    Ready(0, 0x11);
    Ready(1, 0x22);
    CTestClient client = m_fix.AddClient(CHANNEL_LTE_DATA);
    client.Request(0x50000040, 240, Hex("22 00 00 00"));
    const auto ack = client.Read();
    ASSERT_TRUE(ack);
    EXPECT_EQ(ack->stHead.ulCmdId, 0x50000040u);
    EXPECT_EQ(ack->stHead.ulRc, 0u);
    EXPECT_EQ(UeOf(client), 1);
    client.Request(0x50000040, 240, Hex("33 00 00 00"));
    const auto refused = client.Read();
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->stHead.ulRc, 2u);
    EXPECT_EQ(UeOf(client), -1);
}
