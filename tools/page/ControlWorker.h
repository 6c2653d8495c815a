#pragma once

#include "common/ThreadAnnotations.h"
#include "common/WakeUp.h"
#include "common/xtl.h"
#include "page/GuSession.h"

#include <deque>
#include <functional>
#include <optional>
#include <thread>
#include <vector>

/// Starts and stops reports of one modem, on a thread of its own: it waits for the agent, and nobody waits for it.
/// The GU channels are bound only while something runs that it has started.
class CControlWorker
{
public:
    /// What it needs to know of the modem; called on its thread.
    struct MODEM
    {
        std::function<std::optional<unsigned int>()> port; // to bind to; nothing: it isn't there
        std::function<std::string(enChannelType)> holder;  // who has the channel, empty when unknown
    };
    using DONE = std::function<void(const CONTROL_RESULT&)>;
    struct RUNNING
    {
        CONTROL_ORDER stOrder;
        double dSince = 0; // ms since 1970
    };
    struct STATE
    {
        std::vector<RUNNING> running;
        std::string strError; // why what ran has ended, or why the last order had no answer
        bool bBound = false;  // it has the modem's GU channels
    };

    CControlWorker(std::string strHost, MODEM stModem);
    ~CControlWorker(); // as Stop
    CControlWorker(const CControlWorker&) = delete;
    CControlWorker& operator=(const CControlWorker&) = delete;

    /// done is called once, on the worker's thread or right here when too many orders wait or it has been stopped.
    void Post(const CONTROL_ORDER& stOrder, DONE done);
    STATE State() const;
    /// It answers the orders that wait, stops what it has started, and ends.
    void AskToStop();
    /// The same, and waits for that.
    void Stop();

private:
    struct JOB
    {
        CONTROL_ORDER stOrder;
        DONE done;
    };
    void Work();
    void Wait();
    std::optional<JOB> Take();
    CONTROL_RESULT Do(const CONTROL_ORDER& stOrder);
    CONTROL_RESULT Start(const CONTROL_ORDER& stOrder);
    CONTROL_RESULT Open(Clock::time_point deadline);
    CONTROL_RESULT End(const CONTROL_ORDER& stOrder);
    bool Runs(const CONTROL_ORDER& stOrder) const;
    void Lose(const std::string& strError);
    void LetGoWhenIdle();
    void StopAll();
    void Show(const std::string& strError);

    const std::string m_strHost;
    const MODEM m_stModem;
    CWakeUp m_wake;
    // The thread's own:
    CGuSession m_session;
    std::vector<RUNNING> m_running;
    Clock::time_point m_linger{}; // the session stays until then, for a report that comes once

    mutable xtl::Mutex m_Lock; // over what follows
    std::deque<JOB> m_jobs GUARDED_BY(m_Lock);
    STATE m_stShown GUARDED_BY(m_Lock);
    bool m_bEnd GUARDED_BY(m_Lock) = false;
    std::thread m_thread; // the last member: it uses all others
};
