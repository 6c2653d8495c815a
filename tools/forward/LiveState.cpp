#include "forward/LiveState.h"

#include "common/Record.h"
#include "tap/TapEvents.h"

namespace
{
constexpr size_t BLOCK_HEAD = 8;    // type and length
constexpr uint64_t NS_PER_TICK = 1; // of vex-capture's interfaces
} // namespace

void CLiveState::Begin(uint64_t ullSegment)
{
    const CSegmentLedger::SEGMENT* const pSegment = m_ledger.Find(ullSegment);
    std::string strError;
    m_bOpen = pSegment != nullptr && !pSegment->strPath.empty() && m_reader.Open(pSegment->strPath, strError);
    if (!m_bOpen)
        return; // the next look tries again
    m_ullSegment = ullSegment;
    m_mapModems.clear();
    m_ullLost = 0;
}

void CLiveState::Look(TIME now)
{
    m_ullNewRecords = 0;
    m_ullNewBytes = 0;
    for (auto& [ucUe, stModem] : m_mapModems)
        for (auto& [ucChannel, stChannel] : stModem.mapChannels)
            stChannel.ullNewRecords = stChannel.ullNewBytes = 0;
    const bool bFirst = m_looked == TIME{};
    if (m_ullSegment != m_ledger.Last() || !m_bOpen)
        Begin(m_ledger.Last());
    SEGMENT_BLOCK stBlock;
    while (m_bOpen && m_reader.Next(stBlock) == CSegmentReader::RESULT::BLOCK)
        Take(stBlock);
    m_dSeconds = bFirst ? 0 : std::chrono::duration<double>(now - m_looked).count();
    m_looked = now;
}

void CLiveState::Take(const SEGMENT_BLOCK& stBlock)
{
    m_ullNewBytes += stBlock.bytes.size();
    CAPTURED_RECORD stRecord;
    if (!stBlock.bPacket || !DecodePacket(stBlock.bytes.subspan(BLOCK_HEAD, stBlock.bytes.size() - PCAPNG_BLOCK_FRAME),
                                          NS_PER_TICK, stRecord))
        return;
    m_ullLost += stRecord.ullLost;
    const TAP_RECORD& stHead = stRecord.stRecord;
    if (stHead.enKind == TAP_KIND::PORT_EVENT)
        TakeEvent(stRecord);
    if ((stHead.ucFlags & TAP_REPLAYED) != 0)
        return;
    ++m_ullNewRecords;
    if (stHead.ucUe >= MAXUENUM || stHead.ucChannel >= CAPTURE_CHANNEL_NAMES.size())
        return;
    CHANNEL& stChannel = m_mapModems[stHead.ucUe].mapChannels[stHead.ucChannel];
    ++stChannel.ullRecords;
    ++stChannel.ullNewRecords;
    stChannel.ullNewBytes += stBlock.bytes.size();
}

void CLiveState::TakeEvent(const CAPTURED_RECORD& stRecord)
{
    const TAP_RECORD& stHead = stRecord.stRecord;
    const auto ulEvent = LoadLe<uint32_t>(stRecord.bytes, 0);
    TAP_CHANNEL_EVENT stChannel;
    TAP_UE_EVENT stUe;
    if (stHead.ucUe >= MAXUENUM)
        return;
    if (ulEvent == static_cast<uint32_t>(TAP_EVENT::CHANNEL) && stHead.ucChannel < CAPTURE_CHANNEL_NAMES.size() &&
        DecodeRecord(stRecord.bytes, stChannel))
        m_mapModems[stHead.ucUe].mapChannels[stHead.ucChannel].bPresent = stChannel.ucAttached != 0;
    if (ulEvent == static_cast<uint32_t>(TAP_EVENT::UE) && DecodeRecord(stRecord.bytes, stUe))
        m_mapModems[stHead.ucUe].strName = stUe.strVersion;
}

void CLiveState::Fill(FLEET_BENCH_STATE& stState) const
{
    const double dPerSecond = m_dSeconds > 0 ? 1 / m_dSeconds : 0;
    const auto rate = [dPerSecond](uint64_t ullCount) { return static_cast<double>(ullCount) * dPerSecond; };
    stState.dRecordRate = rate(m_ullNewRecords);
    stState.dByteRate = rate(m_ullNewBytes);
    stState.ullLostRecords = m_ullLost;
    stState.vecModems.clear();
    for (const auto& [ucUe, stModem] : m_mapModems) {
        FLEET_MODEM_STATE& stOut = stState.vecModems.emplace_back();
        stOut.ulUe = ucUe;
        stOut.strName = stModem.strName;
        for (const auto& [ucChannel, stChannel] : stModem.mapChannels)
            stOut.vecChannels.push_back({CAPTURE_CHANNEL_NAMES[ucChannel], stChannel.bPresent, stChannel.ullRecords,
                                         rate(stChannel.ullNewRecords), rate(stChannel.ullNewBytes)});
    }
}
