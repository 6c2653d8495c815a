#include "page/PageGuard.h"

#include <algorithm>
#include <string_view>

namespace
{
/// The value of a cookie of a Cookie header (RFC 6265, 4.2.1); empty when it isn't there.
std::string_view CookieOf(std::string_view strHeader, std::string_view strName)
{
    while (!strHeader.empty()) {
        const size_t szEnd = std::min(strHeader.find(';'), strHeader.size());
        std::string_view strPair = strHeader.substr(0, szEnd);
        strHeader.remove_prefix(std::min(szEnd + 1, strHeader.size()));
        strPair.remove_prefix(std::min(strPair.find_first_not_of(' '), strPair.size()));
        const size_t szEquals = strPair.find('=');
        if (szEquals != std::string_view::npos && strPair.substr(0, szEquals) == strName)
            return strPair.substr(szEquals + 1);
    }
    return {};
}

/// What follows the scheme of an Origin header; empty for "null" and other schemes.
std::string_view AuthorityOf(std::string_view strOrigin)
{
    for (const std::string_view strScheme : {"http://", "https://"})
        if (strOrigin.starts_with(strScheme))
            return strOrigin.substr(strScheme.size());
    return {};
}
} // namespace

std::string CPageGuard::Refusal(const PAGE_ASKER& stAsker) const
{
    const std::string strHost = HostOf(stAsker.strHost);
    if (strHost.empty() || !IsOurs(strHost))
        return "this page isn't served under the name '" + strHost + "'; --host adds one";
    if (!stAsker.strOrigin.empty() && AuthorityOf(stAsker.strOrigin) != stAsker.strHost)
        return "requests of other sites aren't answered";
    return "";
}

/// A name can be pointed here by its owner, an address can't: beyond localhost every address is as good as ours.
bool CPageGuard::IsOurs(const std::string& strHost) const
{
    return IsLoopback(strHost) || (!m_stAccess.stListen.IsLocal() && IsAddress(strHost)) ||
           std::ranges::find(m_stAccess.hosts, strHost) != m_stAccess.hosts.end();
}

bool CPageGuard::HasToken(const PAGE_ASKER& stAsker) const
{
    constexpr std::string_view BEARER = "Bearer ";
    if (m_stAccess.strToken.empty())
        return true;
    const bool bBearer = stAsker.strAuthorization.starts_with(BEARER);
    return (bBearer && IsToken(stAsker.strAuthorization.substr(BEARER.size()))) ||
           IsToken(std::string(CookieOf(stAsker.strCookie, TOKEN_COOKIE))) || IsToken(stAsker.strTokenArg);
}

bool CPageGuard::HasTokenArg(const PAGE_ASKER& stAsker) const
{
    return !m_stAccess.strToken.empty() && IsToken(stAsker.strTokenArg);
}

/// SameSite=Strict: other sites' requests come without it.
std::string CPageGuard::Cookie() const
{
    return std::string(TOKEN_COOKIE) + "=" + m_stAccess.strToken + "; Path=/; HttpOnly; SameSite=Strict";
}

/// In a time that depends on the length of the text alone, so that it can't be guessed letter by letter.
bool CPageGuard::IsToken(const std::string& strText) const
{
    const std::string& strToken = m_stAccess.strToken;
    unsigned int ulDifferent = strText.size() == strToken.size() ? 0 : 1;
    for (size_t i = 0; i < strText.size(); ++i)
        ulDifferent |=
            static_cast<unsigned char>(strText[i]) ^ static_cast<unsigned char>(strToken[i % strToken.size()]);
    return ulDifferent == 0;
}
