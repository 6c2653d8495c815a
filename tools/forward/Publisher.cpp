#include "forward/Publisher.h"

#include <algorithm>

namespace
{
using namespace std::chrono_literals;

constexpr auto RIPE = 200ms;             // how long a small message waits for more
constexpr auto ANSWER_LIMIT = 5s;        // then an answer counts as lost
constexpr auto RETRY = 1s;               // after a refusal that will last
constexpr auto DOUBT = 100ms;            // a duplicate is being applied somewhere
constexpr auto BURST = 250ms;            // of the rate limit
constexpr auto STUCK = 60s;              // longer than the hub takes to choose leaders
constexpr auto SETTLE = 30s;             // the hub chooses leaders, and has lost by then what it loses
constexpr auto MARK_PAUSE = 1s;          // between two places that settle
constexpr unsigned int BEHIND_LIMIT = 3; // a replica that lags may answer; it has a second each time

double Seconds(std::chrono::steady_clock::duration time)
{
    return std::chrono::duration<double>(time).count();
}
} // namespace

CPublisher::CPublisher(const SETTINGS& stSettings, IForwardHub& hub, const CSegmentLedger& ledger, CForwardLog& log)
    : m_stSettings(stSettings), m_hub(hub), m_ledger(ledger), m_log(log)
{
    Reset();
}

void CPublisher::Reset()
{
    m_lanes.clear();
    m_szWaiting = 0;
    m_start.reset();
    m_stRead = {};
    m_marks.clear();
    m_stSettled = {};
    (void)LaneOf(FLEET_AGENT_LANE);
}

bool CPublisher::TakeReset()
{
    return std::exchange(m_bReset, false);
}

CLane& CPublisher::LaneOf(const FLEET_LANE& stLane)
{
    const auto found = m_lanes.find(stLane);
    if (found != m_lanes.end())
        return found->second;
    return m_lanes.try_emplace(stLane, FLEET_SUBJECT{m_stSettings.strBench, m_stSettings.strEpoch, stLane})
        .first->second;
}

void CPublisher::Add(const FLEET_LANE& stLane, const SPOOL_PLACE& stPlace, ByteView block, uint64_t ullTime, TIME now)
{
    CLane& lane = LaneOf(stLane);
    m_szWaiting -= lane.Bytes();
    lane.Add(stPlace, block, ullTime, now);
    m_szWaiting += lane.Bytes();
}

void CPublisher::AddLoss(const SPOOL_PLACE& stPlace, TIME now)
{
    LaneOf(FLEET_AGENT_LANE).AddLoss(stPlace, now);
}

SPOOL_PLACE CPublisher::Completed() const
{
    SPOOL_PLACE stPlace = m_stRead;
    for (const auto& [stLane, lane] : m_lanes)
        if (!lane.IsEmpty())
            stPlace = std::min(stPlace, lane.Front().Begin());
    return stPlace;
}

uint64_t CPublisher::OldestTime() const
{
    uint64_t ullOldest = 0;
    for (const auto& [stLane, lane] : m_lanes)
        if (!lane.IsEmpty() && lane.Front().ullTime > 0 && (ullOldest == 0 || lane.Front().ullTime < ullOldest))
            ullOldest = lane.Front().ullTime;
    return ullOldest;
}

FLEET_POSITION CPublisher::PositionOf(const SPOOL_PLACE& stPlace) const
{
    const CSegmentLedger::SEGMENT* const pSegment = m_ledger.Find(stPlace.ullSegment);
    return pSegment == nullptr ? FLEET_POSITION{} : FLEET_POSITION{pSegment->strName, stPlace.ullOffset};
}

/// A segment that the ledger has forgotten lies before all that it knows.
SPOOL_PLACE CPublisher::PlaceOf(const FLEET_POSITION& stPosition) const
{
    const uint64_t ullSegment = m_ledger.Find(stPosition.strSegment);
    return ullSegment == 0 ? SPOOL_PLACE{} : SPOOL_PLACE{ullSegment, stPosition.ullOffset};
}

