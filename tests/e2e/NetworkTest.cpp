#include "e2e/AgentBench.h"
#include "e2e/ScriptedUe.h"
#include "support/HdlcReference.h"

#include <gtest/gtest.h>

// The UE that is reached over the network: four links, played by listening sockets of the test.

namespace
{
constexpr size_t REQ_HEAD = 24;
constexpr unsigned short LINK_PORT = 21000; // of the diag link; the others follow, as in config/vex.cfg

class Network : public testing::Test
{
protected:
    void SetUp() override
    {
        for (unsigned short i = 0; i < SERIALNUM; ++i)
            m_aListener[i] = ListenTcp(static_cast<unsigned short>(LINK_PORT + i));
        m_bench.StartAgent();
        ASSERT_TRUE(SendDeviceRecord(0, 0, 1, "", "127.0.0.1"));
        for (size_t i = 0; i < SERIALNUM; ++i)
            m_aLink[i] = AcceptTcp(m_aListener[i]);
        ASSERT_TRUE(m_aLink[SERIAL_TYPE_AT].IsOpen());
        ExpectRequest(0x10065000);
        ExpectRequest(0x10067000);
        ASSERT_TRUE(SendAll(Diag(), CScriptedUe::Frame(CScriptedUe::Packet(0, 0x10065000, 0, 0, 0, Fill(320)))));
        for (int i = 0; i < 24; ++i)
            ASSERT_FALSE(ReadRequest().empty()) << "report switch " << i;
    }

    const CUniqueFd& Diag() const { return m_aLink[SERIAL_TYPE_DIAG]; }

    /// The next request's packet from the diag link; empty when none comes.
    Bytes ReadRequest()
    {
        Bytes frame = ReceiveBytes(Diag(), 1);
        while (!frame.empty() && (frame.size() < 2 || frame.back() != 0x7E)) {
            const Bytes next = ReceiveBytes(Diag(), 1);
            if (next.empty())
                return {};
            frame.push_back(next[0]);
        }
        Bytes packet;
        return ReferenceDecode(frame, packet) == 0 ? packet : Bytes();
    }
    void ExpectRequest(uint32_t ulId)
    {
        const Bytes packet = ReadRequest();
        ASSERT_GE(packet.size(), REQ_HEAD);
        EXPECT_EQ(LoadLe<uint32_t>(packet, 8), ulId);
    }

    CAgentBench m_bench;
    std::array<CUniqueFd, SERIALNUM> m_aListener;
    std::array<CUniqueFd, SERIALNUM> m_aLink;
};
} // namespace

TEST_F(Network, OneAttachBringsFiveChannelsOverFourLinks)
{
    ASSERT_TRUE(m_bench.WaitConfirmed(0));
    const auto rows = QueryChannels();
    ASSERT_EQ(rows.size(), MAXUENUM * CHANNELNUM);
    for (size_t i = 0; i < CHANNELNUM; ++i) {
        EXPECT_TRUE(rows[TCP_UE_INDEX * CHANNELNUM + i].bAttached) << i;
        EXPECT_EQ(rows[TCP_UE_INDEX * CHANNELNUM + i].nPort, 0) << i;
    }

    const auto pClient = m_bench.BoundClient(CHANNEL_LTE_DIAG, 0);
    ASSERT_TRUE(pClient->Send(0x10014003, PKT_TYPE_CMD, Hex("AA")));
    ExpectRequest(0x10014003);
    // The answer is cut in the middle of the stream; the link joins it again.
    const Bytes frame = CScriptedUe::Frame(CScriptedUe::Packet(0, 0x10014003, 0, 0, 9, Hex("00 00 00 00 BB")));
    ASSERT_TRUE(SendAll(Diag(), ByteView(frame).first(11)));
    ASSERT_TRUE(SendAll(Diag(), ByteView(frame).subspan(11)));
    const auto stAck = pClient->Await(0x10014003);
    ASSERT_TRUE(stAck);
    EXPECT_EQ(stAck->payload, Hex("BB"));

    const auto pAt = m_bench.BoundClient(CHANNEL_AT, 0);
    ASSERT_TRUE(pAt->SendRaw(AsBytes("ATI\r")));
    EXPECT_EQ(ReceiveBytes(m_aLink[SERIAL_TYPE_AT], 4), Bytes(AsBytes("ATI\r"))); // no frame around it
    ASSERT_TRUE(SendAll(m_aLink[SERIAL_TYPE_AT], AsBytes("OK\r\n")));
    const auto stText = pAt->Receive();
    ASSERT_TRUE(stText);
    EXPECT_EQ(stText->payload, Bytes(AsBytes("\r\nOK\r\n")));
}

TEST_F(Network, APeerThatClosesIsLeftAloneUntilTheDetachThatClosesItsClients)
{
    const auto pClient = m_bench.BoundClient(CHANNEL_LTE_DIAG, 0);
    ASSERT_TRUE(pClient->IsOpen());
    m_aLink[SERIAL_TYPE_DATA].Reset();
    // The other links go on, and a write to the closed one doesn't kill the agent.
    ASSERT_TRUE(pClient->Send(0x10014003, PKT_TYPE_CMD));
    ExpectRequest(0x10014003);
    for (CUniqueFd& link : m_aLink)
        link.Reset();
    ASSERT_TRUE(pClient->Send(0x10014003, PKT_TYPE_CMD));
    ASSERT_TRUE(pClient->Send(0x10014003, PKT_TYPE_CMD));
    EXPECT_FALSE(SawClose(pClient->Fd(), std::chrono::milliseconds(50)));

    ASSERT_TRUE(SendDeviceRecord(0, 0, 0, "", ""));
    EXPECT_TRUE(SawClose(pClient->Fd()));
    EXPECT_TRUE(m_bench.Agent().IsRunning());
}
