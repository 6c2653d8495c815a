#pragma once

#include "common/UniqueFd.h"

#include <condition_variable>
#include <mutex>
#include <thread>

/// Brings the open file to the disk once a second, on a thread of its own: a slow disk doesn't hold up the writing.
class CFileSync
{
public:
    CFileSync();
    ~CFileSync();
    CFileSync(const CFileSync&) = delete;
    CFileSync& operator=(const CFileSync&) = delete;

    /// The file to sync from now on, a descriptor of its own for it; or none.
    void SetFile(CUniqueFd fd);

private:
    void Run();

    std::mutex m_Lock; // over all below but the thread
    std::condition_variable m_Stop;
    bool m_bStop = false;
    CUniqueFd m_fd;
    std::thread m_thread;
};
