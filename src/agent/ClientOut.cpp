#include "agent/ClientOut.h"

#include "common/Wait.h"

#include <algorithm>
#include <array>
#include <sys/socket.h>
#include <sys/uio.h>

namespace
{
constexpr size_t SEND_AT_ONCE = 64;  // packets of one call
constexpr size_t KEEP_CAPACITY = 64; // packets that there is room for when none is there
constexpr int SEND_FLAGS = MSG_NOSIGNAL | MSG_DONTWAIT;
} // namespace

void CClientOut::Add(CPacket packet)
{
    const size_t szLen = packet.size();
    if (m_nSocket < 0 || szLen == 0)
        return;
    if ((m_bHolding && m_szHeld + szLen > HOLD_MAX) || IsFull(szLen))
        SendAll();
    if (IsFull(szLen)) {
        m_Losses.FrameTimedOut(m_fnNow());
        return;
    }
    m_vecPackets.push_back(std::move(packet));
    m_szCost += PACKET_COST + szLen;
    m_szHeld += szLen;
    if (!m_bHolding || szLen > HOLD_MAX)
        SendAll();
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

void CClientOut::SendAll()
{
    m_szHeld = 0;
    for (bool bHeadway = false; Count() > 0; bHeadway = true) {
        size_t szOffered = 0;
        const ssize_t lSent = SendSome(szOffered);
        if (lSent < 0 && errno != EAGAIN) {
            OnFailed(errno);
            return;
        }
        Cut(static_cast<size_t>(std::max<ssize_t>(lSent, 0)));
        if (lSent < static_cast<ssize_t>(szOffered)) {
            OnBlocked(bHeadway || lSent > 0);
            return;
        }
    }
    m_bWaiting = false;
    m_bStalled = false;
}

/// One call for the first packets.
ssize_t CClientOut::SendSome(size_t& szOffered)
{
    std::array<iovec, SEND_AT_ONCE> astPart;
    const size_t szParts = std::min(Count(), astPart.size());
    size_t szSkip = m_szSent;
    for (size_t i = 0; i < szParts; ++i) {
        const ByteSpan bytes = m_vecPackets[m_szFirst + i].Bytes().subspan(std::exchange(szSkip, 0));
        astPart[i] = {bytes.data(), bytes.size()};
        szOffered += bytes.size();
    }
    if (szParts == 1) // the cheaper call
        return RetryOnEintr([&] { return send(m_nSocket, astPart[0].iov_base, astPart[0].iov_len, SEND_FLAGS); });
    msghdr stMsg{};
    stMsg.msg_iov = astPart.data();
    stMsg.msg_iovlen = szParts;
    return RetryOnEintr([&] { return sendmsg(m_nSocket, &stMsg, SEND_FLAGS); });
}

/// Lets go of what the socket has taken.
void CClientOut::Cut(size_t szSent)
{
    m_szSent += szSent;
    while (Count() > 0 && m_szSent >= m_vecPackets[m_szFirst].size()) {
        CPacket& packet = m_vecPackets[m_szFirst++];
        m_szSent -= packet.size();
        m_szCost -= PACKET_COST + packet.size();
        packet = {};
    }
    Tidy();
}

/// Gives room back that isn't needed any more.
void CClientOut::Tidy()
{
    if (Count() == 0) {
        m_vecPackets.clear();
        m_szFirst = 0;
        if (m_vecPackets.capacity() > KEEP_CAPACITY)
            std::vector<CPacket>().swap(m_vecPackets);
    } else if (m_szFirst > KEEP_CAPACITY && m_szFirst > Count()) {
        m_vecPackets.erase(m_vecPackets.begin(), m_vecPackets.begin() + static_cast<ptrdiff_t>(m_szFirst));
        m_szFirst = 0;
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
        const size_t szTotal = m_vecPackets[m_szFirst].size();
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
    for (size_t i = szLast; i < m_vecPackets.size(); ++i) {
        const size_t szLen = m_vecPackets[i].size();
        m_szCost -= PACKET_COST + szLen;
        if (iError == EAGAIN)
            m_Losses.FrameTimedOut(now);
        else
            m_Losses.FrameFailed(now, szLen, szLen, iError);
    }
    m_vecPackets.resize(szLast);
    Tidy();
}
