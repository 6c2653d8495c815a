#pragma once

#include "tap/TapEvents.h"
#include "tap/TapRecord.h"

#include <functional>
#include <map>
#include <optional>
#include <tuple>
#include <vector>

/// What a file needs at its start to be understood by itself: the configuration, where the log is, each channel's last
/// event, each UE's name and each client that is there. Kept up to date from the records as they pass.
class CCapturePicture
{
public:
    /// Forgets all: another run.
    void Clear();
    void Take(const TAP_RECORD& stRecord, ByteView bytes);
    /// Whether the record belongs to a picture that the agent made for another observer, and tells nothing new. To be
    /// asked for each record of the run, in order, before Take.
    bool IsForOthers(const TAP_RECORD& stRecord);

    /// Each record with its bytes, with TAP_REPLAYED; number and time are those of its day.
    void ForEach(const std::function<void(const TAP_RECORD&, ByteView)>& call) const;

private:
    struct ENTRY
    {
        TAP_RECORD stRecord;
        std::vector<unsigned char> vecBytes;
    };
    using KEY = std::tuple<uint32_t, uint8_t, uint8_t, uint32_t>; // TAP_EVENT, UE, channel, client of client events
    static void Keep(ENTRY& stEntry, const TAP_RECORD& stRecord, ByteView bytes);

    std::optional<ENTRY> m_configuration;
    std::map<KEY, ENTRY> m_mapEvents;
    unsigned int m_ulPictures = 0; // of the agent, that have begun
};
