#include "page/ModemTable.h"

#include "common/Record.h"
#include "tap/TapEvents.h"

#include <algorithm>
#include <utility>

namespace
{
bool IsReplayed(const TAP_RECORD& stRecord)
{
    return (stRecord.ucFlags & TAP_REPLAYED) != 0;
}

void CloseSecond(PAGE_MODEM& stModem, double dNow)
{
    std::array<PAGE_COUNT, PACKET_KINDS> astSum{};
    for (size_t szKind = 0; szKind < PACKET_KINDS; ++szKind)
        for (const PAGE_COUNT& stCount : stModem.astSecond[szKind]) {
            astSum[szKind].ullPackets += stCount.ullPackets;
            astSum[szKind].ullBytes += stCount.ullBytes;
        }
    stModem.stRates.seconds.push_back(astSum);
    if (stModem.stRates.seconds.size() > PAGE_RATES::SECONDS)
        stModem.stRates.seconds.pop_front();
    stModem.stRates.dTime = dNow;
    stModem.astClosed = std::exchange(stModem.astSecond, {});
}
} // namespace

PAGE_MODEM::STATE PAGE_MODEM::State() const
{
    STATE enState = STATE::GONE;
    for (const PAGE_CHANNEL& stChannel : astChannel)
        if (stChannel.bAttached)
            enState = std::max(enState, stChannel.bConfirmed ? STATE::CONFIRMED : STATE::ATTACHED);
    return enState;
}

const char* StateName(PAGE_MODEM::STATE enState)
{
    static constexpr std::array<const char*, 3> NAMES = {"gone", "attached", "confirmed"};
    return NAMES[static_cast<size_t>(enState)];
}

void CModemTable::EndRun(double dNow)
{
    for (auto& [ulUe, stModem] : m_mapModems) {
        if (stModem.State() != PAGE_MODEM::STATE::GONE)
            stModem.dSince = dNow;
        for (PAGE_CHANNEL& stChannel : stModem.astChannel) {
            stChannel.bAttached = stChannel.bConfirmed = false;
            stChannel.ulClient = 0;
        }
    }
    m_mapClients.clear();
}

bool CModemTable::TakeEvent(const TAP_RECORD& stRecord, ByteView bytes)
{
    switch (static_cast<TAP_EVENT>(LoadLe<uint32_t>(bytes, 0))) {
    case TAP_EVENT::CHANNEL:
        TakeChannel(stRecord, bytes);
        return false;
    case TAP_EVENT::UE:
        return TakeUe(stRecord, bytes);
    case TAP_EVENT::CLIENT:
        TakeClient(stRecord, bytes);
        return false;
    case TAP_EVENT::SINCE:
        TakeSince(stRecord, bytes);
        return false;
    case TAP_EVENT::LOG:
        return false;
    }
    return false;
}

void CModemTable::TakeChannel(const TAP_RECORD& stRecord, ByteView bytes)
{
    TAP_CHANNEL_EVENT stEvent;
    if (!DecodeRecord(bytes, stEvent) || stRecord.ucUe >= MAXUENUM || stRecord.ucChannel >= CHANNELNUM)
        return;
    const auto [place, bNew] = m_mapModems.try_emplace(stRecord.ucUe);
    PAGE_MODEM& stModem = place->second;
    stModem.ulUe = stRecord.ucUe;
    const PAGE_MODEM::STATE enBefore = stModem.State();
    PAGE_CHANNEL& stChannel = stModem.astChannel[stRecord.ucChannel];
    stChannel.bAttached = stEvent.ucAttached != 0;
    stChannel.bConfirmed = stEvent.ucConfirmed != 0;
    if (stChannel.bAttached) {
        stChannel.strName = stEvent.strName;
        stChannel.ulPort = stRecord.ulPort;
        stModem.strGroup = stEvent.strGroup;
    }
    Bind(stRecord, stChannel);
    if (bNew || stModem.State() != enBefore)
        stModem.dSince = PageTime(stRecord.ullTime);
}

/// Takes over which client the channel has.
void CModemTable::Bind(const TAP_RECORD& stRecord, PAGE_CHANNEL& stChannel)
{
    const uint32_t ulClient = stChannel.bAttached ? stRecord.ulClient : 0;
    if (ulClient == stChannel.ulClient)
        return;
    if (const auto before = m_mapClients.find(stChannel.ulClient); before != m_mapClients.end()) {
        before->second.ue.reset();
        before->second.port.reset();
    }
    stChannel.ulClient = ulClient;
    stChannel.dClientSince = PageTime(stRecord.ullTime);
    if (ulClient == 0)
        return;
    const auto [place, bNew] = m_mapClients.try_emplace(ulClient);
    PAGE_CLIENT& stClient = place->second;
    if (bNew) {
        stClient.ulNumber = ulClient;
        stClient.ucChannel = stRecord.ucChannel;
        stClient.dSince = PageTime(stRecord.ullTime);
    }
    stClient.ue = stRecord.ucUe;
    stClient.port = stRecord.ulPort;
}

bool CModemTable::TakeUe(const TAP_RECORD& stRecord, ByteView bytes)
{
    TAP_UE_EVENT stEvent;
    if (!DecodeRecord(bytes, stEvent) || stRecord.ucUe >= MAXUENUM)
        return false;
    PAGE_MODEM& stModem = m_mapModems[stRecord.ucUe];
    stModem.ulUe = stRecord.ucUe;
    const bool bOther = !stModem.strImei.empty() && !stEvent.strImei.empty() && stModem.strImei != stEvent.strImei;
    if (bOther) {
        stModem.stRates = {};
        stModem.astCount = {};
        stModem.ullLosses = stModem.ullWarnings = 0;
        stModem.dLast = 0;
    }
    stModem.strImei = stEvent.strImei;
    stModem.strVersion = stEvent.strVersion;
    return bOther;
}

