#pragma once

#include "common/Bytes.h"

// The packets of the GU channel, the payload of OM frames. Little-endian throughout.

// ucCategory
constexpr unsigned char GU_CATEGORY_TRACE = 1;
constexpr unsigned char GU_CATEGORY_OTA = 2;
constexpr unsigned char GU_CATEGORY_TRANS = 4;
constexpr unsigned char GU_CATEGORY_QUERY = 10;
constexpr unsigned char GU_CATEGORY_MODEM_1 = 64; // added to a category: the second modem

// GU_PACKET_HEAD, from the UE. usPacketLen is the length of the packet less 4.
constexpr size_t GU_CATEGORY = 0;     // u8
constexpr size_t GU_SSID = 1;         // u8
constexpr size_t GU_PACKET_LEN = 2;   // u16
constexpr size_t GU_SN = 4;           // u32, counted for each SSID
constexpr size_t GU_QUERY_MSG_ID = 4; // u16 in place of the SN, in queries
constexpr size_t GU_TIME_STAMP = 8;   // u32, 32768 Hz ticks
constexpr size_t GU_QUERY_VALUE = 8;  // u32 in place of the stamp, in queries
constexpr size_t GU_MSG_ID = 12;      // u16
constexpr size_t GU_PAYLOAD = 16;
constexpr size_t GU_TRACE_SENDER_PID = 20; // u32, in a trace packet
constexpr size_t GU_TRACE_MSG_NAME = 36;   // u16, in a trace packet
constexpr size_t GU_MIN_PACKET = 20;       // a message below this size is refused
constexpr size_t GU_LEN_OFFSET_BASE = 4;   // bytes that usPacketLen doesn't count

// GU_PACKET_HEAD, towards the UE, and where it differs from the above.
constexpr size_t GU_REQ_SENDER_PID = 8;    // u32
constexpr size_t GU_REQ_RECEIVER_PID = 16; // u32
constexpr size_t GU_REQ_PARAM_LEN = 20;    // u32, bytes of parameters plus 4
constexpr size_t GU_REQ_MSG_ID = 24;       // u32
constexpr size_t GU_REQ_PARAMS = 28;
constexpr unsigned int GU_PID_AGENT = 105; // sender of the agent's requests

inline unsigned char GuCategory(ByteView packet)
{
    return LoadLe<uint8_t>(packet, GU_CATEGORY);
}
inline unsigned short GuPacketLen(ByteView packet)
{
    return LoadLe<uint16_t>(packet, GU_PACKET_LEN);
}
inline unsigned int GuTimeStamp(ByteView packet)
{
    return LoadLe<uint32_t>(packet, GU_TIME_STAMP);
}
inline unsigned short GuMsgId(ByteView packet)
{
    return LoadLe<uint16_t>(packet, GU_MSG_ID);
}
/// Whole size of the packet by its own length field.
inline size_t GuPacketSize(ByteView packet)
{
    return GuPacketLen(packet) + GU_LEN_OFFSET_BASE;
}
/// What follows the head, as far as the packet holds it.
inline ByteView GuPayload(ByteView packet)
{
    return Slice(packet, GU_PAYLOAD);
}

/// Milliseconds of a 32768 Hz counter. The counter's wrap makes the result wrap at 131072000.
constexpr unsigned int TicksToMs(unsigned int ulTicks)
{
    return static_cast<unsigned int>((1000ULL * ulTicks) >> 15);
}
