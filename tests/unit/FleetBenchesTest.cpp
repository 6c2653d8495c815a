#include "fleet/BenchTable.h"

#include <gtest/gtest.h>

// How vex-fleet shows the benches.

namespace
{
constexpr uint64_t NOW = 1'700'000'000'000; // ms

TEST(FleetBenches, NumbersAreShort)
{
    const struct
    {
        double dNumber;
        const char* pszText;
    } c_astNumber[] = {{0, "0"},      {812.4, "812"},  {999.4, "999"}, {999.6, "1.0k"},  {1500, "1.5k"}, {9940, "9.9k"},
                       {9960, "10k"}, {28.4e6, "28M"}, {1e9, "1.0G"},  {2.5e12, "2.5T"}, {4e15, "4000T"}};
    for (const auto& stNumber : c_astNumber)
        EXPECT_EQ(ShortNumber(stNumber.dNumber), stNumber.pszText);
}

TEST(FleetBenches, EachHasALine)
{
    FLEET_BENCH_STATE stFar;
    stFar.strBench = "car-7";
    stFar.ullTime = NOW - 3 * 3600 * 1000;
    stFar.ullBacklogBytes = 1'200'000'000;
    stFar.ullBacklogMs = 5 * 3600 * 1000;
    stFar.ullLostRecords = 12;
    stFar.ullLostSegments = 1;
    stFar.ullDiskFree = 8'000'000'000;
    FLEET_BENCH_STATE stNear;
    stNear.strBench = "b1";
    stNear.ullTime = NOW - 2000;
    stNear.dRecordRate = 5210;
    stNear.dByteRate = 2.4e6;
    stNear.ullDiskFree = 250'000'000'000;
    stNear.vecModems = {
        {0, "one", {{.strChannel = "at", .bPresent = true}, {.strChannel = "gu-cmd", .bPresent = true}}},
        {3, "gone", {{.strChannel = "at", .bPresent = false}}}};
    EXPECT_EQ(BenchTable({stFar, stNear}, NOW),
              "BENCH  SEEN     MODEMS  RECORDS/S  BYTES/S  BACKLOG  BEHIND  LOST  DISK FREE\n"
              "b1     2 s ago  1       5.2k       2.4M     0        -       0/0   250G\n"
              "car-7  3 h ago  0       0          0        1.2G     5 h     12/1  8.0G\n");
    EXPECT_EQ(BenchTable({}, NOW), "BENCH  SEEN  MODEMS  RECORDS/S  BYTES/S  BACKLOG  BEHIND  LOST  DISK FREE\n");
}
} // namespace
