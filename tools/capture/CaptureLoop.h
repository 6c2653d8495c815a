#pragma once

#include "capture/CaptureFilter.h"
#include "capture/Progress.h"
#include "capture/RecordSink.h"
#include "tap/TapConnection.h"

#include <functional>
#include <optional>

/// Reads the rings of an agent and those that follow it into a sink, until it is to stop.
class CCaptureLoop
{
public:
    struct SETTINGS
    {
        std::string strTap;
        std::string strBench; // empty: the agent's host
        CAPTURE_FILTER stFilter;
        std::optional<std::chrono::steady_clock::time_point> end;
        std::optional<uint64_t> count; // records beyond the pictures
    };
    /// isStopped is asked a hundred times a second.
    CCaptureLoop(const SETTINGS& stSettings, CRecordSink& sink, CProgress& progress, std::function<bool()> isStopped);

    /// Returns when it is to stop, with the sink finished.
    void Run();
    const CAPTURE_TOTALS& Totals() const { return m_stTotals; }

private:
    bool IsOver() const;
    std::unique_ptr<CTapConnection> AwaitAgent();
    void ReadRun(CTapConnection& tap);
    bool ReadRing(CTapReader& reader);
    void Take(const TAP_READ& stRead);
    void ShowProgress();

    const SETTINGS m_stSettings;
    CRecordSink& m_sink;
    CProgress& m_progress;
    const std::function<bool()> m_isStopped;
    CAPTURE_TOTALS m_stTotals;
    std::chrono::steady_clock::time_point m_nextConnect{}; // not before
    uint64_t m_ullCounted = 0;                             // towards the count
    uint64_t m_ullLost = 0;                                // since the last record that was kept
};
