#include "ue/ReadSet.h"

#include "common/Debug.h"
#include "common/MsgBuf.h"
#include "common/NoMemory.h"
#include "common/Wait.h"

#include <algorithm>

// The analysis of lock annotations can't follow a list of locks: the functions that touch it are left out.

namespace
{
constexpr auto FAULT_PAUSE = std::chrono::seconds(1);
} // namespace

void CReadSet::LockPorts()
{
    m_vecPoll.clear();
    m_anLink.fill(-1);
    m_vecLocked.reserve(m_vecOpen.size()); // so that no lock is taken that can't be noted
    m_vecPoll.reserve(m_vecOpen.size() + SERIALNUM);
    ForgetOldFaults();
    for (CSerial* pSerial : m_vecOpen)
        if (!m_mapFault.contains(pSerial))
            LockPort(pSerial);
}

void CReadSet::LockPort(CSerial* pSerial) NO_THREAD_SAFETY_ANALYSIS
{
    pSerial->SerialLock();
    const int nHandle = pSerial->GetHandler(); // can't change from here on
    if (nHandle == -1) {
        pSerial->SerialUnlock();
        return;
    }
    m_vecLocked.push_back(pSerial);
    m_vecPoll.push_back({nHandle, POLLIN, 0});
}

void CReadSet::ForgetOldFaults()
{
    const auto now = std::chrono::steady_clock::now();
    std::erase_if(m_mapFault, [&](const auto& entry) { return now - entry.second >= FAULT_PAUSE; });
}

void CReadSet::AddLink(size_t szIndex, int nSocket)
{
    m_anLink[szIndex] = static_cast<int>(m_vecPoll.size());
    m_vecPoll.push_back({nSocket, POLLIN, 0});
}

int CReadSet::Wait(int lTimeoutMs)
{
    const int nReady = PollFor(m_vecPoll, lTimeoutMs);
    const auto isInvalid = [](const pollfd& stPoll) { return (stPoll.revents & POLLNVAL) != 0; };
    return nReady > 0 && std::ranges::any_of(m_vecPoll, isInvalid) ? -1 : nReady;
}

void CReadSet::ReadPorts() NO_THREAD_SAFETY_ANALYSIS
{
    {
        CAgentMsgRun run;
        for (size_t i = 0; i < m_vecLocked.size(); ++i) {
            if (m_vecPoll[i].revents != 0)
                (void)DropOnNoMemory("what a port received", [&] { ReadPort(m_vecLocked[i], run); });
        }
    } // posted before a lock is released: what a port read comes before its detach
    ReleasePorts();
}

void CReadSet::ReadPort(CSerial* pSerial, CAgentMsgRun& run) NO_THREAD_SAFETY_ANALYSIS
{
    if (pSerial->ReadSerial(run))
        return;
    CDebug::Instance()->PrintError("Read Serial fail!");
    m_mapFault[pSerial] = std::chrono::steady_clock::now();
}

void CReadSet::ReleasePorts() NO_THREAD_SAFETY_ANALYSIS
{
    for (CSerial* pSerial : m_vecLocked)
        pSerial->SerialUnlock();
    m_vecLocked.clear();
}

bool CReadSet::IsLinkReadable(size_t szIndex, int nSocket) const
{
    if (m_anLink[szIndex] < 0)
        return false;
    const pollfd& stPoll = m_vecPoll[static_cast<size_t>(m_anLink[szIndex])];
    return stPoll.fd == nSocket && stPoll.revents != 0;
}
