#pragma once

#include "client/Reports.h"
#include "client/Session.h"

#include <optional>
#include <string>
#include <vector>

// The commands behind the command line. Each connects, does its work, prints, and answers the exit status.

/// When a live command ends by itself; without either it runs until the user stops it.
struct LIMITS
{
    std::optional<uint64_t> count; // packets
    std::optional<double> seconds;
};

// LTE diag channel and the agent's own commands.
EXIT_CODE RunChannels(const CONTEXT& stContext);
/// Binds and shows the agent's version; the binding holds for as many seconds as given.
EXIT_CODE RunBind(const CONTEXT& stContext, unsigned int ulPort, double dHold);
EXIT_CODE RunUnbind(const CONTEXT& stContext);
EXIT_CODE RunVersion(const CONTEXT& stContext);
EXIT_CODE RunTimestamp(const CONTEXT& stContext);

struct REQUEST_ARGS
{
    std::string strId;
    std::vector<std::string> hex;
    std::string strType; // empty: by the class of the id
};
EXIT_CODE RunRequest(const CONTEXT& stContext, const REQUEST_ARGS& stArgs);
/// Words: air, event, user or user2, each followed by pairs of message id and value.
EXIT_CODE RunSwitch(const CONTEXT& stContext, const std::vector<std::string>& words);
EXIT_CODE RunNvRead(const CONTEXT& stContext, const std::string& strId);

struct NV_WRITE_ARGS
{
    std::string strId;
    std::string strOffset;
    unsigned int ulSize = 0; // bytes of the field
    std::string strValue;
    std::vector<unsigned int> bits; // first and last bit, or empty: whole bytes
};
EXIT_CODE RunNvWrite(const CONTEXT& stContext, const NV_WRITE_ARGS& stArgs);

// AT channel.
EXIT_CODE RunAt(const CONTEXT& stContext, const std::string& strText);
/// A pseudo terminal that stands for the modem's AT port, with a link to it, until the user stops.
EXIT_CODE RunAtPty(const CONTEXT& stContext, const std::string& strLink);

// LTE data channel.
struct WATCH_ARGS
{
    LIMITS stLimits;
    bool bHex = false;   // dump payloads
    bool bQuiet = false; // rates only
};
EXIT_CODE RunWatch(const CONTEXT& stContext, const WATCH_ARGS& stArgs);

// GU channels: reports and statistics.
struct GU_ARGS
{
    std::vector<std::string> names; // of rows, or request ids
    std::optional<unsigned int> periodMs;
    unsigned int ulModem = 0;
    bool bStop = false; // only stop what runs
    bool bKeep = false; // don't stop at the end
    bool bList = false;
    std::string strType = "trans"; // of an id that is in no row
    std::vector<std::string> hex;  // its parameters
    LIMITS stLimits;
};
EXIT_CODE RunGu(const CONTEXT& stContext, const GU_ARGS& stArgs, std::span<const REPORT_ROW> rows);

// A capture's clients once more.
struct REPLAY_ARGS
{
    std::string strFile;
    std::string strSpeed = "1"; // or "max"
    bool bNow = false;          // the first act comes at once, not at its time
};
EXIT_CODE RunReplay(const CONTEXT& stContext, const REPLAY_ARGS& stArgs);

// Status datagrams.
struct MONITOR_ARGS
{
    std::optional<double> seconds;
    bool bTerminal = false; // draw a live table
};
EXIT_CODE RunMonitor(const CONTEXT& stContext, const MONITOR_ARGS& stArgs);

/// The whole program.
EXIT_CODE RunClient(std::vector<std::string> args, std::ostream& out, std::ostream& errors, bool bTerminal);
