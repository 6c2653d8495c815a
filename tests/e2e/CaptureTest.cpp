#include "capture/PcapngReader.h"
#include "e2e/AgentBench.h"
#include "e2e/ScriptedUe.h"
#include "support/RunningTap.h"
#include "support/WaitFor.h"
#include "tap/TapConnection.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>

// The real vex-capture with the real agent: what is in its files, and that they open whatever happens to it. tshark
// looks at them too.

namespace
{
using std::chrono::milliseconds;
using std::chrono::seconds;
using RESULT = CPcapngReader::RESULT;

// A program with a sanitizer takes ten times as long for a record.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr uint64_t RECORDS_PER_MS = 6;
#else
constexpr uint64_t RECORDS_PER_MS = 60;
#endif

struct SEEN
{
    TAP_RECORD stHead;
    Bytes bytes;
    uint64_t ullLost = 0;
    std::string strComment;

    bool IsReplayed() const { return (stHead.ucFlags & TAP_REPLAYED) != 0; }
};

struct CAPTURED
{
    std::vector<SEEN> records;
    RESULT enEnd = RESULT::BAD;
};
CAPTURED ReadCapture(const std::string& strPath)
{
    CAPTURED captured;
    std::string strError;
    auto pSource = OpenCaptureSource(strPath, strError);
    EXPECT_TRUE(pSource) << strError;
    if (!pSource)
        return captured;
    CPcapngReader reader(std::move(pSource));
    CAPTURED_RECORD stRecord;
    while ((captured.enEnd = reader.Next(stRecord)) == RESULT::RECORD)
        captured.records.push_back({stRecord.stRecord, Bytes(stRecord.bytes), stRecord.ullLost, stRecord.strComment});
    return captured;
}

/// The records that happened while it was captured.
std::vector<SEEN> Fresh(const std::vector<SEEN>& records)
{
    std::vector<SEEN> fresh;
    std::ranges::copy_if(records, std::back_inserter(fresh), [](const SEEN& seen) { return !seen.IsReplayed(); });
    return fresh;
}

void ExpectNoGap(const std::vector<SEEN>& records)
{
    for (size_t i = 1; i < records.size(); ++i) {
        ASSERT_EQ(records[i].ullLost, 0u);
        ASSERT_EQ(records[i].stHead.ullNumber, records[i - 1].stHead.ullNumber + 1);
    }
}

std::string RunOf(const TAP_HELLO& stHello)
{
    std::array<char, 48> szRun{};
    (void)std::snprintf(szRun.data(), szRun.size(), "run %016llx%016llx,",
                        static_cast<unsigned long long>(stHello.ullRunHigh),
                        static_cast<unsigned long long>(stHello.ullRunLow));
    return szRun.data();
}

uint64_t RealTime()
{
    return static_cast<uint64_t>(std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count());
}

/// A shell command; as root it runs as nobody, for whom tshark has no warnings.
struct RAN
{
    int nStatus = -1;
    std::string strOut;
    std::string strErrors;
};
RAN RunShell(const std::string& strCommand, const std::string& strDir, bool bAsNobody = true)
{
    constexpr const char* AS_NOBODY = "setpriv --reuid=65534 --regid=65534 --clear-groups ";
    const std::string strUser = geteuid() == 0 && bAsNobody ? AS_NOBODY : "";
    std::filesystem::create_directories(strDir + "/home");
    std::filesystem::permissions(strDir, std::filesystem::perms(0755));
    std::filesystem::permissions(strDir + "/home", std::filesystem::perms(0777));
    CVexProcess shell("/bin/sh", {"-c", strUser + "env HOME=" + strDir + "/home " + strCommand}, strDir);
    return {shell.WaitExit(seconds(30)).value_or(-1), shell.Output(), shell.Errors()};
}

/// A small disk of its own for this process and its children.
class CSmallDisk
{
public:
    CSmallDisk(const std::string& strPath, const std::string& strSize) : m_strPath(strPath)
    {
        std::filesystem::create_directories(strPath);
        m_bMounted = unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                     mount("none", strPath.c_str(), "tmpfs", 0, ("size=" + strSize).c_str()) == 0;
    }
    ~CSmallDisk() { (void)umount2(m_strPath.c_str(), MNT_DETACH); }
    CSmallDisk(const CSmallDisk&) = delete;
    CSmallDisk& operator=(const CSmallDisk&) = delete;

