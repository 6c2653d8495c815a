#pragma once

#include <chrono>
#include <cstdint>
#include <iosfwd>
#include <mutex>
#include <string>

struct CAPTURE_TOTALS
{
    uint64_t ullRecords = 0; // kept
    uint64_t ullBytes = 0;   // of the files
    uint64_t ullLost = 0;
};

/// What the user sees on standard error: lines, and below them on a terminal the progress. From any thread.
class CProgress
{
public:
    enum class STYLE
    {
        LINES,
        TERMINAL,
        PROBLEMS, // those alone: Wireshark shows whatever its capture program says as an error
    };
    /// The stream outlives it.
    CProgress(std::ostream& errors, STYLE enStyle) : m_errors(errors), m_enStyle(enStyle) {}

    /// What the user may have to do something about.
    void Problem(const std::string& strText);
    /// What is as it should be.
    void Info(const std::string& strText);
    /// Brings both up to date once a second at most, however often it is called: a line for records that were lost
    /// since, and the progress.
    void Show(const CAPTURE_TOTALS& stTotals, std::chrono::steady_clock::time_point now);
    /// The last line, of all that was.
    void End(const CAPTURE_TOTALS& stTotals);

private:
    void PutLine(const std::string& strText);
    void TellLost(uint64_t ullLost);

    std::mutex m_Lock; // over the stream and all below
    std::ostream& m_errors;
    const STYLE m_enStyle;
    bool m_bProgress = false; // the terminal's last line is one
    uint64_t m_ullToldLost = 0;
    uint64_t m_ullShownBytes = 0;
    std::chrono::steady_clock::time_point m_shown{};
};
