#include "e2e/IsolationRun.h"
#include "support/NetNs.h"

#include <cstdio>
#include <cstring>
#include <sys/wait.h>
#include <unistd.h>

// What each event on a bench costs a healthy modem's packets: the events of the end-to-end tests, as a table.

namespace
{
void PrintRow(const ISOLATION_EVENT& stEvent, const ISOLATION_RESULT& stResult)
{
    std::printf("%-50s %12.1f %12.1f %10.1f\n", stEvent.pszText, stResult.dWithoutMs, stResult.dWithMs,
                stResult.AddedMs());
    for (const SIDE_TIME& stTime : stResult.sideTimes)
        std::printf("  %-48s %12s %12.1f\n", stTime.strWhat.c_str(), "", stTime.dMs);
    if (!stResult.strFault.empty())
        std::printf("  %s\n", stResult.strFault.c_str());
}

/// In a process and a network namespace of its own, as the agent's ports are fixed and linger.
bool RunApart(const ISOLATION_EVENT& stEvent)
{
    (void)std::fflush(stdout);
    const pid_t lPid = fork();
    if (lPid == 0) {
        const bool bApart = IsolateNetwork();
        if (bApart)
            PrintRow(stEvent, RunIsolation(stEvent));
        else
            std::perror("no network namespace for the event");
        (void)std::fflush(stdout);
        _exit(bApart ? 0 : 1);
    }
    int nStatus = 0;
    return lPid > 0 && waitpid(lPid, &nStatus, 0) == lPid && nStatus == 0;
}
} // namespace

int main(int nArgs, char** ppszArgs)
{
    if (nArgs > 2 || (nArgs == 2 && ppszArgs[1][0] == '-')) {
        std::fprintf(stderr, "usage: %s [EVENT]\n", ppszArgs[0]);
        return 1;
    }
    std::printf("%-50s %12s %12s %10s\n", "worst delay of a healthy modem's packets, ms", "without", "with", "added");
    bool bAll = true;
    for (const ISOLATION_EVENT& stEvent : IsolationEvents())
        if (nArgs == 1 || std::strcmp(ppszArgs[1], stEvent.pszName) == 0)
            bAll = RunApart(stEvent) && bAll;
    return bAll ? 0 : 1;
}
