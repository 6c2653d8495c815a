#include "e2e/AgentBench.h"
#include "e2e/ScriptedUe.h"
#include "support/WaitFor.h"

#include <csignal>
#include <gtest/gtest.h>
#include <regex>
#include <sstream>
#include <unistd.h>

namespace
{
constexpr std::chrono::milliseconds STOP_LIMIT(2000);

bool IsListening(unsigned short usPort)
{
    return ConnectTcp(usPort, std::chrono::milliseconds(0)).IsOpen();
}

bool WaitListening(unsigned short usPort)
{
    return ConnectTcp(usPort).IsOpen();
}

std::vector<std::string> Lines(const std::string& strText)
{
    std::vector<std::string> lines;
    std::istringstream text(strText);
    for (std::string strLine; std::getline(text, strLine);)
        lines.push_back(strLine);
    return lines;
}

using Tags = std::vector<std::string>;

/// Tags of the log classes that a run with this level shows while a UE comes up and a client talks to it.
Tags TagsAt(int iLevel)
{
    CAgentBench bench("debuglevel=" + std::to_string(iLevel));
    bench.StartAgent();
    CTcpClient client(CHANNEL_LTE_DATA);
    EXPECT_TRUE(client.Send(0x12345678, PKT_TYPE_AGENT));               // a warning: no command of this channel
    EXPECT_TRUE(SendDeviceRecord(7, 0, 1, "/dev/does-not-exist", "g")); // an error: it can't be opened
    CScriptedUe ue(101, "modem");
    EXPECT_TRUE(ue.Attach(SERIAL_TYPE_DIAG));
    EXPECT_TRUE(ue.ReadRequest());                 // host connect
    EXPECT_TRUE(ue.ReadRequest());                 // time stamp
    ue.SendAck(0x10067000, 0, Hex("01 02 03 04")); // raw data: the time stamp ack is dumped
    ue.SendAck(0x10065000, 0, Fill(320));
    EXPECT_TRUE(bench.WaitConfirmed(101)); // the acks are handled in order
    bench.Agent().Signal(SIGTERM);         // which writes the log to its end
    EXPECT_EQ(bench.Agent().WaitExit(STOP_LIMIT), 0);
    const std::string strLog = bench.Log();
    Tags tags;
    for (const char* pszTag : {" [INF] : ", " [WAN] : ", " [ERR] : ", " [DAT] : "})
        if (strLog.find(pszTag) != std::string::npos)
            tags.push_back(pszTag);
    return tags;
}
} // namespace

TEST(Process, EveryLogLineHasTimeTagAndText)
{
    CAgentBench bench("debuglevel=15\ndebugfilename=bench");
    bench.StartAgent();
    ASSERT_TRUE(WaitListening(20260));
    ASSERT_TRUE(bench.Logged("Read Agent Msg Thread Create OK!"));

    const auto files = bench.Dir().Files();
    const std::regex name(R"(bench_\d{8}_\d{6}\.d)");
    ASSERT_EQ(std::ranges::count_if(files, [&](const auto& f) { return std::regex_match(f, name); }), 1);
    const std::regex line(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} \[(INF|WAN|ERR|DAT)\] : .*)");
    for (const std::string& strLine : Lines(bench.Log()))
        EXPECT_TRUE(strLine.empty() || std::regex_match(strLine, line)) << strLine;
    EXPECT_NE(bench.Log().find(" [INF] : UEManager::Run OK!\n"), std::string::npos);
}

TEST(Process, LevelZeroWritesNoFile)
{
    CAgentBench bench("debuglevel=0");
    bench.StartAgent();
    ASSERT_TRUE(WaitListening(20270));
    EXPECT_EQ(bench.Dir().Files(), std::vector<std::string>{});
}

// One agent a test: its ports linger for a while after it has gone.
TEST(Process, LevelOneLogsInformationOnly)
{
    EXPECT_EQ(TagsAt(1), Tags{" [INF] : "});
}

