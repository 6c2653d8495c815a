#include "client/Stop.h"

#include <csignal>

namespace
{
volatile std::sig_atomic_t g_bStop = 0;

void OnStopSignal(int)
{
    g_bStop = 1;
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
    return g_bStop != 0;
}
void ForgetStop()
{
    g_bStop = 0;
}
