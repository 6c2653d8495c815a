#pragma once

#include "forward/LiveState.h"
#include "forward/Publisher.h"
#include "forward/SpoolReader.h"

#include <functional>

/// The program's loop, on one thread: reads the spool, brings it to the hub, tells the bench's state.
class CForwarder
{
public:
    using TIME = CPublisher::TIME;

    struct SETTINGS
    {
        CPublisher::SETTINGS stPublish;
        std::chrono::milliseconds stateEvery{5000};
        bool bDelete = false;   // segments that the hub has
        bool bRequests = false; // to be told in the state
    };
    /// The ledger is open. All outlive this object.
    CForwarder(const SETTINGS& stSettings, CSegmentLedger& ledger, IForwardHub& hub, CForwardLog& log);

    /// Until isStopped, which is asked twenty times a second.
    void Run(const std::function<bool()>& isStopped);

    /// One round: events that are there, what is new in the spool, what is due. True when there is more to do at once.
    bool Turn(TIME now);

    const CPublisher& Publisher() const { return m_publisher; }

private:
    void TakeEvents(TIME now);
    void Tell(const HUB_EVENT& stEvent);
    bool Feed(TIME now);
    void Take(const CSpoolReader::ITEM& stItem, TIME now);
    void KeepHouse(TIME now, bool bWrite);
    void PutState(TIME now);
    void FillBacklog(FLEET_BENCH_STATE& stState) const;

    const SETTINGS m_stSettings;
    CSegmentLedger& m_ledger;
    IForwardHub& m_hub;
    CForwardLog& m_log;
    CPublisher m_publisher;
    CSpoolReader m_reader;
    CLiveState m_live;
    std::optional<HUB_EVENT> m_waited; // an event that ended the wait
    bool m_bReading = false;           // from the place that the hub has told
    bool m_bStateDue = false;          // a new connection gets the state at once
    TIME m_nextState{};
    TIME m_nextHousekeeping{};
    TIME m_nextNote{};
    uint64_t m_ullLostSegments = 0;
    const uint64_t m_ullStarted; // ms since 1970
};
