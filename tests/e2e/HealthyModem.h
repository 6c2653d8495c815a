#pragma once

#include "e2e/AgentBench.h"
#include "e2e/DelayMeter.h"
#include "e2e/ScriptedUe.h"

#include <atomic>
#include <thread>

/// A modem that streams LTE data indications, 500 a second, to a client that reads all the time: what else happens to
/// the agent shows in their delays. Sender and reader have threads of their own.
class CHealthyModem
{
public:
    explicit CHealthyModem(unsigned int ulFirstPort = 101) : m_ulFirstPort(ulFirstPort), m_ue(ulFirstPort, "healthy") {}
    ~CHealthyModem();
    CHealthyModem(const CHealthyModem&) = delete;
    CHealthyModem& operator=(const CHealthyModem&) = delete;

    /// Attaches, is confirmed, binds its client and begins to stream; false when the agent doesn't take it.
    bool Start(CAgentBench& bench);
    /// The sender ends; what is under way still arrives.
    void StopSending() { m_bSend = false; }

    /// A request of a client of this modem, to the modem and back, in ms; nothing when it doesn't come back in time.
    std::optional<double> AskMs(std::chrono::milliseconds limit);

    const CDelayMeter& Meter() const { return m_meter; }
    /// What was wrong with what the client got; empty when nothing was.
    std::string Fault() const;

private:
    void Send();
    void Receive();
    void Write(ByteView frame);
    void SetFault(const std::string& strFault);

    unsigned int m_ulFirstPort;
    CScriptedUe m_ue;
    std::unique_ptr<CTcpClient> m_pClient;     // of the data
    std::unique_ptr<CTcpClient> m_pDiagClient; // asks now and then
    CDelayMeter m_meter;
    mutable xtl::Mutex m_FaultLock;
    std::string m_strFault GUARDED_BY(m_FaultLock);
    std::atomic<bool> m_bSend = true;
    std::atomic<bool> m_bRead = true;
    std::thread m_sender;
    std::thread m_reader;
};
