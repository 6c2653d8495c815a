#pragma once

#include "common/Bytes.h"
#include "common/Types.h"
#include "uesim/SimTime.h"

/// One side of a modem: what it answers and what it sends by itself. A modem asks its behaviours in order; the first
/// that takes a packet ends the walk. All calls come from the simulator's one thread.
class IBehaviour
{
public:
    IBehaviour() = default;
    virtual ~IBehaviour() = default;
    IBehaviour(const IBehaviour&) = delete;
    IBehaviour& operator=(const IBehaviour&) = delete;

    /// One packet without its frame, or on the AT port the bytes of one read. The bytes are valid during the call.
    /// True when the packet was for this behaviour.
    virtual bool OnPacket(enSerialType /*enPort*/, ByteView /*packet*/) { return false; }

    /// The other end opened the port.
    virtual void OnPortOpened(enSerialType /*enPort*/, SimTime /*now*/) {}
    virtual void OnPortClosed(enSerialType /*enPort*/) {}

    /// Does what is due. Gives the time of the next work, NEVER without any; work that only waits for room in a
    /// port's queue is called again when there is room.
    virtual SimTime OnTick(SimTime /*now*/) { return NEVER; }
};
