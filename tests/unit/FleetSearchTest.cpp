#include "fleet/StreamReader.h"

#include <gtest/gtest.h>

// Looking for the segments of a time span in the stream.

namespace
{
/// A lane's messages: sequence and when its segment began.
using Lane = std::map<uint64_t, uint64_t>;

CSegmentSearch SearchIn(const Lane& lane, SEQUENCE_RANGE stRange)
{
    return {[&lane](uint64_t ullSequence) -> std::optional<CSegmentSearch::FOUND> {
                const auto next = lane.lower_bound(ullSequence);
                if (next == lane.end())
                    return std::nullopt;
                return CSegmentSearch::FOUND{next->first, next->second};
            },
            stRange};
}

TEST(FleetSearch, FindsTheFirstMessageOfATime)
{
    const Lane lane = {{5, 100}, {6, 100}, {40, 200}, {70, 300}, {71, 300}};
    const CSegmentSearch search = SearchIn(lane, {1, 1001});
    const struct
    {
        uint64_t ullTime;
        uint64_t ullAfter; // sequence of the last message before that time, 0 for none
        uint64_t ullUpTo;  // and of the first one from it on, 1001 for none
    } c_astTime[] = {{0, 0, 5}, {100, 0, 5}, {101, 6, 40}, {200, 6, 40}, {201, 40, 70}, {300, 40, 70}, {301, 71, 1001}};
    for (const auto& stTime : c_astTime) {
        const uint64_t ullFound = search.FirstFrom(stTime.ullTime);
        EXPECT_GT(ullFound, stTime.ullAfter) << stTime.ullTime;
        EXPECT_LE(ullFound, stTime.ullUpTo) << stTime.ullTime;
    }
}

TEST(FleetSearch, TellsTheSegmentBefore)
{
    const Lane lane = {{5, 100}, {6, 100}, {40, 200}, {70, 300}};
    const CSegmentSearch search = SearchIn(lane, {1, 1001});
    EXPECT_EQ(search.LastBefore(100), std::nullopt);
    EXPECT_EQ(search.LastBefore(101), 100u);
    EXPECT_EQ(search.LastBefore(200), 100u);
    EXPECT_EQ(search.LastBefore(250), 200u);
    EXPECT_EQ(search.LastBefore(UINT64_MAX), 300u);
}

TEST(FleetSearch, AnEmptyStreamHasNothing)
{
    const Lane lane;
    EXPECT_EQ(SearchIn(lane, {1, 1}).FirstFrom(5), 1u);
    EXPECT_EQ(SearchIn(lane, {1, 1}).LastBefore(5), std::nullopt);
    EXPECT_EQ(SearchIn(lane, {1, 50}).LastBefore(5), std::nullopt);
}
} // namespace
