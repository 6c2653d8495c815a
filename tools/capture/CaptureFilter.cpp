#include "capture/CaptureFilter.h"

namespace
{
template <size_t SIZE> bool Allows(const std::bitset<SIZE>& set, size_t szIndex)
{
    return set.none() || (szIndex < SIZE && set[szIndex]);
}
} // namespace

/// What a dissector needs to understand the rest passes: the configuration always, events unless the kinds leave them
/// out. A status datagram is of no UE and channel, so those sets leave it out unless the kinds name it.
bool CAPTURE_FILTER::Passes(const TAP_RECORD& stRecord) const
{
    if (stRecord.enKind == TAP_KIND::CONFIGURATION)
        return true;
    if (!Allows(kinds, static_cast<size_t>(stRecord.enKind)))
        return false;
    if (stRecord.enKind == TAP_KIND::PORT_EVENT || (stRecord.enKind == TAP_KIND::STATUS && kinds.any()))
        return true;
    return Allows(ues, stRecord.ucUe) && Allows(channels, stRecord.ucChannel);
}
