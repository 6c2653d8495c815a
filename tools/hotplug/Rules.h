#pragma once

#include "common/Types.h"
#include "hotplug/UsbPort.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Names of the roles in rules and tables, by enSerialType.
inline constexpr std::array<const char*, SERIALNUM> ROLE_NAMES = {"diag", "data", "gu", "at"};

/// Which ports have which role. What is empty fits every port.
struct HOTPLUG_RULE
{
    uint16_t usVendor = 0;
    std::optional<uint16_t> usProduct;
    std::optional<uint8_t> ucInterface;
    std::string strDriver;
    enSerialType enRole = SERIAL_TYPE_DIAG;
    size_t szLine = 0; // of its file, from 1

    bool Fits(const USB_PORT& stPort) const;
};

/// The rules of a file, one a line:
///
///     VENDOR:PRODUCT [if=NN] [driver=NAME] role=diag|data|gu|at    # comment
///
/// Numbers are hexadecimal; * stands for any product. At least one of if and driver is there.
class CRules
{
public:
    /// Reads the text of a file. Each fault is one line, "FILE:LINE: what is wrong", in errors.
    static CRules Parse(std::string_view text, const std::string& strFile, std::vector<std::string>& errors);

    /// The first rule that fits; null for none. Lives as long as this object.
    const HOTPLUG_RULE* Find(const USB_PORT& stPort) const;
    size_t Count() const { return m_rules.size(); }

private:
    std::vector<HOTPLUG_RULE> m_rules;
};
