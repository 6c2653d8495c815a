#include "capture/FileWriter.h"

#include "capture/PcapngBlocks.h"
#include "capture/Progress.h"

#include <cerrno>
#include <cstring>

namespace
{
constexpr std::chrono::seconds RETRY_PERIOD{1};
} // namespace

CFileWriter::CFileWriter(CChunkQueue& queue, CProgress& progress, IFileEvents& events, std::chrono::seconds patience)
    : m_queue(queue), m_progress(progress), m_events(events), m_patience(patience)
{
}

CFileWriter::~CFileWriter()
{
    (void)Finish();
}

void CFileWriter::Use(std::unique_ptr<ICaptureOut> pOut, const std::string& strPath)
{
    m_pOut = std::move(pOut);
    m_strPath = strPath;
    m_sync.SetFile(m_pOut->Duplicate());
}

void CFileWriter::Start()
{
    m_thread = std::thread([this] { Run(); });
}

uint64_t CFileWriter::Finish()
{
    if (m_thread.joinable())
        m_thread.join();
    return m_ullUnwritten;
}

void CFileWriter::Run()
{
    while (auto chunk = m_queue.Take()) {
        Write(*chunk);
        m_queue.GiveBack(std::move(*chunk));
    }
    CloseFile();
}

void CFileWriter::Write(CAPTURE_CHUNK& chunk)
{
    const ByteView blocks(chunk.vecBytes);
    ByteView rest = blocks;
    bool bTold = false;
    while (!m_bGivenUp) {
        const size_t szBefore = rest.size();
        if (Attempt(chunk, rest))
            break;
        const int nError = errno;
        m_bLeft = nError == EPIPE;
        if (rest.size() < szBefore)
            m_patienceEnd.reset();
        if (nError != EAGAIN && !m_bLeft && !std::exchange(bTold, true))
            TellInterruption(nError, CountPackets(blocks.first(blocks.size() - rest.size())));
        m_bGivenUp = m_bLeft || IsPatienceOver(nError);
    }
    if (!m_bGivenUp && bTold)
        m_progress.Info(m_strPath + ": there is room again; capture goes on");
    const uint64_t ullWritten = m_bGivenUp ? CountPackets(blocks.first(blocks.size() - rest.size())) : chunk.ullRecords;
    m_ullKept += ullWritten;
    m_ullUnwritten += m_bLeft ? 0 : chunk.ullRecords - ullWritten;
}

/// Goes as far as it can with a chunk; false, with errno, when it isn't all.
bool CFileWriter::Attempt(CAPTURE_CHUNK& chunk, ByteView& rest)
{
    if (!chunk.strNewFile.empty() && !Begin(chunk.strNewFile))
        return false;
    chunk.strNewFile.clear();
    return m_pOut->Append(rest);
}

/// Waits until it makes sense to try again; true when it makes none any more. A disk is tried once more after the end,
/// a pipe for a while: its reader may be about to start.
bool CFileWriter::IsPatienceOver(int nError)
{
    const bool bPipe = nError == EAGAIN; // and has waited by itself
    if (!m_queue.WaitClosed(bPipe ? std::chrono::seconds(0) : RETRY_PERIOD))
        return false;
    const auto now = std::chrono::steady_clock::now();
    if (!m_patienceEnd) {
        m_patienceEnd = now + (bPipe ? m_patience : std::chrono::seconds(0));
        return false;
    }
    return now >= *m_patienceEnd;
}

bool CFileWriter::Begin(const std::string& strPath)
{
    CloseFile();
    m_strPath = strPath;
    m_pOut = OpenCaptureFile(strPath);
    if (!m_pOut)
        return false;
    m_sync.SetFile(m_pOut->Duplicate());
    m_events.OnOpened(strPath);
    return true;
}

void CFileWriter::CloseFile()
{
    if (!m_pOut)
        return;
    m_sync.SetFile({});
    m_pOut.reset();
    m_events.OnClosed(m_strPath);
    m_ullKept = 0;
}

void CFileWriter::TellInterruption(int nError, uint64_t ullOfChunk)
{
    m_progress.Problem(m_strPath + ": " + std::strerror(nError) + "; capture is interrupted, " +
                       std::to_string(m_ullKept + ullOfChunk) + " records kept");
}
