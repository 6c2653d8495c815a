#include "agent/ClientServer.h"

#include "agent/Client.h"
#include "agent/PollSet.h"
#include "common/Debug.h"
#include "common/NoMemory.h"
#include "common/Wait.h"
#include "data/gu/OperationGUData.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <thread>

// The main thread holds m_ClientListMutex while it waits for sockets, so a client that another thread removes is
// gone from the wait before its socket is closed. That other thread must not wait for a whole second: it counts
// itself in m_nListWaiters, ends the wait by m_WakeUp, and the main thread lets it go first.

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace
{
constexpr int LISTEN_BACKLOG = 16;
constexpr size_t CLIENT_READ_LEN = 1024; // bytes read from a client in one pass
constexpr int CLIENT_SEND_BUF = 32768;   // SO_SNDBUF
constexpr auto CLIENT_WAIT = 1s;         // an idle wait lasts this long
constexpr auto NO_MEMORY_PAUSE = 100ms;  // after a pass that memory was too short for
constexpr auto ACCEPT_PAUSE = 1s;        // before the next accept when the system is short of descriptors

bool BindAndListen(int nSocket, unsigned short usPort)
{
    // No SO_REUSEADDR: a port that is still in use is a failure.
    sockaddr_in stAddr{};
    stAddr.sin_family = AF_INET;
    stAddr.sin_port = htons(usPort);
    stAddr.sin_addr.s_addr = htonl(INADDR_ANY);
    return bind(nSocket, reinterpret_cast<const sockaddr*>(&stAddr), sizeof(stAddr)) == 0 &&
           listen(nSocket, LISTEN_BACKLOG) == 0;
}

/// A listen socket on the port, or -1. A person at the console learns which port it was. Non-blocking, so that a
/// client that has gone again before its accept can't hold the main thread.
int OpenListenSocket(unsigned short usPort)
{
    CUniqueFd listenFd(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0));
    if (listenFd.IsOpen() && BindAndListen(listenFd.Get(), usPort))
        return listenFd.Release();
    (void)std::fprintf(stderr, "vex-agent: can't listen on TCP port %d: %s\n", usPort, std::strerror(errno));
    return -1;
}

void CloseSocket(int& nSocket)
{
    CUniqueFd(std::exchange(nSocket, -1)).Reset();
}

/// What was sent last must not wait for the ack of what went before: a client's system may hold its ack back for
/// longer than the agent waits for the client to take more (RFC 1122, 4.2.3.2 and 4.2.3.4).
void SendWithoutDelay(int nSocket)
{
    const int nOn = 1;
    (void)setsockopt(nSocket, IPPROTO_TCP, TCP_NODELAY, &nOn, sizeof(nOn)); // fails on what is no TCP socket only
}

bool IsOutOfResources(int iError)
{
    return iError == EMFILE || iError == ENFILE || iError == ENOBUFS || iError == ENOMEM;
}
} // namespace

// Without the eventfd everything works too: a thread that waits for the client list then waits for up to a second.
CClientServer::CClientServer(CBindings& bindings, CChannelTable& table, CStatusReporter& status,
                             const CGuOperations& operations)
    : m_bindings(bindings),
      m_table(table),
      m_status(status),
      m_operations(operations),
      m_WakeUp(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))
{
}

CClientServer::~CClientServer() = default;

void CClientServer::Stop()
{
    m_bRun = false;
    WakeUp();
}

int CClientServer::CreateListenSocket(int* pnSockets, int nCount)
{
    std::fill_n(pnSockets, nCount, -1);
    int nGreatest = -1;
    for (int i = 0; i < nCount; ++i) {
        pnSockets[i] = OpenListenSocket(LISTENPORT[static_cast<size_t>(i)]);
        if (pnSockets[i] < 0) {
            std::for_each_n(pnSockets, nCount, CloseSocket);
            break;
        }
        nGreatest = std::max(nGreatest, pnSockets[i]);
    }
    return nGreatest;
}

int CClientServer::ListenFun()
{
    CListenSockets anListen;
    if (CreateListenSocket(anListen.data(), static_cast<int>(anListen.size())) < 0) {
        CDebug::Instance()->PrintError("CreateListenSocket fail");
        return 0;
    }
    ReleaseClients();
    CPollSet fds;
    while (m_bRun) {
        bool bWaited = true;
        if (!DropOnNoMemory("a pass over the clients", [&] { bWaited = ServeClients(fds, anListen); }))
            std::this_thread::sleep_for(NO_MEMORY_PAUSE); // what came is still in the sockets
        if (!bWaited) {
            // Also the way out when a port other than the first was taken: all sockets are closed then.
            CDebug::Instance()->PrintError("socket select fail, errno:%d", errno);
            return 0;
        }
    }
    std::ranges::for_each(anListen, CloseSocket);
    ReleaseClients();
    return 0;
}

