#pragma once

#include "common/Config.h"
#include "uesim/Behaviour.h"
#include "uesim/Options.h"
#include "uesim/SimLog.h"
#include "uesim/SimPort.h"

#include <array>
#include <map>
#include <memory>
#include <string>
#include <vector>

/// What a modem says of itself.
struct UE_IDENTITY
{
    std::string strImei;
    std::array<uint16_t, 6> ausVersion{}; // V, R, C, B, SP and one more
    std::string VersionText() const;
};

/// One simulated modem: its four ports, its identity, its clock and its behaviours.
class CSimUe
{
public:
    static constexpr SimDuration SETTLE_TIME = std::chrono::milliseconds(200);

    using Ports = std::array<std::unique_ptr<CSimPort>, SERIALNUM>; // by enSerialType; an absent port is null

    CSimUe(unsigned int ulIndex, std::string strName, Ports ports, const UESIM_OPTIONS& stOptions,
           const FILTER_CFG_STRU& stLayout, CSimLog& log);

    unsigned int Index() const { return m_ulIndex; }
    const std::string& Name() const { return m_strName; }
    const UE_IDENTITY& Identity() const { return m_stIdentity; }
    /// The version as UE_IDENTITY gives it as text; parts that aren't there keep their values.
    void SetIdentity(const std::string& strImei, const std::string& strVersion);
    const UESIM_OPTIONS& Options() const { return m_stOptions; }
    const FILTER_CFG_STRU& Layout() const { return m_stLayout; }
    CSimLog& Log() const { return m_log; }
    const Ports& GetPorts() const { return m_ports; }

    void AddBehaviour(std::unique_ptr<IBehaviour> pBehaviour) { m_behaviours.push_back(std::move(pBehaviour)); }

    /// The UE's clock, 32768 Hz.
    uint64_t Clock(SimTime now = SimClock::now()) const;

    // For behaviours.
    void Send(enSerialType enPort, ByteView packet);
    /// Whether a stream may add: the port is open for a while (its opener flushes what came before), and its queue
    /// isn't long.
    bool HasRoom(enSerialType enPort, SimTime now) const;
    /// Counters of the behaviours by name, for the totals at the end.
    uint64_t& Counter(const std::string& strName) { return m_counters[strName]; }
    const std::map<std::string, uint64_t>& Counters() const { return m_counters; }

    // For the simulator's loop.
    void Probe(SimTime now);
    void OnReadable(CSimPort& port);
    void OnWritable(CSimPort& port);
    SimTime Tick(SimTime now);

private:
    void HandlePacket(enSerialType enPort, ByteView packet);
    void Closed(CSimPort& port);

    const unsigned int m_ulIndex;
    const std::string m_strName;
    const UESIM_OPTIONS& m_stOptions;
    const FILTER_CFG_STRU& m_stLayout;
    CSimLog& m_log;
    UE_IDENTITY m_stIdentity;
    SimTime m_start;
    Ports m_ports;
    std::array<SimTime, SERIALNUM> m_aOpened{};
    std::vector<std::unique_ptr<IBehaviour>> m_behaviours;
    std::map<std::string, uint64_t> m_counters;
};

/// "diag", "data", "gu", "at".
const char* PortLabel(enSerialType enPort);
