#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

// Names of the numbers on the wire. Every function answers an empty text for a number that has none.

std::string IdName(uint32_t ulCmdId);
std::string ResultName(uint32_t ulRc);
std::string PacketTypeName(uint16_t usPktType);     // by the low byte
std::string IndicationKindName(uint16_t usPktType); // of an LTE indication, by the low byte
std::string SystemModeName(uint16_t usPktType);     // by bits 8-11

/// "0x50000020".
std::string HexId(uint32_t ulCmdId);
/// "DIAG_RC_FAIL (2)", or the bare number.
std::string ResultText(uint32_t ulRc);

/// msg, cmd, agent, trace, ota, trans, query, or a number; false when it's neither.
bool ParsePacketType(std::string_view strText, uint16_t& usPktType);

/// The packet type that a request with this id has unless its sender says otherwise.
uint16_t RequestType(uint32_t ulCmdId);

/// What stands behind these functions, for who needs all names.
struct NAME_ROW
{
    uint32_t ulValue;
    const char* pszName;
};
std::span<const NAME_ROW> IdNames();
std::span<const NAME_ROW> ResultNames();
std::span<const NAME_ROW> PacketTypeNames();
std::span<const NAME_ROW> IndicationKindNames();
std::span<const NAME_ROW> SystemModeNames();