/// The lane must be asked about, at that time.
void CPublisher::Doubt(CLane& lane, TIME due)
{
    lane.enState = CLane::STATE::UNKNOWN;
    lane.due = due;
    lane.ullToken = 0;
}

/// The same after something that the hub has not taken.
void CPublisher::DoubtRefused(CLane& lane, TIME now, TIME due)
{
    if (!lane.refused)
        lane.refused = now;
    Doubt(lane, due);
}

bool CPublisher::IsStuck(TIME now) const
{
    return m_bConnected && std::ranges::any_of(m_lanes, [now](const auto& entry) {
               return entry.second.refused && now - *entry.second.refused >= STUCK;
           });
}

void CPublisher::Handle(const HUB_EVENT& stEvent, TIME now)
{
    using KIND = HUB_EVENT::KIND;
    if (stEvent.enKind == KIND::CONNECTED || stEvent.enKind == KIND::LOST) {
        m_bConnected = stEvent.enKind == KIND::CONNECTED;
        m_marks.clear(); // what the hub had before may be what it has lost
        for (auto& [stLane, lane] : m_lanes) {
            lane.refused.reset();
            Doubt(lane, now);
        }
        return;
    }
    const auto found = std::ranges::find_if(m_lanes, [&stEvent](const auto& entry) {
        return stEvent.ullToken != 0 && entry.second.ullToken == stEvent.ullToken;
    });
    if (found == m_lanes.end())
        return; // of something that was given up
    CLane& lane = found->second;
    if (stEvent.enKind == KIND::LAST)
        TakeLast(lane, stEvent, now);
    if (stEvent.enKind == KIND::STORED)
        TakeStored(lane, stEvent, now);
    if (stEvent.enKind != KIND::REFUSED)
        return;
    m_log.State(lane.SubjectText(), lane.SubjectText() + ": " + stEvent.strText);
    DoubtRefused(lane, now, now + RETRY);
}

void CPublisher::TakeLast(CLane& lane, const HUB_EVENT& stEvent, TIME now)
{
    FLEET_MESSAGE stMessage;
    if (stEvent.ullSequence > 0 && !DecodeMessage(stEvent.vecBytes, stMessage)) {
        m_log.State(lane.SubjectText(), lane.SubjectText() +
                                            ": somebody else has published there; nothing is sent until that is "
                                            "deleted from the stream");
        return Doubt(lane, now + RETRY);
    }
    const bool bAgent = lane.Subject().stLane == FLEET_AGENT_LANE;
    if (bAgent && !m_start)
        TakeStart(stMessage.stCompleted);
    // The ledger may have forgotten the segment of a message that is known.
    const bool bSame = stEvent.ullSequence > 0 && stEvent.ullSequence == lane.ullSequence;
    TakePlace(lane, stEvent.ullSequence, bSame ? lane.stAcknowledged : PlaceOf({stMessage.strSegment, stMessage.End()}),
              now);
}

void CPublisher::TakeStart(const FLEET_POSITION& stSettled)
{
    m_start = PlaceOf(stSettled);
    if (m_lost)
        m_start = std::min(*m_start, *m_lost);
    m_lost.reset();
    m_stRead = m_stSettled = *m_start;
}

void CPublisher::NoteCompleted(TIME now)
{
    if (m_start && (m_marks.empty() || now - m_marks.back().at >= MARK_PAUSE))
        m_marks.push_back({now, Completed()});
    for (; !m_marks.empty() && now - m_marks.front().at >= SETTLE; m_marks.pop_front())
        m_stSettled = m_marks.front().stCompleted;
}

