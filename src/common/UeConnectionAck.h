#pragma once

#include "common/Bytes.h"

#include <array>

/// What the agent keeps of a UE's host connect confirmation.
struct ADE_UE_CONNECTION_ACK_STRU
{
    static constexpr size_t SIZE = 216;
    static constexpr size_t TAKEN_OVER = 60;    // bytes taken from the confirmation's payload as they stand
    static constexpr size_t FULL_PAYLOAD = 320; // a shorter payload doesn't confirm the UE

    static constexpr size_t IMEI = 4; // 16 bytes, NUL-terminated
    static constexpr size_t IMEI_SIZE = 16;
    static constexpr size_t IDENTITY = 20; // 3 x u32
    static constexpr size_t VERSION = 32;  // 6 x u16: V, R, C, B, SP and one more
    static constexpr size_t EXTRA = 44;    // u32
    static constexpr size_t UE_VER = 212;  // u32 ulUeVer: 1 when the payload had exactly FULL_PAYLOAD bytes, else 2

    std::array<unsigned char, SIZE> aucData{};

    uint16_t Version(size_t szIndex) const { return LoadLe<uint16_t>(aucData, VERSION + 2 * szIndex); }
    uint32_t UeVer() const { return LoadLe<uint32_t>(aucData, UE_VER); }
    std::string Imei() const { return FixedText(Slice(ByteView(aucData), IMEI, IMEI_SIZE)); }
};
