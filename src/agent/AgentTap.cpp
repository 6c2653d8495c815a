#include "agent/AgentTap.h"

#include "agent/Bindings.h"
#include "agent/Client.h"
#include "common/Config.h"
#include "common/Debug.h"
#include "common/NoMemory.h"
#include "common/Record.h"
#include "common/Thread.h"
#include "tap/Tap.h"
#include "tap/TapEvents.h"

#include <filesystem>
#include <unistd.h>

namespace
{
constexpr int END_LIMIT_MS = 20'000;

void* Tap_Thread(void* pTap)
{
    if (pTap != nullptr)
        static_cast<CAgentTap*>(pTap)->TapFun();
    return nullptr;
}

TAP_RECORD RecordOf(TAP_KIND enKind, UE_INDEX ulUeIdx, enChannelType enChannel)
{
    TAP_RECORD stRecord;
    stRecord.enKind = enKind;
    stRecord.ucUe = ulUeIdx < MAXUENUM ? static_cast<uint8_t>(ulUeIdx) : TAP_NO_UE;
    stRecord.ucChannel = static_cast<uint8_t>(enChannel);
    return stRecord;
}

TAP_RECORD RecordOf(TAP_KIND enKind, const CClient& client)
{
    TAP_RECORD stRecord = RecordOf(enKind, client.BoundUe(), client.GetClientType());
    stRecord.ulPort = client.BoundUe() == UE_NONE ? 0 : client.BoundPort();
    stRecord.ulClient = client.Number();
    return stRecord;
}

TAP_RECORD RecordOf(UE_INDEX ulUeIdx, const SERIALCHANNELINFO& stRow, uint8_t ucFlags)
{
    TAP_RECORD stRecord = RecordOf(TAP_KIND::PORT_EVENT, ulUeIdx, stRow.enChannel);
    stRecord.ucFlags = ucFlags;
    stRecord.ulPort = static_cast<uint32_t>(std::max(stRow.nPort, 0));
    stRecord.ulClient = stRow.pClient ? stRow.pClient->Number() : 0;
    return stRecord;
}

void WriteChannel(CTapWriter& writer, UE_INDEX ulUeIdx, const SERIALCHANNELINFO& stRow, uint8_t ucFlags)
{
    TAP_CHANNEL_EVENT stEvent;
    stEvent.ucAttached = stRow.bAttached ? 1 : 0;
    stEvent.ucConfirmed = stRow.bConfirmed ? 1 : 0;
    stEvent.strName = stRow.strSerialName;
    stEvent.strGroup = stRow.strGroupId;
    writer.Write(RecordOf(ulUeIdx, stRow, ucFlags), EncodeRecord(stEvent));
}

void WriteUe(CTapWriter& writer, CBindings& bindings, UE_INDEX ulUeIdx, uint8_t ucFlags)
{
    TAP_RECORD stRecord = RecordOf(TAP_KIND::PORT_EVENT, ulUeIdx, CHANNEL_LTE_DIAG);
    stRecord.ucFlags = ucFlags;
    const UEConnect stInfo = bindings.UeInfo(ulUeIdx);
    TAP_UE_EVENT stEvent;
    stEvent.strImei = stInfo.szImei;
    stEvent.strVersion = stInfo.szVersion;
    writer.Write(stRecord, EncodeRecord(stEvent));
}

void WriteClient(CTapWriter& writer, const CClient& client, bool bConnected, uint8_t ucFlags)
{
    TAP_RECORD stRecord = RecordOf(TAP_KIND::PORT_EVENT, client);
    stRecord.ucFlags = ucFlags;
    TAP_CLIENT_EVENT stEvent;
    stEvent.ucConnected = bConnected ? 1 : 0;
    stEvent.strAddress = client.GetAddressText();
    writer.Write(stRecord, EncodeRecord(stEvent));
}

/// What an observer that was there before knows by the records' times.
void WriteSince(CTapWriter& writer, UE_INDEX ulUeIdx, const SERIALCHANNELINFO& stRow)
{
    TAP_SINCE_EVENT stEvent;
    stEvent.ullState = stRow.ullStateSince;
    if (stRow.pClient) {
        stEvent.ullBound = stRow.ullClientSince;
        stEvent.ullConnected = stRow.pClient->ConnectedSince();
    }
    writer.Write(RecordOf(ulUeIdx, stRow, TAP_REPLAYED), EncodeRecord(stEvent));
}

void WriteLog(CTapWriter& writer)
{
    const std::string& strFile = CDebug::Instance()->FileName();
    if (strFile.empty())
        return;
    TAP_LOG_EVENT stEvent;
    std::error_code error; // leaves the path empty
    stEvent.strFile = std::filesystem::absolute(strFile, error).string();
    TAP_RECORD stRecord;
    stRecord.ucFlags = TAP_REPLAYED;
    writer.Write(stRecord, EncodeRecord(stEvent));
}
} // namespace

CAgentTap::~CAgentTap()
{
    m_bRun = false;
    (void)wait_thread(m_hThread, END_LIMIT_MS);
    CMsgBuf::Instance()->SetToUeObserver(nullptr);
    SetTap(nullptr);
}

