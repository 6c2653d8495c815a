#pragma once

#include "common/Types.h"
#include "support/TcpClient.h"
#include "support/VexProcess.h"

#include <memory>
#include <string>
#include <vector>

/// The environment's name for another agent than that of this build.
constexpr const char* AGENT_VARIABLE = "VEX_AGENT";

/// The real agent in a folder of its own, with the configuration of config/vex.cfg and what a test adds to it, and
/// the other programs beside it. Everything is stopped at the end of its life.
class CAgentBench
{
public:
    /// Lines behind those of config/vex.cfg; a later line wins or appends, as its key has it. The clock-bound
    /// waits of the product stay as they are.
    explicit CAgentBench(const std::string& strExtraConfig = "");

    /// More lines, for an agent that starts later.
    void AddConfig(const std::string& strLines) const;
    /// With another file for its standard error, if one is given.
    void StartAgent(CUniqueFd errFd = {});
    CVexProcess& Agent() { return *m_pAgent; }
    /// Starts the modem simulator, attached through the device monitor's port; UE n has the ports 100 n + 1 to + 4.
    CVexProcess& StartModem(std::vector<std::string> args);
    /// The same, but nothing is reported to the device monitor's port. Its ports are ModemPort(n, ...).
    CVexProcess& StartUnreportedModem(std::vector<std::string> args);
    /// Name of a port of UE n of the simulator, "diag", "data", "gu" or "at"; there once the simulator runs.
    std::string ModemPort(unsigned int ulUe, const std::string& strLabel) const;
    /// Runs a client command to its end.
    CVexProcess& StartClient(const std::vector<std::string>& args);

    /// Waits until the channel table shows the UE with this diag port as confirmed; false within 20 s.
    bool WaitConfirmed(unsigned int ulDiagPort);
    /// A client that is bound to the UE with this port; not open when that fails.
    std::unique_ptr<CTcpClient> BoundClient(enChannelType enChannel, unsigned int ulPort);

    /// The log of the run so far.
    std::string Log() const;
    bool Logged(const std::string& strText, std::chrono::milliseconds limit = PROCESS_LIMIT) const;

    const CTempDir& Dir() const { return m_dir; }

private:
    CTempDir m_dir;
    std::unique_ptr<CVexProcess> m_pAgent;
    std::vector<std::unique_ptr<CVexProcess>> m_vecOthers;
};

/// One row of the channel table as a client sees it.
struct ChannelRow
{
    std::string strName;
    int nPort = -1;
    bool bAttached = false;
    bool bBound = false;
};
/// The table, 16 rows of 5; empty when the agent doesn't answer.
std::vector<ChannelRow> QueryChannels();

/// How long tests measure a stream: 8 s, or VEX_STREAM_SECONDS of the environment.
std::chrono::seconds StreamTime();

/// The device monitor's part: sends one record on a connection of its own. True when the agent closed it.
bool SendDeviceRecord(unsigned int ulPort, unsigned char ucType, unsigned char ucArrive, const std::string& strName,
                      const std::string& strGroup);
