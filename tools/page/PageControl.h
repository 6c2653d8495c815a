#pragma once

#include "page/ControlWorker.h"
#include "page/PageModel.h"

#include <array>
#include <memory>

/// Starts and stops reports and statistics as an ordinary client of the agent. From any thread; no call but Stop
/// waits.
class CPageControl
{
public:
    using CHANNEL = CPageModel::GU_CHANNEL;
    struct SETTINGS
    {
        bool bEnabled = false;
        std::string strAgent; // host
        /// A modem's GU channels as the tap shows them; from any thread.
        std::function<std::optional<CHANNEL>(unsigned int ulUe)> channel;
    };
    explicit CPageControl(SETTINGS stSettings) : m_stSettings(std::move(stSettings)) {}

    bool IsEnabled() const { return m_stSettings.bEnabled; }
    /// Carries out an order; done gets the answer later, on another thread, or right here.
    void Post(const CONTROL_ORDER& stOrder, CControlWorker::DONE done);
    /// The answer to /api/control: one object of JSON.
    std::string View(unsigned int ulUe) const;
    /// Stops all that was started here; orders are refused from now on.
    void Stop();

private:
    CControlWorker* Worker(unsigned int ulUe);
    CControlWorker::STATE StateOf(unsigned int ulUe) const;

    const SETTINGS m_stSettings;
    mutable xtl::Mutex m_Lock; // over what follows
    std::array<std::unique_ptr<CControlWorker>, MAXUENUM> m_apWorker GUARDED_BY(m_Lock);
    bool m_bStopped GUARDED_BY(m_Lock) = false;
};

/// The answer to an order: {"ok": true} or {"ok": false, "error": text}.
PAGE_ANSWER AnswerOf(const CONTROL_RESULT& stResult);