/// One pass: waits, and takes what comes. False, with errno, when the wait failed.
bool CClientServer::ServeClients(CPollSet& fds, const CListenSockets& anListen)
{
    const int iReady = WaitForClients(fds, anListen);
    if (iReady == 0)
        m_status.SendAgentVer(); // once in each idle second
    else if (iReady > 0)
        OnClientDataArrive(fds, anListen);
    return iReady >= 0;
}

/// Waits for one second at most, also when m_WakeUp ends the wait now and then: such an end is no idle second.
int CClientServer::WaitForClients(CPollSet& fds, const CListenSockets& anListen)
{
    const auto end = m_fnNow() + CLIENT_WAIT;
    for (;;) {
        LetListWaitersIn();
        const xtl::MutexGuard guard(m_ClientListMutex);
        fds.Clear();
        FillPollSet(fds, anListen);
        const int iReady = fds.Wait(MsUntil(end, m_fnNow()));
        if (iReady != 1 || !fds.IsReady(m_WakeUp.Get()) || !m_bRun)
            return iReady;
        eventfd_t ullCount = 0;
        (void)eventfd_read(m_WakeUp.Get(), &ullCount); // the next wait is to last again
    }
}

void CClientServer::FillPollSet(CPollSet& fds, const CListenSockets& anListen) const
{
    if (Clock::now() >= m_AcceptAgain)
        std::ranges::for_each(anListen, [&](int nSocket) { fds.Add(nSocket); });
    if (m_WakeUp.IsOpen())
        fds.Add(m_WakeUp.Get());
    for (const auto& pClient : m_vecClients)
        fds.Add(pClient->GetClientSocket());
}

void CClientServer::WakeUp()
{
    if (m_WakeUp.IsOpen())
        (void)eventfd_write(m_WakeUp.Get(), 1); // fails only when the wake-up is already far overdue
}

void CClientServer::LetListWaitersIn()
{
    for (int nWaiters = m_nListWaiters; nWaiters != 0; nWaiters = m_nListWaiters)
        m_nListWaiters.wait(nWaiters);
}

void CClientServer::OnClientDataArrive(const CPollSet& fds, const CListenSockets& anListen)
{
    const xtl::MutexGuard guard(m_bindings.Mutex());
    ReadClients(fds);
    for (size_t i = 0; i < anListen.size(); ++i)
        if (fds.IsReady(anListen[i]))
            AcceptClients(anListen[i], static_cast<enChannelType>(i));
}

void CClientServer::ReadClients(const CPollSet& fds)
{
    std::vector<std::shared_ptr<CClient>> vecReady;
    {
        const xtl::MutexGuard guard(m_ClientListMutex);
        std::ranges::copy_if(m_vecClients, std::back_inserter(vecReady),
                             [&](const auto& pClient) { return fds.IsReady(pClient->GetClientSocket()); });
    }
    for (; !vecReady.empty(); vecReady.pop_back()) // from the last to the first
        ReadClient(vecReady.back());
}

/// pClient is the caller's hold on the client; it's given up when the client goes.
void CClientServer::ReadClient(std::shared_ptr<CClient>& pClient)
{
    std::array<unsigned char, CLIENT_READ_LEN> aucBuf;
    const int nSocket = pClient->GetClientSocket();
    const ssize_t lRead = recv(nSocket, aucBuf.data(), aucBuf.size(), 0);
    const int iError = errno;
    if (lRead > 0) {
        (void)DropOnNoMemory("a client's request", [&] {
            pClient->OnClientData({aucBuf.data(), static_cast<size_t>(lRead)});
        });
        return;
    }
    if (lRead < 0 && (iError == EINTR || iError == EAGAIN))
        return;
    m_bindings.UnBindUE(pClient.get());
    if (lRead == 0)
        CDebug::Instance()->PrintInfo("Client(handle %d) %s is disconnect", nSocket,
                                      strChannelType[static_cast<size_t>(pClient->GetClientType())]);
    {
        const xtl::MutexGuard guard(m_ClientListMutex);
        std::erase(m_vecClients, pClient);
    }
    ForgetClient(pClient.get());
    pClient.reset();
    if (lRead < 0)
        CDebug::Instance()->PrintError("socket recv client(handle %d) data Error, ret:0x%x, errno:%d", nSocket,
                                       static_cast<unsigned int>(lRead), iError);
}

