#pragma once

#include "common/MsgBuf.h"
#include "common/Packet.h"
#include "common/Types.h"

#include <chrono>
#include <deque>
#include <memory>

class ILine;

/// What waits to be written to one line: packets in order, each of which may ask for a pause behind it. Only the write
/// thread uses it, and it never waits: whoever drives it asks what to wait for.
///
/// A line that takes nothing for its limit loses what waits, and is not waited for again until it takes bytes: till
/// then each packet is tried once. What was written of a packet when it is given up stays written.
class CLineWriter
{
public:
    using TIME = std::chrono::steady_clock::time_point;

    void Put(MSG_UE stMsg) { m_deqWaiting.push_back(std::move(stMsg)); }
    /// Writes what can be written by now. Null is a line that isn't there: everything is lost then.
    void Pump(const std::shared_ptr<ILine>& pLine, TIME now);

    /// Nothing waits and no pause is under way.
    bool IsIdle() const { return m_deqWaiting.empty() && !m_bBlock && !m_bResting; }
    /// What to wait for until it can be written to; -1 for nothing.
    int WaitHandle() const;
    /// When Pump has something to do, whatever the line says; TIME::max() for never.
    TIME Due() const;
    /// The wait for the line failed, with errno: the packet at hand is lost.
    void OnWaitFault();

private:
    bool RestIsOver(TIME now);
    bool StartPacket(TIME now);
    CPacket TakeBlock(MSG_UE& stMsg);
    bool WriteBlock(TIME now);
    void EndBlock(TIME now);
    void OnNothingTaken(TIME now);
    void OnHeadway(size_t szWritten, TIME now);
    void DropBlock();
    void LoseAll();

    std::deque<MSG_UE> m_deqWaiting; // the first one is at hand while there is a block
    std::shared_ptr<ILine> m_pLine;  // of the packet at hand, or in Pump
    uint64_t m_ullOpening = 0;       // and its opening
    bool m_bBlock = false;           // there is one
    CPacket m_Block;                 // the packet at hand as it goes on the line
    size_t m_szWritten = 0;          // bytes of it
    TIME m_GiveUp{};                 // when the line has taken nothing for too long
    bool m_bResting = false;         // a pause is under way
    TIME m_RestEnd{};
    CLineCharge m_RestCharge; // of the packet before the pause
    bool m_bStalled = false;  // gave up; nothing was taken since
    size_t m_szLost = 0;      // packets lost by then and since
};
