#include "capture/SegmentNames.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <string_view>

namespace
{
constexpr uint64_t NS_PER_MS = 1'000'000;
constexpr uint64_t MS_PER_SECOND = 1000;
constexpr std::string_view TIME_FORM = "_00000000T000000.000Z_"; // 0: any digit
constexpr size_t NUMBER_DIGITS = 10;

bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

bool HasForm(std::string_view strText, std::string_view strForm)
{
    return std::ranges::equal(strText, strForm,
                              [](char c, char cForm) { return cForm == '0' ? IsDigit(c) : c == cForm; });
}

bool TakeSuffix(std::string_view& strName, std::string_view strSuffix)
{
    const bool bEnds = strName.ends_with(strSuffix);
    strName.remove_suffix(bEnds ? strSuffix.size() : 0);
    return bEnds;
}

/// Whether it is what NewPath puts behind the base, without the suffixes.
bool IsTimeAndNumber(std::string_view strRest)
{
    return strRest.size() >= TIME_FORM.size() + NUMBER_DIGITS &&
           HasForm(strRest.substr(0, TIME_FORM.size()), TIME_FORM) &&
           std::ranges::all_of(strRest.substr(TIME_FORM.size()), IsDigit);
}

std::string TimeText(uint64_t ullMs)
{
    const auto lSeconds = static_cast<time_t>(ullMs / MS_PER_SECOND);
    tm stTime{};
    (void)gmtime_r(&lSeconds, &stTime); // fails for years that no clock shows
    std::array<char, 32> szTime{};
    (void)std::strftime(szTime.data(), szTime.size(), "%Y%m%dT%H%M%S", &stTime);
    std::array<char, 48> szText{};
    (void)std::snprintf(szText.data(), szText.size(), "%s.%03uZ", szTime.data(),
                        static_cast<unsigned int>(ullMs % MS_PER_SECOND));
    return szText.data();
}
} // namespace

CSegmentNames::CSegmentNames(const std::string& strBase)
{
    const std::filesystem::path path(strBase);
    m_strFolder = path.has_parent_path() ? path.parent_path().string() : ".";
    const std::string strName = path.filename();
    std::string_view strShort = strName;
    (void)TakeSuffix(strShort, CAPTURE_SUFFIX);
    m_strBase = strShort;
}

std::string CSegmentNames::NewPath(uint64_t ullTime, uint64_t ullNumber) const
{
    std::array<char, 32> szNumber{};
    (void)std::snprintf(szNumber.data(), szNumber.size(), "%0*llu", static_cast<int>(NUMBER_DIGITS),
                        static_cast<unsigned long long>(ullNumber));
    // A clock that was set back comes to the same time again.
    for (uint64_t ullMs = ullTime / NS_PER_MS;; ++ullMs) {
        std::string strPath =
            m_strFolder + '/' + m_strBase + '_' + TimeText(ullMs) + '_' + szNumber.data() + CAPTURE_SUFFIX;
        std::error_code ignored; // what can't be looked at isn't there
        if (!std::filesystem::exists(strPath, ignored) &&
            !std::filesystem::exists(strPath + COMPRESSED_SUFFIX, ignored))
            return strPath;
    }
}

std::vector<CSegmentNames::SEGMENT> CSegmentNames::List() const
{
    std::vector<SEGMENT> segments;
    std::error_code error; // a folder that can't be read holds nothing for us
    for (std::filesystem::directory_iterator entry(m_strFolder, error), end; !error && entry != end;
         entry.increment(error)) {
        const std::string strFile = entry->path().filename();
        std::string_view strName = strFile;
        const bool bCompressed = TakeSuffix(strName, COMPRESSED_SUFFIX);
        if (!TakeSuffix(strName, CAPTURE_SUFFIX) || !strName.starts_with(m_strBase) ||
            !IsTimeAndNumber(strName.substr(m_strBase.size())))
            continue;
        std::error_code gone; // deleted meanwhile
        const uintmax_t ullBytes = entry->file_size(gone);
        segments.push_back({entry->path(), gone ? 0 : ullBytes, bCompressed});
    }
    std::ranges::sort(segments, {}, &SEGMENT::strPath);
    return segments;
}
