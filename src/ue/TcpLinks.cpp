#include "ue/TcpLinks.h"

#include "common/Config.h"
#include "common/Debug.h"
#include "common/MsgBuf.h"
#include "ue/PortWorker.h"
#include "ue/TcpChannel.h"
#include "ue/UE.h"

#include <algorithm>
#include <iterator>

namespace
{
constexpr std::chrono::seconds LOOK_PERIOD(1);    // between two looks for links that their peer has closed
constexpr std::chrono::seconds CONNECT_PERIOD(5); // between two tries to connect links that are missing
constexpr std::chrono::seconds DROP_LIMIT(2);     // for the end of a wait that still has a closed link in it
} // namespace

void CTcpLinks::Attach(const std::string& ip)
{
    CDebug::Instance()->PrintInfo("Network attach, ip is %s", ip.c_str());
    const CConfig* pConfig = CConfig::Instance();
    if (pConfig == nullptr) {
        CDebug::Instance()->PrintError("create monitor port fail!");
        return;
    }
    const std::vector<PORT_INFO>& vecPort = *pConfig->GetMonitorPortInfo();
    if (vecPort.size() > SERIALNUM)
        CDebug::Instance()->PrintWarn("MonitorPort has %d rows, only the first %d are used",
                                      static_cast<int>(vecPort.size()), static_cast<int>(SERIALNUM));
    const xtl::MutexGuard guard(m_TableLock);
    m_strIp = ip;
    m_Worker.Post([this, ip, ullAttach = ++m_ullAttach] {
        if (CConfig::Instance()->GetRecovery())
            Drop();
        WaitForDropped();
        (void)ConnectAll(ip, ullAttach, false);
        PostAttachOf(ip, ullAttach);
        m_NextConnect = std::chrono::steady_clock::now() + CONNECT_PERIOD;
    });
    if (CConfig::Instance()->GetRecovery() && !std::exchange(m_bLooks, true))
        m_Worker.AddTick(LOOK_PERIOD, [this] { Look(); });
}

void CTcpLinks::ForgetUnused()
{
    std::erase_if(m_vecDropped, [](const auto& pLink) { return pLink.use_count() == 1; });
}

/// On the worker: until nobody uses a closed link any more. Till then a port that it was bound to is taken.
void CTcpLinks::WaitForDropped()
{
    const auto end = std::chrono::steady_clock::now() + DROP_LIMIT;
    do {
        const xtl::MutexGuard guard(m_TableLock);
        ForgetUnused();
        if (m_vecDropped.empty())
            return;
    } while (std::chrono::steady_clock::now() < end &&
             m_Worker.Rest(std::chrono::milliseconds(1), [] { return true; }));
}

/// Makes the links one after the other, as long as the attach is the latest. True when a TCP link came up.
bool CTcpLinks::ConnectAll(const std::string& ip, uint64_t ullAttach, bool bQuiet)
{
    const size_t szCount = std::min<size_t>(CConfig::Instance()->GetMonitorPortInfo()->size(), SERIALNUM);
    bool bUp = false;
    for (size_t i = 0; i < szCount; ++i) {
        auto pLink = Connect(i, ip, bQuiet);
        bUp = bUp || (pLink->IsTcp() && pLink->GetSocket() != -1);
        if (!Set(i, std::move(pLink), ullAttach))
            return false;
    }
    return bUp;
}

std::shared_ptr<TCPChannel> CTcpLinks::Connect(size_t szIndex, const std::string& ip, bool bQuiet)
{
    const PORT_INFO& stPort = (*CConfig::Instance()->GetMonitorPortInfo())[szIndex];
    return std::make_shared<TCPChannel>(ip, stPort.uiPort, stPort.uiIsTcp != 0, static_cast<enChannelType>(szIndex),
                                        bQuiet);
}

