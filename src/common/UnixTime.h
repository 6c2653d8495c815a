#pragma once

#include <cstdint>
#include <time.h>

/// CLOCK_REALTIME in ns since 1970.
inline uint64_t UnixTimeNs()
{
    timespec stNow{};
    clock_gettime(CLOCK_REALTIME, &stNow);
    return static_cast<uint64_t>(stNow.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(stNow.tv_nsec);
}
