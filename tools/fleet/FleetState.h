#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// One channel of a modem, as the bench sees it now.
struct FLEET_CHANNEL_STATE
{
    std::string strChannel;  // CAPTURE_CHANNEL_NAMES
    bool bPresent = false;   // its port is there
    uint64_t ullRecords = 0; // in the segment that is being written
    double dRecordRate = 0;  // records a second
    double dByteRate = 0;    // bytes a second, of the capture
};

struct FLEET_MODEM_STATE
{
    unsigned int ulUe = 0; // slot
    std::string strName;   // what the modem calls itself; empty while it isn't confirmed
    std::vector<FLEET_CHANNEL_STATE> vecChannels;
};

/// A bench as it puts itself into the bucket every few seconds, as JSON; whatever is missing there has the value here.
struct FLEET_BENCH_STATE
{
    std::string strBench;
    std::string strEpoch;
    std::string strVersion;  // of vex-forward
    uint64_t ullTime = 0;    // when it was made, ms since 1970
    uint64_t ullStarted = 0; // the forwarder's start, ms since 1970
    double dRecordRate = 0;  // records a second, of all channels
    double dByteRate = 0;    // bytes a second that are captured
    std::vector<FLEET_MODEM_STATE> vecModems;

    uint64_t ullLostRecords = 0;  // that vex-capture lost, in the segment that is being written
    uint64_t ullLostSegments = 0; // gone from the spool before they could be sent, since the forwarder's start
    uint64_t ullBacklogBytes = 0; // in the spool and not at the hub; compressed segments count as they lie there
    uint64_t ullBacklogMs = 0;    // age of the oldest of it
    uint64_t ullSentBytes = 0;    // since the forwarder's start
    uint64_t ullSentMessages = 0;
    uint64_t ullSpoolBytes = 0;
    uint64_t ullDiskFree = 0; // bytes, of the spool's file system
    uint64_t ullDiskSize = 0;
    bool bRequests = false; // whether it takes requests
};

std::string StateToJson(const FLEET_BENCH_STATE& stState);
/// None for what isn't the state of a bench.
std::optional<FLEET_BENCH_STATE> StateFromJson(const std::string& strJson);
