#include "agent/PollSet.h"

#include "common/Wait.h"

#include <algorithm>
#include <cerrno>

void CPollSet::Clear()
{
    m_fds.clear();
    std::ranges::fill(m_vecEvents, short{0});
    m_bInvalid = false;
}

void CPollSet::Add(int nFd, short sEvents)
{
    if (nFd < 0) {
        m_bInvalid = true;
        return;
    }
    m_fds.push_back({nFd, sEvents, 0});
    if (m_vecEvents.size() <= static_cast<size_t>(nFd))
        m_vecEvents.resize(static_cast<size_t>(nFd) + 1);
}

int CPollSet::Wait(int iTimeOutMs)
{
    const int iReady = m_bInvalid ? 0 : PollFor(m_fds, iTimeOutMs);
    const auto isClosed = [](const pollfd& stFd) { return (stFd.revents & POLLNVAL) != 0; };
    if (m_bInvalid || (iReady > 0 && std::ranges::any_of(m_fds, isClosed))) {
        errno = EBADF;
        return -1;
    }
    for (const pollfd& stFd : m_fds)
        m_vecEvents[static_cast<size_t>(stFd.fd)] = iReady > 0 ? stFd.revents : short{0};
    return iReady;
}

int CPollSet::Events(int nFd) const
{
    return nFd >= 0 && static_cast<size_t>(nFd) < m_vecEvents.size() ? m_vecEvents[static_cast<size_t>(nFd)] : 0;
}
