#pragma once

#include "uesim/ByteQueue.h"

#include <cstdint>
#include <functional>
#include <vector>

// The modem's end of the line: HDLC frames as in RFC 1662 with flag, escape and FCS-16. The modem takes frames of
// any length, which the agent's decoder doesn't (the link request of 16 bytes is below its floor), and appends
// what it sends straight to a queue, many frames a write.

/// FCS-16 of the bytes, as it is transmitted (complemented).
uint16_t FcsOf(ByteView bytes);

/// Appends one frame with its two flags.
void AppendFrame(ByteView packet, CByteQueue& line);

/// Takes packet; the bytes are valid during the call.
using PacketSink = std::function<void(ByteView packet)>;

/// Cuts a stream into frames, however it is split. One flag may close a frame and open the next.
class CFrameCollector
{
public:
    /// Gives each good frame's packet to the sink.
    void Feed(ByteView bytes, const PacketSink& sink);
    /// Forgets the frame in hand.
    void Reset();
    /// Frames that failed: bad FCS, bad escape, shorter than the FCS or longer than MAX_FRAME.
    uint64_t BadFrames() const { return m_ullBad; }

    static constexpr size_t MAX_FRAME = 1U << 20;

private:
    void Byte(unsigned char ucByte);
    void EndFrame(const PacketSink& sink);

    std::vector<unsigned char> m_frame; // unescaped, FCS included
    bool m_bEscape = false;
    bool m_bBroken = false;
    bool m_bInFrame = false;
    uint64_t m_ullBad = 0;
};
