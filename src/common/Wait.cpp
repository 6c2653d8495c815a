#include "common/Wait.h"

#include <algorithm>
#include <cstdint>
#include <fcntl.h>
#include <unistd.h>

int MsUntil(std::chrono::steady_clock::time_point end)
{
    return MsUntil(end, std::chrono::steady_clock::now());
}

int MsUntil(std::chrono::steady_clock::time_point end, std::chrono::steady_clock::time_point now)
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - now);
    return static_cast<int>(std::max<int64_t>(0, left.count()));
}

size_t WriteAll(int nFd, ByteView bytes)
{
    size_t szWritten = 0;
    while (szWritten < bytes.size()) {
        const ByteView rest = bytes.subspan(szWritten);
        const ssize_t lWritten = RetryOnEintr([&] { return write(nFd, rest.data(), rest.size()); });
        if (lWritten <= 0)
            break;
        szWritten += static_cast<size_t>(lWritten);
    }
    return szWritten;
}

bool SetNonBlocking(int nFd, bool bNonBlocking)
{
    const int nFlags = fcntl(nFd, F_GETFL);
    return nFlags != -1 && fcntl(nFd, F_SETFL, bNonBlocking ? nFlags | O_NONBLOCK : nFlags & ~O_NONBLOCK) != -1;
}

int PollFor(std::span<pollfd> fds, int lTimeoutMs)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(lTimeoutMs);
    int nReady = poll(fds.data(), fds.size(), lTimeoutMs);
    while (nReady == -1 && errno == EINTR)
        nReady = poll(fds.data(), fds.size(), MsUntil(end));
    return nReady;
}
