#include "hotplug/UsbPort.h"

#include <array>
#include <cstdio>

std::string UsbIdOf(const USB_PORT& stPort)
{
    std::array<char, sizeof("1234:abcd")> acText{};
    (void)snprintf(acText.data(), acText.size(), "%04x:%04x", stPort.usVendor, stPort.usProduct); // always fits
    return acText.data();
}

std::string InterfaceOf(const USB_PORT& stPort)
{
    std::array<char, sizeof("01")> acText{};
    (void)snprintf(acText.data(), acText.size(), "%02x", stPort.ucInterface); // always fits
    return acText.data();
}
