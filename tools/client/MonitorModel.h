#pragma once

#include "agent/StatusRecords.h"
#include "client/Connection.h"

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

/// The agent's state as its status datagrams tell it.
class CMonitorModel
{
public:
    /// Takes one datagram in. The result describes it ("event" and the record's fields), or is null when it isn't
    /// whole or of an unknown kind.
    nlohmann::ordered_json Apply(ByteView datagram, Clock::time_point now);
    /// Ports, UEs, clients, versions and byte rates for people.
    std::string Table() const;

private:
    struct PORT
    {
        std::string strGroup;
        std::string strClient; // address; empty when none is bound
    };
    struct UE
    {
        std::string strImei;
        std::string strVersion;
    };
    struct TRAFFIC
    {
        uint64_t ullRead = 0;
        uint64_t ullWritten = 0;
        double dReadRate = 0; // bytes a second between the last two reports
        double dWriteRate = 0;
        Clock::time_point at = {};
    };
    using Key = std::pair<uint32_t, uint32_t>; // port, channel

    nlohmann::ordered_json Take(const SerialPortConnect& stRecord);
    nlohmann::ordered_json Take(const SerialPortDisconnect& stRecord);
    nlohmann::ordered_json Take(const UEConnect& stRecord);
    nlohmann::ordered_json Take(const ClientConnect& stRecord);
    nlohmann::ordered_json Take(const ClientDisconnect& stRecord);
    nlohmann::ordered_json Take(const SerialPortTransfer& stRecord);
    nlohmann::ordered_json Take(const AgentVer& stRecord);
    template <class Record> nlohmann::ordered_json Parse(ByteView payload);
    std::string PortLine(const Key& key, const PORT& stPort) const;

    Clock::time_point m_now = {};
    std::map<Key, PORT> m_ports;
    std::map<std::string, UE> m_ues;  // by group
    std::map<Key, TRAFFIC> m_traffic; // channel 0 for the port of a serial UE
    std::string m_strAgentVersion;
};
