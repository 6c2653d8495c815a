#pragma once

#include "common/MsgBuf.h"
#include "common/Types.h"
#include "common/xtl.h"
#include "ue/DeviceMonitor.h"
#include "ue/UE.h"

#include <array>
#include <atomic>
#include <memory>
#include <string>
#include <vector>

class CReadSet;
class TCPChannel;

/// Everything through which the agent reaches modems: the UE slots, the links of the one network UE, the device
/// monitor, and the two threads that move bytes between ports and queues. It knows nothing of what packets mean:
/// upwards it posts MSG_AGENT records, downwards it takes MSG_UE records.
///
/// Lock order: m_UELock, then the ports' locks, then m_TcpReadLock, m_TcpWriteLock, m_TcpTableLock. The read
/// thread takes m_UELock alone and lets it go before it takes any other.
class CUEManager
{
public:
    CUEManager();
    /// Ends the threads that it started, which may take as long as a read wait or a write at hand.
    ~CUEManager();
    CUEManager(const CUEManager&) = delete;
    CUEManager& operator=(const CUEManager&) = delete;

    /// Starts the monitor and both threads. With configured names all ports are attached inside, a second each.
    bool Run();
    /// Tells the threads to end. Waits for none of them. Always true.
    bool Stop();
    bool StartDeviceMonitor();
    bool StopDeviceMonitor();
    bool StartSerialRW();
    bool StopSerialRW();

    /// A port of the modem with that group id has come. Opens it, which takes about a second. Port 0 is the
    /// network UE: the group id is its IP address then.
    void OnSerialAttach(const std::string& groupid, const std::string& name, enSerialType type, unsigned int port)
        EXCLUDES(m_UELock);
    /// The port has gone; port 0 is the network UE. Unknown numbers are ignored.
    void OnSerialDetach(unsigned int port) EXCLUDES(m_UELock);
    /// The same by slot and role, for whoever knows the port so; the agent knows its number.
    void OnSerialDetach(UE_INDEX ue, enSerialType type) EXCLUDES(m_UELock);
    /// Makes or drops the links of the network UE.
    void ProcessTCPUE(const std::string& ip, bool attach) EXCLUDES(m_UELock);

    /// Null for a UE that isn't a serial one.
    CChildChannel* GetSerialChannel(UE_INDEX ue, enChannelType type);
    /// Fills the list anew with the open ports, slot by slot.
    void GetOpenedSerial(std::vector<CSerial*>& out) EXCLUDES(m_UELock);
    /// The slot; it lives as long as the manager. Null for 16 and above.
    CUE* GetUE(UE_INDEX ue);
    /// A link of the network UE, null when there is none. From any thread; the link can't go away while the
    /// pointer is held.
    std::shared_ptr<TCPChannel> GetTcp(enSerialType i) const EXCLUDES(m_TcpTableLock);

    /// Bodies of the two threads.
    void ReadSerialFun();
    void WriteSerialFun();

private:
    using LinkTable = std::array<std::shared_ptr<TCPChannel>, SERIALNUM>; // by enSerialType

    CUE* FindUEForGroup(const std::string& groupid) REQUIRES(m_UELock);
    CSerial* FindPort(unsigned int port) REQUIRES(m_UELock);
    void AttachTcpUE(const std::string& ip) EXCLUDES(m_TcpTableLock);
    void DetachTcpUE() EXCLUDES(m_UELock);
    void SetTcp(size_t szIndex, std::shared_ptr<TCPChannel> pLink) EXCLUDES(m_TcpTableLock);
    LinkTable Links() const EXCLUDES(m_TcpTableLock);
    void DropLinks() REQUIRES(m_TcpReadLock, m_TcpWriteLock);
    bool ReadPass(CReadSet& readSet) EXCLUDES(m_UELock, m_TcpReadLock);
    int WaitForData(CReadSet& readSet) EXCLUDES(m_TcpReadLock);
    void ReadLinks(const CReadSet& readSet) EXCLUDES(m_TcpReadLock);
    void WriteToUE(const MSG_UE& stMsg) EXCLUDES(m_TcpWriteLock);

    std::array<CUE, MAXUENUM> m_aUE; // slot 15 stands for the network UE and never has a group
    LinkTable m_apTcp GUARDED_BY(m_TcpTableLock);
    /// Links that a second network attach pushed out of their slots. They stay open: the modem at their
    /// far end doesn't see a link cut that it still uses.
    std::vector<std::shared_ptr<TCPChannel>> m_vecReplacedTcp GUARDED_BY(m_TcpTableLock);
    CDeviceMonitor m_DeviceMonitor;
    std::atomic<bool> m_bRun = true;
    int m_hReadThread = -1;
    int m_hWriteThread = -1;
    int m_hReadEnding = -1; // the same for the destructor, as StopSerialRW forgets the two above
    int m_hWriteEnding = -1;
    xtl::Mutex m_UELock;               // over the slots
    xtl::Mutex m_TcpReadLock;          // over the links' read side, held during the read thread's wait
    xtl::Mutex m_TcpWriteLock;         // over the links' write side
    mutable xtl::Mutex m_TcpTableLock; // over the pointers alone, for a copy or a change; never held while waiting
};
