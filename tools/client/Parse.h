#pragma once

#include "common/Bytes.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// A whole text as an unsigned number, decimal or with 0x in hexadecimal; false when it isn't one or doesn't fit.
bool ParseNumber(std::string_view strText, uint32_t& ulNumber);

/// Texts of hexadecimal digits, in pairs ("01 02", "0102ff"), as bytes; false on anything else.
bool ParseHex(std::span<const std::string> texts, std::vector<unsigned char>& bytes);

/// Two digits a byte, nothing between.
std::string HexDigits(ByteView bytes);
