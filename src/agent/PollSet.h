#pragma once

#include <poll.h>
#include <vector>

/// Descriptors that one thread waits on for reading; of any number.
class CPollSet
{
public:
    void Clear();
    /// A negative descriptor names nothing that could be waited for: Wait fails then.
    void Add(int nFd);
    /// How many are ready; 0 when the time ran out, which signals don't change; -1, with errno, on failure. One that
    /// isn't open is a failure of the whole wait (EBADF). A closed or broken connection counts as ready.
    int Wait(int iTimeOutMs);
    /// Whether the last wait found it ready.
    bool IsReady(int nFd) const;

private:
    std::vector<pollfd> m_fds;
    std::vector<bool> m_abReady; // by descriptor
    bool m_bInvalid = false;
};
