#include "e2e/AgentBench.h"
#include "e2e/SessionRecords.h"
#include "support/NetNs.h"
#include "support/WaitFor.h"
#include "tap/TapConnection.h"

#include <csignal>
#include <gtest/gtest.h>
#include <thread>

// Recorded sessions, replayed into a fresh agent from both sides and captured again: the new capture is the old one.
// scripts/record-sessions made them; docs/replay.md tells how a session from the field becomes one of them.

namespace
{
constexpr int GOES = 3; // of one session, at most

std::string FileOf(const std::string& strName)
{
    return std::string(VEX_SOURCE_DIR) + "/tests/e2e/sessions/" + strName + ".pcapng.zst";
}

/// An agent as it was in a session, with a recorder.
class CSessionBench
{
public:
    explicit CSessionBench(const std::string& strConfig)
    {
        m_bench.Dir().Write("config/vex.cfg", strConfig + "\nTapSocket = " + Tap() + "\n");
        m_bench.StartAgent();
        std::string strError;
        EXPECT_TRUE(WaitFor([&] { return (m_pTap = CTapConnection::Open(Tap(), strError)) != nullptr; })) << strError;
        m_pCapture = std::make_unique<CVexProcess>(
            std::string(VEX_BIN_DIR) + "/vex-capture",
            std::vector<std::string>{"--tap", Tap(), "-w", m_bench.Dir().Path() + "/new.pcapng"}, m_bench.Dir().Path());
    }

    CAgentBench& Bench() { return m_bench; }
    bool IsCapturing()
    {
        return WaitFor([&] { return m_pCapture->Errors().find("capturing run") != std::string::npos; });
    }
    /// Waits until the modem has sent as much as it had in the session when the first client came, and then for as long
    /// as that took to come: so both sides keep the times that they had to each other, however late the modem is.
    bool AwaitTimeOfFirstClient(const std::vector<SESSION_RECORD>& recorded)
    {
        const auto isClient = [](const SESSION_RECORD& record) { return record.stHead.ulClient != 0; };
        const auto pFirst = std::ranges::find_if(recorded, isClient);
        uint64_t ullSince = pFirst->stHead.ullTime;
        for (auto pRecord = recorded.begin(); pRecord != pFirst; ++pRecord) {
            if (pRecord->stHead.enKind != TAP_KIND::UE_TO_AGENT)
                continue;
            if (!WaitFor([&] { return HasModemSent(); }))
                return false;
            ullSince = pRecord->stHead.ullTime;
        }
        std::this_thread::sleep_for(std::chrono::nanoseconds(pFirst->stHead.ullTime - ullSince));
        return true;
    }
    /// Plays both sides to their ends; gives what went wrong, empty for nothing.
    std::string Replay(const std::string& strModem, const std::string& strClient, int nClientStatus)
    {
        CVexProcess& modem = m_bench.StartModem({"--replay", strModem, "--log", "modem.log"});
        if (!AwaitTimeOfFirstClient(ReadSession(strClient)))
            return "the modem sends less than in the session";
        m_pClient = &m_bench.StartClient({"replay", strClient, "--now"});
        if (m_pClient->WaitExit(std::chrono::seconds(40)) != nClientStatus)
            return "client: " + m_pClient->Output() + m_pClient->Errors();
        if (modem.WaitExit(std::chrono::seconds(40)) != 0)
            return "modem: " + modem.Errors() + m_bench.Dir().Read("modem.log");
        return "";
    }
    std::string ClientOutput() const { return m_pClient != nullptr ? m_pClient->Output() : ""; }
    std::vector<SESSION_RECORD> Finish()
    {
        m_pCapture->Signal(SIGINT);
        EXPECT_EQ(m_pCapture->WaitExit(), 0) << m_pCapture->Errors();
        return ReadSession(m_bench.Dir().Path() + "/new.pcapng");
    }

private:
    /// One packet more than at the last call.
    bool HasModemSent()
    {
        TAP_READ stRead;
        while (m_pTap->Reader().Next(stRead) == CTapReader::RESULT::RECORD)
            if (stRead.stRecord.enKind == TAP_KIND::UE_TO_AGENT)
                return true;
        return false;
    }
    std::string Tap() const { return m_bench.Dir().Path() + "/tap"; }

    CAgentBench m_bench;
    std::unique_ptr<CTapConnection> m_pTap; // from before the capture, so that this doesn't see its picture
    std::unique_ptr<CVexProcess> m_pCapture;
    CVexProcess* m_pClient = nullptr;
};

class SessionsTest : public testing::TestWithParam<const char*>
{
};

/// Plays a session into a fresh agent; gives how what was captured differs from it, empty for not at all.
std::string ReplayedDifference(const std::string& strFile, const std::vector<SESSION_RECORD>& recorded)
{
    CSessionBench session(SessionConfig(recorded));
    EXPECT_TRUE(session.IsCapturing());
    const std::string strFault = session.Replay(strFile, strFile, 0);
    return strFault + SessionDifference(recorded, session.Finish());
}

const Bytes c_imei = Bytes(AsBytes("\r\n860000000110000\r\n")); // line of an AT answer

const SESSION_RECORD REQUEST{{TAP_KIND::CLIENT_TO_AGENT, 0, CHANNEL_AT, TAP_TEXT, 4, 1, 9, 100}, Hex("41 54 0D")};
} // namespace

