#pragma once

#include "agent/LossLog.h"
#include "common/Bytes.h"

#include <chrono>
#include <functional>
#include <vector>

/// The way out to one client: packets that its socket doesn't take wait here, for 20 ms without any headway. Then they
/// are lost, but for the rest of one that was sent in part: it stays and leaves first, so that no packet is ever torn.
/// From then on packets are lost at once until the socket takes bytes again. Nothing here waits, and a failed send
/// never ends the connection. Not safe from several threads.
class CClientOut
{
public:
    using TIME = std::chrono::steady_clock::time_point;
    // Bytes that wait; a single packet may be larger. Of one UE's line no more than this comes once it isn't read for
    // want of room: what was on its way then, and what one pass reads.
    static constexpr size_t LIMIT = 512 * 1024;
    static constexpr size_t PACKET_COST = 64; // counted for a packet beside its bytes
    static constexpr size_t HOLD_MAX = 16384; // bytes held back at most, half of the socket's send buffer
    static constexpr std::chrono::milliseconds PATIENCE{20}; // how long a client may take nothing

    /// The socket stays the caller's; with -1 packets vanish.
    CClientOut(int nSocket, const char* pszChannel) : m_nSocket(nSocket), m_Losses(pszChannel) {}

    /// A packet: the head and what follows it. False when memory is too short for it; it is lost then.
    bool Add(ByteView head, ByteView payload);
    /// While holding, packets are collected as long as they are few; the end sends them.
    void SetHolding(bool bHolding);
    /// Sends what the socket takes, and tells what is due. For whoever waits for the socket and for NextLook.
    void Look();
    /// Tells what was counted and not told yet.
    void TellCount() { m_Losses.TellCount(); }

    /// Whether something waits until the socket takes bytes.
    bool IsWaiting() const { return m_bWaiting; }
    /// Bytes that wait and may be lost yet; 0 for a client that is given up until it reads again.
    size_t Backlog() const { return m_bWaiting && !m_bStalled ? m_szCost : 0; }
    /// When Look is due although the socket took nothing; never is possible.
    TIME NextLook() const;

    /// For tests.
    void SetClock(std::function<TIME()> fnNow) { m_fnNow = std::move(fnNow); }

private:
    size_t Count() const { return m_vecLengths.size() - m_szFirst; }
    /// What the socket hasn't taken.
    ByteView Unsent() const { return ByteView(m_vecBytes).subspan(m_szBegin + m_szSent); }
    bool Append(ByteView head, ByteView payload);
    bool IsFull(size_t szLen) const { return Count() > 0 && m_szCost + PACKET_COST + szLen > LIMIT; }
    void SendAll();
    void Cut(size_t szSent);
    void OnBlocked(bool bHeadway);
    void OnFailed(int iError);
    void LoseUnsent(int iError);
    void Tidy();

    int m_nSocket;
    CLossLog m_Losses;
    std::function<TIME()> m_fnNow = std::chrono::steady_clock::now;
    // The packets that want to be sent, one behind the other, so that one call sends them:
    std::vector<unsigned char> m_vecBytes; // from m_szBegin on
    std::vector<size_t> m_vecLengths;      // of each, from m_szFirst on
    size_t m_szBegin = 0;
    size_t m_szFirst = 0;
    size_t m_szSent = 0;     // bytes of the first one that the socket has taken
    size_t m_szCost = 0;     // of all, sent bytes included
    size_t m_szHeld = 0;     // bytes that came since the last attempt to send
    bool m_bHolding = false; // packets are collected
    bool m_bWaiting = false; // the socket took less than there was
    bool m_bStalled = false; // PATIENCE went by, and nothing was taken since
    TIME m_Deadline;         // end of PATIENCE while waiting
};
