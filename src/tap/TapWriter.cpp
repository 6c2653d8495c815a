#include "tap/TapWriter.h"

#include <cstring>

// A reader copies a record and then looks whether it was still there all the time. So TAP_BEGIN moves before the first
// word of an old record is overwritten: words are stored with release and loaded with acquire, and a reader that has
// seen a new word sees the new TAP_BEGIN too.
//
// Readers on other cores look at the marks again and again, and each store to a mark takes its cache line from all of
// them: so TAP_BEGIN moves in steps, and TAP_END once a run.

namespace
{
constexpr uint64_t PREFETCH_WORDS = 128; // at most: a KiB
constexpr size_t STEPS = 64;             // the ring has so many

/// A word of the first bytes, eight of them or fewer, filled up with zero.
uint64_t PartWord(ByteView bytes)
{
    uint64_t ullWord = 0;
    std::memcpy(&ullWord, bytes.data(), bytes.size());
    return ullWord;
}

/// Writes words into the ring, one behind the other. A local of its own, so that the place stays in a register.
class CCursor
{
public:
    CCursor(std::span<TAP_WORD> ring, size_t szIndex) : m_ring(ring), m_szIndex(szIndex) {}

    void Put(uint64_t ullWord)
    {
        m_ring[m_szIndex].store(ullWord, std::memory_order_release);
        Skip(1);
    }
    /// All whole words of the bytes; gives the rest.
    ByteView PutWhole(ByteView bytes)
    {
        while (bytes.size() >= TAP_WORD_SIZE) {
            const size_t szWords = std::min(bytes.size() / TAP_WORD_SIZE, m_ring.size() - m_szIndex);
            for (size_t i = 0; i < szWords; ++i) {
                uint64_t ullWord = 0;
                std::memcpy(&ullWord, &bytes[i * TAP_WORD_SIZE], TAP_WORD_SIZE);
                m_ring[m_szIndex + i].store(ullWord, std::memory_order_release);
            }
            Skip(szWords);
            bytes = bytes.subspan(szWords * TAP_WORD_SIZE);
        }
        return bytes;
    }
    /// Has the processor fetch the place of so many words, so that the next record needn't wait for it. Readers have
    /// seen the old words last.
    void Prefetch(size_t szWords) const
    {
        constexpr size_t LINE_WORDS = 8;
        const size_t szEnd = std::min(m_szIndex + szWords, m_ring.size());
        for (size_t i = m_szIndex; i < szEnd; i += LINE_WORDS)
            __builtin_prefetch(&m_ring[i], 1);
    }
    size_t Index() const { return m_szIndex; }

private:
    void Skip(size_t szWords) { m_szIndex = m_szIndex + szWords == m_ring.size() ? 0 : m_szIndex + szWords; }

    std::span<TAP_WORD> m_ring;
    size_t m_szIndex;
};

void PutHead(CCursor& cursor, const TAP_RECORD& stRecord, uint64_t ullBytes)
{
    cursor.Put(ullBytes | uint64_t{static_cast<uint8_t>(stRecord.enKind)} << 32 | uint64_t{stRecord.ucUe} << 40 |
               uint64_t{stRecord.ucChannel} << 48 | uint64_t{stRecord.ucFlags} << 56);
    cursor.Put(stRecord.ullNumber);
    cursor.Put(stRecord.ullTime);
    cursor.Put(stRecord.ulPort | uint64_t{stRecord.ulClient} << 32);
}

/// The word in which the second part begins holds the last bytes of the first one too.
void PutBytes(CCursor& cursor, ByteView first, ByteView second)
{
    if (const ByteView rest = cursor.PutWhole(first); !rest.empty()) {
        std::array<unsigned char, TAP_WORD_SIZE> aucBoth{};
        std::ranges::copy(rest, aucBoth.begin());
        const ByteView part = Slice(second, 0, aucBoth.size() - rest.size());
        std::ranges::copy(part, aucBoth.begin() + static_cast<ptrdiff_t>(rest.size()));
        second = second.subspan(part.size());
        cursor.Put(PartWord(aucBoth));
    }
    if (const ByteView rest = cursor.PutWhole(second); !rest.empty())
        cursor.Put(PartWord(rest));
}
} // namespace

CTapWriter::CTapWriter(std::span<TAP_WORD> memory)
    : m_head(memory.first(TAP_HEAD_WORDS)), m_ring(memory.subspan(TAP_HEAD_WORDS))
{
}

void CTapWriter::Append(const TAP_RECORD& stRecord, uint64_t ullTime, ByteView first, ByteView second)
{
    TAP_RECORD stWritten = stRecord;
    const size_t szMost = m_ring.size() / TAP_LONGEST_PART * TAP_WORD_SIZE;
    if (first.size() + second.size() > szMost) {
        stWritten.ucFlags |= TAP_CUT;
        first = Slice(first, 0, szMost);
        second = Slice(second, 0, szMost - first.size());
    }
    const uint64_t ullBytes = first.size() + second.size();
    const uint64_t ullWords = TapRecordWords(ullBytes);
    stWritten.ullNumber = m_ullNumber++;
    stWritten.ullTime = ullTime;
    MakeRoom(ullWords);
    CCursor cursor(m_ring, m_szPut);
    PutHead(cursor, stWritten, ullBytes);
    PutBytes(cursor, first, second);
    cursor.Prefetch(std::min<uint64_t>(ullWords, PREFETCH_WORDS));
    m_szPut = cursor.Index();
    MoveRestart();
    m_ullEnd += ullWords;
    if (m_ullEnd - m_ullShownEnd > m_ring.size() / STEPS) // a long run
        ShowEnd();
}

void CTapWriter::ShowEnd()
{
    m_ullShownEnd = m_ullEnd;
    m_head[TAP_END].store(m_ullEnd, std::memory_order_release);
}

/// Gives up what is oldest, and a step more.
void CTapWriter::MakeRoom(uint64_t ullWords)
{
    if (m_ullEnd + ullWords - m_ullBegin <= m_ring.size())
        return;
    m_ullBegin = m_ullEnd + ullWords - m_ring.size() + m_ring.size() / STEPS;
    m_head[TAP_BEGIN].store(m_ullBegin, std::memory_order_release); // before any word of the new record
}

/// Every quarter of the ring a record is noted, to restart from once the next one is.
void CTapWriter::MoveRestart()
{
    if (m_ullEnd - m_ullNewerRestart < m_ring.size() / 4)
        return;
    m_head[TAP_RESTART].store(m_ullNewerRestart, std::memory_order_release);
    m_ullNewerRestart = m_ullEnd;
}