    bool IsMounted() const { return m_bMounted; }
    bool Resize(const std::string& strSize) const
    {
        return mount("none", m_strPath.c_str(), "tmpfs", MS_REMOUNT, ("size=" + strSize).c_str()) == 0;
    }

private:
    std::string m_strPath;
    bool m_bMounted = false;
};

bool Said(const CVexProcess& capture, const std::string& strText)
{
    return WaitFor([&] { return capture.Errors().find(strText) != std::string::npos; });
}

class Capture : public testing::Test
{
protected:
    Capture() { m_bench.AddConfig("TapSocket = " + Tap() + "\nTapSize = 16\nReportInterval = 1\n"); }

    std::string Path(const std::string& strName) const { return m_bench.Dir().Path() + "/" + strName; }
    std::string Tap() const { return Path("tap"); }

    std::unique_ptr<CVexProcess> Start(std::vector<std::string> args) const
    {
        args.insert(args.begin(), {"--tap", Tap()});
        return std::make_unique<CVexProcess>(VEX_BIN_DIR "/vex-capture", args, m_bench.Dir().Path());
    }
    /// Ends it in order; its last line has no loss.
    static void Stop(CVexProcess& capture)
    {
        capture.Signal(SIGTERM);
        EXPECT_EQ(capture.WaitExit(), 0);
        EXPECT_NE(capture.Errors().find(" bytes, 0 lost\n"), std::string::npos) << capture.Errors();
    }
    /// An agent with one modem that streams without end.
    void StartStream(const std::string& strRate)
    {
        m_bench.StartAgent();
        m_bench.StartModem({"--ues", "1", "--lte-rate", strRate, "--lte-size", "300", "--quiet"});
        ASSERT_TRUE(m_bench.WaitConfirmed(1));
    }
    std::unique_ptr<CTapConnection> Observe() const
    {
        std::string strError;
        std::unique_ptr<CTapConnection> pTap;
        EXPECT_TRUE(WaitFor([&] { return (pTap = CTapConnection::Open(Tap(), strError)) != nullptr; })) << strError;
        return pTap;
    }

    /// tshark opens the file without complaint and has so many packets.
    void ExpectTsharkCounts(const std::string& strPath, size_t szRecords) const
    {
        const RAN ran = RunShell("tshark -r '" + strPath + "' -T fields -e frame.number", m_bench.Dir().Path());
        EXPECT_EQ(ran.nStatus, 0) << strPath;
        EXPECT_EQ(ran.strErrors, "") << strPath;
        EXPECT_EQ(static_cast<size_t>(std::ranges::count(ran.strOut, '\n')), szRecords) << strPath;
    }

    CAgentBench m_bench;
};

std::vector<SEEN> ReadAll(CTapReader& reader)
{
    std::vector<SEEN> seen;
    TAP_READ stRead;
    while (reader.Next(stRead) == CTapReader::RESULT::RECORD)
        seen.push_back({stRead.stRecord, Bytes(stRead.bytes), stRead.ullLost, ""});
    return seen;
}
} // namespace

