#include "agent/ServiceNotify.h"

#include "common/UniqueFd.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <sys/socket.h>
#include <sys/un.h>

namespace
{
std::string Environment(const char* pszName)
{
    const char* const pszValue = std::getenv(pszName);
    return pszValue ? pszValue : "";
}

std::optional<uint64_t> Number(const std::string& strText)
{
    uint64_t ullNumber = 0;
    const char* const pEnd = strText.data() + strText.size();
    const auto [pBehind, enError] = std::from_chars(strText.data(), pEnd, ullNumber);
    return enError == std::errc() && pBehind == pEnd ? std::optional(ullNumber) : std::nullopt;
}
} // namespace

bool NotifyService(const std::string& strState)
{
    const std::string strPath = Environment("NOTIFY_SOCKET");
    sockaddr_un stAddress{};
    if (strPath.size() < 2 || strPath.size() > sizeof(stAddress.sun_path) || (strPath[0] != '/' && strPath[0] != '@'))
        return false;
    stAddress.sun_family = AF_UNIX;
    std::ranges::copy(strPath, stAddress.sun_path);
    if (strPath[0] == '@')
        stAddress.sun_path[0] = '\0'; // an abstract name
    const auto ulLength = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + strPath.size());
    const CUniqueFd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    return sendto(fd.Get(), strState.data(), strState.size(), MSG_NOSIGNAL,
                  reinterpret_cast<const sockaddr*>(&stAddress), ulLength) == static_cast<ssize_t>(strState.size());
}

CWatchdog::CWatchdog()
{
    const auto interval = Number(Environment("WATCHDOG_USEC"));
    const std::string strPid = Environment("WATCHDOG_PID");
    if (!interval || *interval == 0 || (!strPid.empty() && strPid != std::to_string(getpid())))
        return;
    m_interval = std::chrono::microseconds(*interval / 2);
    m_next = TIME::min(); // at once
}

void CWatchdog::Ping(TIME now)
{
    if (now < m_next)
        return;
    (void)NotifyService("WATCHDOG=1"); // the next one is as good
    m_next = now + m_interval;
}
