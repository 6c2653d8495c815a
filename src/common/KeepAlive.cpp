#include "common/KeepAlive.h"

#include "common/Config.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace
{
// Asked after 10 s without a byte, given up 20 s later.
constexpr int IDLE_S = 10;
constexpr int INTERVAL_S = 5;
constexpr int PROBES = 4;
constexpr int USER_TIMEOUT_MS = 30'000;

void SetOption(int nSocket, int nLevel, int nName, int nValue)
{
    (void)setsockopt(nSocket, nLevel, nName, &nValue, sizeof(nValue));
}
} // namespace

void KeepAlive(int nSocket)
{
    if (!CConfig::Instance()->GetRecovery())
        return;
    SetOption(nSocket, SOL_SOCKET, SO_KEEPALIVE, 1);
    SetOption(nSocket, IPPROTO_TCP, TCP_KEEPIDLE, IDLE_S);
    SetOption(nSocket, IPPROTO_TCP, TCP_KEEPINTVL, INTERVAL_S);
    SetOption(nSocket, IPPROTO_TCP, TCP_KEEPCNT, PROBES);
    SetOption(nSocket, IPPROTO_TCP, TCP_USER_TIMEOUT, USER_TIMEOUT_MS);
}
