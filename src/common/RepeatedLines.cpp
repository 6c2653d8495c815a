#include "common/RepeatedLines.h"

#include <algorithm>
#include <utility>

namespace
{
std::string_view WithoutStamp(const LOG_LINE& stLine)
{
    const std::string_view text = stLine.strText;
    return text.substr(std::min(LOG_LINE::STAMP_LEN, text.size()));
}
} // namespace

void CRepeatedLines::Add(LOG_LINE stLine, TIME now)
{
    if (now >= m_End || WithoutStamp(stLine) != WithoutStamp(m_stLast)) {
        Flush();
        m_ulCount = 0;
        m_End = now + SPAN;
    }
    m_stLast = std::move(stLine);
    if (++m_ulCount <= MOST)
        m_write(m_stLast.strText);
    else
        ++m_ulHeld;
}

void CRepeatedLines::Flush()
{
    if (m_ulHeld == 0)
        return;
    const std::string_view text = m_stLast.strText;
    std::string strLine(text.substr(0, m_stLast.szHead)); // the time of the last one
    strLine += "... and " + std::to_string(std::exchange(m_ulHeld, 0)) + " more of: ";
    strLine += text.substr(m_stLast.szHead);
    m_write(strLine);
}
