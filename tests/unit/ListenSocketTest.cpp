#include "common/ListenSocket.h"

#include "common/Config.h"
#include "support/LogCapture.h"
#include "support/Sockets.h"

#include <arpa/inet.h>
#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

namespace
{
constexpr unsigned short PORT = 20460;
constexpr int BACKLOG = 4;

void Configure(std::string strLine)
{
    (void)CConfig::Instance()->ParseLine(strLine);
}

sockaddr_in Peer(const char* pszAddress)
{
    sockaddr_in stPeer{};
    stPeer.sin_family = AF_INET;
    stPeer.sin_addr.s_addr = inet_addr(pszAddress);
    return stPeer;
}

/// Leaves a connection of the port behind that lingers: the side that closes first keeps it for a while.
void LeaveLingering()
{
    LISTEN_STEP enFailed{};
    const CUniqueFd listener = OpenListenSocket(PORT, BACKLOG, enFailed);
    const CUniqueFd client = ConnectTcp(PORT);
    CUniqueFd(accept(listener.Get(), nullptr, nullptr)).Reset();
    EXPECT_TRUE(SawClose(client));
}
} // namespace

TEST(ListenSocket, ListensOnAllAddressesAndNeverWaits)
{
    LISTEN_STEP enFailed{};
    const CUniqueFd listener = OpenListenSocket(PORT, BACKLOG, enFailed);
    ASSERT_TRUE(listener.IsOpen());
    EXPECT_NE(fcntl(listener.Get(), F_GETFL) & O_NONBLOCK, 0);
    sockaddr_in stAddr{};
    socklen_t ulLen = sizeof(stAddr);
    ASSERT_EQ(getsockname(listener.Get(), reinterpret_cast<sockaddr*>(&stAddr), &ulLen), 0);
    EXPECT_EQ(stAddr.sin_addr.s_addr, htonl(INADDR_ANY));
    EXPECT_TRUE(ConnectTcp(PORT).IsOpen());
}

TEST(ListenSocket, ListensOnTheConfiguredAddress)
{
    Configure("ListenAddress=127.0.0.2");
    LISTEN_STEP enFailed{};
    const CUniqueFd listener = OpenListenSocket(PORT, BACKLOG, enFailed);
    ASSERT_TRUE(listener.IsOpen());
    EXPECT_FALSE(ConnectTcp(PORT, std::chrono::milliseconds(0)).IsOpen()) << "127.0.0.1";
    sockaddr_in stAddr{};
    socklen_t ulLen = sizeof(stAddr);
    ASSERT_EQ(getsockname(listener.Get(), reinterpret_cast<sockaddr*>(&stAddr), &ulLen), 0);
    EXPECT_EQ(stAddr.sin_addr.s_addr, inet_addr("127.0.0.2"));
}

TEST(ListenSocket, AnAddressThatIsNoneLetsNobodyIn)
{
    Configure("ListenAddress=localhost");
    LISTEN_STEP enFailed{};
    EXPECT_FALSE(OpenListenSocket(PORT, BACKLOG, enFailed).IsOpen());
    EXPECT_EQ(errno, EADDRNOTAVAIL);
    EXPECT_EQ(enFailed, LISTEN_STEP::BIND);
}

TEST(ListenSocket, APortThatIsTakenIsAFailure)
{
    for (const char* pszRecovery : {"Recovery=0", "Recovery=1"}) {
        Configure(pszRecovery);
        LISTEN_STEP enFailed{};
        const CUniqueFd taken = OpenListenSocket(PORT, BACKLOG, enFailed);
        EXPECT_FALSE(OpenListenSocket(PORT, BACKLOG, enFailed).IsOpen()) << pszRecovery;
        EXPECT_EQ(errno, EADDRINUSE);
        EXPECT_EQ(enFailed, LISTEN_STEP::BIND);
    }
}

TEST(ListenSocket, RecoveryTakesAPortWhereConnectionsLinger)
{
    Configure("Recovery=1");
    LeaveLingering();
    LISTEN_STEP enFailed{};
    EXPECT_TRUE(OpenListenSocket(PORT, BACKLOG, enFailed).IsOpen());
    Configure("Recovery=0");
    EXPECT_FALSE(OpenListenSocket(PORT, BACKLOG, enFailed).IsOpen());
}

TEST(ListenSocket, ConnectionsThatArentAllowedAreTold)
{
    const CLogCapture log;
    EXPECT_TRUE(IsConnectionAllowed(Peer("192.0.2.1"))) << "all, unless the configuration says otherwise";
    Configure("AllowFrom=127.0.0.0/8");
    EXPECT_TRUE(IsConnectionAllowed(Peer("127.0.0.1")));
    EXPECT_EQ(log.Count("Connection from"), 0);
    EXPECT_FALSE(IsConnectionAllowed(Peer("192.0.2.1")));
    EXPECT_EQ(log.Count("[WAN] : Connection from 192.0.2.1 is not allowed, closed"), 1);
}
