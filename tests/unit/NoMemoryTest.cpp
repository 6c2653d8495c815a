#include "common/NoMemory.h"

#include "agent/Client.h"
#include "support/AgentFixture.h"
#include "support/FailingNew.h"
#include "support/Lines.h"
#include "support/LogCapture.h"
#include "support/PtyPair.h"
#include "ue/ReadSet.h"

#include <gtest/gtest.h>
#include <stdexcept>

// In this program allocations can be made to fail, one after the other: whichever it is, one packet is lost at most,
// and the next one passes.

namespace
{
const Bytes LINE = Join(Hex("0D 0A"), Fill(60, 'x'), Hex("0D 0A")); // too long for a string without a heap block

/// Runs the step with its first allocation failing, then with its second, and so on until none fails any more. The
/// check follows each run. Gives the count of runs in which one failed.
template <class Step, class Check> int FailEach(CFailingNew::KIND enKind, Step step, Check check)
{
    constexpr int LIMIT = 1000;
    for (int n = 0; n < LIMIT; ++n) {
        {
            const CFailingNew failing(n, enKind);
            step();
        }
        const bool bFailed = CFailingNew::HasFailed();
        check(n);
        if (!bFailed)
            return n;
    }
    ADD_FAILURE() << "allocations without end";
    return LIMIT;
}

class NoMemoryTest : public testing::TestWithParam<CFailingNew::KIND>
{
protected:
    NoMemoryTest() : m_fix(std::string(TEST_LAYOUT) + "AT_IND_MSG_FILTER=+CREG\n")
    {
        m_fix.AttachUe(0, 31);
        m_fix.Confirm(0);
    }
    CAgentFixture m_fix;
};

/// A packet to an AT client, from its head on.
Bytes AtPacket(const Bytes& text)
{
    return Join(Hex("9F 9F  21 00 00 00  00 00 00 00  00 00 00 00 00 00 00 00  F0 00"),
                Le(static_cast<uint16_t>(text.size())), text);
}
} // namespace

TEST(DropOnNoMemory, LogsOneErrorAndGoesOn)
{
    const CLogCapture log;
    EXPECT_FALSE(DropOnNoMemory("a test", [] { throw std::bad_alloc(); }));
    EXPECT_EQ(log.Count("[ERR] : No memory for a test, dropped"), 1);
    bool bRan = false;
    EXPECT_TRUE(DropOnNoMemory("a test", [&] { bRan = true; }));
    EXPECT_TRUE(bRan);
    EXPECT_EQ(log.Count("No memory"), 1);
}

TEST(DropOnNoMemory, OtherExceptionsPass)
{
    EXPECT_THROW(DropOnNoMemory("a test", [] { throw std::runtime_error("x"); }), std::runtime_error);
}

TEST(DropOnNoMemory, ItsLineNeedsNoMemoryToBeLost)
{
    const CLogCapture log;
    {
        const CFailingNew failing(0, CFailingNew::ALL_FROM_THERE);
        EXPECT_FALSE(DropOnNoMemory("a test", [] { throw std::bad_alloc(); }));
    }
    EXPECT_EQ(log.Count("No memory"), 0);
}

TEST_P(NoMemoryTest, APacketOfAUeIsDroppedAlone)
{
    const CLogCapture log;
    CTestClient client = m_fix.AddClient(CHANNEL_AT);
    (void)client.Pending();
    const auto Msg = [] { return MSG_AGENT{AGENT_MSG_DATA, 0, CHANNEL_AT, CPacket::Copy(LINE)}; };
    std::array<MSG_AGENT, 3> astMsg = {Msg(), Msg(), Msg()};
    const size_t szPacket = AtPacket(LINE).size();
    const int nFailures = FailEach(
        GetParam(), [&] { m_fix.Agent().Events().ProcessAgentMsgs(astMsg); },
        [&](int n) {
            const Bytes received = client.Pending();
            EXPECT_EQ(received.size() % szPacket, 0u) << n;
            if (GetParam() == CFailingNew::ONE) {
                EXPECT_GE(received.size(), 2 * szPacket) << n << ": the others arrive";
            }
            m_fix.FromUe(0, CHANNEL_AT, LINE);
            EXPECT_EQ(client.Pending(), AtPacket(LINE)) << n;
            astMsg = {Msg(), Msg(), Msg()}; // the agent has taken those before
        });
    EXPECT_GE(nFailures, 3) << "each packet takes some memory";
    if (GetParam() == CFailingNew::ONE) {
        EXPECT_GE(log.Count("[ERR] : No memory for a packet of a UE, dropped"), 3);
    }
}

