#pragma once

#include <cstdint>
#include <string>

/// A serial port of a USB device, as the system shows it.
struct USB_PORT
{
    std::string strSysPath; // names it while it is there
    std::string strPlug;    // another one when the same device comes anew; may be empty
    std::string strNode;    // /dev/ttyUSB0
    std::string strName;    // what the agent opens: the link by path if there is one, else the node
    std::string strModem;   // path of the USB device, the same for all its ports
    uint16_t usVendor = 0;
    uint16_t usProduct = 0;
    uint8_t ucInterface = 0;
    std::string strDriver; // of the interface; may be empty

    bool operator==(const USB_PORT&) const = default;
};

/// "1234:abcd"
std::string UsbIdOf(const USB_PORT& stPort);
/// Two hexadecimal digits.
std::string InterfaceOf(const USB_PORT& stPort);
