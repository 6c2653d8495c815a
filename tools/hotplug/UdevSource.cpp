#include "hotplug/UdevSource.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <libudev.h>
#include <optional>
#include <string_view>

namespace
{
constexpr const char* SUBSYSTEM = "tty";
constexpr std::string_view BY_PATH = "/dev/serial/by-path/";
constexpr int EVENT_BUFFER = 1024 * 1024; // bytes; a hub full of modems has some hundred events at once

struct DEVICE_UNREF
{
    void operator()(udev_device* p) const { udev_device_unref(p); }
};
using Device = std::unique_ptr<udev_device, DEVICE_UNREF>;

struct ENUMERATE_UNREF
{
    void operator()(udev_enumerate* p) const { udev_enumerate_unref(p); }
};

struct QUEUE_UNREF
{
    void operator()(udev_queue* p) const { udev_queue_unref(p); }
};

std::string Text(const char* pszText)
{
    return pszText != nullptr ? pszText : "";
}

/// A hexadecimal attribute; none when it is missing or something else.
template <class T> std::optional<T> HexAttribute(udev_device* pDevice, const char* pszName)
{
    const std::string strText = Text(udev_device_get_sysattr_value(pDevice, pszName));
    T value{};
    const auto stResult = std::from_chars(strText.data(), strText.data() + strText.size(), value, 16);
    return stResult.ec == std::errc() ? std::optional(value) : std::nullopt;
}

/// The first link by path, else the node. A device has two such links where its USB revision is part of one.
std::string StableName(udev_device* pTty)
{
    std::string strName;
    udev_list_entry* pLink = nullptr;
    udev_list_entry_foreach(pLink, udev_device_get_devlinks_list_entry(pTty))
    {
        const std::string strLink = Text(udev_list_entry_get_name(pLink));
        if (strLink.starts_with(BY_PATH) && (strName.empty() || strLink < strName))
            strName = strLink;
    }
    return strName.empty() ? Text(udev_device_get_devnode(pTty)) : strName;
}

/// The port's path without its interface: "pci-0000:00:14.0-usb-0:4" of "pci-0000:00:14.0-usb-0:4:1.2". It doesn't hold
/// the number of the bus, which may be another one after the next start. Without it the place in sysfs.
std::string ModemPath(udev_device* pTty, udev_device* pInterface, udev_device* pUsb)
{
    const std::string strPath = Text(udev_device_get_property_value(pTty, "ID_PATH"));
    const std::string strInterface = Text(udev_device_get_sysname(pInterface)); // 1-4:1.2
    const std::string strEnd = strInterface.substr(std::min(strInterface.find(':'), strInterface.size()));
    if (strPath.size() > strEnd.size() && !strEnd.empty() && strPath.ends_with(strEnd))
        return strPath.substr(0, strPath.size() - strEnd.size());
    return Text(udev_device_get_devpath(pUsb));
}

/// None for a terminal that is no port of a USB device.
std::optional<USB_PORT> PortOf(udev_device* pTty)
{
    udev_device* const pInterface = udev_device_get_parent_with_subsystem_devtype(pTty, "usb", "usb_interface");
    udev_device* const pUsb = udev_device_get_parent_with_subsystem_devtype(pTty, "usb", "usb_device");
    if (pInterface == nullptr || pUsb == nullptr || udev_device_get_devnode(pTty) == nullptr)
        return std::nullopt;
    const auto vendor = HexAttribute<uint16_t>(pUsb, "idVendor");
    const auto product = HexAttribute<uint16_t>(pUsb, "idProduct");
    const auto interface = HexAttribute<uint8_t>(pInterface, "bInterfaceNumber");
    if (!vendor || !product || !interface)
        return std::nullopt;
    USB_PORT stPort;
    stPort.strSysPath = Text(udev_device_get_syspath(pTty));
    stPort.strPlug = Text(udev_device_get_property_value(pTty, "USEC_INITIALIZED"));
    stPort.strNode = Text(udev_device_get_devnode(pTty));
    stPort.strName = StableName(pTty);
    stPort.strModem = ModemPath(pTty, pInterface, pUsb);
    stPort.usVendor = *vendor;
    stPort.usProduct = *product;
    stPort.ucInterface = *interface;
    stPort.strDriver = Text(udev_device_get_driver(pInterface));
    return stPort;
}

/// Without udevd, as in a container, no device is ever marked as ready.
bool IsUdevRunning(udev* pUdev)
{
    const std::unique_ptr<udev_queue, QUEUE_UNREF> pQueue(udev_queue_new(pUdev));
    return pQueue && udev_queue_get_udev_is_active(pQueue.get()) > 0;
}
} // namespace

