#pragma once

#include "hotplug/Rules.h"

#include <gtest/gtest.h>

/// A port of a modem 1234:5678 at a path, /dev/ttyUSB<nTty>.
inline USB_PORT UsbPort(const std::string& strModem, uint8_t ucInterface, int nTty)
{
    USB_PORT stPort;
    const std::string strName = "ttyUSB" + std::to_string(nTty);
    stPort.strSysPath = "/sys/" + strModem + "/" + std::to_string(ucInterface) + "/" + strName;
    stPort.strNode = "/dev/" + strName;
    stPort.strName = "/dev/serial/by-path/" + strModem + ":" + std::to_string(ucInterface);
    stPort.strModem = strModem;
    stPort.usVendor = 0x1234;
    stPort.usProduct = 0x5678;
    stPort.ucInterface = ucInterface;
    stPort.strDriver = "option";
    return stPort;
}

/// Rules without a fault; the test fails otherwise.
inline CRules GoodRules(const std::string& strText)
{
    std::vector<std::string> errors;
    CRules rules = CRules::Parse(strText, "test.conf", errors);
    EXPECT_EQ(errors, std::vector<std::string>());
    return rules;
}

/// The interfaces 0 to 3 have the four roles; 4 is a second diag port.
inline CRules FourRoles()
{
    return GoodRules("1234:5678 if=00 role=diag\n1234:5678 if=01 role=data\n1234:5678 if=02 role=gu\n"
                     "1234:5678 if=03 role=at\n1234:5678 if=04 role=diag\n");
}
