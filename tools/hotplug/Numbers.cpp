#include "hotplug/Numbers.h"

#include <algorithm>
#include <charconv>

namespace
{
constexpr uint32_t BLOCK = 100; // port numbers from one modem to the next
constexpr uint32_t HIGHEST = UINT32_MAX / BLOCK - 1;
constexpr const char* HEAD =
    "# Numbers of modems by the path of their USB device: the ports of modem n are 100 n + 1 to + 4.\n";
} // namespace

std::optional<CNumbers> CNumbers::Parse(std::string_view text, std::string& strError)
{
    CNumbers numbers;
    for (size_t szLine = 1; !text.empty(); ++szLine) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        if (line.empty() || line.front() == '#')
            continue;
        uint32_t ulModem = 0;
        const char* const pEnd = line.data() + line.size();
        const auto stResult = std::from_chars(line.data(), pEnd, ulModem);
        const bool bGood = stResult.ec == std::errc() && ulModem >= 1 && ulModem <= HIGHEST &&
                           pEnd - stResult.ptr > 1 && *stResult.ptr == ' ' && !numbers.IsTaken(ulModem);
        if (!bGood || !numbers.m_byPath.emplace(std::string(stResult.ptr + 1, pEnd), ulModem).second) {
            strError = "line " + std::to_string(szLine) + " is no number of its own with a path of its own";
            return std::nullopt;
        }
    }
    return numbers;
}

std::string CNumbers::Text() const
{
    std::string strText = HEAD;
    for (const auto& [strPath, ulModem] : m_byPath)
        strText += std::to_string(ulModem) + " " + strPath + "\n";
    return strText;
}

uint32_t CNumbers::PortNumber(const std::string& strModem, enSerialType enRole)
{
    auto found = m_byPath.find(strModem);
    if (found == m_byPath.end()) {
        uint32_t ulFree = 1;
        while (IsTaken(ulFree))
            ++ulFree;
        found = m_byPath.emplace(strModem, ulFree).first;
    }
    return PortOf(found->second, static_cast<size_t>(enRole));
}

std::vector<uint32_t> CNumbers::All() const
{
    std::vector<uint32_t> all;
    for (const auto& [strPath, ulModem] : m_byPath)
        for (size_t i = 0; i < SERIALNUM; ++i)
            all.push_back(PortOf(ulModem, i));
    std::ranges::sort(all);
    return all;
}

uint32_t CNumbers::PortOf(uint32_t ulModem, size_t szRole)
{
    return BLOCK * ulModem + 1 + static_cast<uint32_t>(szRole);
}

bool CNumbers::IsTaken(uint32_t ulModem) const
{
    return std::ranges::any_of(m_byPath, [&](const auto& stEntry) { return stEntry.second == ulModem; });
}
