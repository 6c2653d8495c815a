#pragma once

#include "common/Types.h"

#include <cstdint>
#include <string>
#include <vector>

using REPLAY_PACKET = std::vector<unsigned char>; // of the agent, without lead bytes

/// Something that was otherwise than recorded.
struct REPLAY_DIFFERENCE
{
    enum class KIND
    {
        CHANGED,
        MISSING, // only expected
        EXTRA,   // only got
    };
    KIND enKind;
    size_t szExpected; // its place among the packets that were recorded
    size_t szGot;      // and among those that came
    size_t szByte = 0; // the first one that differs
};

/// Compares the packets of a connection with the recorded ones, in order. Aside are left: the time stamp, on the GU
/// data channel the serial number, and in the channel table the names of the devices. More packets behind the last
/// recorded one are no difference: the capture has ended before them.
std::vector<REPLAY_DIFFERENCE> ComparePackets(enChannelType enChannel, const std::vector<REPLAY_PACKET>& expected,
                                              const std::vector<REPLAY_PACKET>& got);

/// A line what it is, and the bytes of both.
std::string DifferenceText(const REPLAY_DIFFERENCE& stDifference, const std::vector<REPLAY_PACKET>& expected,
                           const std::vector<REPLAY_PACKET>& got);