void CAgentTap::Start()
{
    const CConfig* const pConfig = CConfig::Instance();
    const std::string strPath = pConfig->GetTapSocket();
    if (strPath.empty() || m_bRun)
        return;
    std::string strError;
    m_pServer = CTapServer::Open(
        strPath, pConfig->GetTapBytes(), [this](CTapWriter& writer) { return WritePicture(writer); }, strError);
    if (!m_pServer) {
        CDebug::Instance()->PrintError("Tap %s", strError.c_str());
        return;
    }
    m_bRun = true;
    m_hThread = start_thread(0, Tap_Thread, this);
    if (m_hThread == -1) {
        CDebug::Instance()->PrintError("Tap Thread Create Fail!");
        m_bRun = false;
        m_pServer.reset();
        return;
    }
    SetTap(&m_pServer->Writer());
    CMsgBuf::Instance()->SetToUeObserver(this);
    CDebug::Instance()->PrintInfo("Tap listens on %s", strPath.c_str());
}

void CAgentTap::Stop()
{
    if (m_bRun.exchange(false))
        (void)unlink(CConfig::Instance()->GetTapSocket());
}

void CAgentTap::TapFun()
{
    while (m_bRun)
        if (!DropOnNoMemory("an observer of the tap", [&] { m_pServer->Pass(); }))
            sleep(1); // what is short now is most likely short on the next pass
}

/// With the bindings held as they are, so that no change of them is missed or told twice.
CTapWriter::PLACE CAgentTap::WritePicture(CTapWriter& writer)
{
    TAP_RECORD stConfig;
    stConfig.enKind = TAP_KIND::CONFIGURATION;
    stConfig.ucFlags = TAP_REPLAYED;
    const CTapWriter::PLACE stPlace = writer.Write(stConfig, AsBytes(CConfig::Instance()->GetText()));
    WriteLog(writer);
    const xtl::MutexGuard guard(m_bindings.Mutex());
    for (UE_INDEX ulUeIdx = 0; ulUeIdx < MAXUENUM; ++ulUeIdx) {
        for (const enChannelType enChannel : ALL_CHANNELS)
            if (const SERIALCHANNELINFO stRow = m_table.Row(ulUeIdx, enChannel); stRow.bAttached) {
                WriteChannel(writer, ulUeIdx, stRow, TAP_REPLAYED);
                if (stRow.pClient)
                    WriteClient(writer, *stRow.pClient, true, TAP_REPLAYED);
                WriteSince(writer, ulUeIdx, stRow);
            }
        if (m_table.Row(ulUeIdx, CHANNEL_LTE_DIAG).bConfirmed)
            WriteUe(writer, m_bindings, ulUeIdx, TAP_REPLAYED);
    }
    return stPlace;
}

void CAgentTap::OnPacketToUe(UE_INDEX ulUeIdx, enChannelType enChannel, ByteView packet)
{
    CTapWriter* const pTap = ObservedTap();
    if (pTap == nullptr)
        return;
    TAP_RECORD stRecord = RecordOf(TAP_KIND::AGENT_TO_UE, ulUeIdx, enChannel);
    stRecord.ulPort = m_table.PortNumber(ulUeIdx, enChannel);
    pTap->Write(stRecord, packet);
}

void TapFromUe(const CChannelTable& table, std::span<const MSG_AGENT> run)
{
    CTapWriter* const pTap = ObservedTap();
    const MSG_AGENT& stFirst = run.front();
    const CHANNEL_ROW* const pRow = pTap == nullptr ? nullptr : RowOf(stFirst.enChannel);
    if (pRow == nullptr || ChannelsOf(pRow->enPort).front().enChannel != stFirst.enChannel)
        return;
    TAP_RECORD stRecord = RecordOf(TAP_KIND::UE_TO_AGENT, stFirst.ulUeIdx, stFirst.enChannel);
    stRecord.ulPort = table.PortNumber(stFirst.ulUeIdx, stFirst.enChannel);
    pTap->WriteRun(stRecord, run, [](const MSG_AGENT& stMsg) { return ByteView(stMsg.packet.Bytes()); });
}

void TapFromClient(const CClient& client, ByteView request, bool bText)
{
    CTapWriter* const pTap = ObservedTap();
    if (pTap == nullptr)
        return;
    TAP_RECORD stRecord = RecordOf(TAP_KIND::CLIENT_TO_AGENT, client);
    stRecord.ucFlags = bText ? TAP_TEXT : 0;
    pTap->Write(stRecord, request);
}

void TapToClient(const CClient& client, ByteView head, ByteView payload)
{
    if (CTapWriter* const pTap = ObservedTap())
        pTap->Write(RecordOf(TAP_KIND::AGENT_TO_CLIENT, client), Slice(head, LEAD_LEN), payload);
}

void TapStatus(ByteView datagram)
{
    CTapWriter* const pTap = ObservedTap();
    if (pTap == nullptr)
        return;
    TAP_RECORD stRecord;
    stRecord.enKind = TAP_KIND::STATUS;
    pTap->Write(stRecord, datagram);
}

void TapChannel(UE_INDEX ulUeIdx, const SERIALCHANNELINFO& stRow)
{
    if (CTapWriter* const pTap = ObservedTap())
        WriteChannel(*pTap, ulUeIdx, stRow, 0);
}

void TapUe(CBindings& bindings, UE_INDEX ulUeIdx)
{
    if (CTapWriter* const pTap = ObservedTap())
        WriteUe(*pTap, bindings, ulUeIdx, 0);
}

void TapClient(const CClient& client, bool bConnected)
{
    if (CTapWriter* const pTap = ObservedTap())
        WriteClient(*pTap, client, bConnected, 0);
}
