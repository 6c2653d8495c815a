#include "agent/Agent.h"
#include "agent/CommandLine.h"
#include "agent/StopSignals.h"
#include "common/Debug.h"
#include "ue/DeviceMonitor.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace
{
int RunAgent(CAgent& agent, const std::string& strConfig)
{
    if (!agent.Init(strConfig.c_str()))
        return EXIT_SUCCESS;
    if (std::string strError; !CDeviceMonitor::CheckConfiguredNames(strError)) {
        agent.StartLog();
        CDebug::Instance()->PrintError("%s", strError.c_str());
        (void)std::fprintf(stderr, "vex-agent: %s\n", strError.c_str());
        return EXIT_FAILURE;
    }
    if (!agent.Run())
        CDebug::Instance()->PrintError("Agent Run Fail!");
    return EXIT_SUCCESS;
}

int Serve(const std::string& strConfig)
{
    (void)std::signal(SIGPIPE, SIG_IGN); // a standard error that nobody reads must not end the run
    static CAgent agent;
    StopOnSignals(agent.Clients());
    const int iStatus = RunAgent(agent, strConfig);
    agent.Stop();
    return iStatus;
}

int Execute(const AGENT_COMMAND& stCommand)
{
    switch (stCommand.enAction) {
    case AGENT_COMMAND::HELP:
        (void)std::fputs(AGENT_USAGE, stdout);
        return EXIT_SUCCESS;
    case AGENT_COMMAND::VERSION:
        (void)std::puts("vex-agent " VEX_VERSION);
        return EXIT_SUCCESS;
    case AGENT_COMMAND::CHECK:
        return CheckConfigFile(stCommand.strConfig);
    case AGENT_COMMAND::WRONG:
        (void)std::fputs("Try 'vex-agent --help'.\n", stderr);
        return CHECK_ERRORS;
    case AGENT_COMMAND::RUN:
        break;
    }
    return Serve(stCommand.strConfig);
}
} // namespace

int main(int nArgs, char** ppszArgs)
{
    const int iStatus = Execute(ParseCommandLine(nArgs, ppszArgs));
    // The agent's threads aren't joined; some are blocked for good. What they use must outlive them, so neither
    // the agent nor any static object is destroyed: the process ends here. The log has reached its file.
    (void)std::fflush(nullptr);
    std::_Exit(iStatus);
}
