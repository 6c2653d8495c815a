#pragma once

#include "capture/CaptureLimits.h"
#include "capture/FileWriter.h"
#include "capture/SegmentNames.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <thread>

class CProgress;

/// Looks after the files of a capture once they are closed: compresses them and deletes the oldest. On a thread of its
/// own with a low priority, so that writing never waits for it.
class CSegmentKeeper : public IFileEvents
{
public:
    struct SETTINGS
    {
        std::optional<CSegmentNames> names; // of files that are rotated
        KEEP stKeep;                        // among those
        bool bCompress = false;
    };
    CSegmentKeeper(const SETTINGS& stSettings, CProgress& progress);
    /// Waits until all is done that was asked for.
    ~CSegmentKeeper() override;

    /// Takes up the plain files that a capture which was killed has left. Before the first file of this one is opened.
    void TakeLeftovers();

    void OnOpened(const std::string& strPath) override;
    void OnClosed(const std::string& strPath) override;

private:
    struct JOB
    {
        std::string strClosed; // to be compressed; empty: a file was opened
        bool bKilled = false;  // it may end within a block
    };
    void Add(const JOB& stJob);
    void Run();
    void Compress(const JOB& stJob);
    void DeleteOldest();

    const SETTINGS m_stSettings;
    CProgress& m_progress;
    std::mutex m_Lock; // over the three below
    std::condition_variable m_Changed;
    std::deque<JOB> m_queue;
    bool m_bEnd = false;
    std::thread m_thread;
};
