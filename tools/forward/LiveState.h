#pragma once

#include "fleet/FleetState.h"
#include "forward/SegmentLedger.h"
#include "forward/SegmentReader.h"

#include <array>
#include <chrono>
#include <map>

/// What goes on at the bench now, however much waits to be sent: looks at the segment that is being written, which
/// begins with a picture of channels and modems.
class CLiveState
{
public:
    using TIME = std::chrono::steady_clock::time_point;

    explicit CLiveState(const CSegmentLedger& ledger) : m_ledger(ledger) {}

    /// Reads what was written since. Rates are those since the last call.
    void Look(TIME now);
    /// Modems, rates and losses.
    void Fill(FLEET_BENCH_STATE& stState) const;

private:
    struct CHANNEL
    {
        bool bPresent = false;
        uint64_t ullRecords = 0;
        uint64_t ullNewRecords = 0; // since the last look
        uint64_t ullNewBytes = 0;
    };
    struct MODEM
    {
        std::string strName;
        std::map<uint8_t, CHANNEL> mapChannels; // by enChannelType
    };
    void Begin(uint64_t ullSegment);
    void Take(const SEGMENT_BLOCK& stBlock);
    void TakeEvent(const CAPTURED_RECORD& stRecord);

    const CSegmentLedger& m_ledger;
    uint64_t m_ullSegment = 0; // that is read
    CSegmentReader m_reader;
    bool m_bOpen = false;
    std::map<uint8_t, MODEM> m_mapModems; // by slot
    uint64_t m_ullLost = 0;
    uint64_t m_ullNewRecords = 0;
    uint64_t m_ullNewBytes = 0;
    double m_dSeconds = 0; // between the last two looks
    TIME m_looked{};
};
