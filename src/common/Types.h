#pragma once

#include <array>
#include <cstddef>

constexpr unsigned int MAXUENUM = 16;     // UE slots
constexpr unsigned int CHANNELNUM = 5;    // logical channels of a UE
constexpr unsigned int SERIALNUM = 4;     // ports of a UE, and links of the network UE
constexpr unsigned int TCP_UE_INDEX = 15; // the slot of the one UE that is reached over the network
static_assert(TCP_UE_INDEX == MAXUENUM - 1, "every scan of the serial UEs stops before the network UE");

/// Number of a UE slot, 0 to MAXUENUM - 1. Anything else, UE_NONE among it, is no slot.
using UE_INDEX = unsigned int;
constexpr UE_INDEX UE_NONE = 0xFFFFFFFF;

/// Logical channels of a UE; also the index of LISTENPORT and strChannelType.
enum enChannelType : int
{
    CHANNEL_LTE_DIAG = 0,
    CHANNEL_LTE_DATA = 1,
    CHANNEL_GU_CMD = 2,
    CHANNEL_GU_DATA = 3,
    CHANNEL_AT = 4,
};

inline constexpr std::array<enChannelType, CHANNELNUM> ALL_CHANNELS = {CHANNEL_LTE_DIAG, CHANNEL_LTE_DATA,
                                                                       CHANNEL_GU_CMD, CHANNEL_GU_DATA, CHANNEL_AT};

/// Role of a port in its UE. A port of type SERIAL_TYPE_GU carries two channels, all others one.
enum enSerialType : int
{
    SERIAL_TYPE_DIAG = 0,
    SERIAL_TYPE_DATA = 1,
    SERIAL_TYPE_GU = 2,
    SERIAL_TYPE_AT = 3,
};

/// TCP port that clients of a channel connect to.
inline constexpr std::array<unsigned short, CHANNELNUM> LISTENPORT = {20260, 20261, 20280, 20281, 20270};

/// Labels of the channels in log lines.
inline constexpr std::array<const char*, CHANNELNUM> strChannelType = {"Lte Diag", "Lte Data", "Guom Cmd", "Guom Data",
                                                                       "AT"};

// The other fixed ports.
constexpr unsigned short DEVICE_MONITOR_PORT = 20460; // TCP, device monitor records
constexpr unsigned short STATUS_PORT = 20560;         // UDP, status records to the monitor
constexpr unsigned short STATUS_QUERY_PORT = 20561;   // UDP, the monitor's query
