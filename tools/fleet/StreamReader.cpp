#include "fleet/StreamReader.h"

#include "client/Stop.h"
#include "fleet/FleetTime.h"

#include <algorithm>
#include <chrono>

namespace
{
using Clock = std::chrono::steady_clock;

constexpr int64_t WAIT_MS = 200;         // for one message, before it is looked whether to stop
constexpr std::chrono::seconds RENEW{3}; // without a message: the consumer may have gone with its server

struct FREE_INFO
{
    void operator()(jsStreamInfo* pInfo) const { jsStreamInfo_Destroy(pInfo); }
    void operator()(jsMsgMetaData* pMeta) const { jsMsgMetaData_Destroy(pMeta); }
};

ByteView BytesOf(natsMsg* pMsg)
{
    return {reinterpret_cast<const unsigned char*>(natsMsg_GetData(pMsg)),
            static_cast<size_t>(natsMsg_GetDataLength(pMsg))};
}

/// Whether a hub that has lost a server may answer otherwise soon.
bool IsPassing(natsStatus enStatus, jsErrCode enCode)
{
    switch (enStatus) {
    case NATS_TIMEOUT:
    case NATS_NO_RESPONDERS:
    case NATS_NO_SERVER:
    case NATS_CONNECTION_DISCONNECTED:
        return true;
    default:
        return enCode == JSClusterNotAvailErr || enCode == JSClusterNoPeersErr;
    }
}

/// Calls until the answer is more than a passing one, or HUB_PATIENCE ends.
template <class Call> natsStatus Patiently(Call call)
{
    const auto end = Clock::now() + HUB_PATIENCE;
    for (;;) {
        jsErrCode enCode{};
        const natsStatus enStatus = call(enCode);
        if (!IsPassing(enStatus, enCode) || Clock::now() >= end || StopRequested())
            return enStatus;
        nats_Sleep(WAIT_MS);
    }
}

std::string AllSubjects(const std::string& strBench)
{
    return FLEET_SUBJECT{strBench, "*", {"*", "*"}}.Text();
}
/// The messages of some subjects, one after the other, each once. A consumer is the hub's and goes with its server:
/// when nothing comes, another one goes on behind the last message.
class CCursor
{
public:
    CCursor(jsCtx* pJs, std::string strSubjects, uint64_t ullFirst)
        : m_pJs(pJs), m_strSubjects(std::move(strSubjects)), m_ullNext(ullFirst)
    {
    }

    /// Waits a moment for the next message: NATS_OK with it and its place in the stream, or NATS_TIMEOUT.
    natsStatus Next(NatsMsg& pMsg, STREAM_MESSAGE& stPlace)
    {
        if (!m_pSubscription || Clock::now() - std::max(m_last, m_made) > RENEW)
            Subscribe();
        natsMsg* pNew = nullptr;
        if (m_pSubscription)
            (void)natsSubscription_NextMsg(&pNew, m_pSubscription.get(), WAIT_MS); // whatever was wrong, it is renewed
        else
            nats_Sleep(WAIT_MS);
        pMsg.reset(pNew);
        jsMsgMetaData* pNewMeta = nullptr;
        if (!pMsg || natsMsg_GetMetaData(&pNewMeta, pNew) != NATS_OK)
            return NATS_TIMEOUT;
        const std::unique_ptr<jsMsgMetaData, FREE_INFO> pMeta(pNewMeta);
        if (pMeta->Sequence.Stream < m_ullNext)
            return NATS_TIMEOUT;
        m_last = Clock::now();
        stPlace.ullSequence = pMeta->Sequence.Stream;
        stPlace.ullPending = pMeta->NumPending;
        m_ullNext = stPlace.ullSequence + 1;
        return NATS_OK;
    }
    /// Time since the last message.
    Clock::duration Silence() const { return Clock::now() - m_last; }

private:
    void Subscribe()
    {
        m_made = Clock::now();
        jsSubOptions stOptions;
        (void)jsSubOptions_Init(&stOptions); // fails for no pointer alone
        stOptions.Stream = FLEET_STREAM;
        stOptions.Ordered = true;
        stOptions.Config.DeliverPolicy = js_DeliverByStartSequence;
        stOptions.Config.OptStartSeq = m_ullNext;
        natsSubscription* pNew = nullptr;
        m_pSubscription.reset();
        (void)js_SubscribeSync(&pNew, m_pJs, m_strSubjects.c_str(), nullptr, &stOptions, nullptr); // or again soon
        m_pSubscription.reset(pNew);
    }

    jsCtx* m_pJs;
    const std::string m_strSubjects;
    uint64_t m_ullNext;
    NatsSubscription m_pSubscription;
    Clock::time_point m_last = Clock::now(); // message
    Clock::time_point m_made{};              // the subscription
};
} // namespace

uint64_t CSegmentSearch::Search(uint64_t ullTime, std::optional<FOUND>& before) const
{
    uint64_t ullLow = m_stRange.ullBegin;
    uint64_t ullHigh = m_stRange.ullEnd;
    while (ullLow < ullHigh) {
        const uint64_t ullMiddle = ullLow + (ullHigh - ullLow) / 2;
        const auto found = m_next(ullMiddle);
        if (found && found->ullSequence < ullHigh && found->ullTime < ullTime) {
            before = found;
            ullLow = found->ullSequence + 1;
        } else {
            ullHigh = ullMiddle;
        }
    }
    return ullLow;
}

