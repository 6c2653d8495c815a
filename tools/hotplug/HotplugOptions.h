#pragma once

#include <iosfwd>
#include <netinet/in.h>
#include <optional>
#include <string>
#include <vector>

enum HOTPLUG_EXIT
{
    HOTPLUG_DONE = 0,
    HOTPLUG_USAGE = 1,
    HOTPLUG_CONFIG = 2,   // the rules are wrong or can't be read
    HOTPLUG_NO_AGENT = 3, // with --once
    HOTPLUG_SYSTEM = 4,   // udev or the state file can't be used
};

struct HOTPLUG_OPTIONS
{
    std::string strConfig = "/etc/vex/hotplug.conf";
    std::string strState = "/var/lib/vex/hotplug.state";
    std::string strAgent; // as given; filled with the default
    sockaddr_in stAgent{};
    bool bList = false;
    bool bJson = false;
    bool bOnce = false;
    bool bDryRun = false;
    bool bVerbose = false;
    std::string strForget; // path of a modem; empty for none
};

/// Fills the options from the arguments, without the program's name. Nothing when all is well, else the status to end
/// with: help or what is wrong has been written then.
std::optional<HOTPLUG_EXIT> ParseHotplugOptions(std::vector<std::string> args, HOTPLUG_OPTIONS& stOptions,
                                                std::ostream& out, std::ostream& errors);
