#include "forward/Forwarder.h"

#include <sys/statvfs.h>

namespace
{
using namespace std::chrono_literals;

constexpr auto ROUND = 50ms;            // the spool is looked at so often
constexpr auto HOUSEKEEPING = 1s;       // what is at the hub is noted so often
constexpr auto NOTE = 1min;             // and written so often, when nothing else is to be
constexpr size_t QUEUE_MOST = 8 << 20;  // bytes that are read ahead
constexpr size_t FEED_MOST = 256 << 10; // bytes that are read in one round, so that answers don't wait for long
constexpr uint64_t NS_PER_MS = 1'000'000;

uint64_t RealTimeMs()
{
    const auto time = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(time).count());
}
} // namespace

CForwarder::CForwarder(const SETTINGS& stSettings, CSegmentLedger& ledger, IForwardHub& hub, CForwardLog& log)
    : m_stSettings(stSettings),
      m_ledger(ledger),
      m_hub(hub),
      m_log(log),
      m_publisher(stSettings.stPublish, hub, ledger, log),
      m_reader(ledger),
      m_live(ledger),
      m_ullStarted(RealTimeMs())
{
}

void CForwarder::Run(const std::function<bool()>& isStopped)
{
    bool bMore = false;
    while (!isStopped()) {
        m_waited = m_hub.Wait(bMore ? 0ms : ROUND);
        bMore = Turn(std::chrono::steady_clock::now());
    }
    KeepHouse(std::chrono::steady_clock::now(), true);
    m_log.State("link", "");
    if (m_publisher.SentMessages() > 0)
        m_log.Line("the hub has taken " + std::to_string(m_publisher.SentBytes()) + " bytes in " +
                   std::to_string(m_publisher.SentMessages()) + " messages");
}

bool CForwarder::Turn(TIME now)
{
    TakeEvents(now);
    m_ledger.Refresh();
    const bool bMore = Feed(now);
    if (m_publisher.IsConnected() && (m_bStateDue || now >= m_nextState))
        PutState(now);
    m_publisher.Turn(now);
    if (now >= m_nextHousekeeping)
        KeepHouse(now, now >= m_nextNote);
    return bMore;
}

void CForwarder::TakeEvents(TIME now)
{
    for (auto event = m_waited ? std::exchange(m_waited, std::nullopt) : m_hub.Wait(0ms); event;
         event = m_hub.Wait(0ms)) {
        Tell(*event);
        m_publisher.Handle(*event, now);
    }
    if (m_publisher.TakeReset())
        m_bReading = false;
    if (m_bReading || !m_publisher.Start())
        return;
    m_reader.Start(*m_publisher.Start());
    m_bReading = true;
}

void CForwarder::Tell(const HUB_EVENT& stEvent)
{
    using KIND = HUB_EVENT::KIND;
    if (stEvent.enKind == KIND::CONNECTED) {
        m_bStateDue = true;
        m_log.State("problem", "");
        m_log.State("waiting", "");
        m_log.State("link", "connected to the hub");
    }
    if (stEvent.enKind == KIND::LOST)
        m_log.State("link", "the hub is lost: " + stEvent.strText);
    if (stEvent.enKind == KIND::PROBLEM)
        m_log.State("problem", "hub: " + stEvent.strText);
}

/// Reads on in the spool; true when there is more for the next round.
bool CForwarder::Feed(TIME now)
{
    size_t szRead = 0;
    CSpoolReader::ITEM stItem;
    bool bMore = m_bReading;
    while (bMore && szRead < FEED_MOST && m_publisher.Waiting() < QUEUE_MOST) {
        bMore = m_reader.Next(stItem);
        if (!bMore)
            break;
        szRead += stItem.stBlock.bytes.size();
        Take(stItem, now);
    }
    if (m_bReading)
        m_publisher.SetRead(m_reader.Place());
    return bMore && m_publisher.Waiting() < QUEUE_MOST;
}

void CForwarder::Take(const CSpoolReader::ITEM& stItem, TIME now)
{
    const SPOOL_PLACE stPlace{stItem.ullSegment, stItem.stBlock.ullOffset};
    if (!stItem.bLoss) {
        m_publisher.Add(stItem.stBlock.stLane, stPlace, stItem.stBlock.bytes, stItem.stBlock.ullTime, now);
        return;
    }
    ++m_ullLostSegments;
    const CSegmentLedger::SEGMENT* const pSegment = m_ledger.Find(stItem.ullSegment);
    m_log.Line((pSegment != nullptr ? pSegment->strName : "a segment") + ", from byte " +
               std::to_string(stPlace.ullOffset) + ": " + stItem.strReason);
    m_publisher.AddLoss(stPlace, now);
}

void CForwarder::KeepHouse(TIME now, bool bWrite)
{
    m_nextHousekeeping = now + HOUSEKEEPING;
    if (bWrite)
        m_nextNote = now + NOTE;
    std::string strError;
    (void)m_ledger.SetDone(m_publisher.Completed(), bWrite, strError); // told by what follows
    if (m_stSettings.bDelete && strError.empty())
        m_ledger.DeleteBefore(m_publisher.Settled());
    m_log.State("ledger", strError);
}

void CForwarder::PutState(TIME now)
{
    m_bStateDue = false;
    m_nextState = now + m_stSettings.stateEvery;
    m_ledger.Look();
    m_live.Look(now);
    FLEET_BENCH_STATE stState;
    stState.strBench = m_stSettings.stPublish.strBench;
    stState.strEpoch = m_stSettings.stPublish.strEpoch;
    stState.strVersion = VEX_VERSION;
    stState.ullTime = RealTimeMs();
    stState.ullStarted = m_ullStarted;
    stState.ullLostSegments = m_ullLostSegments;
    stState.ullSentBytes = m_publisher.SentBytes();
    stState.ullSentMessages = m_publisher.SentMessages();
    stState.bRequests = m_stSettings.bRequests;
    m_live.Fill(stState);
    FillBacklog(stState);
    m_hub.PutState(StateToJson(stState));
}

void CForwarder::FillBacklog(FLEET_BENCH_STATE& stState) const
{
    const SPOOL_PLACE stDone = m_publisher.Completed();
    for (const auto& [ullSegment, stSegment] : m_ledger.Segments()) {
        stState.ullSpoolBytes += stSegment.ullBytes;
        if (ullSegment > stDone.ullSegment)
            stState.ullBacklogBytes += stSegment.ullBytes;
        else if (ullSegment == stDone.ullSegment && stSegment.ullBytes > stDone.ullOffset)
            stState.ullBacklogBytes += stSegment.ullBytes - stDone.ullOffset;
    }
    const uint64_t ullOldestMs = m_publisher.OldestTime() / NS_PER_MS;
    if (ullOldestMs > 0 && stState.ullTime > ullOldestMs)
        stState.ullBacklogMs = stState.ullTime - ullOldestMs;
    struct statvfs stDisk
    {
    };
    if (statvfs(m_ledger.Spool().c_str(), &stDisk) != 0)
        return;
    stState.ullDiskFree = uint64_t{stDisk.f_bavail} * stDisk.f_frsize;
    stState.ullDiskSize = uint64_t{stDisk.f_blocks} * stDisk.f_frsize;
}
