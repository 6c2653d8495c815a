#pragma once

#include "common/DeviceRecord.h"
#include "hotplug/Modems.h"

#include <map>
#include <optional>
#include <span>
#include <string>

/// What the agent is to know against what it has been told. The difference is what there is to tell, one record after
/// the other, so nothing is told twice, and nothing that has changed again meanwhile is told at all.
class CLedger
{
public:
    /// An agent that runs already may hold any of these ports, from an earlier run of this program.
    explicit CLedger(std::span<const uint32_t> unknown);

    /// What the agent is to know from now on: the served ports.
    void Want(std::span<const PORT_ROW> rows);
    /// The agent is a new one, which knows nothing.
    void ForgetTold() { m_told.clear(); }

    /// The next record for the agent; none when it knows all. Ports that left come before those that arrive.
    std::optional<DEVICE_MONITOR_INFO_STRU> Next();
    /// The agent has the record that Next gave last.
    void Told();

private:
    struct PORT
    {
        DEVICE_MONITOR_INFO_STRU stArrival;
        uint64_t ullVisit = 0;

        bool operator==(const PORT&) const = default;
    };
    /// By port number. Without a port: the agent may hold it or not.
    using TOLD = std::map<uint32_t, std::optional<PORT>>;

    std::map<uint32_t, PORT> m_wanted;
    TOLD m_told;
    std::pair<uint32_t, std::optional<PORT>> m_asked; // what Next gave last: the port as it arrives, none as it leaves
};
