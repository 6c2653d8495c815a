#pragma once

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string_view>

/// Reads the numbers of a text by a scanf-like format: "%d" and "%u" for decimal, "%x" for hexadecimal digits, each
/// with an optional sign, every other character for itself. Stops at the first difference; the fields from there on
/// keep what they had. A number that doesn't fit keeps its low 32 bits, a negative one is its two's complement.
/// Gives the count of numbers read.
int ScanNumbers(std::string_view text, std::string_view format, std::span<uint32_t* const> fields);

inline int ScanNumbers(std::string_view text, std::string_view format, std::initializer_list<uint32_t*> fields)
{
    return ScanNumbers(text, format, std::span<uint32_t* const>(fields.begin(), fields.size()));
}
