#pragma once

#include <cstdint>
#include <string>
#include <vector>

// What the values of the configuration file look like, for the check of a file. The agent itself takes whatever
// stands there (CConfig::ParseLine).

/// One thing about a configuration file that its author should know.
struct CONFIG_FINDING
{
    size_t szLine = 0;   // from 1
    bool bError = false; // not understood: an unknown key, a number that can't be read; else a warning
    std::string strText;
};

/// The findings about one line.
class CLineFindings
{
public:
    CLineFindings(std::vector<CONFIG_FINDING>& findings, size_t szLine) : m_findings(findings), m_szLine(szLine) {}
    void Error(const std::string& strText) { m_findings.push_back({m_szLine, true, strText}); }
    void Warning(const std::string& strText) { m_findings.push_back({m_szLine, false, strText}); }

private:
    std::vector<CONFIG_FINDING>& m_findings;
    size_t m_szLine;
};

/// The form of a key's value.
struct CONFIG_FORM
{
    /// What else is asked of the value, or of an item of a list; with the numbers of the format.
    using ITEM_CHECK = void (*)(const std::string& strItem, const std::vector<uint32_t>& numbers, CLineFindings& out);

    const char* pszFormat = nullptr; // for ScanNumbers, of the value or of each item; null: not only numbers
    ITEM_CHECK pfnItem = nullptr;
    int64_t llLow = INT64_MIN; // of the value's first number, both ends included
    int64_t llHigh = INT64_MAX;
    bool bList = false; // items joined by ";"
    bool bAdds = false; // a further line adds to the list; else the last line counts
    size_t szCount = 0; // of a list's items; 0: any
};

/// Looks at a value, blanks taken out, that isn't empty.
void CheckValue(const CONFIG_FORM& stForm, const std::string& strKey, const std::string& strValue, CLineFindings& out);

namespace config_form
{
constexpr CONFIG_FORM Number(int64_t llLow, int64_t llHigh)
{
    return {.pszFormat = "%d", .llLow = llLow, .llHigh = llHigh};
}

void CheckAddress(const std::string& strItem, const std::vector<uint32_t>& numbers, CLineFindings& out);
void CheckNetRange(const std::string& strItem, const std::vector<uint32_t>& numbers, CLineFindings& out);
void CheckSocketPath(const std::string& strItem, const std::vector<uint32_t>& numbers, CLineFindings& out);
void CheckLink(const std::string& strItem, const std::vector<uint32_t>& numbers, CLineFindings& out);
void CheckRange(const std::string& strItem, const std::vector<uint32_t>& numbers, CLineFindings& out);
void CheckOsaRow(const std::string& strItem, const std::vector<uint32_t>& numbers, CLineFindings& out);
void CheckLayerRow(const std::string& strItem, const std::vector<uint32_t>& numbers, CLineFindings& out);
void CheckIdSet(const std::string& strItem, const std::vector<uint32_t>& numbers, CLineFindings& out);
void CheckPair(const std::string& strItem, const std::vector<uint32_t>& numbers, CLineFindings& out);

constexpr CONFIG_FORM TEXT{};
constexpr CONFIG_FORM FLAG = Number(0, 1);
constexpr CONFIG_FORM MILLISECONDS = Number(0, 60'000);
constexpr CONFIG_FORM LAYOUT_BYTES = Number(0, UINT16_MAX);
constexpr CONFIG_FORM VERSION{.pszFormat = "%d.%d.%d"};
constexpr CONFIG_FORM ADDRESS{.pfnItem = CheckAddress};
constexpr CONFIG_FORM SOCKET_PATH{.pfnItem = CheckSocketPath};
constexpr CONFIG_FORM NETS{.pfnItem = CheckNetRange, .bList = true, .bAdds = true};
constexpr CONFIG_FORM NAMES{.bList = true, .bAdds = true};
constexpr CONFIG_FORM PORT_NUMBERS{.pszFormat = "%u", .llLow = 0, .bList = true, .bAdds = true};
constexpr CONFIG_FORM LINKS{.pfnItem = CheckLink, .bList = true, .bAdds = true};
constexpr CONFIG_FORM TEXTS{.bList = true};
constexpr CONFIG_FORM IDS{.pszFormat = "0x%x", .bList = true};
constexpr CONFIG_FORM TWO_IDS{.pszFormat = "0x%x", .bList = true, .szCount = 2};
constexpr CONFIG_FORM RANGES{.pszFormat = "{0x%x,0x%x}", .pfnItem = CheckRange, .bList = true, .bAdds = true};
constexpr CONFIG_FORM ID_PAIRS{.pszFormat = "{0x%x,0x%x}", .bList = true, .bAdds = true};
constexpr CONFIG_FORM OSA_ROWS{
    .pszFormat = "%d-{0x%x-0x%x}:{%d,%d}", .pfnItem = CheckOsaRow, .bList = true, .bAdds = true};
constexpr CONFIG_FORM LAYER_ROWS{.pfnItem = CheckLayerRow, .bList = true};
constexpr CONFIG_FORM ID_SET{.pfnItem = CheckIdSet, .bList = true, .bAdds = true};
constexpr CONFIG_FORM Pairs(size_t szCount)
{
    return {.pszFormat = "{%d,%d}", .pfnItem = CheckPair, .bList = true, .szCount = szCount};
}
} // namespace config_form
