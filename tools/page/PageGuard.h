#pragma once

#include "page/PageAddress.h"

#include <string>
#include <vector>

// Who may ask for what. A page on this machine is within reach of every web site that its user looks at: a foreign
// site can send requests here (told by Origin) and can point a name of its own at this machine (told by Host).

/// Who may ask.
struct PAGE_ACCESS
{
    PAGE_ADDRESS stListen;
    std::vector<std::string> hosts; // further names of this machine, in small letters
    std::string strToken;           // empty: none is needed
};

/// What of a request tells who asks. Empty: the header isn't there.
struct PAGE_ASKER
{
    std::string strHost;
    std::string strOrigin;
    std::string strAuthorization;
    std::string strCookie;
    std::string strTokenArg; // ?token=
};

constexpr const char* TOKEN_COOKIE = "vex_page_token";
constexpr size_t LEAST_TOKEN = 16; // letters

class CPageGuard
{
public:
    explicit CPageGuard(PAGE_ACCESS stAccess) : m_stAccess(std::move(stAccess)) {}

    /// Empty when the Host and Origin headers are those of this page, else what is wrong.
    std::string Refusal(const PAGE_ASKER& stAsker) const;
    /// Whether the asker has the token, or none is needed.
    bool HasToken(const PAGE_ASKER& stAsker) const;
    /// Whether the token came in the address, so that it has to become a cookie.
    bool HasTokenArg(const PAGE_ASKER& stAsker) const;
    std::string Cookie() const;

private:
    bool IsOurs(const std::string& strHost) const;
    bool IsToken(const std::string& strText) const;

    const PAGE_ACCESS m_stAccess;
};
