#pragma once

#include "common/UnixTime.h"
#include "common/xtl.h"
#include "tap/TapRecord.h"

#include <span>

/// The agent's end of the tap: writes records into the shared memory and never looks at who reads them. From any
/// thread; each record is one short critical section and one copy. While nobody observes, callers ask IsObserved and
/// spare themselves everything else.
class CTapWriter
{
public:
    /// The memory is all zero, TAP_HEAD_WORDS and the ring, and outlives the writer. The ring has TAP_LEAST_BYTES or
    /// more.
    explicit CTapWriter(std::span<TAP_WORD> memory);

    bool IsObserved() const { return m_bObserved.load(std::memory_order_relaxed); }
    void SetObserved(bool bObserved) { m_bObserved = bObserved; }

    /// Where a record begins, and its number.
    struct PLACE
    {
        uint64_t ullPosition;
        uint64_t ullNumber;
    };
    /// Appends a record with the bytes of both parts, one behind the other; gives its place.
    PLACE Write(const TAP_RECORD& stRecord, ByteView first, ByteView second = {}) EXCLUDES(m_Lock)
    {
        const xtl::MutexGuard guard(m_Lock);
        const PLACE stPlace{m_ullEnd, m_ullNumber};
        Append(stRecord, UnixTimeNs(), first, second);
        ShowEnd();
        return stPlace;
    }
    /// Appends records that differ in their bytes alone, bytesOf each of the items, under one lock and with one time:
    /// what came together.
    template <class Items, class BytesOf>
    void WriteRun(const TAP_RECORD& stRecord, const Items& items, BytesOf bytesOf) EXCLUDES(m_Lock)
    {
        const xtl::MutexGuard guard(m_Lock);
        const uint64_t ullTime = UnixTimeNs();
        for (const auto& item : items)
            Append(stRecord, ullTime, bytesOf(item), {});
        ShowEnd();
    }

private:
    void Append(const TAP_RECORD& stRecord, uint64_t ullTime, ByteView first, ByteView second) REQUIRES(m_Lock);
    void MakeRoom(uint64_t ullWords) REQUIRES(m_Lock);
    void MoveRestart() REQUIRES(m_Lock);
    void ShowEnd() REQUIRES(m_Lock);

    std::span<TAP_WORD> m_head;
    std::span<TAP_WORD> m_ring;
    std::atomic<bool> m_bObserved = false;
    xtl::Mutex m_Lock; // a leaf: nothing else is taken with it held
    uint64_t m_ullEnd GUARDED_BY(m_Lock) = 0;
    uint64_t m_ullShownEnd GUARDED_BY(m_Lock) = 0;     // TAP_END
    uint64_t m_ullBegin GUARDED_BY(m_Lock) = 0;        // TAP_BEGIN
    uint64_t m_ullNewerRestart GUARDED_BY(m_Lock) = 0; // the next value of TAP_RESTART
    uint64_t m_ullNumber GUARDED_BY(m_Lock) = 0;       // of the next record
    size_t m_szPut GUARDED_BY(m_Lock) = 0;             // index in the ring of the next word
};
