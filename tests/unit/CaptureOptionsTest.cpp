#include "capture/CaptureOptions.h"
#include "capture/Extcap.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

// The command line of vex-capture: what it fills in, what it refuses, and which records its filters let pass.

namespace
{
using std::chrono::seconds;
using testing::HasSubstr;

struct PARSED
{
    CAPTURE_OPTIONS stOptions;
    std::optional<CAPTURE_EXIT> end;
    std::string strOut;
    std::string strErrors;
};
PARSED Parse(const std::vector<std::string>& args)
{
    PARSED stParsed;
    std::ostringstream out;
    std::ostringstream errors;
    stParsed.end = ParseCaptureOptions(args, stParsed.stOptions, out, errors);
    stParsed.strOut = out.str();
    stParsed.strErrors = errors.str();
    return stParsed;
}

std::string Answer(const std::vector<std::string>& args)
{
    const PARSED stParsed = Parse(args);
    EXPECT_FALSE(stParsed.end) << stParsed.strErrors;
    std::ostringstream out;
    std::ostringstream errors;
    const bool bAnswered = AnswerExtcap(stParsed.stOptions, out, errors);
    EXPECT_EQ(bAnswered, errors.str().empty());
    return out.str() + errors.str();
}
} // namespace

TEST(CaptureOptions, AreWhatTheArgumentsSay)
{
    const CAPTURE_OPTIONS st =
        Parse({"--tap",       "/t",          "-w",      "f.pcapng", "--ue", "0,15",    "--channel",
               "lte-data,at", "--direction", "from-ue", "--rotate", "30s",  "--keep",  "20",
               "--compress",  "--for",       "1.5",     "--count",  "7",    "--bench", "lab7"})
            .stOptions;
    EXPECT_EQ(st.strTap, "/t");
    EXPECT_EQ(st.strFile, "f.pcapng");
    EXPECT_EQ(st.stFilter.ues.to_string(), "1000000000000001");
    EXPECT_EQ(st.stFilter.channels.to_string(), "10010");
    EXPECT_EQ(st.stFilter.kinds.to_string(), "00000010");
    EXPECT_EQ(st.stRotation.time, seconds(30));
    EXPECT_EQ(st.stKeep.ullFiles, 20u);
    EXPECT_TRUE(st.bCompress);
    EXPECT_EQ(st.seconds, 1.5);
    EXPECT_EQ(st.count, 7u);
    EXPECT_EQ(st.strBench, "lab7");
}

TEST(CaptureOptions, HaveTheirDefaults)
{
    const CAPTURE_OPTIONS stFile = Parse({"-w", "f"}).stOptions;
    EXPECT_EQ(stFile.strTap, "/run/vex/tap");
    EXPECT_FALSE(stFile.stRotation.IsOn());
    EXPECT_FALSE(stFile.bCompress);
    const CAPTURE_OPTIONS stSpool = Parse({"--spool", "d"}).stOptions;
    EXPECT_EQ(stSpool.stRotation.ullBytes, 67108864u); // 64 MB
    EXPECT_EQ(stSpool.stRotation.time, seconds(300));
    EXPECT_TRUE(stSpool.bCompress);
    EXPECT_TRUE(Parse({"-w", "-"}).stOptions.bLive);
    EXPECT_EQ(Parse({"--spool", "d", "--rotate", "1K"}).stOptions.stRotation.time, seconds(0));
}

TEST(CaptureOptions, RefuseWhatMakesNoSense)
{
    const struct
    {
        std::vector<std::string> args;
        std::string strError;
    } cases[] = {
        {{}, "give one of -w FILE, --spool DIR and --live"},
        {{"--live", "-w", "f"}, "give one of"},
        {{"--live", "--ue", "16"}, "'16' is none of 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15"},
        {{"--live", "--channel", "lte"}, "'lte' is none of lte-diag, lte-data, gu-cmd, gu-data, at"},
        {{"--live", "--direction", "up"},
         "'up' is none of from-ue, to-ue, from-client, to-client, status, event, config"},
        {{"-w", "f", "--rotate", "10"}, "'10' is no size (100M) and no time (10m)"},
        {{"-w", "f", "--rotate", "10M", "--keep", "3m"}, "'3m' is no size (2G) and no count of files (20)"},
        {{"-w", "f", "--keep", "3"}, "--keep: goes with --rotate or --spool only"},
        {{"--live", "--compress"}, "--live: goes with neither --rotate nor --compress"},
        {{"--live", "--count", "0"}, "--count"},
        {{"--capture", "--extcap-interface", "vex"}, "--fifo is missing"},
    };
    for (const auto& [args, strError] : cases) {
        const PARSED stParsed = Parse(args);
        EXPECT_EQ(stParsed.end, CAPTURE_USAGE) << strError;
        EXPECT_THAT(stParsed.strErrors, HasSubstr(strError));
    }
}

TEST(CaptureOptions, HelpTellsTheExitStatus)
{
    const PARSED stParsed = Parse({"--help"});
    EXPECT_EQ(stParsed.end, CAPTURE_DONE);
    EXPECT_THAT(stParsed.strOut, HasSubstr("Exit status: 0 done, 1 wrong usage, 2 a file can't be written"));
}

