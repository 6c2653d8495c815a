#include "page/LogFollower.h"
#include "page/LogLine.h"
#include "page/LogSource.h"
#include "support/PageRecords.h"
#include "support/VexProcess.h"

#include <ctime>
#include <filesystem>
#include <fstream>

// The agent's log as the page reads it.

namespace
{
using Lines = std::vector<std::string>;

void Append(const std::string& strPath, const std::string& strText)
{
    std::ofstream(strPath, std::ios::app) << strText;
}

Lines Poll(CLogFollower& follower)
{
    Lines lines;
    follower.Poll([&](std::string_view line) { lines.emplace_back(line); });
    return lines;
}
} // namespace

TEST(PageLog, LinesHaveATimeALevelAndAText)
{
    setenv("TZ", "UTC", 1);
    tzset();
    const auto line = ParseLogLine("2023-11-14 22:13:20.123 [WAN] : UE 3 is slow");
    ASSERT_TRUE(line);
    EXPECT_EQ(line->dTime, PAGE_DAY_MS + 123);
    EXPECT_STREQ(LogLevelName(line->enLevel), "warning");
    EXPECT_EQ(line->strText, "UE 3 is slow");
    EXPECT_STREQ(LogLevelName(ParseLogLine("2023-11-14 22:13:20.123 [ERR] : x")->enLevel), "error");
    EXPECT_STREQ(LogLevelName(ParseLogLine("2023-11-14 22:13:20.123 [INF] : ")->enLevel), "info");
    for (const char* psz : {"", "2023-11-14 22:13:20.123", "2023-11-14 22:13:20.123 [DAT] : dump=0x00,",
                            "yyyy-mm-dd hh:mm:ss.mmm [INF] : x", "something else that is long enough [INF] : x"})
        EXPECT_FALSE(ParseLogLine(psz)) << psz;
}

TEST(PageLog, LossesAreToldByTheirLines)
{
    const struct
    {
        const char* pszText;
        const char* pszReason;
        uint64_t ullCount;
        std::optional<uint8_t> channel;
    } cases[] = {
        {"Client SendDataToClient select TimeOut, channel:Lte Data, errno :11", "client_timeout", 1, CHANNEL_LTE_DATA},
        {"Client SendDataToClient select TimeOut, channel:Guom Data, 123 more frames lost", "client_timeout", 123,
         CHANNEL_GU_DATA},
        {"Client SendDataToClient send Fail, channel:AT, lenth/total: 3/10, errno :32", "client_send_failed", 1,
         CHANNEL_AT},
        {"UE 3 takes data again, 45 packets were lost", "ue_queue_full", 45, {}},
        {"HDLC Decode Error!com:3, type:1", "hdlc_decode", 1, {}},
        {"register list dropped: mode 1, 2 addresses, message of 3 bytes", "register_list", 1, {}},
    };
    for (const auto& stCase : cases) {
        const auto loss = LossOf(stCase.pszText);
        ASSERT_TRUE(loss) << stCase.pszText;
        EXPECT_STREQ(loss->pszReason, stCase.pszReason) << stCase.pszText;
        EXPECT_EQ(loss->ullCount, stCase.ullCount) << stCase.pszText;
        EXPECT_EQ(loss->channel, stCase.channel) << stCase.pszText;
    }
    EXPECT_FALSE(LossOf("UE 3 ttyUSB0 detached"));
    EXPECT_FALSE(LossOf("socket select fail, errno:4"));
}

TEST(PageLog, LinesNameAUeOrAPort)
{
    EXPECT_EQ(UeOfLine("UE 3 ttyUSB0 detached"), 3U);
    EXPECT_EQ(UeOfLine("Time stamp ack of UE 15 is too large, 9 bytes of payload"), 15U);
    EXPECT_EQ(UeOfLine("UE 16 is none"), std::nullopt);
    EXPECT_EQ(UeOfLine("UE count is 3"), std::nullopt);
    EXPECT_EQ(PortOfLine("HDLC Decode Error!com:103, type:1"), 103U);
    EXPECT_EQ(PortOfLine("Send data to UE(com 104) timeout. channel type:1, errno:4"), 104U);
    EXPECT_EQ(PortOfLine("nothing"), std::nullopt);
}

TEST(PageLog, FollowsAFileThatGrows)
{
    const CTempDir dir;
    const std::string strFile = dir.Path() + "/log";
    CLogFollower follower;
    follower.Follow(strFile);
    EXPECT_EQ(Poll(follower), Lines()); // no file yet
    Append(strFile, "one\ntw");
    EXPECT_EQ(Poll(follower), Lines{"one"});
    Append(strFile, "o\n\nthree\n");
    EXPECT_EQ(Poll(follower), (Lines{"two", "", "three"}));
    EXPECT_EQ(Poll(follower), Lines());
}

TEST(PageLog, FollowsAFileThatIsCutOverOrBegunAnew)
{
    const CTempDir dir;
    const std::string strFile = dir.Path() + "/log";
    CLogFollower follower;
    follower.Follow(strFile);
    Append(strFile, "one\n");
    EXPECT_EQ(Poll(follower), Lines{"one"});
    Append(strFile, "two\n");
    std::filesystem::rename(strFile, strFile + ".1");
    Append(strFile, "three\n");
    EXPECT_EQ(Poll(follower), (Lines{"two", "three"}));
    std::ofstream(strFile, std::ios::trunc) << "4\n"; // fewer bytes than before
    EXPECT_EQ(Poll(follower), Lines{"4"});
}

