#pragma once

#include "common/Record.h"
#include "common/Types.h"

#include <string>

// The records in which the agent tells its state: the datagrams to the monitor (head, then one record), the
// channel table towards clients. Each record lists its fields once, in the order of the wire,
// for CByteReader and CByteWriter alike. Texts are NUL-terminated and cut to their fields.

/// Head of every datagram to the monitor. The record of its kind follows.
struct STATUS_HEAD_STRU
{
    static constexpr size_t SIZE = 8;

    uint8_t nMsgID = 0;       // MSG_ID of the record
    uint32_t payLoadSize = 0; // bytes of the record

    template <class Io, class Self> static void Fields(Io& io, Self& st)
    {
        io.Field(st.nMsgID); // 0
        io.Gap(3);
        io.Field(st.payLoadSize); // 4
    }
};

/// A port carries a channel now.
struct SerialPortConnect
{
    static constexpr uint8_t MSG_ID = 0;
    static constexpr size_t SIZE = 108;

    std::string szGroupId;
    uint32_t ulPort = 0;
    uint32_t ulChannel = 0; // enChannelType

    template <class Io, class Self> static void Fields(Io& io, Self& st)
    {
        io.Text(st.szGroupId, 100); //   0
        io.Field(st.ulPort);        // 100
        io.Field(st.ulChannel);     // 104
    }
};

/// A channel of a port went away.
struct SerialPortDisconnect
{
    static constexpr uint8_t MSG_ID = 1;
    static constexpr size_t SIZE = 4;

    uint32_t ulPort = 0;

    template <class Io, class Self> static void Fields(Io& io, Self& st)
    {
        io.Field(st.ulPort); // 0
    }
};

/// A UE has answered the host connect request.
struct UEConnect
{
    static constexpr uint8_t MSG_ID = 2;
    static constexpr size_t SIZE = 301;

    uint8_t ucState = 1; // always 1
    std::string szGroupId;
    std::string szImei;
    std::string szVersion;

    template <class Io, class Self> static void Fields(Io& io, Self& st)
    {
        io.Field(st.ucState);       //   0
        io.Text(st.szGroupId, 100); //   1
        io.Text(st.szImei, 100);    // 101
        io.Text(st.szVersion, 100); // 201
    }
};

/// A client is bound to a row of the channel table.
struct ClientConnect
{
    static constexpr uint8_t MSG_ID = 3;
    static constexpr size_t SIZE = 108;

    uint32_t ulPort = 0;       // of the row
    uint32_t ulClientType = 0; // enChannelType
    std::string szAddress;     // peer address as dotted text

    template <class Io, class Self> static void Fields(Io& io, Self& st)
    {
        io.Field(st.ulPort);        // 0
        io.Field(st.ulClientType);  // 4
        io.Text(st.szAddress, 100); // 8
    }
};

/// A client isn't bound any more.
struct ClientDisconnect
{
    static constexpr uint8_t MSG_ID = 4;
    static constexpr size_t SIZE = 8;

    uint32_t ulPort = 0;
    uint32_t ulClientType = 0;

    template <class Io, class Self> static void Fields(Io& io, Self& st)
    {
        io.Field(st.ulPort);       // 0
        io.Field(st.ulClientType); // 4
    }
};

/// Bytes moved by one open port or link. Its datagram is longer than its head says, see SERIAL_TRANSFER_DATAGRAM.
struct SerialPortTransfer
{
    static constexpr uint8_t MSG_ID = 6;
    static constexpr size_t SIZE = 24;

    uint32_t ulChannel = 0;    // 0 for a serial port; a link's role, AT as 4
    uint32_t ulPort = 0;       // 0 for the network UE
    uint64_t ullReadBytes = 0; // since the port opened
    uint64_t ullWriteBytes = 0;

    template <class Io, class Self> static void Fields(Io& io, Self& st)
    {
        io.Field(st.ulChannel);     //  0
        io.Field(st.ulPort);        //  4
        io.Field(st.ullReadBytes);  //  8
        io.Field(st.ullWriteBytes); // 16
    }
};
/// Bytes on the wire of a SerialPortTransfer datagram. The monitor gets one of this size from the first version on,
/// although the head says 24; what lies behind the record is zero.
constexpr size_t SERIAL_TRANSFER_DATAGRAM = 216;

/// The agent's version.
struct AgentVer
{
    static constexpr uint8_t MSG_ID = 7;
    static constexpr size_t SIZE = 12;

    uint32_t ulMajor = 0;
    uint32_t ulMinor = 0;
    uint32_t ulPatch = 0;

    template <class Io, class Self> static void Fields(Io& io, Self& st)
    {
        io.Field(st.ulMajor); // 0
        io.Field(st.ulMinor); // 4
        io.Field(st.ulPatch); // 8
    }
};

/// Bytes on the wire of a record's datagram.
template <class Record> constexpr size_t DATAGRAM_SIZE = STATUS_HEAD_STRU::SIZE + Record::SIZE;
template <> inline constexpr size_t DATAGRAM_SIZE<SerialPortTransfer> = SERIAL_TRANSFER_DATAGRAM;

/// First byte of a query datagram that asks for the whole picture. Other values are ignored.
constexpr unsigned char AGENT_STATUS_QUERY_CURRENT = 0;
constexpr size_t STATUS_QUERY_MAX = 64; // bytes of a query that are read

/// One row of the channel table as clients see it.
struct SERAIL_CHANNEL_STATUS
{
    static constexpr size_t SIZE = 44;

    std::string szSerialName;
    uint32_t ulPort = 0xFFFFFFFF; // a signed number: -1 while the UE isn't confirmed
    uint32_t ulAttached = 0;      // 1: the port is there and its UE confirmed
    uint32_t ulBound = 0;         // 1: a client is bound as well

    template <class Io, class Self> static void Fields(Io& io, Self& st)
    {
        io.Text(st.szSerialName, 32); //  0
        io.Field(st.ulPort);          // 32
        io.Field(st.ulAttached);      // 36
        io.Field(st.ulBound);         // 40
    }
};
/// DIAG_PACKET_AGENT_CHANNEL_QUERY_ACK_STRU: every row, UE by UE, in the order of enChannelType.
constexpr size_t CHANNEL_QUERY_ACK_SIZE = MAXUENUM * CHANNELNUM * SERAIL_CHANNEL_STATUS::SIZE;
static_assert(CHANNEL_QUERY_ACK_SIZE == 3520);
