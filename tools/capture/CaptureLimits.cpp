#include "capture/CaptureLimits.h"

#include <array>
#include <charconv>
#include <span>

namespace
{
struct UNIT
{
    std::string_view strName;
    uint64_t ullFactor;
};
constexpr std::array<UNIT, 4> SIZE_UNITS{{{"K", 1ULL << 10}, {"M", 1ULL << 20}, {"G", 1ULL << 30}, {"T", 1ULL << 40}}};
constexpr std::array<UNIT, 4> TIME_UNITS{{{"s", 1}, {"m", 60}, {"h", 3600}, {"d", 86400}}};
constexpr std::array<UNIT, 1> NO_UNIT{{{"", 1}}};
constexpr uint64_t LONGEST_TIME = 366 * 86400; // s: far below what the clock's type holds

/// A number above 0 with one of the units; false for anything else.
bool Parse(std::string_view strText, std::span<const UNIT> units, uint64_t ullMost, uint64_t& ullValue)
{
    uint64_t ullNumber = 0;
    const char* const pEnd = strText.data() + strText.size();
    const auto [pUnit, error] = std::from_chars(strText.data(), pEnd, ullNumber);
    if (error != std::errc() || ullNumber == 0)
        return false;
    const std::string_view strUnit(pUnit, static_cast<size_t>(pEnd - pUnit));
    for (const UNIT& unit : units) {
        if (unit.strName != strUnit || ullNumber > ullMost / unit.ullFactor)
            continue;
        ullValue = ullNumber * unit.ullFactor;
        return true;
    }
    return false;
}
} // namespace

bool ParseRotation(std::string_view strText, ROTATION& stRotation)
{
    if (uint64_t ullBytes = 0; Parse(strText, SIZE_UNITS, UINT64_MAX, ullBytes)) {
        stRotation = {ullBytes, std::chrono::seconds(0)};
        return true;
    }
    uint64_t ullSeconds = 0;
    if (!Parse(strText, TIME_UNITS, LONGEST_TIME, ullSeconds))
        return false;
    stRotation = {0, std::chrono::seconds(ullSeconds)};
    return true;
}

bool ParseKeep(std::string_view strText, KEEP& stKeep)
{
    KEEP stParsed;
    if (!Parse(strText, SIZE_UNITS, UINT64_MAX, stParsed.ullBytes) &&
        !Parse(strText, NO_UNIT, UINT64_MAX, stParsed.ullFiles))
        return false;
    stKeep = stParsed;
    return true;
}
