#include "support/NetNs.h"

#include "common/UniqueFd.h"

#include <cstring>
#include <fstream>
#include <net/if.h>
#include <sched.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
/// Without names for the user and its group a user namespace can't create files of its own file systems.
bool UnshareUser()
{
    const std::string strUser = std::to_string(geteuid());
    const std::string strGroup = std::to_string(getegid());
    if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0)
        return false;
    std::ofstream("/proc/self/uid_map") << strUser + " " + strUser + " 1";
    std::ofstream("/proc/self/setgroups") << "deny"; // the kernel asks for it before the next
    std::ofstream("/proc/self/gid_map") << strGroup + " " + strGroup + " 1";
    return true;
}
} // namespace

bool IsolateNetwork()
{
    if (unshare(CLONE_NEWNET) != 0 && !UnshareUser())
        return false;
    const CUniqueFd socketFd(socket(AF_INET, SOCK_DGRAM, 0));
    ifreq stIf{};
    std::strcpy(stIf.ifr_name, "lo");
    stIf.ifr_flags = IFF_UP | IFF_RUNNING;
    return ioctl(socketFd.Get(), SIOCSIFFLAGS, &stIf) == 0;
}
