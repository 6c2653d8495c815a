#pragma once

#include "forward/ForwardHub.h"
#include "forward/ForwardLog.h"
#include "forward/Lane.h"

#include <deque>
#include <map>

/// Brings blocks to the hub: each once, those of a lane in their order, whatever becomes of the connection.
///
/// How that is: of each lane one message is under way at most, and it names the lane's last message in the stream, so
/// the hub refuses it when that is another one by now. After every connect, time-out, refusal or doubt the hub is asked
/// for the lane's last message, whose head tells behind which byte to go on. Two copies of one message on two ways can
/// still meet in a cluster that hasn't yet applied the first: they carry the same Nats-Msg-Id, and the second is
/// dropped. An answer that says "duplicate" is doubt, too: the hub is asked what it has.
///
/// A server that is killed can take with it what it had acknowledged in its last moments. So what a restart or a
/// deleted segment relies on is only what the hub has had for a while, and a lane of which the hub has less than it had
/// acknowledged is sent again from there.
class CPublisher
{
public:
    using TIME = CLane::TIME;

    struct SETTINGS
    {
        std::string strBench;
        std::string strEpoch;
        uint64_t ullMaxRate = 0; // bytes a second, 0 for no limit
    };
    /// The ledger gives the segments their names. All outlive this object.
    CPublisher(const SETTINGS& stSettings, IForwardHub& hub, const CSegmentLedger& ledger, CForwardLog& log);

    void Handle(const HUB_EVENT& stEvent, TIME now);
    /// Asks and sends what is due.
    void Turn(TIME now);
    /// The connection is there, and each lane but those that are in doubt knows where the hub is.
    bool IsConnected() const { return m_bConnected; }

    /// There is a connection, but something that waits hasn't been taken through it for a minute: the server may be cut
    /// off from the others, or lag behind them for good.
    bool IsStuck(TIME now) const;

    /// Where the spool is to be read from: the hub has everything before. None until the hub has answered.
    const std::optional<SPOOL_PLACE>& Start() const { return m_start; }
    /// The hub has less than it had acknowledged: everything starts again, from a place that it tells anew.
    bool TakeReset();

    void Add(const FLEET_LANE& stLane, const SPOOL_PLACE& stPlace, ByteView block, uint64_t ullTime, TIME now);
    void AddLoss(const SPOOL_PLACE& stPlace, TIME now);
    /// All before this place has been added.
    void SetRead(const SPOOL_PLACE& stPlace) { m_stRead = stPlace; }

    /// The hub has everything before this place.
    SPOOL_PLACE Completed() const;
    /// The hub has had everything before this place for so long that it will keep it.
    const SPOOL_PLACE& Settled() const { return m_stSettled; }
    /// Bytes that wait or are under way.
    size_t Waiting() const { return m_szWaiting; }
    /// Time of the oldest packet among them, CLOCK_REALTIME in ns; 0 for none.
    uint64_t OldestTime() const;
    uint64_t SentBytes() const { return m_ullSentBytes; }
    uint64_t SentMessages() const { return m_ullSentMessages; }

private:
    CLane& LaneOf(const FLEET_LANE& stLane);
    void Doubt(CLane& lane, TIME due);
    void DoubtRefused(CLane& lane, TIME now, TIME due);
    void Ask(CLane& lane, TIME now);
    void Send(CLane& lane, TIME now);
    void SendRipe(TIME now);
    std::vector<unsigned char> Encode(const DRAFT& stDraft) const;
    void TakeLast(CLane& lane, const HUB_EVENT& stEvent, TIME now);
    void TakeStored(CLane& lane, const HUB_EVENT& stEvent, TIME now);
    void TakePlace(CLane& lane, uint64_t ullSequence, const SPOOL_PLACE& stPlace, TIME now);
    void TakeStart(const FLEET_POSITION& stSettled);
    void NoteCompleted(TIME now);
    FLEET_POSITION PositionOf(const SPOOL_PLACE& stPlace) const;
    SPOOL_PLACE PlaceOf(const FLEET_POSITION& stPosition) const;
    void Reset();

    const SETTINGS m_stSettings;
    IForwardHub& m_hub;
    const CSegmentLedger& m_ledger;
    CForwardLog& m_log;
    std::map<FLEET_LANE, CLane> m_lanes; // the agent's is always there
    std::optional<SPOOL_PLACE> m_start;
    SPOOL_PLACE m_stRead;
    struct MARK
    {
        TIME at;
        SPOOL_PLACE stCompleted;
    };
    std::deque<MARK> m_marks; // of the last seconds
    SPOOL_PLACE m_stSettled;
    std::optional<SPOOL_PLACE> m_lost; // where the hub's part of a lane ends that had been longer
    bool m_bConnected = false;
    bool m_bReset = false;
    uint64_t m_ullToken = 0;
    size_t m_szWaiting = 0;
    double m_dAllowance = 0; // bytes that may be sent now
    TIME m_allowed{};        // when that was reckoned
    uint64_t m_ullSentBytes = 0;
    uint64_t m_ullSentMessages = 0;
};
