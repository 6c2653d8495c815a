#include "common/ConfigForm.h"

#include "common/Config.h"
#include "common/Scan.h"

#include <algorithm>
#include <arpa/inet.h>
#include <optional>
#include <sys/un.h>

namespace
{
std::string Quoted(const std::string& strText)
{
    return '"' + strText + '"';
}

/// The numbers of a text that is of the format to its last character.
std::optional<std::vector<uint32_t>> WholeNumbers(const std::string& strText, const std::string& strFormat)
{
    // A last number behind a character that no file holds is read only when all before it fits.
    const auto szNumbers = static_cast<size_t>(std::ranges::count(strFormat, '%')) + 1;
    std::vector<uint32_t> numbers(szNumbers);
    std::vector<uint32_t*> fields(szNumbers);
    std::ranges::transform(numbers, fields.begin(), [](uint32_t& ulNumber) { return &ulNumber; });
    if (ScanNumbers(strText + '\n' + '1', strFormat + "\n%d", fields) != static_cast<int>(szNumbers))
        return std::nullopt;
    numbers.pop_back();
    return numbers;
}

/// "decimal", "0x... and 0x..." would be hard to read: the format itself, with what a person would write.
std::string Shown(const std::string& strFormat)
{
    std::string strShown;
    for (size_t i = 0; i < strFormat.size(); ++i)
        if (strFormat[i] != '%')
            strShown += strFormat[i];
        else
            strShown += strFormat[++i] == 'x' ? "HEX" : "N";
    return strShown;
}

/// A run of digits whose value needs more than 32 bits.
bool HasLongNumber(const std::string& strText)
{
    constexpr const char* HEX_DIGITS = "0123456789abcdefABCDEF";
    constexpr const char* DIGITS = "0123456789";
    for (size_t i = strText.find_first_of(DIGITS); i < strText.size(); i = strText.find_first_of(DIGITS, i)) {
        const bool bHex = strText.compare(i, 2, "0x") == 0;
        const size_t szBegin = strText.find_first_not_of('0', bHex ? i + 2 : i);
        if (szBegin >= strText.size())
            return false;
        const size_t szEnd = std::min(strText.find_first_not_of(bHex ? HEX_DIGITS : DIGITS, szBegin), strText.size());
        const std::string strDigits = strText.substr(szBegin, szEnd - szBegin);
        const std::string strMost = bHex ? "FFFFFFFF" : "4294967295";
        if (strDigits.size() > strMost.size() || (!bHex && strDigits.size() == strMost.size() && strDigits > strMost))
            return true;
        i = std::max(szEnd, i + 1);
    }
    return false;
}

/// False, with a warning, when the text holds such a number.
bool NumbersFit(const std::string& strItem, CLineFindings& out)
{
    if (!HasLongNumber(strItem))
        return true;
    out.Warning(Quoted(strItem) + " needs more than 32 bits; the high ones are lost");
    return false;
}

void CheckItem(const CONFIG_FORM& stForm, const std::string& strKey, const std::string& strItem, CLineFindings& out)
{
    if (stForm.pszFormat == nullptr) {
        if (stForm.pfnItem != nullptr)
            stForm.pfnItem(strItem, {}, out);
        return;
    }
    const auto numbers = WholeNumbers(strItem, stForm.pszFormat);
    if (!numbers) {
        const std::string strShown = Shown(stForm.pszFormat);
        out.Error(Quoted(strItem) + (strShown == "N" ? " is no number" : " isn't of the form " + strShown));
        return;
    }
    if (!NumbersFit(strItem, out))
        return;
    const int64_t llFirst = static_cast<int32_t>(numbers->front());
    if (llFirst < stForm.llLow || llFirst > stForm.llHigh)
        out.Warning(strKey + " is " + std::to_string(llFirst) + "; " + std::to_string(stForm.llLow) + " to " +
                    std::to_string(stForm.llHigh) + " are meant");
    if (stForm.pfnItem != nullptr)
        stForm.pfnItem(strItem, *numbers, out);
}

void CheckOrder(const std::string& strItem, uint32_t ulLow, uint32_t ulHigh, CLineFindings& out)
{
    if (ulLow > ulHigh)
        out.Warning(Quoted(strItem) + " begins behind its end, so it holds nothing");
}

std::vector<std::string> Pieces(const std::string& strText, const char* pszSep)
{
    std::vector<std::string> pieces;
    (void)CConfig::Split(strText, pieces, pszSep); // always true
    return pieces;
}

/// The ids between the brackets; nothing when one isn't an id.
std::optional<std::vector<uint32_t>> Ids(const std::string& strInside)
{
    std::vector<uint32_t> ids;
    for (const std::string& strId : Pieces(strInside, ",")) {
        const auto id = WholeNumbers(strId, "0x%x");
        if (!id)
            return std::nullopt;
        ids.push_back(id->front());
    }
    return ids;
}

/// Whether the text stands in these brackets; then they are taken away.
bool TakeBrackets(std::string& strText, char cOpen, char cClose)
{
    if (strText.size() < 2 || strText.front() != cOpen || strText.back() != cClose)
        return false;
    strText = strText.substr(1, strText.size() - 2);
    return true;
}
} // namespace

