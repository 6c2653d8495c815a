#pragma once

#include "capture/CaptureFilter.h"
#include "capture/CaptureLimits.h"

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

enum CAPTURE_EXIT
{
    CAPTURE_DONE = 0,
    CAPTURE_USAGE = 1,
    CAPTURE_NO_FILE = 2, // a file can't be written: at the start, or still not at the end
};

/// What Wireshark asks of a program that captures for it.
enum class EXTCAP
{
    NO,
    INTERFACES,
    DLTS,
    CONFIG,
    CAPTURE,
};

struct CAPTURE_OPTIONS
{
    std::string strTap = "/run/vex/tap";
    std::string strFile;  // empty for none
    std::string strSpool; // a folder; empty for none
    bool bLive = false;   // to standard output, or to strFifo
    std::string strFifo;
    std::string strBench; // empty: the name of the agent's machine
    CAPTURE_FILTER stFilter;
    ROTATION stRotation;
    KEEP stKeep;
    bool bCompress = false;
    std::optional<double> seconds;
    std::optional<uint64_t> count; // records, without those of a picture
    EXTCAP enExtcap = EXTCAP::NO;
    std::string strExtcapInterface;
};

/// Fills the options from the arguments, without the program's name. Nothing when all is well, else the status to end
/// with: help or what is wrong has been written then.
std::optional<CAPTURE_EXIT> ParseCaptureOptions(std::vector<std::string> args, CAPTURE_OPTIONS& stOptions,
                                                std::ostream& out, std::ostream& errors);