TEST_F(Capture, HasWhatAnObserverSees)
{
    const auto pCapture = Start({"-w", "out.pcapng", "--bench", "lab7"});
    ASSERT_TRUE(Said(*pCapture, "vex-capture: waiting for an agent at " + Tap()));
    CScriptedUe ue(101, "modem");
    m_bench.StartAgent();
    ASSERT_TRUE(Said(*pCapture, "vex-capture: capturing run "));
    const auto pTap = Observe();
    ASSERT_TRUE(pTap);
    ASSERT_TRUE(ue.Confirm());
    const auto pClient = m_bench.BoundClient(CHANNEL_LTE_DIAG, 101);
    for (unsigned char uc = 0; uc < 50; ++uc) {
        ASSERT_TRUE(pClient->SendRaw(Join(Hex("9F 9F 03 40 01 10  10 00  04 00  01 02 03"), Bytes{uc})));
        ASSERT_TRUE(ue.ReadRequest());
        ue.SendFrame(SERIAL_TYPE_DIAG, CScriptedUe::Packet(0, 0x10014003, 0, 0, 0, Fill(8, uc)));
        ASSERT_TRUE(pClient->Receive(seconds(5)));
    }
    Stop(*pCapture);

    const CAPTURED captured = ReadCapture(Path("out.pcapng"));
    ASSERT_EQ(captured.enEnd, RESULT::END);
    ASSERT_FALSE(captured.records.empty());
    EXPECT_EQ(captured.records[0].stHead.enKind, TAP_KIND::CONFIGURATION);
    EXPECT_EQ(captured.records[0].bytes, Bytes(AsBytes(m_bench.Dir().Read("config/vex.cfg"))));
    EXPECT_EQ(captured.records[0].strComment.find(RunOf(pTap->Hello())), 0u);
    EXPECT_NE(captured.records[0].strComment.find(", bench lab7"), std::string::npos);
    // Beside the observer's picture the file has all that it saw, and the same.
    std::vector<SEEN> seen = Fresh(ReadAll(pTap->Reader()));
    const uint64_t ullLast = captured.records.back().stHead.ullNumber;
    std::erase_if(seen, [&](const SEEN& st) { return st.stHead.ullNumber > ullLast; });
    std::vector<SEEN> ours = Fresh(captured.records);
    std::erase_if(ours, [&](const SEEN& st) { return st.stHead.ullNumber < pTap->Hello().ullNumber; });
    EXPECT_GT(ours.size(), 200u); // 50 times a request, two packets and an answer
    ASSERT_EQ(ours.size(), seen.size());
    for (size_t i = 0; i < seen.size(); ++i) {
        ASSERT_EQ(ours[i].stHead.ullNumber, seen[i].stHead.ullNumber);
        ASSERT_EQ(ours[i].stHead.ullTime, seen[i].stHead.ullTime);
        ASSERT_EQ(ours[i].stHead.enKind, seen[i].stHead.enKind);
        ASSERT_EQ(ours[i].stHead.ulPort, seen[i].stHead.ulPort);
        ASSERT_EQ(ours[i].stHead.ulClient, seen[i].stHead.ulClient);
        ASSERT_EQ(ours[i].bytes, seen[i].bytes);
    }
    ExpectTsharkCounts(Path("out.pcapng"), captured.records.size());
}

TEST_F(Capture, FiltersEndsByCountAndCompresses)
{
    StartStream("500");
    const auto pCapture = Start({"-w", "out.pcapng", "--ue", "0", "--channel", "lte-data", "--direction", "from-ue",
                                 "--count", "100", "--compress"});
    EXPECT_EQ(pCapture->WaitExit(), 0);
    EXPECT_FALSE(std::filesystem::exists(Path("out.pcapng")));
    const CAPTURED captured = ReadCapture(Path("out.pcapng.zst"));
    EXPECT_EQ(captured.enEnd, RESULT::END);
    ExpectTsharkCounts(Path("out.pcapng.zst"), 101);
    ASSERT_EQ(captured.records.size(), 101u);
    EXPECT_EQ(captured.records[0].stHead.enKind, TAP_KIND::CONFIGURATION);
    for (const SEEN& seen : Fresh(captured.records)) {
        EXPECT_EQ(seen.stHead.enKind, TAP_KIND::UE_TO_AGENT);
        EXPECT_EQ(seen.stHead.ucChannel, CHANNEL_LTE_DATA);
    }
}

