#pragma once

#include "common/Bytes.h"
#include "tap/TapRecord.h"

#include <array>

// How the tap's records lie in a capture file: pcapng (draft-ietf-opsawg-pcapng), little-endian, one section, link type
// 252 (exported PDU) on every interface, times in ns.
//
//   section header   comment: run id, start of the agent and bench; hardware: the bench; application: who wrote it
//   interface        one for each UE and channel, "ue3-lte-data", made when its first record comes; the first is
//                    "agent" (configuration, events without a UE), and "status" has the datagrams to the monitor
//   enhanced packet  one for each record: tags of the exported PDU (big-endian: 12 dissector name "vex", 35 direction,
//                    end), CAPTURE_HEAD, the record's bytes. Its flags give the direction as the agent sees it;
//                    records that were lost right before it stand in its drop count and its comment
//   statistics       one for each interface at the end: records; on "agent" also all that were lost
//
// After an agent's restart the records of the next run follow in the same section: the comment of its configuration
// record tells the new run.

/// Head of a record, behind the tags of the exported PDU; the time is that of the packet block.
struct CAPTURE_HEAD
{
    static constexpr size_t SIZE = 24;
    static constexpr uint8_t VERSION = 1;

    uint8_t ucVersion = VERSION;
    uint8_t ucKind = 0; // TAP_KIND
    uint8_t ucUe = TAP_NO_UE;
    uint8_t ucChannel = TAP_NO_CHANNEL;
    uint8_t ucFlags = 0; // TAP_...
    uint32_t ulPort = 0;
    uint32_t ulClient = 0;
    uint64_t ullNumber = 0;

    template <class Io, class Self> static void Fields(Io& io, Self& st)
    {
        io.Field(st.ucVersion); //  0
        io.Field(st.ucKind);    //  1
        io.Field(st.ucUe);      //  2
        io.Field(st.ucChannel); //  3
        io.Field(st.ucFlags);   //  4
        io.Gap(3);              //  5
        io.Field(st.ulPort);    //  8
        io.Field(st.ulClient);  // 12
        io.Field(st.ullNumber); // 16
    }
};

// Types of blocks.
constexpr uint32_t PCAPNG_SECTION = 0x0A0D0D0A;
constexpr uint32_t PCAPNG_INTERFACE = 1;
constexpr uint32_t PCAPNG_STATISTICS = 5;
constexpr uint32_t PCAPNG_PACKET = 6;

constexpr size_t PCAPNG_BLOCK_FRAME = 12; // type, and the length before and behind the body
constexpr uint32_t PCAPNG_BYTE_ORDER = 0x1A2B3C4D;

// Codes of options; a code means different things in different blocks.
constexpr uint16_t PCAPNG_OPT_END = 0;
constexpr uint16_t PCAPNG_OPT_COMMENT = 1;
constexpr uint16_t PCAPNG_SHB_HARDWARE = 2;
constexpr uint16_t PCAPNG_SHB_OS = 3;
constexpr uint16_t PCAPNG_SHB_APPLICATION = 4;
constexpr uint16_t PCAPNG_IF_NAME = 2;
constexpr uint16_t PCAPNG_IF_DESCRIPTION = 3;
constexpr uint16_t PCAPNG_IF_TSRESOL = 9;
constexpr uint16_t PCAPNG_EPB_FLAGS = 2; // u32: 1 inbound, 2 outbound
constexpr uint16_t PCAPNG_EPB_DROPS = 4; // u64
constexpr uint16_t PCAPNG_ISB_RECEIVED = 4;
constexpr uint16_t PCAPNG_ISB_DROPPED = 5;

constexpr uint16_t LINK_EXPORTED_PDU = 252;
constexpr uint16_t PDU_TAG_END = 0;
constexpr uint16_t PDU_TAG_DISSECTOR = 12;
constexpr uint16_t PDU_TAG_DIRECTION = 35; // u32: 0 sent, 1 received
constexpr const char* PDU_DISSECTOR = "vex";

// What users call the channels and kinds, in options and names of interfaces.
inline constexpr std::array<const char*, CHANNELNUM> CAPTURE_CHANNEL_NAMES = {"lte-diag", "lte-data", "gu-cmd",
                                                                              "gu-data", "at"}; // by enChannelType
inline constexpr std::array<const char*, 8> CAPTURE_KIND_NAMES = {
    "", "from-ue", "to-ue", "from-client", "to-client", "status", "event", "config"}; // by TAP_KIND

/// Whether the agent got what the record holds; false for what it sent.
constexpr bool IsInbound(TAP_KIND enKind)
{
    return enKind == TAP_KIND::UE_TO_AGENT || enKind == TAP_KIND::CLIENT_TO_AGENT || enKind == TAP_KIND::PORT_EVENT;
}