TEST_P(SessionsTest, ReplayedAndCapturedAgainItIsTheSame)
{
    const std::string strFile = FileOf(GetParam());
    const auto recorded = ReadSession(strFile);
    ASSERT_FALSE(recorded.empty()) << strFile;
    // Where no packet ties a client to what the modem sends unasked, time alone does, which a loaded machine doesn't
    // always keep. A fault of the agent's is there every time.
    std::string strDifference = ReplayedDifference(strFile, recorded);
    for (int i = 1; i < GOES && !strDifference.empty(); ++i) {
        ASSERT_TRUE(IsolateNetwork()); // the last agent's ports linger
        strDifference = ReplayedDifference(strFile, recorded);
    }
    EXPECT_EQ(strDifference, "");
}

INSTANTIATE_TEST_SUITE_P(All, SessionsTest,
                         testing::Values("connect", "lte-stream", "nv", "at", "gu-reports", "statistics",
                                         "comes-and-goes"),
                         [](const testing::TestParamInfo<const char*>& session) {
                             std::string strName = session.param;
                             std::erase(strName, '-'); // names of tests are words
                             return strName;
                         });

TEST(Sessions, EqualAreThoseThatDifferInTimesNumbersAndConfigurationAlone)
{
    SESSION_RECORD later = REQUEST;
    later.stHead.ullTime = 200;
    later.stHead.ullNumber = 10;
    const SESSION_RECORD config{{.enKind = TAP_KIND::CONFIGURATION}, Hex("01")};
    EXPECT_EQ(SessionDifference({config, REQUEST}, {later}), "");
    // A device's name in an event is another each time; a modem may leave behind the end.
    SESSION_RECORD event{{.enKind = TAP_KIND::PORT_EVENT, .ucUe = 0, .ucChannel = CHANNEL_AT}, Fill(264)};
    event.bytes[0] = 1;
    SESSION_RECORD renamed = event;
    renamed.bytes[8] = 'x';
    EXPECT_EQ(SessionDifference({event}, {renamed, renamed}), "");
    // Transfer reports (6) and versions (7) count the seconds.
    EXPECT_EQ(
        SessionDifference({{{.enKind = TAP_KIND::STATUS}, Hex("06 01")}}, {{{.enKind = TAP_KIND::STATUS}, Hex("07")}}),
        "");
}

TEST(Sessions, EachOtherDifferenceIsFound)
{
    const struct
    {
        const char* pszName;
        void (*pfnChange)(SESSION_RECORD&);
    } cases[] = {
        {"a byte", [](SESSION_RECORD& record) { record.bytes[1] ^= 1; }},
        {"a byte less", [](SESSION_RECORD& record) { record.bytes.pop_back(); }},
        {"kind", [](SESSION_RECORD& record) { record.stHead.enKind = TAP_KIND::AGENT_TO_CLIENT; }},
        {"UE", [](SESSION_RECORD& record) { record.stHead.ucUe = 1; }},
        {"channel", [](SESSION_RECORD& record) { record.stHead.ucChannel = CHANNEL_LTE_DIAG; }},
        {"flags", [](SESSION_RECORD& record) { record.stHead.ucFlags = 0; }},
        {"port", [](SESSION_RECORD& record) { record.stHead.ulPort = 5; }},
        {"client", [](SESSION_RECORD& record) { record.stHead.ulClient = 2; }},
    };
    for (const auto& [pszName, pfnChange] : cases) {
        SESSION_RECORD changed = REQUEST;
        pfnChange(changed);
        EXPECT_NE(SessionDifference({REQUEST}, {changed}), "") << pszName;
    }
    EXPECT_NE(SessionDifference({REQUEST, REQUEST}, {REQUEST}), "") << "one is missing";
    EXPECT_NE(SessionDifference({REQUEST}, {REQUEST, REQUEST}), "") << "one is too many";
    EXPECT_NE(SessionDifference({}, {REQUEST}), "") << "a stream is too many";
}

TEST(Sessions, AnAnswerThatIsAnotherByOneByteIsToldByTheClient)
{
    auto changed = ReadSession(FileOf("at"));
    ASSERT_FALSE(changed.empty());
    CSessionBench session(SessionConfig(changed));
    const auto isImei = [](const SESSION_RECORD& record) {
        return record.stHead.enKind == TAP_KIND::UE_TO_AGENT && record.bytes == c_imei;
    };
    const auto pImei = std::ranges::find_if(changed, isImei);
    ASSERT_NE(pImei, changed.end());
    pImei->bytes[5] = '9';
    const std::string strChanged = session.Bench().Dir().Path() + "/changed.pcapng";
    WriteSession(strChanged, changed);
    ASSERT_TRUE(session.IsCapturing());
    EXPECT_EQ(session.Replay(strChanged, FileOf("at"), 5), "");
    const std::string strOutput = session.ClientOutput();
    EXPECT_NE(strOutput.find("0x00000021 AT text, 39 bytes, differs from byte 25 on"), std::string::npos) << strOutput;
    EXPECT_NE(strOutput.find(" 1 differences"), std::string::npos) << strOutput;
}
