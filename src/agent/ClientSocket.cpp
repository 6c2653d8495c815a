#include "agent/ClientSocket.h"

#include "common/Config.h"
#include "common/Wait.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace
{
constexpr int CLIENT_SEND_BUF = 32768; // SO_SNDBUF
// A connection that carries nothing is asked after 10 s and given up 20 s later; one with bytes under way after 30 s.
constexpr int KEEPALIVE_IDLE_S = 10;
constexpr int KEEPALIVE_INTERVAL_S = 5;
constexpr int KEEPALIVE_PROBES = 4;
constexpr int USER_TIMEOUT_MS = 30'000;

/// Wishes only: on what is no TCP socket most of them fail.
void SetOption(int nSocket, int nLevel, int nName, int nValue)
{
    (void)setsockopt(nSocket, nLevel, nName, &nValue, sizeof(nValue));
}
} // namespace

bool SetUpClientSocket(int nSocket)
{
    SetOption(nSocket, SOL_SOCKET, SO_SNDBUF, CLIENT_SEND_BUF);
    // What was sent last must not wait for the ack of what went before: a client's system may hold its ack back for
    // longer than the agent waits for the client to take more (RFC 1122, 4.2.3.2 and 4.2.3.4).
    SetOption(nSocket, IPPROTO_TCP, TCP_NODELAY, 1);
    if (CConfig::Instance()->GetRecovery()) {
        SetOption(nSocket, SOL_SOCKET, SO_KEEPALIVE, 1);
        SetOption(nSocket, IPPROTO_TCP, TCP_KEEPIDLE, KEEPALIVE_IDLE_S);
        SetOption(nSocket, IPPROTO_TCP, TCP_KEEPINTVL, KEEPALIVE_INTERVAL_S);
        SetOption(nSocket, IPPROTO_TCP, TCP_KEEPCNT, KEEPALIVE_PROBES);
        SetOption(nSocket, IPPROTO_TCP, TCP_USER_TIMEOUT, USER_TIMEOUT_MS);
    }
    return SetNonBlocking(nSocket, true);
}
