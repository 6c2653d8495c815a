#include "fleet/FleetState.h"

#include <gtest/gtest.h>

TEST(FleetState, IsReadBackAsItWasWritten)
{
    FLEET_BENCH_STATE stState;
    stState.strBench = "lab7";
    stState.strEpoch = "0a";
    stState.ullTime = 1'700'000'000'123;
    stState.dRecordRate = 12.5;
    stState.bRequests = true;
    stState.vecModems = {{3, "modem \"A\"", {{"lte-data", true, 40, 2.5, 800}, {"at", false, 0, 0, 0}}}};
    const auto read = StateFromJson(StateToJson(stState));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->strBench, "lab7");
    EXPECT_EQ(read->strEpoch, "0a");
    EXPECT_EQ(read->ullTime, 1'700'000'000'123u);
    EXPECT_EQ(read->dRecordRate, 12.5);
    EXPECT_TRUE(read->bRequests);
    ASSERT_EQ(read->vecModems.size(), 1u);
    EXPECT_EQ(read->vecModems[0].ulUe, 3u);
    EXPECT_EQ(read->vecModems[0].strName, "modem \"A\"");
    ASSERT_EQ(read->vecModems[0].vecChannels.size(), 2u);
    EXPECT_EQ(read->vecModems[0].vecChannels[0].strChannel, "lte-data");
    EXPECT_TRUE(read->vecModems[0].vecChannels[0].bPresent);
    EXPECT_EQ(read->vecModems[0].vecChannels[0].ullRecords, 40u);
    EXPECT_EQ(read->vecModems[0].vecChannels[0].dByteRate, 800);
}

TEST(FleetState, TheNamesOfItsFieldsStay)
{
    const auto read = StateFromJson(R"({"bench":"lab7","time":5,"backlogBytes":6,"backlogMs":7,"lostRecords":8,
        "modems":[{"ue":2,"name":"x","channels":[{"channel":"at","recordRate":1.5}]}]})");
    ASSERT_TRUE(read);
    EXPECT_EQ(read->ullTime, 5u);
    EXPECT_EQ(read->ullBacklogBytes, 6u);
    EXPECT_EQ(read->ullBacklogMs, 7u);
    EXPECT_EQ(read->ullLostRecords, 8u);
    ASSERT_EQ(read->vecModems.size(), 1u);
    EXPECT_EQ(read->vecModems[0].vecChannels.at(0).dRecordRate, 1.5);
}

TEST(FleetState, FieldsOfAnotherTypeAreLeftAlone)
{
    const auto read =
        StateFromJson(R"({"bench":7,"time":-1,"dRecordRate":"fast","requests":1,"modems":[1,{"ue":"x"}]})");
    ASSERT_TRUE(read);
    EXPECT_EQ(read->strBench, "");
    EXPECT_EQ(read->ullTime, 0u);
    EXPECT_FALSE(read->bRequests);
    ASSERT_EQ(read->vecModems.size(), 1u);
    EXPECT_EQ(read->vecModems[0].ulUe, 0u);
}

TEST(FleetState, HoldsNoMoreThanABenchCan)
{
    std::string strModems;
    for (int i = 0; i < 17; ++i)
        strModems += std::string(i > 0 ? "," : "") + R"({"channels":[{},{},{},{},{},{}],"name":")" +
                     std::string(300, 'x') + "\"}";
    const auto read = StateFromJson(R"({"bench":"b1","recordRate":-1,"byteRate":1e300,"modems":[)" + strModems + "]}");
    ASSERT_TRUE(read);
    EXPECT_EQ(read->dRecordRate, 0);
    EXPECT_EQ(read->dByteRate, 1e15);
    ASSERT_EQ(read->vecModems.size(), 16u);
    EXPECT_EQ(read->vecModems[15].vecChannels.size(), 5u);
    EXPECT_EQ(read->vecModems[15].strName, std::string(256, 'x'));
    EXPECT_FALSE(StateFromJson(R"({"bench":"b1","byteRate":1e999})")) << "no number that there is";
}

TEST(FleetState, AnythingElseIsNone)
{
    for (const char* const pszWrong : {"", "{", "[]", "7", "{\"a\":1}"})
        EXPECT_FALSE(StateFromJson(pszWrong)) << pszWrong;
}
