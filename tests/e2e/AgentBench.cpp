#include "e2e/AgentBench.h"

#include "agent/StatusRecords.h"
#include "support/WaitFor.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace
{
std::string Program(const std::string& strName)
{
    return std::string(VEX_BIN_DIR) + "/" + strName;
}

/// The agent of this build, or the one that AGENT_VARIABLE names.
std::string AgentProgram()
{
    const char* const pszOther = std::getenv(AGENT_VARIABLE);
    return pszOther != nullptr ? pszOther : Program("vex-agent");
}

std::string ExampleConfig()
{
    std::ostringstream text;
    text << std::ifstream(std::string(VEX_SOURCE_DIR) + "/config/vex.cfg").rdbuf();
    return text.str();
}
} // namespace

CAgentBench::CAgentBench(const std::string& strExtraConfig)
{
    m_dir.Write("config/vex.cfg", ExampleConfig() + "\n" + strExtraConfig + "\n");
}

void CAgentBench::AddConfig(const std::string& strLines) const
{
    m_dir.Write("config/vex.cfg", m_dir.Read("config/vex.cfg") + strLines + "\n");
}

void CAgentBench::StartAgent(CUniqueFd errFd)
{
    m_pAgent =
        std::make_unique<CVexProcess>(AgentProgram(), std::vector<std::string>{}, m_dir.Path(), std::move(errFd));
}

CVexProcess& CAgentBench::StartModem(std::vector<std::string> args)
{
    args.push_back("--attach");
    return StartUnreportedModem(std::move(args));
}

CVexProcess& CAgentBench::StartUnreportedModem(std::vector<std::string> args)
{
    args.insert(args.end(), {"--config", "config/vex.cfg", "--dir", m_dir.Path() + "/ports"});
    m_vecOthers.push_back(std::make_unique<CVexProcess>(Program("vex-uesim"), args, m_dir.Path()));
    return *m_vecOthers.back();
}

std::string CAgentBench::ModemPort(unsigned int ulUe, const std::string& strLabel) const
{
    return m_dir.Path() + "/ports/ue" + std::to_string(ulUe) + "-" + strLabel;
}

CVexProcess& CAgentBench::StartClient(const std::vector<std::string>& args)
{
    m_vecOthers.push_back(std::make_unique<CVexProcess>(Program("vex-client"), args, m_dir.Path()));
    return *m_vecOthers.back();
}

bool CAgentBench::WaitConfirmed(unsigned int ulDiagPort)
{
    const auto isConfirmed = [&] {
        for (const ChannelRow& stRow : QueryChannels())
            if (stRow.bAttached && stRow.nPort == static_cast<int>(ulDiagPort))
                return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20)); // each look is a client of its own
        return false;
    };
    return WaitFor(isConfirmed, std::chrono::seconds(20));
}

std::unique_ptr<CTcpClient> CAgentBench::BoundClient(enChannelType enChannel, unsigned int ulPort)
{
    auto pClient = std::make_unique<CTcpClient>(enChannel);
    if (!pClient->Bind(ulPort))
        pClient->Close();
    return pClient;
}

std::string CAgentBench::Log() const
{
    for (const std::string& strName : m_dir.Files())
        if (strName.ends_with(".d"))
            return m_dir.Read(strName);
    return "";
}

bool CAgentBench::Logged(const std::string& strText, std::chrono::milliseconds limit) const
{
    return WaitFor([&] { return Log().find(strText) != std::string::npos; }, limit);
}

std::vector<ChannelRow> QueryChannels()
{
    CTcpClient client(CHANNEL_LTE_DIAG);
    const auto stAck = client.Ask(AGENT_CMD_CHANNEL_QUERY, PKT_TYPE_AGENT);
    std::vector<ChannelRow> rows;
    CByteReader reader(stAck ? ByteView(stAck->payload) : ByteView());
    while (reader.Left() > 0) {
        SERAIL_CHANNEL_STATUS stStatus;
        SERAIL_CHANNEL_STATUS::Fields(reader, stStatus);
        rows.push_back({stStatus.szSerialName, static_cast<int>(stStatus.ulPort), stStatus.ulAttached == 1,
                        stStatus.ulBound == 1});
    }
    return rows;
}

std::chrono::seconds StreamTime()
{
    const char* const pszSeconds = std::getenv("VEX_STREAM_SECONDS");
    return std::chrono::seconds(pszSeconds != nullptr ? std::max(1, std::atoi(pszSeconds)) : 8);
}

bool SendDeviceRecord(unsigned int ulPort, unsigned char ucType, unsigned char ucArrive, const std::string& strName,
                      const std::string& strGroup)
{
    Bytes record(520, 0);
    StoreLe<uint32_t>(record, 0, htonl(ulPort)); // the one field in network order
    record[4] = ucType;
    record[5] = ucArrive;
    StoreText(ByteSpan(record).subspan(6, 256), strName);
    StoreText(ByteSpan(record).subspan(262, 258), strGroup);
    const CUniqueFd fd = ConnectTcp(DEVICE_MONITOR_PORT);
    return SendAll(fd, record) && SawClose(fd);
}
