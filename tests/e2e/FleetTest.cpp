#include "capture/PcapngReader.h"
#include "capture/SegmentNames.h"
#include "e2e/AgentBench.h"
#include "e2e/HubBench.h"
#include "e2e/Hubs.h"
#include "fleet/FleetState.h"
#include "support/WaitFor.h"

#include <chrono>
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>

// vex-fleet with three real servers, whose leader is killed, and benches that the test plays itself.

namespace
{
using std::chrono::seconds;

constexpr uint64_t SECOND = 1'000'000'000;
/// 2023-11-14 22:13:20 UTC
constexpr uint64_t START = 1'700'000'000 * SECOND;
constexpr seconds LIMIT{20};

std::string Text(const Bytes& bytes)
{
    return {bytes.begin(), bytes.end()};
}

class Fleet : public testing::Test
{
protected:
    Fleet() : m_hubs({"b1", "b2"})
    {
        m_hubs.Start();
        EXPECT_TRUE(m_hubs.Init());
    }

    HUB_OPTIONS Hub(const std::string& strName) const { return m_hubs.HubOptions(strName); }

    /// Runs vex-fleet to its end; its exit status.
    std::optional<int> Run(const std::vector<std::string>& args, const std::string& strName = "lab")
    {
        m_pFleet = m_hubs.Fleet(args, strName);
        return m_pFleet->WaitExit(std::chrono::seconds(40));
    }
    /// The bytes that a fetch of bench b1 gives.
    std::string Fetched(std::vector<std::string> args, int nStatus = 0)
    {
        args.insert(args.begin(), {"fetch", "--bench", "b1", "-w", "out.pcapng", "--timeout", "1"});
        EXPECT_EQ(Run(args), nStatus) << m_pFleet->Errors();
        return m_hubs.Dir().Read("out.pcapng");
    }

