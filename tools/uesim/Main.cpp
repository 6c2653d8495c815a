#include "uesim/Simulator.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <iostream>

namespace
{
std::atomic<bool> g_bStop = false;
CSimulator* g_pSimulator = nullptr; // set before the handlers

void OnStop(int)
{
    g_bStop = true;
}
void OnToggle(int)
{
    g_pSimulator->ToggleAttached();
}

/// Signals arrive only while the loop waits, so none is missed between a look at the flags and the wait.
sigset_t CatchSignals()
{
    sigset_t stBlocked;
    sigset_t stWaitMask;
    sigemptyset(&stBlocked);
    for (const int nSignal : {SIGINT, SIGTERM, SIGUSR1})
        sigaddset(&stBlocked, nSignal);
    (void)sigprocmask(SIG_BLOCK, &stBlocked, &stWaitMask);
    (void)std::signal(SIGINT, OnStop);
    (void)std::signal(SIGTERM, OnStop);
    (void)std::signal(SIGUSR1, OnToggle);
    (void)std::signal(SIGPIPE, SIG_IGN);
    return stWaitMask;
}
} // namespace

int main(int nArgs, char** ppszArgs)
{
    UESIM_OPTIONS stOptions;
    int nStatus = 0;
    if (!ParseOptions(nArgs, ppszArgs, stOptions, nStatus))
        return nStatus;
    CSimLog log;
    log.SetQuiet(stOptions.bQuiet);
    log.SetVerbose(stOptions.bVerbose);
    if (!stOptions.strLog.empty() && !log.OpenFile(stOptions.strLog)) {
        std::cerr << "vex-uesim: can't write " << stOptions.strLog << ": " << std::strerror(errno) << "\n";
        return 1;
    }
    CConfig config;
    (void)config.LoadConfigFile(stOptions.strConfig.c_str()); // the command line has checked that the file is there
    CReplay replay;
    std::string strError;
    const bool bReplay = !stOptions.strReplay.empty();
    const bool bLoaded = !bReplay || replay.Load(stOptions, strError);
    CSimulator simulator(stOptions, bReplay ? replay.Plan().Config() : config, log, bReplay ? &replay : nullptr);
    if (!bLoaded || !simulator.Start(strError)) {
        std::cerr << "vex-uesim: " << strError << "\n";
        return 1;
    }
    g_pSimulator = &simulator;
    const sigset_t stWaitMask = CatchSignals();
    std::cerr << replay.Gaps();
    std::cout << simulator.ChannelLines() << std::flush;
    simulator.Run(g_bStop, &stWaitMask);
    std::cout << (stOptions.bJson ? TotalsJson(simulator) + "\n" : TotalsText(simulator)) << std::flush;
    if (!bReplay)
        return 0;
    std::cerr << replay.Report();
    return replay.IsIncomplete() ? 1 : 0;
}
