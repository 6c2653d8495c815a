#pragma once

#include "agent/StatusRecords.h"
#include "common/Bytes.h"
#include "common/xtl.h"

#include <netinet/in.h>

/// Tells the monitor by UDP what happens: one datagram a record. Safe from any thread. Without a socket every send
/// does nothing.
class CStatusReporter
{
public:
    CStatusReporter() = default;
    /// The socket stays open: a thread that isn't joined may be sending on it, and the process ends anyway.
    ~CStatusReporter() = default;
    CStatusReporter(const CStatusReporter&) = delete;
    CStatusReporter& operator=(const CStatusReporter&) = delete;

    /// Makes the socket to the configured monitor, when the configuration wants status reports at all.
    void Open();

    void SendSerialConnectInfo(const SerialPortConnect& stInfo);
    void SendSerialDisconnectInfo(const SerialPortDisconnect& stInfo);
    void SendUEConnectInfo(const UEConnect& stInfo);
    void SendClientConnectInfo(const ClientConnect& stInfo);
    void SendClientDisconnectInfo(const ClientDisconnect& stInfo);
    void SendSerialTransferInfo(const SerialPortTransfer& stInfo);
    void SendAgentVer();
    /// One datagram to the monitor. Null does nothing.
    void SendStatus2UI(ByteView datagram);

private:
    template <class Record> void SendRecord(const Record& stRecord);

    xtl::Mutex m_StatusMutex; // around one sendto
    int m_nStatusSocket GUARDED_BY(m_StatusMutex) = -1;
    sockaddr_in m_stMonitorAddr GUARDED_BY(m_StatusMutex){};
};
