#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>

constexpr unsigned int MAXUENUM = 16;     // UE slots
constexpr unsigned int CHANNELNUM = 5;    // logical channels of a UE
constexpr unsigned int SERIALNUM = 4;     // ports of a UE, and links of the network UE
constexpr unsigned int TCP_UE_INDEX = 15; // the slot of the one UE that is reached over the network
static_assert(TCP_UE_INDEX == MAXUENUM - 1, "every scan of the serial UEs stops before the network UE");

/// Number of a UE slot, 0 to MAXUENUM - 1. Anything else, UE_NONE among it, is no slot.
using UE_INDEX = unsigned int;
constexpr UE_INDEX UE_NONE = 0xFFFFFFFF;

/// Logical channels of a UE; also the index of CHANNEL_TABLE and its columns.
enum enChannelType : int
{
    CHANNEL_LTE_DIAG = 0,
    CHANNEL_LTE_DATA = 1,
    CHANNEL_GU_CMD = 2,
    CHANNEL_GU_DATA = 3,
    CHANNEL_AT = 4,
};

/// Role of a port in its UE. A port of type SERIAL_TYPE_GU carries two channels, all others one.
enum enSerialType : int
{
    SERIAL_TYPE_DIAG = 0,
    SERIAL_TYPE_DATA = 1,
    SERIAL_TYPE_GU = 2,
    SERIAL_TYPE_AT = 3,
};

/// All that is fixed about a channel.
struct CHANNEL_ROW
{
    enChannelType enChannel;
    const char* pszLabel;        // in log lines
    unsigned short usListenPort; // TCP port that its clients connect to
    enSerialType enPort;         // port of a UE, or link of the network UE, that carries it
    bool bText;                  // lines of text instead of HDLC frames
    bool bOpenedByWrite;         // its port opens at the first write, not when it is attached
};
// clang-format off
inline constexpr std::array<CHANNEL_ROW, CHANNELNUM> CHANNEL_TABLE = {{
    {CHANNEL_LTE_DIAG, "Lte Diag",  20260, SERIAL_TYPE_DIAG, false, false},
    {CHANNEL_LTE_DATA, "Lte Data",  20261, SERIAL_TYPE_DATA, false, false},
    {CHANNEL_GU_CMD,   "Guom Cmd",  20280, SERIAL_TYPE_GU,   false, false},
    {CHANNEL_GU_DATA,  "Guom Data", 20281, SERIAL_TYPE_GU,   false, false},
    {CHANNEL_AT,       "AT",        20270, SERIAL_TYPE_AT,   true,  true},
}};
// clang-format on

/// The row of a channel; null for what is none.
constexpr const CHANNEL_ROW* RowOf(enChannelType enChannel)
{
    const auto found = std::ranges::find(CHANNEL_TABLE, enChannel, &CHANNEL_ROW::enChannel);
    return found != CHANNEL_TABLE.end() ? &*found : nullptr;
}

/// The rows of the channels that a port carries; none for a role that doesn't exist.
constexpr std::span<const CHANNEL_ROW> ChannelsOf(enSerialType enPort)
{
    const auto first = std::ranges::find(CHANNEL_TABLE, enPort, &CHANNEL_ROW::enPort);
    return {first, static_cast<size_t>(std::ranges::count(CHANNEL_TABLE, enPort, &CHANNEL_ROW::enPort))};
}
static_assert(std::ranges::is_sorted(CHANNEL_TABLE, {}, &CHANNEL_ROW::enPort), "a port's channels stand together");

namespace detail
{
template <class Field> constexpr auto ChannelColumn(Field CHANNEL_ROW::*pField)
{
    std::array<Field, CHANNELNUM> aColumn{};
    for (size_t i = 0; i < CHANNELNUM; ++i)
        aColumn[i] = CHANNEL_TABLE[i].*pField;
    return aColumn;
}
} // namespace detail

// Columns of the table, by enChannelType.
inline constexpr auto ALL_CHANNELS = detail::ChannelColumn(&CHANNEL_ROW::enChannel);
inline constexpr auto LISTENPORT = detail::ChannelColumn(&CHANNEL_ROW::usListenPort);
inline constexpr auto strChannelType = detail::ChannelColumn(&CHANNEL_ROW::pszLabel);

// The other fixed ports.
constexpr unsigned short DEVICE_MONITOR_PORT = 20460; // TCP, device monitor records
constexpr unsigned short STATUS_PORT = 20560;         // UDP, status records to the monitor
constexpr unsigned short STATUS_QUERY_PORT = 20561;   // UDP, the monitor's query
