#include "page/MetricsText.h"

#include <array>
#include <cstdio>

namespace
{
/// As a label's value stands between quotation marks.
std::string Escaped(const std::string& strValue)
{
    std::string strText;
    for (const char c : strValue) {
        if (c == '\\' || c == '"')
            strText += '\\';
        strText += c == '\n' ? "\\n" : std::string(1, c);
    }
    return strText;
}
} // namespace

void CMetricsText::Begin(const char* pszName, const char* pszType, const char* pszHelp)
{
    m_strName = pszName;
    m_strText += "# HELP " + m_strName + ' ' + pszHelp + "\n# TYPE " + m_strName + ' ' + pszType + '\n';
}

void CMetricsText::Value(LABELS labels, double dValue)
{
    m_strText += m_strName;
    for (const char* pszLead = "{"; const auto& [pszLabel, strValue] : labels) {
        m_strText += std::string(pszLead) + pszLabel + "=\"" + Escaped(strValue) + '"';
        pszLead = ",";
    }
    std::array<char, 40> szValue{};
    (void)std::snprintf(szValue.data(), szValue.size(), "%.17g", dValue);
    m_strText += (labels.size() > 0 ? "} " : " ") + std::string(szValue.data()) + '\n';
}
