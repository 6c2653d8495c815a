#include "common/Wait.h"

#include "common/UniqueFd.h"
#include "support/Signals.h"

#include <array>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <vector>

using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace
{
/// A call that gives these results one after the other, with this errno.
struct Script
{
    std::vector<int> results;
    int nError;
    size_t szCalls = 0;

    int operator()()
    {
        errno = nError;
        return results[szCalls++];
    }
};
} // namespace

TEST(Wait, AnInterruptedCallIsMadeAgain)
{
    Script script{{-1, -1, 7}, EINTR};
    EXPECT_EQ(RetryOnEintr([&] { return script(); }), 7);
    EXPECT_EQ(script.szCalls, 3u);
}

TEST(Wait, AnotherErrorAndASuccessEndIt)
{
    Script failed{{-1, 7}, EPIPE};
    EXPECT_EQ(RetryOnEintr([&] { return failed(); }), -1);
    EXPECT_EQ(errno, EPIPE);
    Script zero{{0, 7}, EINTR};
    EXPECT_EQ(RetryOnEintr([&] { return zero(); }), 0) << "errno is of an earlier call then";
}

TEST(Wait, ItsTimeEndsTheRetriesToo)
{
    Script script{{-1, 7}, EINTR};
    EXPECT_EQ(RetryOnEintr([&] { return script(); }, steady_clock::now()), -1);
    EXPECT_EQ(errno, EINTR);
}

TEST(Wait, MillisecondsUntilATimeAreRoundedUp)
{
    EXPECT_EQ(MsUntil(steady_clock::now() - milliseconds(5)), 0);
    const int lLeft = MsUntil(steady_clock::now() + milliseconds(5000));
    EXPECT_GT(lLeft, 4000);
    EXPECT_LE(lLeft, 5000);
}

TEST(Wait, ASignalNeitherEndsNorProlongsAPoll)
{
    const CUniqueFd event(eventfd(0, EFD_CLOEXEC));
    std::array<pollfd, 1> fds = {{{event.Get(), POLLIN, 0}}};
    const int nBefore = CSignals::Count();
    const CSignals signals;
    const auto start = steady_clock::now();
    EXPECT_EQ(PollFor(fds, 300), 0);
    const auto took = steady_clock::now() - start;
    EXPECT_GT(CSignals::Count(), nBefore);
    EXPECT_GE(took, milliseconds(300));
    EXPECT_LT(took, milliseconds(2000));
    ASSERT_EQ(eventfd_write(event.Get(), 1), 0);
    EXPECT_EQ(PollFor(fds, 300), 1);
}

TEST(WriteAll, WritesAsMuchAsGoesAndTellsHowMuch)
{
    int anPipe[2] = {-1, -1};
    ASSERT_EQ(pipe2(anPipe, O_NONBLOCK | O_CLOEXEC), 0);
    CUniqueFd reader(anPipe[0]);
    const CUniqueFd writer(anPipe[1]);
    const std::vector<unsigned char> vecBytes(1024 * 1024, 'x');
    const size_t szTaken = WriteAll(writer.Get(), vecBytes);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_GT(szTaken, 0u);
    EXPECT_LT(szTaken, vecBytes.size());
    std::vector<unsigned char> vecRead(vecBytes.size());
    EXPECT_EQ(read(reader.Get(), vecRead.data(), vecRead.size()), static_cast<ssize_t>(szTaken));
    EXPECT_EQ(WriteAll(writer.Get(), Slice(ByteView(vecBytes), 0, 5)), 5u);
    EXPECT_EQ(WriteAll(writer.Get(), {}), 0u);
}
