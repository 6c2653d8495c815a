#include "agent/ClientServer.h"

#include "agent/AgentTap.h"
#include "agent/Client.h"
#include "agent/ClientSocket.h"
#include "agent/PollSet.h"
#include "common/Debug.h"
#include "common/ListenSocket.h"
#include "common/MsgBuf.h"
#include "common/NoMemory.h"
#include "common/Turn.h"
#include "common/Wait.h"
#include "data/gu/OperationGUData.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/socket.h>
#include <thread>

// The main thread holds m_ClientListMutex while it waits for sockets, so a client that another thread removes is
// gone from the wait before its socket is closed. That other thread must not wait for a whole second: it counts
// itself in m_nListWaiters, ends the wait by m_WakeUp, and the main thread lets it go first. m_WakeUp also tells of
// clients whose sockets took less than there was for them; the wait ends when they take bytes, or when they have had
// time enough. A client whose UE can't keep up is left out, until RoomWake tells that it may go on.

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace
{
constexpr int LISTEN_BACKLOG = 16;
constexpr size_t CLIENT_READ_LEN = 1024; // bytes read from a client in one pass
constexpr auto CLIENT_WAIT = 1s;         // an idle wait lasts this long
constexpr auto NO_MEMORY_PAUSE = 100ms;  // after a pass that memory was too short for
constexpr auto ACCEPT_PAUSE = 1s;        // before the next accept when the system is short of descriptors

/// A listen socket on the port, or -1. A person at the console learns which port it was. Non-blocking, so that a
/// client that has gone again before its accept can't hold the main thread.
int OpenClientPort(unsigned short usPort)
{
    LISTEN_STEP enFailed{};
    CUniqueFd listenFd = OpenListenSocket(usPort, LISTEN_BACKLOG, enFailed);
    if (!listenFd.IsOpen())
        (void)std::fprintf(stderr, "vex-agent: can't listen on TCP port %d: %s\n", usPort, std::strerror(errno));
    return listenFd.Release();
}

void CloseSocket(int& nSocket)
{
    CUniqueFd(std::exchange(nSocket, -1)).Reset();
}

/// Whether something of the client is to be handled.
bool IsDue(const CClient& client, const CPollSet& fds)
{
    return !client.IsHeldBack() && (client.HasKept() || fds.IsReady(client.GetClientSocket()));
}

bool IsOutOfResources(int iError)
{
    return iError == EMFILE || iError == ENFILE || iError == ENOBUFS || iError == ENOMEM;
}
} // namespace

// Without a descriptor for the wake-up everything works too, but what it tells is seen up to a second later.
CClientServer::CClientServer(CBindings& bindings, CChannelTable& table, CStatusReporter& status,
                             const CGuOperations& operations)
    : m_bindings(bindings), m_table(table), m_status(status), m_operations(operations)
{
}

CClientServer::~CClientServer() = default;

void CClientServer::Stop()
{
    m_bRun = false;
    m_WakeUp.Wake();
}

int CClientServer::CreateListenSocket(int* pnSockets, int nCount)
{
    std::fill_n(pnSockets, nCount, -1);
    int nGreatest = -1;
    for (int i = 0; i < nCount; ++i) {
        pnSockets[i] = OpenClientPort(LISTENPORT[static_cast<size_t>(i)]);
        if (pnSockets[i] < 0) {
            std::for_each_n(pnSockets, nCount, CloseSocket);
            break;
        }
        nGreatest = std::max(nGreatest, pnSockets[i]);
    }
    return nGreatest;
}

int CClientServer::ListenFun(const std::function<void()>& fnListening)
{
    CListenSockets anListen;
    if (CreateListenSocket(anListen.data(), static_cast<int>(anListen.size())) < 0) {
        CDebug::Instance()->PrintError("CreateListenSocket fail");
        return 0;
    }
    fnListening();
    ReleaseClients();
    m_IdleEnd = m_fnNow() + CLIENT_WAIT;
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
    if (WaitForClients(fds, anListen) < 0)
        return false;
    const CTurn turn(LOOP::CLIENTS);
    LookAtOutputs(fds);
    if (HasRequests(fds, anListen)) {
        OnClientDataArrive(fds, anListen);
        m_IdleEnd = m_fnNow() + CLIENT_WAIT;
    } else if (m_fnNow() >= m_IdleEnd) {
        m_status.SendAgentVer(); // once in each idle second
        m_IdleEnd = m_fnNow() + CLIENT_WAIT;
    }
    return true;
}

