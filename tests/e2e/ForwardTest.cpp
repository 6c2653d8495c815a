#include "capture/CompressFile.h"
#include "capture/PcapngBlocks.h"
#include "capture/PcapngWriter.h"
#include "e2e/Hubs.h"
#include "fleet/FleetFormat.h"
#include "fleet/Hub.h"
#include "support/TestBytes.h"
#include "support/WaitFor.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>

// vex-forward with real servers: what is in the stream, whoever is killed.

namespace
{
using std::chrono::seconds;

constexpr const char* BENCH = "car-7";
constexpr unsigned int UES = 4;

struct MESSAGE
{
    std::string strSubject;
    std::vector<unsigned char> vecBytes;
};
/// Every message of the stream, in its order; none without a hub.
std::optional<std::vector<MESSAGE>> TryReadStream(const CHubs& hubs)
{
    std::vector<MESSAGE> messages;
    std::string strError;
    const auto pHub = CHub::Open(hubs.HubOptions("lab"), {}, CHub::PATIENCE::ONCE, strError);
    if (!pHub)
        return std::nullopt;
    jsCtx* pNew = nullptr;
    EXPECT_EQ(natsConnection_JetStream(&pNew, pHub->Get(), nullptr), NATS_OK);
    const JsContext pJs(pNew);
    for (uint64_t ullSequence = 1;; ++ullSequence) {
        natsMsg* pMsg = nullptr;
        if (js_GetMsg(&pMsg, pJs.get(), FLEET_STREAM, ullSequence, nullptr, nullptr) != NATS_OK)
            return messages; // behind the last one: nothing is ever deleted here
        const NatsMsg pOwner(pMsg);
        const auto* const pData = reinterpret_cast<const unsigned char*>(natsMsg_GetData(pMsg));
        messages.push_back({natsMsg_GetSubject(pMsg), {pData, pData + natsMsg_GetDataLength(pMsg)}});
    }
}
std::vector<MESSAGE> ReadStream(const CHubs& hubs)
{
    const auto messages = TryReadStream(hubs);
    EXPECT_TRUE(messages) << "no hub";
    return messages.value_or(std::vector<MESSAGE>());
}

/// The segments that the messages make. A lane that goes back, or bytes that come twice, are failures.
std::map<std::string, Bytes> Assemble(const std::vector<MESSAGE>& messages)
{
    std::map<std::string, std::map<uint64_t, Bytes>> pieces;
    std::map<std::string, std::pair<std::string, uint64_t>> last; // of each lane; names sort in their order here
    for (const MESSAGE& message : messages) {
        FLEET_MESSAGE stMessage;
        EXPECT_TRUE(DecodeMessage(message.vecBytes, stMessage)) << message.strSubject;
        const std::pair begin(stMessage.strSegment, stMessage.vecRuns.front().ullOffset);
        EXPECT_GE(begin, last[message.strSubject]) << message.strSubject;
        last[message.strSubject] = {stMessage.strSegment, stMessage.End()};
        ByteView rest = stMessage.bytes;
        for (const FLEET_RUN& stRun : stMessage.vecRuns) {
            pieces[stMessage.strSegment][stRun.ullOffset] = Bytes(rest.first(stRun.ulLength));
            rest = rest.subspan(stRun.ulLength);
        }
    }
    std::map<std::string, Bytes> segments;
    for (const auto& [strSegment, runs] : pieces)
        for (const auto& [ullOffset, bytes] : runs) {
            EXPECT_EQ(ullOffset, segments[strSegment].size()) << strSegment;
            segments[strSegment].insert(segments[strSegment].end(), bytes.begin(), bytes.end());
        }
    return segments;
}

class ForwardE2e : public testing::Test
{
protected:
    ForwardE2e() { std::filesystem::create_directories(Spool()); }

    std::string Spool() const { return m_hubs.Dir().Path() + "/spool"; }
    static std::string Name(unsigned int ulSegment)
    {
        return "vex_20261122T11500" + std::to_string(ulSegment) + ".000Z_0000000001";
    }
    std::string Path(unsigned int ulSegment) const { return Spool() + '/' + Name(ulSegment) + ".pcapng"; }

