#include "capture/FileSync.h"

#include <chrono>
#include <fcntl.h>

CFileSync::CFileSync() : m_thread([this] { Run(); }) {}

CFileSync::~CFileSync()
{
    {
        const std::lock_guard guard(m_Lock);
        m_bStop = true;
    }
    m_Stop.notify_all();
    m_thread.join();
}

void CFileSync::SetFile(CUniqueFd fd)
{
    const std::lock_guard guard(m_Lock);
    m_fd = std::move(fd);
}

void CFileSync::Run()
{
    std::unique_lock lock(m_Lock);
    while (!m_Stop.wait_for(lock, std::chrono::seconds(1), [this] { return m_bStop; })) {
        const CUniqueFd fd(m_fd.IsOpen() ? fcntl(m_fd.Get(), F_DUPFD_CLOEXEC, 0) : -1);
        lock.unlock(); // SetFile never waits for the disk
        if (fd.IsOpen())
            (void)fdatasync(fd.Get()); // what it couldn't bring out fails for the writer, too
        lock.lock();
    }
}
