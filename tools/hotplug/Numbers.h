#pragma once

#include "common/Types.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Number of each modem, by the path of its USB device. The ports of modem n have the numbers 100 n + 1 to + 4, by
/// role. A number once given stays with its path.
class CNumbers
{
public:
    /// The numbers of a text that Text made. None when a line is wrong: strError says which.
    static std::optional<CNumbers> Parse(std::string_view text, std::string& strError);
    std::string Text() const;

    /// The number of the port; a modem without one gets the lowest free number.
    uint32_t PortNumber(const std::string& strModem, enSerialType enRole);
    /// False when the path has no number.
    bool Forget(const std::string& strModem) { return m_byPath.erase(strModem) > 0; }
    /// Port numbers of every modem that has a number.
    std::vector<uint32_t> All() const;

    bool operator==(const CNumbers&) const = default;

private:
    static uint32_t PortOf(uint32_t ulModem, size_t szRole);
    bool IsTaken(uint32_t ulModem) const;

    std::map<std::string, uint32_t> m_byPath;
};
