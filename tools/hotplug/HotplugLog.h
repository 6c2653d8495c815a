#pragma once

#include <ostream>
#include <string>

/// Lines for whoever looks after the program: a terminal, or the journal, which adds the time.
class CHotplugLog
{
public:
    explicit CHotplugLog(std::ostream& out) : m_out(out) {}

    void Line(const std::string& strText) { m_out << strText << std::endl; }
    /// A state that lasts: told when it begins or is another one. An empty text: it is over.
    void State(const std::string& strText)
    {
        if (!strText.empty() && strText != m_strState)
            Line(strText);
        m_strState = strText;
    }

private:
    std::ostream& m_out;
    std::string m_strState;
};
