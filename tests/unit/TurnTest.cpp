#include "common/Turn.h"

#include "support/LogCapture.h"

#include <gtest/gtest.h>
#include <regex>
#include <thread>

namespace
{
using std::chrono::milliseconds;
} // namespace

TEST(Turn, ALongOneIsToldAndTheLongestKept)
{
    const CLogCapture log;
    {
        const CTurn turn(LOOP::SERIAL_WRITE);
        std::this_thread::sleep_for(milliseconds(30)); // a turn is measured by the clock
    }
    {
        const CTurn turn(LOOP::SERIAL_WRITE);
    }
    EXPECT_EQ(log.Count("[INF] : The loop for serial write took "), 1);
    CTurn::LogLongest();
    ASSERT_TRUE(log.Saw(", device monitor 0.0 ms\n"));
    const std::regex line("\\[INF\\] : Longest turns: clients 0\\.0 ms, agent messages 0\\.0 ms, serial read 0\\.0 ms, "
                          "serial write ([0-9]+\\.[0-9]) ms, device monitor 0\\.0 ms\n");
    std::smatch match;
    const std::string strText = log.Text();
    ASSERT_TRUE(std::regex_search(strText, match, line)) << strText;
    EXPECT_GE(std::stod(match[1]), 30.0);
}