TEST_F(Capture, AKilledOneLeavesAFileUpToTheLastSecond)
{
    StartStream("1000");
    const auto pCapture = Start({"-w", "out.pcapng"});
    ASSERT_TRUE(WaitFor([&] {
        std::error_code ignored;
        return std::filesystem::file_size(Path("out.pcapng"), ignored) > 300'000 && !ignored;
    }));
    const uint64_t ullKill = RealTime();
    pCapture->Signal(SIGKILL);
    EXPECT_EQ(pCapture->WaitExit(), 128 + SIGKILL);
    const CAPTURED captured = ReadCapture(Path("out.pcapng"));
    EXPECT_TRUE(captured.enEnd == RESULT::END || captured.enEnd == RESULT::CUT);
    ASSERT_GT(captured.records.size(), 500u);
    ExpectNoGap(captured.records);
    EXPECT_GT(captured.records.back().stHead.ullTime, ullKill - 1'000'000'000);
}

TEST_F(Capture, GoesOnWithTheNextAgentInTheSameFile)
{
    m_bench.StartAgent();
    std::vector<std::string> runs = {RunOf(Observe()->Hello())};
    const auto pCapture = Start({"-w", "out.pcapng"});
    ASSERT_TRUE(Said(*pCapture, "vex-capture: capturing " + runs[0]));
    m_bench.Agent().Signal(SIGTERM);
    EXPECT_EQ(m_bench.Agent().WaitExit(), 0);
    ASSERT_TRUE(Said(*pCapture, "vex-capture: the agent has ended\nvex-capture: waiting for an agent at "));
    m_bench.StartAgent();
    runs.push_back(RunOf(Observe()->Hello()));
    ASSERT_TRUE(Said(*pCapture, "vex-capture: capturing " + runs[1]));
    Stop(*pCapture);
    const CAPTURED captured = ReadCapture(Path("out.pcapng"));
    EXPECT_EQ(captured.enEnd, RESULT::END);
    std::vector<std::string> told;
    for (const SEEN& seen : captured.records)
        if (seen.stHead.enKind == TAP_KIND::CONFIGURATION)
            told.push_back(seen.strComment.substr(0, runs[0].size()));
    EXPECT_EQ(told, runs);
    ExpectTsharkCounts(Path("out.pcapng"), captured.records.size());
}

TEST_F(Capture, AFullDiskInterruptsItUntilThereIsRoom)
{
    const CSmallDisk disk(Path("small"), "1m");
    ASSERT_TRUE(disk.IsMounted());
    StartStream("2000");
    const auto pCapture = Start({"-w", "small/out.pcapng"});
    ASSERT_TRUE(Said(*pCapture, "vex-capture: small/out.pcapng: No space left on device; capture is interrupted, "));
    const CAPTURED cut = ReadCapture(Path("small/out.pcapng"));
    EXPECT_EQ(cut.enEnd, RESULT::END); // of a whole block
    EXPECT_GT(cut.records.size(), 1000u);
    EXPECT_NE(pCapture->Errors().find("interrupted, " + std::to_string(cut.records.size()) + " records kept\n"),
              std::string::npos);
    ASSERT_TRUE(disk.Resize("64m"));
    ASSERT_TRUE(Said(*pCapture, "vex-capture: small/out.pcapng: there is room again; capture goes on\n"));
    Stop(*pCapture);
    const CAPTURED captured = ReadCapture(Path("small/out.pcapng"));
    EXPECT_EQ(captured.enEnd, RESULT::END);
    EXPECT_GT(captured.records.size(), cut.records.size());
    ExpectNoGap(captured.records); // the buffer was large enough for the while
    const std::string strErrors = pCapture->Errors();
    EXPECT_EQ(std::ranges::count(strErrors, '\n'), 4) << strErrors; // run, interrupted, room, totals
}

TEST_F(Capture, AFileThatCannotBeWrittenIsSaidAtOnce)
{
    const auto pCapture = Start({"-w", "none/out.pcapng"});
    EXPECT_EQ(pCapture->WaitExit(), 2);
    EXPECT_EQ(pCapture->Errors(), "vex-capture: none/out.pcapng: No such file or directory\n");
}

TEST_F(Capture, ASpoolIsCompressedWithoutAGapAndKeepsWhatItIsTold)
{
    StartStream("2000");
    const auto segments = [&] {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(Path("spool")))
            if (entry.path().filename().string().starts_with("vex_"))
                names.push_back(entry.path());
        std::ranges::sort(names);
        return names;
    };
    const std::vector<std::string> args = {"--spool", "spool", "--rotate", "200K"};
    auto pCapture = Start(args);
    ASSERT_TRUE(Said(*pCapture, "capturing"));
    const auto pSecond = Start(args);
    EXPECT_EQ(pSecond->WaitExit(), 2);
    EXPECT_EQ(pSecond->Errors(), "vex-capture: spool: another capture writes there\n");
    ASSERT_TRUE(WaitFor([&] { return segments().size() >= 5; }));
    Stop(*pCapture);

    std::vector<SEEN> all;
    for (const std::string& strSegment : segments()) {
        EXPECT_TRUE(strSegment.ends_with(".pcapng.zst")) << strSegment;
        const CAPTURED captured = ReadCapture(strSegment);
        EXPECT_EQ(captured.enEnd, RESULT::END) << strSegment;
        ASSERT_FALSE(captured.records.empty()) << strSegment;
        EXPECT_EQ(captured.records[0].stHead.enKind, TAP_KIND::CONFIGURATION); // it stands alone
        ExpectTsharkCounts(strSegment, captured.records.size());
        // The first one's picture is new; traffic may stand between its records.
        const std::vector<SEEN> fresh = all.empty() ? captured.records : Fresh(captured.records);
        all.insert(all.end(), fresh.begin(), fresh.end());
    }
    ExpectNoGap(all);

    pCapture = Start({"--spool", "spool", "--rotate", "200K", "--keep", "3"});
    const std::string strOldNewest = segments().back();
    ASSERT_TRUE(WaitFor([&] {
        const auto now = segments();
        return now.size() <= 3 && now.front() > strOldNewest;
    }));
    Stop(*pCapture);
    EXPECT_EQ(segments().size(), 3u);
}

