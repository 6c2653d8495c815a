#pragma once

#include "common/xtl.h"
#include "e2e/AgentBench.h"

#include <atomic>
#include <thread>

/// What a client that reads all the time got.
struct SOAK_COUNT
{
    uint64_t ullFrames = 0;   // packets of all kinds
    uint64_t ullReceived = 0; // numbered packets
    uint64_t ullLost = 0;     // gaps between their numbers
    uint32_t ulLast = 0;      // number of the last one
    std::string strFault;
};

/// A client that is connected and reads all the time. Packets that carry no number aren't looked at.
class CSoakReader
{
public:
    using IsNumbered = bool (*)(const DIAG_PACKET_ACK_STRU& stHead);

    CSoakReader(std::string strName, std::unique_ptr<CTcpClient> pClient, IsNumbered isNumbered);
    ~CSoakReader();
    CSoakReader(const CSoakReader&) = delete;
    CSoakReader& operator=(const CSoakReader&) = delete;

    const std::string& Name() const { return m_strName; }
    SOAK_COUNT Count() const;
    const CTcpClient& Client() const { return *m_pClient; }

private:
    void Run();
    void Note(const DIAG_PACKET_ACK_STRU& stHead);
    void SetFault(const std::string& strFault);

    std::string m_strName;
    std::unique_ptr<CTcpClient> m_pClient;
    IsNumbered m_isNumbered;
    mutable xtl::Mutex m_Lock;
    SOAK_COUNT m_stCount GUARDED_BY(m_Lock);
    std::atomic<bool> m_bRun = true;
    std::thread m_thread;
};

/// Numbers of LTE data indications stand in the place of the result; 0 is passed on now and then only.
bool IsNumberedLte(const DIAG_PACKET_ACK_STRU& stHead);
/// GU reports are numbered one by one, whatever their ids.
bool IsNumberedGu(const DIAG_PACKET_ACK_STRU& stHead);

/// Runs a step again and again on a thread of its own until the end of its life.
class CSoakLoop
{
public:
    template <class Step> explicit CSoakLoop(Step step)
    {
        m_thread = std::thread([this, step]() mutable {
            while (m_bRun) {
                step();
                ++m_ulRounds;
            }
        });
    }
    ~CSoakLoop()
    {
        m_bRun = false;
        m_thread.join();
    }
    CSoakLoop(const CSoakLoop&) = delete;
    CSoakLoop& operator=(const CSoakLoop&) = delete;

    unsigned int Rounds() const { return m_ulRounds; }

private:
    std::atomic<bool> m_bRun = true;
    std::atomic<unsigned int> m_ulRounds = 0;
    std::thread m_thread;
};

/// Clients of all kinds that connect, ask, leave a request half said or nothing at all, and go.
void ComeAndGo();
/// A client of the modem with this port that reads slowly for a while, then not at all, then goes; adds the frames that
/// it got. What was wrong.
std::string ReadSlowlyAndStall(CAgentBench& bench, unsigned int ulPort, std::atomic<uint64_t>& ullFrames);
