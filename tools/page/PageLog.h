#pragma once

#include <mutex>
#include <ostream>
#include <string>

/// Lines for whoever looks after the program. From any thread.
class CPageLog
{
public:
    explicit CPageLog(std::ostream& out) : m_out(out) {}
    void Line(const std::string& strText)
    {
        const std::lock_guard guard(m_lock);
        m_out << "vex-page: " << strText << std::endl;
    }

private:
    std::mutex m_lock; // over the stream
    std::ostream& m_out;
};
