#include "agent/DueActions.h"

#include <algorithm>

void CDueActions::StartHostConnect(UE_INDEX ulUeIdx, TIME now)
{
    if (ulUeIdx >= MAXUENUM)
        return;
    m_astSequence[ulUeIdx] = {};
    m_astSequence[ulUeIdx].due = now + HOST_CONNECT_DELAY;
}

void CDueActions::StartSwitches(UE_INDEX ulUeIdx, TIME now)
{
    if (ulUeIdx >= MAXUENUM)
        return;
    SEQUENCE& stSequence = m_astSequence[ulUeIdx];
    if (stSequence.due != TIME::max() && stSequence.enNext == DUE_ACTION::HOST_CONNECT) {
        stSequence.bConfirmed = true;
        return;
    }
    stSequence.enNext = DUE_ACTION::SWITCH;
    stSequence.szSwitch = 0;
    stSequence.due = std::max(now, stSequence.switchFrom);
}

void CDueActions::Cancel(UE_INDEX ulUeIdx)
{
    if (ulUeIdx < MAXUENUM)
        m_astSequence[ulUeIdx] = {};
}

std::optional<DUE_ACTION> CDueActions::Take(TIME now)
{
    const auto first = std::ranges::min_element(m_astSequence, {}, &SEQUENCE::due);
    if (first->due > now)
        return std::nullopt;
    const DUE_ACTION stAction{static_cast<UE_INDEX>(first - m_astSequence.begin()), first->enNext, first->szSwitch};
    Advance(*first, now);
    return stAction;
}

void CDueActions::Advance(SEQUENCE& stSequence, TIME now)
{
    if (stSequence.enNext == DUE_ACTION::SWITCH) {
        stSequence.due = stSequence.switchFrom = now + SWITCH_INTERVAL;
        if (++stSequence.szSwitch == LTE_DIAG_INIT_CMD.size())
            stSequence.enNext = DUE_ACTION::CONNECTED;
    } else if (stSequence.enNext == DUE_ACTION::HOST_CONNECT && stSequence.bConfirmed) {
        stSequence.due = now;
        stSequence.enNext = DUE_ACTION::SWITCH;
    } else {
        stSequence.due = TIME::max();
    }
}

CDueActions::TIME CDueActions::NextTime() const
{
    return std::ranges::min_element(m_astSequence, {}, &SEQUENCE::due)->due;
}