TEST(Process, LevelSixLogsWarningsAndErrors)
{
    EXPECT_EQ(TagsAt(6), (Tags{" [WAN] : ", " [ERR] : "}));
}

TEST(Process, LevelFifteenLogsAllClasses)
{
    EXPECT_EQ(TagsAt(15), (Tags{" [INF] : ", " [WAN] : ", " [ERR] : ", " [DAT] : "}));
}

TEST(Process, WithoutAFileItListensWithoutLogStatusOrMonitor)
{
    const CTempDir dir;
    CVexProcess agent(std::string(VEX_BIN_DIR) + "/vex-agent", {}, dir.Path());
    for (const unsigned short usPort : LISTENPORT)
        EXPECT_TRUE(WaitListening(usPort)) << usPort;
    EXPECT_FALSE(IsListening(DEVICE_MONITOR_PORT));
    EXPECT_TRUE(agent.IsRunning());
    EXPECT_EQ(dir.Files(), std::vector<std::string>{});
}

TEST(Process, ATakenFirstPortEndsTheRunWithALineAndStatusZero)
{
    const CUniqueFd taken = ListenTcp(20260);
    CAgentBench bench;
    bench.StartAgent();
    EXPECT_EQ(bench.Agent().WaitExit(), 0);
    EXPECT_NE(bench.Log().find(" [ERR] : CreateListenSocket fail\n"), std::string::npos) << bench.Log();
    EXPECT_NE(bench.Agent().Errors().find("20260"), std::string::npos);
    EXPECT_EQ(Lines(bench.Agent().Errors()).size(), 1U);
}

TEST(Process, AStandardErrorThatNobodyReadsEndsNothing)
{
    const CUniqueFd taken = ListenTcp(20260); // the agent says so on its standard error
    CAgentBench bench("debuglevel=7");
    int anPipe[2];
    ASSERT_EQ(pipe(anPipe), 0);
    CUniqueFd(anPipe[0]).Reset();
    bench.StartAgent(CUniqueFd(anPipe[1]));
    EXPECT_EQ(bench.Agent().WaitExit(), 0) << "128 and more is a signal";
    EXPECT_NE(bench.Log().find("[ERR] : CreateListenSocket fail"), std::string::npos);
}

TEST(Process, ATakenLaterPortEndsTheRunInTheSelectError)
{
    const CUniqueFd taken = ListenTcp(20281);
    CAgentBench bench;
    bench.StartAgent();
    EXPECT_EQ(bench.Agent().WaitExit(), 0);
    EXPECT_NE(bench.Log().find(" [ERR] : socket select fail, errno:9\n"), std::string::npos) << bench.Log();
    EXPECT_EQ(bench.Log().find("CreateListenSocket fail"), std::string::npos);
    EXPECT_NE(bench.Agent().Errors().find("20281"), std::string::npos);
}

TEST(Process, FewerPortsThanNamesEndTheRunWithAClearLine)
{
    CAgentBench bench("ChannelNameEnable=1\nChannelName=a;b;c;d\nChannelPort=1;2;3");
    bench.StartAgent();
    EXPECT_EQ(bench.Agent().WaitExit(), 1);
    const std::string strErrors = bench.Agent().Errors();
    for (const char* pszText : {"ChannelName", "ChannelPort", "4", "3"}) {
        EXPECT_NE(strErrors.find(pszText), std::string::npos) << pszText << " in " << strErrors;
        EXPECT_NE(bench.Log().find(pszText), std::string::npos) << pszText << " in " << bench.Log();
    }
}

