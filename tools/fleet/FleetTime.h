#pragma once

#include <cstdint>
#include <optional>
#include <string>

// Times are CLOCK_REALTIME in ns.

/// What a user calls a time: "2026-11-22T12:05:02Z" (UTC; seconds may have a fraction, time and seconds may be left
/// out),
/// "-90m" (that long before now; s, m, h, d) or "now". Nothing for anything else.
std::optional<uint64_t> ParseTime(const std::string& strText, uint64_t ullNow);

/// When the first record of a segment was, as the segment's name tells (<base>_20261122T115029.202Z_0000001474).
std::optional<uint64_t> SegmentTime(const std::string& strSegment);

/// "2026-11-22T12:05:02Z".
std::string TimeText(uint64_t ullTime);
/// "4 s", "12 min", "3 h", "5 d": how long ago a time was; "now" for what is to come.
std::string AgeText(uint64_t ullTime, uint64_t ullNow);
