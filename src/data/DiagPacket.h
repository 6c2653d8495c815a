#pragma once

#include "common/Packet.h"

#include <string>

class IClientPort;

// The records that cross the two borders of the agent: client to agent over TCP, and agent to UE over the LTE
// channels. Their layout towards clients is fixed and stands here; that towards the UE comes from the
// configuration (CConfig::GetFilterCfg), and the ADE records below are its form in memory.

// Every packet to or from a client starts with two of these; there is no trailer and no checksum.
constexpr unsigned char LEAD_BYTE = 0x9F;
constexpr size_t LEAD_LEN = 2;

// Packet types: low byte of usPktType.
constexpr unsigned char PKT_TYPE_MSG = 5;       // ulCmdId is a DPI id, to be turned into a UE command id
constexpr unsigned char PKT_TYPE_CMD = 16;      // plain UE command
constexpr unsigned char PKT_TYPE_GU_TRACE = 81; // GU trace switch
constexpr unsigned char PKT_TYPE_GU_OTA = 82;   // GU over-the-air switch
constexpr unsigned char PKT_TYPE_GU_TRANS = 84; // GU transparent message
constexpr unsigned char PKT_TYPE_GU_QUERY = 90; // GU query
constexpr unsigned char PKT_TYPE_AGENT = 240;   // command for the agent itself

// Result codes: ulRc towards clients and the processors' own results.
constexpr unsigned int DIAG_RC_OK = 0;
constexpr unsigned int DIAG_RC_FAIL = 2;            // bad parameter, bind failed, short packet
constexpr unsigned int DIAG_RC_BAD_LENGTH = 12;     // UE packet shorter than the configured header
constexpr unsigned int DIAG_RC_NOT_BOUND = 41;      // client not bound, or the channel not up
constexpr unsigned int DIAG_RC_UE_FAIL = 43;        // the UE reported a failure in a switch
constexpr unsigned int DIAG_RC_BAD_HEADER = 44;     // UE header out of bounds or id invalid
constexpr unsigned int DIAG_RC_NO_LAYER_CFG = 45;   // layer message without entry; the packet still goes out
constexpr unsigned int DIAG_RC_NOT_DUAL_CARD = 47;  // second modem asked of a UE that isn't dual card
constexpr unsigned int DIAG_RC_BAD_FIELD = 49;      // a configured field could not be read
constexpr unsigned int DIAG_RC_FILTERED = 50;       // dropped on purpose
constexpr unsigned int DIAG_RC_NO_PID = 53;         // no PID pair for this id and UE version
constexpr unsigned int DIAG_RC_NO_MEMORY = 201;     // allocation failed
constexpr unsigned int DIAG_RC_NULL_PARAM = 100003; // an ack without usable payload

// Commands for the agent itself (PKT_TYPE_AGENT), and what it sends without request.
constexpr unsigned int AGENT_CMD_UE_STATUS = 0x50000010; // agent to client: UE status record
constexpr unsigned int AGENT_CMD_UE_VERSION = 0x50000020;
constexpr unsigned int AGENT_CMD_BIND = 0x50000040; // u32 UE port number
constexpr unsigned int AGENT_CMD_UNBIND = 0x50000050;
constexpr unsigned int AGENT_CMD_CHANNEL_QUERY = 0x50000060;
constexpr unsigned int AGENT_CMD_TIME_STAMP = 0x50000070;
constexpr unsigned int AGENT_CMD_CONFIG = 0x00000005;
constexpr unsigned int AGENT_CMD_GU_STATUS = 0x01F00010; // agent to GU client: GU_PROBE_ACK_STRU
constexpr unsigned int AGENT_CMD_AT = 33;                // AT text, both ways
constexpr unsigned int AGENT_CMD_AT_IND = 34;            // AT text that matches AT_IND_MSG_FILTER

// Ids on the LTE diag channel of the UE.
constexpr unsigned int UE_CMD_HOST_CONNECT = 0x10065000;     // request, and first id of its confirmation
constexpr unsigned int UE_CMD_HOST_CONNECT_CNF = 0x10066000; // second id of the confirmation
constexpr unsigned int UE_CMD_TIME_STAMP = 0x10067000;       // DT_CMD_PACKET_SERIAL_TIMESTAMPID
constexpr unsigned int UE_CMD_AIR_SWITCH = 0x10015312;
constexpr unsigned int UE_CMD_EVENT_SWITCH = 0x10015315;
constexpr unsigned int UE_CMD_USER_PLANE_SWITCH = 0x10015317; // also the id under which a client sends all three
constexpr unsigned int UE_CMD_SWITCH_ACK_1 = 0x10015311;      // known to the switch filter; no path leads to them
constexpr unsigned int UE_CMD_SWITCH_ACK_3 = 0x10015313;
constexpr unsigned int UE_CMD_NV_WRITE = 0x10015501;
constexpr unsigned int UE_CMD_NV_READ = 0x10015503;

