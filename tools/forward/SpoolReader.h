#pragma once

#include "forward/SegmentLedger.h"
#include "forward/SegmentReader.h"

#include <optional>

/// Goes through a spool's segments in their order, from a place on, as far as they are written.
class CSpoolReader
{
public:
    explicit CSpoolReader(CSegmentLedger& ledger) : m_ledger(ledger) {}

    /// What comes out: a block of a segment, or a loss: the rest of the segment, from this offset on, is gone or
    /// damaged.
    struct ITEM
    {
        uint64_t ullSegment = 0;
        SEGMENT_BLOCK stBlock; // with a loss its offset alone
        bool bLoss = false;
        std::string strReason; // of a loss
    };
    /// Goes on from here; a segment that isn't known counts as the one after all before it.
    void Start(const SPOOL_PLACE& stPlace);
    /// False when nothing more is there for now. The block is valid until the next call.
    bool Next(ITEM& stItem);
    /// Behind what has come out; all before it has.
    SPOOL_PLACE Place() const { return m_stPlace; }

private:
    enum class STEP
    {
        ON,   // try again
        ITEM, // there it is
        WAIT, // nothing for now
    };
    bool IsPassed() const { return m_stPlace.ullSegment == 0 || m_stPlace.ullOffset == UINT64_MAX; }
    void Pass();
    bool GoOn();
    STEP Open(ITEM& stItem);
    STEP Read(ITEM& stItem);
    STEP Lose(ITEM& stItem, const std::string& strReason);

    CSegmentLedger& m_ledger;
    SPOOL_PLACE m_stPlace;
    std::optional<CSegmentReader> m_reader; // of the segment at that place
    bool m_bCompressed = false;             // what it reads
};
