#include "support/NetNs.h"

#include "common/UniqueFd.h"

#include <cstring>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

bool IsolateNetwork()
{
    if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0)
        return false;
    const CUniqueFd socketFd(socket(AF_INET, SOCK_DGRAM, 0));
    ifreq stIf{};
    std::strcpy(stIf.ifr_name, "lo");
    stIf.ifr_flags = IFF_UP | IFF_RUNNING;
    return ioctl(socketFd.Get(), SIOCSIFFLAGS, &stIf) == 0;
}
