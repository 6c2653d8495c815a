#include "agent/Agent.h"
#include "agent/StopSignals.h"
#include "common/Debug.h"
#include "ue/DeviceMonitor.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace
{
int RunAgent(CAgent& agent)
{
    if (!agent.Init("./config/vex.cfg"))
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
} // namespace

int main()
{
    (void)std::signal(SIGPIPE, SIG_IGN); // a standard error that nobody reads must not end the run
    CAgent agent;
    StopOnSignals(agent.Clients());
    const int iStatus = RunAgent(agent);
    agent.Stop();
    // The agent's threads aren't joined; some are blocked for good. What they use must outlive them, so neither
    // the agent nor any static object is destroyed: the process ends here. The log has reached its file.
    (void)std::fflush(nullptr);
    std::_Exit(iStatus);
}
