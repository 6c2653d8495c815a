#include "forward/Lane.h"

#include <algorithm>

SPOOL_PLACE DRAFT::End() const
{
    const FLEET_RUN& stLast = vecRuns.back();
    return {ullSegment, enKind == FLEET_KIND::LOSS ? UINT64_MAX : stLast.ullOffset + stLast.ulLength};
}

void DRAFT::CutBefore(uint64_t ullOffset)
{
    size_t szBytes = 0;
    for (FLEET_RUN& stRun : vecRuns) {
        const uint64_t ullBefore = ullOffset > stRun.ullOffset ? ullOffset - stRun.ullOffset : 0;
        const auto ulCut = static_cast<uint32_t>(std::min<uint64_t>(ullBefore, stRun.ulLength));
        stRun.ullOffset += ulCut;
        stRun.ulLength -= ulCut;
        szBytes += ulCut;
    }
    std::erase_if(vecRuns, [](const FLEET_RUN& stRun) { return stRun.ulLength == 0; });
    vecBytes.erase(vecBytes.begin(), vecBytes.begin() + static_cast<ptrdiff_t>(szBytes));
}

void CLane::Add(const SPOOL_PLACE& stPlace, ByteView block, uint64_t ullTime, TIME now)
{
    // What the hub has of it is left out, a part of a large block too.
    const bool bKnown = stAcknowledged.ullSegment == stPlace.ullSegment;
    const uint64_t ullSkip =
        bKnown && stAcknowledged.ullOffset > stPlace.ullOffset ? stAcknowledged.ullOffset - stPlace.ullOffset : 0;
    if (ullSkip >= block.size() || stAcknowledged.ullSegment > stPlace.ullSegment)
        return;
    SPOOL_PLACE stAt{stPlace.ullSegment, stPlace.ullOffset + ullSkip};
    for (ByteView rest = block.subspan(ullSkip); !rest.empty();) {
        const ByteView piece = Slice(rest, 0, FLEET_MESSAGE_MOST);
        AddRun(stAt, piece, ullTime, now);
        stAt.ullOffset += piece.size();
        rest = rest.subspan(piece.size());
        if (!rest.empty())
            m_drafts.back().bFull = true;
    }
}

void CLane::AddRun(const SPOOL_PLACE& stPlace, ByteView bytes, uint64_t ullTime, TIME now)
{
    const bool bFlying = enState == STATE::FLYING && m_drafts.size() == 1;
    if (m_drafts.empty() || bFlying || m_drafts.back().bFull || m_drafts.back().ullSegment != stPlace.ullSegment ||
        m_drafts.back().vecBytes.size() + bytes.size() > FLEET_MESSAGE_LIMIT) {
        if (!m_drafts.empty())
            m_drafts.back().bFull = true;
        m_drafts.push_back({.ullSegment = stPlace.ullSegment, .vecRuns = {}, .vecBytes = {}, .begun = now});
    }
    DRAFT& stDraft = m_drafts.back();
    if (!stDraft.vecRuns.empty() && stDraft.End().ullOffset == stPlace.ullOffset)
        stDraft.vecRuns.back().ulLength += static_cast<uint32_t>(bytes.size());
    else
        stDraft.vecRuns.push_back({stPlace.ullOffset, static_cast<uint32_t>(bytes.size())});
    stDraft.vecBytes.insert(stDraft.vecBytes.end(), bytes.begin(), bytes.end());
    if (stDraft.ullTime == 0)
        stDraft.ullTime = ullTime;
    m_szBytes += bytes.size();
}

void CLane::AddLoss(const SPOOL_PLACE& stPlace, TIME now)
{
    if (stAcknowledged >= SPOOL_PLACE{stPlace.ullSegment, UINT64_MAX})
        return;
    if (!m_drafts.empty())
        m_drafts.back().bFull = true;
    m_drafts.push_back({.enKind = FLEET_KIND::LOSS,
                        .ullSegment = stPlace.ullSegment,
                        .vecRuns = {{stPlace.ullOffset, 0}},
                        .vecBytes = {},
                        .begun = now,
                        .bFull = true});
}

void CLane::Trim(const SPOOL_PLACE& stPlace)
{
    while (!m_drafts.empty() && m_drafts.front().Begin() < stPlace) {
        DRAFT& stFront = m_drafts.front();
        m_szBytes -= stFront.vecBytes.size();
        if (stFront.End() <= stPlace) {
            m_drafts.pop_front();
            continue;
        }
        if (stFront.enKind == FLEET_KIND::BLOCKS)
            stFront.CutBefore(stPlace.ullOffset);
        m_szBytes += stFront.vecBytes.size();
        return;
    }
}

bool CLane::IsRipe(TIME now, std::chrono::milliseconds wait) const
{
    if (m_drafts.empty())
        return false;
    const DRAFT& stFront = m_drafts.front();
    return stFront.bFull || stFront.vecBytes.size() >= FLEET_MESSAGE_GOAL || now - stFront.begun >= wait;
}
