#pragma once

#include "capture/CaptureOut.h"
#include "capture/ChunkQueue.h"
#include "capture/FileSync.h"

#include <atomic>
#include <thread>

class CProgress;

/// Who wants to know of the files. Called by the thread that writes them; not to keep it waiting.
class IFileEvents
{
public:
    virtual ~IFileEvents() = default;
    virtual void OnOpened(const std::string& strPath) = 0;
    /// The file is complete.
    virtual void OnClosed(const std::string& strPath) = 0;
};

/// Writes what comes out of the queue, on a thread of its own. When a disk is full it says so once, tries again each
/// second and says once that it goes on; nothing in the queue is dropped meanwhile.
class CFileWriter
{
public:
    /// How long the end waits for a pipe that isn't read.
    static constexpr std::chrono::seconds PATIENCE{10};
    CFileWriter(CChunkQueue& queue, CProgress& progress, IFileEvents& events, std::chrono::seconds patience = PATIENCE);
    /// The queue has been closed.
    ~CFileWriter();
    CFileWriter(const CFileWriter&) = delete;
    CFileWriter& operator=(const CFileWriter&) = delete;

    /// Where the first blocks go, unless they name a file themselves. Before Start.
    void Use(std::unique_ptr<ICaptureOut> pOut, const std::string& strPath);
    void Start();
    /// Waits until all is written, with the queue closed. Gives the count of records that couldn't be.
    uint64_t Finish();
    /// Whether whoever was to read the output has gone.
    bool IsLeft() const { return m_bLeft; }

private:
    void Run();
    void Write(CAPTURE_CHUNK& chunk);
    bool Attempt(CAPTURE_CHUNK& chunk, ByteView& rest);
    bool Begin(const std::string& strPath);
    void CloseFile();
    bool IsPatienceOver(int nError);
    void TellInterruption(int nError, uint64_t ullOfChunk);

    CChunkQueue& m_queue;
    CProgress& m_progress;
    IFileEvents& m_events;
    const std::chrono::seconds m_patience;
    std::atomic<bool> m_bLeft = false;
    // Of the thread, once it runs.
    std::unique_ptr<ICaptureOut> m_pOut;
    std::string m_strPath;  // of the file that is open or to be opened
    uint64_t m_ullKept = 0; // records in it
    uint64_t m_ullUnwritten = 0;
    bool m_bGivenUp = false;
    std::optional<std::chrono::steady_clock::time_point> m_patienceEnd; // set once the end has come
    CFileSync m_sync;
    std::thread m_thread;
};
