#include "e2e/AgentBench.h"
#include "support/WaitFor.h"

#include <csignal>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

// The real agent's command line, and what it tells a service manager.

namespace
{
std::string AgentProgram()
{
    return std::string(VEX_BIN_DIR) + "/vex-agent";
}

/// Runs the agent to its end.
struct RUN
{
    explicit RUN(const std::vector<std::string>& args, const CTempDir& dir)
    {
        CVexProcess process(AgentProgram(), args, dir.Path());
        nStatus = process.WaitExit().value_or(-1);
        strOutput = process.Output();
        strErrors = process.Errors();
    }
    int nStatus;
    std::string strOutput;
    std::string strErrors;
};
} // namespace

TEST(CommandLine, HelpAndVersion)
{
    const CTempDir dir;
    const RUN help({"--help"}, dir);
    EXPECT_EQ(help.nStatus, 0);
    EXPECT_TRUE(help.strOutput.starts_with("usage: vex-agent [--config FILE]\n"));
    const RUN version({"--version"}, dir);
    EXPECT_EQ(version.nStatus, 0);
    EXPECT_TRUE(version.strOutput.starts_with("vex-agent ")) << version.strOutput;
    EXPECT_TRUE(dir.Files().empty());
}

TEST(CommandLine, AWrongOptionIsToldAndServesNobody)
{
    const CTempDir dir;
    for (const char* pszArg : {"--wrong", "file.cfg", "--config"}) {
        const RUN run({pszArg}, dir);
        EXPECT_EQ(run.nStatus, 2) << pszArg;
        EXPECT_NE(run.strErrors.find("Try 'vex-agent --help'."), std::string::npos) << pszArg;
    }
}

TEST(CommandLine, ACheckedFileHasItsStatus)
{
    const CTempDir dir;
    dir.Write("clean.cfg", "debuglevel = 7\n");
    dir.Write("warning.cfg", "\ndebuglevel = 17\n");
    dir.Write("config/vex.cfg", "debuglevel = 7\ndebuglevel = x\nnokey = 1\n");
    const RUN clean({"--check-config", "clean.cfg"}, dir);
    EXPECT_EQ(clean.nStatus, 0);
    EXPECT_EQ(clean.strOutput, "");
    const RUN warning({"--check-config", "warning.cfg"}, dir);
    EXPECT_EQ(warning.nStatus, 1);
    EXPECT_EQ(warning.strOutput, "warning.cfg:2: warning: debuglevel is 17; 0 to 15 are meant\n");
    const RUN usual({"--check-config"}, dir);
    EXPECT_EQ(usual.nStatus, 2);
    EXPECT_EQ(usual.strOutput, "./config/vex.cfg:2: warning: debuglevel stands in line 1 already; this one counts\n"
                               "./config/vex.cfg:2: error: \"x\" is no number\n"
                               "./config/vex.cfg:3: error: unknown key \"nokey\"\n");
    const RUN missing({"--check-config", "missing.cfg"}, dir);
    EXPECT_EQ(missing.nStatus, 2);
    EXPECT_EQ(missing.strErrors, "missing.cfg: No such file or directory\n");
}

TEST(CommandLine, AnotherConfigurationIsReadAndItsFaultsAreInTheLog)
{
    const CTempDir dir;
    dir.Write("other.cfg", "debuglevel = 7\ndebugfilename = other\nChannelNameEnable = 0\ndebuglevl = 3\n");
    CVexProcess agent(AgentProgram(), {"--config", "other.cfg"}, dir.Path());
    ASSERT_TRUE(CTcpClient(CHANNEL_AT).IsOpen());
    std::string strLog;
    EXPECT_TRUE(WaitFor([&] {
        for (const std::string& strFile : dir.Files())
            if (strFile.starts_with("other_"))
                strLog = dir.Read(strFile);
        return strLog.find("[WAN] : other.cfg:4: error: unknown key \"debuglevl\"; \"debuglevel\" is known\n") !=
               std::string::npos;
    })) << strLog;
}

TEST(CommandLine, AServiceManagerHearsOfReadyWatchdogAndStopping)
{
    const CAgentBench bench;
    const std::string strPath = bench.Dir().Path() + "/notify";
    sockaddr_un stAddress{};
    stAddress.sun_family = AF_UNIX;
    std::copy(strPath.begin(), strPath.end(), stAddress.sun_path);
    const CUniqueFd manager(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(bind(manager.Get(), reinterpret_cast<const sockaddr*>(&stAddress), sizeof(stAddress)), 0);
    (void)setenv("NOTIFY_SOCKET", strPath.c_str(), 1);
    (void)setenv("WATCHDOG_USEC", "100000", 1);
    std::vector<std::string> heard;
    const auto hear = [&](const std::string& strState) {
        return WaitFor([&] {
            char szText[100] = {};
            if (recv(manager.Get(), szText, sizeof(szText) - 1, MSG_DONTWAIT) > 0)
                heard.emplace_back(szText);
            return !heard.empty() && heard.back() == strState;
        });
    };
    CVexProcess agent(AgentProgram(), {}, bench.Dir().Path());
    EXPECT_TRUE(hear("READY=1"));
    EXPECT_TRUE(CTcpClient(CHANNEL_LTE_DIAG).IsOpen());
    const size_t szBefore = heard.size();
    while (heard.size() < szBefore + 3)
        ASSERT_TRUE(hear("WATCHDOG=1")) << heard.size();
    agent.Signal(SIGTERM);
    EXPECT_TRUE(hear("STOPPING=1"));
    EXPECT_EQ(agent.WaitExit(), 0);
    (void)unsetenv("NOTIFY_SOCKET");
    (void)unsetenv("WATCHDOG_USEC");
}
