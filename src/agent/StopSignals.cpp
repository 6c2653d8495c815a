#include "agent/StopSignals.h"

#include "agent/ClientServer.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <unistd.h>

namespace
{
constexpr timespec END_LIMIT{1, 900'000'000}; // so that a run ends within 2 s

std::atomic<CClientServer*> g_pClients = nullptr;
std::atomic<bool> g_bStopping = false;
timer_t g_hTimer{};
bool g_bTimer = false;

// The handlers: only calls that are safe there.

void OnStop(int)
{
    const int iError = errno;
    if (!g_bStopping.exchange(true)) {
        const itimerspec stLimit{{}, END_LIMIT};
        if (g_bTimer)
            (void)timer_settime(g_hTimer, 0, &stLimit, nullptr);
        g_pClients.load()->Stop();
    }
    errno = iError;
}

void OnLimit(int)
{
    static constexpr char LINE[] = "vex-agent: the end took too long, the log may lack its last lines\n";
    (void)!write(STDERR_FILENO, LINE, sizeof(LINE) - 1); // whether it arrives or not, the process ends here
    _exit(EXIT_FAILURE);
}

void Handle(int nSignal, void (*pfn)(int))
{
    struct sigaction stAction = {};
    stAction.sa_handler = pfn;
    stAction.sa_flags = SA_RESTART;
    (void)sigaction(nSignal, &stAction, nullptr); // fails for an unknown signal only
}
} // namespace

void StopOnSignals(CClientServer& clients)
{
    g_pClients = &clients;
    sigevent stEvent = {};
    stEvent.sigev_notify = SIGEV_SIGNAL;
    stEvent.sigev_signo = SIGALRM;
    g_bTimer = timer_create(CLOCK_MONOTONIC, &stEvent, &g_hTimer) == 0;
    Handle(SIGALRM, OnLimit);
    Handle(SIGTERM, OnStop);
    Handle(SIGINT, OnStop);
}
