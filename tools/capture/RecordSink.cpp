#include "capture/RecordSink.h"

#include <ctime>
#include <utility>

namespace
{
constexpr size_t CHUNK_BYTES = 256 * 1024;
constexpr size_t CHUNK_ROOM = CHUNK_BYTES + 64 * 1024; // the last record goes beyond
constexpr size_t CHUNK_MOST = 4 * CHUNK_BYTES;         // a buffer that one large record made larger isn't kept

uint64_t RealTime()
{
    timespec stNow{};
    (void)clock_gettime(CLOCK_REALTIME, &stNow);
    return static_cast<uint64_t>(stNow.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(stNow.tv_nsec);
}
} // namespace

CRecordSink::CRecordSink(CChunkQueue& queue, std::optional<CSegmentNames> names, const ROTATION& stRotation)
    : m_queue(queue), m_names(std::move(names)), m_stRotation(stRotation), m_writer(m_chunk.vecBytes)
{
}

void CRecordSink::BeginRun(const CAPTURE_RUN& stRun)
{
    m_stRun = stRun;
    m_picture.Clear();
}

bool CRecordSink::Put(const TAP_RECORD& stRecord, ByteView bytes, uint64_t ullLost)
{
    const bool bRoom = (m_chunk.vecBytes.size() < CHUNK_BYTES || HandOver()) && EnsureFile(stRecord);
    if (bRoom && m_bMissed)
        WritePicture(); // events may be among what was lost
    if (bRoom)
        Write(stRecord, bytes, ullLost);
    m_bMissed = !bRoom;
    m_picture.Take(stRecord, bytes);
    return bRoom;
}

void CRecordSink::Flush()
{
    if (!m_chunk.vecBytes.empty() && m_queue.IsIdle())
        (void)HandOver(); // without a free one it goes with the next
}

void CRecordSink::Finish(uint64_t ullLost)
{
    if (m_bFile)
        m_writer.End(RealTime(), ullLost);
    m_ullBytes += m_chunk.vecBytes.size();
    m_queue.Put(std::exchange(m_chunk, {}));
    m_queue.Close();
}

/// False while all chunks are with the writer.
bool CRecordSink::HandOver()
{
    auto empty = m_queue.TakeEmpty();
    if (!empty)
        return false;
    if (empty->vecBytes.capacity() > CHUNK_MOST)
        empty->vecBytes.shrink_to_fit();
    empty->vecBytes.reserve(CHUNK_ROOM);
    m_ullBytes += m_chunk.vecBytes.size();
    std::swap(m_chunk, *empty);
    m_queue.Put(std::move(*empty));
    return true;
}

bool CRecordSink::IsRotationDue() const
{
    return (m_stRotation.ullBytes > 0 && Bytes() - m_ullFileStart >= m_stRotation.ullBytes) ||
           (m_stRotation.time.count() > 0 && std::chrono::steady_clock::now() - m_fileStart >= m_stRotation.time);
}

/// Makes sure that the file for the next record has begun; false when it should, but there is no room.
bool CRecordSink::EnsureFile(const TAP_RECORD& stFirst)
{
    if (m_bFile && !IsRotationDue())
        return true;
    if (m_bFile) {
        const size_t szBefore = m_chunk.vecBytes.size();
        m_writer.End(RealTime());
        if (!HandOver()) {
            m_chunk.vecBytes.resize(szBefore);
            return false;
        }
    }
    BeginFile(stFirst);
    return true;
}

void CRecordSink::BeginFile(const TAP_RECORD& stFirst)
{
    m_bFile = true;
    m_fileStart = std::chrono::steady_clock::now();
    m_ullFileStart = Bytes();
    if (m_names)
        m_chunk.strNewFile = m_names->NewPath(stFirst.ullTime, stFirst.ullNumber);
    m_writer.Begin(m_stRun, "vex-capture");
    WritePicture();
}

void CRecordSink::WritePicture()
{
    m_bMissed = false;
    m_picture.ForEach([this](const TAP_RECORD& stRecord, ByteView bytes) { Write(stRecord, bytes, 0); });
}

void CRecordSink::Write(const TAP_RECORD& stRecord, ByteView bytes, uint64_t ullLost)
{
    const bool bConfiguration = stRecord.enKind == TAP_KIND::CONFIGURATION;
    m_writer.Record(stRecord, bytes, ullLost, bConfiguration ? m_stRun.Text() : std::string());
    ++m_chunk.ullRecords;
}
