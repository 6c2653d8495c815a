#pragma once

#include "common/Types.h"
#include "ue/Serial.h"

#include <array>
#include <chrono>
#include <map>
#include <poll.h>
#include <vector>

/// What one pass of the read loop waits for: the open ports, each with its read lock held from LockPorts to
/// ReadPorts or ReleasePorts, and the sockets of the network UE. Remembers ports whose read failed: they are left
/// out for a second, so that a modem that vanished can't make the loop spin. The read thread uses one set over
/// and over, so that a pass allocates nothing.
class CReadSet
{
public:
    CReadSet() { m_anLink.fill(-1); }
    ~CReadSet() { ReleasePorts(); }
    CReadSet(const CReadSet&) = delete;
    CReadSet& operator=(const CReadSet&) = delete;

    /// The open ports, for the caller to fill before LockPorts.
    std::vector<CSerial*>& OpenPorts() { return m_vecOpen; }

    /// Starts a pass: locks those of the open ports that take part.
    void LockPorts();
    void AddLink(size_t szIndex, int nSocket);

    /// Waits until something can be read, at most lTimeoutMs: positive then, 0 after the time-out, negative on a
    /// fault, an invalid descriptor among them.
    int Wait(int lTimeoutMs);

    /// Reads each port that has something, posts all packets that came, and releases the ports.
    void ReadPorts();
    void ReleasePorts();

    /// True when the link took part in this pass with that socket, and it has something.
    bool IsLinkReadable(size_t szIndex, int nSocket) const;

private:
    void LockPort(CSerial* pSerial);
    void ReadPort(CSerial* pSerial, CAgentMsgRun& run);
    void ForgetOldFaults();

    std::vector<CSerial*> m_vecOpen;
    std::vector<CSerial*> m_vecLocked; // their entries come first in m_vecPoll, in the same order
    std::vector<pollfd> m_vecPoll;
    std::array<int, SERIALNUM> m_anLink; // index of each link's entry in m_vecPoll, -1 without one
    std::map<CSerial*, std::chrono::steady_clock::time_point> m_mapFault;
};
