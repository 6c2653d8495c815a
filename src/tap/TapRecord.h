#pragma once

#include "common/Bytes.h"
#include "common/Types.h"

#include <array>
#include <atomic>

// What passes the tap, and how it lies in the shared memory. TapReader.h explains the format.

enum class TAP_KIND : uint8_t
{
    UE_TO_AGENT = 1,
    AGENT_TO_UE = 2,
    CLIENT_TO_AGENT = 3,
    AGENT_TO_CLIENT = 4,
    STATUS = 5, // a datagram to the status monitor
    PORT_EVENT = 6,
    CONFIGURATION = 7,
};

constexpr uint8_t TAP_REPLAYED = 0x01; // of the picture that a new observer gets: it happened before
constexpr uint8_t TAP_CUT = 0x02;      // too long for the ring: the bytes end early
constexpr uint8_t TAP_TEXT = 0x04;     // AT channel: bare text, not the frame of a client

constexpr uint8_t TAP_NO_UE = 0xFF;
constexpr uint8_t TAP_NO_CHANNEL = 0xFF;

/// One record but for its bytes.
struct TAP_RECORD
{
    TAP_KIND enKind = TAP_KIND::PORT_EVENT;
    uint8_t ucUe = TAP_NO_UE;           // UE slot
    uint8_t ucChannel = TAP_NO_CHANNEL; // enChannelType
    uint8_t ucFlags = 0;                // TAP_...
    uint32_t ulPort = 0;    // number of the modem's port; of a client's record that of its binding, 0 for none
    uint32_t ulClient = 0;  // counts the connections of the run from 1; 0 for none
    uint64_t ullNumber = 0; // counts the records of the run; set by the writer
    uint64_t ullTime = 0;   // CLOCK_REALTIME in ns; set by the writer
};

// The shared memory is an array of native 64-bit words.
using TAP_WORD = std::atomic<uint64_t>;
static_assert(TAP_WORD::is_always_lock_free && sizeof(TAP_WORD) == 8);

constexpr size_t TAP_WORD_SIZE = 8;
constexpr size_t TAP_HEAD_WORDS = 512; // before the ring: a page of its own

// Indexes of words before the ring, each on a cache line of its own. Positions count words since the start of the run.
constexpr size_t TAP_END = 0;      // position behind the newest record
constexpr size_t TAP_BEGIN = 8;    // what lies before this position may be overwritten; in a record or before one
constexpr size_t TAP_RESTART = 16; // position of a record a quarter of the ring behind the end, or up to three quarters

constexpr size_t TAP_RECORD_WORDS = 4;          // head of a record
constexpr size_t TAP_LONGEST_PART = 8;          // a record takes one such part of the ring at most
constexpr size_t TAP_LEAST_BYTES = 1024 * 1024; // of the ring

/// Words of a record with so many bytes, its head included.
constexpr uint64_t TapRecordWords(uint64_t ullBytes)
{
    return TAP_RECORD_WORDS + (ullBytes + TAP_WORD_SIZE - 1) / TAP_WORD_SIZE;
}

/// What a new observer gets over the socket, together with the descriptor of the memory.
struct TAP_HELLO
{
    static constexpr size_t SIZE = 128;
    static constexpr uint64_t MAGIC = 0x3150415458455600; // "\0VEXTAP1" in the order of its bytes
    static constexpr uint32_t VERSION = 1;

    uint64_t ullMagic = MAGIC;
    uint32_t ulVersion = VERSION;
    uint32_t ulRingBytes = 0;   // without the page before it
    uint64_t ullPosition = 0;   // where the observer's first record begins
    uint64_t ullNumber = 0;     // and its number
    uint64_t ullAgentStart = 0; // CLOCK_REALTIME in ns
    uint64_t ullRunHigh = 0;    // the run's id, random
    uint64_t ullRunLow = 0;
    std::string strHost; // name of the machine

    template <class Io, class Self> static void Fields(Io& io, Self& st)
    {
        io.Field(st.ullMagic);      //  0
        io.Field(st.ulVersion);     //  8
        io.Field(st.ulRingBytes);   // 12
        io.Field(st.ullPosition);   // 16
        io.Field(st.ullNumber);     // 24
        io.Field(st.ullAgentStart); // 32
        io.Field(st.ullRunHigh);    // 40
        io.Field(st.ullRunLow);     // 48
        io.Text(st.strHost, 72);    // 56
    }
};
