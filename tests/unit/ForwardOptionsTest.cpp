#include "forward/ForwardOptions.h"

#include <gtest/gtest.h>
#include <sstream>

namespace
{
struct PARSED
{
    std::optional<FORWARD_EXIT> end;
    FORWARD_OPTIONS stOptions;
    std::string strErrors;
};
PARSED Parse(std::vector<std::string> args)
{
    PARSED parsed;
    std::ostringstream out;
    std::ostringstream errors;
    parsed.end = ParseForwardOptions(std::move(args), parsed.stOptions, out, errors);
    parsed.strErrors = errors.str();
    return parsed;
}
} // namespace

TEST(ForwardOptions, HaveTheirDefaults)
{
    const PARSED parsed = Parse({"--spool", "/s", "--bench", "lab7"});
    ASSERT_FALSE(parsed.end) << parsed.strErrors;
    EXPECT_EQ(parsed.stOptions.strSpool, "/s");
    EXPECT_EQ(parsed.stOptions.stHub.servers, std::vector<std::string>{"nats://127.0.0.1:4222"});
    EXPECT_EQ(parsed.stOptions.ullMaxRate, 8u << 20);
    EXPECT_FALSE(parsed.stOptions.bRequests);
}

TEST(ForwardOptions, AreTaken)
{
    const PARSED parsed =
        Parse({"--spool", "/s", "--bench", "lab7", "--servers", "nats://a:1,nats://b:2", "--max-rate", "500K",
               "--delete", "--allow-requests", "--cert", "c", "--key", "k", "--ca", "a", "--state-every", "0.5"});
    ASSERT_FALSE(parsed.end) << parsed.strErrors;
    EXPECT_EQ(parsed.stOptions.stHub.servers, (std::vector<std::string>{"nats://a:1", "nats://b:2"}));
    EXPECT_EQ(parsed.stOptions.ullMaxRate, 512'000u);
    EXPECT_TRUE(parsed.stOptions.bDelete && parsed.stOptions.bRequests);
    EXPECT_EQ(parsed.stOptions.stHub.strCert, "c");
    EXPECT_EQ(parsed.stOptions.dStateEvery, 0.5);
    EXPECT_EQ(Parse({"--spool", "/s", "--bench", "a", "--max-rate", "0"}).stOptions.ullMaxRate, 0u);
}

TEST(ForwardOptions, WrongOnesAreNamed)
{
    const struct
    {
        std::vector<std::string> args;
        const char* pszNamed;
    } astCase[] = {
        {{"--bench", "lab7"}, "--spool"},
        {{"--spool", "/s", "--bench", "lab.7"}, "--bench"},
        {{"--spool", "/s", "--bench", "lab7", "--max-rate", "fast"}, "--max-rate"},
        {{"--spool", "/s", "--bench", "lab7", "--max-rate", "5m"}, "--max-rate"}, // a time
        {{"--spool", "/s", "--bench", "lab7", "--state-every", "0"}, "--state-every"},
        {{"--spool", "/s", "--bench", "lab7", "--what"}, "--what"},
    };
    for (const auto& stCase : astCase) {
        const PARSED parsed = Parse(stCase.args);
        EXPECT_EQ(parsed.end, FORWARD_USAGE) << stCase.pszNamed;
        EXPECT_NE(parsed.strErrors.find(stCase.pszNamed), std::string::npos) << parsed.strErrors;
    }
}
