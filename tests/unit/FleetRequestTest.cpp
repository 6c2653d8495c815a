#include "fleet/FleetRequest.h"

#include <gtest/gtest.h>

TEST(FleetRequest, IsReadBackAsItWasWritten)
{
    std::string strError;
    const auto request = RequestFromJson(RequestToJson({20, 0x10014003, {1, 0xAB}, 2.5}), strError);
    ASSERT_TRUE(request) << strError;
    EXPECT_EQ(request->ulPort, 20u);
    EXPECT_EQ(request->ulCmdId, 0x10014003u);
    EXPECT_EQ(request->vecParams, (std::vector<unsigned char>{1, 0xAB}));
    EXPECT_EQ(request->dTimeout, 2.5);
}

TEST(FleetRequest, TheShortestOneIsPortAndId)
{
    std::string strError;
    const auto request = RequestFromJson(R"({"port":20,"id":1})", strError);
    ASSERT_TRUE(request) << strError;
    EXPECT_TRUE(request->vecParams.empty());
    EXPECT_EQ(request->dTimeout, 5);
}

TEST(FleetRequest, WrongOnesAreRefusedWithAReason)
{
    for (const char* const pszWrong :
         {"", "[]", R"({"id":1})", R"({"port":20})", R"({"port":-1,"id":1})", R"({"port":20,"id":4294967296})",
          R"({"port":20,"id":1,"params":"0"})", R"({"port":20,"id":1,"params":5})", R"({"port":20,"id":1,"timeout":0})",
          R"({"port":20,"id":1,"timeout":61})"}) {
        std::string strError;
        EXPECT_FALSE(RequestFromJson(pszWrong, strError)) << pszWrong;
        EXPECT_FALSE(strError.empty()) << pszWrong;
    }
}

TEST(FleetRequest, AnswersAreReadBack)
{
    const auto answer = AnswerFromJson(AnswerToJson({"", 0x10014003, 2, 99, {7, 8}}));
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->strError, "");
    EXPECT_EQ(answer->ulCmdId, 0x10014003u);
    EXPECT_EQ(answer->ulRc, 2u);
    EXPECT_EQ(answer->ullTimeStamp, 99u);
    EXPECT_EQ(answer->vecPayload, (std::vector<unsigned char>{7, 8}));
    const auto error = AnswerFromJson(AnswerToJson({"no agent", 0, 0, 0, {}}));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->strError, "no agent");
    EXPECT_FALSE(AnswerFromJson("{}"));
    EXPECT_FALSE(AnswerFromJson(R"({"id":1,"payload":"x"})"));
}
