#include "page/PageAddress.h"

#include "client/Parse.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cctype>
#include <limits>

namespace
{
constexpr const char* LOCALHOST = "localhost";

bool IsIp4(const std::string& strHost)
{
    in_addr stAddr{};
    return inet_pton(AF_INET, strHost.c_str(), &stAddr) == 1;
}
bool IsIp6(const std::string& strHost)
{
    in6_addr stAddr{};
    return inet_pton(AF_INET6, strHost.c_str(), &stAddr) == 1;
}

struct AUTHORITY
{
    std::string_view strHost;
    std::string_view strPort; // empty when there is none
};

std::optional<AUTHORITY> Split(std::string_view strText)
{
    const bool bBrackets = strText.starts_with('[');
    const size_t szEnd = bBrackets ? strText.find(']') : strText.find(':');
    AUTHORITY st{strText.substr(0, szEnd), {}};
    if (bBrackets) {
        if (szEnd == std::string_view::npos)
            return std::nullopt;
        st.strHost = strText.substr(1, szEnd - 1);
        strText.remove_prefix(szEnd + 1);
    } else {
        strText.remove_prefix(st.strHost.size());
    }
    if (strText.empty())
        return st;
    st.strPort = strText.substr(1);
    const bool bDigits =
        !st.strPort.empty() && std::ranges::all_of(st.strPort, [](char c) { return c >= '0' && c <= '9'; });
    return strText[0] == ':' && bDigits ? std::optional(st) : std::nullopt;
}

bool IsNameLetter(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '.' || c == '_' || c == ':';
}
} // namespace

bool PAGE_ADDRESS::IsLocal() const
{
    return IsLoopback(strHost);
}

std::string PAGE_ADDRESS::Text() const
{
    const std::string strShown = IsIp6(strHost) ? "[" + strHost + "]" : strHost;
    return strShown + ":" + std::to_string(usPort);
}

std::optional<PAGE_ADDRESS> ParsePageAddress(std::string_view strText)
{
    const bool bPortAlone = strText.find_first_of(":.[") == std::string_view::npos;
    const std::string strFull = bPortAlone ? ":" + std::string(strText) : std::string(strText);
    const auto parts = Split(strFull);
    uint32_t ulPort = 0;
    if (!parts || !ParseNumber(parts->strPort, ulPort) || ulPort > std::numeric_limits<uint16_t>::max())
        return std::nullopt;
    PAGE_ADDRESS stAddress;
    stAddress.usPort = static_cast<uint16_t>(ulPort);
    if (!parts->strHost.empty() && parts->strHost != LOCALHOST)
        stAddress.strHost = parts->strHost;
    return IsAddress(stAddress.strHost) ? std::optional(stAddress) : std::nullopt;
}

std::string HostOf(std::string_view strAuthority)
{
    const auto parts = Split(strAuthority);
    if (!parts || !std::ranges::all_of(parts->strHost, IsNameLetter))
        return "";
    std::string strHost(parts->strHost);
    std::ranges::transform(strHost, strHost.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (strHost.ends_with('.'))
        strHost.pop_back();
    return strHost;
}

bool IsAddress(const std::string& strHost)
{
    return IsIp4(strHost) || IsIp6(strHost);
}

bool IsLoopback(const std::string& strHost)
{
    return strHost == LOCALHOST || strHost == "::1" || (IsIp4(strHost) && strHost.starts_with("127."));
}
