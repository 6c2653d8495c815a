#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

/// Whole blocks on their way to a file.
struct CAPTURE_CHUNK
{
    std::string strNewFile; // these blocks begin this file, and the one before is complete; empty: they go on
    std::vector<unsigned char> vecBytes;
    uint64_t ullRecords = 0;
};

/// The way from the thread that reads the ring to the one that writes files: bounded, so that a disk that stands still
/// takes no more memory than that, and nothing that has come in is ever dropped. Its buffers go round.
class CChunkQueue
{
public:
    /// szChunks: how many there are at most, in the queue or with one of the two threads.
    explicit CChunkQueue(size_t szChunks) : m_szLeft(szChunks) {}

    /// An empty one to be filled; none while all are with the writer or on their way there.
    std::optional<CAPTURE_CHUNK> TakeEmpty();
    void Put(CAPTURE_CHUNK chunk);
    /// No more will come.
    void Close();

    /// The oldest one; waits for it. None when the queue is closed and empty.
    std::optional<CAPTURE_CHUNK> Take();
    void GiveBack(CAPTURE_CHUNK chunk);
    /// Whether all that was put in has been given back.
    bool IsIdle();
    /// Waits until the queue is closed or the time is over; true when it is closed.
    bool WaitClosed(std::chrono::milliseconds time);

private:
    std::mutex m_Lock; // over all below
    std::condition_variable m_Changed;
    std::deque<CAPTURE_CHUNK> m_queue;
    std::vector<CAPTURE_CHUNK> m_vecEmpty;
    size_t m_szLeft;    // chunks that may still be made
    size_t m_szOut = 0; // put in and not given back
    bool m_bClosed = false;
};
