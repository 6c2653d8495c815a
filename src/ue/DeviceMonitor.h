#pragma once

#include "common/Bytes.h"
#include "common/Types.h"
#include "common/UniqueFd.h"
#include "common/WakeUp.h"
#include "ue/RecordConnections.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <poll.h>
#include <string>
#include <vector>

class CUEManager;

/// A record of the device monitor program: one port came or went. One record a connection, no reply.
struct DEVICE_MONITOR_INFO_STRU
{
    static constexpr size_t NAME_SIZE = 256; // NUL included, as in the next
    static constexpr size_t GROUP_SIZE = 258;
    static constexpr size_t SIZE = 4 + 1 + 1 + NAME_SIZE + GROUP_SIZE;

    uint32_t ulPortNum = 0;   // 0 is the network UE; in network order on the wire, unlike all else
    uint8_t cSerialType = 0;  // enSerialType; the sender means it as signed
    uint8_t barrive = 0;      // 1 the port arrived, 0 it left
    std::string szSerialName; // device name
    std::string szGroupId;    // the same for all ports of a modem; the IP address of the network UE
};
static_assert(DEVICE_MONITOR_INFO_STRU::SIZE == 520);

std::array<unsigned char, DEVICE_MONITOR_INFO_STRU::SIZE> EncodeDeviceRecord(const DEVICE_MONITOR_INFO_STRU& stInfo);
DEVICE_MONITOR_INFO_STRU DecodeDeviceRecord(ByteView record);

/// Tells the UE manager which ports arrive and go. With configured names all ports of the configuration are
/// attached once, inside Start, and nothing ever detaches. Otherwise a thread takes records of the device monitor
/// program on TCP port 20460, from connections side by side, in the order in which the records are whole.
class CDeviceMonitor
{
public:
    CDeviceMonitor() { m_fds.reserve(CRecordConnections::MOST + 2); } // the listener and the wake-up
    ~CDeviceMonitor() { EndThread(); }
    CDeviceMonitor(const CDeviceMonitor&) = delete;
    CDeviceMonitor& operator=(const CDeviceMonitor&) = delete;

    void SetUEManager(CUEManager* pUEManager) { m_pUEManager = pUEManager; }

    /// Does nothing and succeeds without a manager. False when the thread can't start or the configured names and
    /// ports don't match.
    bool Start();
    /// Lets the thread end after the next record. Doesn't wait for it, nor wake it. Always true.
    bool Stop();
    /// For destruction: wakes the thread and waits until it has ended.
    void EndThread();

    /// True when each configured name has its port number, or names aren't used. Else strError says what is wrong.
    static bool CheckConfiguredNames(std::string& strError);

    /// Body of the thread.
    void DeviceMonitorFun();

private:
    bool AttachConfiguredNames();
    bool Listen();
    static void TellTaken();
    void WaitForConnections();
    void WaitUntil(std::chrono::steady_clock::time_point end);
    void Accept(std::chrono::steady_clock::time_point now);
    void HandleRecord(const DEVICE_MONITOR_INFO_STRU& stInfo);
    void AttachPort(const DEVICE_MONITOR_INFO_STRU& stInfo);

    CUEManager* m_pUEManager = nullptr;
    std::atomic<int> m_bRun = 1;
    int m_hThread = -1;
    int m_hEnding = -1; // the thread's handle for EndThread, as Stop forgets the other
    std::atomic<bool> m_bEnd = false;
    CWakeUp m_Wake; // of the thread
    // All below is the thread's own.
    CUniqueFd m_Listener;
    CRecordConnections m_Connections;
    std::chrono::steady_clock::time_point m_AcceptFrom{}; // no connection is taken before
    std::vector<pollfd> m_fds;                            // of the wait at hand
};
