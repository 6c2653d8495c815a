#include "hotplug/Delivery.h"

#include "common/Wait.h"

#include <cerrno>
#include <cstring>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

void CDelivery::Start(const sockaddr_in& stAgent, const DEVICE_MONITOR_INFO_STRU& stRecord, TIME now)
{
    m_aucRecord = EncodeDeviceRecord(stRecord);
    m_bUnderWay = true;
    m_szSent = 0;
    m_end = now + TIME_LIMIT;
    m_fd.Reset(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    m_iStartError = 0;
    if (!m_fd.IsOpen() || connect(m_fd.Get(), reinterpret_cast<const sockaddr*>(&stAgent), sizeof(stAgent)) != 0)
        m_iStartError = errno == EINPROGRESS ? 0 : errno;
}

void CDelivery::Drop()
{
    m_fd.Reset();
    m_bUnderWay = false;
}

pollfd CDelivery::PollFd() const
{
    return {m_fd.Get(), static_cast<short>(m_szSent < m_aucRecord.size() ? POLLOUT : POLLIN), 0};
}

CDelivery::STATE CDelivery::Advance(TIME now)
{
    const STATE enState = m_iStartError != 0 ? Fail(std::strerror(m_iStartError)) : Progress();
    if (enState == STATE::UNDER_WAY && now >= m_end)
        return Fail("the agent doesn't take the record");
    return enState;
}

CDelivery::STATE CDelivery::Progress()
{
    while (m_szSent < m_aucRecord.size()) {
        const ByteView rest = ByteView(m_aucRecord).subspan(m_szSent);
        const ssize_t lSent = RetryOnEintr([&] { return send(m_fd.Get(), rest.data(), rest.size(), MSG_NOSIGNAL); });
        if (lSent < 0) // EAGAIN while it connects, too
            return errno == EAGAIN ? STATE::UNDER_WAY : Fail(std::strerror(errno));
        m_szSent += static_cast<size_t>(lSent);
    }
    unsigned char ucAnswer = 0;
    const ssize_t lRead = RetryOnEintr([&] { return recv(m_fd.Get(), &ucAnswer, sizeof(ucAnswer), 0); });
    if (lRead > 0)
        return Fail("what listens there is no agent");
    if (lRead < 0)
        return errno == EAGAIN ? STATE::UNDER_WAY : Fail(std::strerror(errno));
    return OnClosed();
}

/// The peer has closed. It may have done so without reading: then bytes are left that it never acknowledged, or the
/// connection was reset.
CDelivery::STATE CDelivery::OnClosed()
{
    int nLeft = 0;
    const bool bTaken = ioctl(m_fd.Get(), SIOCOUTQ, &nLeft) == 0 && nLeft == 0;
    if (!bTaken)
        return Fail("the agent closes the connection without the record; does AllowFrom let this address in?");
    Drop();
    return STATE::DELIVERED;
}

CDelivery::STATE CDelivery::Fail(const std::string& strError)
{
    m_strError = strError;
    Drop();
    return STATE::FAILED;
}
