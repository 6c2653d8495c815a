#include "page/PageGuard.h"

#include <gtest/gtest.h>

namespace
{
constexpr const char* TOKEN = "0123456789abcdef";

CPageGuard Guard(const std::string& strListen, const std::string& strToken = "")
{
    return CPageGuard({*ParsePageAddress(strListen), {"bench7.example"}, strToken});
}

PAGE_ASKER Asker(const std::string& strHost, const std::string& strOrigin = "")
{
    return {strHost, strOrigin, "", "", ""};
}
} // namespace

TEST(PageAddress, IsAPortOrAnAddressWithOne)
{
    const struct
    {
        const char* pszText;
        const char* pszHost; // null: it is no address
        uint16_t usPort;
        bool bLocal;
    } c_astCase[] = {
        {"8280", "127.0.0.1", 8280, true},
        {"0", "127.0.0.1", 0, true},
        {"65535", "127.0.0.1", 65535, true},
        {":81", "127.0.0.1", 81, true},
        {"localhost:81", "127.0.0.1", 81, true},
        {"127.0.0.5:81", "127.0.0.5", 81, true},
        {"0.0.0.0:81", "0.0.0.0", 81, false},
        {"192.0.2.1:81", "192.0.2.1", 81, false},
        {"[::1]:81", "::1", 81, true},
        {"[::]:81", "::", 81, false},
        {"65536", nullptr, 0, false},
        {"", nullptr, 0, false},
        {"192.0.2.1", nullptr, 0, false},
        {"192.0.2.1:", nullptr, 0, false},
        {"192.0.2.256:81", nullptr, 0, false},
        {"bench7:81", nullptr, 0, false},
        {"::1:81", nullptr, 0, false},
        {"[::1:81", nullptr, 0, false},
        {"[::1]81", nullptr, 0, false},
        {"-1", nullptr, 0, false},
        {"8280x", nullptr, 0, false},
    };
    for (const auto& stCase : c_astCase) {
        const auto address = ParsePageAddress(stCase.pszText);
        ASSERT_EQ(address.has_value(), stCase.pszHost != nullptr) << stCase.pszText;
        if (!address)
            continue;
        EXPECT_EQ(address->strHost, stCase.pszHost) << stCase.pszText;
        EXPECT_EQ(address->usPort, stCase.usPort) << stCase.pszText;
        EXPECT_EQ(address->IsLocal(), stCase.bLocal) << stCase.pszText;
    }
    EXPECT_EQ(ParsePageAddress("[::1]:81")->Text(), "[::1]:81");
    EXPECT_EQ(ParsePageAddress("81")->Text(), "127.0.0.1:81");
}

TEST(PageGuard, AnswersUnderItsOwnNamesOnly)
{
    const struct
    {
        const char* pszHost;
        bool bLocalPage;  // answered by a page on 127.0.0.1
        bool bPublicPage; // and by one on all addresses
    } c_astCase[] = {
        {"localhost:8280", true, true},
        {"LOCALHOST:8280", true, true},
        {"localhost", true, true},
        {"localhost:9000", true, true}, // through a tunnel
        {"localhost.", true, true},
        {"127.0.0.1:8280", true, true},
        {"[::1]:8280", true, true},
        {"bench7.example:8280", true, true},
        {"Bench7.Example", true, true},
        {"192.0.2.1:8280", false, true},
        {"[2001:db8::1]:8280", false, true},
        {"evil.example:8280", false, false},
        {"localhost.evil.example", false, false},
        {"127.0.0.1.evil.example", false, false},
        {"evil.bench7.example", false, false},
        {"", false, false},
        {":8280", false, false},
        {"localhost:", false, false},
        {"localhost:80a", false, false},
        {"a@localhost", false, false},
        {"[::1", false, false},
    };
    for (const auto& stCase : c_astCase) {
        EXPECT_EQ(Guard("8280").Refusal(Asker(stCase.pszHost)).empty(), stCase.bLocalPage) << stCase.pszHost;
        EXPECT_EQ(Guard("0.0.0.0:8280").Refusal(Asker(stCase.pszHost)).empty(), stCase.bPublicPage) << stCase.pszHost;
    }
}

TEST(PageGuard, AnswersRequestsOfItsOwnPagesOnly)
{
    const struct
    {
        const char* pszOrigin;
        bool bAnswered;
    } c_astCase[] = {
        {"", true}, // no page asks, or one that looks only
        {"http://localhost:8280", true},
        {"https://localhost:8280", true}, // behind a proxy
        {"http://localhost:8281", false},
        {"http://localhost", false},
        {"http://evil.example", false},
        {"http://localhost:8280.evil.example", false},
        {"null", false},
        {"file://", false},
    };
    for (const auto& stCase : c_astCase)
        EXPECT_EQ(Guard("8280").Refusal(Asker("localhost:8280", stCase.pszOrigin)).empty(), stCase.bAnswered)
            << stCase.pszOrigin;
}

TEST(PageGuard, TheTokenComesAsHeaderCookieOrArgument)
{
    const CPageGuard guard = Guard("8280", TOKEN);
    const struct
    {
        const char* pszName;
        PAGE_ASKER stAsker;
        bool bHas;
    } c_astCase[] = {
        {"nothing", {"", "", "", "", ""}, false},
        {"header", {"", "", "Bearer 0123456789abcdef", "", ""}, true},
        {"cookie", {"", "", "", "vex_page_token=0123456789abcdef", ""}, true},
        {"a cookie among others", {"", "", "", "a=b; vex_page_token=0123456789abcdef; c=d", ""}, true},
        {"argument", {"", "", "", "", "0123456789abcdef"}, true},
        {"another scheme", {"", "", "Basic 0123456789abcdef", "", ""}, false},
        {"one letter wrong", {"", "", "Bearer 0123456789abcdee", "", ""}, false},
        {"one letter short", {"", "", "Bearer 0123456789abcde", "", ""}, false},
        {"one letter more", {"", "", "Bearer 0123456789abcdef0", "", ""}, false},
        {"twice", {"", "", "", "", "0123456789abcdef0123456789abcdef"}, false},
        {"another cookie", {"", "", "", "vex_page_token2=0123456789abcdef", ""}, false},
        {"another cookie that ends alike", {"", "", "", "x_vex_page_token=0123456789abcdef", ""}, false},
    };
    for (const auto& stCase : c_astCase)
        EXPECT_EQ(guard.HasToken(stCase.stAsker), stCase.bHas) << stCase.pszName;
    EXPECT_TRUE(Guard("8280").HasToken({})) << "none is needed";
    EXPECT_EQ(guard.Cookie(), "vex_page_token=0123456789abcdef; Path=/; HttpOnly; SameSite=Strict");
}
