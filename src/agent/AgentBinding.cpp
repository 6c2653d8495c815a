#include "agent/Agent.h"

#include "agent/Client.h"
#include "common/Debug.h"
#include "data/gu/OperationGUData.h"

#include <algorithm>

// The table of channels and who is bound to them. A client owns one row at most, in the column of its own channel
// type. Rows change under m_BindMutex and m_RowMutex together, so a thread may read them under either. Here every
// access takes m_RowMutex, for a moment only, and works on a copy where something is sent or called.

bool CAgent::BindUE(CClient* pClient, int nUeIdx)
{
    if (!pClient)
        return false;
    const auto ulUeIdx = static_cast<unsigned int>(nUeIdx);
    const enChannelType enType = pClient->GetClientType();
    const SERIALCHANNELINFO stRow = Row(ulUeIdx, enType);
    if (!stRow.IsBindable())
        return false;
    SetRowClient(ulUeIdx, enType, pClient);
    const auto ulPort = static_cast<unsigned int>(stRow.nPort);
    SendClientConnectInfo({ulPort, static_cast<uint32_t>(enType), pClient->GetAddressText()});
    CDebug::Instance()->PrintInfo("%s binded to %d", strChannelType[static_cast<size_t>(enType)], stRow.nPort);
    SendUEStatus2Client(enType, pClient, static_cast<unsigned char>(nUeIdx));
    pClient->SetBindUePort(ulPort);
    return true;
}

bool CAgent::BindCOM(CClient* pClient, unsigned int ulPort)
{
    UnBindUE(pClient); // also when the bind fails
    for (unsigned int i = 0; i < MAXUENUM; ++i)
        for (const enChannelType enChannel : ALL_CHANNELS) {
            const SERIALCHANNELINFO stRow = Row(i, enChannel);
            if (stRow.bConfirmed && static_cast<unsigned int>(stRow.nPort) == ulPort)
                return BindUE(pClient, static_cast<int>(i));
        }
    return false;
}

bool CAgent::UnBindUE(CClient* pClient)
{
    const ROW_PLACE stPlace = FindClient(pClient);
    if (stPlace.nUeIdx < 0)
        return true;
    const auto ulUeIdx = static_cast<unsigned int>(stPlace.nUeIdx);
    SendClientDisconnectInfo({static_cast<uint32_t>(Row(ulUeIdx, stPlace.enChannel).nPort),
                              static_cast<uint32_t>(pClient->GetClientType())});
    SetRowClient(ulUeIdx, stPlace.enChannel, nullptr);
    return true;
}

void CAgent::DefaultBindClient(CClient* pClient)
{
    const auto isSameType = [&](const auto& pOther) { return pOther->GetClientType() == pClient->GetClientType(); };
    {
        const xtl::MutexGuard guard(m_ClientListMutex);
        if (std::ranges::any_of(m_vecClients, isSameType))
            return; // only the first client of a type is bound by itself
    }
    for (int i = 0; i < static_cast<int>(MAXUENUM); ++i)
        if (IsChannelOK(i, CHANNEL_LTE_DIAG)) { // whatever the client's type
            UnBindUE(pClient);
            BindUE(pClient, i);
            return;
        }
}

int CAgent::GetBindedUE(CClient* pClient)
{
    int nUeIdx = -1;
    const xtl::MutexGuard guard(m_RowMutex);
    for (size_t i = 0; i < MAXUENUM; ++i)
        for (const SERIALCHANNELINFO& stRow : m_astChannelInfo[i])
            if (pClient && stRow.pClient == pClient)
                nUeIdx = static_cast<int>(i); // the last one counts
    return nUeIdx;
}

CClient* CAgent::GetBindedClient(int nUeIdx, enChannelType enChannel)
{
    if (!IsRow(static_cast<unsigned int>(nUeIdx), enChannel))
        return nullptr;
    const xtl::MutexGuard guard(m_RowMutex);
    return m_astChannelInfo[static_cast<size_t>(nUeIdx)][static_cast<size_t>(enChannel)].pClient;
}

std::shared_ptr<CClient> CAgent::GetGUDataClient(unsigned char ucUeIdx, unsigned char ucChannel)
{
    if (!IsRow(ucUeIdx, static_cast<enChannelType>(ucChannel)))
        return nullptr;
    const xtl::MutexGuard guard(m_RowMutex);
    CClient* const pClient = m_astChannelInfo[ucUeIdx][ucChannel].pClient;
    return pClient ? pClient->shared_from_this() : nullptr;
}

COperationGUData* CAgent::GetOperationGUFromClient(CClient* pClient)
{
    const int nUeIdx = FindClient(pClient).nUeIdx;
    return nUeIdx < 0 ? nullptr : m_apOperationGU[static_cast<size_t>(nUeIdx)].get();
}

bool CAgent::IsChannelOK(int nUeIdx, enChannelType enChannel)
{
    if (!IsRow(static_cast<unsigned int>(nUeIdx), enChannel))
        return false;
    const xtl::MutexGuard guard(m_RowMutex);
    const auto& stRow = m_astChannelInfo[static_cast<size_t>(nUeIdx)][static_cast<size_t>(enChannel)];
    return stRow.bAttached && stRow.bConfirmed;
}

std::vector<unsigned char> CAgent::GetChannelsInfo()
{
    std::vector<unsigned char> ack(CHANNEL_QUERY_ACK_SIZE);
    CByteWriter writer(ack);
    for (unsigned int i = 0; i < MAXUENUM; ++i)
        for (const enChannelType enChannel : ALL_CHANNELS) {
            const SERAIL_CHANNEL_STATUS stStatus = PutChannelInfo2Ack(Row(i, enChannel));
            SERAIL_CHANNEL_STATUS::Fields(writer, stStatus);
        }
    return ack;
}

SERAIL_CHANNEL_STATUS CAgent::PutChannelInfo2Ack(const SERIALCHANNELINFO& stInfo)
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

void CAgent::SetConfirmed(unsigned int ulUeIdx, bool bConfirmed)
{
    if (ulUeIdx >= MAXUENUM)
        return;
    const xtl::MutexGuard guard(m_BindMutex);
    const xtl::MutexGuard rowGuard(m_RowMutex);
    for (SERIALCHANNELINFO& stRow : m_astChannelInfo[ulUeIdx])
        stRow.bConfirmed = bConfirmed;
}

bool CAgent::IsRow(unsigned int ulUeIdx, enChannelType enChannel)
{
    return ulUeIdx < MAXUENUM && static_cast<unsigned int>(enChannel) < CHANNELNUM;
}

CAgent::SERIALCHANNELINFO CAgent::Row(unsigned int ulUeIdx, enChannelType enChannel)
{
    if (!IsRow(ulUeIdx, enChannel))
        return {};
    const xtl::MutexGuard guard(m_RowMutex);
    return m_astChannelInfo[ulUeIdx][static_cast<size_t>(enChannel)];
}

CAgent::ROW_PLACE CAgent::FindClient(const CClient* pClient)
{
    if (!pClient)
        return {};
    const xtl::MutexGuard guard(m_RowMutex);
    for (size_t i = 0; i < MAXUENUM; ++i)
        for (const SERIALCHANNELINFO& stRow : m_astChannelInfo[i])
            if (stRow.pClient == pClient)
                return {static_cast<int>(i), stRow.enChannel};
    return {};
}

void CAgent::SetRowClient(unsigned int ulUeIdx, enChannelType enChannel, CClient* pClient)
{
    const xtl::MutexGuard guard(m_RowMutex);
    m_astChannelInfo[ulUeIdx][static_cast<size_t>(enChannel)].pClient = pClient;
}
