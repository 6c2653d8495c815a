#include "uesim/ReplayRun.h"

#include <algorithm>

CReplayRun::CReplayRun(const REPLAY_UE& stPlan, double dScale, uint64_t ullEnd)
    : m_stPlan(stPlan),
      m_dScale(dScale),
      m_ullEnd(ullEnd),
      m_stepsOf(stPlan.requests.size()),
      m_came(stPlan.requests.size(), CAME::NOT_YET),
      m_cameAt(stPlan.requests.size())
{
    for (size_t i = 0; i < stPlan.steps.size(); ++i)
        for (const size_t szRequest : stPlan.steps[i].requests)
            m_stepsOf[szRequest].push_back(i);
    for (size_t i = 0; i < stPlan.requests.size(); ++i)
        m_expected[{stPlan.requests[i].enPort, stPlan.requests[i].strName}].push_back(i);
    SkipAnswers();
    SkipArrived();
}

void CReplayRun::Start(SimTime now, uint64_t ullFrom)
{
    m_bStarted = true;
    m_base = now - Scaled(0, ullFrom);
    m_lastAct = now;
}

SimDuration CReplayRun::Scaled(uint64_t ullFrom, uint64_t ullTo) const
{
    const uint64_t ullTime = ullTo - std::min(ullFrom, ullTo);
    return std::chrono::duration_cast<SimDuration>(
        std::chrono::duration<double, std::nano>(static_cast<double>(ullTime) * m_dScale));
}

SimTime CReplayRun::Due(uint64_t ullTime) const
{
    return m_base + Scaled(0, ullTime);
}

bool CReplayRun::IsBlocked(size_t szStep) const
{
    return m_bInStep && HasWaited() && m_stPlan.requests[m_szWaited].szSteps <= szStep;
}

void CReplayRun::SkipAnswers()
{
    while (m_szNext < m_stPlan.steps.size() && !m_stPlan.steps[m_szNext].requests.empty())
        ++m_szNext;
}

void CReplayRun::SkipArrived()
{
    const size_t szBefore = m_szWaited;
    while (HasWaited() && m_came[m_szWaited] != CAME::NOT_YET)
        ++m_szWaited;
    if (m_szWaited != szBefore)
        m_blockedSince = NEVER;
}

bool CReplayRun::OnRequest(enSerialType enPort, const std::string& strName, SimTime now)
{
    const auto pExpected = m_expected.find({enPort, strName});
    if (pExpected == m_expected.end() || pExpected->second.empty()) {
        ++m_stTotals.ullUnplanned;
        return false;
    }
    const size_t szRequest = pExpected->second.front();
    pExpected->second.pop_front();
    const REPLAY_REQUEST& stRequest = m_stPlan.requests[szRequest];
    if (!m_bStarted)
        Start(now, stRequest.ullTime);
    m_came[szRequest] = CAME::YES;
    m_cameAt[szRequest] = now;
    Follow(szRequest, now);
    m_bInStep = true;
    for (const size_t szStep : m_stepsOf[szRequest])
        Activate(szStep, now);
    SkipArrived();
    return true;
}

/// The modem's time becomes that of the request: what it did by itself before and behind it stays before and behind it.
/// One that comes much too early is answered, but the others don't hurry for it.
void CReplayRun::Follow(size_t szRequest, SimTime now)
{
    const SimTime due = Due(m_stPlan.requests[szRequest].ullTime);
    const bool bEarly = szRequest == m_szWaited && now + HURRY_LIMIT > due;
    if (m_bInStep && (now > due || bEarly))
        m_base += now - due;
}

/// The step is due when all of its requests have come.
void CReplayRun::Activate(size_t szStep, SimTime now)
{
    const REPLAY_STEP& stStep = m_stPlan.steps[szStep];
    SimTime due = now;
    for (const size_t szRequest : stStep.requests) {
        if (m_came[szRequest] != CAME::YES)
            return;
        due = std::max(due, m_cameAt[szRequest] + Scaled(m_stPlan.requests[szRequest].ullTime, stStep.ullTime));
    }
    const bool bFarAhead = due + HURRY_LIMIT < Due(stStep.ullTime);
    m_answers[szStep] = {due, bFarAhead ? due : due + ORDER_LIMIT};
}

/// Lets go of requests that should have come long ago.
void CReplayRun::GiveUp(SimTime now)
{
    while (HasWaited()) {
        const SimTime due = Due(m_stPlan.requests[m_szWaited].ullTime);
        const bool bAllPlayed = m_szNext >= m_stPlan.steps.size() || IsBlocked(m_szNext);
        if (m_bInStep && bAllPlayed && now >= due)
            m_blockedSince = std::min(m_blockedSince, now);
        const SimTime since = m_bInStep ? m_blockedSince : due;
        const SimDuration limit = m_stPlan.requests[m_szWaited].bAnswered ? WAIT_LIMIT : UNANSWERED_LIMIT;
        if (since == NEVER || now < since + limit)
            return;
        Miss();
    }
}

void CReplayRun::Miss()
{
    const REPLAY_REQUEST& stRequest = m_stPlan.requests[m_szWaited];
    m_came[m_szWaited] = CAME::TOO_LATE;
    std::erase(m_expected[{stRequest.enPort, stRequest.strName}], m_szWaited);
    if (stRequest.bAnswered)
        m_stTotals.missed.push_back(m_szWaited);
    m_bInStep = false;
    SkipArrived();
}