TEST_P(NoMemoryTest, APortThatComesIsDroppedAlone)
{
    Bytes block(UE_ATTACH_INFO_STRU::SIZE, 0);
    CByteWriter writer(block);
    const UE_ATTACH_INFO_STRU stInfo{77, std::string(100, 'n'), std::string(100, 'g')};
    AttachInfo(writer, stInfo);
    const auto Msg = [&] { return MSG_AGENT{AGENT_MSG_CONNECT, 2, CHANNEL_AT, CPacket::Copy(block)}; };
    MSG_AGENT stMsg = Msg();
    const int nFailures = FailEach(
        GetParam(),
        [&] {
            m_fix.Agent().Events().ProcessAgentMsgs({&stMsg, 1});
        },
        [&](int n) {
            m_fix.Process(Msg());
            m_fix.Confirm(2);
            CTestClient client = m_fix.AddClient(CHANNEL_AT);
            EXPECT_TRUE(m_fix.Bind(client, 77)) << n;
            m_fix.Detach(2, CHANNEL_AT);
            stMsg = Msg(); // the agent has taken the one before
        });
    EXPECT_GE(nFailures, 2);
}

TEST_P(NoMemoryTest, ARequestOfAClientIsDroppedAlone)
{
    const CLogCapture log;
    CTestClient client = m_fix.AddClient(CHANNEL_LTE_DIAG);
    (void)client.Pending();
    const Bytes query = Hex("9F 9F 60 00 00 50 F0 00 00 00"); // the channel table
    const int nFailures = FailEach(
        GetParam(), [&] { (void)DropOnNoMemory("a client's request", [&] { client.Get()->OnClientData(query); }); },
        [&](int n) {
            (void)client.Pending();
            client.Send(query);
            EXPECT_EQ(client.Pending().size(), 22u + 3520u) << n;
        });
    EXPECT_GE(nFailures, 3);
}

TEST_P(NoMemoryTest, ALineOfAPortIsDroppedAlone)
{
    CPtyPair modem;
    CSerial serial;
    serial.SetSerialType(SERIAL_TYPE_AT);
    serial.SetName(modem.Name());
    ASSERT_TRUE(OpenPort(serial));
    CReadSet readSet(CMsgBuf::Instance()->ReadWake(0));
    const auto ReadOnce = [&] {
        (void)DropOnNoMemory("a pass", [&] {
            readSet.Lines().emplace_back(std::shared_ptr<ILine>(), &serial);
            if (readSet.Wait(5000))
                readSet.ReadLines();
        });
        readSet.Lines().clear();
    };
    const Bytes line = Join(Fill(60, 'x'), Hex("0D 0A"));
    const int nFailures = FailEach(
        GetParam(),
        [&] {
            modem.Write(line);
            ReadOnce();
        },
        [&](int n) {
            const bool bRead = serial.GetTotalBytesRead() % (2 * line.size()) != 0;
            if (!bRead)
                ReadOnce(); // the bytes are still there
            (void)DrainAgentQueue();
            modem.Write(line);
            ReadOnce();
            EXPECT_EQ(DrainAgentQueue().size(), 1u) << n;
        });
    EXPECT_GE(nFailures, 1);
}

INSTANTIATE_TEST_SUITE_P(All, NoMemoryTest, testing::Values(CFailingNew::ONE, CFailingNew::ALL_FROM_THERE),
                         [](const auto& stInfo) { return stInfo.param == CFailingNew::ONE ? "One" : "AllFromThere"; });
