#include "common/Record.h"
#include "e2e/AgentBench.h"
#include "e2e/ScriptedUe.h"
#include "support/WaitFor.h"
#include "tap/TapConnection.h"
#include "tap/TapEvents.h"

#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>

// The real agent's tap: the picture, every kind of record, and observers that misbehave.

namespace
{
using std::chrono::milliseconds;
using std::chrono::seconds;
using RESULT = CTapReader::RESULT;

constexpr uint32_t DSP_ID = 0x30000001; // config/vex.cfg lets it pass
constexpr unsigned char TAG_DATA = 3;

struct SEEN
{
    TAP_RECORD stHead;
    Bytes bytes;
};

/// An agent with a tap and one modem.
class TapTest : public testing::Test
{
protected:
    TapTest() { m_bench.AddConfig("TapSocket = " + Path() + "\nTapSize = 1\nReportInterval = 1\n"); }

    std::string Path() const { return m_bench.Dir().Path() + "/tap"; }
    std::unique_ptr<CTapConnection> Connect() const
    {
        std::string strError;
        std::unique_ptr<CTapConnection> pTap;
        EXPECT_TRUE(WaitFor([&] { return (pTap = CTapConnection::Open(Path(), strError)) != nullptr; })) << strError;
        return pTap;
    }
    /// Reads until a record fits; false when none comes in time. All that came is in m_seen.
    bool Await(CTapConnection& tap, const std::function<bool(const SEEN&)>& fits)
    {
        return WaitFor([&] {
            TAP_READ stRead;
            while (tap.Reader().Next(stRead) == RESULT::RECORD) {
                m_seen.push_back({stRead.stRecord, Bytes(stRead.bytes)});
                if (fits(m_seen.back()))
                    return true;
            }
            return false;
        });
    }
    bool Await(CTapConnection& tap, TAP_KIND enKind, const Bytes& bytes)
    {
        return Await(tap, [&](const SEEN& seen) { return seen.stHead.enKind == enKind && seen.bytes == bytes; });
    }

    CAgentBench m_bench;
    std::vector<SEEN> m_seen;
};

uint32_t EventOf(const SEEN& seen)
{
    return seen.stHead.enKind == TAP_KIND::PORT_EVENT ? LoadLe<uint32_t>(seen.bytes, 0) : 0;
}
} // namespace

TEST_F(TapTest, AnObserverSeesThePictureAndThenAllTraffic)
{
    CScriptedUe ue(101, "modem");
    m_bench.StartAgent();
    ASSERT_TRUE(ue.Confirm());
    const auto pClient = m_bench.BoundClient(CHANNEL_LTE_DIAG, 101);
    ASSERT_TRUE(pClient->IsOpen());
    const auto pTap = Connect();
    ASSERT_TRUE(pTap);

    // The picture: the configuration, the log, the modem's channel, its client, since when, the modem.
    ASSERT_TRUE(Await(*pTap, [](const SEEN& seen) { return EventOf(seen) == 2; }));
    EXPECT_EQ(m_seen[0].stHead.enKind, TAP_KIND::CONFIGURATION);
    EXPECT_EQ(m_seen[0].stHead.ucFlags, TAP_REPLAYED);
    EXPECT_EQ(m_seen[0].bytes, Bytes(AsBytes(m_bench.Dir().Read("config/vex.cfg"))));
    ASSERT_EQ(m_seen.size(), 6u);
    for (size_t i = 1; i < m_seen.size(); ++i)
        EXPECT_EQ(m_seen[i].stHead.ucFlags, TAP_REPLAYED);
    TAP_LOG_EVENT stLog;
    ASSERT_TRUE(EventOf(m_seen[1]) == 5u && DecodeRecord(m_seen[1].bytes, stLog));
    EXPECT_TRUE(stLog.strFile.starts_with(m_bench.Dir().Path() + '/')) << stLog.strFile;
    EXPECT_TRUE(std::filesystem::exists(stLog.strFile)) << stLog.strFile;
    const uint32_t ulClient = m_seen[2].stHead.ulClient;
    EXPECT_NE(ulClient, 0u);
    for (const size_t szPlace : {2, 3, 4}) {
        EXPECT_EQ(m_seen[szPlace].stHead.ucChannel, CHANNEL_LTE_DIAG);
        EXPECT_EQ(m_seen[szPlace].stHead.ulPort, 101u);
        EXPECT_EQ(m_seen[szPlace].stHead.ulClient, ulClient);
    }
    EXPECT_EQ(EventOf(m_seen[2]), 1u);
    TAP_CLIENT_EVENT stClient;
    ASSERT_TRUE(EventOf(m_seen[3]) == 3u && DecodeRecord(m_seen[3].bytes, stClient));
    EXPECT_EQ(stClient.ucConnected, 1);
    EXPECT_EQ(stClient.strAddress, "127.0.0.1");
    // The agent started, the modem confirmed, the client came and was bound, the observer came.
    TAP_SINCE_EVENT stSince;
    ASSERT_TRUE(EventOf(m_seen[4]) == 4u && DecodeRecord(m_seen[4].bytes, stSince));
    EXPECT_LT(pTap->Hello().ullAgentStart, stSince.ullState);
    EXPECT_LT(stSince.ullState, stSince.ullConnected);
    EXPECT_LT(stSince.ullConnected, stSince.ullBound);
    EXPECT_LT(stSince.ullBound, m_seen[4].stHead.ullTime);

    // A request of the client, the packet for the modem, its answer, the packet for the client.
    const Bytes request = Hex("03 40 01 10  10 00  04 00  01 02 03 04");
    ASSERT_TRUE(pClient->SendRaw(Join(Hex("9F 9F"), request)));
    ASSERT_TRUE(Await(*pTap, TAP_KIND::CLIENT_TO_AGENT, request));
    EXPECT_EQ(m_seen.back().stHead.ulPort, 101u);
    ASSERT_TRUE(Await(*pTap, [](const SEEN& seen) { return seen.stHead.enKind == TAP_KIND::AGENT_TO_UE; }));
    // The head that config/vex.cfg gives a request, its parameters.
    EXPECT_EQ(m_seen.back().bytes, Hex("00 02 20 01 01 00 00 00  03 40 01 10  0C 00 00 00  00 00 00 00  00 00 00 00"
                                       "01 02 03 04"));
    const Bytes answer = CScriptedUe::Packet(0, 0x10014003, 0, 0, 0, Hex("00 00 00 00 05 06 07 08"));
    ue.SendFrame(SERIAL_TYPE_DIAG, answer);
    ASSERT_TRUE(Await(*pTap, TAP_KIND::UE_TO_AGENT, answer));
    ASSERT_TRUE(Await(*pTap, [](const SEEN& seen) { return seen.stHead.enKind == TAP_KIND::AGENT_TO_CLIENT; }));
    EXPECT_EQ(m_seen.back().bytes, Hex("03 40 01 10  00 00 00 00  00 00 00 00 00 00 00 00  10 02  04 00  05 06 07 08"));
    // A datagram of the monitor: transfer report or version, once a second each.
    ASSERT_TRUE(Await(*pTap, [](const SEEN& seen) { return seen.stHead.enKind == TAP_KIND::STATUS; }));
    // The port goes.
    ASSERT_TRUE(SendDeviceRecord(101, SERIAL_TYPE_DIAG, 0, "", "modem"));
    ASSERT_TRUE(Await(*pTap, [](const SEEN& seen) { return EventOf(seen) == 1 && seen.bytes[4] == 0; }));
    EXPECT_EQ(pTap->Reader().LostRecords(), 0u);
    for (size_t i = 1; i < m_seen.size(); ++i)
        ASSERT_EQ(m_seen[i].stHead.ullNumber, m_seen[i - 1].stHead.ullNumber + 1);
}

