#pragma once

#include "common/Bytes.h"

#include <string>

// What a TAP_KIND::PORT_EVENT carries; its first field tells which. UE, channel, port number and client number are in
// the record's head.

enum class TAP_EVENT : uint32_t
{
    CHANNEL = 1, // a row of the channel table as it is now
    UE = 2,      // who the UE says it is
    CLIENT = 3,  // a client came or went
    SINCE = 4,   // in a picture: since when its channel is as it is
    LOG = 5,     // in a picture: where the agent's log is
};

/// State of one channel of a UE. The head's port number is that of its port, its client number that of the bound
/// client.
struct TAP_CHANNEL_EVENT
{
    static constexpr size_t SIZE = 264;

    uint32_t ulEvent = static_cast<uint32_t>(TAP_EVENT::CHANNEL);
    uint8_t ucAttached = 0;  // 1: the port is there
    uint8_t ucConfirmed = 0; // 1: the UE has answered the host connect
    std::string strName;     // of the port's device; empty for the network UE
    std::string strGroup;    // of the modem; the address of the network UE

    template <class Io, class Self> static void Fields(Io& io, Self& st)
    {
        io.Field(st.ulEvent);      //   0
        io.Field(st.ucAttached);   //   4
        io.Field(st.ucConfirmed);  //   5
        io.Gap(2);                 //   6
        io.Text(st.strName, 128);  //   8
        io.Text(st.strGroup, 128); // 136
    }
};

/// A UE has confirmed the host connect.
struct TAP_UE_EVENT
{
    static constexpr size_t SIZE = 204;

    uint32_t ulEvent = static_cast<uint32_t>(TAP_EVENT::UE);
    std::string strImei;
    std::string strVersion; // of its software

    template <class Io, class Self> static void Fields(Io& io, Self& st)
    {
        io.Field(st.ulEvent);        //   0
        io.Text(st.strImei, 100);    //   4
        io.Text(st.strVersion, 100); // 104
    }
};

/// A client has connected to the channel in the head, or gone.
struct TAP_CLIENT_EVENT
{
    static constexpr size_t SIZE = 24;

    uint32_t ulEvent = static_cast<uint32_t>(TAP_EVENT::CLIENT);
    uint8_t ucConnected = 0; // 0: gone
    std::string strAddress;  // dotted

    template <class Io, class Self> static void Fields(Io& io, Self& st)
    {
        io.Field(st.ulEvent);       // 0
        io.Field(st.ucConnected);   // 4
        io.Gap(3);                  // 5
        io.Text(st.strAddress, 16); // 8
    }
};

/// In a picture behind the event of a channel whose port is there. CLOCK_REALTIME in ns; 0 without a client.
struct TAP_SINCE_EVENT
{
    static constexpr size_t SIZE = 32;

    uint32_t ulEvent = static_cast<uint32_t>(TAP_EVENT::SINCE);
    uint64_t ullState = 0;     // attached or, later, confirmed
    uint64_t ullBound = 0;     // to the client in the head
    uint64_t ullConnected = 0; // that client

    template <class Io, class Self> static void Fields(Io& io, Self& st)
    {
        io.Field(st.ulEvent);      //  0
        io.Gap(4);                 //  4
        io.Field(st.ullState);     //  8
        io.Field(st.ullBound);     // 16
        io.Field(st.ullConnected); // 24
    }
};

/// The log of the run; none is told when there is none.
struct TAP_LOG_EVENT
{
    static constexpr size_t SIZE = 1024;

    uint32_t ulEvent = static_cast<uint32_t>(TAP_EVENT::LOG);
    std::string strFile; // absolute, in the file system as the agent sees it

    template <class Io, class Self> static void Fields(Io& io, Self& st)
    {
        io.Field(st.ulEvent);      // 0
        io.Text(st.strFile, 1020); // 4
    }
};
