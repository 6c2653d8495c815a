#pragma once

#include <poll.h>
#include <vector>

/// Descriptors that one thread waits on; of any number.
class CPollSet
{
public:
    void Clear();
    /// Waits for something to read, or for other events of poll. A negative descriptor names nothing that could be
    /// waited for: Wait fails then.
    void Add(int nFd, short sEvents = POLLIN);
    /// How many are ready; 0 when the time ran out, which signals don't change; -1, with errno, on failure. One that
    /// isn't open is a failure of the whole wait (EBADF). A closed or broken connection counts as ready.
    int Wait(int iTimeOutMs);
    /// Whether the last wait found it ready, for something other than writing.
    bool IsReady(int nFd) const { return (Events(nFd) & ~POLLOUT) != 0; }
    /// Whether the last wait found that it takes bytes, or that it never will again.
    bool IsWritable(int nFd) const { return (Events(nFd) & (POLLOUT | POLLERR | POLLHUP)) != 0; }

private:
    int Events(int nFd) const;

    std::vector<pollfd> m_fds;
    std::vector<short> m_vecEvents; // by descriptor
    bool m_bInvalid = false;
};