    std::unique_ptr<CVexProcess> Start(std::vector<std::string> more = {}, const std::string& strCert = BENCH) const
    {
        std::vector<std::string> args = {"--spool", Spool(), "--bench", BENCH, "--state-every", "0.5"};
        for (const auto& list : {m_hubs.Options(strCert), more})
            args.insert(args.end(), list.begin(), list.end());
        return std::make_unique<CVexProcess>(std::string(VEX_BIN_DIR) + "/vex-forward", args, m_hubs.Dir().Path());
    }

    /// The first half of a segment of 2000 records of 300 bytes, 0.75 MB; the rest comes with EndSegment.
    void BeginSegment(unsigned int ulSegment)
    {
        m_segment.clear();
        CPcapngWriter writer(m_segment);
        writer.Begin({BENCH, 1, 2, 3}, "test");
        for (unsigned int i = 0; i < 2000; ++i)
            writer.Record({.enKind = TAP_KIND::UE_TO_AGENT,
                           .ucUe = static_cast<uint8_t>(i % UES),
                           .ucChannel = CHANNEL_LTE_DATA,
                           .ullNumber = i},
                          std::vector<unsigned char>(300, static_cast<unsigned char>(i)));
        writer.End(0);
        Append(ulSegment, ByteView(m_segment).first(Half()));
    }
    void EndSegment(unsigned int ulSegment)
    {
        Append(ulSegment, ByteView(m_segment).subspan(Half()));
        std::string strError;
        EXPECT_TRUE(CompressFile(Path(ulSegment), strError)) << strError;
    }
    size_t Half() const { return WholeBlocks(ByteView(m_segment).first(m_segment.size() / 2)); }
    void Append(unsigned int ulSegment, ByteView bytes)
    {
        std::ofstream file(Path(ulSegment), std::ios::binary | std::ios::app);
        file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        Bytes& written = m_written[Name(ulSegment)];
        written.insert(written.end(), bytes.begin(), bytes.end());
    }

    /// Bytes of the spool that are in the stream.
    bool HasAll() const
    {
        const auto messages = TryReadStream(m_hubs); // servers may be on their way up
        if (!messages)
            return false;
        size_t szStream = 0;
        for (const MESSAGE& message : *messages) {
            FLEET_MESSAGE stMessage;
            if (DecodeMessage(message.vecBytes, stMessage))
                szStream += stMessage.bytes.size();
        }
        size_t szSpool = 0;
        for (const auto& [strName, bytes] : m_written)
            szSpool += bytes.size();
        return szStream >= szSpool;
    }

    CHubs m_hubs{{BENCH, "car-8"}};
    Bytes m_segment;                        // the whole of the one that is being written
    std::map<std::string, Bytes> m_written; // what the spool has
};
} // namespace

TEST_F(ForwardE2e, EachByteIsInTheStreamOnceWhoeverIsKilled)
{
    m_hubs.Start();
    ASSERT_TRUE(m_hubs.Init());
    BeginSegment(0);
    auto pForward = Start({"--max-rate", "400K"}); // 10 s for all
    const auto connected = [&] { return pForward->Errors().find("connected to the hub") != std::string::npos; };
    ASSERT_TRUE(WaitFor(connected));
    for (unsigned int ulRound = 0; ulRound < 4; ++ulRound) {
        EndSegment(ulRound);
        BeginSegment(ulRound + 1);
        if (ulRound == 3)
            for (size_t szHub = 0; szHub < CHubs::COUNT; ++szHub)
                m_hubs.Kill(szHub);
        else if (const size_t szLeader = m_hubs.StreamLeader(); szLeader < CHubs::COUNT)
            m_hubs.Kill(szLeader);
        const auto lost = [&] { return pForward->Errors().find("the hub is lost") != std::string::npos; };
        (void)WaitFor(lost, seconds(1)); // if that was its server
        m_hubs.Start();
        if (ulRound % 2 == 1) {
            pForward.reset(); // SIGKILL
            pForward = Start({"--max-rate", "400K"});
        }
    }
    ASSERT_TRUE(WaitFor([this] { return HasAll(); }, seconds(40))) << pForward->Errors();
    pForward->Signal(SIGTERM);
    EXPECT_EQ(pForward->WaitExit(), 0);
    EXPECT_EQ(Assemble(ReadStream(m_hubs)), m_written);
}