void CModemTable::TakeClient(const TAP_RECORD& stRecord, ByteView bytes)
{
    TAP_CLIENT_EVENT stEvent;
    if (!DecodeRecord(bytes, stEvent) || stRecord.ulClient == 0 || stRecord.ucChannel >= CHANNELNUM)
        return;
    if (stEvent.ucConnected == 0) {
        Unbind(stRecord.ulClient);
        m_mapClients.erase(stRecord.ulClient);
        return;
    }
    const auto [place, bNew] = m_mapClients.try_emplace(stRecord.ulClient);
    PAGE_CLIENT& stClient = place->second;
    if (bNew) {
        stClient.dSince = PageTime(stRecord.ullTime);
        m_aullConnections[stRecord.ucChannel] += IsReplayed(stRecord) ? 0 : 1;
    }
    stClient.ulNumber = stRecord.ulClient;
    stClient.strAddress = stEvent.strAddress;
    stClient.ucChannel = stRecord.ucChannel;
}

/// A modem is in its state since the first of its channels is.
void CModemTable::TakeSince(const TAP_RECORD& stRecord, ByteView bytes)
{
    TAP_SINCE_EVENT stEvent;
    PAGE_MODEM* const pModem = Find(stRecord.ucUe);
    if (!DecodeRecord(bytes, stEvent) || pModem == nullptr || stRecord.ucChannel >= CHANNELNUM)
        return;
    PAGE_CHANNEL& stChannel = pModem->astChannel[stRecord.ucChannel];
    const bool bTells = stChannel.bConfirmed == (pModem->State() == PAGE_MODEM::STATE::CONFIRMED);
    if (bTells)
        pModem->dSince = std::min(pModem->dSince, PageTime(stEvent.ullState));
    const auto client = m_mapClients.find(stRecord.ulClient);
    if (client == m_mapClients.end() || stChannel.ulClient != stRecord.ulClient)
        return;
    stChannel.dClientSince = PageTime(stEvent.ullBound);
    client->second.dSince = PageTime(stEvent.ullConnected);
}

void CModemTable::Unbind(uint32_t ulClient)
{
    for (auto& [ulUe, stModem] : m_mapModems)
        for (PAGE_CHANNEL& stChannel : stModem.astChannel)
            if (stChannel.ulClient == ulClient)
                stChannel.ulClient = 0;
}

void CModemTable::CountPacket(const TAP_RECORD& stRecord, size_t szBytes)
{
    const size_t szKind = static_cast<size_t>(stRecord.enKind) - static_cast<size_t>(TAP_KIND::UE_TO_AGENT);
    PAGE_MODEM* const pModem = Find(stRecord.ucUe);
    if (pModem == nullptr || szKind >= PACKET_KINDS || stRecord.ucChannel >= CHANNELNUM)
        return;
    for (PAGE_COUNT* const pCount :
         {&pModem->astCount[szKind][stRecord.ucChannel], &pModem->astSecond[szKind][stRecord.ucChannel]}) {
        ++pCount->ullPackets;
        pCount->ullBytes += szBytes;
    }
    if (stRecord.enKind == TAP_KIND::UE_TO_AGENT)
        pModem->dLast = PageTime(stRecord.ullTime);
}

std::vector<unsigned int> CModemTable::OnSecond(double dNow)
{
    std::vector<unsigned int> forgotten;
    for (auto& [ulUe, stModem] : m_mapModems)
        if (stModem.State() == PAGE_MODEM::STATE::GONE && stModem.dSince < dNow - GONE_MS)
            forgotten.push_back(ulUe);
    for (const unsigned int ulUe : forgotten)
        m_mapModems.erase(ulUe);
    for (auto& [ulUe, stModem] : m_mapModems)
        CloseSecond(stModem, dNow);
    return forgotten;
}

PAGE_MODEM* CModemTable::Find(unsigned int ulUe)
{
    const auto found = m_mapModems.find(ulUe);
    return found == m_mapModems.end() ? nullptr : &found->second;
}

const PAGE_MODEM* CModemTable::Find(unsigned int ulUe) const
{
    const auto found = m_mapModems.find(ulUe);
    return found == m_mapModems.end() ? nullptr : &found->second;
}

const PAGE_CLIENT* CModemTable::FindClient(uint32_t ulClient) const
{
    const auto found = m_mapClients.find(ulClient);
    return found == m_mapClients.end() ? nullptr : &found->second;
}

std::optional<unsigned int> CModemTable::OnlyBoundUe(uint8_t ucChannel) const
{
    std::optional<unsigned int> only;
    for (const auto& [ulUe, stModem] : m_mapModems) {
        if (ucChannel >= CHANNELNUM || stModem.astChannel[ucChannel].ulClient == 0)
            continue;
        if (only)
            return std::nullopt;
        only = ulUe;
    }
    return only;
}

std::optional<unsigned int> CModemTable::UeOfPort(uint32_t ulPort) const
{
    for (const auto& [ulUe, stModem] : m_mapModems)
        for (const PAGE_CHANNEL& stChannel : stModem.astChannel)
            if (stChannel.bAttached && stChannel.ulPort == ulPort)
                return ulUe;
    return std::nullopt;
}
