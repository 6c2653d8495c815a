#pragma once

#include "common/DeviceRecord.h"
#include "uesim/SimLog.h"
#include "uesim/SimTime.h"

#include <deque>
#include <string>

/// Plays the device monitor: sends each record on a connection of its own, in order. A host that doesn't answer is
/// tried again, so the simulator may start before the agent.
class CDeviceRecords
{
public:
    CDeviceRecords(std::string strHost, CSimLog& log) : m_strHost(std::move(strHost)), m_log(log) {}

    void Add(DEVICE_MONITOR_INFO_STRU stRecord) { m_records.push_back(std::move(stRecord)); }
    bool Empty() const { return m_records.empty(); }
    /// The last try failed.
    bool IsRefused() const { return m_bRefused; }

    /// Sends what is due; gives the time of the next try.
    SimTime OnTick(SimTime now);

private:
    bool SendFirst() const;

    const std::string m_strHost;
    CSimLog& m_log;
    std::deque<DEVICE_MONITOR_INFO_STRU> m_records;
    SimTime m_retry{};
    bool m_bRefused = false; // the last try failed, and the log says so
};
