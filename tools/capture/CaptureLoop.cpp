#include "capture/CaptureLoop.h"

#include <thread>

namespace
{
using std::chrono::steady_clock;

constexpr std::chrono::seconds CONNECT_PERIOD{1};
constexpr size_t BATCH = 4096; // records between two looks at what else is to be done
} // namespace

CCaptureLoop::CCaptureLoop(const SETTINGS& stSettings, CRecordSink& sink, CProgress& progress,
                           std::function<bool()> isStopped)
    : m_stSettings(stSettings), m_sink(sink), m_progress(progress), m_isStopped(std::move(isStopped))
{
}

void CCaptureLoop::Run()
{
    while (!IsOver())
        if (const auto pTap = AwaitAgent())
            ReadRun(*pTap);
    m_sink.Finish(m_ullLost);
    m_stTotals.ullBytes = m_sink.Bytes();
}

bool CCaptureLoop::IsOver() const
{
    return m_isStopped() || (m_stSettings.end && steady_clock::now() >= *m_stSettings.end) ||
           (m_stSettings.count && m_ullCounted >= *m_stSettings.count);
}

/// None when it is to stop. Says once that it waits, and again when the reason is another one.
std::unique_ptr<CTapConnection> CCaptureLoop::AwaitAgent()
{
    std::string strTold;
    for (; !IsOver(); std::this_thread::sleep_for(TAP_READ_PERIOD)) {
        ShowProgress();
        const auto now = steady_clock::now();
        if (now < m_nextConnect)
            continue;
        m_nextConnect = now + CONNECT_PERIOD;
        std::string strError;
        if (auto pTap = CTapConnection::Open(m_stSettings.strTap, strError))
            return pTap;
        if (strTold != strError)
            m_progress.Problem("waiting for an agent at " + strError);
        strTold = strError;
    }
    return nullptr;
}

void CCaptureLoop::ReadRun(CTapConnection& tap)
{
    const TAP_HELLO& stHello = tap.Hello();
    const CAPTURE_RUN stRun{m_stSettings.strBench.empty() ? stHello.strHost : m_stSettings.strBench, stHello.ullRunHigh,
                            stHello.ullRunLow, stHello.ullAgentStart};
    m_progress.Info("capturing " + stRun.Text());
    m_sink.BeginRun(stRun);
    for (bool bMore = true; bMore;) {
        // Once more when it is to stop or the agent has ended: what came before that counts.
        bMore = !IsOver() && tap.Wait(TAP_READ_PERIOD);
        if (!ReadRing(tap.Reader())) {
            m_progress.Problem("what the agent shows can't be read; connecting again");
            return;
        }
        m_sink.Flush();
        ShowProgress();
    }
    if (!IsOver())
        m_progress.Info("the agent has ended");
}

/// All that is in the ring; false when what is there is no ring of an agent.
bool CCaptureLoop::ReadRing(CTapReader& reader)
{
    TAP_READ stRead;
    for (size_t szRead = 1; !m_stSettings.count || m_ullCounted < *m_stSettings.count; ++szRead) {
        const CTapReader::RESULT enResult = reader.Next(stRead);
        if (enResult != CTapReader::RESULT::RECORD)
            return enResult == CTapReader::RESULT::NOTHING;
        Take(stRead);
        if (szRead % BATCH != 0)
            continue;
        ShowProgress();
        if (IsOver())
            break;
    }
    return true;
}

void CCaptureLoop::Take(const TAP_READ& stRead)
{
    m_ullLost += stRead.ullLost;
    m_stTotals.ullLost += stRead.ullLost;
    const TAP_RECORD& stRecord = stRead.stRecord;
    if (m_sink.Picture().IsForOthers(stRecord))
        return;
    if (!m_stSettings.stFilter.Passes(stRecord)) {
        m_sink.Picture().Take(stRecord, stRead.bytes);
        return;
    }
    if (!m_sink.Put(stRecord, stRead.bytes, m_ullLost)) {
        ++m_ullLost;
        ++m_stTotals.ullLost;
        return;
    }
    m_ullLost = 0;
    ++m_stTotals.ullRecords;
    m_ullCounted += (stRecord.ucFlags & TAP_REPLAYED) == 0 ? 1 : 0;
}

void CCaptureLoop::ShowProgress()
{
    m_stTotals.ullBytes = m_sink.Bytes();
    m_progress.Show(m_stTotals, steady_clock::now());
}
