#include "capture/Progress.h"

#include <array>
#include <cstdio>
#include <ostream>

namespace
{
constexpr std::chrono::seconds PERIOD{1};
constexpr double MEGABYTE = 1e6;
constexpr const char* ERASE_LINE = "\r\x1b[K";
} // namespace

void CProgress::Problem(const std::string& strText)
{
    const std::lock_guard guard(m_Lock);
    PutLine(strText);
}

void CProgress::Info(const std::string& strText)
{
    if (m_enStyle != STYLE::PROBLEMS)
        Problem(strText);
}

void CProgress::Show(const CAPTURE_TOTALS& stTotals, std::chrono::steady_clock::time_point now)
{
    const std::lock_guard guard(m_Lock);
    if (now - m_shown < PERIOD)
        return;
    TellLost(stTotals.ullLost);
    const std::chrono::duration<double> passed = now - m_shown;
    const bool bFirst = m_shown == std::chrono::steady_clock::time_point{};
    const double dBytes = static_cast<double>(stTotals.ullBytes - m_ullShownBytes);
    m_shown = now;
    m_ullShownBytes = stTotals.ullBytes;
    if (m_enStyle != STYLE::TERMINAL)
        return;
    std::array<char, 128> szText{};
    (void)std::snprintf(
        szText.data(), szText.size(), "%llu records, %.1f MB, %.2f MB/s, %llu lost",
        static_cast<unsigned long long>(stTotals.ullRecords), static_cast<double>(stTotals.ullBytes) / MEGABYTE,
        bFirst ? 0.0 : dBytes / passed.count() / MEGABYTE, static_cast<unsigned long long>(stTotals.ullLost));
    m_errors << ERASE_LINE << szText.data() << std::flush;
    m_bProgress = true;
}

void CProgress::End(const CAPTURE_TOTALS& stTotals)
{
    {
        const std::lock_guard guard(m_Lock);
        TellLost(stTotals.ullLost);
    }
    Info(std::to_string(stTotals.ullRecords) + " records, " + std::to_string(stTotals.ullBytes) + " bytes, " +
         std::to_string(stTotals.ullLost) + " lost");
}

void CProgress::PutLine(const std::string& strText)
{
    if (m_bProgress)
        m_errors << ERASE_LINE;
    m_bProgress = false;
    m_errors << "vex-capture: " << strText << std::endl;
}

void CProgress::TellLost(uint64_t ullLost)
{
    if (ullLost == m_ullToldLost)
        return;
    PutLine(std::to_string(ullLost - m_ullToldLost) + " records lost, " + std::to_string(ullLost) + " in all");
    m_ullToldLost = ullLost;
}
