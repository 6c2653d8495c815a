#include "fleet/LabFile.h"

#include <gtest/gtest.h>

// The file that describes a fleet, and the servers' permissions that come of it.

namespace
{
TEST(LabFile, AllOfItsKeysAreRead)
{
    LAB_FILE stLab;
    std::string strError;
    ASSERT_TRUE(ParseLabFile(R"({
        // one name for each certificate
        "benches": ["bench1", "car-7"], "lab": ["lab", "page"],
        "replicas": 1, "max_bytes": "2G", "max_age": "30d" })",
                             stLab, strError))
        << strError;
    EXPECT_EQ(stLab.benches, (std::vector<std::string>{"bench1", "car-7"}));
    EXPECT_EQ(stLab.lab, (std::vector<std::string>{"lab", "page"}));
    EXPECT_EQ(stLab.nReplicas, 1);
    EXPECT_EQ(stLab.ullMaxBytes, 2'147'483'648u);
    EXPECT_EQ(stLab.ullMaxAge, 2'592'000u);
}

TEST(LabFile, WhatIsLeftOutHasItsDefault)
{
    LAB_FILE stLab;
    std::string strError;
    ASSERT_TRUE(ParseLabFile(R"({"lab": ["lab"]})", stLab, strError)) << strError;
    EXPECT_TRUE(stLab.benches.empty());
    EXPECT_EQ(stLab.nReplicas, 3);
    EXPECT_EQ(stLab.ullMaxBytes, 0u);
    EXPECT_EQ(stLab.ullMaxAge, 0u);
}

TEST(LabFile, FaultsAreNamed)
{
    const struct
    {
        const char* pszText;
        const char* pszError;
    } c_astFault[] = {
        {"", "not a JSON object"},
        {"[]", "not a JSON object"},
        {R"({"lab": ["lab"], "bench": []})", "no such key: bench"},
        {R"({"lab": "lab"})", "lab must be a list of names of letters, digits, - and _"},
        {R"({"lab": ["lab"], "benches": ["a.b"]})", "benches must be a list of names of letters, digits, - and _"},
        {R"({"lab": ["lab"], "benches": ["x\" }"]})", "benches must be a list of names of letters, digits, - and _"},
        {R"({"lab": ["lab"], "benches": [""]})", "benches must be a list of names of letters, digits, - and _"},
        {R"({"lab": ["lab"], "replicas": 2})", "replicas must be 1, 3 or 5"},
        {R"({"lab": ["lab"], "max_bytes": "30d"})", "max_bytes must be a size such as \"500G\""},
        {R"({"lab": ["lab"], "max_age": 30})", "max_age must be a time such as \"30d\""},
        {R"({"benches": ["bench1"]})", "lab must name a certificate that may read"},
        {R"({"lab": ["x"], "benches": ["y", "x"]})", "a name stands twice"},
    };
    for (const auto& stFault : c_astFault) {
        LAB_FILE stLab;
        std::string strError;
        EXPECT_FALSE(ParseLabFile(stFault.pszText, stLab, strError)) << stFault.pszText;
        EXPECT_EQ(strError, stFault.pszError) << stFault.pszText;
    }
}

TEST(LabFile, ABenchMayDoItsOwnThingsAlone)
{
    LAB_FILE stLab;
    stLab.benches = {"bench1"};
    stLab.lab = {"lab"};
    EXPECT_EQ(PermissionsText(stLab),
              R"(# Made by vex-fleet init. Include it in the configuration of every server.
authorization {
  timeout: 5
  users: [
    { user: "CN=lab" }
    { user: "CN=bench1", permissions: {
        publish: { allow: ["vex.bench1.>", "$KV.vex-benches.bench1", "$JS.API.DIRECT.GET.VEX.vex.bench1.>"] }
        subscribe: { allow: ["_INBOX.bench1.>", "vexreq.bench1"] }
        allow_responses: { max: 1, expires: "2m" } } }
  ]
}
)");
}
} // namespace
