#pragma once

#include "common/Bytes.h"
#include "common/UniqueFd.h"
#include "support/TestBytes.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

// What the end-to-end benchmark measures of one relay: bytes go in at pseudo terminals and come out of TCP
// connections.

/// A pseudo terminal in raw mode: the benchmark plays the modem at the master.
struct RELAY_PTY
{
    CUniqueFd master; // non-blocking
    CUniqueFd slave;  // kept open, so that the pair outlives the relay's opening and closing
    std::string strName;
};
/// Aborts when the system has no terminal left.
RELAY_PTY OpenPty();

/// One way through a relay.
struct RELAY_LANE
{
    RELAY_PTY pty;
    CUniqueFd sink; // non-blocking
};

/// A relay under test, running.
struct RELAY
{
    std::string strName;
    std::vector<pid_t> pids;
    std::vector<RELAY_LANE> lanes;
    std::function<size_t(size_t)> frameOut;   // bytes that come out for a frame with this payload; null: its own
    std::vector<std::shared_ptr<void>> owned; // what keeps it running
};

/// The frames that go in, again and again: all of one payload size.
struct RELAY_FRAMES
{
    explicit RELAY_FRAMES(size_t szPayload);

    size_t szPayload;
    Bytes stream;
    std::vector<size_t> ends; // of the frames in the stream
};

struct RELAY_RATE
{
    double dFramesPerSecond = 0;
    double dCpuPerFrame = 0; // microseconds of all threads of the relay
    double dLost = 0;        // share of the bytes that never came out
};
/// Sends as fast as the terminals take for the time, until all has come out.
RELAY_RATE MeasureRate(RELAY& relay, size_t szLanes, const RELAY_FRAMES& frames, std::chrono::milliseconds time);

struct RELAY_LOAD
{
    double dCores = 0;   // processors that the relay keeps busy
    double dLost = 0;    // share of the bytes that never came out
    size_t szFrames = 0; // sent
};
/// Sends as many bytes a second into each lane, in small portions; none, with 0, leaves the relay idle.
RELAY_LOAD MeasureLoad(RELAY& relay, const RELAY_FRAMES& frames, size_t szBytesPerSecond,
                       std::chrono::milliseconds time);

/// Microseconds from the write of a frame to its last byte, sorted. One frame a lane is under way at a time, with a
/// pause behind it.
std::vector<double> MeasureLatency(RELAY& relay, size_t szLanes, const RELAY_FRAMES& frames,
                                   std::chrono::milliseconds time);

/// The value below which this share of the sorted values lies.
double Percentile(const std::vector<double>& sorted, double dShare);
/// Lets a sink hold so much that a moment without a processor for the benchmark isn't taken for a slow client.
void WidenSink(const CUniqueFd& sink);
/// CPU time so far of all processes of the relay, in microseconds.
double CpuMicros(const RELAY& relay);
/// Resident memory of all processes of the relay.
size_t ResidentKiB(const RELAY& relay);
/// Reads and drops all that arrives until nothing comes for the time.
void DrainSinks(RELAY& relay, std::chrono::milliseconds quiet);
