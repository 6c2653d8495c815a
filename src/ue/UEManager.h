#pragma once

#include "common/MsgBuf.h"
#include "common/Types.h"
#include "common/xtl.h"
#include "ue/DeviceMonitor.h"
#include "ue/TcpLinks.h"
#include "ue/UE.h"

#include <array>
#include <atomic>
#include <memory>
#include <string>
#include <vector>

class CReadSet;
class ILine;
class TCPChannel;

/// Everything through which the agent reaches modems: the UE slots, the links of the one network UE, the device
/// monitor, and the threads that move bytes between ports and queues: four that read, each from its share of the UEs,
/// and one that writes. It knows nothing of what packets mean:
/// upwards it posts MSG_AGENT records, downwards it takes MSG_UE records. Opening, closing and connecting are the
/// business of each UE's worker, so that no modem holds up another.
///
/// Lock order: m_UELock, then the ports' locks, then that of the links; none is held across a wait for a modem. Packets
/// may be handled for the agent with a line's read lock held, so nothing above may take one.
class CUEManager
{
public:
    CUEManager();
    /// Ends the threads that it started, which may take as long as a read wait or a write at hand.
    ~CUEManager();
    CUEManager(const CUEManager&) = delete;
    CUEManager& operator=(const CUEManager&) = delete;

    /// Starts the monitor and the threads. With configured names all ports begin to open inside.
    bool Run();
    /// Tells the threads to end, and closes all ports and links. Waits for no thread. Always true.
    bool Stop();
    bool StartDeviceMonitor();
    bool StopDeviceMonitor();
    bool StartSerialRW();
    bool StopSerialRW();

    /// A port of the modem with that group id has come; it begins to open. Port 0 is the network UE: the group id is
    /// its IP address then.
    void OnSerialAttach(const std::string& groupid, const std::string& name, enSerialType type, unsigned int port)
        EXCLUDES(m_UELock);
    /// The port has gone; port 0 is the network UE. Unknown numbers are ignored.
    void OnSerialDetach(unsigned int port) EXCLUDES(m_UELock);
    /// The same by slot and role, for whoever knows the port so; the agent knows its number.
    void OnSerialDetach(UE_INDEX ue, enSerialType type) EXCLUDES(m_UELock);
    /// A port of the configuration: attached now and, with Recovery, again whenever it comes back.
    void AttachConfigured(const std::string& groupid, const std::string& name, enSerialType type, unsigned int port)
        EXCLUDES(m_UELock);
    /// Begins to make the links of the network UE, or drops them.
    void ProcessTCPUE(const std::string& ip, bool attach) EXCLUDES(m_UELock);

    /// Null for a UE that isn't a serial one.
    CChildChannel* GetSerialChannel(UE_INDEX ue, enChannelType type);
    /// Fills the list anew with the open ports, slot by slot.
    void GetOpenedSerial(std::vector<CSerial*>& out) EXCLUDES(m_UELock);
    /// The same of every szStep-th slot from szFirst on.
    void GetOpenedSerial(std::vector<CSerial*>& out, size_t szFirst, size_t szStep) EXCLUDES(m_UELock);
    /// The slot; it lives as long as the manager. Null for 16 and above.
    CUE* GetUE(UE_INDEX ue);
    /// A link of the network UE, null when there is none. From any thread; the link can't go away while the
    /// pointer is held.
    std::shared_ptr<TCPChannel> GetTcp(enSerialType i) const { return m_Links.Get(i); }

    /// Bodies of the threads.
    void ReadSerialFun(size_t szReader);
    void WriteSerialFun();

private:
    struct READER
    {
        CUEManager* pManager = nullptr;
        size_t szIndex = 0;
        int hThread = -1;
        std::vector<CSerial*> vecOpened; // for the thread's use, pass by pass
    };
    static void* SerialR_Thread(void* pReader);
    static void* SerialW_Thread(void* pManager);

    struct CONFIGURED_PORT
    {
        UE_INDEX ulUeIdx;
        std::string strGroupid;
        std::string strName;
        enSerialType enType;
        unsigned int uiPort;
    };

    CUE* FindUEForGroup(const std::string& groupid) REQUIRES(m_UELock);
    CSerial* FindPort(unsigned int port) REQUIRES(m_UELock);
    CUE* TakeSlot(const std::string& groupid) REQUIRES(m_UELock);
    void DetachOtherName(const std::string& name, unsigned int port) REQUIRES(m_UELock);
    void OnOpenFailed(CUE& ue, enSerialType enType) EXCLUDES(m_UELock);
    void LookForPort(const CONFIGURED_PORT& stPort) EXCLUDES(m_UELock);
    bool ReadPass(READER& stReader, CReadSet& readSet) EXCLUDES(m_UELock);
    void CloseAll() EXCLUDES(m_UELock);
    void CollectLines(READER& stReader, std::vector<std::shared_ptr<ILine>>& lines) EXCLUDES(m_UELock);
    void WakeReaders();
    std::shared_ptr<ILine> LineOf(UE_INDEX ue, enSerialType enPort);

    std::array<CUE, MAXUENUM> m_aUE; // slot 15 stands for the network UE and never has a group
    CTcpLinks m_Links;
    CDeviceMonitor m_DeviceMonitor;
    std::atomic<bool> m_bRun = true;
    std::array<READER, READ_THREADS> m_aReader;
    int m_hWriteThread = -1;
    xtl::Mutex m_UELock; // over the slots
};
