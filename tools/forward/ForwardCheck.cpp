#include "forward/ForwardCheck.h"

#include "capture/SegmentNames.h"
#include "fleet/FleetFormat.h"
#include "forward/NatsHub.h"

#include <filesystem>
#include <mutex>
#include <ostream>
#include <unistd.h>
#include <utility>

namespace
{
constexpr int64_t ANSWER_MS = 3000;
constexpr const char* NO_EPOCH = "check";
constexpr const char* OTHER_STREAM = "vex-check"; // none has this name: the hub refuses, and stores nothing
constexpr const char* WRONG_STREAM = "expected stream does not match";

/// What a row of the report says; empty: it is good.
class CReport
{
public:
    explicit CReport(std::ostream& out) : m_out(out) {}
    void Row(const std::string& strWhat, const std::string& strFault)
    {
        m_out << (strFault.empty() ? "ok      " : "FAILED  ") << strWhat << (strFault.empty() ? "" : ": ") << strFault
              << std::endl;
        m_bGood = m_bGood && strFault.empty();
    }
    bool IsGood() const { return m_bGood; }

private:
    std::ostream& m_out;
    bool m_bGood = true;
};

/// What the server complains about, on a thread of the library.
class CComplaint
{
public:
    void Set(const std::string& strText)
    {
        const std::lock_guard guard(m_Lock);
        m_strText = strText;
    }
    std::string Take()
    {
        const std::lock_guard guard(m_Lock);
        return std::exchange(m_strText, {});
    }

private:
    std::mutex m_Lock;
    std::string m_strText;
};

std::string SpoolFault(const std::string& strSpool)
{
    if (!std::filesystem::is_directory(strSpool))
        return "there is no such folder; vex-capture --spool makes it";
    if (access(strSpool.c_str(), R_OK | W_OK | X_OK) != 0)
        return "it can't be read or written by this user";
    return "";
}

/// The answer to a request; null, with what is wrong.
NatsMsg Ask(CHub& hub, const std::string& strSubject, bool bToBeRefused, CComplaint& complaint, std::string& strFault)
{
    natsMsg* pMsg = nullptr;
    natsMsg* pAnswer = nullptr;
    natsStatus enStatus = natsMsg_Create(&pMsg, strSubject.c_str(), nullptr, nullptr, 0);
    const NatsMsg owner(pMsg);
    if (enStatus == NATS_OK && bToBeRefused)
        enStatus = natsMsgHeader_Set(pMsg, "Nats-Expected-Stream", OTHER_STREAM);
    if (enStatus == NATS_OK)
        enStatus = natsConnection_RequestMsg(&pAnswer, hub.Get(), pMsg, ANSWER_MS);
    const std::string strComplaint = complaint.Take();
    if (enStatus == NATS_NO_RESPONDERS)
        strFault = "the hub doesn't have it, or is without a leader (vex-fleet init makes it)";
    else if (enStatus != NATS_OK)
        strFault = strComplaint.empty() ? NatsText(enStatus) : strComplaint;
    return NatsMsg(pAnswer);
}

/// Whether something may be published there: the hub refuses it for the wrong stream alone.
std::string PublishFault(CHub& hub, const std::string& strSubject, CComplaint& complaint)
{
    std::string strFault;
    const NatsMsg pAnswer = Ask(hub, strSubject, true, complaint, strFault);
    if (!pAnswer)
        return strFault;
    const HUB_EVENT event = ReadStoredAnswer(*pAnswer);
    return event.strText == WRONG_STREAM ? "" : "an unexpected answer: " + event.strText;
}

std::string LastFault(CHub& hub, const std::string& strSubject, CComplaint& complaint)
{
    std::string strFault;
    const NatsMsg pAnswer = Ask(hub, LastMessageSubject(strSubject), false, complaint, strFault);
    return pAnswer ? ReadLastAnswer(*pAnswer).strText : strFault;
}
} // namespace

FORWARD_EXIT CheckForward(const FORWARD_OPTIONS& stOptions, std::ostream& out)
{
    CReport report(out);
    report.Row("spool " + stOptions.strSpool, SpoolFault(stOptions.strSpool));
    CComplaint complaint;
    HUB_OPTIONS stHub = stOptions.stHub;
    stHub.strName = "vex-forward --check " + stOptions.strBench;
    stHub.strInboxPrefix = InboxPrefix(stOptions.strBench);
    std::string strError;
    const auto pHub = CHub::Open(stHub,
                                 {.onConnected = {},
                                  .onLost = {},
                                  .onError = [&complaint](const std::string& strText) { complaint.Set(strText); }},
                                 CHub::PATIENCE::ONCE, strError);
    report.Row("connection" + (pHub ? " to " + pHub->Server() : ""), strError);
    if (pHub) {
        const std::string strSubject = FLEET_SUBJECT{stOptions.strBench, NO_EPOCH, FLEET_AGENT_LANE}.Text();
        report.Row("send traffic as " + stOptions.strBench, PublishFault(*pHub, strSubject, complaint));
        report.Row("ask what the hub has of " + stOptions.strBench, LastFault(*pHub, strSubject, complaint));
        report.Row("put the state of " + stOptions.strBench,
                   PublishFault(*pHub, StateSubject(stOptions.strBench), complaint));
    }
    return report.IsGood() ? FORWARD_DONE : FORWARD_CHECK;
}