TEST_F(TapTest, AnObserverThatStopsReadingCostsTheOthersNothingAndKnowsItsLoss)
{
    CScriptedUe ue(101, "modem");
    m_bench.StartAgent();
    ASSERT_TRUE(ue.Confirm());
    const auto pSleeper = Connect();
    const auto pReader = Connect();
    ASSERT_TRUE(pSleeper && pReader);
    // Packets of more bytes than the ring of 1 MiB holds.
    constexpr uint32_t COUNT = 3000;
    uint32_t ulSeen = 0;
    const auto isTenth = [&](const SEEN& seen) {
        if (seen.stHead.enKind != TAP_KIND::UE_TO_AGENT || seen.bytes.size() < 1000)
            return false;
        return ++ulSeen % 10 == 0;
    };
    for (uint32_t i = 1; i <= COUNT; ++i) {
        ue.SendFrame(SERIAL_TYPE_DIAG, CScriptedUe::Packet(TAG_DATA, DSP_ID, 0, i, i, Fill(1000)));
        if (i % 10 == 0) {
            ASSERT_TRUE(Await(*pReader, isTenth)) << i;
        }
    }
    EXPECT_EQ(ulSeen, COUNT);
    EXPECT_EQ(pReader->Reader().LostRecords(), 0u);
    TAP_READ stRead;
    uint64_t ullRead = 0;
    while (pSleeper->Reader().Next(stRead) == RESULT::RECORD)
        ++ullRead;
    EXPECT_GT(pSleeper->Reader().LostRecords(), COUNT / 2);
    const uint64_t ullFirst = pSleeper->Hello().ullNumber;
    EXPECT_EQ(ullFirst + ullRead + pSleeper->Reader().LostRecords(), stRead.stRecord.ullNumber + 1);
}

TEST_F(TapTest, TheSocketGoesWithTheAgentAndComesWithTheNextOne)
{
    m_bench.StartAgent();
    auto pTap = Connect();
    ASSERT_TRUE(pTap);
    m_bench.Agent().Signal(SIGTERM);
    EXPECT_EQ(m_bench.Agent().WaitExit(), 0);
    EXPECT_FALSE(pTap->Wait(seconds(5)));
    std::string strError;
    EXPECT_FALSE(CTapConnection::Open(Path(), strError));
    m_bench.StartAgent();
    const auto pNext = Connect();
    ASSERT_TRUE(pNext);
    EXPECT_NE(pNext->Hello().ullRunLow, pTap->Hello().ullRunLow);
    m_bench.Agent().Signal(SIGKILL); // which leaves the socket
    EXPECT_EQ(m_bench.Agent().WaitExit(), 128 + SIGKILL);
    m_bench.StartAgent();
    EXPECT_TRUE(Connect());
}

TEST(Tap, WithoutTheKeyThereIsNone)
{
    CAgentBench bench;
    bench.StartAgent();
    ASSERT_TRUE(bench.Logged("Read Agent Msg Thread Create OK!"));
    EXPECT_EQ(bench.Log().find("Tap"), std::string::npos);
}

TEST(Tap, APathThatCannotBeIsLoggedAndTheAgentGoesOn)
{
    CAgentBench bench("TapSocket = /does/not/exist/tap");
    bench.StartAgent();
    EXPECT_TRUE(bench.Logged("[ERR] : Tap /does/not/exist/tap: No such file or directory"));
    EXPECT_TRUE(CTcpClient(CHANNEL_AT).IsOpen());
}
