#include "fleet/FleetTime.h"

#include "capture/CaptureLimits.h"

#include <array>
#include <ctime>
#include <string_view>

namespace
{
constexpr uint64_t NS_PER_SECOND = 1'000'000'000;

/// The rest of a time behind its seconds: ".202Z", "Z" or nothing. Its ns.
std::optional<uint64_t> FractionNs(std::string_view strRest)
{
    uint64_t ullNs = 0;
    if (strRest.starts_with('.')) {
        strRest.remove_prefix(1);
        if (strRest.empty() || strRest.front() == 'Z')
            return std::nullopt;
        for (uint64_t ullUnit = NS_PER_SECOND / 10; !strRest.empty() && strRest.front() != 'Z'; ullUnit /= 10) {
            const char c = strRest.front();
            if (c < '0' || c > '9')
                return std::nullopt;
            ullNs += ullUnit * static_cast<uint64_t>(c - '0');
            strRest.remove_prefix(1);
        }
    }
    return strRest.empty() || strRest == "Z" ? std::optional(ullNs) : std::nullopt;
}

/// A time of this form (strptime), UTC; a fraction of a second and Z may follow.
std::optional<uint64_t> ParseForm(const std::string& strText, const char* pszForm)
{
    tm stTime{};
    const char* pszRest = strptime(strText.c_str(), pszForm, &stTime);
    if (pszRest == nullptr)
        return std::nullopt;
    const auto fraction = FractionNs(pszRest);
    const time_t lSeconds = timegm(&stTime);
    if (!fraction || lSeconds < 0)
        return std::nullopt;
    return static_cast<uint64_t>(lSeconds) * NS_PER_SECOND + *fraction;
}
} // namespace

std::optional<uint64_t> ParseTime(const std::string& strText, uint64_t ullNow)
{
    if (strText == "now")
        return ullNow;
    if (ROTATION stAgo; strText.starts_with('-')) {
        if (!ParseRotation(std::string_view(strText).substr(1), stAgo) || stAgo.ullBytes > 0)
            return std::nullopt;
        const uint64_t ullAgo = static_cast<uint64_t>(stAgo.time.count());
        return ullAgo > ullNow / NS_PER_SECOND ? 0 : ullNow - ullAgo * NS_PER_SECOND;
    }
    for (const char* pszForm : {"%Y-%m-%dT%H:%M:%S", "%Y-%m-%dT%H:%M", "%Y-%m-%d"})
        if (const auto time = ParseForm(strText, pszForm))
            return time;
    return std::nullopt;
}

std::optional<uint64_t> SegmentTime(const std::string& strSegment)
{
    const size_t szNumber = strSegment.rfind('_');
    if (szNumber == std::string::npos || szNumber == 0)
        return std::nullopt;
    const size_t szTime = strSegment.rfind('_', szNumber - 1);
    if (szTime == std::string::npos)
        return std::nullopt;
    return ParseForm(strSegment.substr(szTime + 1, szNumber - szTime - 1), "%Y%m%dT%H%M%S");
}

std::string TimeText(uint64_t ullTime)
{
    const auto lSeconds = static_cast<time_t>(ullTime / NS_PER_SECOND);
    tm stTime{};
    (void)gmtime_r(&lSeconds, &stTime); // fails for years that no clock shows
    std::array<char, 32> szTime{};
    (void)std::strftime(szTime.data(), szTime.size(), "%Y-%m-%dT%H:%M:%SZ", &stTime);
    return szTime.data();
}

std::string AgeText(uint64_t ullTime, uint64_t ullNow)
{
    constexpr struct
    {
        uint64_t ullSeconds; // of one
        uint64_t ullFrom;    // seconds from which on it is used
        const char* pszName;
    } c_astUnit[] = {{86400, 2 * 86400, " d"}, {3600, 2 * 3600, " h"}, {60, 2 * 60, " min"}, {1, 1, " s"}};
    const uint64_t ullAge = ullNow > ullTime ? (ullNow - ullTime) / NS_PER_SECOND : 0;
    for (const auto& stUnit : c_astUnit)
        if (ullAge >= stUnit.ullFrom)
            return std::to_string(ullAge / stUnit.ullSeconds) + stUnit.pszName;
    return "now";
}
