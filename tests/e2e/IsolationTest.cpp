#include "e2e/IsolationRun.h"
#include "support/WaitFor.h"

#include <gtest/gtest.h>

// No modem and no client holds up another one: each event that can happen on a bench, beside a modem that streams.

namespace
{
using std::chrono::milliseconds;
using std::chrono::seconds;

class Isolation : public testing::TestWithParam<ISOLATION_EVENT>
{
};

std::string NameOf(const testing::TestParamInfo<ISOLATION_EVENT>& info)
{
    return info.param.pszName;
}
} // namespace

TEST_P(Isolation, TheHealthyModemIsNotHeldUp)
{
    const ISOLATION_RESULT stResult = RunIsolation(GetParam());
    std::printf("%s: worst delay %.1f ms without, %.1f ms with\n", GetParam().pszText, stResult.dWithoutMs,
                stResult.dWithMs);
    for (const SIDE_TIME& stTime : stResult.sideTimes) {
        std::printf("  %s: %.1f ms\n", stTime.strWhat.c_str(), stTime.dMs);
        EXPECT_LE(stTime.dMs, stTime.dLimitMs * ISOLATION_SLACK) << stTime.strWhat;
    }
    EXPECT_EQ(stResult.strFault, "");
    EXPECT_LE(stResult.AddedMs(), ISOLATION_LIMIT_MS * ISOLATION_SLACK);
}
INSTANTIATE_TEST_SUITE_P(, Isolation, testing::ValuesIn(IsolationEvents().begin(), IsolationEvents().end()), NameOf);

TEST(Start, FifteenConfiguredModemsAreServedSoon)
{
    constexpr size_t MODEMS = 15;
    const CStatusEars status;
    ASSERT_TRUE(status.IsOpen());
    CAgentBench bench("ChannelNameEnable=1");
    bench.StartUnreportedModem({"--ues", std::to_string(MODEMS), "--quiet"});
    ASSERT_TRUE(
        WaitFor([&] { return bench.Dir().Read("ports/channels.cfg").find("ChannelPort=") != std::string::npos; }));
    bench.AddConfig(bench.Dir().Read("ports/channels.cfg"));

    const MeterTime begin = MeterClock::now();
    bench.StartAgent();
    ASSERT_TRUE(CTcpClient(CHANNEL_LTE_DIAG, seconds(120)).IsOpen());
    const double dListens = Millis(MeterClock::now() - begin);
    // Told 1.2 s behind the confirmation, with the last of the switches.
    const bool bAll = status.AwaitUes(MODEMS, seconds(110) - milliseconds(static_cast<int>(dListens)));
    const double dAll = Millis(MeterClock::now() - begin);
    std::printf("listens after %.0f ms, %s told as confirmed after %.0f ms\n", dListens, bAll ? "all" : "NOT all",
                dAll);
    EXPECT_LE(dListens, 1000 * ISOLATION_SLACK);
    EXPECT_TRUE(bAll);
    EXPECT_LE(dAll, (8000 + 1200) * ISOLATION_SLACK);
}
