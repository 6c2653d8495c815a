#pragma once

#include "fleet/FleetRequest.h"
#include "fleet/Hub.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

/// Asks the agent on this host what a request wants, over a connection of its own to the LTE diag channel. What goes
/// wrong is in the answer's strError.
FLEET_ANSWER AskAgent(const FLEET_REQUEST& stRequest, const std::string& strHost);

/// Answers the requests that come for a bench, one after the other, on a thread of its own.
class CRequests
{
public:
    /// Null, with the reason. The hub outlives it.
    static std::unique_ptr<CRequests> Open(CHub& hub, const std::string& strBench, const std::string& strAgentHost,
                                           std::string& strError);
    ~CRequests();
    CRequests(const CRequests&) = delete;
    CRequests& operator=(const CRequests&) = delete;

private:
    static constexpr size_t QUEUE_MOST = 16; // beyond, a request is refused at once
    struct REQUEST
    {
        std::string strText;
        std::string strReply; // subject
    };
    CRequests(CHub& hub, std::string strAgentHost);
    void Take(natsMsg& msg);
    void Run();
    void Reply(const std::string& strSubject, const FLEET_ANSWER& stAnswer);
    FLEET_ANSWER Answer(const std::string& strText) const;

    CHub& m_hub;
    const std::string m_strAgentHost;
    std::mutex m_Lock; // over the two below
    std::condition_variable m_Changed;
    std::deque<REQUEST> m_queue;
    bool m_bEnd = false;
    std::thread m_thread;
    std::unique_ptr<CHubSubscription> m_pSubscription; // ends first
};