uint64_t CSegmentSearch::FirstFrom(uint64_t ullTime) const
{
    std::optional<FOUND> before;
    return Search(ullTime, before);
}

std::optional<uint64_t> CSegmentSearch::LastBefore(uint64_t ullTime) const
{
    std::optional<FOUND> before;
    (void)Search(ullTime, before);
    return before ? std::optional(before->ullTime) : std::nullopt;
}

bool DecodeStreamMessage(natsMsg* pMsg, STREAM_MESSAGE& stMessage, std::string& strError)
{
    const auto subject = ParseSubject(natsMsg_GetSubject(pMsg));
    if (!subject || !DecodeMessage(BytesOf(pMsg), stMessage.stMessage)) {
        strError = std::string("a message of ") + natsMsg_GetSubject(pMsg) + " isn't of vex-forward, or of a newer one";
        return false;
    }
    stMessage.stSubject = *subject;
    return true;
}

bool CStreamReader::Open(natsStatus& enStatus, std::string& strError)
{
    const std::string strSubjects = AllSubjects(m_strBench);
    jsOptions stOptions;
    (void)jsOptions_Init(&stOptions); // fails for no pointer alone
    stOptions.Stream.Info.SubjectsFilter = strSubjects.c_str();
    jsStreamInfo* pNew = nullptr;
    jsErrCode enCode{};
    enStatus = Patiently([&](jsErrCode& enNow) {
        const natsStatus enAnswer = js_GetStreamInfo(&pNew, m_pJs, FLEET_STREAM, &stOptions, &enNow);
        enCode = enNow;
        return enAnswer;
    });
    const std::unique_ptr<jsStreamInfo, FREE_INFO> pInfo(pNew);
    if (enStatus != NATS_OK) {
        strError = std::string("stream ") + FLEET_STREAM + ": " + NatsText(enStatus, enCode);
        return false;
    }
    m_stRange = {pInfo->State.FirstSeq, pInfo->State.LastSeq + 1};
    for (int i = 0; pInfo->State.Subjects != nullptr && i < pInfo->State.Subjects->Count; ++i)
        if (const auto subject = ParseSubject(pInfo->State.Subjects->List[i].Subject))
            m_vecSubjects.push_back(*subject);
    return true;
}

CSegmentSearch CStreamReader::Search(const FLEET_SUBJECT& stSubject)
{
    return {[this, strSubject = stSubject.Text()](uint64_t ullSequence) { return Next(strSubject, ullSequence); },
            m_stRange};
}

std::optional<CSegmentSearch::FOUND> CStreamReader::Next(const std::string& strSubject, uint64_t ullSequence)
{
    jsDirectGetMsgOptions stOptions;
    (void)jsDirectGetMsgOptions_Init(&stOptions); // fails for no pointer alone
    stOptions.Sequence = ullSequence;
    stOptions.NextBySubject = strSubject.c_str();
    natsMsg* pNew = nullptr;
    const natsStatus enStatus =
        Patiently([&](jsErrCode&) { return js_DirectGetMsg(&pNew, m_pJs, FLEET_STREAM, nullptr, &stOptions); });
    const NatsMsg pMsg(pNew);
    if (enStatus == NATS_NOT_FOUND)
        return std::nullopt;
    FLEET_MESSAGE stMessage;
    if (enStatus != NATS_OK)
        m_strError = NatsText(enStatus);
    else if (!DecodeMessage(BytesOf(pNew), stMessage))
        m_strError = "a message of " + strSubject + " isn't of vex-forward";
    else
        return CSegmentSearch::FOUND{natsMsg_GetSequence(pNew), SegmentTime(stMessage.strSegment).value_or(0)};
    return std::nullopt;
}

bool CStreamReader::Read(const SEQUENCE_RANGE& stRange, const std::function<bool(const STREAM_MESSAGE&)>& onMessage,
                         const std::function<bool()>& isStopped, natsStatus& enStatus, std::string& strError)
{
    CCursor cursor(m_pJs, AllSubjects(m_strBench), stRange.ullBegin);
    for (bool bMore = stRange.ullBegin < stRange.ullEnd; bMore && !isStopped();) {
        NatsMsg pMsg;
        STREAM_MESSAGE stMessage;
        enStatus = cursor.Next(pMsg, stMessage);
        if (enStatus == NATS_TIMEOUT && cursor.Silence() < HUB_PATIENCE)
            continue;
        if (enStatus != NATS_OK) {
            strError = "nothing comes from the hub: " + NatsText(enStatus);
            return false;
        }
        if (stMessage.ullSequence >= stRange.ullEnd)
            break;
        if (!DecodeStreamMessage(pMsg.get(), stMessage, strError))
            return false;
        bMore = onMessage(stMessage) && stMessage.ullPending > 0 && stMessage.ullSequence + 1 < stRange.ullEnd;
    }
    return true;
}
