#include "capture/ChunkQueue.h"

std::optional<CAPTURE_CHUNK> CChunkQueue::TakeEmpty()
{
    const std::lock_guard guard(m_Lock);
    if (!m_vecEmpty.empty()) {
        CAPTURE_CHUNK chunk = std::move(m_vecEmpty.back());
        m_vecEmpty.pop_back();
        return chunk;
    }
    if (m_szLeft == 0)
        return std::nullopt;
    --m_szLeft;
    return CAPTURE_CHUNK();
}

void CChunkQueue::Put(CAPTURE_CHUNK chunk)
{
    const std::lock_guard guard(m_Lock);
    ++m_szOut;
    m_queue.push_back(std::move(chunk));
    m_Changed.notify_all();
}

void CChunkQueue::Close()
{
    const std::lock_guard guard(m_Lock);
    m_bClosed = true;
    m_Changed.notify_all();
}

std::optional<CAPTURE_CHUNK> CChunkQueue::Take()
{
    std::unique_lock lock(m_Lock);
    m_Changed.wait(lock, [this] { return m_bClosed || !m_queue.empty(); });
    if (m_queue.empty())
        return std::nullopt;
    CAPTURE_CHUNK chunk = std::move(m_queue.front());
    m_queue.pop_front();
    return chunk;
}

void CChunkQueue::GiveBack(CAPTURE_CHUNK chunk)
{
    chunk.strNewFile.clear();
    chunk.vecBytes.clear();
    chunk.ullRecords = 0;
    const std::lock_guard guard(m_Lock);
    --m_szOut;
    m_vecEmpty.push_back(std::move(chunk));
}

bool CChunkQueue::IsIdle()
{
    const std::lock_guard guard(m_Lock);
    return m_szOut == 0;
}

bool CChunkQueue::WaitClosed(std::chrono::milliseconds time)
{
    std::unique_lock lock(m_Lock);
    return m_Changed.wait_for(lock, time, [this] { return m_bClosed; });
}
