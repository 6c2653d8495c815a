#pragma once

#include <array>
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

/// Channels whose port is there.
size_t PresentChannels(const FLEET_MODEM_STATE& stModem);
/// Modems with such a channel.
size_t PresentModems(const FLEET_BENCH_STATE& stState);

/// What the age of its newest state says of a bench.
enum class BENCH_PRESENCE
{
    LIVE,
    LATE,
    AWAY,
};
inline constexpr std::array<const char*, 3> BENCH_PRESENCE_NAMES = {"live", "late", "away"}; // by BENCH_PRESENCE
constexpr uint64_t BENCH_LIVE_MS = 15'000; // younger: three states of a forwarder as it is set by default
constexpr uint64_t BENCH_LATE_MS = 60'000; // younger

/// Of a state that was made at ullSeen, at ullNow, both in ms. One that is to come is live.
BENCH_PRESENCE PresenceOf(uint64_t ullSeen, uint64_t ullNow);

// What a state may hold; more of it is left out.
constexpr size_t STATE_TEXT_MOST = 256;  // bytes of a name
constexpr double STATE_RATE_MOST = 1e15; // of a rate, which is 0 at least

std::string StateToJson(const FLEET_BENCH_STATE& stState);
/// None for what isn't the state of a bench. The text isn't trusted: a state has no more modems and channels than a
/// bench can have.
std::optional<FLEET_BENCH_STATE> StateFromJson(const std::string& strJson);
