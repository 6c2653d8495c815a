#pragma once

#include "common/Bytes.h"

#include <array>
#include <cstdint>
#include <string>

/// A record of the device monitor program: one port came or went. One record a connection, no reply.
struct DEVICE_MONITOR_INFO_STRU
{
    static constexpr size_t NAME_SIZE = 256; // NUL included, as in the next
    static constexpr size_t GROUP_SIZE = 258;
    static constexpr size_t SIZE = 4 + 1 + 1 + NAME_SIZE + GROUP_SIZE;
    static constexpr uint8_t LEFT = 0;
    static constexpr uint8_t ARRIVED = 1;

    uint32_t ulPortNum = 0;   // 0 is the network UE; in network order on the wire, unlike all else
    uint8_t cSerialType = 0;  // enSerialType; the sender means it as signed
    uint8_t barrive = LEFT;   // or ARRIVED
    std::string szSerialName; // device name
    std::string szGroupId;    // the same for all ports of a modem; the IP address of the network UE

    bool operator==(const DEVICE_MONITOR_INFO_STRU&) const = default;
};
static_assert(DEVICE_MONITOR_INFO_STRU::SIZE == 520);

std::array<unsigned char, DEVICE_MONITOR_INFO_STRU::SIZE> EncodeDeviceRecord(const DEVICE_MONITOR_INFO_STRU& stInfo);
DEVICE_MONITOR_INFO_STRU DecodeDeviceRecord(ByteView record);
