#pragma once

#include "hotplug/PortSource.h"

#include <memory>
#include <string>

struct udev;
struct udev_device;
struct udev_monitor;

/// The ports as udev knows them. Events are kept from the moment of Open on, so none is missed before the first List.
class CUdevSource : public IPortSource
{
public:
    /// Null, with the reason, when udev can't be reached.
    static std::unique_ptr<CUdevSource> Open(std::string& strError);

    int Fd() const override;
    std::vector<USB_PORT> List() override;
    bool Read(std::vector<PORT_EVENT>& events) override;

private:
    struct UNREF
    {
        void operator()(udev* p) const;
        void operator()(udev_monitor* p) const;
    };

    CUdevSource(std::unique_ptr<udev, UNREF> pUdev, std::unique_ptr<udev_monitor, UNREF> pMonitor);

    std::unique_ptr<udev, UNREF> m_pUdev;
    std::unique_ptr<udev_monitor, UNREF> m_pMonitor;
};