/// False, and the link is closed, when the attach isn't the latest any more.
bool CTcpLinks::Set(size_t szIndex, std::shared_ptr<TCPChannel> pLink, uint64_t ullAttach)
{
    {
        const xtl::MutexGuard guard(m_TableLock);
        if (ullAttach != m_ullAttach)
            return false;
        std::swap(m_apLink[szIndex], pLink);
    }
    if (pLink)
        pLink->Close(); // the one before
    CMsgBuf::Instance()->ReadWake(TCP_UE_INDEX).Wake();
    return true;
}

void CTcpLinks::PostAttachOf(const std::string& ip, uint64_t ullAttach)
{
    const xtl::MutexGuard guard(m_TableLock); // no detach comes in between
    if (ullAttach == m_ullAttach)
        PostAttach(TCP_UE_INDEX, CHANNEL_LTE_DIAG, 0, "", ip);
}

/// A network UE that closed a link has gone; it is tried again until it is back or detached. A link that could never
/// be made is tried again too.
void CTcpLinks::Look()
{
    xtl::MutexGuard guard(m_TableLock);
    const std::string strIp = m_strIp;
    const uint64_t ullAttach = m_ullAttach;
    const LINKS apLink = m_apLink;
    const bool bLost = std::ranges::any_of(apLink, [](const auto& pLink) { return pLink && pLink->IsPeerClosed(); });
    if (bLost)
        PostDetach(TCP_UE_INDEX, CHANNEL_LTE_DIAG);
    guard.Unlock();
    const auto now = std::chrono::steady_clock::now();
    if (bLost)
        Drop();
    else if (!strIp.empty() && now >= m_NextConnect)
        ConnectMissing(apLink, strIp, ullAttach);
    if (bLost || now >= m_NextConnect)
        m_NextConnect = now + CONNECT_PERIOD;
}

void CTcpLinks::ConnectMissing(const LINKS& apLink, const std::string& ip, uint64_t ullAttach)
{
    if (std::ranges::none_of(apLink, [](const auto& pLink) { return pLink != nullptr; })) {
        if (ConnectAll(ip, ullAttach, true))
            PostAttachOf(ip, ullAttach);
        else
            Drop();
        return;
    }
    for (size_t i = 0; i < apLink.size(); ++i) {
        if (!apLink[i] || !apLink[i]->IsTcp() || apLink[i]->GetSocket() != -1)
            continue;
        auto pLink = Connect(i, ip, true);
        const bool bUp = pLink->GetSocket() != -1;
        if (bUp && Set(i, std::move(pLink), ullAttach) && i == SERIAL_TYPE_DIAG)
            PostAttachOf(ip, ullAttach); // the handshake is on this link
    }
}

void CTcpLinks::Detach()
{
    {
        const xtl::MutexGuard guard(m_TableLock);
        ++m_ullAttach;
        m_strIp.clear();
        PostDetach(TCP_UE_INDEX, CHANNEL_LTE_DIAG);
    }
    Drop();
}

void CTcpLinks::Drop()
{
    LINKS apLink;
    {
        const xtl::MutexGuard guard(m_TableLock);
        std::swap(apLink, m_apLink);
        ForgetUnused();
        std::ranges::copy_if(apLink, std::back_inserter(m_vecDropped),
                             [](const auto& pLink) { return pLink != nullptr; });
    }
    for (const auto& pLink : apLink)
        if (pLink)
            pLink->Close();
    CMsgBuf::Instance()->ReadWake(TCP_UE_INDEX).Wake();
    CMsgBuf::Instance()->WriteWake().Wake();
}

std::shared_ptr<TCPChannel> CTcpLinks::Get(enSerialType i) const
{
    const auto szIndex = static_cast<size_t>(i);
    return szIndex < SERIALNUM ? Table()[szIndex] : nullptr;
}

CTcpLinks::LINKS CTcpLinks::Table() const
{
    const xtl::MutexGuard guard(m_TableLock);
    return m_apLink;
}
