#pragma once

#include "common/Bytes.h"

#include <cstdio>
#include <ostream>
#include <string>
#include <vector>

/// Bytes in the source of a test.
struct Bytes : std::vector<unsigned char>
{
    using vector::vector;
    explicit Bytes(ByteView view) : vector(view.begin(), view.end()) {}
};

/// Failure messages show the bytes in hexadecimal.
inline void PrintTo(const Bytes& bytes, std::ostream* pOut)
{
    char szByte[4];
    *pOut << bytes.size() << " bytes:";
    for (const unsigned char ucByte : bytes) {
        (void)std::snprintf(szByte, sizeof(szByte), " %02X", ucByte);
        *pOut << szByte;
    }
}

/// "7E 01 02" as bytes; anything between the digits is skipped.
inline Bytes Hex(const std::string& strHex)
{
    Bytes bytes;
    std::string strDigits;
    for (const char c : strHex)
        if (std::isxdigit(static_cast<unsigned char>(c)))
            strDigits += c;
    for (size_t i = 0; i + 1 < strDigits.size(); i += 2)
        bytes.push_back(static_cast<unsigned char>(std::stoul(strDigits.substr(i, 2), nullptr, 16)));
    return bytes;
}

/// Several pieces in a row.
template <class... Parts> Bytes Join(const Parts&... parts)
{
    Bytes joined;
    (joined.insert(joined.end(), parts.begin(), parts.end()), ...);
    return joined;
}

/// A little-endian field as bytes.
template <class T> Bytes Le(T value)
{
    Bytes bytes(sizeof(T), 0);
    StoreLe<std::make_unsigned_t<T>>(bytes, 0, static_cast<std::make_unsigned_t<T>>(value));
    return bytes;
}

/// szCount times one byte.
inline Bytes Fill(size_t szCount, unsigned char ucByte = 0)
{
    return Bytes(szCount, ucByte);
}
