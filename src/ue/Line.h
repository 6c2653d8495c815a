#pragma once

#include "common/Bytes.h"
#include "common/Types.h"

/// What framing finds wrong.
enum class LINE_FAULT
{
    DECODE,  // a frame that is none
    TOO_BIG, // a frame that doesn't end within the reassembly buffer
    ENCODE,  // a packet that can't be framed
};

/// A serial port or a network link, as its channels see it. It moves bytes and knows nothing of frames.
class ILine
{
public:
    virtual ~ILine() = default;

    /// The UE at the other end.
    virtual UE_INDEX GetUEIdx() const = 0;
    /// Writes all the bytes; false when they could not be written whole. The write thread only.
    virtual bool WriteBytes(ByteView data) = 0;
    /// Tells of a fault in the line's own words.
    virtual void LogFault(LINE_FAULT enFault) const = 0;
};
