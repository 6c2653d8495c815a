#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <string_view>

/// One line for the log.
struct LOG_LINE
{
    static constexpr size_t STAMP_LEN = 23; // characters of the time stamp, which stands first

    std::string strText;       // the whole line, with its end
    size_t szHead = STAMP_LEN; // length of the time stamp and the tag of its class
};

/// Keeps a line that comes again and again from filling the log: of lines that are alike but for their time stamp, one
/// right behind the other, 100 of a second are passed on; the rest is told as a count, in one line of the same class,
/// when the second is over, another line comes or the log ends. For one thread, which tells the time.
class CRepeatedLines
{
public:
    using TIME = std::chrono::steady_clock::time_point;
    static constexpr unsigned int MOST = 100;
    static constexpr std::chrono::seconds SPAN{1};

    /// write takes each line that is passed on.
    explicit CRepeatedLines(std::function<void(std::string_view)> write) : m_write(std::move(write)) {}

    void Add(LOG_LINE stLine, TIME now);
    /// When Flush is due; the end of time when nothing is held back.
    TIME NextTime() const { return m_ulHeld > 0 ? m_End : TIME::max(); }
    /// Tells how many lines were held back, if any.
    void Flush();

private:
    std::function<void(std::string_view)> m_write;
    LOG_LINE m_stLast;          // the latest of those that are alike
    TIME m_End = TIME::min();   // of their second
    unsigned int m_ulCount = 0; // of them in this second
    unsigned int m_ulHeld = 0;  // of these, not passed on
};