TEST(PageLog, OfALongFileOnlyTheEndIsToldAndALongLineIsCut)
{
    const CTempDir dir;
    const std::string strFile = dir.Path() + "/log";
    Append(strFile, std::string(65536 - 8, 'x') + "\nnot whole\nlast\n"); // the end begins within the first line
    CLogFollower follower;
    follower.Follow(strFile);
    EXPECT_EQ(Poll(follower), (Lines{"not whole", "last"}));
    Append(strFile, std::string(100'000, 'y') + "\nnext\n");
    const Lines lines = Poll(follower);
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].size(), 4096U);
    EXPECT_EQ(lines[1], "next");
}

TEST(PageLog, TheAgentTellsTheFileUnlessItIsGiven)
{
    const CTempDir dir;
    const std::string strTold = dir.Path() + "/told";
    const std::string strGiven = dir.Path() + "/given";
    Append(strTold, "2023-11-14 22:13:20.123 [INF] : told\n");
    Append(strGiven, "2023-11-14 22:13:20.123 [INF] : given\n");
    TAP_LOG_EVENT stEvent;
    stEvent.strFile = strTold;
    for (const std::string& strLog : {std::string(), strGiven}) {
        CPageModel model({.strTap = "tap", .strLog = strLog});
        CPageFeed feed(model);
        feed.BeginRun();
        feed.Take(feed.Record(TAP_KIND::PORT_EVENT, TAP_NO_UE, TAP_NO_CHANNEL), Bytes(EncodeRecord(stEvent)));
        feed.Second();
        const auto view = feed.View("/api/overview");
        EXPECT_EQ(view["log_source"], strLog.empty() ? strTold : strGiven);
        ASSERT_EQ(view["log"].size(), 1U);
        EXPECT_EQ(view["log"][0]["text"], strLog.empty() ? "told" : "given");
    }
}

TEST(PageLog, TheNewestFileOfTheNameIsTheLog)
{
    namespace fs = std::filesystem;
    const CTempDir dir;
    EXPECT_EQ(NewestLogFile(dir.Path() + "/vex"), "");
    const fs::file_time_type now = fs::file_time_type::clock::now();
    for (const char* pszName : {"vexB.d", "vexA.d", "other.d", "vexC.d.1"})
        Append(dir.Path() + "/" + pszName, "x\n");
    fs::last_write_time(dir.Path() + "/vexB.d", now);
    fs::last_write_time(dir.Path() + "/vexA.d", now + std::chrono::seconds(1));
    EXPECT_EQ(NewestLogFile(dir.Path() + "/vex"), dir.Path() + "/vexA.d");
    EXPECT_EQ(NewestLogFile(dir.Path() + "/vexB.d"), dir.Path() + "/vexB.d");
    EXPECT_EQ(NewestLogFile(""), "");
}

TEST(PageLog, TheOverviewShowsItsLinesAndLosses)
{
    const CTempDir dir;
    const std::string strFile = dir.Path() + "/log";
    Append(strFile,
           "2023-11-14 22:13:20.000 [INF] : start\n"
           "2023-11-14 22:13:21.000 [WAN] : Client SendDataToClient select TimeOut, channel:Lte Data, errno :11\n"
           "2023-11-14 22:13:22.000 [WAN] : Client SendDataToClient select TimeOut, channel:Lte Data, 4 more "
           "frames lost\n"
           "2023-11-14 22:13:23.000 [ERR] : HDLC Decode Error!com:105, type:1\n");
    CPageModel model({.strLog = strFile});
    CPageFeed feed(model);
    feed.BeginRun();
    feed.Channel(3, CHANNEL_LTE_DATA, true, true, 9, "ttyUSB1", 104); // whose client loses
    feed.Channel(4, CHANNEL_LTE_DIAG, true, true, 0, "ttyUSB9", 105);
    feed.Second();
    const nlohmann::ordered_json view = feed.View("/api/overview");
    EXPECT_EQ(view["log_source"], strFile);
    ASSERT_EQ(view["log"].size(), 4U);
    EXPECT_EQ(view["log"][0]["level"], "error");
    EXPECT_EQ(view["log"][3]["text"], "start");
    ASSERT_EQ(view["losses"].size(), 2U);
    EXPECT_EQ(view["losses"][1]["count"], 5);
    EXPECT_EQ(view["losses"][1]["ue"], 3);
    EXPECT_EQ(view["modems"][0]["losses"], 5);
    EXPECT_EQ(view["modems"][0]["warnings"], 2);
    EXPECT_EQ(view["modems"][1]["losses"], 1); // by its port
    const std::string strMetrics = feed.Ask("/metrics").strBody;
    EXPECT_NE(strMetrics.find("\nvex_log_lines_total{level=\"warning\"} 2\n"), std::string::npos);
    EXPECT_NE(strMetrics.find("\nvex_lost_packets_total{reason=\"client_timeout\",channel=\"lte-data\"} 5\n"),
              std::string::npos);
}
