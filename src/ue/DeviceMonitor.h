#pragma once

#include "common/DeviceRecord.h"
#include "common/Types.h"
#include "common/UniqueFd.h"
#include "common/WakeUp.h"
#include "ue/RecordConnections.h"

#include <atomic>
#include <chrono>
#include <poll.h>
#include <string>
#include <vector>

class CUEManager;

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
