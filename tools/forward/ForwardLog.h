#pragma once

#include <map>
#include <ostream>
#include <string>

/// Lines for whoever looks after the program: a terminal, or the journal, which adds the time. For one thread.
class CForwardLog
{
public:
    explicit CForwardLog(std::ostream& out) : m_out(out) {}

    void Line(const std::string& strText) { m_out << "vex-forward: " << strText << std::endl; }
    /// A state of this topic that lasts: told when it begins or is another one. An empty text: it is over.
    void State(const std::string& strTopic, const std::string& strText)
    {
        std::string& strTold = m_mapStates[strTopic];
        if (!strText.empty() && strText != strTold)
            Line(strText);
        strTold = strText;
    }

private:
    std::ostream& m_out;
    std::map<std::string, std::string> m_mapStates;
};
