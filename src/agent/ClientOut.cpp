#include "agent/ClientOut.h"

#include "common/Wait.h"

#include <algorithm>
#include <new>
#include <sys/socket.h>

namespace
{
constexpr size_t KEEP_BYTES = 4 * CClientOut::HOLD_MAX; // room that stays when nothing waits
constexpr size_t SEND_AT_ONCE = CClientOut::HOLD_MAX;   // bytes of one call
constexpr int SEND_FLAGS = MSG_NOSIGNAL | MSG_DONTWAIT;
} // namespace

bool CClientOut::Add(ByteView head, ByteView payload)
{
    const size_t szLen = head.size() + payload.size();
    if (m_nSocket < 0 || szLen == 0)
        return true;
    if ((m_bHolding && m_szHeld + szLen > HOLD_MAX) || IsFull(szLen))
        SendAll();
    if (IsFull(szLen)) {
        m_Losses.FrameTimedOut(m_fnNow());
        return true;
    }
    if (!Append(head, payload))
        return false;
    m_szCost += PACKET_COST + szLen;
    m_szHeld += szLen;
    if (!m_bHolding || szLen > HOLD_MAX)
        SendAll();
    return true;
}

/// All of the packet or, when memory is short, nothing.
bool CClientOut::Append(ByteView head, ByteView payload)
{
    const size_t szBytes = m_vecBytes.size();
    const size_t szLengths = m_vecLengths.size();
    try {
        m_vecLengths.push_back(head.size() + payload.size());
        m_vecBytes.insert(m_vecBytes.end(), head.begin(), head.end());
        m_vecBytes.insert(m_vecBytes.end(), payload.begin(), payload.end());
        return true;
    } catch (const std::bad_alloc&) {
        m_vecLengths.resize(szLengths);
        m_vecBytes.resize(szBytes);
        return false;
    }
}

void CClientOut::SetHolding(bool bHolding)
{
    m_bHolding = bHolding;
    if (m_szHeld > 0)
        SendAll();
}

void CClientOut::Look()
{
    if (m_bWaiting)
        SendAll();
    if (m_Losses.CountDue() != TIME::max() && m_fnNow() >= m_Losses.CountDue())
        m_Losses.TellCount();
}

CClientOut::TIME CClientOut::NextLook() const
{
    return m_bWaiting && !m_bStalled ? std::min(m_Deadline, m_Losses.CountDue()) : m_Losses.CountDue();
}

/// In pieces: one large piece can overrun the receive buffer of a client with a small one, whose system then drops it
/// and gets it again after a wait that is longer than PATIENCE.
void CClientOut::SendAll()
{
    m_szHeld = 0;
    for (bool bHeadway = false; Count() > 0; bHeadway = true) {
        const ByteView piece = Slice(Unsent(), 0, SEND_AT_ONCE);
        const ssize_t lSent = RetryOnEintr([&] { return send(m_nSocket, piece.data(), piece.size(), SEND_FLAGS); });
        if (lSent < 0 && errno != EAGAIN) {
            OnFailed(errno);
            return;
        }
        Cut(static_cast<size_t>(std::max<ssize_t>(lSent, 0)));
        if (lSent < static_cast<ssize_t>(piece.size())) {
            OnBlocked(bHeadway || lSent > 0);
            return;
        }
    }
    m_bWaiting = false;
    m_bStalled = false;
}

/// Lets go of what the socket has taken.
void CClientOut::Cut(size_t szSent)
{
    m_szSent += szSent;
    while (Count() > 0 && m_szSent >= m_vecLengths[m_szFirst]) {
        const size_t szLen = m_vecLengths[m_szFirst++];
        m_szBegin += szLen;
        m_szSent -= szLen;
        m_szCost -= PACKET_COST + szLen;
    }
    Tidy();
}

/// Gives room back that isn't needed any more.
void CClientOut::Tidy()
{
    if (Count() == 0) {
        m_vecBytes.clear();
        m_vecLengths.clear();
        m_szBegin = m_szFirst = 0;
        if (m_vecBytes.capacity() > KEEP_BYTES)
            std::vector<unsigned char>().swap(m_vecBytes);
    } else if (m_szBegin > m_vecBytes.size() / 2) {
        m_vecBytes.erase(m_vecBytes.begin(), m_vecBytes.begin() + static_cast<ptrdiff_t>(m_szBegin));
        m_vecLengths.erase(m_vecLengths.begin(), m_vecLengths.begin() + static_cast<ptrdiff_t>(m_szFirst));
        m_szBegin = m_szFirst = 0;
    }
}

/// The socket takes no more for now.
void CClientOut::OnBlocked(bool bHeadway)
{
    const TIME now = m_fnNow();
    if (bHeadway || (!m_bStalled && !m_bWaiting)) {
        m_bStalled = false;
        m_Deadline = now + PATIENCE;
    } else if (m_bStalled || now >= m_Deadline) {
        m_bStalled = true;
        LoseUnsent(EAGAIN);
    }
    m_bWaiting = Count() > 0;
}

/// The connection is broken. The rest of a packet has nothing to wait for any more; should a send succeed again, it
/// goes first all the same.
void CClientOut::OnFailed(int iError)
{
    if (m_bWaiting && m_szSent > 0) {
        const size_t szTotal = m_vecLengths[m_szFirst];
        m_Losses.FrameFailed(m_fnNow(), szTotal - m_szSent, szTotal, iError);
    }
    LoseUnsent(iError);
    m_bWaiting = false;
}

/// Loses every packet that nothing was sent of.
void CClientOut::LoseUnsent(int iError)
{
    const TIME now = m_fnNow();
    const size_t szLast = m_szFirst + (m_szSent > 0 ? 1 : 0);
    for (size_t i = szLast; i < m_vecLengths.size(); ++i) {
        const size_t szLen = m_vecLengths[i];
        m_szCost -= PACKET_COST + szLen;
        if (iError == EAGAIN)
            m_Losses.FrameTimedOut(now);
        else
            m_Losses.FrameFailed(now, szLen, szLen, iError);
    }
    m_vecLengths.resize(szLast);
    m_vecBytes.resize(m_szBegin + (m_szSent > 0 ? m_vecLengths[m_szFirst] : 0));
    Tidy();
}