void CUdevSource::UNREF::operator()(udev* p) const
{
    udev_unref(p);
}

void CUdevSource::UNREF::operator()(udev_monitor* p) const
{
    udev_monitor_unref(p);
}

CUdevSource::CUdevSource(std::unique_ptr<udev, UNREF> pUdev, std::unique_ptr<udev_monitor, UNREF> pMonitor)
    : m_pUdev(std::move(pUdev)), m_pMonitor(std::move(pMonitor))
{
}

std::unique_ptr<CUdevSource> CUdevSource::Open(std::string& strError)
{
    std::unique_ptr<udev, UNREF> pUdev(udev_new());
    std::unique_ptr<udev_monitor, UNREF> pMonitor(pUdev ? udev_monitor_new_from_netlink(pUdev.get(), "udev") : nullptr);
    if (!pMonitor || udev_monitor_filter_add_match_subsystem_devtype(pMonitor.get(), SUBSYSTEM, nullptr) < 0 ||
        udev_monitor_enable_receiving(pMonitor.get()) < 0) {
        strError = std::string("udev can't be watched: ") + std::strerror(errno);
        return nullptr;
    }
    // Without the right to a larger buffer the usual one stays; what it loses is noticed.
    (void)udev_monitor_set_receive_buffer_size(pMonitor.get(), EVENT_BUFFER);
    return std::unique_ptr<CUdevSource>(new CUdevSource(std::move(pUdev), std::move(pMonitor)));
}

int CUdevSource::Fd() const
{
    return udev_monitor_get_fd(m_pMonitor.get());
}

std::vector<USB_PORT> CUdevSource::List()
{
    std::vector<USB_PORT> ports;
    const std::unique_ptr<udev_enumerate, ENUMERATE_UNREF> pEnumerate(udev_enumerate_new(m_pUdev.get()));
    if (!pEnumerate || udev_enumerate_add_match_subsystem(pEnumerate.get(), SUBSYSTEM) < 0 ||
        udev_enumerate_scan_devices(pEnumerate.get()) < 0)
        return ports;
    const bool bUdevRuns = IsUdevRunning(m_pUdev.get());
    udev_list_entry* pEntry = nullptr;
    udev_list_entry_foreach(pEntry, udev_enumerate_get_list_entry(pEnumerate.get()))
    {
        const Device pTty(udev_device_new_from_syspath(m_pUdev.get(), udev_list_entry_get_name(pEntry)));
        const bool bReady = pTty && (!bUdevRuns || udev_device_get_is_initialized(pTty.get()) > 0);
        if (auto port = bReady ? PortOf(pTty.get()) : std::nullopt) // an event comes of one that isn't ready
            ports.push_back(std::move(*port));
    }
    return ports;
}

bool CUdevSource::Read(std::vector<PORT_EVENT>& events)
{
    for (;;) {
        errno = 0;
        const Device pTty(udev_monitor_receive_device(m_pMonitor.get()));
        if (!pTty)
            return errno != ENOBUFS;
        if (Text(udev_device_get_action(pTty.get())) == "remove") {
            USB_PORT stGone;
            stGone.strSysPath = Text(udev_device_get_syspath(pTty.get()));
            events.push_back({false, std::move(stGone)});
        } else if (auto port = PortOf(pTty.get())) {
            events.push_back({true, std::move(*port)});
        }
    }
}
