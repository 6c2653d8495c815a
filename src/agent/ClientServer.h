#pragma once

#include "agent/Bindings.h"
#include "common/WakeUp.h"
#include "common/xtl.h"

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <netinet/in.h>
#include <vector>

class CClient;
class CPollSet;

/// Serves the clients on the main thread: listen sockets, one loop over all of them and their clients, and the list
/// of clients, which it owns.
class CClientServer
{
public:
    using CListenSockets = std::array<int, CHANNELNUM>; // by enChannelType; -1 is none

    CClientServer(CBindings& bindings, CChannelTable& table, CStatusReporter& status, const CGuOperations& operations);
    ~CClientServer();
    CClientServer(const CClientServer&) = delete;
    CClientServer& operator=(const CClientServer&) = delete;

    /// Opens the listen sockets of nCount channels. Gives the greatest descriptor made, or a negative value when
    /// not even the first could be made; a later one that fails closes all of them and leaves -1 in every place.
    int CreateListenSocket(int* pnSockets, int nCount);
    /// The client loop of the main thread. Returns 0 after Stop, and when a wait fails. fnListening is called once the
    /// listen sockets are there.
    int ListenFun(const std::function<void()>& fnListening = [] {});
    /// Ends the loop, also one that hasn't begun. From any thread, or a signal handler.
    void Stop();

    /// Takes an accepted socket as a new client: default binding first, then the client list. Call with
    /// CBindings::Mutex held. Null when memory is short.
    CClient* AddClient(int nSocket, enChannelType enType, const sockaddr_in& stAddr);
    /// Binds a new client to the lowest confirmed UE, when it is the first of its type. With CBindings::Mutex held.
    void DefaultBindClient(CClient* pClient);
    /// A client whose channel has gone, removed by the thread that takes the UE events, with CBindings::Mutex held.
    void RemoveLostClient(CClient* pClient);

    /// For tests, while the loop doesn't run: what tells the idle second.
    void SetClock(std::function<std::chrono::steady_clock::time_point()> fnNow) { m_fnNow = std::move(fnNow); }

private:
    bool ServeClients(CPollSet& fds, const CListenSockets& anListen);
    int WaitForClients(CPollSet& fds, const CListenSockets& anListen);
    std::chrono::steady_clock::time_point FillPollSet(CPollSet& fds, const CListenSockets& anListen) const
        REQUIRES(m_ClientListMutex);
    void LetListWaitersIn();
    void LookAtOutputs(const CPollSet& fds);
    bool HasRequests(const CPollSet& fds, const CListenSockets& anListen);
    void OnClientDataArrive(const CPollSet& fds, const CListenSockets& anListen);
    void FinishEnded() REQUIRES(m_bindings.Mutex());
    void ReadClients(const CPollSet& fds) REQUIRES(m_bindings.Mutex());
    void ReadClient(std::shared_ptr<CClient>& pClient) REQUIRES(m_bindings.Mutex());
    void AcceptClients(int nListen, enChannelType enType) REQUIRES(m_bindings.Mutex());
    bool AcceptClient(int nListen, enChannelType enType) REQUIRES(m_bindings.Mutex());
    void MakeRoomForClient();
    void ForgetClient(CClient* pClient);
    void ReleaseClients();

    CBindings& m_bindings;
    CChannelTable& m_table;
    CStatusReporter& m_status;
    const CGuOperations& m_operations;
    std::function<std::chrono::steady_clock::time_point()> m_fnNow = std::chrono::steady_clock::now;
    std::atomic<bool> m_bRun = true;
    std::chrono::steady_clock::time_point m_IdleEnd; // of the second without requests that runs; main thread
    CWakeUp m_WakeUp;                                // ends the main thread's wait early
    xtl::Mutex m_ClientListMutex;                    // the main thread holds it while it waits for sockets
    std::vector<std::shared_ptr<CClient>> m_vecClients GUARDED_BY(m_ClientListMutex);
    std::atomic<int> m_nListWaiters = 0;                 // threads that want m_ClientListMutex next
    std::chrono::steady_clock::time_point m_AcceptAgain; // no accept before, after the system ran short; main thread
};