/// The lane's last message has this sequence and reaches up to this place.
void CPublisher::TakePlace(CLane& lane, uint64_t ullSequence, const SPOOL_PLACE& stPlace, TIME now)
{
    if (stPlace < lane.stAcknowledged && ++lane.ulBehind < BEHIND_LIMIT)
        return Doubt(lane, now + RETRY);
    if (stPlace < lane.stAcknowledged) {
        m_log.Line("the hub no longer has the last message of " + lane.SubjectText() + "; asking for everything anew");
        m_lost = stPlace;
        m_bReset = true;
        return Reset(); // the lane is gone
    }
    m_szWaiting -= lane.Bytes();
    lane.Trim(stPlace);
    m_szWaiting += lane.Bytes();
    lane.ulBehind = 0;
    lane.stAcknowledged = stPlace;
    lane.ullSequence = ullSequence;
    lane.enState = CLane::STATE::READY;
    lane.ullToken = 0;
    if (lane.IsEmpty())
        lane.refused.reset();
    m_log.State(lane.SubjectText(), "");
}

void CPublisher::TakeStored(CLane& lane, const HUB_EVENT& stEvent, TIME now)
{
    if (lane.enState != CLane::STATE::FLYING || stEvent.bDuplicate)
        return DoubtRefused(lane, now, now + DOUBT);
    const DRAFT& stSent = lane.Front();
    m_ullSentBytes += stSent.vecBytes.size();
    ++m_ullSentMessages;
    lane.refused.reset();
    TakePlace(lane, stEvent.ullSequence, stSent.End(), now);
}

void CPublisher::Turn(TIME now)
{
    if (!m_bConnected)
        return;
    NoteCompleted(now);
    for (auto& [stLane, lane] : m_lanes) {
        const bool bUnderWay = lane.enState == CLane::STATE::ASKED || lane.enState == CLane::STATE::FLYING;
        if (bUnderWay && now >= lane.due)
            DoubtRefused(lane, now, now);
        if (lane.enState == CLane::STATE::UNKNOWN && now >= lane.due)
            Ask(lane, now);
    }
    SendRipe(now);
}

void CPublisher::Ask(CLane& lane, TIME now)
{
    lane.ullToken = ++m_ullToken;
    if (!m_hub.AskLast(lane.SubjectText(), lane.ullToken))
        return Doubt(lane, now + RETRY);
    lane.enState = CLane::STATE::ASKED;
    lane.due = now + ANSWER_LIMIT;
}

/// The oldest first, as far as the rate allows.
void CPublisher::SendRipe(TIME now)
{
    const auto dRate = static_cast<double>(m_stSettings.ullMaxRate);
    const double dMost = std::max(dRate * Seconds(BURST), 1.0);
    m_dAllowance = std::min(dMost, m_dAllowance + dRate * Seconds(now - m_allowed));
    m_allowed = now;
    std::vector<CLane*> ripe;
    for (auto& [stLane, lane] : m_lanes)
        if (lane.enState == CLane::STATE::READY && lane.IsRipe(now, RIPE))
            ripe.push_back(&lane);
    std::ranges::sort(ripe, {}, [](const CLane* pLane) { return pLane->Front().Begin(); });
    for (CLane* const pLane : ripe) {
        if (dRate > 0 && m_dAllowance <= 0)
            return;
        m_dAllowance -= static_cast<double>(pLane->Front().vecBytes.size());
        Send(*pLane, now);
    }
}

void CPublisher::Send(CLane& lane, TIME now)
{
    const DRAFT& stDraft = lane.Front();
    const SPOOL_PLACE stBegin = stDraft.Begin();
    const std::string strSegment = PositionOf(stBegin).strSegment;
    const auto vecMessage = Encode(stDraft);
    lane.ullToken = ++m_ullToken;
    const std::string strId =
        MessageId(lane.Subject(), strSegment, stBegin.ullOffset, stDraft.enKind == FLEET_KIND::LOSS);
    if (!m_hub.Publish({lane.SubjectText(), strId, lane.ullSequence, vecMessage}, lane.ullToken))
        return Doubt(lane, now + RETRY);
    lane.enState = CLane::STATE::FLYING;
    lane.due = now + ANSWER_LIMIT;
}

std::vector<unsigned char> CPublisher::Encode(const DRAFT& stDraft) const
{
    return EncodeMessage({stDraft.enKind, PositionOf(stDraft.Begin()).strSegment, PositionOf(m_stSettled),
                          stDraft.vecRuns, stDraft.vecBytes});
}
