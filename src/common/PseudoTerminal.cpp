#include "common/PseudoTerminal.h"

#include <array>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <termios.h>

namespace
{
bool MakeRaw(int nFd)
{
    termios stTermios{};
    if (tcgetattr(nFd, &stTermios) != 0)
        return false;
    cfmakeraw(&stTermios);
    return tcsetattr(nFd, TCSANOW, &stTermios) == 0;
}

/// No answer counts as none: the next read tells.
short EventsOf(const CUniqueFd& master)
{
    pollfd stPoll{master.Get(), POLLIN, 0};
    (void)poll(&stPoll, 1, 0);
    return stPoll.revents;
}
} // namespace

bool PSEUDO_TERMINAL::IsUsed() const
{
    return (EventsOf(master) & POLLHUP) == 0;
}

bool PSEUDO_TERMINAL::HasInput() const
{
    return (EventsOf(master) & POLLIN) != 0;
}

std::optional<PSEUDO_TERMINAL> OpenPseudoTerminal()
{
    CUniqueFd master(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    std::array<char, 128> acName{};
    if (!master.IsOpen() || grantpt(master.Get()) != 0 || unlockpt(master.Get()) != 0 ||
        ptsname_r(master.Get(), acName.data(), acName.size()) != 0)
        return std::nullopt;
    // Opened and closed once, so that the master knows from the start that nobody is there.
    const CUniqueFd slave(open(acName.data(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (!slave.IsOpen() || !MakeRaw(slave.Get()))
        return std::nullopt;
    return PSEUDO_TERMINAL{std::move(master), acName.data()};
}
