#pragma once

#include <chrono>
#include <cstdint>

using SimClock = std::chrono::steady_clock;
using SimTime = SimClock::time_point;
using SimDuration = SimClock::duration;

constexpr SimTime NEVER = SimTime::max();

constexpr uint64_t UE_TICKS_PER_SECOND = 32768; // rate of the UE's clock
