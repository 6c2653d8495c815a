#include "page/ControlWorker.h"

#include <algorithm>
#include <poll.h>

namespace
{
using std::chrono::seconds;

constexpr seconds ORDER_LIMIT{5};
constexpr seconds STOP_LIMIT{2};   // for all that runs, at the end of the program
constexpr seconds ONCE_LINGER{3};  // a report that comes once is on its way
constexpr seconds LONGEST_WAIT{1}; // where there is no descriptor to be woken by
constexpr size_t MOST_ORDERS = 32;

double NowMs()
{
    return std::chrono::duration<double, std::milli>(std::chrono::system_clock::now().time_since_epoch()).count();
}
} // namespace

CControlWorker::CControlWorker(std::string strHost, MODEM stModem)
    : m_strHost(std::move(strHost)), m_stModem(std::move(stModem)), m_thread([this] { Work(); })
{
}

CControlWorker::~CControlWorker()
{
    Stop();
}

void CControlWorker::Post(const CONTROL_ORDER& stOrder, DONE done)
{
    {
        const xtl::MutexGuard guard(m_Lock);
        if (!m_bEnd && m_jobs.size() < MOST_ORDERS) {
            m_jobs.push_back({stOrder, std::move(done)});
            m_wake.Wake();
            return;
        }
    }
    done({409, "too much is asked of this modem at a time, or the page is about to end"});
}

CControlWorker::STATE CControlWorker::State() const
{
    const xtl::MutexGuard guard(m_Lock);
    return m_stShown;
}

void CControlWorker::AskToStop()
{
    const xtl::MutexGuard guard(m_Lock);
    m_bEnd = true;
    m_wake.Wake();
}

void CControlWorker::Stop()
{
    AskToStop();
    if (m_thread.joinable())
        m_thread.join();
}

void CControlWorker::Work()
{
    for (;;) {
        while (const auto job = Take()) {
            CONTROL_RESULT stResult = Do(job->stOrder);
            LetGoWhenIdle();
            Show(stResult.nStatus == 504 ? stResult.strError : ""); // a refusal is for the one who asked alone
            job->done(stResult);
        }
        {
            const xtl::MutexGuard guard(m_Lock);
            if (m_bEnd && m_jobs.empty())
                break;
        }
        Wait();
        if (m_session.IsOpen() && !m_session.Drain())
            Lose("the agent has closed the connection: what was started here has ended");
        LetGoWhenIdle();
    }
    StopAll();
}

void CControlWorker::Wait()
{
    m_wake.FallAsleep();
    bool bWork = false;
    {
        const xtl::MutexGuard guard(m_Lock);
        bWork = m_bEnd || !m_jobs.empty();
    }
    if (!bWork) {
        const auto fds = m_session.Fds(); // -1 is left out by poll
        std::array<pollfd, 3> polls{{{m_wake.Fd(), POLLIN, 0}, {fds[0], POLLIN, 0}, {fds[1], POLLIN, 0}}};
        (void)poll(polls.data(), polls.size(), static_cast<int>(std::chrono::milliseconds(LONGEST_WAIT).count()));
    }
    m_wake.Rise();
}

std::optional<CControlWorker::JOB> CControlWorker::Take()
{
    const xtl::MutexGuard guard(m_Lock);
    if (m_jobs.empty())
        return std::nullopt;
    std::optional<JOB> job(std::move(m_jobs.front()));
    m_jobs.pop_front();
    return job;
}

CONTROL_RESULT CControlWorker::Do(const CONTROL_ORDER& stOrder)
{
    CONTROL_RESULT stResult = stOrder.bStart ? Start(stOrder) : End(stOrder);
    if (stResult.nStatus == 504 && m_session.IsOpen() && !m_session.Drain())
        Lose(stResult.strError);
    return stResult;
}

CONTROL_RESULT CControlWorker::Start(const CONTROL_ORDER& stOrder)
{
    const auto deadline = Clock::now() + ORDER_LIMIT;
    if (CONTROL_RESULT stOpen = Open(deadline); !stOpen.IsOk())
        return stOpen;
    if (Runs(stOrder)) // with another period perhaps
        if (CONTROL_RESULT stEnd = End(stOrder); !stEnd.IsOk())
            return stEnd;
    CONTROL_RESULT stResult = m_session.Request(stOrder, true, deadline);
    if (stResult.IsOk() && stOrder.HasEnd())
        m_running.push_back({stOrder, NowMs()});
    else if (stResult.IsOk())
        m_linger = Clock::now() + ONCE_LINGER;
    return stResult;
}

CONTROL_RESULT CControlWorker::Open(Clock::time_point deadline)
{
    if (m_session.IsOpen())
        return {};
    const auto port = m_stModem.port();
    if (!port)
        return {409, "the modem has no GU channel now"};
    enChannelType enRefused = CHANNEL_GU_CMD;
    CONTROL_RESULT stResult = m_session.Open(m_strHost, *port, deadline, enRefused);
    const std::string strHolder = stResult.nStatus == 409 ? m_stModem.holder(enRefused) : "";
    if (!strHolder.empty())
        stResult.strError = std::string("another client holds ") +
                            (enRefused == CHANNEL_GU_CMD ? "GU command" : "GU data") + " of port " +
                            std::to_string(*port) + ": " + strHolder;
    return stResult;
}

CONTROL_RESULT CControlWorker::End(const CONTROL_ORDER& stOrder)
{
    const auto found = std::ranges::find_if(m_running, [&](const RUNNING& st) { return st.stOrder.IsSame(stOrder); });
    if (found == m_running.end())
        return {409, std::string(stOrder.stReport.pstRow->pszName) + " wasn't started from this page"};
    CONTROL_RESULT stResult = m_session.Request(found->stOrder, false, Clock::now() + ORDER_LIMIT);
    if (stResult.IsOk())
        m_running.erase(found);
    return stResult;
}

bool CControlWorker::Runs(const CONTROL_ORDER& stOrder) const
{
    return std::ranges::any_of(m_running, [&](const RUNNING& st) { return st.stOrder.IsSame(stOrder); });
}

void CControlWorker::Lose(const std::string& strError)
{
    m_session.Close();
    m_running.clear();
    Show(strError);
}

void CControlWorker::LetGoWhenIdle()
{
    if (!m_session.IsOpen() || !m_running.empty() || Clock::now() < m_linger)
        return;
    m_session.Close();
    Show("");
}

/// The agent would let the reports run on without a client.
void CControlWorker::StopAll()
{
    const auto deadline = Clock::now() + STOP_LIMIT;
    for (const RUNNING& stRunning : m_running)
        (void)m_session.Request(stRunning.stOrder, false, deadline); // nobody is left to be told
    m_running.clear();
    m_session.Close();
    Show("");
}

void CControlWorker::Show(const std::string& strError)
{
    const xtl::MutexGuard guard(m_Lock);
    m_stShown = {m_running, strError, m_session.IsOpen()};
}