TEST(Process, ConfiguredNamesAttachTheirPortsAtTheStart)
{
    CPtyPair diag, data, gu, at;
    CAgentBench bench("ChannelNameEnable=1\nChannelPort=11;12;13;14\nChannelName=" + diag.Name() + ";" + data.Name() +
                      ";" + gu.Name() + ";" + at.Name());
    bench.StartAgent();
    ASSERT_TRUE(bench.Logged("UE 0 AT attached, Serial port name is " + at.Name(), std::chrono::seconds(15)));
    const std::vector<std::string> lines = {
        "UE count is 1",
        "Group Name is 0 serialName is " + gu.Name() + " port is 13",
        "UE 0 Lte Diag attached, Serial port name is " + diag.Name(),
        "UE 0 Guom Cmd attached",
        "UE 0 Guom Data attached",
    };
    for (const std::string& strText : lines)
        EXPECT_TRUE(bench.Logged(strText)) << strText;
    EXPECT_FALSE(IsListening(DEVICE_MONITOR_PORT));
}

TEST(Process, AStoppedAndContinuedAgentGoesOn)
{
    CAgentBench bench;
    bench.StartAgent();
    CTcpClient client(CHANNEL_LTE_DIAG);
    ASSERT_TRUE(client.Ask(AGENT_CMD_CHANNEL_QUERY, PKT_TYPE_AGENT));
    bench.Agent().Signal(SIGSTOP);
    bench.Agent().Signal(SIGCONT);
    EXPECT_TRUE(client.Ask(AGENT_CMD_CHANNEL_QUERY, PKT_TYPE_AGENT));
    EXPECT_TRUE(bench.Agent().IsRunning());
}

namespace
{
/// The last line of the log of an agent that has ended in order.
bool IsLogComplete(const CAgentBench& bench)
{
    const auto lines = Lines(bench.Log());
    return !lines.empty() && lines.back().find("[INF] : Longest turns:") != std::string::npos;
}
} // namespace

TEST(Process, ATerminatedAgentEndsInOrder)
{
    CAgentBench bench("debuglevel=7");
    bench.StartAgent();
    CTcpClient other(CHANNEL_LTE_DIAG);
    bench.StartModem({"--ues", "1", "--lte-rate", "500", "--quiet"});
    ASSERT_TRUE(bench.WaitConfirmed(1));
    const auto pClient = bench.BoundClient(CHANNEL_LTE_DATA, 1);
    ASSERT_TRUE(pClient->IsOpen());
    bench.Agent().Signal(SIGTERM);
    EXPECT_EQ(bench.Agent().WaitExit(STOP_LIMIT), 0);
    EXPECT_TRUE(IsLogComplete(bench)) << bench.Log();
    EXPECT_NE(bench.Log().find("[INF] : Delete Client(com 2) Lte Data"), std::string::npos) << bench.Log();
}

TEST(Process, ASecondSignalChangesNothing)
{
    CAgentBench bench("debuglevel=7");
    bench.StartAgent();
    CTcpClient client(CHANNEL_LTE_DIAG);
    ASSERT_TRUE(client.Ask(AGENT_CMD_CHANNEL_QUERY, PKT_TYPE_AGENT));
    bench.Agent().Signal(SIGINT);
    bench.Agent().Signal(SIGINT);
    EXPECT_EQ(bench.Agent().WaitExit(STOP_LIMIT), 0);
    EXPECT_TRUE(IsLogComplete(bench)) << bench.Log();
}

TEST(Process, ASignalBeforeItListensEndsItToo)
{
    CAgentBench bench("debuglevel=7");
    bench.StartAgent();
    ASSERT_TRUE(WaitFor([&] { return !bench.Log().empty(); }));
    bench.Agent().Signal(SIGTERM);
    EXPECT_EQ(bench.Agent().WaitExit(STOP_LIMIT), 0);
}

TEST(Process, ALogThatTakesNothingDoesntHoldTheEndUp)
{
    CAgentBench bench("debuglevel=7\ndebugfilename=/dev/full\n");
    bench.StartAgent();
    CTcpClient client(CHANNEL_LTE_DIAG);
    ASSERT_TRUE(client.Ask(AGENT_CMD_CHANNEL_QUERY, PKT_TYPE_AGENT));
    bench.Agent().Signal(SIGTERM);
    EXPECT_EQ(bench.Agent().WaitExit(STOP_LIMIT), 0);
}
