#include "common/ListenSocket.h"

#include "common/Config.h"
#include "common/Debug.h"

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <sys/socket.h>

bool ListenAddress(unsigned short usPort, sockaddr_in& stAddr)
{
    stAddr = {};
    stAddr.sin_family = AF_INET;
    stAddr.sin_port = htons(usPort);
    stAddr.sin_addr.s_addr = htonl(INADDR_ANY);
    const char* const pszAddress = CConfig::Instance()->GetListenAddress();
    if (*pszAddress == '\0' || inet_pton(AF_INET, pszAddress, &stAddr.sin_addr) == 1)
        return true;
    errno = EADDRNOTAVAIL;
    return false;
}

CUniqueFd OpenListenSocket(unsigned short usPort, int nBacklog, LISTEN_STEP& enFailed)
{
    enFailed = LISTEN_STEP::CREATE;
    CUniqueFd listenFd(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_TCP));
    if (!listenFd.IsOpen())
        return {};
    const int nReuse = CConfig::Instance()->GetRecovery() ? 1 : 0;
    (void)setsockopt(listenFd.Get(), SOL_SOCKET, SO_REUSEADDR, &nReuse, sizeof(nReuse)); // a refusal shows in bind
    enFailed = LISTEN_STEP::BIND;
    sockaddr_in stAddr{};
    const bool bBound = ListenAddress(usPort, stAddr) &&
                        bind(listenFd.Get(), reinterpret_cast<const sockaddr*>(&stAddr), sizeof(stAddr)) == 0;
    if (bBound) {
        enFailed = LISTEN_STEP::LISTEN;
        if (listen(listenFd.Get(), nBacklog) == 0)
            return listenFd;
    }
    const int iError = errno; // close must not change it
    listenFd.Reset();
    errno = iError;
    return {};
}

bool IsConnectionAllowed(const sockaddr_in& stPeer)
{
    if (CConfig::Instance()->IsPeerAllowed(ntohl(stPeer.sin_addr.s_addr)))
        return true;
    std::array<char, INET_ADDRSTRLEN> acText{};
    (void)inet_ntop(AF_INET, &stPeer.sin_addr, acText.data(), acText.size()); // the buffer fits every address
    CDebug::Instance()->PrintWarn("Connection from %s is not allowed, closed", acText.data());
    return false;
}
