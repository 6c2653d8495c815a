#include "agent/ChannelTable.h"

#include "agent/AgentTap.h"
#include "agent/Client.h"
#include "common/UnixTime.h"
#include "tap/Tap.h"

#include <utility>

CChannelTable::CChannelTable()
{
    for (auto& astUe : m_astChannelInfo)
        for (const enChannelType enChannel : ALL_CHANNELS)
            astUe[static_cast<size_t>(enChannel)].enChannel = enChannel;
}

bool CChannelTable::IsRow(UE_INDEX ulUeIdx, enChannelType enChannel)
{
    return ulUeIdx < MAXUENUM && static_cast<unsigned int>(enChannel) < CHANNELNUM;
}

SERIALCHANNELINFO CChannelTable::Row(UE_INDEX ulUeIdx, enChannelType enChannel) const
{
    if (!IsRow(ulUeIdx, enChannel))
        return {};
    const xtl::MutexGuard guard(m_RowMutex);
    return m_astChannelInfo[ulUeIdx][static_cast<size_t>(enChannel)];
}

CChannelTable::ROW_PLACE CChannelTable::FindClient(const IClientPort* pClient) const
{
    if (!pClient)
        return {};
    const xtl::MutexGuard guard(m_RowMutex);
    for (UE_INDEX i = 0; i < MAXUENUM; ++i)
        for (const SERIALCHANNELINFO& stRow : m_astChannelInfo[i])
            if (stRow.pClient == pClient)
                return {i, stRow.enChannel};
    return {};
}

UE_INDEX CChannelTable::GetBindedUE(const IClientPort* pClient) const
{
    UE_INDEX ulUeIdx = UE_NONE;
    const xtl::MutexGuard guard(m_RowMutex);
    for (UE_INDEX i = 0; i < MAXUENUM; ++i)
        for (const SERIALCHANNELINFO& stRow : m_astChannelInfo[i])
            if (pClient && stRow.pClient == pClient)
                ulUeIdx = i; // the last one counts
    return ulUeIdx;
}

CClient* CChannelTable::GetBindedClient(UE_INDEX ulUeIdx, enChannelType enChannel) const
{
    if (!IsRow(ulUeIdx, enChannel))
        return nullptr;
    const xtl::MutexGuard guard(m_RowMutex);
    return m_astChannelInfo[ulUeIdx][static_cast<size_t>(enChannel)].pClient;
}

std::shared_ptr<CClient> CChannelTable::GetGUDataClient(UE_INDEX ulUeIdx, enChannelType enChannel) const
{
    if (!IsRow(ulUeIdx, enChannel))
        return nullptr;
    const xtl::MutexGuard guard(m_RowMutex);
    CClient* const pClient = m_astChannelInfo[ulUeIdx][static_cast<size_t>(enChannel)].pClient;
    return pClient ? pClient->Hold() : nullptr;
}

bool CChannelTable::IsChannelOK(UE_INDEX ulUeIdx, enChannelType enChannel) const
{
    if (!IsRow(ulUeIdx, enChannel))
        return false;
    const xtl::MutexGuard guard(m_RowMutex);
    const auto& stRow = m_astChannelInfo[ulUeIdx][static_cast<size_t>(enChannel)];
    return stRow.bAttached && stRow.bConfirmed;
}

std::vector<unsigned char> CChannelTable::GetChannelsInfo() const
{
    std::vector<unsigned char> ack(CHANNEL_QUERY_ACK_SIZE);
    CByteWriter writer(ack);
    for (UE_INDEX i = 0; i < MAXUENUM; ++i)
        for (const enChannelType enChannel : ALL_CHANNELS) {
            const SERAIL_CHANNEL_STATUS stStatus = PutChannelInfo2Ack(Row(i, enChannel));
            SERAIL_CHANNEL_STATUS::Fields(writer, stStatus);
        }
    return ack;
}

