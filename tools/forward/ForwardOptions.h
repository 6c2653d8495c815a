#pragma once

#include "fleet/Hub.h"

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

enum FORWARD_EXIT
{
    FORWARD_DONE = 0,
    FORWARD_USAGE = 1,
    FORWARD_SYSTEM = 2, // the spool or a certificate can't be used
    FORWARD_CHECK = 3,  // --check has found something wrong
};

struct FORWARD_OPTIONS
{
    std::string strSpool;
    std::string strBench; // filled with the host's name
    HUB_OPTIONS stHub;
    uint64_t ullMaxRate = 0; // bytes a second, 0 for no limit
    double dStateEvery = 5;  // seconds
    bool bDelete = false;
    bool bRequests = false;
    std::string strAgentHost = "127.0.0.1";
    bool bCheck = false;
};

/// Fills the options from the arguments, without the program's name. Nothing when all is well, else the status to end
/// with: help or what is wrong has been written then.
std::optional<FORWARD_EXIT> ParseForwardOptions(std::vector<std::string> args, FORWARD_OPTIONS& stOptions,
                                                std::ostream& out, std::ostream& errors);
