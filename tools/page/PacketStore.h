#pragma once

#include "capture/CapturePicture.h"
#include "capture/PcapngWriter.h"
#include "tap/TapRecord.h"

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

/// A record that is kept; the bytes are those of the store.
struct KEPT_PACKET
{
    uint64_t ullNumber = 0; // counts the records over all runs, from 1
    uint64_t ullLost = 0;   // records lost right before it
    TAP_RECORD stRecord;
    ByteView bytes;
};

/// A row of records in one piece of memory. One thread appends; what was there when a reader came stays as it is.
class CPacketChunk
{
public:
    explicit CPacketChunk(size_t szRoom);

    /// False when there is no room left.
    bool Append(const KEPT_PACKET& stPacket);
    /// The record at the offset, of those before szUsed, and the offset of the next; nothing at the end.
    std::optional<KEPT_PACKET> Next(size_t& szOffset, size_t szUsed) const;

    static size_t RoomFor(size_t szBytes); // of one record
    size_t Room() const { return m_szRoom; }
    size_t Used() const { return m_szUsed; }
    uint64_t FirstNumber() const { return m_ullFirst; }

private:
    /// What stands before the bytes of a record.
    struct HEAD
    {
        uint64_t ullNumber;
        uint64_t ullLost;
        TAP_RECORD stRecord;
        uint64_t ullLen;
    };

    size_t m_szRoom;
    std::unique_ptr<unsigned char[]> m_pBytes;
    size_t m_szUsed = 0;
    uint64_t m_ullFirst = 0;
};

/// The records as they were at one moment, to be read without holding anybody up.
class CPacketSnapshot
{
public:
    using CALL = std::function<bool(const KEPT_PACKET&)>; // false: enough

    /// Oldest first; starts of runs among them (see CPacketStore::RUN_KIND).
    void ForEach(const CALL& call) const;
    /// Newest first, those below the number.
    void ForEachBefore(uint64_t ullNumber, const CALL& call) const;
    uint64_t Oldest() const { return m_vecParts.empty() ? 0 : m_vecParts.front().pChunk->FirstNumber(); }
    /// What the oldest record found: the run and its picture.
    const CCapturePicture& Picture() const { return m_picture; }
    const CAPTURE_RUN& Run() const { return m_stRun; }

private:
    friend class CPacketStore;
    struct PART
    {
        std::shared_ptr<const CPacketChunk> pChunk;
        size_t szUsed;
    };
    static bool Walk(const PART& stPart, const CALL& call);

    std::vector<PART> m_vecParts;
    CCapturePicture m_picture;
    CAPTURE_RUN m_stRun;
};

/// The newest records, in so many bytes. Not safe from several threads; its snapshots are.
class CPacketStore
{
public:
    /// Marks the start of a run; its bytes are a TAP_HELLO.
    static constexpr TAP_KIND RUN_KIND = static_cast<TAP_KIND>(0);

    explicit CPacketStore(size_t szBytesMost);

    void BeginRun(const TAP_HELLO& stHello, uint64_t ullNow);
    /// Gives the number of the record.
    uint64_t Put(const TAP_RECORD& stRecord, ByteView bytes, uint64_t ullLost);

    CPacketSnapshot Snapshot() const;
    uint64_t Newest() const { return m_ullNumber; } // number of the newest record; 0 when there was none
    uint64_t Oldest() const { return m_chunks.empty() ? 0 : m_chunks.front()->FirstNumber(); }
    size_t Bytes() const { return m_szBytes; }

private:
    void MakeRoom(size_t szRoom);
    void ForgetOldest();

    const size_t m_szBytesMost;
    std::deque<std::shared_ptr<CPacketChunk>> m_chunks;
    size_t m_szBytes = 0; // of all chunks
    uint64_t m_ullNumber = 0;
    CCapturePicture m_picture; // as the oldest record found it
    CAPTURE_RUN m_stRun;       // of the oldest record
};

/// The run that a record of RUN_KIND starts.
CAPTURE_RUN RunOf(ByteView hello);
