#pragma once

#include "common/Packet.h"

// Byte-stuffed frames with a 16-bit check sequence, in the manner of RFC 1662 but with no map of control
// characters: only the flag and the escape are stuffed.
//
//   0x7E | payload and FCS (low byte first), both stuffed | 0x7E

constexpr unsigned char HDLC_FLAG = 0x7E;
constexpr unsigned char HDLC_ESCAPE = 0x7D;
constexpr unsigned char HDLC_ESCAPE_XOR = 0x20;

constexpr size_t HDLC_FLAG_PAIR = 2; // flag bytes of a frame
constexpr size_t HDLC_FCS_LEN = 2;   // FCS bytes of a frame
constexpr size_t HDLC_PADDING = 3;   // not used in framing

/// The smallest payload taken from a modem, a floor set on purpose; the encoder has none.
constexpr size_t HDLC_MIN_PAYLOAD = 18;
constexpr size_t HDLC_MIN_RAW_LEN = HDLC_MIN_PAYLOAD + HDLC_FCS_LEN + HDLC_FLAG_PAIR;

// Results of HdlcEncode and HdlcDecode; 0 is success.
constexpr unsigned int HDLC_ERR_PARAM = 2;     // nothing to encode, or a raw frame below HDLC_MIN_RAW_LEN
constexpr unsigned int HDLC_ERR_MEMORY = 201;  // allocation failed
constexpr unsigned int HDLC_ERR_ESCAPE = 9060; // 0x7D with neither 0x5E nor 0x5D behind it
constexpr unsigned int HDLC_ERR_FCS = 9064;
constexpr unsigned int HDLC_ERR_SHORT = 9065; // payload below HDLC_MIN_PAYLOAD

/// What framing gives: the packet when uiResult is 0, none otherwise.
struct HDLC_RESULT
{
    unsigned int uiResult = 0; // HDLC_ERR_...
    CPacket packet;
};

/// Turns a packet into a frame for the line and back. Keeps nothing from call to call: one reader and one writer
/// may use the same object at once.
class CHDLCParse
{
public:
    /// Frames a payload of 1 byte or more; the result has both flags.
    [[nodiscard]] HDLC_RESULT HdlcEncode(ByteView src) const;

    /// Takes the payload out of a raw frame, both flags included. Behind the packet's bytes, in its buffer, stands
    /// a 0 byte.
    [[nodiscard]] HDLC_RESULT HdlcDecode(ByteView src) const;

    /// Runs the FCS-16 over the bytes, from the value fcs. For a null view it gives HDLC_ERR_FCS, as though that
    /// were an FCS value.
    unsigned short CalFcs(unsigned short fcs, ByteView bytes) const;

    /// Stores the FCS of all bytes but the last two in these two. Fewer than two bytes are left as they are.
    void EncodeAddFcs(ByteSpan packet) const;

    /// 0 when the last two bytes are the FCS of those before them, else HDLC_ERR_FCS.
    [[nodiscard]] unsigned int DecodeCheckFcs(ByteView packet) const;

private:
    bool m_bCheckFcs = true; // nothing changes it
};
