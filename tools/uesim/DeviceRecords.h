#pragma once

#include "common/DeviceRecord.h"
#include "common/Types.h"
#include "uesim/SimLog.h"
#include "uesim/SimTime.h"

#include <array>
#include <deque>
#include <string>

/// One record of the device monitor.
struct DEVICE_RECORD
{
    uint32_t ulPortNum = 0; // 0: the network UE
    enSerialType enType = SERIAL_TYPE_DIAG;
    bool bArrives = false;
    std::string strName;
    std::string strGroup; // the IP address of the network UE

    std::array<unsigned char, DEVICE_MONITOR_INFO_STRU::SIZE> Encode() const;
};

/// Plays the device monitor: sends each record on a connection of its own, in order. A host that doesn't answer is
/// tried again, so the simulator may start before the agent.
class CDeviceRecords
{
public:
    CDeviceRecords(std::string strHost, CSimLog& log) : m_strHost(std::move(strHost)), m_log(log) {}

    void Add(DEVICE_RECORD stRecord) { m_records.push_back(std::move(stRecord)); }
    bool Empty() const { return m_records.empty(); }
    /// The last try failed.
    bool IsRefused() const { return m_bRefused; }

    /// Sends what is due; gives the time of the next try.
    SimTime OnTick(SimTime now);

private:
    bool SendFirst() const;

    const std::string m_strHost;
    CSimLog& m_log;
    std::deque<DEVICE_RECORD> m_records;
    SimTime m_retry{};
    bool m_bRefused = false; // the last try failed, and the log says so
};
