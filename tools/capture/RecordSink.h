#pragma once

#include "capture/CaptureLimits.h"
#include "capture/CapturePicture.h"
#include "capture/ChunkQueue.h"
#include "capture/PcapngWriter.h"
#include "capture/SegmentNames.h"

#include <optional>

/// Turns records into blocks for the writer of the files, and says where one file ends and the next begins. For the
/// thread that reads the ring; never waits for anything.
class CRecordSink
{
public:
    /// Names: those of files that are rotated; none for one file that is open already.
    CRecordSink(CChunkQueue& queue, std::optional<CSegmentNames> names, const ROTATION& stRotation);

    /// The records that follow are of this run.
    void BeginRun(const CAPTURE_RUN& stRun);
    CCapturePicture& Picture() { return m_picture; }

    /// Takes a record, with the count of those that were lost right before it. False when the writer is so far behind
    /// that there is no room.
    [[nodiscard]] bool Put(const TAP_RECORD& stRecord, ByteView bytes, uint64_t ullLost);
    /// Nothing more comes for the moment: gives the writer what there is, if that one has nothing to do.
    void Flush();
    /// The end, with the losses that no record tells.
    void Finish(uint64_t ullLost);

    /// Bytes of blocks so far.
    uint64_t Bytes() const { return m_ullBytes + m_chunk.vecBytes.size(); }

private:
    bool HandOver();
    bool IsRotationDue() const;
    bool EnsureFile(const TAP_RECORD& stFirst);
    void BeginFile(const TAP_RECORD& stFirst);
    void WritePicture();
    void Write(const TAP_RECORD& stRecord, ByteView bytes, uint64_t ullLost);

    CChunkQueue& m_queue;
    const std::optional<CSegmentNames> m_names;
    const ROTATION m_stRotation;
    CAPTURE_CHUNK m_chunk; // being filled
    CPcapngWriter m_writer;
    CCapturePicture m_picture;
    CAPTURE_RUN m_stRun;
    bool m_bFile = false;   // one has begun
    bool m_bMissed = false; // the last record found no room
    std::chrono::steady_clock::time_point m_fileStart;
    uint64_t m_ullFileStart = 0; // Bytes() then
    uint64_t m_ullBytes = 0;     // handed over
};
