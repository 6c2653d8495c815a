#include "forward/SpoolReader.h"

#include <algorithm>
#include <cerrno>

void CSpoolReader::Start(const SPOOL_PLACE& stPlace)
{
    m_stPlace = stPlace;
    m_reader.reset();
}

/// To the next segment that is known; false when there is none yet.
bool CSpoolReader::GoOn()
{
    const auto next = m_ledger.Segments().upper_bound(m_stPlace.ullSegment);
    if (next == m_ledger.Segments().end())
        return false;
    Start({next->first, 0});
    return true;
}

/// Done with the segment at hand.
void CSpoolReader::Pass()
{
    m_reader.reset();
    m_stPlace.ullOffset = UINT64_MAX;
}

CSpoolReader::STEP CSpoolReader::Lose(ITEM& stItem, const std::string& strReason)
{
    const CSegmentLedger::SEGMENT* const pSegment = m_ledger.Find(m_stPlace.ullSegment);
    const uint64_t ullNoted = pSegment == nullptr ? 0 : pSegment->ullDone;
    stItem = {m_stPlace.ullSegment, {}, true, strReason};
    stItem.stBlock.ullOffset = std::max(m_stPlace.ullOffset, ullNoted);
    Pass();
    return STEP::ITEM;
}

bool CSpoolReader::Next(ITEM& stItem)
{
    for (;;) {
        if (IsPassed() && !GoOn())
            return false;
        const STEP enStep = m_reader ? Read(stItem) : Open(stItem);
        if (enStep != STEP::ON)
            return enStep == STEP::ITEM;
    }
}

/// Opens the segment at hand.
CSpoolReader::STEP CSpoolReader::Open(ITEM& stItem)
{
    const CSegmentLedger::SEGMENT* pSegment = m_ledger.Find(m_stPlace.ullSegment);
    if (pSegment != nullptr && !pSegment->strPath.empty()) {
        std::string strError;
        m_reader.emplace();
        m_bCompressed = pSegment->bCompressed;
        if (m_reader->Open(pSegment->strPath, strError))
            return STEP::ON;
        m_reader.reset();
        if (errno != ENOENT)
            return STEP::WAIT; // descriptors or rights may come back
    }
    m_ledger.Look(); // it may have been compressed right now
    pSegment = m_ledger.Find(m_stPlace.ullSegment);
    if (pSegment != nullptr && !pSegment->strPath.empty())
        return STEP::ON;
    if (pSegment != nullptr && !pSegment->bDone)
        return Lose(stItem, "gone before it was sent");
    Pass();
    return STEP::ON;
}

CSpoolReader::STEP CSpoolReader::Read(ITEM& stItem)
{
    const bool bFinal = m_ledger.Last() > m_stPlace.ullSegment; // before the read: nobody writes there any more
    stItem = {m_stPlace.ullSegment, {}, false, ""};
    const CSegmentReader::RESULT enResult = m_reader->Next(stItem.stBlock);
    if (enResult == CSegmentReader::RESULT::BLOCK) {
        if (m_reader->Offset() <= m_stPlace.ullOffset)
            return STEP::ON; // from before the place
        m_stPlace.ullOffset = m_reader->Offset();
        return STEP::ITEM;
    }
    if (!bFinal)
        return STEP::WAIT;
    // What a capture that was killed left behind the last block of a plain file is cut off at its next start.
    if (enResult == CSegmentReader::RESULT::BAD || (m_bCompressed && m_reader->IsCut()))
        return Lose(stItem, "damaged");
    Pass();
    return STEP::ON;
}
