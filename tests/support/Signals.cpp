#include "support/Signals.h"

#include "support/WaitFor.h"

#include <csignal>
#include <cstdlib>

namespace
{
std::atomic<int> g_nHandled = 0;

void Handle(int)
{
    ++g_nHandled;
}
} // namespace

CSignals::CSignals(pthread_t target)
{
    struct sigaction stAction = {};
    stAction.sa_handler = Handle;
    if (sigaction(SIGUSR1, &stAction, nullptr) != 0)
        std::abort();
    m_thread = std::thread([this, target] {
        for (; m_bRun; std::this_thread::sleep_for(std::chrono::milliseconds(1)))
            (void)pthread_kill(target, SIGUSR1);
    });
}

CSignals::~CSignals()
{
    m_bRun = false;
    m_thread.join();
}

bool CSignals::WaitForMore(int nSignals)
{
    return WaitFor([nEnough = g_nHandled + nSignals] { return g_nHandled >= nEnough; });
}

int CSignals::Count()
{
    return g_nHandled;
}
