#pragma once

#include "fleet/Hub.h"
#include "page/PageGuard.h"

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

enum PAGE_EXIT
{
    PAGE_DONE = 0,
    PAGE_USAGE = 1,
    PAGE_NO_SERVER = 2, // the address can't be listened on, or the page's files or certificates can't be read
};

struct PAGE_OPTIONS
{
    PAGE_ACCESS stAccess;
    std::string strTap = "/run/vex/tap";
    std::string strLog;                 // of the agent: a file, or what its name begins with; empty for none
    std::string strAgent = "127.0.0.1"; // for control
    bool bControl = false;
    unsigned int ulMemoryMiB = 64; // for packets
    std::string strWeb;            // folder of the page's files; empty: beside the program

    bool bFleet = false; // the benches of a lab instead of an agent
    HUB_OPTIONS stHub;   // where they are
};

/// Fills the options from the arguments, without the program's name. Nothing when all is well, else the status to end
/// with: help or what is wrong has been written then.
std::optional<PAGE_EXIT> ParsePageOptions(std::vector<std::string> args, PAGE_OPTIONS& stOptions, std::ostream& out,
                                          std::ostream& errors);
