#pragma once

#include "tap/TapRecord.h"

#include <chrono>
#include <span>
#include <vector>

// The tap: everything that the agent carries, for any number of observers.
//
// The agent listens on the Unix socket TapSocket. An observer that connects gets one message, TAP_HELLO with a
// descriptor (SCM_RIGHTS): a memfd, sealed against changes of its size and against writing by others, to be mapped
// read-only. From then on the socket carries nothing; its end is the end of the agent.
//
// The memory is an array of 64-bit words in the machine's byte order: TAP_HEAD_WORDS words, of which TAP_END, TAP_BEGIN
// and TAP_RESTART have a meaning, then the ring. Positions count words since the start of the run; a position's word is
// at TAP_HEAD_WORDS + position % words of the ring. Records lie one behind the other, each of whole words:
//
//   word 0   bits 0-31 count of the bytes; 32-39 TAP_KIND; 40-47 UE slot, 255 for none; 48-55 channel, 255 for none;
//            56-63 flags: 1 of the picture, 2 cut, 4 bare text
//   word 1   number: 0, 1, 2 ... over the run
//   word 2   CLOCK_REALTIME in ns
//   word 3   bits 0-31 port number; 32-63 number of the client's connection
//   word 4   the bytes, eight a word, the first one lowest in memory; what fills the last word up is zero
//
// The bytes are what stands inside the framing: of a UE packet without HDLC flags, stuffing and FCS, of a client's
// packet without its two lead bytes, of AT text as it is on the line.
//
// The agent never looks at its readers. It moves TAP_BEGIN before it overwrites what is oldest, in steps, so that it
// may point into a record, and stores TAP_END when records are whole, the words with release order. A reader that loads
// with acquire order copies a record that lies before TAP_END and then loads TAP_BEGIN: is that beyond the record's
// position, what was copied is worth nothing and the reader was overrun. It goes on at TAP_RESTART, and the number
// there tells how many records it has lost.
//
// A new observer's first records, from the position in its hello on, are a picture of what is: the configuration, then
// the ports, the UEs and the bindings as events, with TAP_REPLAYED. Others see it too and may pass over it.

/// How long a reader that has read all waits before it looks again: at 20 MB/s the smallest ring takes 50 ms to fill.
constexpr std::chrono::milliseconds TAP_READ_PERIOD{10};

/// A record and its bytes, which are valid until the reader's next call.
struct TAP_READ
{
    TAP_RECORD stRecord;
    ByteView bytes;
    uint64_t ullLost = 0; // records lost right before this one
};

/// Reads one run's ring from a position on. Trusts nothing that lies in the memory: whatever it holds, no read leaves
/// it. For one thread.
class CTapReader
{
public:
    /// The memory as it was mapped, with TAP_HEAD_WORDS and one word more at least; borrowed.
    CTapReader(std::span<const TAP_WORD> memory, uint64_t ullPosition, uint64_t ullNumber);

    enum class RESULT
    {
        RECORD,
        NOTHING, // for now
        BROKEN,  // the memory isn't what an agent writes; for good
    };
    RESULT Next(TAP_READ& stRead);

    uint64_t LostRecords() const { return m_ullLost; }
    /// How much of the ring the reader is behind, from 0 to 1.
    double Behind() const;

private:
    enum class LOOK
    {
        VALID,
        OVERRUN,
        BROKEN,
    };
    LOOK Copy(TAP_READ& stRead);
    LOOK Check(LOOK enOtherwise) const;
    bool Restart();
    void CopyWords(size_t szIndex);
    /// The word at the index in the ring, which moves to the next.
    uint64_t TakeWord(size_t& szIndex) const;
    uint64_t Load(size_t szIndex) const { return m_head[szIndex].load(std::memory_order_acquire); }

    std::span<const TAP_WORD> m_head;
    std::span<const TAP_WORD> m_ring;
    uint64_t m_ullPosition;
    uint64_t m_ullEnd = 0; // TAP_END as it was last seen
    uint64_t m_ullNumber;  // of the next record, if none is lost
    uint64_t m_ullLost = 0;
    bool m_bBroken = false;
    std::vector<unsigned char> m_vecBytes;
};
