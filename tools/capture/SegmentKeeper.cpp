#include "capture/SegmentKeeper.h"

#include "capture/CompressFile.h"
#include "capture/PcapngBlocks.h"
#include "capture/Progress.h"

#include <filesystem>
#include <sys/resource.h>

namespace
{
constexpr int LOW_PRIORITY = 10;
}

CSegmentKeeper::CSegmentKeeper(const SETTINGS& stSettings, CProgress& progress)
    : m_stSettings(stSettings), m_progress(progress), m_thread([this] { Run(); })
{
}

CSegmentKeeper::~CSegmentKeeper()
{
    {
        const std::lock_guard guard(m_Lock);
        m_bEnd = true;
    }
    m_Changed.notify_all();
    m_thread.join();
}

void CSegmentKeeper::TakeLeftovers()
{
    if (!m_stSettings.names)
        return;
    for (const CSegmentNames::SEGMENT& segment : m_stSettings.names->List())
        if (!segment.bCompressed)
            Add({segment.strPath, true});
}

void CSegmentKeeper::OnOpened(const std::string&)
{
    Add({});
}

void CSegmentKeeper::OnClosed(const std::string& strPath)
{
    Add({strPath, false});
}

void CSegmentKeeper::Add(const JOB& stJob)
{
    {
        const std::lock_guard guard(m_Lock);
        m_queue.push_back(stJob);
    }
    m_Changed.notify_all();
}

void CSegmentKeeper::Run()
{
    (void)setpriority(PRIO_PROCESS, 0, LOW_PRIORITY); // of this thread alone; to be less nice is always allowed
    std::unique_lock lock(m_Lock);
    for (;;) {
        m_Changed.wait(lock, [this] { return m_bEnd || !m_queue.empty(); });
        if (m_queue.empty())
            return;
        const JOB stJob = std::move(m_queue.front());
        m_queue.pop_front();
        lock.unlock();
        if (m_stSettings.bCompress && !stJob.strClosed.empty())
            Compress(stJob);
        DeleteOldest();
        lock.lock();
    }
}

void CSegmentKeeper::Compress(const JOB& stJob)
{
    const std::string& strPath = stJob.strClosed;
    std::error_code gone; // the oldest may be deleted meanwhile
    if (!std::filesystem::is_regular_file(strPath, gone))
        return; // a device isn't compressed either
    if (stJob.bKilled)
        (void)CutToWholeBlocks(strPath); // what can't be cut is compressed as it is
    if (std::filesystem::file_size(strPath, gone) == 0 && !gone) {
        (void)std::filesystem::remove(strPath, gone); // nothing had come to it yet
        return;
    }
    std::string strError;
    if (!CompressFile(strPath, strError))
        m_progress.Problem(strError);
}

/// The newest is never deleted: it is being written.
void CSegmentKeeper::DeleteOldest()
{
    if (!m_stSettings.names || !m_stSettings.stKeep.IsOn())
        return;
    const auto segments = m_stSettings.names->List();
    uint64_t ullBytes = 0;
    for (const auto& segment : segments)
        ullBytes += segment.ullBytes;
    uint64_t ullFiles = segments.size();
    const KEEP& stKeep = m_stSettings.stKeep;
    for (const auto& segment : segments) {
        const bool bTooMuch =
            (stKeep.ullBytes > 0 && ullBytes > stKeep.ullBytes) || (stKeep.ullFiles > 0 && ullFiles > stKeep.ullFiles);
        if (!bTooMuch || ullFiles == 1)
            return;
        std::error_code error;
        if (!std::filesystem::remove(segment.strPath, error) && error)
            m_progress.Problem(segment.strPath + ": not deleted: " + error.message());
        ullBytes -= segment.ullBytes;
        --ullFiles;
    }
}