TEST_F(Capture, ARotatedFileIsTakenByTshark)
{
    StartStream("2000");
    const auto pCapture = Start({"-w", "out.pcapng", "--rotate", "200K"});
    const auto files = [&] { return m_bench.Dir().Files(); };
    const auto isOurs = [](const std::string& strName) { return strName.starts_with("out_"); };
    ASSERT_TRUE(WaitFor([&] { return std::ranges::count_if(files(), isOurs) >= 3; }));
    Stop(*pCapture);
    for (const std::string& strName : files())
        if (isOurs(strName)) {
            EXPECT_TRUE(strName.ends_with(".pcapng")) << strName;
            ExpectTsharkCounts(Path(strName), ReadCapture(Path(strName)).records.size());
        }
}

TEST_F(Capture, LiveGoesToAPipe)
{
    StartStream("500");
    const RAN ran = RunShell("sh -c '" VEX_BIN_DIR "/vex-capture --tap " + Tap() +
                                 " --live --count 200 --channel lte-data | tshark -l -r - -T fields -e frame.number'",
                             m_bench.Dir().Path(), false);
    EXPECT_EQ(ran.nStatus, 0);
    EXPECT_GE(std::ranges::count(ran.strOut, '\n'), 201) << ran.strErrors; // and the picture
}

TEST_F(Capture, WiresharkListsTheAgentAndCapturesLive)
{
    StartStream("500");
    // Root's tshark looks for capture programs in Debian's folder alone, which is hidden by one of ours.
    const std::string strFolder = "/usr/lib/x86_64-linux-gnu/wireshark/extcap";
    std::filesystem::create_directories(Path("extcap"));
    std::filesystem::copy(VEX_BIN_DIR "/vex-capture", Path("extcap/vex-capture"));
    const auto tshark = [&](const std::string& strArgs) {
        if (geteuid() != 0)
            return RunShell("WIRESHARK_EXTCAP_DIR=" + Path("extcap") + " tshark " + strArgs, m_bench.Dir().Path());
        return RunShell("unshare -m sh -c 'mount --bind " + Path("extcap") + " " + strFolder + " && tshark " + strArgs +
                            "'",
                        m_bench.Dir().Path(), false);
    };
    const RAN list = tshark("-D");
    EXPECT_NE(list.strOut.find(" vex (Vex agent)\n"), std::string::npos) << list.strOut << list.strErrors;
    const RAN live = tshark("-i vex -o extcap.vex.tap:" + Tap() + " -c 300 -T fields -e frame.interface_name");
    EXPECT_EQ(live.nStatus, 0);
    EXPECT_EQ(std::ranges::count(live.strOut, '\n'), 300);
    EXPECT_NE(live.strOut.find("ue0-lte-data\n"), std::string::npos);
    EXPECT_EQ(live.strErrors.find("vex-capture"), std::string::npos) << live.strErrors;
}

