#pragma once

#include "RelayRun.h"
#include "e2e/AgentBench.h"
#include "e2e/ScriptedLinks.h"
#include "e2e/ScriptedUe.h"

#include <optional>
#include <thread>

/// The agent with modems that the benchmark plays; all confirmed, their data ports attached and a client bound to each.
class CAgentUnderTest
{
public:
    /// Nothing on the agent's side has happened yet but its start. So many observers read its tap; by default it has
    /// none.
    explicit CAgentUnderTest(std::optional<size_t> observers = std::nullopt);

    /// Socket of the tap.
    std::string TapPath() const { return m_bench.Dir().Path() + "/tap"; }

    size_t StartKiB() const { return m_szStartKiB; } // resident before the first modem
    /// The relay with its lanes; nothing when a modem isn't taken.
    std::optional<RELAY> Attach(size_t szUes);
    /// One more lane: the data link of the network modem.
    bool AttachNetwork(RELAY& relay);
    /// Clients that do nothing; false when they can't all connect.
    bool ConnectIdle(size_t szClients);
    /// Microseconds from a client's request to its ack, through a modem that answers at once; sorted.
    std::vector<double> MeasureRoundTrip(std::chrono::milliseconds time);

private:
    CAgentBench m_bench;
    std::vector<std::jthread> m_observers;
    std::vector<std::unique_ptr<CScriptedUe>> m_ues;
    std::vector<std::unique_ptr<CTcpClient>> m_clients;
    std::vector<CUniqueFd> m_idle;
    CScriptedLinks m_links;
    size_t m_szStartKiB = 0;
};

/// Another agent under the same conditions. Its ports are the same, so it has a network namespace of its own.
class COtherAgent
{
public:
    /// The program of this build when no other is named; observers as above.
    explicit COtherAgent(std::string strProgram, std::optional<size_t> observers = std::nullopt)
        : m_strProgram(std::move(strProgram)), m_observers(observers)
    {
    }

    /// As CAgentUnderTest; nothing too when the caller may not make a namespace.
    std::optional<RELAY> Attach(size_t szUes);

private:
    std::string m_strProgram;
    std::optional<size_t> m_observers;
    std::optional<CAgentUnderTest> m_agent;
};

/// Raw relays to compare with; nothing when the program isn't installed or doesn't listen.
std::optional<RELAY> StartSocat(size_t szLanes);
std::optional<RELAY> StartSer2net(size_t szLanes);
