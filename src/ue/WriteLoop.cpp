#include "ue/WriteLoop.h"

#include "common/Debug.h"
#include "common/Turn.h"
#include "common/Wait.h"
#include "ue/Line.h"

#include <algorithm>
#include <thread>

namespace
{
constexpr std::chrono::milliseconds LONGEST_WAIT(1000); // then the thread looks whether it is to end
} // namespace

void CWriteLoop::Pass()
{
    CWakeUp& wake = CMsgBuf::Instance()->WriteWake();
    wake.FallAsleep();
    Work();
    if (PollFor(m_vecPoll, FillPoll()) < 0)
        OnPollFault();
    wake.Rise();
}

void CWriteLoop::Work()
{
    const CTurn turn(LOOP::SERIAL_WRITE);
    TakeQueue();
    PumpAll();
}

void CWriteLoop::TakeQueue()
{
    std::array<MSG_UE, MSG_RUN_MAX> astMsg;
    size_t szCount = astMsg.size();
    while (szCount == astMsg.size()) {
        szCount = CMsgBuf::Instance()->UeQueue().get(astMsg, CLineWriter::TIME::min());
        for (MSG_UE& stMsg : std::span(astMsg).first(szCount))
            TakeMsg(std::move(stMsg));
    }
}

/// A record that isn't for a line of its UE is dropped.
void CWriteLoop::TakeMsg(MSG_UE stMsg)
{
    const CHANNEL_ROW* const pRow = RowOf(stMsg.enChannel);
    const UE_INDEX ulUeIdx = stMsg.ulUeIdx;
    const unsigned int ulFits = ulUeIdx == TCP_UE_INDEX ? UE_MSG_TCP : UE_MSG_SERIAL;
    if (ulUeIdx >= MAXUENUM || !pRow || !stMsg.packet || stMsg.ulMsgType != ulFits)
        return;
    CLineWriter& writer = m_aWriter[ulUeIdx][static_cast<size_t>(pRow->enPort)];
    if (writer.IsIdle())
        m_vecBusy.emplace_back(ulUeIdx, pRow->enPort);
    writer.Put(std::move(stMsg));
}

void CWriteLoop::PumpAll()
{
    const auto now = std::chrono::steady_clock::now();
    std::erase_if(m_vecBusy, [&](const auto& busy) {
        const auto [ulUeIdx, enPort] = busy;
        CLineWriter& writer = m_aWriter[ulUeIdx][static_cast<size_t>(enPort)];
        writer.Pump(m_fnLineOf(ulUeIdx, enPort), now);
        return writer.IsIdle();
    });
}

/// Gives the time to wait in ms.
int CWriteLoop::FillPoll()
{
    auto end = std::chrono::steady_clock::now() + LONGEST_WAIT;
    m_vecPoll.assign(1, {CMsgBuf::Instance()->WriteWake().Fd(), POLLIN, 0});
    for (const auto& [ulUeIdx, enPort] : m_vecBusy) {
        const CLineWriter& writer = m_aWriter[ulUeIdx][static_cast<size_t>(enPort)];
        end = std::min(end, writer.Due());
        if (const int nHandle = writer.WaitHandle(); nHandle >= 0)
            m_vecPoll.push_back({nHandle, POLLOUT, 0});
    }
    return MsUntil(end);
}

void CWriteLoop::OnPollFault()
{
    for (const auto& [ulUeIdx, enPort] : m_vecBusy)
        m_aWriter[ulUeIdx][static_cast<size_t>(enPort)].OnWaitFault();
    std::this_thread::sleep_for(LONGEST_WAIT); // what is wrong now is most likely wrong on the next pass
}
