#pragma once

#include <chrono>
#include <cstdint>
#include <string_view>

/// When a file is closed and the next one begun; 0: never for this reason.
struct ROTATION
{
    uint64_t ullBytes = 0;
    std::chrono::seconds time{0};

    bool IsOn() const { return ullBytes > 0 || time.count() > 0; }
};

/// How much of what was closed stays; 0: no limit of this sort.
struct KEEP
{
    uint64_t ullBytes = 0; // of all files together, the open one included
    uint64_t ullFiles = 0; // the open one included

    bool IsOn() const { return ullBytes > 0 || ullFiles > 0; }
};

/// "100M": K, M, G and T are powers of 1024 bytes. "10m": s, m, h and d are times. False for anything else, for
/// nothing and for what is too large.
bool ParseRotation(std::string_view strText, ROTATION& stRotation);
/// A size, or a bare number: of files.
bool ParseKeep(std::string_view strText, KEEP& stKeep);
