#include "common/ConfigCheck.h"

#include "common/Config.h"
#include "common/OwnedFile.h"

#include <algorithm>
#include <map>
#include <numeric>
#include <unistd.h>

namespace
{
/// Characters to change, put in or leave out to make one text the other (Levenshtein).
size_t Distance(std::string_view one, std::string_view other)
{
    std::vector<size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < one.size(); ++i) {
        size_t szDiagonal = row[0]++;
        for (size_t k = 0; k < other.size(); ++k) {
            const size_t szChanged = szDiagonal + (one[i] == other[k] ? 0 : 1);
            szDiagonal = row[k + 1];
            row[k + 1] = std::min({szChanged, row[k] + 1, row[k + 1] + 1});
        }
    }
    return row.back();
}

/// The known key that was probably meant, as the end of a sentence; empty when none is near.
std::string Meant(const std::string& strKey)
{
    const auto distance = [&](std::string_view known) { return Distance(strKey, known); };
    const std::vector<std::string_view> keys = CConfig::Keys();
    const auto nearest = std::ranges::min_element(keys, {}, distance);
    return distance(*nearest) > strKey.size() / 2 ? "" : "; \"" + std::string(*nearest) + "\" is known";
}

class CConfigCheck
{
public:
    std::vector<CONFIG_FINDING> Run(const std::string& strText)
    {
        size_t szLine = 1;
        for (size_t szBegin = 0; szBegin < strText.size(); ++szLine) {
            const size_t szEnd = std::min(strText.find('\n', szBegin), strText.size());
            CLineFindings out(m_findings, szLine);
            CheckLine(strText.substr(szBegin, szEnd - szBegin), szLine, out);
            if (szEnd == strText.size())
                out.Warning("the last line has no newline");
            szBegin = szEnd + 1;
        }
        CheckPorts();
        std::ranges::stable_sort(m_findings, {}, &CONFIG_FINDING::szLine);
        return std::move(m_findings);
    }

private:
    struct ITEM
    {
        size_t szLine;
        std::string strText;
    };

    void CheckLine(std::string strLine, size_t szLine, CLineFindings& out)
    {
        if (strLine.find('\0') != std::string::npos)
            out.Warning("a NUL byte; what follows it within a kilobyte isn't read");
        std::erase_if(strLine, [](char c) { return c == '\t' || c == ' ' || c == '\r' || c == '\0'; });
        if (strLine.empty() || strLine.starts_with('#'))
            return;
        const size_t szEqual = strLine.find('=');
        if (szEqual == std::string::npos || szEqual == 0) {
            out.Warning(szEqual == 0 ? "no key before \"=\"; the line is passed over"
                                     : "no \"=\"; the line is passed over");
            return;
        }
        CheckKey(strLine.substr(0, szEqual), strLine.substr(szEqual + 1), szLine, out);
    }

    void CheckKey(const std::string& strKey, const std::string& strValue, size_t szLine, CLineFindings& out)
    {
        const CONFIG_FORM* const pstForm = CConfig::FormOf(strKey);
        if (pstForm == nullptr) {
            out.Error("unknown key \"" + strKey + "\"" + Meant(strKey));
            return;
        }
        if (strValue.empty()) {
            out.Warning(strKey + " has no value; the line is passed over");
            return;
        }
        const auto [before, bFirst] = m_mapLine.try_emplace(strKey, szLine);
        if (!bFirst && !pstForm->bAdds)
            out.Warning(strKey + " stands in line " + std::to_string(before->second) + " already; this one counts");
        before->second = szLine;
        CheckValue(*pstForm, strKey, strValue, out);
        KeepPorts(strKey, strValue, szLine);
    }

    void KeepPorts(const std::string& strKey, const std::string& strValue, size_t szLine)
    {
        std::vector<std::string> items;
        (void)CConfig::Split(strValue, items, ";"); // always true
        if (strKey == "ChannelName")
            for (const std::string& strName : items)
                m_names.push_back({szLine, strName});
        if (strKey == "ChannelPort")
            m_szPorts += items.size();
        std::string strLine = strKey + "=" + strValue;
        if (strKey == "ChannelNameEnable")
            (void)m_cfg.ParseLine(strLine);
    }

    /// The configured ports; they mean nothing while a device monitor tells the ports.
    void CheckPorts()
    {
        if (!m_cfg.GetChannelNameEnable() || m_names.empty())
            return;
        for (const ITEM& stName : m_names)
            if (access(stName.strText.c_str(), F_OK) != 0)
                CLineFindings(m_findings, stName.szLine).Warning(stName.strText + " doesn't exist now");
        if (m_szPorts < m_names.size())
            CLineFindings(m_findings, m_names[m_szPorts].szLine)
                .Error("ChannelPort has numbers for " + std::to_string(m_szPorts) + " of " +
                       std::to_string(m_names.size()) + " names of ChannelName; the agent would not start");
    }

    std::vector<CONFIG_FINDING> m_findings;
    std::map<std::string, size_t> m_mapLine; // where a key stood last
    std::vector<ITEM> m_names;
    size_t m_szPorts = 0;
    CConfig m_cfg; // for whether names count
};
} // namespace

std::vector<CONFIG_FINDING> CheckConfig(const std::string& strText)
{
    return CConfigCheck().Run(strText);
}

std::optional<std::string> ReadConfigText(const std::string& strPath)
{
    const OwnedFile pFile(fopen(strPath.c_str(), "r"));
    if (!pFile)
        return std::nullopt;
    std::string strText;
    std::array<char, 4096> acChunk{};
    for (size_t szRead = 0; (szRead = fread(acChunk.data(), 1, acChunk.size(), pFile.get())) > 0;)
        strText.append(acChunk.data(), szRead);
    return ferror(pFile.get()) != 0 ? std::nullopt : std::optional(strText);
}

std::string FindingText(const std::string& strFile, const CONFIG_FINDING& stFinding)
{
    return strFile + ":" + std::to_string(stFinding.szLine) + (stFinding.bError ? ": error: " : ": warning: ") +
           stFinding.strText;
}