/// No GU operation may keep a pointer to a client that goes.
void CClientServer::ForgetClient(CClient* pClient)
{
    for (const auto& pOperation : m_operations)
        pOperation->ForgetClient(pClient);
}

/// A client whose channel has gone, removed by the thread that takes the UE events.
void CClientServer::RemoveLostClient(CClient* pClient)
{
    ForgetClient(pClient);
    ++m_nListWaiters;
    WakeUp();
    const xtl::MutexGuard guard(m_ClientListMutex);
    --m_nListWaiters;
    m_nListWaiters.notify_all();
    std::erase_if(m_vecClients, [&](const auto& pEntry) { return pEntry.get() == pClient; });
}

void CClientServer::ReleaseClients()
{
    const xtl::MutexGuard guard(m_bindings.Mutex());
    m_table.ClearClients();
    const xtl::MutexGuard listGuard(m_ClientListMutex);
    for (const auto& pClient : m_vecClients)
        ForgetClient(pClient.get());
    m_vecClients.clear();
}

/// Takes all that wait: a crowd that comes at once soon fills the short backlog, and then waits for a second or more.
void CClientServer::AcceptClients(int nListen, enChannelType enType)
{
    for (int i = 0; i < LISTEN_BACKLOG && AcceptClient(nListen, enType); ++i) {
    }
}

/// False when no more can be taken now.
bool CClientServer::AcceptClient(int nListen, enChannelType enType)
{
    sockaddr_in stAddr{};
    socklen_t ulAddrLen = sizeof(stAddr);
    CUniqueFd clientFd(RetryOnEintr([&] { return accept(nListen, reinterpret_cast<sockaddr*>(&stAddr), &ulAddrLen); }));
    if (!clientFd.IsOpen()) {
        if (errno == EAGAIN)
            return false; // all taken, or gone again
        // The connection stays in the backlog; without a pause the wait would end at once, again and again.
        if (IsOutOfResources(errno))
            m_AcceptAgain = Clock::now() + ACCEPT_PAUSE;
        CDebug::Instance()->PrintError("Accept socket fail!");
        return false;
    }
    (void)setsockopt(clientFd.Get(), SOL_SOCKET, SO_SNDBUF, &CLIENT_SEND_BUF, sizeof(CLIENT_SEND_BUF)); // a wish
    SendWithoutDelay(clientFd.Get());
    if (!SetNonBlocking(clientFd.Get(), true)) {
        CDebug::Instance()->PrintError("set(fcntl) client socket O_NONBLOCK fail");
        return true;
    }
    (void)DropOnNoMemory("a new client", [&] { AddClient(clientFd.Release(), enType, stAddr); });
    return true;
}

void CClientServer::MakeRoomForClient()
{
    const xtl::MutexGuard guard(m_ClientListMutex);
    m_vecClients.reserve(m_vecClients.size() + 1);
}

CClient* CClientServer::AddClient(int nSocket, enChannelType enType, const sockaddr_in& stAddr)
{
    CUniqueFd socketFd(nSocket);
    std::unique_ptr<CClient> pNew(new (std::nothrow) CClient(nSocket, enType, &m_bindings));
    if (!pNew) {
        CDebug::Instance()->PrintError("create CClient object fail");
        return nullptr;
    }
    (void)socketFd.Release(); // the client's from here on
    const std::shared_ptr<CClient> pClient(std::move(pNew));
    MakeRoomForClient();
    CDebug::Instance()->PrintInfo("new Client connect, type is %s", strChannelType[static_cast<size_t>(enType)]);
    pClient->GetAddress() = stAddr;
    // The binding looks at the clients that were there before this one. Whatever becomes of it, the client is listed:
    // a row of the channel table may know it.
    (void)DropOnNoMemory("the default binding", [&] { DefaultBindClient(pClient.get()); });
    const xtl::MutexGuard guard(m_ClientListMutex);
    m_vecClients.push_back(pClient);
    return pClient.get();
}

void CClientServer::DefaultBindClient(CClient* pClient)
{
    const auto isSameType = [&](const auto& pOther) { return pOther->GetClientType() == pClient->GetClientType(); };
    {
        const xtl::MutexGuard guard(m_ClientListMutex);
        if (std::ranges::any_of(m_vecClients, isSameType))
            return; // only the first client of a type is bound by itself
    }
    for (UE_INDEX i = 0; i < MAXUENUM; ++i)
        if (m_table.IsChannelOK(i, CHANNEL_LTE_DIAG)) { // whatever the client's type
            m_bindings.UnBindUE(pClient);
            (void)m_bindings.BindUE(pClient, i);
            return;
        }
}
