#include "data/DpAt.h"

#include "agent/Client.h"
#include "support/AgentFixture.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

namespace
{

Bytes Text(const std::string& strText)
{
    return Bytes(AsBytes(strText));
}

/// One UE with port 31 and an AT client, bound by default.
class DpAt : public testing::Test
{
protected:
    explicit DpAt(const std::string& strConfig = std::string(TEST_LAYOUT) + "AT_IND_MSG_FILTER=+CREG\n")
        : m_fixture(strConfig)
    {
        m_fixture.AttachUe(0, 31);
        m_fixture.Confirm(0);
        m_client.emplace(m_fixture.AddClient(CHANNEL_AT));
        (void)m_client->Pending();
        m_processor.emplace(&m_fixture.Agent().Bindings(), m_client->Get());
    }

    void Raw(const std::string& strText) { m_processor->ProcessClientData(Text(strText)); }

    /// The texts that went to the UE, each in brackets.
    std::string Sent()
    {
        std::string strSent;
        for (const QueuedMsg& stMsg : m_fixture.ToUe()) {
            EXPECT_EQ(stMsg.enChannel, CHANNEL_AT);
            EXPECT_EQ(stMsg.ulUeIdx, 0u);
            strSent += "[" + std::string(stMsg.data.begin(), stMsg.data.end()) + "]";
        }
        return strSent;
    }

    CAgentFixture m_fixture;
    std::optional<CTestClient> m_client;
    std::optional<CDataProcessorAt> m_processor; // one of its own, with direct calls
};

} // namespace

TEST_F(DpAt, RawTextGoesOutLineByLineWithItsCarriageReturn)
{
    Raw("AT\r");
    EXPECT_EQ(Sent(), "[AT\r]");
    Raw("AT+CG");
    EXPECT_EQ(Sent(), "") << "no carriage return yet";
    Raw("SN\rATI\rAT");
    EXPECT_EQ(Sent(), "[AT+CGSN\r][ATI\r]");
    Raw("\r\r");
    EXPECT_EQ(Sent(), "[AT\r][\r]");
}

TEST_F(DpAt, RawTextEndsAtItsFirstNul)
{
    m_processor->ProcessClientData(Join(Text("ATX"), Bytes{0}, Text("Y\r")));
    EXPECT_EQ(Sent(), "");
    Raw("Z\r");
    EXPECT_EQ(Sent(), "[ATXZ\r]");
}

TEST_F(DpAt, ALongLineKeepsItsFirst4096Bytes)
{
    Raw(std::string(4096, 'a') + "\r");
    EXPECT_EQ(Sent(), "[" + std::string(4096, 'a') + "\r]");
    Raw(std::string(4096, 'a'));
    Raw("bcd\rAT\r");
    EXPECT_EQ(Sent(), "[" + std::string(4096, 'a') + "\r][AT\r]");
}

TEST_F(DpAt, AFramedCommandGoesOutAsItStands)
{
    m_processor->ProcessClientData(Join(Hex("21 00 00 00  F0 00  03 00"), Text("ATI")));
    EXPECT_EQ(Sent(), "[ATI]");
    m_processor->ProcessClientData(Hex("21 00 00 00  F0 00  00 00"));
    EXPECT_EQ(Sent(), "") << "no text, nothing to send";
}

TEST_F(DpAt, TextThatBeginsLikeAFrameIsText)
{
    m_processor->ProcessClientData(Hex("9F 9F 41 54 0D"));
    EXPECT_EQ(Sent(), "[\x9F\x9F"
                      "AT\r]");
    Raw("!"); // 33, if three zeros stood behind it
    Raw("P");
    Raw("\r");
    EXPECT_EQ(Sent(), "[!P\r]");
}

TEST_F(DpAt, BothFormsWorkThroughTheClientsConnection)
{
    m_client->Send(Text("AT\r"));
    EXPECT_EQ(Sent(), "[AT\r]");
    m_client->Request(AGENT_CMD_AT, PKT_TYPE_AGENT, Text("ATI\r"));
    EXPECT_EQ(Sent(), "[ATI\r]") << "once, by the framed path";
    m_client->Send(Text("ATZ\r"));
    EXPECT_EQ(Sent(), "[ATZ\r]") << "the frame left nothing in the line";
}

TEST_F(DpAt, BindingWorksFramed)
{
    m_client->Request(AGENT_CMD_UNBIND, PKT_TYPE_AGENT);
    auto ack = m_client->Read();
    ASSERT_TRUE(ack);
    EXPECT_EQ(ack->stHead.ulCmdId, 0x50000050u);
    EXPECT_EQ(m_fixture.Agent().Bindings().GetBindedUE(m_client->Get()), UE_NONE);
    m_client->Request(AGENT_CMD_BIND, PKT_TYPE_AGENT, Le(31u));
    ack = m_client->Read();
    ASSERT_TRUE(ack);
    EXPECT_EQ(ack->stHead.ulRc, DIAG_RC_OK);
    EXPECT_EQ(m_fixture.Agent().Bindings().GetBindedUE(m_client->Get()), 0);
}

TEST_F(DpAt, AnUnboundClientIsToldInTheLogOnly)
{
    const CLogCapture log;
    m_client->Request(AGENT_CMD_UNBIND, PKT_TYPE_AGENT);
    (void)m_client->Pending();
    Raw("AT\r");
    EXPECT_EQ(log.Count("AT Client has not bind to UE"), 1);
    EXPECT_EQ(Sent(), "");
    EXPECT_TRUE(m_client->Pending().empty());
}

TEST_F(DpAt, TextFromTheUeComesFramed)
{
    m_fixture.FromUe(0, CHANNEL_AT, Text("\r\nOK\r\n"));
    EXPECT_EQ(m_client->Pending(), Hex("9F 9F"
                                       "21 00 00 00"             // 33, plain text
                                       "00 00 00 00"             // ulRc
                                       "00 00 00 00 00 00 00 00" // ullTimeStamp
                                       "F0 00  06 00"            // type 240, length
                                       "0D 0A 4F 4B 0D 0A"));
    m_fixture.FromUe(0, CHANNEL_AT, Text("+CREG: 1"));
    const auto packet = m_client->Read();
    ASSERT_TRUE(packet);
    EXPECT_EQ(packet->stHead.ulCmdId, 34u);
    EXPECT_EQ(packet->payload, Text("+CREG: 1"));
}

TEST_F(DpAt, TheFilterSeesTheTextUpToItsFirstNulAndThePacketAllOfIt)
{
    const Bytes text = Join(Text("OK"), Bytes{0}, Text("+CREG"));
    m_fixture.FromUe(0, CHANNEL_AT, text);
    const auto packet = m_client->Read();
    ASSERT_TRUE(packet);
    EXPECT_EQ(packet->stHead.ulCmdId, 33u);
    EXPECT_EQ(packet->payload, text);
}

TEST_F(DpAt, NullAndMissingOwners)
{
    const CLogCapture log;
    EXPECT_EQ(m_processor->ProcessClientData({}), 0);
    EXPECT_EQ(log.Count("[ERR] : Lte Diag Reques is NULL"), 1);
    CDataProcessorAt alone(nullptr, nullptr);
    Bytes text = Text("AT\r");
    EXPECT_EQ(alone.ProcessClientData(text), 1);
    EXPECT_EQ(alone.ProcessSerialData(text), 0);
}
