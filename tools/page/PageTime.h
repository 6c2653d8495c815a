#pragma once

#include <cstdint>

/// Time of a record as the views tell it: ms since 1970, to the microsecond.
inline double PageTime(uint64_t ullNs)
{
    const uint64_t ullUs = ullNs / 1000;
    return static_cast<double>(ullUs) / 1000;
}
