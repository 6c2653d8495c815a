#pragma once

#include "fleet/FleetFormat.h"
#include "forward/SegmentLedger.h"

#include <chrono>
#include <deque>
#include <optional>
#include <vector>

/// A message in the making: bytes of one segment and lane.
struct DRAFT
{
    using TIME = std::chrono::steady_clock::time_point;

    FLEET_KIND enKind = FLEET_KIND::BLOCKS;
    uint64_t ullSegment = 0;
    std::vector<FLEET_RUN> vecRuns;
    std::vector<unsigned char> vecBytes;
    TIME begun{};         // when its first block came
    uint64_t ullTime = 0; // of its first packet, CLOCK_REALTIME in ns; 0 for none
    bool bFull = false;   // takes no more

    SPOOL_PLACE Begin() const { return {ullSegment, vecRuns.front().ullOffset}; }
    SPOOL_PLACE End() const;
    /// Takes off what lies before the offset; nothing may be left.
    void CutBefore(uint64_t ullOffset);
};

/// One lane's way to the hub: what waits to be sent, and what is known of the hub's end.
class CLane
{
public:
    using TIME = DRAFT::TIME;

    explicit CLane(FLEET_SUBJECT stSubject) : m_stSubject(std::move(stSubject)), m_strSubject(m_stSubject.Text()) {}

    /// Adds bytes that lie behind all that were added before. Blocks of one draft are of one segment; a block that is
    /// too large for a message becomes several.
    void Add(const SPOOL_PLACE& stPlace, ByteView block, uint64_t ullTime, TIME now);
    void AddLoss(const SPOOL_PLACE& stPlace, TIME now);
    /// The hub has everything of this lane before this place.
    void Trim(const SPOOL_PLACE& stPlace);

    bool IsEmpty() const { return m_drafts.empty(); }
    const DRAFT& Front() const { return m_drafts.front(); }
    /// Whether the first draft should go: it is large enough, closed, or has waited so long.
    bool IsRipe(TIME now, std::chrono::milliseconds wait) const;
    size_t Bytes() const { return m_szBytes; }
    const FLEET_SUBJECT& Subject() const { return m_stSubject; }
    const std::string& SubjectText() const { return m_strSubject; }

    enum class STATE
    {
        UNKNOWN, // what the hub has must be asked
        ASKED,
        READY,
        FLYING, // the first draft is under way
    };
    STATE enState = STATE::UNKNOWN;
    TIME due{};                  // UNKNOWN: not asked before; ASKED, FLYING: given up then
    uint64_t ullToken = 0;       // of what is under way
    uint64_t ullSequence = 0;    // of the subject's last message; 0 for none
    SPOOL_PLACE stAcknowledged;  // the hub has told that it has all before
    unsigned int ulBehind = 0;   // answers in a row that told less than that
    std::optional<TIME> refused; // since then the hub takes nothing, by a refusal or without an answer

private:
    void AddRun(const SPOOL_PLACE& stPlace, ByteView bytes, uint64_t ullTime, TIME now);

    const FLEET_SUBJECT m_stSubject;
    const std::string m_strSubject;
    std::deque<DRAFT> m_drafts;
    size_t m_szBytes = 0; // of all drafts
};