TEST_F(ForwardE2e, ACheckSaysWhatIsWrong)
{
    auto pNone = Start({"--check"});
    EXPECT_EQ(pNone->WaitExit(), 3);
    EXPECT_NE(pNone->Output().find("FAILED  connection"), std::string::npos) << pNone->Output();
    m_hubs.Start();
    ASSERT_TRUE(m_hubs.Init());

    auto pGood = Start({"--check"});
    EXPECT_EQ(pGood->WaitExit(), 0) << pGood->Output();
    EXPECT_NE(pGood->Output().find("ok      send traffic as car-7"), std::string::npos) << pGood->Output();
    EXPECT_TRUE(ReadStream(m_hubs).empty()); // it stores nothing

    auto pOther = Start({"--check"}, "car-8"); // the certificate of another bench
    EXPECT_EQ(pOther->WaitExit(seconds(30)), 3);
    EXPECT_NE(pOther->Output().find("FAILED  send traffic as car-7: "), std::string::npos) << pOther->Output();
    EXPECT_NE(pOther->Output().find("Permissions Violation"), std::string::npos) << pOther->Output();

    auto pStranger = Start({"--check"}, "stranger"); // signed, but of no bench
    EXPECT_EQ(pStranger->WaitExit(seconds(30)), 3);
    EXPECT_NE(pStranger->Output().find("FAILED  connection"), std::string::npos) << pStranger->Output();
}

TEST_F(ForwardE2e, ItWaitsForAHubAndEndsWithoutOne)
{
    BeginSegment(0);
    auto pForward = Start();
    ASSERT_TRUE(WaitFor([&] {
        return pForward->Errors().find(": No server available for connection\n") != std::string::npos;
    })) << pForward->Errors();
    pForward->Signal(SIGTERM);
    EXPECT_EQ(pForward->WaitExit(), 0);
    auto pAgain = Start();
    m_hubs.Start();
    ASSERT_TRUE(m_hubs.Init());
    EXPECT_TRUE(WaitFor([&] { return pAgain->Errors().find("connected to the hub") != std::string::npos; }));
    EXPECT_TRUE(WaitFor([&] { return m_hubs.Fleet({"benches"})->Saw(BENCH, seconds(1)); }, seconds(20)));
}

TEST_F(ForwardE2e, ItSaysWhyAHubDoesNotTakeIt)
{
    m_hubs.Start();
    ASSERT_TRUE(m_hubs.Init());
    BeginSegment(0);
    auto pStranger = Start({}, "stranger"); // signed, but of no bench
    EXPECT_TRUE(WaitFor([&] {
        return pStranger->Errors().find("waiting for the hub at ") != std::string::npos &&
               pStranger->Errors().find("Authorization Violation") != std::string::npos;
    })) << pStranger->Errors();
    // The lab takes it into its fleet.
    m_hubs.Dir().Write("fleet.json", R"({"benches": ["car-7", "stranger"], "lab": ["lab"]})");
    CVexProcess permissions(std::string(VEX_BIN_DIR) + "/vex-fleet",
                            {"init", "fleet.json", "--permissions", "users.conf"}, m_hubs.Dir().Path());
    ASSERT_EQ(permissions.WaitExit(), 0) << permissions.Errors();
    for (size_t szHub = 0; szHub < CHubs::COUNT; ++szHub)
        m_hubs.Kill(szHub);
    m_hubs.Start();
    EXPECT_TRUE(
        WaitFor([&] { return pStranger->Errors().find("connected to the hub") != std::string::npos; }, seconds(30)))
        << pStranger->Errors();
}

TEST_F(ForwardE2e, AWrongCertificateIsAnErrorAtTheStart)
{
    auto pForward = std::make_unique<CVexProcess>(
        std::string(VEX_BIN_DIR) + "/vex-forward",
        std::vector<std::string>{"--spool", Spool(), "--bench", BENCH, "--cert", "/none.pem", "--key", "/none.key"},
        m_hubs.Dir().Path());
    EXPECT_EQ(pForward->WaitExit(), 2);
    EXPECT_NE(pForward->Errors().find("/none.pem"), std::string::npos) << pForward->Errors();
}
