#pragma once

#include "common/Bytes.h"

#include <cerrno>
#include <chrono>
#include <poll.h>
#include <span>

// Waits that signals don't disturb: EINTR says nothing about the descriptor.

/// Makes a system call, and again when a signal interrupted it, up to the given time if there is one.
template <class Call>
auto RetryOnEintr(Call call, std::chrono::steady_clock::time_point end = std::chrono::steady_clock::time_point::max())
{
    auto result = call();
    while (result == -1 && errno == EINTR && std::chrono::steady_clock::now() < end)
        result = call();
    return result;
}

/// Milliseconds until then, rounded up; 0 when it has passed.
int MsUntil(std::chrono::steady_clock::time_point end);
int MsUntil(std::chrono::steady_clock::time_point end, std::chrono::steady_clock::time_point now);

/// Writes as much as goes; gives how much, and errno for the rest.
size_t WriteAll(int nFd, ByteView bytes);

/// Sets or clears O_NONBLOCK; false when that fails.
bool SetNonBlocking(int nFd, bool bNonBlocking);

/// poll for lTimeoutMs, 0 or more. A signal neither ends nor prolongs it.
int PollFor(std::span<pollfd> fds, int lTimeoutMs);
