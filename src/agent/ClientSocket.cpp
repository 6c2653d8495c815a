#include "agent/ClientSocket.h"

#include "common/KeepAlive.h"
#include "common/Wait.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace
{
constexpr int CLIENT_SEND_BUF = 32768; // SO_SNDBUF

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
    KeepAlive(nSocket);
    return SetNonBlocking(nSocket, true);
}
