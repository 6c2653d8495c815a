#pragma once

#include "common/WakeUp.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <utility>

/// What is on its way to one line (a port or a network link of a UE), or from it: packets in a queue or in hand,
/// counted by the CLineCharge that each holds. Safe from any thread. One thread may wait for room or progress.
class CLineLoad
{
public:
    static constexpr size_t RECORD_COST = 64;   // counted for a packet beside its bytes
    static constexpr size_t ROOM = 256 * 1024;  // up to here whoever can be held back is not
    static constexpr size_t LIMIT = 512 * 1024; // beyond, a packet of a writer that can't be held back is lost

    /// wake is that of the thread that waits for this line.
    void SetWakeUp(CWakeUp& wake) { m_pWake = &wake; }

    /// Bytes and RECORD_COST of all that is on its way.
    size_t Cost() const { return m_szCost; }
    bool HasRoom() const { return m_szCost < ROOM; }
    bool IsOverLimit() const { return m_szCost >= LIMIT; }
    /// For a packet that is lost beyond the limit: true for the first since there was room.
    bool IsFirstLoss() { return !m_bLossTold.exchange(true); }
    /// Charges that are given back in order, of packets with a pause behind them: how many there were ...
    uint64_t PacedPosted() const { return m_ullPacedPosted; }
    /// ... and how many of them are over, pause included.
    uint64_t PacedDone() const { return m_ullPacedDone; }
    /// The next change that makes room, and each end of a pause, wakes the waiting thread once. Look again after the
    /// call: what has changed before it wakes nobody.
    void Await() { m_bAwaited = true; }

private:
    friend class CLineCharge;
    void Take(size_t szCost, bool bPaced)
    {
        m_szCost += szCost;
        m_ullPacedPosted += bPaced ? 1 : 0;
    }
    void Give(size_t szCost, bool bPaced)
    {
        const size_t szBefore = m_szCost.fetch_sub(szCost);
        m_ullPacedDone += bPaced ? 1 : 0;
        const bool bMadeRoom = szBefore >= ROOM && szBefore - szCost < ROOM;
        if (bMadeRoom)
            m_bLossTold = false;
        if ((bMadeRoom || bPaced) && m_bAwaited.exchange(false) && m_pWake != nullptr)
            m_pWake->Wake();
    }

    std::atomic<size_t> m_szCost = 0;
    std::atomic<uint64_t> m_ullPacedPosted = 0;
    std::atomic<uint64_t> m_ullPacedDone = 0;
    std::atomic<bool> m_bAwaited = false;
    std::atomic<bool> m_bLossTold = false;
    CWakeUp* m_pWake = nullptr; // set once, before any thread starts
};

/// A packet's part in the load of its line, from where it is posted until it is dealt with; moves with the packet.
class CLineCharge
{
public:
    CLineCharge() = default;
    /// bPaced: a pause follows the packet, and the charge is held until it is over.
    CLineCharge(CLineLoad& load, size_t szBytes, bool bPaced = false)
        : m_pLoad(&load), m_szCost(CLineLoad::RECORD_COST + szBytes), m_bPaced(bPaced)
    {
        load.Take(m_szCost, m_bPaced);
    }
    ~CLineCharge() { Release(); }
    CLineCharge(CLineCharge&& other) noexcept
        : m_pLoad(std::exchange(other.m_pLoad, nullptr)), m_szCost(other.m_szCost), m_bPaced(other.m_bPaced)
    {
    }
    CLineCharge& operator=(CLineCharge&& other) noexcept
    {
        if (this != &other) {
            Release();
            m_pLoad = std::exchange(other.m_pLoad, nullptr);
            m_szCost = other.m_szCost;
            m_bPaced = other.m_bPaced;
        }
        return *this;
    }

    void Release()
    {
        if (CLineLoad* const pLoad = std::exchange(m_pLoad, nullptr))
            pLoad->Give(m_szCost, m_bPaced);
    }

private:
    CLineLoad* m_pLoad = nullptr; // lives as long as the queues
    size_t m_szCost = 0;
    bool m_bPaced = false;
};
