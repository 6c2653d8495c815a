#pragma once

#include "hotplug/UsbPort.h"

#include <vector>

struct PORT_EVENT
{
    bool bArrives = false; // or something about it has changed
    USB_PORT stPort;       // of one that left strSysPath alone
};

/// The system's serial ports of USB devices.
class IPortSource
{
public:
    virtual ~IPortSource() = default;

    /// Readable when there are events.
    virtual int Fd() const = 0;
    /// All ports that are there now, in any order.
    virtual std::vector<USB_PORT> List() = 0;
    /// Appends what has happened since the last call, without waiting. False when some of it was lost: List tells then.
    virtual bool Read(std::vector<PORT_EVENT>& events) = 0;
};
