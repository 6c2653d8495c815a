#include "ue/ReadSet.h"

#include "common/Debug.h"
#include "common/NoMemory.h"
#include "common/Wait.h"
#include "ue/ChildChannel.h"
#include "ue/Line.h"

#include <algorithm>

namespace
{
constexpr auto FAULT_PAUSE = std::chrono::seconds(1);
} // namespace

bool CReadSet::Wait(int lTimeoutMs)
{
    ForgetOldFaults();
    FillPoll();
    return PollFor(m_vecPoll, lTimeoutMs) >= 0;
}

void CReadSet::FillPoll()
{
    std::erase_if(m_vecLine, [&](const std::shared_ptr<ILine>& pLine) {
        return pLine->ReadHandle() < 0 || m_mapFault.contains(pLine.get()) || !CanTake(*pLine);
    });
    m_vecPoll.clear();
    for (const auto& pLine : m_vecLine)
        m_vecPoll.push_back({pLine->ReadHandle(), POLLIN, 0});
    m_vecPoll.push_back({m_wake.Fd(), POLLIN, 0});
}

/// A line with much on its way to the agent is left alone until that is dealt with, which wakes the thread.
bool CReadSet::CanTake(ILine& line)
{
    const auto rows = line.Channel().Rows();
    if (rows.empty())
        return true;
    CLineLoad* const pLoad = CMsgBuf::Instance()->LoadFromUe(line.GetUEIdx(), rows.front().enChannel);
    if (pLoad == nullptr || pLoad->HasRoom())
        return true;
    pLoad->Await();
    return pLoad->HasRoom();
}

void CReadSet::ForgetOldFaults()
{
    const auto now = std::chrono::steady_clock::now();
    std::erase_if(m_mapFault, [&](const auto& entry) { return now - entry.second >= FAULT_PAUSE; });
}

void CReadSet::ReadLines()
{
    for (size_t i = 0; i < m_vecLine.size(); ++i)
        if (m_vecPoll[i].revents != 0)
            (void)DropOnNoMemory("what a line received", [&] { ReadLine(i); });
}

void CReadSet::ReadLine(size_t szIndex)
{
    ILine& line = *m_vecLine[szIndex];
    const pollfd& stPoll = m_vecPoll[szIndex];
    if ((stPoll.revents & POLLNVAL) != 0) { // closed since, if it isn't a fault
        if (stPoll.fd != line.ReadHandle())
            return;
        CDebug::Instance()->PrintError("read serial select fail!");
        OnReadFault(&line);
    } else if (!line.ReadBytes(stPoll.fd)) {
        CDebug::Instance()->PrintError("Read Serial fail!");
        OnReadFault(&line);
    }
}