TEST_F(Capture, ALossIsToldInTheFileAndOnStandardError)
{
    constexpr uint64_t COUNT = 4000; // of 1000 bytes: four times what the ring holds
    CRunningTap tap(Tap());
    ASSERT_TRUE(tap.IsOpen()) << tap.Error();
    const auto pCapture = Start({"-w", "out.pcapng"});
    ASSERT_TRUE(WaitFor([&] { return !m_bench.Dir().Read("out.pcapng").empty(); })); // the picture
    pCapture->Signal(SIGSTOP);
    ASSERT_TRUE(WaitFor([&] {
        std::ifstream stat("/proc/" + std::to_string(pCapture->Pid()) + "/stat");
        std::string strLine;
        return std::getline(stat, strLine) && strLine.find(") T ") != std::string::npos;
    }));
    for (uint64_t i = 0; i < COUNT; ++i)
        tap.Writer().Write({.enKind = TAP_KIND::STATUS}, Fill(1000));
    pCapture->Signal(SIGCONT);
    pCapture->Signal(SIGTERM);
    EXPECT_EQ(pCapture->WaitExit(), 0) << pCapture->Errors();
    const CAPTURED captured = ReadCapture(Path("out.pcapng"));
    uint64_t ullLost = 0;
    for (const SEEN& seen : captured.records)
        ullLost += seen.ullLost;
    EXPECT_GT(ullLost, 2000u);
    EXPECT_EQ(captured.records.size() + ullLost, 1 + COUNT); // and the picture
    EXPECT_EQ(captured.records.back().stHead.ullNumber, COUNT);
    const std::string strErrors = pCapture->Errors();
    const std::string strLost = std::to_string(ullLost);
    EXPECT_NE(strErrors.find("vex-capture: " + strLost + " records lost, " + strLost + " in all\n"), std::string::npos)
        << strErrors;
    EXPECT_NE(strErrors.find(" bytes, " + strLost + " lost\n"), std::string::npos) << strErrors;
    EXPECT_EQ(captured.records[1].strComment, strLost + " records lost before this one");
}

TEST_F(Capture, KeepsUpWith60000RecordsASecond)
{
    constexpr uint64_t MS = 3000;
    constexpr size_t SIZE = 333; // 20 MB/s in all
    CRunningTap tap(Tap(), 16 * 1024 * 1024);
    ASSERT_TRUE(tap.IsOpen()) << tap.Error();
    const auto pCapture = Start({"-w", "out.pcapng"});
    ASSERT_TRUE(Said(*pCapture, "capturing"));
    const Bytes bytes = Fill(SIZE, 0x5A);
    const auto start = std::chrono::steady_clock::now();
    for (uint64_t ullMs = 0; ullMs < MS; ++ullMs) {
        std::this_thread::sleep_until(start + milliseconds(ullMs));
        for (uint64_t i = 0; i < RECORDS_PER_MS; ++i)
            tap.Writer().Write({.enKind = TAP_KIND::UE_TO_AGENT,
                                .ucUe = static_cast<uint8_t>(i % MAXUENUM),
                                .ucChannel = CHANNEL_LTE_DATA},
                               bytes);
    }
    Stop(*pCapture);
    rusage stUsed{};
    (void)getrusage(RUSAGE_CHILDREN, &stUsed);
    std::printf("%.2f s of processor time for %.1f MB\n",
                static_cast<double>(stUsed.ru_utime.tv_sec + stUsed.ru_stime.tv_sec) +
                    static_cast<double>(stUsed.ru_utime.tv_usec + stUsed.ru_stime.tv_usec) / 1e6,
                static_cast<double>(RECORDS_PER_MS * MS * SIZE) / 1e6);
    const CAPTURED captured = ReadCapture(Path("out.pcapng"));
    EXPECT_EQ(captured.enEnd, RESULT::END);
    EXPECT_EQ(captured.records.size(), 1 + RECORDS_PER_MS * MS); // and the picture
    ExpectNoGap(captured.records);
}
