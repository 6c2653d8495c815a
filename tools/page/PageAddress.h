#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Where the page listens.
struct PAGE_ADDRESS
{
    std::string strHost = "127.0.0.1"; // an IPv4 or IPv6 address without brackets
    uint16_t usPort = 8280;            // 0: any free one

    /// Whether only this machine can reach it.
    bool IsLocal() const;
    /// As it stands in an address line: brackets around an IPv6 address.
    std::string Text() const;
};

/// "8280", "192.0.2.1:8280", "[::1]:8280", "localhost:8280"; nothing for anything else.
std::optional<PAGE_ADDRESS> ParsePageAddress(std::string_view strText);

/// The name or address of a Host header or an authority, in small letters, without port and brackets; empty when it
/// isn't one.
std::string HostOf(std::string_view strAuthority);
bool IsAddress(const std::string& strHost);
/// localhost, 127.0.0.0/8 and ::1.
bool IsLoopback(const std::string& strHost);
