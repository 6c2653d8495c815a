#include "e2e/AgentBench.h"
#include "e2e/ScriptedUe.h"

#include <gtest/gtest.h>

// From the line to the client: framing, garbage, AT text, ports that vanish. One modem is confirmed once a test,
// since that takes the seconds that the product spends on a new modem.

namespace
{
constexpr uint32_t DSP_ID = 0x30000001; // config/vex.cfg lets it pass

class Line : public testing::Test
{
protected:
    void SetUp() override
    {
        m_bench.StartAgent();
        ASSERT_TRUE(m_ue.Confirm());
        ASSERT_TRUE(m_ue.Attach(SERIAL_TYPE_DATA));
        ASSERT_TRUE(m_bench.Logged("UE 0 Lte Data attached"));
        m_pClient = m_bench.BoundClient(CHANNEL_LTE_DATA, 101);
        ASSERT_TRUE(m_pClient->IsOpen());
    }

    void ExpectIndication(const Bytes& payload, const std::string& strWhat)
    {
        const auto stPacket = m_pClient->Receive();
        ASSERT_TRUE(stPacket) << strWhat;
        EXPECT_EQ(stPacket->stHead.ulCmdId, DSP_ID) << strWhat;
        EXPECT_EQ(stPacket->payload, payload) << strWhat;
    }

    CAgentBench m_bench;
    CScriptedUe m_ue{101, "modem"};
    std::unique_ptr<CTcpClient> m_pClient;
};
} // namespace

TEST_F(Line, AFrameMayBeCutAnywhere)
{
    const Bytes payload = Hex("7E 7D 01 02 03 7D 7E");
    const Bytes frame = CScriptedUe::Frame(CScriptedUe::Packet(3, DSP_ID, 0, 0, 100, payload));
    CPtyPair& port = m_ue.Port(SERIAL_TYPE_DATA);
    for (size_t cut = 1; cut < frame.size(); ++cut) {
        port.Write(ByteView(frame).first(cut));
        // Now and then both pieces come in one read; what matters is that every cut gives the packet once.
        std::this_thread::yield();
        port.Write(ByteView(frame).subspan(cut));
        ExpectIndication(payload, "cut at " + std::to_string(cut));
    }
}

TEST_F(Line, GarbageRuntsAndBadFramesCostOnlyThemselves)
{
    const auto Good = [](unsigned char ucMark) {
        return CScriptedUe::Frame(CScriptedUe::Packet(3, DSP_ID, 0, 0, 100, Bytes{ucMark}));
    };
    Bytes badFcs = Good(0xEE);
    badFcs[10] ^= 0x01;
    const Bytes badEscape = Join(Hex("7E 7D 01"), Fill(30, 0x11), Hex("7E"));
    const Bytes runt = Hex("7E 01 02 03 04 05 7E");
    m_ue.Port(SERIAL_TYPE_DATA)
        .Write(Join(Hex("00 11 22 33"), Good(1), Hex("7E 7E 7E"), badFcs, Good(2), badEscape, Good(3), runt, Good(4)));
    for (const unsigned char ucMark : Hex("01 02 03 04"))
        ExpectIndication(Bytes{ucMark}, "frame " + std::to_string(ucMark));
    EXPECT_TRUE(m_bench.Logged("HDLC Decode Error!com:102, type:1"));
}

TEST_F(Line, ALostClosingFlagCostsThatFrameAndTheNext)
{
    const auto Frame = [](unsigned char ucMark) {
        return CScriptedUe::Frame(CScriptedUe::Packet(3, DSP_ID, 0, 0, 100, Bytes{ucMark}));
    };
    Bytes open = Frame(1);
    open.pop_back();
    m_ue.Port(SERIAL_TYPE_DATA).Write(Join(open, Frame(2), Frame(3)));
    // The frame ends at the start flag of the next, whose own flags are then taken for one start.
    ExpectIndication(Bytes{1}, "ended by the next start flag");
    ExpectIndication(Bytes{3}, "behind the lost one");
    EXPECT_TRUE(m_pClient->IsSilent(std::chrono::milliseconds(100)));
}

TEST_F(Line, AtLinesComeWithCrLfOnBothSides)
{
    ASSERT_TRUE(m_ue.Attach(SERIAL_TYPE_AT));
    ASSERT_TRUE(m_bench.Logged("UE 0 AT attached"));
    // The port is attached but unconfirmed, as the confirmation covers all channels at once and came before it.
    const auto pClient = m_bench.BoundClient(CHANNEL_AT, 101);
    ASSERT_TRUE(pClient->IsOpen());
    const std::string strCommand = "AT+CREG?\r";
    ASSERT_TRUE(pClient->SendRaw(AsBytes(strCommand)));
    EXPECT_EQ(m_ue.Port(SERIAL_TYPE_AT).Read(strCommand.size()), Bytes(AsBytes(strCommand)));
    m_ue.Port(SERIAL_TYPE_AT).Write(AsBytes("\r\n+CREG: 0,1\r\nOK\r\n"));
    const auto stInd = pClient->Receive();
    ASSERT_TRUE(stInd);
    EXPECT_EQ(stInd->stHead.ulCmdId, 34U); // holds a text of AT_IND_MSG_FILTER
    EXPECT_EQ(stInd->payload, Bytes(AsBytes("\r\n+CREG: 0,1\r\n")));
    const auto stText = pClient->Receive();
    ASSERT_TRUE(stText);
    EXPECT_EQ(stText->stHead.ulCmdId, 33U);
    EXPECT_EQ(stText->payload, Bytes(AsBytes("\r\nOK\r\n")));
}

TEST_F(Line, ADetachClosesTheBoundClientAndAttachBringsTheChannelBack)
{
    ASSERT_TRUE(m_ue.Detach(SERIAL_TYPE_DATA));
    EXPECT_TRUE(SawClose(m_pClient->Fd()));
    EXPECT_TRUE(m_bench.Logged("disconnect client because device loss"));
    ASSERT_TRUE(m_ue.Attach(SERIAL_TYPE_DATA));
    // Its row was reset by the detach: without a new host connect nobody can bind to it.
    CTcpClient again(CHANNEL_LTE_DATA);
    EXPECT_FALSE(again.Bind(101));
}

TEST_F(Line, AVanishedModemDoesNotSpinOrKillTheAgent)
{
    m_ue.Port(SERIAL_TYPE_DATA).Unplug();
    EXPECT_TRUE(m_bench.Logged("Read Serial fail!"));
    // The other ports and the clients go on.
    CTcpClient diag(CHANNEL_LTE_DIAG);
    EXPECT_TRUE(diag.Bind(101));
    EXPECT_TRUE(diag.Send(0x10014003, PKT_TYPE_CMD));
    const auto stReq = m_ue.ReadRequest();
    ASSERT_TRUE(stReq);
    EXPECT_EQ(stReq->ulCmdId, 0x10014003U);
    ASSERT_TRUE(m_ue.Detach(SERIAL_TYPE_DATA));
    EXPECT_TRUE(SawClose(m_pClient->Fd()));
    EXPECT_TRUE(m_bench.Agent().IsRunning());
}
