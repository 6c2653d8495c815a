#pragma once

#include "common/Bytes.h"
#include "common/Types.h"

#include <chrono>
#include <cstdint>
#include <sys/types.h>

class CAgentMsgRun;
class CChildChannel;

/// What framing finds wrong.
enum class LINE_FAULT
{
    DECODE,  // a frame that is none
    TOO_BIG, // a frame that doesn't end within the reassembly buffer
    ENCODE,  // a packet that can't be framed
};

/// What a line says to a packet.
enum class LINE_STATE
{
    OPEN,
    OPENING, // on its way: ask again later
    REFUSED, // the packet is lost
    CLOSED,  // all that waits for the line is lost
};

/// A serial port or a network link: it moves bytes and knows nothing of frames. Its read thread and the write thread
/// use it side by side, and none of its operations waits for the modem.
class ILine
{
public:
    virtual ~ILine() = default;

    /// The UE at the other end.
    virtual UE_INDEX GetUEIdx() const = 0;
    /// What frames the line's bytes, both ways, for all channels that it carries.
    virtual CChildChannel& Channel() = 0;
    /// Tells of a fault in the line's own words.
    virtual void LogFault(LINE_FAULT enFault) const = 0;

    // Its read thread only.

    /// To wait for; -1 while there is nothing to read from.
    virtual int ReadHandle() const = 0;
    /// Reads what that descriptor has, within bounds, unless it isn't the line's any more, and hands the bytes to the
    /// channels; the packets are posted before a close can go on. False on a fault that the line has told.
    virtual bool ReadBytes(int nHandle) = 0;

    // The write thread only.

    /// Asks for the opening of a line that opens so, and tells the log when the packet at hand is lost.
    virtual LINE_STATE PrepareWrite() = 0;
    /// Another number with each opening: the bytes of a packet belong to one opening.
    virtual uint64_t Opening() const = 0;
    /// Writes what the line takes at once and gives the count: 0 when it takes nothing now, negative when it is closed
    /// or on a fault that the line has told.
    virtual ssize_t WriteBytes(ByteView data) = 0;
    /// To wait for until the line takes more; -1 while closed.
    virtual int WriteHandle() const = 0;
    /// How long what is left of a packet waits for headway.
    virtual std::chrono::seconds WriteLimit(size_t szRemaining) const = 0;
    /// That time is over, or the wait failed: the rest is lost.
    virtual void OnNoHeadway(bool bTimeout) = 0;
};
