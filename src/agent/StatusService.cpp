#include "agent/StatusService.h"

#include "agent/Bindings.h"
#include "agent/Client.h"
#include "common/Config.h"
#include "common/Debug.h"
#include "common/ListenSocket.h"
#include "common/NoMemory.h"
#include "common/UniqueFd.h"
#include "common/Wait.h"
#include "ue/TcpChannel.h"
#include "ue/UEManager.h"

#include <chrono>
#include <optional>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

CStatusService::CStatusService(CStatusReporter& status, CBindings& bindings, const CChannelTable& table,
                               CUEManager& ueManager)
    : m_status(status), m_bindings(bindings), m_table(table), m_ueManager(ueManager)
{
}

void CStatusService::StatusMonitorFun()
{
    const int iInterval = CConfig::Instance()->GetStatusInfoReportInterval();
    while (m_bRun && iInterval > 0) {
        (void)DropOnNoMemory("a transfer report", [this] { SendTransferReport(); });
        std::this_thread::sleep_for(std::chrono::seconds(iInterval)); // whatever signals come
    }
}

void CStatusService::SendTransferReport()
{
    for (UE_INDEX i = 0; i < TCP_UE_INDEX; ++i)
        for (int j = 0; j < static_cast<int>(SERIALNUM); ++j) {
            CSerial* const pSerial = m_ueManager.GetUE(i)->GetSerial(static_cast<enSerialType>(j));
            if (pSerial->IsOpen())
                m_status.SendSerialTransferInfo(
                    {0, pSerial->GetPortNum(), pSerial->GetTotalBytesRead(), pSerial->GetTotalBytesWrite()});
        }
    for (size_t i = 0; i < SERIALNUM; ++i) {
        const auto enPort = static_cast<enSerialType>(i);
        if (const auto pLink = m_ueManager.GetTcp(enPort))
            m_status.SendSerialTransferInfo({static_cast<uint32_t>(ChannelsOf(enPort).front().enChannel), 0,
                                             pLink->GetTotalBytesRead(), pLink->GetTotalBytesWrite()});
    }
}

void CStatusService::StatusQueryFun()
{
    const CUniqueFd queryFd(socket(AF_INET, SOCK_DGRAM, 0));
    if (!queryFd.IsOpen()) {
        CDebug::Instance()->PrintError("StatusQuery socket create fail!");
        return;
    }
    sockaddr_in stAddr{};
    if (!ListenAddress(STATUS_QUERY_PORT, stAddr) ||
        bind(queryFd.Get(), reinterpret_cast<const sockaddr*>(&stAddr), sizeof(stAddr)) != 0) {
        CDebug::Instance()->PrintError("Status Query socket bind address fail!");
        return;
    }
    while (m_bRun) {
        std::array<unsigned char, STATUS_QUERY_MAX> aucQuery;
        sockaddr_in stPeer{};
        socklen_t ulPeerLen = sizeof(stPeer);
        const ssize_t lRead = RetryOnEintr([&] {
            return recvfrom(queryFd.Get(), aucQuery.data(), aucQuery.size(), 0, reinterpret_cast<sockaddr*>(&stPeer),
                            &ulPeerLen);
        });
        if (lRead < 0)
            sleep(1); // a broken socket must not keep a core busy
        if (lRead < 1 || aucQuery[0] != AGENT_STATUS_QUERY_CURRENT ||
            !CConfig::Instance()->IsPeerAllowed(ntohl(stPeer.sin_addr.s_addr)))
            continue;
        CDebug::Instance()->PrintInfo("Receive AGENT_STATUS_QUERY_CURRENT cmd");
        // To the monitor, whoever asked.
        (void)DropOnNoMemory("the answer to a status query", [this] { SendAgentCurrentStatus(); });
    }
}

void CStatusService::SendAgentCurrentStatus()
{
    m_status.SendAgentVer();
    for (UE_INDEX i = 0; i < MAXUENUM; ++i)
        for (const enChannelType enChannel : ALL_CHANNELS)
            SendRowStatus(i, enChannel);
}

/// The lock is held while the row is read, not while it is sent: a picture may mix states before and after a change.
void CStatusService::SendRowStatus(UE_INDEX ulUeIdx, enChannelType enChannel)
{
    xtl::MutexGuard guard(m_bindings.Mutex());
    const SERIALCHANNELINFO stRow = m_table.Row(ulUeIdx, enChannel);
    if (!stRow.bAttached)
        return;
    const auto ulPort = static_cast<uint32_t>(stRow.nPort);
    std::optional<UEConnect> stUe;
    if (enChannel == CHANNEL_LTE_DIAG && stRow.bConfirmed) {
        stUe = m_bindings.UeInfo(ulUeIdx);
        stUe->szGroupId = stRow.strGroupId;
    }
    std::optional<ClientConnect> stClient;
    if (stRow.pClient)
        stClient = {ulPort, static_cast<uint32_t>(stRow.pClient->GetClientType()), stRow.pClient->GetAddressText()};
    guard.Unlock();

    m_status.SendSerialConnectInfo({stRow.strGroupId, ulPort, static_cast<uint32_t>(enChannel)});
    if (stUe)
        m_status.SendUEConnectInfo(*stUe);
    if (stClient)
        m_status.SendClientConnectInfo(*stClient);
}
