#pragma once

#include "support/PtyPair.h"
#include "support/VexProcess.h"

#include <map>
#include <memory>
#include <string>

typedef struct _UMockdevTestbed UMockdevTestbed;

/// USB modems that come and go for every program that is started after it: their sysfs and udev events are a
/// testbed's, their ports are pseudo terminals. Takes /run for this process and its children. One in a process.
class CMockUsb
{
public:
    CMockUsb();
    ~CMockUsb();
    CMockUsb(const CMockUsb&) = delete;
    CMockUsb& operator=(const CMockUsb&) = delete;

    /// A USB device at a place such as "1-4". It has no ports yet.
    void AddModem(const std::string& strPlace, const std::string& strVendor, const std::string& strProduct);
    /// The modem's interface gets its port, /dev/ttyUSB<nTty>, and udev tells of it.
    void Plug(const std::string& strPlace, int nInterface, int nTty);
    /// The port goes, with a hang-up for whoever has it open.
    void Unplug(int nTty);
    /// As if udevd had yet to look at a port that is there.
    static void ForgetUdevEntry(int nTty);

    /// The link by path of a port: /dev/serial/by-path/...
    static std::string LinkOf(const std::string& strPlace, int nInterface);
    /// What all ports of a modem have in common.
    static std::string PathOf(const std::string& strPlace);

private:
    struct PORT
    {
        std::string strInterface; // folders in sysfs
        std::string strTty;
        std::string strLink;
        CPtyPair pty;
    };

    std::string InTestbed(const std::string& strPath) const;
    void Add(const std::string& strDescription);
    void WriteUdevEntry(const std::string& strPlace, int nInterface, int nTty);

    UMockdevTestbed* m_pTestbed = nullptr;
    std::map<int, std::unique_ptr<PORT>> m_ports; // by number of the terminal
    int m_nPlugs = 0;
};
