#include "client/Stop.h"

#include <atomic>
#include <csignal>

namespace
{
std::atomic<bool> g_bStop = false; // the handler runs on any thread
static_assert(std::atomic<bool>::is_always_lock_free);

void OnStopSignal(int)
{
    g_bStop = true;
}
} // namespace

void CatchStopSignals()
{
    struct sigaction stAction
    {
    };
    stAction.sa_handler = OnStopSignal;
    stAction.sa_flags = static_cast<int>(SA_RESETHAND);
    (void)sigaction(SIGINT, &stAction, nullptr); // valid signal numbers: cannot fail
    (void)sigaction(SIGTERM, &stAction, nullptr);
}

bool StopRequested()
{
    return g_bStop;
}
void ForgetStop()
{
    g_bStop = false;
}
