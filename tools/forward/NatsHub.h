#pragma once

#include "fleet/Hub.h"
#include "forward/ForwardHub.h"

#include <condition_variable>
#include <deque>
#include <mutex>

/// The hub over libnats, whose threads put what comes into a queue.
class CNatsHub : public IForwardHub
{
public:
    /// Null, with the reason, when the options are wrong. It connects in the background.
    static std::unique_ptr<CNatsHub> Open(HUB_OPTIONS stOptions, const std::string& strBench, std::string& strError);

    bool AskLast(const std::string& strSubject, uint64_t ullToken) override;
    bool Publish(const MESSAGE& stMessage, uint64_t ullToken) override;
    void PutState(const std::string& strJson) override;
    std::optional<HUB_EVENT> Wait(std::chrono::milliseconds limit) override;

    CHub& Connection() { return *m_pHub; }

private:
    explicit CNatsHub(std::string strBench) : m_strBench(std::move(strBench)) {}
    void Put(HUB_EVENT event);
    void TakeAnswer(natsMsg& msg);
    bool Send(natsMsg* pMsg);

    const std::string m_strBench;
    std::string m_strInbox; // answers come to <inbox>.<L or S><token>: a last message, or whether one is stored
    std::mutex m_Lock;      // over the queue
    std::condition_variable m_Changed;
    std::deque<HUB_EVENT> m_queue;
    std::unique_ptr<CHub> m_pHub;
    std::unique_ptr<CHubSubscription> m_pAnswers; // ends before the connection
};

/// What an answer says; kind and token are those of what was asked. For tests, too.
HUB_EVENT ReadLastAnswer(natsMsg& msg);
HUB_EVENT ReadStoredAnswer(natsMsg& msg);
