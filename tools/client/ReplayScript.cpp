#include "client/ReplayScript.h"

#include "capture/PcapngReader.h"
#include "common/Record.h"
#include "data/DiagPacket.h"
#include "tap/TapEvents.h"

using KIND = REPLAY_ACT::KIND;

bool CReplayScript::Load(const std::string& strPath, std::string& strError)
{
    const auto add = [this](const CAPTURED_RECORD& stRecord) { Add(stRecord); };
    if (ReadCaptureFile(strPath, add, strError) != CPcapngReader::RESULT::BAD && m_clients.empty())
        strError = strPath + ": no client in this capture";
    return strError.empty();
}

void CReplayScript::Add(const CAPTURED_RECORD& stRecord)
{
    const TAP_RECORD& stHead = stRecord.stRecord;
    m_start = m_start.value_or(stHead.ullTime);
    m_ullLost += stRecord.ullLost;
    if (stHead.ulClient == 0 || stHead.ucChannel >= CHANNELNUM)
        return;
    std::vector<unsigned char> bytes(stRecord.bytes.begin(), stRecord.bytes.end());
    if (stHead.enKind == TAP_KIND::PORT_EVENT) {
        OnEvent(stHead, stRecord.bytes);
    } else if (stHead.enKind == TAP_KIND::CLIENT_TO_AGENT) {
        if ((stHead.ucFlags & TAP_TEXT) == 0)
            bytes.insert(bytes.begin(), LEAD_LEN, LEAD_BYTE);
        Act(KIND::SEND, ClientOf(stHead), stHead.ullTime, std::move(bytes));
    } else if (stHead.enKind == TAP_KIND::AGENT_TO_CLIENT) {
        const size_t szClient = ClientOf(stHead);
        m_clients[szClient].answers.push_back(std::move(bytes));
        Act(KIND::AWAIT, szClient, stHead.ullTime);
    }
}

/// The picture of what was names the clients that were there.
void CReplayScript::OnEvent(const TAP_RECORD& stHead, ByteView bytes)
{
    TAP_CLIENT_EVENT stEvent;
    if (LoadLe<uint32_t>(bytes, 0) != stEvent.ulEvent) {
        if ((stHead.ucFlags & TAP_REPLAYED) != 0)
            (void)ClientOf(stHead);
        return;
    }
    if (!DecodeRecord(bytes, stEvent))
        return;
    if (stEvent.ucConnected == 0) {
        Act(KIND::CLOSE, ClientOf(stHead), stHead.ullTime);
        return;
    }
    if (m_mapClients.contains(stHead.ulClient))
        return;
    m_mapClients[stHead.ulClient] = m_clients.size();
    m_clients.push_back({stHead.ulClient, static_cast<enChannelType>(stHead.ucChannel)});
    Act(KIND::CONNECT, m_clients.size() - 1, stHead.ullTime);
}

size_t CReplayScript::ClientOf(const TAP_RECORD& stHead)
{
    const auto [pClient, bNew] = m_mapClients.try_emplace(stHead.ulClient, m_clients.size());
    if (bNew) {
        m_clients.push_back({stHead.ulClient, static_cast<enChannelType>(stHead.ucChannel)});
        if (stHead.ucUe < MAXUENUM)
            m_clients.back().bindPort = stHead.ulPort;
        Act(KIND::CONNECT, pClient->second, stHead.ullTime);
    }
    return pClient->second;
}

void CReplayScript::Act(KIND enKind, size_t szClient, uint64_t ullTime, std::vector<unsigned char> bytes)
{
    const uint64_t ullStart = m_start.value_or(ullTime);
    m_acts.push_back({enKind, szClient, ullTime - std::min(ullTime, ullStart), std::move(bytes)});
}