void CheckValue(const CONFIG_FORM& stForm, const std::string& strKey, const std::string& strValue, CLineFindings& out)
{
    if (!stForm.bList) {
        CheckItem(stForm, strKey, strValue, out);
        return;
    }
    const std::vector<std::string> items = Pieces(strValue, ";");
    for (const std::string& strItem : items)
        CheckItem(stForm, strKey, strItem, out);
    if (stForm.szCount != 0 && items.size() != stForm.szCount)
        out.Warning(strKey + " has " + std::to_string(items.size()) + " items; " + std::to_string(stForm.szCount) +
                    " are meant");
}

namespace config_form
{
void CheckAddress(const std::string& strItem, const std::vector<uint32_t>& /*numbers*/, CLineFindings& out)
{
    in_addr stAddress{};
    if (inet_pton(AF_INET, strItem.c_str(), &stAddress) != 1)
        out.Error(Quoted(strItem) + " is no IPv4 address");
}

void CheckNetRange(const std::string& strItem, const std::vector<uint32_t>& /*numbers*/, CLineFindings& out)
{
    if (!ParseNetRange(strItem))
        out.Error(Quoted(strItem) + " is neither ADDRESS nor ADDRESS/BITS");
}

void CheckSocketPath(const std::string& strItem, const std::vector<uint32_t>& /*numbers*/, CLineFindings& out)
{
    constexpr size_t LONGEST = sizeof(sockaddr_un::sun_path) - 1;
    if (strItem.size() > LONGEST)
        out.Warning("the path has " + std::to_string(strItem.size()) + " characters; a socket's has " +
                    std::to_string(LONGEST) + " at most");
}

void CheckLink(const std::string& strItem, const std::vector<uint32_t>& /*numbers*/, CLineFindings& out)
{
    const auto both = WholeNumbers(strItem, "%d:%d");
    const auto numbers = both ? both : WholeNumbers(strItem, "%d");
    if (!numbers)
        out.Error(Quoted(strItem) + " is neither PORT:0, PORT:1 nor PORT");
    else if (numbers->front() < 1 || numbers->front() > UINT16_MAX)
        out.Warning("port " + std::to_string(numbers->front()) + "; 1 to 65535 are meant");
    else if (numbers->size() > 1 && numbers->back() > 1)
        out.Warning(Quoted(strItem) + ": 1 means TCP, 0 UDP, and this is taken for TCP");
}

void CheckRange(const std::string& strItem, const std::vector<uint32_t>& numbers, CLineFindings& out)
{
    CheckOrder(strItem, numbers[0], numbers[1], out);
}

void CheckOsaRow(const std::string& strItem, const std::vector<uint32_t>& numbers, CLineFindings& out)
{
    if (numbers[0] != 1 && numbers[0] != 2)
        out.Warning(Quoted(strItem) + ": no modem has version " + std::to_string(numbers[0]) + ", only 1 or 2");
    CheckOrder(strItem, numbers[1], numbers[2], out);
}

void CheckLayerRow(const std::string& strItem, const std::vector<uint32_t>& /*numbers*/, CLineFindings& out)
{
    const std::vector<std::string> pieces = Pieces(strItem, ":");
    std::string strIds = pieces.empty() ? "" : pieces.front();
    const bool bIds = strIds == "*" || (TakeBrackets(strIds, '{', '}') && Ids(strIds));
    if (pieces.size() != 2 || !bIds || !WholeNumbers(pieces.back(), "{%d,%d}"))
        out.Error(Quoted(strItem) + " isn't of the form {0xHEX,...}:{N,N} or *:{N,N}");
    else
        (void)NumbersFit(strItem, out);
}

void CheckIdSet(const std::string& strItem, const std::vector<uint32_t>& /*numbers*/, CLineFindings& out)
{
    std::string strSet = strItem.substr(strItem.front() == '+' || strItem.front() == '-' ? 1 : 0);
    const bool bSingle = TakeBrackets(strSet, '{', '}');
    const bool bRange = !bSingle && (TakeBrackets(strSet, '[', ']') || TakeBrackets(strSet, '(', ')'));
    const auto ids = bSingle || bRange ? Ids(strSet) : std::nullopt;
    if (!ids || (bRange && ids->size() != 2))
        out.Error(Quoted(strItem) + " isn't of the form {0xHEX,...}, [0xHEX,0xHEX] or (0xHEX,0xHEX)");
    else if (NumbersFit(strItem, out) && bRange)
        CheckOrder(strItem, ids->front(), ids->back(), out);
}

void CheckPair(const std::string& strItem, const std::vector<uint32_t>& numbers, CLineFindings& out)
{
    constexpr uint32_t WIDEST = 8;
    if (numbers[0] > UINT16_MAX)
        out.Warning(Quoted(strItem) + ": an offset is at most 65535");
    if (numbers[1] > WIDEST)
        out.Warning(Quoted(strItem) + ": a field has 1 to 8 bytes, so this one is absent");
}
} // namespace config_form
