#include "e2e/MockUsb.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sched.h>
#include <sys/mount.h>
#include <umockdev.h>

/// Read by the thread sanitizer. The testbed's thread shares what its libraries guard by means that the sanitizer can't
/// see, as they aren't built with it; not every stack of it reaches back to the testbed.
extern "C" const char* __tsan_default_suppressions();
const char* __tsan_default_suppressions()
{
    return "race:libumockdev.so\nrace:libglib-2.0.so\n";
}

namespace
{
constexpr const char* PRELOAD = "libumockdev-preload.so.0";
constexpr const char* CONTROLLER = "/devices/pci0000:00/0000:00:14.0/usb1/";
constexpr const char* UDEV_DATA = "/run/udev/data";
constexpr int TTY_MAJOR = 188; // of ttyUSB

void Require(bool bGood, const char* pszWhat)
{
    if (bGood)
        return;
    std::perror(pszWhat);
    std::abort();
}

/// udev's file for a terminal.
std::string UdevEntryOf(int nTty)
{
    return std::string(UDEV_DATA) + "/c" + std::to_string(TTY_MAJOR) + ":" + std::to_string(nTty);
}

/// What udev knows of devices is in /run, which the testbed doesn't cover.
void TakeRun()
{
    Require(unshare(CLONE_NEWNS) == 0, "unshare");
    Require(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "mount");
    Require(mount("none", "/run", "tmpfs", 0, nullptr) == 0, "mount /run");
    std::filesystem::create_directories(UDEV_DATA);
    std::ofstream("/run/udev/control") << ""; // says that udevd runs
}

void AppendToVariable(const char* pszName, const std::string& strMore)
{
    const char* const pszOld = std::getenv(pszName);
    (void)setenv(pszName, (pszOld != nullptr ? std::string(pszOld) + ":" + strMore : strMore).c_str(), 1);
}
} // namespace

CMockUsb::CMockUsb()
{
    TakeRun();
    m_pTestbed = umockdev_testbed_new();
    (void)setenv("LD_PRELOAD", PRELOAD, 1);
    AppendToVariable("ASAN_OPTIONS", "verify_asan_link_order=0"); // the preloaded library comes before the runtime
}

CMockUsb::~CMockUsb()
{
    (void)unsetenv("LD_PRELOAD");
    g_object_unref(m_pTestbed);
}

std::string CMockUsb::PathOf(const std::string& strPlace)
{
    return "pci-0000:00:14.0-usb-0:" + strPlace.substr(strPlace.find('-') + 1);
}

std::string CMockUsb::LinkOf(const std::string& strPlace, int nInterface)
{
    return "/dev/serial/by-path/" + PathOf(strPlace) + ":1." + std::to_string(nInterface) + "-port0";
}

std::string CMockUsb::InTestbed(const std::string& strPath) const
{
    g_autofree char* pszRoot = umockdev_testbed_get_root_dir(m_pTestbed);
    return pszRoot + strPath;
}

void CMockUsb::Add(const std::string& strDescription)
{
    g_autoptr(GError) pError = nullptr;
    if (umockdev_testbed_add_from_string(m_pTestbed, strDescription.c_str(), &pError) != 0)
        return;
    (void)std::fprintf(stderr, "%s\n", pError->message);
    std::abort();
}

void CMockUsb::AddModem(const std::string& strPlace, const std::string& strVendor, const std::string& strProduct)
{
    Add("P: " + (CONTROLLER + strPlace) + "\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\nA: idVendor=" + strVendor +
        "\\n\nA: idProduct=" + strProduct + "\\n\n\n");
}

void CMockUsb::Plug(const std::string& strPlace, int nInterface, int nTty)
{
    const std::string strName = "ttyUSB" + std::to_string(nTty);
    const std::string strNumber = std::to_string(nInterface);
    auto pPort = std::make_unique<PORT>();
    pPort->strInterface = CONTROLLER + strPlace + "/" + strPlace + ":1." + strNumber;
    pPort->strTty = pPort->strInterface + "/" + strName + "/tty/" + strName;
    pPort->strLink = LinkOf(strPlace, nInterface);
    std::filesystem::create_directories(InTestbed("/dev/serial/by-path"));
    std::filesystem::create_symlink(pPort->pty.Name(), InTestbed("/dev/" + strName));
    std::filesystem::create_symlink(pPort->pty.Name(), InTestbed(pPort->strLink));
    WriteUdevEntry(strPlace, nInterface, nTty);
    Add("P: " + pPort->strInterface + "\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_interface\nL: driver=../../../bus/option\n" +
        "A: bInterfaceNumber=0" + strNumber + "\\n\n\nP: " + pPort->strTty + "\nE: SUBSYSTEM=tty\nE: DEVNAME=/dev/" +
        strName + "\nE: DEVLINKS=" + pPort->strLink + "\nE: ID_PATH=" + PathOf(strPlace) + ":1." + strNumber +
        "\nE: MAJOR=" + std::to_string(TTY_MAJOR) + "\nE: MINOR=" + std::to_string(nTty) +
        "\nE: USEC_INITIALIZED=" + std::to_string(m_nPlugs) + "\n\n");
    m_ports[nTty] = std::move(pPort);
}

/// What udevd keeps of the port, for programs that start later.
void CMockUsb::WriteUdevEntry(const std::string& strPlace, int nInterface, int nTty)
{
    std::ofstream(UdevEntryOf(nTty)) << "S:" << LinkOf(strPlace, nInterface).substr(sizeof("/dev/") - 1)
                                     << "\nI:" << ++m_nPlugs << "\nE:ID_PATH=" << PathOf(strPlace) << ":1."
                                     << nInterface << "\n";
}

void CMockUsb::Unplug(int nTty)
{
    const auto port = m_ports.extract(nTty);
    PORT& stPort = *port.mapped();
    const std::string strName = "ttyUSB" + std::to_string(nTty);
    std::filesystem::remove(InTestbed("/dev/" + strName));
    std::filesystem::remove(InTestbed(stPort.strLink));
    stPort.pty.Unplug();
    umockdev_testbed_uevent(m_pTestbed, ("/sys" + stPort.strTty).c_str(), "remove");
    umockdev_testbed_remove_device(m_pTestbed, ("/sys" + stPort.strInterface).c_str());
    std::filesystem::remove(InTestbed("/sys/class/tty/" + strName)); // which the testbed leaves
    ForgetUdevEntry(nTty);
}

void CMockUsb::ForgetUdevEntry(int nTty)
{
    std::filesystem::remove(UdevEntryOf(nTty));
}
