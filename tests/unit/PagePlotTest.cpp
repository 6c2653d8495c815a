#include "page/Plot.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace
{
PLOT_VALUES One(double dValue)
{
    return {{"a", dValue, true}};
}

/// Points at a steady period, from time 0 on.
void AddSteady(CPlot& plot, size_t szCount, double dPeriodMs)
{
    for (size_t i = 0; i < szCount; ++i)
        plot.Add(static_cast<double>(i) * dPeriodMs, One(static_cast<double>(i)));
}

double LargestGap(const CPlot& plot)
{
    double dLargest = 0;
    for (size_t i = 1; i < plot.Points().size(); ++i)
        dLargest = std::max(dLargest, plot.Points()[i].dTime - plot.Points()[i - 1].dTime);
    return dLargest;
}

/// Points that aren't older than that.
size_t PointsSince(const CPlot& plot, double dTime)
{
    return static_cast<size_t>(
        std::ranges::count_if(plot.Points(), [&](const PLOT_POINT& st) { return st.dTime >= dTime; }));
}
} // namespace

TEST(Plot, AnHourAtOneASecondIsKeptWhole)
{
    CPlot plot;
    AddSteady(plot, 3600, 1000);
    EXPECT_EQ(plot.Points().size(), 3600U);
    EXPECT_EQ(plot.Points().front().dTime, 0);
}

TEST(Plot, AShortPeriodIsThinnedBeyondTenMinutes)
{
    CPlot plot;
    AddSteady(plot, 7201, 500); // an hour
    EXPECT_LE(plot.Points().size(), CPlot::POINTS_MOST);
    EXPECT_EQ(plot.Last(), 3'600'000);
    EXPECT_LE(plot.Points().front().dTime, 10'000); // the hour is still there
    EXPECT_EQ(PointsSince(plot, 3'000'000), 1201U); // ten minutes, all of them
    EXPECT_LE(LargestGap(plot), 4000);
}

TEST(Plot, TheShortestPeriodKeepsAnHourToo)
{
    CPlot plot;
    AddSteady(plot, 36001, 100);
    EXPECT_LE(plot.Points().size(), CPlot::POINTS_MOST);
    EXPECT_LE(plot.Points().front().dTime, 20'000);
    EXPECT_GE(PointsSince(plot, 3'600'000 - 200'000), 2000U); // the newest 200 s whole
    EXPECT_LE(LargestGap(plot), 10'000);
}

TEST(Plot, WhatIsOlderThanAnHourGoes)
{
    CPlot plot;
    AddSteady(plot, 100, 60'000); // 99 minutes
    EXPECT_EQ(plot.Points().size(), 61U);
    EXPECT_EQ(plot.Points().front().dTime, 39 * 60'000);
    plot.Add(1e15, One(1)); // the clock was set
    EXPECT_EQ(plot.Points().size(), 1U);
    EXPECT_GT(plot.Bytes(), 0U);
    EXPECT_TRUE(plot.DropOldest());
    EXPECT_EQ(plot.Bytes(), 0U);
    EXPECT_FALSE(plot.DropOldest());
}

TEST(Plot, LinesComeAsTheirNamesDoUpTo64)
{
    CPlot plot;
    plot.Add(0, {{"a", 1, true}});
    plot.Add(1, {{"b", 2.5, false}, {"a", 3, true}});
    ASSERT_EQ(plot.Lines().size(), 2U);
    EXPECT_EQ(plot.Lines()[1].strName, "b");
    EXPECT_FALSE(plot.Lines()[1].bWhole);
    EXPECT_EQ(plot.Points()[0].ullHas, 1U);
    EXPECT_EQ(plot.Points()[1].ullHas, 3U);
    EXPECT_EQ(plot.Points()[1].vecValues, (std::vector<double>{3, 2.5}));
    PLOT_VALUES many;
    for (int i = 0; i < 70; ++i)
        many.push_back({"line" + std::to_string(i), 1, true});
    plot.Add(2, many);
    plot.Add(3, many);
    EXPECT_EQ(plot.Lines().size(), 64U);
    EXPECT_EQ(plot.LinesBeyond(), 8U); // 70 and the two from before
    EXPECT_EQ(plot.Points()[2].ullHas, ~uint64_t{3});
}

TEST(Plot, RunsWhileAPointIsFiveSecondsOrThreePeriodsOld)
{
    CPlot plot;
    EXPECT_FALSE(plot.IsRunning(0));
    plot.Add(0, One(1));
    EXPECT_TRUE(plot.IsRunning(5000));
    EXPECT_FALSE(plot.IsRunning(5001));
    plot.Add(60'000, One(1));
    EXPECT_TRUE(plot.IsRunning(240'000));
    EXPECT_FALSE(plot.IsRunning(240'001));
}

TEST(Plot, ATicksPointsAreThoseSinceTheOneBefore)
{
    CPlot plot;
    plot.Add(0, One(1));
    plot.MarkTick();
    EXPECT_EQ(plot.TickBegin(), 0U);
    EXPECT_EQ(plot.TickEnd(), 1U);
    plot.Add(1, One(1));
    plot.Add(2, One(1));
    EXPECT_EQ(plot.TickEnd(), 1U); // not before the next tick
    plot.MarkTick();
    EXPECT_EQ(plot.TickBegin(), 1U);
    EXPECT_EQ(plot.TickEnd(), 3U);
    (void)plot.DropOldest();
    EXPECT_EQ(plot.TickBegin(), 0U);
    EXPECT_EQ(plot.TickEnd(), 2U);
}
