#include "page/PageOptions.h"
#include "support/VexProcess.h"

#include <gmock/gmock.h>
#include <sstream>

namespace
{
struct PARSED
{
    std::optional<PAGE_EXIT> end;
    PAGE_OPTIONS stOptions;
    std::string strOut;
    std::string strErrors;
};

PARSED Parse(const std::vector<std::string>& args)
{
    PARSED stParsed;
    std::ostringstream out;
    std::ostringstream errors;
    stParsed.end = ParsePageOptions(args, stParsed.stOptions, out, errors);
    stParsed.strOut = out.str();
    stParsed.strErrors = errors.str();
    return stParsed;
}
} // namespace

TEST(PageOptions, WithoutAnyThePageIsForThisMachineAndLooksOnly)
{
    const PARSED stParsed = Parse({});
    EXPECT_FALSE(stParsed.end);
    EXPECT_EQ(stParsed.stOptions.stAccess.stListen.Text(), "127.0.0.1:8280");
    EXPECT_EQ(stParsed.stOptions.strTap, "/run/vex/tap");
    EXPECT_FALSE(stParsed.stOptions.bControl);
    EXPECT_EQ(stParsed.stOptions.stAccess.strToken, "");
    EXPECT_EQ(stParsed.stOptions.ulMemoryMiB, 64U);
}

TEST(PageOptions, AllOfThemAreTaken)
{
    const CTempDir dir;
    dir.Write("token", "abcdefghijklmnop\nmore\n");
    const PARSED stParsed =
        Parse({"--listen", "0.0.0.0:9000", "--tap", "t", "--log", "l", "--control", "--agent", "h", "--token-file",
               dir.Path() + "/token", "--host", "A.example,b.example", "--memory", "7", "--web", "w"});
    ASSERT_FALSE(stParsed.end) << stParsed.strErrors;
    EXPECT_EQ(stParsed.stOptions.stAccess.stListen.Text(), "0.0.0.0:9000");
    EXPECT_EQ(stParsed.stOptions.strTap, "t");
    EXPECT_EQ(stParsed.stOptions.strLog, "l");
    EXPECT_TRUE(stParsed.stOptions.bControl);
    EXPECT_EQ(stParsed.stOptions.strAgent, "h");
    EXPECT_EQ(stParsed.stOptions.stAccess.strToken, "abcdefghijklmnop");
    EXPECT_EQ(stParsed.stOptions.stAccess.hosts, (std::vector<std::string>{"a.example", "b.example"}));
    EXPECT_EQ(stParsed.stOptions.ulMemoryMiB, 7U);
    EXPECT_EQ(stParsed.stOptions.strWeb, "w");
}

TEST(PageOptions, AFleetIsReadFromItsHub)
{
    EXPECT_FALSE(Parse({}).stOptions.bFleet);
    const PARSED stParsed = Parse(
        {"--fleet", "--servers", "tls://a:1,tls://b:2", "--cert", "c", "--key", "k", "--ca", "a", "--listen", "9000"});
    ASSERT_FALSE(stParsed.end) << stParsed.strErrors;
    EXPECT_TRUE(stParsed.stOptions.bFleet);
    EXPECT_EQ(HubNames(stParsed.stOptions.stHub), "tls://a:1,tls://b:2");
    EXPECT_EQ(stParsed.stOptions.stHub.strCert, "c");
    EXPECT_EQ(stParsed.stOptions.stHub.strKey, "k");
    EXPECT_EQ(stParsed.stOptions.stHub.strCa, "a");
    EXPECT_EQ(HubNames(Parse({"--fleet"}).stOptions.stHub), "nats://127.0.0.1:4222");
}

TEST(PageOptions, WhatIsWrongIsSaid)
{
    const CTempDir dir;
    dir.Write("empty", "");
    dir.Write("blank", "\n");
    const struct
    {
        std::vector<std::string> args;
        const char* pszError;
    } c_astCase[] = {
        {{"--listen", "no"}, "'no' is no port and no ADDRESS:PORT"},
        {{"--listen", "0.0.0.0:80"}, "0.0.0.0:80 is reached from other machines: give --token-file or --token"},
        {{"--listen", "[::]:80"}, "[::]:80 is reached from other machines"},
        {{"--token", "short"}, "a token has 16 letters, digits or -_. at least"},
        {{"--token", ""}, "a token has 16 letters"},
        {{"--token", "0123456789abcde;"}, "a token has 16 letters"},
        {{"--token-file", dir.Path() + "/none"}, "none can't be read, or is empty"},
        {{"--token-file", dir.Path() + "/empty"}, "empty can't be read, or is empty"},
        {{"--token-file", dir.Path() + "/blank"}, "a token has 16 letters"},
        {{"--token", "0123456789abcdef", "--token-file", "f"}, "excludes"},
        {{"--host", "a b"}, "'a b' is no name of a machine"},
        {{"--host", "a:80"}, "'a:80' is no name of a machine"},
        {{"--memory", "0"}, "--memory"},
        {{"--no-such"}, "--no-such"},
        {{"--fleet", "--tap", "t"}, "--tap excludes --fleet"},
        {{"--fleet", "--log", "l"}, "--log excludes --fleet"},
        {{"--control", "--fleet"}, "--control excludes --fleet"},
        {{"--fleet", "--agent", "h"}, "--agent excludes --fleet"},
        {{"--fleet", "--memory", "7"}, "--memory excludes --fleet"},
        {{"--servers", "nats://a:1"}, "--servers requires --fleet"},
        {{"--cert", "c"}, "--cert requires --fleet"},
        {{"--key", "k"}, "--key requires --fleet"},
        {{"--ca", "c"}, "--ca requires --fleet"},
    };
    for (const auto& stCase : c_astCase) {
        const PARSED stParsed = Parse(stCase.args);
        EXPECT_EQ(stParsed.end, PAGE_USAGE) << stCase.pszError;
        EXPECT_THAT(stParsed.strErrors, testing::HasSubstr(stCase.pszError));
    }
    const PARSED stHelp = Parse({"--help"});
    EXPECT_EQ(stHelp.end, PAGE_DONE);
    EXPECT_THAT(stHelp.strOut, testing::HasSubstr("--control"));
}