SERAIL_CHANNEL_STATUS CChannelTable::PutChannelInfo2Ack(const SERIALCHANNELINFO& stInfo)
{
    SERAIL_CHANNEL_STATUS stStatus;
    stStatus.szSerialName = stInfo.strSerialName;
    if (stInfo.bConfirmed) {
        stStatus.ulPort = static_cast<uint32_t>(stInfo.nPort);
        stStatus.ulAttached = stInfo.bAttached;
        stStatus.ulBound = stInfo.pClient != nullptr;
    }
    return stStatus;
}

uint32_t CChannelTable::PortNumber(UE_INDEX ulUeIdx, enChannelType enChannel) const
{
    return IsRow(ulUeIdx, enChannel) ? m_aulPort[ulUeIdx][static_cast<size_t>(enChannel)].load() : 0;
}

/// The row as it is now.
void CChannelTable::ShowAtTap(UE_INDEX ulUeIdx, enChannelType enChannel) const
{
    if (ObservedTap() != nullptr)
        TapChannel(ulUeIdx, Row(ulUeIdx, enChannel));
}

void CChannelTable::Attach(UE_INDEX ulUeIdx, enChannelType enChannel, int nPort, const std::string& strSerialName,
                           const std::string& strGroupId)
{
    {
        const xtl::MutexGuard guard(m_RowMutex);
        SERIALCHANNELINFO& stRow = m_astChannelInfo[ulUeIdx][static_cast<size_t>(enChannel)];
        stRow.strSerialName = strSerialName;
        stRow.strGroupId = strGroupId;
        stRow.nPort = nPort;
        stRow.enChannel = enChannel;
        if (!std::exchange(stRow.bAttached, true))
            stRow.ullStateSince = UnixTimeNs();
        m_aulPort[ulUeIdx][static_cast<size_t>(enChannel)] = static_cast<uint32_t>(std::max(nPort, 0));
    }
    ShowAtTap(ulUeIdx, enChannel);
}

void CChannelTable::Free(UE_INDEX ulUeIdx, enChannelType enChannel)
{
    {
        const xtl::MutexGuard guard(m_RowMutex);
        SERIALCHANNELINFO& stRow = m_astChannelInfo[ulUeIdx][static_cast<size_t>(enChannel)];
        stRow = {};
        stRow.enChannel = enChannel;
        m_aulPort[ulUeIdx][static_cast<size_t>(enChannel)] = 0;
    }
    ShowAtTap(ulUeIdx, enChannel);
}

void CChannelTable::SetConfirmed(UE_INDEX ulUeIdx, bool bConfirmed)
{
    if (ulUeIdx >= MAXUENUM)
        return;
    {
        const xtl::MutexGuard guard(m_RowMutex);
        for (SERIALCHANNELINFO& stRow : m_astChannelInfo[ulUeIdx])
            if (std::exchange(stRow.bConfirmed, bConfirmed) != bConfirmed)
                stRow.ullStateSince = UnixTimeNs();
    }
    for (const enChannelType enChannel : ALL_CHANNELS)
        ShowAtTap(ulUeIdx, enChannel);
}

void CChannelTable::SetClient(UE_INDEX ulUeIdx, enChannelType enChannel, CClient* pClient)
{
    {
        const xtl::MutexGuard guard(m_RowMutex);
        SERIALCHANNELINFO& stRow = m_astChannelInfo[ulUeIdx][static_cast<size_t>(enChannel)];
        if (CClient* const pBefore = std::exchange(stRow.pClient, pClient))
            pBefore->SetBoundUe(UE_NONE);
        stRow.ullClientSince = UnixTimeNs();
    }
    if (pClient)
        pClient->SetBoundUe(ulUeIdx);
    ShowAtTap(ulUeIdx, enChannel);
}

void CChannelTable::ClearClients()
{
    const xtl::MutexGuard guard(m_RowMutex);
    for (auto& astUe : m_astChannelInfo)
        for (SERIALCHANNELINFO& stRow : astUe)
            stRow.pClient = nullptr;
}