/// Waits until something may have to be done; negative, with errno, when that fails.
int CClientServer::WaitForClients(CPollSet& fds, const CListenSockets& anListen)
{
    CWakeUp& room = CMsgBuf::Instance()->RoomWake();
    LetListWaitersIn();
    const xtl::MutexGuard guard(m_ClientListMutex);
    m_WakeUp.FallAsleep();
    room.FallAsleep();
    fds.Clear();
    for (const int nFd : {m_WakeUp.Fd(), room.Fd()})
        if (nFd >= 0)
            fds.Add(nFd);
    const Clock::time_point end = FillPollSet(fds, anListen);
    const bool bWait = m_bRun && m_nListWaiters == 0; // what was told before the set was filled wakes nobody
    const int iReady = fds.Wait(bWait ? MsUntil(end, m_fnNow()) : 0);
    if (iReady >= 0) {
        m_WakeUp.Rise();
        room.Rise();
    }
    return iReady;
}

/// Gives the time at which the wait has to end.
Clock::time_point CClientServer::FillPollSet(CPollSet& fds, const CListenSockets& anListen) const
{
    Clock::time_point end = m_IdleEnd;
    if (Clock::now() >= m_AcceptAgain)
        std::ranges::for_each(anListen, [&](int nSocket) { fds.Add(nSocket); });
    for (const auto& pClient : m_vecClients) {
        const bool bHeld = pClient->IsHeldBack() && pClient->MustWait();
        int nEvents = bHeld ? 0 : POLLIN;
        if (!bHeld && pClient->HasKept())
            end = Clock::time_point(); // long ago: it goes on at once
        if (pClient->HasOutput()) {
            const CClient::OUTPUT stOutput = pClient->Output();
            nEvents |= stOutput.bWaiting ? POLLOUT : 0;
            end = std::min(end, stOutput.nextAt);
        }
        if (nEvents != 0)
            fds.Add(pClient->GetClientSocket(), static_cast<short>(nEvents));
    }
    return end;
}

void CClientServer::LetListWaitersIn()
{
    for (int nWaiters = m_nListWaiters; nWaiters != 0; nWaiters = m_nListWaiters)
        m_nListWaiters.wait(nWaiters);
}

/// With the list held: no client goes meanwhile.
void CClientServer::LookAtOutputs(const CPollSet& fds)
{
    const xtl::MutexGuard guard(m_ClientListMutex);
    for (const auto& pClient : m_vecClients)
        if (pClient->HasOutput() &&
            (fds.IsWritable(pClient->GetClientSocket()) || Clock::now() >= pClient->Output().nextAt))
            pClient->LookAtOutput();
}

bool CClientServer::HasRequests(const CPollSet& fds, const CListenSockets& anListen)
{
    if (std::ranges::any_of(anListen, [&](int nSocket) { return fds.IsReady(nSocket); }))
        return true;
    const xtl::MutexGuard guard(m_ClientListMutex);
    return std::ranges::any_of(m_vecClients, [&](const auto& pClient) { return IsDue(*pClient, fds); });
}

void CClientServer::OnClientDataArrive(const CPollSet& fds, const CListenSockets& anListen)
{
    const xtl::MutexGuard guard(m_bindings.Mutex());
    FinishEnded();
    ReadClients(fds);
    for (size_t i = 0; i < anListen.size(); ++i)
        if (fds.IsReady(anListen[i]))
            AcceptClients(anListen[i], static_cast<enChannelType>(i));
}

/// A client that has sent its last request stays for the pauses behind it, in which an answer may come, unless another
/// one has something to say: that may want the binding.
void CClientServer::FinishEnded()
{
    std::vector<std::shared_ptr<CClient>> vecEnded;
    {
        const xtl::MutexGuard guard(m_ClientListMutex);
        std::ranges::copy_if(m_vecClients, std::back_inserter(vecEnded),
                             [](const auto& pClient) { return pClient->IsHeldBack() && pClient->HasEnded(); });
    }
    for (auto& pClient : vecEnded) {
        pClient->SkipPauses();
        while (pClient && !pClient->MustWait())
            ReadClient(pClient);
    }
}

void CClientServer::ReadClients(const CPollSet& fds)
{
    std::vector<std::shared_ptr<CClient>> vecReady;
    {
        const xtl::MutexGuard guard(m_ClientListMutex);
        std::ranges::copy_if(m_vecClients, std::back_inserter(vecReady),
                             [&](const auto& pClient) { return IsDue(*pClient, fds); });
    }
    for (; !vecReady.empty(); vecReady.pop_back()) // from the last to the first
        ReadClient(vecReady.back());
}

/// pClient is the caller's hold on the client; it's given up when the client goes.
void CClientServer::ReadClient(std::shared_ptr<CClient>& pClient)
{
    if (pClient->MustWait())
        return;
    if (pClient->HasKept()) {
        (void)DropOnNoMemory("a client's request", [&] { pClient->OnKeptData(); });
        return;
    }
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
    m_WakeUp.Wake();
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
    if (!IsConnectionAllowed(stAddr))
        return true;
    if (!SetUpClientSocket(clientFd.Get())) {
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
    TapClient(*pClient, true);
    pClient->SetWakeUp(m_WakeUp);
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
