#include "agent/ServiceNotify.h"

#include "common/UniqueFd.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace
{
using std::chrono::seconds;

/// A service manager's socket, with an abstract name, and the environment that tells it.
class ServiceNotify : public testing::Test
{
protected:
    ServiceNotify()
    {
        sockaddr_un stAddress{};
        stAddress.sun_family = AF_UNIX;
        std::copy(m_strName.begin() + 1, m_strName.end(), stAddress.sun_path + 1);
        const auto ulLength = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + m_strName.size());
        EXPECT_EQ(bind(m_socket.Get(), reinterpret_cast<const sockaddr*>(&stAddress), ulLength), 0);
        (void)setenv("NOTIFY_SOCKET", m_strName.c_str(), 1);
    }
    ~ServiceNotify() override
    {
        for (const char* pszName : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"})
            (void)unsetenv(pszName);
    }
    /// What came, or nothing.
    std::string Received() const
    {
        char szText[100] = {};
        const ssize_t lRead = recv(m_socket.Get(), szText, sizeof(szText), MSG_DONTWAIT);
        return {szText, lRead > 0 ? static_cast<size_t>(lRead) : 0};
    }

    const std::string m_strName = "@vex-test-" + std::to_string(getpid());
    const CUniqueFd m_socket{socket(AF_UNIX, SOCK_DGRAM, 0)};
};
} // namespace

TEST_F(ServiceNotify, AStateReachesTheManager)
{
    EXPECT_TRUE(NotifyService("READY=1"));
    EXPECT_EQ(Received(), "READY=1");
}

TEST_F(ServiceNotify, WithoutAManagerOrWithAStrangeNameNobodyIsTold)
{
    for (const char* pszName : {"", "x", "relative/path", "/does/not/exist"}) {
        (void)setenv("NOTIFY_SOCKET", pszName, 1);
        EXPECT_FALSE(NotifyService("READY=1")) << pszName;
    }
    (void)setenv("NOTIFY_SOCKET", ("/" + std::string(108, 'a')).c_str(), 1);
    EXPECT_FALSE(NotifyService("READY=1"));
    (void)unsetenv("NOTIFY_SOCKET");
    EXPECT_FALSE(NotifyService("READY=1"));
    EXPECT_EQ(Received(), "");
}

TEST_F(ServiceNotify, AWatchdogIsPingedTwiceAsOftenAsItWants)
{
    (void)setenv("WATCHDOG_USEC", "4000000", 1);
    (void)setenv("WATCHDOG_PID", std::to_string(getpid()).c_str(), 1);
    CWatchdog watchdog;
    const CWatchdog::TIME start{seconds(100)};
    watchdog.Ping(start);
    EXPECT_EQ(Received(), "WATCHDOG=1");
    EXPECT_EQ(watchdog.NextPing(), start + seconds(2));
    watchdog.Ping(start + seconds(1));
    EXPECT_EQ(Received(), "");
    watchdog.Ping(start + seconds(2));
    EXPECT_EQ(Received(), "WATCHDOG=1");
}

TEST_F(ServiceNotify, NoWatchdogIsPingedThatIsAbsentOrMeansAnother)
{
    const auto isSilent = [] { return CWatchdog().NextPing() == CWatchdog::TIME::max(); };
    EXPECT_TRUE(isSilent());
    (void)setenv("WATCHDOG_USEC", "0", 1);
    EXPECT_TRUE(isSilent());
    (void)setenv("WATCHDOG_USEC", "4s", 1);
    EXPECT_TRUE(isSilent());
    (void)setenv("WATCHDOG_USEC", "4000000", 1);
    EXPECT_FALSE(isSilent());
    (void)setenv("WATCHDOG_PID", "1", 1);
    EXPECT_TRUE(isSilent());
}