// Indication ids from the UE on the LTE data channel.
constexpr unsigned int UE_IND_AIR = 0x20010000;
constexpr unsigned int UE_IND_LAYER = 0x20020000;
constexpr unsigned int UE_IND_DROPPED_1 = 0x20030000;
constexpr unsigned int UE_IND_EVENT = 0x20040000;
constexpr unsigned int UE_IND_USER_PLANE = 0x20050000;
constexpr unsigned int UE_IND_IMS = 0x20060000;
constexpr unsigned int UE_IND_DROPPED_2 = 0x20070000;
constexpr unsigned int UE_IND_DROPPED_3 = 0x90030000;
constexpr unsigned int UE_IND_LOGGED_ONLY = 0x10055220;

constexpr unsigned int ID_INVALID = 0xFFFFFFFF; // an id that could not be read or found

// ucIndType: kind of an LTE indication, low byte of its usPktType.
constexpr unsigned char IND_TYPE_OTHER = 0; // DSP messages too
constexpr unsigned char IND_TYPE_AIR = 1;
constexpr unsigned char IND_TYPE_LAYER = 2;
constexpr unsigned char IND_TYPE_EVENT = 3;
constexpr unsigned char IND_TYPE_USER_PLANE = 4;
constexpr unsigned char IND_TYPE_DPI = 5; // translated back by DPI
constexpr unsigned char IND_TYPE_IMS = 6;

enum PACKET_CATEGORY_ENUM
{
    PACKET_CATEGORY_DATA = 1,    // the tag byte equals one of the data tags
    PACKET_CATEGORY_ACK = 2,     // ack for a client
    PACKET_CATEGORY_MGR_ACK = 3, // ack for the agent itself
    PACKET_CATEGORY_INVALID = 6, // not classified
};

/// Class of an id: its top four bits.
constexpr unsigned int IdClass(unsigned int ulId)
{
    return ulId >> 28;
}
constexpr unsigned int ID_CLASS_MSP_CMD = 1;   // plain UE command
constexpr unsigned int ID_CLASS_DSP = 3;       // DSP message
constexpr unsigned int ID_CLASS_DROPPED_1 = 4; // never reaches a client
constexpr unsigned int ID_CLASS_AGENT = 5;     // agent command
constexpr unsigned int ID_CLASS_DROPPED_2 = 6; // never reaches a client
constexpr unsigned int ID_CLASS_DSP_TDS = 7;   // DSP message of TDS

/// Head of a request from a client, behind the lead bytes. The parameters follow.
struct DIAG_PACKET_REQ_STRU
{
    static constexpr size_t SIZE = 8;
    static constexpr size_t LEN_OFFSET = 6; // of usLen

    uint32_t ulCmdId = 0;   // whole id on the LTE channels; its low 16 bits on the GU command channel
    uint16_t usPktType = 0; // bits 0-7 packet type; bits 8-15 come back in the agent's own answers, not in UE acks
    uint16_t usLen = 0;     // bytes of parameters
};
/// Order on the wire, for CByteReader and CByteWriter alike.
template <class Io, class Req> void ReqHead(Io& io, Req& stReq)
{
    io.Field(stReq.ulCmdId);   // 0
    io.Field(stReq.usPktType); // 4
    io.Field(stReq.usLen);     // 6
}

/// Head of a packet to a client, ack or indication, behind the lead bytes. The payload follows.
struct DIAG_PACKET_ACK_STRU
{
    static constexpr size_t SIZE = 20;
    static constexpr size_t MAX_PAYLOAD = 8192; // of an ack

    uint32_t ulCmdId = 0;      // id as the client is to see it
    uint32_t ulRc = 0;         // DIAG_RC_...; LTE indication: the UE's ulAckField; GU indication: the message SN
    uint64_t ullTimeStamp = 0; // UE clock, 32768 Hz ticks
    uint16_t usPktType = 0;    // bits 0-7 type or kind of indication, 8-11 system mode, 12-15 reserved; in the
                               // agent's own answers to bind, unbind and LTE requests, bits 8-15 of the request
    uint16_t usLen = 0;        // bytes of payload
};
template <class Io, class Ack> void AckHead(Io& io, Ack& stAck)
{
    io.Field(stAck.ulCmdId);      //  0
    io.Field(stAck.ulRc);         //  4
    io.Field(stAck.ullTimeStamp); //  8
    io.Field(stAck.usPktType);    // 16
    io.Field(stAck.usLen);        // 18
}

/// A packet borrowed from a buffer: its head, and the payload that the buffer really holds (at most usLen bytes;
/// fewer when the buffer is shorter, and what is missing then reads as zero through the byte helpers).
struct DIAG_PACKET_REQ_VIEW
{
    DIAG_PACKET_REQ_STRU stHead;
    ByteView data;
};
inline DIAG_PACKET_REQ_VIEW ViewReq(ByteView packet)
{
    DIAG_PACKET_REQ_VIEW stView;
    CByteReader reader(packet);
    ReqHead(reader, stView.stHead);
    stView.data = Slice(packet, DIAG_PACKET_REQ_STRU::SIZE, stView.stHead.usLen);
    return stView;
}

