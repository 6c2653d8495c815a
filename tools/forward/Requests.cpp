#include "forward/Requests.h"

#include "client/Names.h"
#include "client/Session.h"
#include "fleet/FleetFormat.h"

#include <sstream>

FLEET_ANSWER AskAgent(const FLEET_REQUEST& stRequest, const std::string& strHost)
{
    std::ostringstream ignored; // what comes unasked
    std::ostringstream errors;
    CPrinter printer(false, ignored);
    const CONTEXT stContext{
        {.strHost = strHost, .dTimeout = stRequest.dTimeout, .bindPort = stRequest.ulPort}, printer, errors};
    CSession session(stContext, CHANNEL_LTE_DIAG);
    PACKET stAck;
    EXIT_CODE enCode = session.Open();
    const bool bOpen = enCode == CODE_DONE;
    if (bOpen)
        enCode = session.Ask(stRequest.ulCmdId, RequestType(stRequest.ulCmdId), stRequest.vecParams, stAck);
    const bool bAnswered = bOpen && (enCode == CODE_DONE || enCode == CODE_REFUSED);
    if (bAnswered)
        return {"", stAck.stHead.ulCmdId, stAck.stHead.ulRc, stAck.stHead.ullTimeStamp, stAck.payload};
    std::string strError = errors.str();
    strError = strError.substr(0, strError.find_last_not_of('\n') + 1);
    return {strError.empty() ? "the agent has not answered" : strError, 0, 0, 0, {}};
}

CRequests::CRequests(CHub& hub, std::string strAgentHost) : m_hub(hub), m_strAgentHost(std::move(strAgentHost))
{
    m_thread = std::thread([this] { Run(); });
}

std::unique_ptr<CRequests> CRequests::Open(CHub& hub, const std::string& strBench, const std::string& strAgentHost,
                                           std::string& strError)
{
    std::unique_ptr<CRequests> pNew(new CRequests(hub, strAgentHost));
    CRequests* const pThis = pNew.get();
    pNew->m_pSubscription = CHubSubscription::Open(
        hub, RequestSubject(strBench), [pThis](natsMsg& msg) { pThis->Take(msg); }, strError);
    return pNew->m_pSubscription ? std::move(pNew) : nullptr;
}

CRequests::~CRequests()
{
    m_pSubscription.reset();
    {
        const std::lock_guard guard(m_Lock);
        m_bEnd = true;
    }
    m_Changed.notify_all();
    m_thread.join();
}

void CRequests::Take(natsMsg& msg)
{
    const char* const pszReply = natsMsg_GetReply(&msg);
    if (pszReply == nullptr || *pszReply == '\0')
        return; // nobody waits for an answer
    REQUEST stRequest{{natsMsg_GetData(&msg), static_cast<size_t>(natsMsg_GetDataLength(&msg))}, pszReply};
    {
        const std::lock_guard guard(m_Lock);
        if (m_queue.size() < QUEUE_MOST) {
            m_queue.push_back(std::move(stRequest));
            m_Changed.notify_all();
            return;
        }
    }
    Reply(stRequest.strReply, {"the bench has too many requests waiting", 0, 0, 0, {}});
}

void CRequests::Run()
{
    std::unique_lock lock(m_Lock);
    for (;;) {
        m_Changed.wait(lock, [this] { return m_bEnd || !m_queue.empty(); });
        if (m_bEnd)
            return;
        const REQUEST stRequest = std::move(m_queue.front());
        m_queue.pop_front();
        lock.unlock();
        Reply(stRequest.strReply, Answer(stRequest.strText));
        lock.lock();
    }
}

FLEET_ANSWER CRequests::Answer(const std::string& strText) const
{
    std::string strError;
    const auto request = RequestFromJson(strText, strError);
    return request ? AskAgent(*request, m_strAgentHost) : FLEET_ANSWER{strError, 0, 0, 0, {}};
}

/// One that can't be sent is missed by whoever waits for it.
void CRequests::Reply(const std::string& strSubject, const FLEET_ANSWER& stAnswer)
{
    (void)natsConnection_PublishString(m_hub.Get(), strSubject.c_str(), AnswerToJson(stAnswer).c_str());
}