    CHubs m_hubs;
    std::unique_ptr<CVexProcess> m_pFleet; // the last one
};

TEST_F(Fleet, AFetchIsTheBenchsOwnFileWhicheverHubDies)
{
    CHubBench bench(Hub("b1"), "b1");
    ASSERT_TRUE(bench.IsConnected());
    const Bytes first = SegmentOf(START, 100);
    const Bytes second = SegmentOf(START + 100 * SECOND, 100);
    ASSERT_EQ(bench.Send(SegmentName(START), first), NATS_OK);
    ASSERT_EQ(bench.Send(SegmentName(START + 100 * SECOND), second), NATS_OK);
    EXPECT_EQ(Fetched({}), Text(Join(first, second)));

    const size_t szLeader = m_hubs.StreamLeader();
    ASSERT_LT(szLeader, CHubs::COUNT);
    m_hubs.Kill(szLeader);
    EXPECT_EQ(Fetched({}), Text(Join(first, second))) << "the leader has been killed";
    for (size_t i = 0; i < CHubs::COUNT; ++i)
        m_hubs.Kill(i);
    EXPECT_EQ(Run({"fetch", "--bench", "b1", "-w", "none.pcapng"}), 2) << "there is no hub";
    m_hubs.Start();
    ASSERT_TRUE(m_hubs.Init());
    EXPECT_EQ(Fetched({}), Text(Join(first, second))) << "all hubs have been killed";

    EXPECT_EQ(Fetched({"--from", "2023-11-14T22:15:00Z"}), Text(second)) << "where the second segment begins";
    EXPECT_EQ(Fetched({"--to", "2023-11-14T22:15:00Z"}), Text(first));
    EXPECT_EQ(m_hubs.Dir().Read("none.pcapng"), "");
}

/// Numbers of the records of a file that aren't replayed.
std::vector<uint64_t> NumbersIn(const std::string& strPath)
{
    std::vector<uint64_t> numbers;
    std::string strError;
    EXPECT_EQ(ReadCaptureFile(
                  strPath,
                  [&](const CAPTURED_RECORD& st) {
                      if ((st.stRecord.ucFlags & TAP_REPLAYED) == 0)
                          numbers.push_back(st.stRecord.ullNumber);
                  },
                  strError),
              CPcapngReader::RESULT::END)
        << strError;
    return numbers;
}

TEST_F(Fleet, AFetchTellsWhatIsMissing)
{
    CHubBench bench(Hub("b1"), "b1");
    ASSERT_TRUE(bench.IsConnected());
    const std::string strLost = SegmentName(START);
    const Bytes lost = SegmentOf(START, 12);
    const Bytes next = SegmentOf(START + 100 * SECOND, 12);
    const Bytes open = SegmentOf(START + 200 * SECOND, 12);
    ASSERT_EQ(bench.Send(strLost, lost, 5), NATS_OK);
    ASSERT_EQ(bench.SendLoss(strLost, 1000), NATS_OK);
    ASSERT_EQ(bench.Send(SegmentName(START + 100 * SECOND), next), NATS_OK);
    EXPECT_EQ(CHubBench(Hub("b1"), "b1", "e2").Send(SegmentName(START + 200 * SECOND), open, 6), NATS_OK)
        << "the same laptop, installed anew";
    const std::string strAll = Fetched({}, 5);
    EXPECT_NE(m_pFleet->Errors().find(strLost + ": the rest was gone from the bench's spool"), std::string::npos)
        << m_pFleet->Errors();
    EXPECT_NE(strAll.find(Text(next)), std::string::npos);
    // Of UE 3 came its interface and five less one records, 0 1 3 4; of UE 5 the interface and 2 5 8 11: the first gap
    // is behind 5, where UE 3's record 6 lay.
    EXPECT_EQ(NumbersIn(m_hubs.Dir().Path() + "/out.pcapng"),
              (std::vector<uint64_t>{0, 1, 2, 3, 4, 5, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 0, 1, 2, 3, 4, 5, 6}));
    (void)Fetched({"--from", "2023-11-14T22:15:03Z", "--to", "2023-11-14T22:15:06Z"});
    EXPECT_EQ(NumbersIn(m_hubs.Dir().Path() + "/out.pcapng"), (std::vector<uint64_t>{3, 4, 5}));
}

TEST_F(Fleet, ABenchMayOnlySpeakForItself)
{
    EXPECT_FALSE(CHubBench(Hub("stranger"), "b1").IsConnected()) << "its certificate is good, but names no bench";
    HUB_OPTIONS stBare = Hub("b1");
    stBare.strCert = stBare.strKey = "";
    EXPECT_FALSE(CHubBench(stBare, "b1").IsConnected()) << "it has none";
    CHubBench bench(Hub("b1"), "b1");
    ASSERT_TRUE(bench.IsConnected());
    EXPECT_NE(bench.PublishAs("b2"), NATS_OK);
    EXPECT_EQ(bench.PublishAs("b1"), NATS_OK) << "the same under its own name";
    EXPECT_EQ(Run({"benches", "--timeout", "1"}, "b1"), 4) << "what the others do is none of its business";
    EXPECT_EQ(Run({"fetch", "--bench", "b2", "-w", "x.pcapng"}), 4);
    EXPECT_NE(m_pFleet->Errors().find("the hub has no traffic of bench b2"), std::string::npos) << m_pFleet->Errors();
}

/// All that is in a spool, uncompressed, its segments one after the other.
std::string SpoolOf(const std::string& strDir)
{
    std::string strAll;
    for (const CSegmentNames::SEGMENT& stSegment : CSegmentNames(strDir + "/vex").List()) {
        std::string strError;
        const auto pSource = OpenCaptureSource(stSegment.strPath, strError);
        EXPECT_TRUE(pSource) << strError;
        std::string strPart(65536, '\0');
        for (size_t szRead = strPart.size(); pSource && szRead == strPart.size();) {
            szRead = pSource->Read({reinterpret_cast<unsigned char*>(strPart.data()), strPart.size()});
            strAll.append(strPart, 0, szRead);
        }
    }
    return strAll;
}

TEST_F(Fleet, ARealBenchsSpoolComesWholeWhoeverIsKilled)
{
    CAgentBench bench("TapSocket = tap\nTapSize = 4\n");
    bench.StartAgent();
    bench.StartModem({"--ues", "2", "--first-port", "101", "--lte-rate", "200", "--lte-start-on-switch", "--quiet"});
    ASSERT_TRUE(bench.WaitConfirmed(101));
    const std::string strSpool = bench.Dir().Path() + "/spool";
    CVexProcess capture(std::string(VEX_BIN_DIR) + "/vex-capture",
                        {"--tap", "tap", "--spool", strSpool, "--rotate", "2s", "--bench", "b1"}, bench.Dir().Path());
    ASSERT_TRUE(WaitFor([&] { return std::filesystem::exists(strSpool); }));
    std::vector<std::string> args = {"--spool", strSpool, "--bench", "b1", "--state-every", "0.5", "--allow-requests"};
    for (const std::string& strOption : m_hubs.Options("b1"))
        args.push_back(strOption);
    const auto startForwarder = [&] {
        return std::make_unique<CVexProcess>(std::string(VEX_BIN_DIR) + "/vex-forward", args, bench.Dir().Path());
    };
    auto pForwarder = startForwarder();
    EXPECT_EQ(Run({"watch", "--bench", "b1", "--ue", "1", "--count", "50", "--for", "20"}), 0);
    EXPECT_EQ(std::ranges::count(m_pFleet->Output(), '\n'), 50) << m_pFleet->Errors();
    EXPECT_EQ(Run({"request", "--bench", "b1", "--port", "101", "0x50000020"}), 0) << m_pFleet->Errors();
    EXPECT_EQ(Run({"request", "--bench", "b1", "--port", "555", "0x50000020"}), 4) << "there is no such port";

    pForwarder.reset(); // killed
    m_hubs.Kill(m_hubs.StreamLeader());
    pForwarder = startForwarder();
    EXPECT_EQ(Run({"watch", "--bench", "b1", "--ue", "1", "--count", "50", "--for", "20"}), 0);
    capture.Signal(SIGTERM);
    EXPECT_EQ(capture.WaitExit(), 0) << capture.Errors();
    const std::string strSpooled = SpoolOf(strSpool);
    EXPECT_GT(strSpooled.size(), 10000u);
    EXPECT_TRUE(WaitFor([&] { return Fetched({}) == strSpooled; }, LIMIT));
    ASSERT_EQ(Run({"benches", "--timeout", "1"}), 0);
    EXPECT_NE(m_pFleet->Output().find("\nb1 "), std::string::npos) << m_pFleet->Output();
}

TEST_F(Fleet, BenchesAndRecordsAreShown)
{
    CHubBench bench(Hub("b1"), "b1");
    FLEET_BENCH_STATE stState;
    stState.strBench = "b1";
    stState.ullTime = static_cast<uint64_t>(time(nullptr)) * 1000;
    stState.dRecordRate = 5210;
    ASSERT_EQ(bench.PutState(StateToJson(stState)), NATS_OK);
    ASSERT_EQ(Run({"benches"}), 0) << m_pFleet->Errors();
    EXPECT_NE(m_pFleet->Output().find("\nb1 "), std::string::npos) << m_pFleet->Output();
    EXPECT_NE(m_pFleet->Output().find("  5.2k  "), std::string::npos) << m_pFleet->Output();
    ASSERT_EQ(Run({"--json", "benches"}), 0);
    EXPECT_EQ(m_pFleet->Output(), StateToJson(stState) + "\n");

    const auto pWatch = m_hubs.Fleet({"watch", "--bench", "b1", "--ue", "5", "--channel", "at", "--count", "2"});
    uint64_t ullStart = START; // sent again and again, until the watch is there
    EXPECT_TRUE(WaitFor(
        [&] {
            EXPECT_EQ(bench.Send(SegmentName(ullStart), SegmentOf(ullStart, 9)), NATS_OK);
            ullStart += 100 * SECOND;
            return !pWatch->IsRunning();
        },
        LIMIT));
    EXPECT_EQ(pWatch->WaitExit(), 0) << pWatch->Errors();
    const std::string strOut = pWatch->Output();
    EXPECT_EQ(std::ranges::count(strOut, '\n'), 2) << strOut;
    EXPECT_NE(strOut.find(" b1 ue5 at from-ue 8 bytes  3132333435363738\n"), std::string::npos) << strOut;
    EXPECT_EQ(strOut.find("ue3"), std::string::npos) << strOut;
}
} // namespace
