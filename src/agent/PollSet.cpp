#include "agent/PollSet.h"

#include "common/Wait.h"

#include <algorithm>
#include <cerrno>

void CPollSet::Clear()
{
    m_fds.clear();
    m_abReady.assign(m_abReady.size(), false);
    m_bInvalid = false;
}

void CPollSet::Add(int nFd)
{
    if (nFd < 0) {
        m_bInvalid = true;
        return;
    }
    m_fds.push_back({nFd, POLLIN, 0});
    if (m_abReady.size() <= static_cast<size_t>(nFd))
        m_abReady.resize(static_cast<size_t>(nFd) + 1);
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
        m_abReady[static_cast<size_t>(stFd.fd)] = iReady > 0 && stFd.revents != 0;
    return iReady;
}

bool CPollSet::IsReady(int nFd) const
{
    return nFd >= 0 && static_cast<size_t>(nFd) < m_abReady.size() && m_abReady[static_cast<size_t>(nFd)];
}
