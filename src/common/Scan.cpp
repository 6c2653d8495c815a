#include "common/Scan.h"

#include <algorithm>
#include <cctype>

namespace
{

bool SkipPrefix(std::string_view& text, std::string_view prefix)
{
    if (!text.starts_with(prefix))
        return false;
    text.remove_prefix(prefix.size());
    return true;
}

bool IsDigit(char c, uint32_t ulBase)
{
    const auto ucChar = static_cast<unsigned char>(c);
    return ulBase == 16 ? std::isxdigit(ucChar) != 0 : std::isdigit(ucChar) != 0;
}

uint32_t DigitValue(char c)
{
    if (c >= '0' && c <= '9')
        return static_cast<uint32_t>(c - '0');
    return static_cast<uint32_t>(std::tolower(static_cast<unsigned char>(c)) - 'a') + 10;
}

/// Reads one number off the head of the text, with what scanf allows in front of its digits.
bool TakeNumber(std::string_view& text, uint32_t ulBase, uint32_t& ulValue)
{
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front())))
        text.remove_prefix(1);
    const bool bNegative = SkipPrefix(text, "-");
    if (!bNegative)
        (void)SkipPrefix(text, "+");
    const bool bHexPrefix = text.starts_with("0x") || text.starts_with("0X");
    if (ulBase == 16 && bHexPrefix && text.size() > 2 && IsDigit(text[2], ulBase))
        text.remove_prefix(2);
    if (text.empty() || !IsDigit(text.front(), ulBase))
        return false;
    uint32_t ulDigits = 0;
    for (; !text.empty() && IsDigit(text.front(), ulBase); text.remove_prefix(1))
        ulDigits = ulDigits * ulBase + DigitValue(text.front());
    ulValue = bNegative ? 0 - ulDigits : ulDigits;
    return true;
}

} // namespace

int ScanNumbers(std::string_view text, std::string_view format, std::span<uint32_t* const> fields)
{
    size_t szRead = 0;
    while (!format.empty()) {
        if (!SkipPrefix(format, "%")) {
            if (!SkipPrefix(text, format.substr(0, 1)))
                break;
            format.remove_prefix(1);
            continue;
        }
        const uint32_t ulBase = format.starts_with('x') ? 16 : 10;
        format = format.substr(std::min<size_t>(1, format.size()));
        if (szRead == fields.size() || !TakeNumber(text, ulBase, *fields[szRead]))
            break;
        ++szRead;
    }
    return static_cast<int>(szRead);
}