TEST(CaptureLimits, SizesTimesAndCounts)
{
    const struct
    {
        std::string strText;
        uint64_t ullBytes;
        int64_t llSeconds;
    } cases[] = {
        {"1K", 1024, 0}, {"100M", 104857600, 0}, {"2G", 2147483648, 0}, {"1T", 1099511627776, 0},
        {"30s", 0, 30},  {"10m", 0, 600},        {"1h", 0, 3600},       {"2d", 0, 172800},
    };
    for (const auto& [strText, ullBytes, llSeconds] : cases) {
        ROTATION stRotation;
        EXPECT_TRUE(ParseRotation(strText, stRotation)) << strText;
        EXPECT_EQ(stRotation.ullBytes, ullBytes) << strText;
        EXPECT_EQ(stRotation.time.count(), llSeconds) << strText;
    }
    ROTATION stRotation{5, seconds(6)};
    // 2^24 T are 2^64 bytes, one more than there is room for.
    for (const std::string strText :
         {"", "0M", "M", "-1M", "1MB", "1.5M", "16777216T", "99999999999999999999s", "367d"})
        EXPECT_FALSE(ParseRotation(strText, stRotation)) << strText;
    EXPECT_EQ(stRotation.ullBytes, 5u); // as it was
    KEEP stKeep;
    EXPECT_TRUE(ParseKeep("3", stKeep));
    EXPECT_EQ(stKeep.ullFiles, 3u);
    EXPECT_TRUE(ParseKeep("3M", stKeep));
    EXPECT_EQ(stKeep.ullBytes, 3145728u);
    EXPECT_EQ(stKeep.ullFiles, 0u);
    EXPECT_FALSE(ParseKeep("0", stKeep));
}

TEST(CaptureFilter, LetsPassWhatIsAskedForAndWhatExplainsIt)
{
    const TAP_RECORD config{.enKind = TAP_KIND::CONFIGURATION};
    const TAP_RECORD event{.enKind = TAP_KIND::PORT_EVENT, .ucUe = 2, .ucChannel = CHANNEL_AT};
    const TAP_RECORD status{.enKind = TAP_KIND::STATUS};
    const TAP_RECORD data{.enKind = TAP_KIND::UE_TO_AGENT, .ucUe = 2, .ucChannel = CHANNEL_LTE_DATA};
    const TAP_RECORD unbound{.enKind = TAP_KIND::CLIENT_TO_AGENT, .ucChannel = CHANNEL_LTE_DIAG};
    const struct
    {
        std::vector<std::string> args;
        std::string strPass; // of the five records in the order above
    } cases[] = {
        {{}, "11111"},
        {{"--ue", "2"}, "11010"},
        {{"--ue", "3"}, "11000"},
        {{"--channel", "lte-diag"}, "11001"},
        {{"--channel", "lte-data,lte-diag"}, "11011"},
        {{"--direction", "from-ue"}, "10010"},
        {{"--direction", "event"}, "11000"},
        {{"--direction", "status", "--ue", "2"}, "10100"},
        {{"--ue", "", "--channel", ""}, "11111"}, // as Wireshark's dialog leaves them
    };
    for (auto [args, strPass] : cases) {
        args.insert(args.begin(), "--live");
        const PARSED stParsed = Parse(args);
        std::string strPassed;
        for (const TAP_RECORD& stRecord : {config, event, status, data, unbound})
            strPassed += stParsed.stOptions.stFilter.Passes(stRecord) ? '1' : '0';
        EXPECT_EQ(strPassed, strPass) << args.back();
    }
}

TEST(CaptureExtcap, AnswersWhatWiresharkAsks)
{
    EXPECT_EQ(Answer({"--extcap-interfaces", "--extcap-version=4.0"}),
              "extcap {version=1.0}{display=Vex agent}\ninterface {value=vex}{display=Vex agent}\n");
    EXPECT_EQ(Answer({"--extcap-interface", "vex", "--extcap-dlts"}),
              "dlt {number=252}{name=WIRESHARK_UPPER_PDU}{display=Vex agent}\n");
    const std::string strConfig = Answer({"--extcap-interface", "vex", "--extcap-config"});
    EXPECT_THAT(strConfig, HasSubstr("{call=--tap}{display=Tap of the agent}{type=string}{default=/run/vex/tap}"));
    EXPECT_THAT(strConfig, HasSubstr("value {arg=2}{value=gu-cmd}{display=gu-cmd}"));
    EXPECT_EQ(Answer({"--extcap-interface", "eth0", "--extcap-dlts"}),
              "vex-capture: --extcap-interface: there is only vex\n");
    const PARSED stCapture =
        Parse({"--capture", "--extcap-interface", "vex", "--fifo", "/f", "--extcap-capture-filter", "x", "--ue", "1"});
    EXPECT_FALSE(stCapture.end);
    EXPECT_EQ(stCapture.stOptions.enExtcap, EXTCAP::CAPTURE);
    EXPECT_EQ(stCapture.stOptions.strFifo, "/f");
}
