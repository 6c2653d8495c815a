#include "client/Parse.h"

#include <charconv>

namespace
{
template <class T> bool ParseWhole(std::string_view strText, T& value, int iBase)
{
    const char* pEnd = strText.data() + strText.size();
    const auto result = std::from_chars(strText.data(), pEnd, value, iBase);
    return !strText.empty() && result.ec == std::errc() && result.ptr == pEnd;
}
} // namespace

bool ParseNumber(std::string_view strText, uint32_t& ulNumber)
{
    if (strText.starts_with("0x") || strText.starts_with("0X"))
        return ParseWhole(strText.substr(2), ulNumber, 16);
    return ParseWhole(strText, ulNumber, 10);
}

bool ParseHex(std::span<const std::string> texts, std::vector<unsigned char>& bytes)
{
    for (const std::string_view strText : texts) {
        if (strText.size() % 2 != 0)
            return false;
        for (size_t i = 0; i < strText.size(); i += 2) {
            unsigned char ucByte = 0;
            if (!ParseWhole(strText.substr(i, 2), ucByte, 16))
                return false;
            bytes.push_back(ucByte);
        }
    }
    return true;
}

std::string HexDigits(ByteView bytes)
{
    static constexpr char DIGITS[] = "0123456789ABCDEF";
    std::string strHex;
    strHex.reserve(bytes.size() * 2);
    for (const unsigned char ucByte : bytes) {
        strHex += DIGITS[ucByte >> 4];
        strHex += DIGITS[ucByte & 0xF];
    }
    return strHex;
}