/// An ack borrowed from a buffer, by the same rules.
struct DIAG_PACKET_ACK_VIEW
{
    DIAG_PACKET_ACK_STRU stHead;
    ByteView data;
};
inline DIAG_PACKET_ACK_VIEW ViewAck(ByteView packet)
{
    DIAG_PACKET_ACK_VIEW stView;
    CByteReader reader(packet);
    AckHead(reader, stView.stHead);
    stView.data = Slice(packet, DIAG_PACKET_ACK_STRU::SIZE, stView.stHead.usLen);
    return stView;
}

/// Header that a DPI message has between the UE's own header and its parameters.
struct DIAG_OSA_HEADER
{
    static constexpr size_t SIZE = 40;
    static constexpr size_t DPI_OFFSET = 20;    // of ulDpiId
    static constexpr size_t LEN_SURPLUS = 20;   // ulOsaLen counts this on top of the parameters
    static constexpr size_t RESULT_OFFSET = 40; // u32 result that follows it in an ack
    static constexpr size_t ACK_SIZE = 44;      // header and result of an ack

    uint32_t ulSenderPid = 0;
    uint32_t ulReceiverPid = 0;
    uint32_t ulOsaLen = 0; // parameter length + LEN_SURPLUS
    uint32_t ulDpiId = 0;  // the client's DPI id
    uint32_t ulCmdLow = 0; // low 16 bits of the UE command id
};
template <class Io, class Osa> void OsaHead(Io& io, Osa& stOsa)
{
    io.Gap(4);                   //  0
    io.Field(stOsa.ulSenderPid); //  4
    io.Gap(4);
    io.Field(stOsa.ulReceiverPid); // 12
    io.Field(stOsa.ulOsaLen);      // 16
    io.Field(stOsa.ulDpiId);       // 20
    io.Gap(12);
    io.Field(stOsa.ulCmdLow); // 36
}

/// What a client is told of its UE: payload of AGENT_CMD_UE_STATUS and of AGENT_CMD_GU_STATUS.
struct UE_STATUS_STRU
{
    static constexpr size_t SIZE = 92;

    uint8_t ucState = 1; // always 1
    uint8_t ucUeIdx = 0;
    uint16_t usPort = 0;   // TCP port of one of the UE's channels
    std::string szVersion; // of the UE, or its name
    std::string szText;    // the UE's IMEI, or what it has to say

    template <class Io, class Self> static void Fields(Io& io, Self& st)
    {
        io.Field(st.ucState);      //  0
        io.Field(st.ucUeIdx);      //  1
        io.Field(st.usPort);       //  2
        io.Text(st.szVersion, 32); //  4
        io.Text(st.szText, 56);    // 36
    }
};

/// Sends a packet to the client: lead bytes, head, payload, of which the head can tell UINT16_MAX bytes at most. False
/// when memory is short.
[[nodiscard]] bool SendClientPacket(IClientPort& client, const DIAG_PACKET_ACK_STRU& stAck, ByteView payload);
/// The same packet for other use; false when memory is short.
CPacket BuildClientPacket(const DIAG_PACKET_ACK_STRU& stAck, ByteView payload);

/// A UE request on its way to the encoder of the configured header.
struct ADE_REQ_PACKET_STRU
{
    uint32_t ulCmdId = 0;
    uint32_t ulMagic = 0x9F9F;
    uint8_t ucReserved = 0;
    uint8_t ucSysMode = 2;
    uint8_t ucCmdType = 0; // 0 plain request, 5 DPI message or NV traffic
    uint16_t usSpare = 0;
    uint16_t usLen = 0;
    ByteView pData; // usLen bytes, borrowed; empty when usLen is 0
};

/// A UE ack, read by the configured header.
struct ADE_ACK_PACKET_STRU
{
    uint32_t ulCmdId = 0;
    uint8_t ucReserved = 0;
    uint8_t ucSysMode = 2;
    uint8_t ucCmdType = 0;
    uint8_t ucSpare = 0;
    uint64_t ullTimeStamp = 0;
    uint16_t usAckField = 0;
    uint16_t usLen = 0;
    ByteView pData; // usLen bytes inside the UE packet
};

/// A UE indication, read by the configured header and then renamed, cut or rebuilt by the filter.
struct ADE_DATA_PACKET_STRU
{
    uint32_t ulCmdId = 0;
    uint8_t ucReserved = 0;
    uint8_t ucSysMode = 2; // the filter sets 3 for TDS
    uint8_t ucCmdType = 0;
    uint8_t ucIndType = 0; // IND_TYPE_...
    uint64_t ullTimeStamp = 0;
    uint32_t ulAckField = 0;
    uint16_t usLen = 0;
    ByteSpan pData; // usLen bytes inside the UE packet or the output area
};
