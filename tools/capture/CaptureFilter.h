#pragma once

#include "capture/CaptureFormat.h"

#include <bitset>

/// Which records a capture keeps. A set without a member lets everything pass.
struct CAPTURE_FILTER
{
    std::bitset<MAXUENUM> ues;                    // by slot
    std::bitset<CHANNELNUM> channels;             // by enChannelType
    std::bitset<CAPTURE_KIND_NAMES.size()> kinds; // by TAP_KIND

    bool Passes(const TAP_RECORD& stRecord) const;
};
