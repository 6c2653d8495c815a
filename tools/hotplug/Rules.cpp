#include "hotplug/Rules.h"

#include <algorithm>
#include <charconv>
#include <tuple>
#include <utility>

namespace
{
constexpr size_t ID_DIGITS = 4;
constexpr size_t INTERFACE_DIGITS = 2;
constexpr std::string_view BLANKS = " \t\r";

/// The next word of the line, taken off it; empty at its end.
std::string_view TakeWord(std::string_view& line)
{
    line.remove_prefix(std::min(line.find_first_not_of(BLANKS), line.size()));
    const std::string_view word = line.substr(0, line.find_first_of(BLANKS));
    line.remove_prefix(word.size());
    return word;
}

/// A hexadecimal number of so many digits at most.
template <class T> bool ParseHex(std::string_view text, size_t szDigits, T& value)
{
    const char* const pEnd = text.data() + text.size();
    const auto stResult = std::from_chars(text.data(), pEnd, value, 16);
    return text.size() <= szDigits && stResult.ec == std::errc() && stResult.ptr == pEnd;
}

std::string Quoted(std::string_view text)
{
    return "'" + std::string(text) + "'";
}

/// One line of a rules file. What is wrong ends in a text; only the first fault of a line is told.
class CRuleLine
{
public:
    /// False for a line without a rule: then the error is empty, or says why there is none.
    bool Parse(std::string_view line, HOTPLUG_RULE& stRule)
    {
        line = line.substr(0, line.find('#'));
        const std::string_view device = TakeWord(line);
        if (device.empty() || !TakeDevice(device, stRule))
            return false;
        for (std::string_view word = TakeWord(line); !word.empty(); word = TakeWord(line))
            if (!TakePair(word, stRule))
                return false;
        if (!m_bRole)
            return Fail("role= is missing");
        return stRule.ucInterface || !stRule.strDriver.empty() || Fail("if= or driver= is missing");
    }
    const std::string& Error() const { return m_strError; }

private:
    bool Fail(std::string strError)
    {
        m_strError = std::move(strError);
        return false;
    }

    bool TakeDevice(std::string_view word, HOTPLUG_RULE& stRule)
    {
        const size_t szColon = word.find(':');
        const std::string_view product = szColon < word.size() ? word.substr(szColon + 1) : "";
        uint16_t usProduct = 0;
        const bool bAny = product == "*";
        if (!ParseHex(word.substr(0, szColon), ID_DIGITS, stRule.usVendor) ||
            (!bAny && !ParseHex(product, ID_DIGITS, usProduct)))
            return Fail(Quoted(word) + " is no VENDOR:PRODUCT such as 1234:abcd or 1234:*");
        if (!bAny)
            stRule.usProduct = usProduct;
        return true;
    }

    bool TakePair(std::string_view word, HOTPLUG_RULE& stRule)
    {
        const size_t szEqual = word.find('=');
        const std::string_view key = word.substr(0, szEqual);
        const std::string_view value = szEqual < word.size() ? word.substr(szEqual + 1) : "";
        if (key == "if")
            return TakeInterface(value, stRule);
        if (key == "driver")
            return TakeDriver(value, stRule);
        if (key == "role")
            return TakeRole(value, stRule);
        return Fail(Quoted(word) + " is none of if=, driver=, role=");
    }

    bool TakeInterface(std::string_view value, HOTPLUG_RULE& stRule)
    {
        uint8_t ucInterface = 0;
        if (stRule.ucInterface)
            return Fail("if= stands twice");
        if (!ParseHex(value, INTERFACE_DIGITS, ucInterface))
            return Fail("if=" + std::string(value) + " is no number of two hexadecimal digits");
        stRule.ucInterface = ucInterface;
        return true;
    }

    bool TakeDriver(std::string_view value, HOTPLUG_RULE& stRule)
    {
        if (!stRule.strDriver.empty())
            return Fail("driver= stands twice");
        stRule.strDriver = value;
        return !value.empty() || Fail("driver= has no name");
    }

    bool TakeRole(std::string_view value, HOTPLUG_RULE& stRule)
    {
        const auto found = std::ranges::find(ROLE_NAMES, value);
        if (std::exchange(m_bRole, true))
            return Fail("role= stands twice");
        if (found == ROLE_NAMES.end())
            return Fail("role=" + std::string(value) + " is none of diag, data, gu, at");
        stRule.enRole = static_cast<enSerialType>(found - ROLE_NAMES.begin());
        return true;
    }

    bool m_bRole = false;
    std::string m_strError;
};

bool FitSame(const HOTPLUG_RULE& stA, const HOTPLUG_RULE& stB)
{
    const auto Match = [](const HOTPLUG_RULE& stRule) {
        return std::tie(stRule.usVendor, stRule.usProduct, stRule.ucInterface, stRule.strDriver);
    };
    return Match(stA) == Match(stB);
}
} // namespace

bool HOTPLUG_RULE::Fits(const USB_PORT& stPort) const
{
    return stPort.usVendor == usVendor && (!usProduct || stPort.usProduct == *usProduct) &&
           (!ucInterface || stPort.ucInterface == *ucInterface) && (strDriver.empty() || stPort.strDriver == strDriver);
}

CRules CRules::Parse(std::string_view text, const std::string& strFile, std::vector<std::string>& errors)
{
    CRules rules;
    for (size_t szLine = 1; !text.empty(); ++szLine) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        const auto Tell = [&](const std::string& strError) {
            errors.push_back(strFile + ":" + std::to_string(szLine) + ": ");
            errors.back() += strError;
        };
        HOTPLUG_RULE stRule;
        stRule.szLine = szLine;
        CRuleLine parser;
        if (!parser.Parse(line, stRule)) {
            if (!parser.Error().empty())
                Tell(parser.Error());
            continue;
        }
        const auto same =
            std::ranges::find_if(rules.m_rules, [&](const auto& stOld) { return FitSame(stOld, stRule); });
        if (same != rules.m_rules.end())
            Tell("fits the same ports as line " + std::to_string(same->szLine) + ", which comes first");
        rules.m_rules.push_back(std::move(stRule));
    }
    return rules;
}

const HOTPLUG_RULE* CRules::Find(const USB_PORT& stPort) const
{
    const auto found = std::ranges::find_if(m_rules, [&](const auto& stRule) { return stRule.Fits(stPort); });
    return found != m_rules.end() ? &*found : nullptr;
}