/// The first answer is due, and what came before it has come.
bool CReplayRun::IsAnswerDue(SimTime now) const
{
    if (m_answers.empty() || now < m_answers.begin()->second.due)
        return false;
    const auto& [szStep, stAnswer] = *m_answers.begin();
    return m_szNext > szStep || !m_bInStep || now >= stAnswer.latest;
}

/// The first step in the order of the capture that is due; none: their count. Nothing overtakes
/// an answer that was before it.
size_t CReplayRun::Candidate(SimTime now) const
{
    const size_t szAnswer = IsAnswerDue(now) ? m_answers.begin()->first : m_stPlan.steps.size();
    const bool bAnswerBefore = m_bInStep && !m_answers.empty() && m_answers.begin()->first < m_szNext;
    const bool bItself =
        m_szNext < szAnswer && !bAnswerBefore && !IsBlocked(m_szNext) && now >= Due(m_stPlan.steps[m_szNext].ullTime);
    return bItself ? m_szNext : szAnswer;
}

void CReplayRun::Remove(size_t szStep)
{
    m_answers.erase(szStep);
    if (szStep == m_szNext)
        ++m_szNext;
    SkipAnswers();
    m_portSince = NEVER;
}

/// Whether a packet waits for its closed port; when that has taken too long, it and the next ones don't.
bool CReplayRun::IsWaitedFor(enSerialType enPort, SimTime now)
{
    m_portSince = std::min(m_portSince, now);
    bool& bAbandoned = m_abandoned[static_cast<size_t>(enPort)];
    bAbandoned = bAbandoned || now >= m_portSince + WAIT_LIMIT;
    return !bAbandoned;
}

const REPLAY_STEP* CReplayRun::TakeStep(SimTime now, const PORT_STATE& stateOf)
{
    if (!m_bStarted)
        return nullptr;
    GiveUp(now);
    for (;;) {
        const size_t szStep = Candidate(now);
        if (szStep >= m_stPlan.steps.size())
            return nullptr;
        const REPLAY_STEP& stStep = m_stPlan.steps[szStep];
        const PORT enState = stateOf(stStep.enPort);
        if (enState == PORT::FULL || (enState == PORT::CLOSED && IsWaitedFor(stStep.enPort, now)))
            return nullptr;
        Remove(szStep);
        m_abandoned[static_cast<size_t>(stStep.enPort)] = enState == PORT::CLOSED;
        if (enState == PORT::READY) {
            ++m_stTotals.ullPlayed;
            m_lastAct = now;
            return &stStep;
        }
        ++m_stTotals.ullLost;
    }
}

/// Nothing that the capture has before this step is still to come.
bool CReplayRun::IsPlayedUpTo(size_t szStep) const
{
    return m_szNext >= std::min(szStep, m_stPlan.steps.size()) &&
           (m_answers.empty() || m_answers.begin()->first >= szStep) &&
           (!HasWaited() || m_stPlan.requests[m_szWaited].szSteps >= szStep);
}

const REPLAY_EVENT* CReplayRun::TakeEvent(SimTime now)
{
    if (!m_bStarted || m_szEvent >= m_stPlan.events.size())
        return nullptr;
    const REPLAY_EVENT& stEvent = m_stPlan.events[m_szEvent];
    // Ports come or go together at once; between their coming and going lies a moment of calm, however fast it goes.
    const bool bWasThere = m_szEvent > 0 ? m_stPlan.events[m_szEvent - 1].bArrives : !stEvent.bArrives;
    const bool bTurn = bWasThere != stEvent.bArrives && (m_szEvent > 0 || !stEvent.bArrives);
    if (now < Due(stEvent.ullTime) || (bTurn && m_dScale < 1 && now < m_lastAct + CALM) ||
        (!stEvent.bArrives && !IsPlayedUpTo(stEvent.szSteps)))
        return nullptr;
    ++m_szEvent;
    m_lastAct = now;
    return &stEvent;
}

SimTime CReplayRun::NextLook(SimTime now) const
{
    static constexpr SimDuration SOON = std::chrono::milliseconds(5);
    if (!m_bStarted)
        return NEVER;
    SimTime next = now + std::chrono::milliseconds(100); // time-outs and the end have time until then
    if (!m_answers.empty())
        next = std::min(next, m_answers.begin()->second.due);
    if (m_szNext < m_stPlan.steps.size() && !IsBlocked(m_szNext))
        next = std::min(next, Due(m_stPlan.steps[m_szNext].ullTime));
    if (m_szEvent < m_stPlan.events.size())
        next = std::min(next, Due(m_stPlan.events[m_szEvent].ullTime));
    return next > now ? next : now + SOON; // what is due but waits for room or for another
}

bool CReplayRun::IsDone(SimTime now) const
{
    return m_bStarted && m_szNext >= m_stPlan.steps.size() && m_answers.empty() && !HasWaited() &&
           m_szEvent >= m_stPlan.events.size() && now >= Due(m_ullEnd) && now >= m_lastAct + LINGER;
}
