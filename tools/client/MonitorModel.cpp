#include "client/MonitorModel.h"

#include <array>
#include <cstdio>

using nlohmann::ordered_json;

namespace
{
std::string ChannelName(uint32_t ulChannel)
{
    return ulChannel < strChannelType.size() ? strChannelType[ulChannel] : std::to_string(ulChannel);
}
} // namespace

ordered_json CMonitorModel::Take(const SerialPortConnect& stRecord)
{
    m_ports[{stRecord.ulPort, stRecord.ulChannel}].strGroup = stRecord.szGroupId;
    return {{"event", "port_attached"},
            {"group", stRecord.szGroupId},
            {"port", stRecord.ulPort},
            {"channel", stRecord.ulChannel},
            {"channel_name", ChannelName(stRecord.ulChannel)}};
}

ordered_json CMonitorModel::Take(const SerialPortDisconnect& stRecord)
{
    std::string strGroup;
    std::erase_if(m_ports, [&](const auto& entry) {
        if (entry.first.first != stRecord.ulPort)
            return false;
        strGroup = entry.second.strGroup;
        return true;
    });
    std::erase_if(m_traffic, [&](const auto& entry) { return entry.first.first == stRecord.ulPort; });
    const auto isGroup = [&](const auto& entry) { return entry.second.strGroup == strGroup; };
    if (std::ranges::none_of(m_ports, isGroup))
        m_ues.erase(strGroup); // its last port went
    return {{"event", "port_detached"}, {"port", stRecord.ulPort}};
}

ordered_json CMonitorModel::Take(const UEConnect& stRecord)
{
    m_ues[stRecord.szGroupId] = {stRecord.szImei, stRecord.szVersion};
    return {{"event", "ue_confirmed"},
            {"group", stRecord.szGroupId},
            {"imei", stRecord.szImei},
            {"version", stRecord.szVersion}};
}

ordered_json CMonitorModel::Take(const ClientConnect& stRecord)
{
    m_ports[{stRecord.ulPort, stRecord.ulClientType}].strClient = stRecord.szAddress;
    return {{"event", "client_bound"},
            {"port", stRecord.ulPort},
            {"channel", stRecord.ulClientType},
            {"channel_name", ChannelName(stRecord.ulClientType)},
            {"address", stRecord.szAddress}};
}

ordered_json CMonitorModel::Take(const ClientDisconnect& stRecord)
{
    if (const auto port = m_ports.find({stRecord.ulPort, stRecord.ulClientType}); port != m_ports.end())
        port->second.strClient.clear();
    return {{"event", "client_unbound"},
            {"port", stRecord.ulPort},
            {"channel", stRecord.ulClientType},
            {"channel_name", ChannelName(stRecord.ulClientType)}};
}

ordered_json CMonitorModel::Take(const SerialPortTransfer& stRecord)
{
    TRAFFIC& stTraffic = m_traffic[{stRecord.ulPort, stRecord.ulChannel}];
    const double dSeconds = std::chrono::duration<double>(m_now - stTraffic.at).count();
    const bool bGrown = stTraffic.at != Clock::time_point{} && stRecord.ullReadBytes >= stTraffic.ullRead &&
                        stRecord.ullWriteBytes >= stTraffic.ullWritten && dSeconds > 0;
    const auto rate = [&](uint64_t ullNew, uint64_t ullOld) {
        return bGrown ? static_cast<double>(ullNew - ullOld) / dSeconds : 0;
    };
    stTraffic = {stRecord.ullReadBytes, stRecord.ullWriteBytes, rate(stRecord.ullReadBytes, stTraffic.ullRead),
                 rate(stRecord.ullWriteBytes, stTraffic.ullWritten), m_now};
    return {{"event", "transfer"},
            {"port", stRecord.ulPort},
            {"channel", stRecord.ulChannel},
            {"bytes_read", stRecord.ullReadBytes},
            {"bytes_written", stRecord.ullWriteBytes},
            {"read_per_s", stTraffic.dReadRate},
            {"written_per_s", stTraffic.dWriteRate}};
}

ordered_json CMonitorModel::Take(const AgentVer& stRecord)
{
    m_strAgentVersion = std::to_string(stRecord.ulMajor) + '.' + std::to_string(stRecord.ulMinor) + '.' +
                        std::to_string(stRecord.ulPatch);
    return {{"event", "agent_version"}, {"version", m_strAgentVersion}};
}

template <class Record> ordered_json CMonitorModel::Parse(ByteView payload)
{
    Record stRecord;
    return DecodeRecord(payload, stRecord) ? Take(stRecord) : ordered_json();
}

ordered_json CMonitorModel::Apply(ByteView datagram, Clock::time_point now)
{
    m_now = now;
    STATUS_HEAD_STRU stHead;
    if (!DecodeRecord(datagram, stHead))
        return {};
    const ByteView payload = Slice(datagram, STATUS_HEAD_STRU::SIZE, stHead.payLoadSize);
    switch (stHead.nMsgID) {
    case SerialPortConnect::MSG_ID:
        return Parse<SerialPortConnect>(payload);
    case SerialPortDisconnect::MSG_ID:
        return Parse<SerialPortDisconnect>(payload);
    case UEConnect::MSG_ID:
        return Parse<UEConnect>(payload);
    case ClientConnect::MSG_ID:
        return Parse<ClientConnect>(payload);
    case ClientDisconnect::MSG_ID:
        return Parse<ClientDisconnect>(payload);
    case SerialPortTransfer::MSG_ID:
        return Parse<SerialPortTransfer>(payload);
    case AgentVer::MSG_ID:
        return Parse<AgentVer>(payload);
    default:
        return {};
    }
}

std::string CMonitorModel::PortLine(const Key& key, const PORT& stPort) const
{
    const auto [ulPort, ulChannel] = key;
    // Serial ports report under channel 0 whatever they carry, links of the network UE (port 0) each under its own.
    auto traffic = m_traffic.find({ulPort, ulPort == 0 ? ulChannel : 0});
    const TRAFFIC stTraffic = traffic == m_traffic.end() ? TRAFFIC{} : traffic->second;
    std::array<char, 256> szLine{};
    (void)std::snprintf(szLine.data(), szLine.size(), "%6u  %-8s  %12llu %10.1f  %12llu %10.1f  %-15.40s  %.60s\n",
                        ulPort, ChannelName(ulChannel).c_str(), static_cast<unsigned long long>(stTraffic.ullRead),
                        stTraffic.dReadRate / 1000, static_cast<unsigned long long>(stTraffic.ullWritten),
                        stTraffic.dWriteRate / 1000, stPort.strClient.empty() ? "-" : stPort.strClient.c_str(),
                        stPort.strGroup.c_str());
    return szLine.data();
}

std::string CMonitorModel::Table() const
{
    std::string strText = "agent version " + (m_strAgentVersion.empty() ? "not told yet" : m_strAgentVersion) + "\n\n";
    for (const auto& [strGroup, stUe] : m_ues)
        strText += "UE " + (strGroup.empty() ? "(no group)" : strGroup) + "  version " + stUe.strVersion + "  IMEI " +
                   (stUe.strImei.empty() ? "-" : stUe.strImei) + '\n';
    strText += m_ues.empty() ? "no confirmed UE\n" : "";
    strText += "\n  port  channel     bytes read       kB/s  bytes written     kB/s  client           group\n";
    for (const auto& [key, stPort] : m_ports)
        strText += PortLine(key, stPort);
    return strText;
}
