#include "page/FleetWatch.h"

#include "fleet/FleetFormat.h"

#include <algorithm>

namespace
{
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr int64_t WAIT_MS = 100;    // for news, before it is looked whether to stop
constexpr int64_t ANSWER_MS = 2000; // for the hub's answers
constexpr milliseconds RETRY{500};
constexpr milliseconds LINK_PATIENCE{1000}; // the library may find another server at once
constexpr milliseconds TRY_PERIOD{10'000};
// A consumer may have gone with its server, which looks like benches that say nothing: then the bucket is opened anew.
// Twice, before benches that are live look late.
constexpr milliseconds PATIENCE{2 * BENCH_LIVE_MS / 5};
} // namespace

CFleetWatch::CFleetWatch(HUB_OPTIONS stOptions, CFleetModel& model, TELL tell)
    : m_stOptions(std::move(stOptions)), m_model(model), m_tell(std::move(tell))
{
}

bool CFleetWatch::Start(std::string& strError)
{
    CHub::EVENTS events;
    events.onConnected = [this] { ++m_ullConnections; };
    events.onError = [this](const std::string& strWhat) { OnError(strWhat); };
    m_pHub = CHub::Open(m_stOptions, events, CHub::PATIENCE::FOREVER, strError);
    m_model.SetHub({false, "", "connecting to " + HubNames(m_stOptions)});
    if (m_pHub)
        m_thread = std::thread([this] { Run(); });
    return m_pHub != nullptr;
}

void CFleetWatch::Stop()
{
    m_bEnd = true;
    if (m_thread.joinable())
        m_thread.join();
    m_pHub.reset();
}

void CFleetWatch::Run()
{
    auto up = Clock::now(); // when there was a connection
    while (!m_bEnd) {
        std::string strProblem;
        if (m_pHub->IsConnected()) {
            strProblem = Follow();
            up = Clock::now();
        } else if (Clock::now() - up > LINK_PATIENCE) {
            strProblem = LinkProblem();
        }
        if (!strProblem.empty())
            Show(strProblem);
        if (!strProblem.empty() || !m_pHub->IsConnected())
            Pause();
    }
}

void CFleetWatch::Pause() const
{
    for (const auto end = Clock::now() + RETRY; !m_bEnd && Clock::now() < end;)
        std::this_thread::sleep_for(milliseconds(WAIT_MS));
}

/// Reads the bucket until it has to be opened anew, or the connection or the page ends. What is wrong, or nothing.
std::string CFleetWatch::Follow()
{
    const uint64_t ullConnections = m_ullConnections;
    jsOptions stOptions;
    (void)jsOptions_Init(&stOptions); // fails for no pointer alone
    stOptions.Wait = ANSWER_MS;
    jsCtx* pJs = nullptr;
    natsStatus enStatus = natsConnection_JetStream(&pJs, m_pHub->Get(), &stOptions);
    const JsContext context(pJs);
    CBenchBucket bucket;
    if (enStatus == NATS_OK)
        enStatus = bucket.Open(pJs);
    READING stReading;
    while (enStatus == NATS_OK && !m_bEnd && m_pHub->IsConnected() && ullConnections == m_ullConnections &&
           !IsSilent(stReading))
        enStatus = TakeNext(bucket, stReading);
    if (enStatus != NATS_OK && m_pHub->IsConnected())
        return BucketProblem(enStatus);
    return stReading.bAllTold || !IsSilent(stReading) ? "" : BucketProblem(NATS_TIMEOUT);
}

bool CFleetWatch::IsSilent(const READING& stReading)
{
    return Clock::now() - stReading.last > PATIENCE;
}

natsStatus CFleetWatch::TakeNext(CBenchBucket& bucket, READING& stReading)
{
    BENCH_NEWS stNews;
    const natsStatus enStatus = bucket.Next(stNews, WAIT_MS);
    if (enStatus == NATS_OK)
        Take(stNews, stReading);
    return enStatus == NATS_TIMEOUT ? NATS_OK : enStatus;
}

void CFleetWatch::Take(const BENCH_NEWS& stNews, READING& stReading)
{
    stReading.last = Clock::now();
    switch (stNews.enKind) {
    case BENCH_NEWS::KIND::STATE:
        TakeState(stNews, stReading);
        break;
    case BENCH_NEWS::KIND::WRONG: // what was there before stays
        stReading.Note(stNews.strBench);
        TellOnce(stNews.strBench, "what stands for " + stNews.strBench + " isn't a bench's state");
        break;
    case BENCH_NEWS::KIND::GONE:
        m_model.Forget(stNews.strBench);
        break;
    case BENCH_NEWS::KIND::ALL_TOLD:
        m_model.KeepOnly(stReading.seen);
        stReading.seen.clear();
        stReading.bAllTold = true;
        Show("");
        break;
    }
}

void CFleetWatch::TakeState(const BENCH_NEWS& stNews, READING& stReading)
{
    stReading.Note(stNews.strBench);
    if (!m_model.Take(stNews.stState, stNews.ullStored))
        TellOnce("", "there are more than " + std::to_string(CFleetBoard::MOST_BENCHES) +
                         " benches; the others aren't shown");
}

std::string CFleetWatch::LinkProblem()
{
    const std::string strNone = "no hub at " + HubNames(m_stOptions);
    if (Clock::now() >= m_nextTry) {
        m_model.SetHub({false, "", strNone}); // the try may take seconds
        m_strWhy = WhyNoHub(m_stOptions);
        m_nextTry = Clock::now() + TRY_PERIOD;
    }
    return strNone + (m_strWhy.empty() ? "" : ": " + m_strWhy);
}

std::string CFleetWatch::BucketProblem(natsStatus enStatus) const
{
    if (enStatus == NATS_NOT_FOUND)
        return std::string("the hub has no bucket ") + FLEET_BUCKET + "; vex-fleet init makes it";
    const std::lock_guard guard(m_Lock);
    return std::string("bucket ") + FLEET_BUCKET + ": " + NatsText(enStatus) +
           (m_strRefusal.empty() ? "" : "; " + m_strRefusal);
}

void CFleetWatch::OnError(const std::string& strWhat)
{
    const std::lock_guard guard(m_Lock);
    if (strWhat.find("Permissions Violation") != std::string::npos)
        m_strRefusal = strWhat;
}

/// How it stands, for browsers and in a line of its own when it has changed. An empty text: all is well.
void CFleetWatch::Show(const std::string& strProblem)
{
    const std::string strServer = m_pHub->Server();
    m_model.SetHub({!strServer.empty(), strServer, strProblem});
    const std::string strLine = strProblem.empty() ? "watching the benches at " + strServer : strProblem;
    if (strLine != m_strTold)
        m_tell(strLine);
    m_strTold = strLine;
}

/// A line, unless there was one of this bench.
void CFleetWatch::TellOnce(const std::string& strBench, const std::string& strText)
{
    if (m_setTold.size() <= CFleetBoard::MOST_BENCHES && m_setTold.insert(strBench).second)
        m_tell(strText);
}
