#include "uesim/ReplayRun.h"
#include "support/SimFixture.h"
#include "uesim/ReplayBehaviour.h"

#include <gtest/gtest.h>

// When the packets of a replayed modem are due.

namespace
{
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr uint64_t MS = 1'000'000; // ns
constexpr uint64_t END = 1000 * MS;
const SimTime START = SimTime() + seconds(100);

SimTime At(int nMs)
{
    return START + milliseconds(nMs);
}

/// A modem by hand. A step's packet is its number.
class CPlan
{
public:
    CPlan& Request(int nMs, const std::string& strName, bool bAnswered = true)
    {
        m_stUe.requests.push_back({SERIAL_TYPE_DIAG, strName, Ns(nMs), m_stUe.steps.size(), bAnswered});
        return *this;
    }
    CPlan& Step(int nMs, std::vector<size_t> requests = {}, enSerialType enPort = SERIAL_TYPE_DIAG)
    {
        const auto ucNumber = static_cast<unsigned char>(m_stUe.steps.size());
        m_stUe.steps.push_back({enPort, Ns(nMs), {ucNumber}, std::move(requests)});
        return *this;
    }
    CPlan& Event(int nMs, bool bArrives)
    {
        m_stUe.events.push_back({SERIAL_TYPE_DIAG, bArrives, 201, Ns(nMs), m_stUe.steps.size()});
        return *this;
    }
    const REPLAY_UE& Ue() const { return m_stUe; }

private:
    static uint64_t Ns(int nMs) { return static_cast<uint64_t>(nMs) * MS; }
    REPLAY_UE m_stUe;
};

using PACKETS = std::vector<int>;

/// The steps that are due then.
PACKETS Take(CReplayRun& run, SimTime now, CReplayRun::PORT enDiag = CReplayRun::PORT::READY)
{
    const auto stateOf = [=](enSerialType enPort) {
        return enPort == SERIAL_TYPE_DIAG ? enDiag : CReplayRun::PORT::READY;
    };
    PACKETS packets;
    while (const REPLAY_STEP* const pStep = run.TakeStep(now, stateOf))
        packets.push_back(pStep->packet[0]);
    return packets;
}
} // namespace

TEST(ReplayRun, WhatTheModemSentByItselfComesAtItsTime)
{
    const CPlan plan = CPlan().Step(100).Step(200).Step(300);
    CReplayRun run(plan.Ue(), 1, END);
    EXPECT_EQ(Take(run, At(500)), PACKETS{}); // not started
    run.Start(START, 0);
    EXPECT_EQ(Take(run, At(99)), PACKETS{});
    EXPECT_EQ(run.NextLook(At(99)), At(100));
    EXPECT_EQ(Take(run, At(100)), PACKETS{0});
    EXPECT_EQ(Take(run, At(305)), (PACKETS{1, 2}));
    EXPECT_FALSE(run.IsDone(At(999)));
    EXPECT_FALSE(run.IsDone(At(1304))); // a second behind the last packet
    EXPECT_TRUE(run.IsDone(At(1305)));
}

TEST(ReplayRun, SpeedDividesTheTimes)
{
    const CPlan plan = CPlan().Step(100).Request(200, "a").Step(240, {0});
    CReplayRun run(plan.Ue(), 0.25, END); // four times as fast
    run.Start(START, 0);
    EXPECT_EQ(Take(run, At(24)), PACKETS{});
    EXPECT_EQ(Take(run, At(25)), PACKETS{0});
    EXPECT_TRUE(run.OnRequest(SERIAL_TYPE_DIAG, "a", At(50)));
    EXPECT_EQ(Take(run, At(59)), PACKETS{});
    EXPECT_EQ(Take(run, At(60)), PACKETS{1});
}

TEST(ReplayRun, AnAnswerWaitsForItsRequestAndComesAsLongBehindItAsThen)
{
    const CPlan plan = CPlan().Request(100, "a").Step(130, {0});
    CReplayRun run(plan.Ue(), 1, END);
    run.Start(START, 0);
    EXPECT_EQ(Take(run, At(400)), PACKETS{});
    EXPECT_TRUE(run.OnRequest(SERIAL_TYPE_DIAG, "a", At(400)));
    EXPECT_EQ(Take(run, At(429)), PACKETS{});
    EXPECT_EQ(Take(run, At(430)), PACKETS{0});
    EXPECT_TRUE(run.Totals().missed.empty());
}

TEST(ReplayRun, TheModemsTimeStandsStillUntilALateRequestComes)
{
    const CPlan plan = CPlan().Step(50).Request(100, "a").Step(101, {0}).Step(150);
    CReplayRun run(plan.Ue(), 1, END);
    run.Start(START, 0);
    EXPECT_EQ(Take(run, At(300)), PACKETS{0});
    EXPECT_TRUE(run.OnRequest(SERIAL_TYPE_DIAG, "a", At(300))); // 200 ms late
    EXPECT_EQ(Take(run, At(349)), PACKETS{1});
    EXPECT_EQ(Take(run, At(350)), PACKETS{2});
}

TEST(ReplayRun, WhatCameBeforeARequestComesBeforeAnEarlyOneToo)
{
    const CPlan plan = CPlan().Step(90).Request(100, "a").Step(101, {0}).Step(150);
    CReplayRun run(plan.Ue(), 1, END);
    run.Start(START, 0);
    EXPECT_TRUE(run.OnRequest(SERIAL_TYPE_DIAG, "a", At(20))); // 80 ms early
    EXPECT_EQ(Take(run, At(21)), (PACKETS{0, 1}));
    EXPECT_EQ(Take(run, At(70)), PACKETS{2});
    // One that comes seconds too early is answered, and the rest keeps its time.
    const CPlan slow = CPlan().Step(5000).Request(6000, "a").Step(6001, {0});
    CReplayRun other(slow.Ue(), 1, END);
    other.Start(START, 0);
    EXPECT_TRUE(other.OnRequest(SERIAL_TYPE_DIAG, "a", At(20)));
    EXPECT_EQ(Take(other, At(21)), PACKETS{1});
    EXPECT_EQ(Take(other, At(5000)), PACKETS{0});
}

TEST(ReplayRun, ARequestThatNeverComesIsToldAfterFiveSecondsAndHoldsUpNothingElse)
{
    const CPlan plan = CPlan().Request(100, "a").Step(101, {0}).Step(150).Request(200, "b").Step(201, {1}).Step(250);
    CReplayRun run(plan.Ue(), 1, END);
    run.Start(START, 0);
    EXPECT_EQ(Take(run, At(100)), PACKETS{}); // from here on it is waited for
    EXPECT_EQ(Take(run, At(5099)), PACKETS{});
    EXPECT_EQ(Take(run, At(5100)), (PACKETS{1, 3})); // the modem's own packets catch up
    EXPECT_EQ(run.Totals().missed, std::vector<size_t>{0});
    EXPECT_TRUE(run.OnRequest(SERIAL_TYPE_DIAG, "b", At(5150))); // this one was waited for since 200
    EXPECT_EQ(Take(run, At(5151)), PACKETS{2});
    EXPECT_FALSE(run.OnRequest(SERIAL_TYPE_DIAG, "a", At(5160))); // too late
    EXPECT_EQ(run.Totals().ullUnplanned, 1u);
    EXPECT_EQ(run.Totals().ullPlayed, 3u);
}

TEST(ReplayRun, WithoutAnyRequestEachIsMissedAtItsOwnTime)
{
    CPlan plan;
    for (size_t i = 0; i < 24; ++i)
        plan.Request(100 + static_cast<int>(i), "switch").Step(100 + static_cast<int>(i), {i});
    CReplayRun run(plan.Ue(), 1, END);
    run.Start(START, 0);
    EXPECT_EQ(Take(run, At(100)), PACKETS{});
    EXPECT_EQ(Take(run, At(5200)), PACKETS{});
    EXPECT_EQ(run.Totals().missed.size(), 24u); // not 24 times 5 s
    EXPECT_TRUE(run.IsDone(At(6300)));
}

TEST(ReplayRun, ARequestWithoutAnAnswerHoldsUpForHalfASecondAndIsNotMissed)
{
    const CPlan plan = CPlan().Request(100, "a", false).Step(150);
    CReplayRun run(plan.Ue(), 1, END);
    run.Start(START, 0);
    EXPECT_EQ(Take(run, At(100)), PACKETS{});
    EXPECT_EQ(Take(run, At(599)), PACKETS{});
    EXPECT_EQ(Take(run, At(600)), PACKETS{0});
    EXPECT_TRUE(run.Totals().missed.empty());
}

TEST(ReplayRun, AsFastAsPossibleKeepsTheOrderAndWaitsForRequests)
{
    const CPlan plan = CPlan().Step(100).Request(200, "a").Step(300, {0}).Step(400).Request(500, "b").Step(900, {1});
    CReplayRun run(plan.Ue(), 0, END);
    run.Start(START, 0);
    EXPECT_EQ(Take(run, START), PACKETS{0});
    EXPECT_TRUE(run.OnRequest(SERIAL_TYPE_DIAG, "a", At(1)));
    EXPECT_EQ(Take(run, At(1)), (PACKETS{1, 2}));
    EXPECT_TRUE(run.OnRequest(SERIAL_TYPE_DIAG, "b", At(2)));
    EXPECT_EQ(Take(run, At(2)), PACKETS{3});
}

TEST(ReplayRun, AnAnswerWaitsASecondForWhatCameBeforeIt)
{
    const CPlan plan = CPlan().Request(100, "a").Request(105, "b").Step(110).Step(111, {0});
    CReplayRun run(plan.Ue(), 1, END);
    run.Start(START, 0);
    EXPECT_TRUE(run.OnRequest(SERIAL_TYPE_DIAG, "a", At(100)));
    EXPECT_EQ(Take(run, At(200)), PACKETS{}); // the other request, and so the packet behind it, isn't there
    EXPECT_TRUE(run.OnRequest(SERIAL_TYPE_DIAG, "b", At(205)));
    EXPECT_EQ(Take(run, At(210)), (PACKETS{0, 1}));
    CReplayRun other(plan.Ue(), 1, END);
    other.Start(START, 0);
    EXPECT_TRUE(other.OnRequest(SERIAL_TYPE_DIAG, "a", At(100)));
    EXPECT_EQ(Take(other, At(1110)), PACKETS{});
    EXPECT_EQ(Take(other, At(1111)), PACKETS{1});
}

TEST(ReplayRun, NothingOvertakesAnAnswerThatWasBeforeIt)
{
    const CPlan plan = CPlan().Request(100, "a").Request(104, "b").Step(110, {0}).Step(111);
    CReplayRun run(plan.Ue(), 1, END);
    run.Start(START, 0);
    EXPECT_TRUE(run.OnRequest(SERIAL_TYPE_DIAG, "a", At(100)));
    EXPECT_TRUE(run.OnRequest(SERIAL_TYPE_DIAG, "b", At(101))); // 3 ms early: the last packet is due at 108
    EXPECT_EQ(Take(run, At(109)), PACKETS{});
    EXPECT_EQ(Take(run, At(110)), (PACKETS{0, 1}));
}

TEST(ReplayRun, AnswersDoNotOvertakeEachOther)
{
    const CPlan plan = CPlan().Request(100, "a").Request(100, "b").Step(120, {0}).Step(121, {1});
    CReplayRun run(plan.Ue(), 1, END);
    run.Start(START, 0);
    EXPECT_TRUE(run.OnRequest(SERIAL_TYPE_DIAG, "b", At(100)));
    EXPECT_TRUE(run.OnRequest(SERIAL_TYPE_DIAG, "a", At(104))); // due at 124, the other at 121
    EXPECT_EQ(Take(run, At(123)), PACKETS{});
    EXPECT_EQ(Take(run, At(124)), (PACKETS{0, 1}));
}

TEST(ReplayRun, APacketForAPortThatStaysClosedIsLostAfterFiveSecondsAndTheNextOnesAtOnce)
{
    constexpr auto CLOSED = CReplayRun::PORT::CLOSED;
    const CPlan plan = CPlan().Step(100).Step(110, {}, SERIAL_TYPE_DATA).Step(120).Step(6000);
    CReplayRun run(plan.Ue(), 1, END);
    run.Start(START, 0);
    EXPECT_EQ(Take(run, At(100), CLOSED), PACKETS{});
    EXPECT_EQ(Take(run, At(5099), CLOSED), PACKETS{});
    EXPECT_EQ(Take(run, At(5100), CLOSED), PACKETS{1});
    EXPECT_EQ(run.Totals().ullLost, 2u);
    EXPECT_EQ(Take(run, At(6000)), PACKETS{3}); // it has been opened
    EXPECT_EQ(run.Totals().ullLost, 2u);
}

TEST(ReplayRun, APortThatIsFullIsWaitedFor)
{
    const CPlan plan = CPlan().Step(100);
    CReplayRun run(plan.Ue(), 1, END);
    run.Start(START, 0);
    EXPECT_EQ(Take(run, At(100), CReplayRun::PORT::FULL), PACKETS{});
    EXPECT_EQ(Take(run, At(9000), CReplayRun::PORT::FULL), PACKETS{});
    EXPECT_EQ(Take(run, At(9001)), PACKETS{0});
}

TEST(ReplayRun, APortLeavesWhenAllBeforeThatHasBeenPlayed)
{
    const CPlan plan = CPlan().Event(0, true).Request(100, "a").Step(101, {0}).Event(200, false).Event(300, true);
    CReplayRun run(plan.Ue(), 0, END);
    run.Start(START, 0);
    const REPLAY_EVENT* pEvent = run.TakeEvent(START);
    ASSERT_TRUE(pEvent != nullptr && pEvent->bArrives);
    EXPECT_EQ(run.TakeEvent(At(1000)), nullptr); // the request hasn't come
    EXPECT_TRUE(run.OnRequest(SERIAL_TYPE_DIAG, "a", At(1000)));
    EXPECT_EQ(run.TakeEvent(At(1000)), nullptr); // nor has it been answered
    EXPECT_EQ(Take(run, At(1000)), PACKETS{0});
    EXPECT_EQ(run.TakeEvent(At(1299)), nullptr); // what is under way arrives first
    pEvent = run.TakeEvent(At(1300));
    ASSERT_TRUE(pEvent != nullptr && !pEvent->bArrives);
    EXPECT_EQ(run.TakeEvent(At(1599)), nullptr);
    pEvent = run.TakeEvent(At(1600));
    ASSERT_TRUE(pEvent != nullptr && pEvent->bArrives);
    EXPECT_EQ(run.TakeEvent(At(9000)), nullptr);
}

TEST(ReplayRun, ARequestStartsAModemWhoseTimeDoesNotRunYet)
{
    const CPlan plan = CPlan().Request(100, "a").Step(130, {0}).Step(150);
    CReplayRun run(plan.Ue(), 1, END);
    EXPECT_TRUE(run.OnRequest(SERIAL_TYPE_DIAG, "a", START));
    EXPECT_EQ(Take(run, At(30)), PACKETS{0});
    EXPECT_EQ(Take(run, At(50)), PACKETS{1});
}

TEST(ReplayBehaviour, PlaysThroughThePortsAndTellsWhatNeverCame)
{
    CSimFixture fixture("REQ_CHL_PACKET_HEADER_LEN=24\n"
                        "REQ_CHL_PACKET_HEADER={0,1};{1,1};{2,1};{3,1};{4,1};{5,1};{6,2};{8,4}\n");
    const CReplayNames names(*fixture.Config().GetFilterCfg());
    const CPlan plan = CPlan().Request(0, "0x10014003").Step(0, {0}).Request(0, "0x10014004").Step(0, {1});
    CReplayBehaviour behaviour(fixture.Ue(), plan.Ue(), names, {.dScale = 0}, [](const REPLAY_EVENT&) {});
    behaviour.OnPortOpened(SERIAL_TYPE_DIAG, fixture.Now());
    EXPECT_TRUE(behaviour.OnPacket(SERIAL_TYPE_DIAG, Join(Fill(8), Le(0x10014003U), Fill(12))));
    EXPECT_TRUE(behaviour.OnPacket(SERIAL_TYPE_DIAG, Join(Fill(8), Le(0x20000000U), Fill(12)))); // not planned
    const SimTime later = fixture.Now() + milliseconds(500);
    (void)behaviour.OnTick(later);
    EXPECT_EQ(fixture.Sent(SERIAL_TYPE_DIAG), std::vector<Bytes>{Hex("00")});
    EXPECT_FALSE(behaviour.IsIncomplete());
    (void)behaviour.OnTick(later + CReplayRun::WAIT_LIMIT);
    EXPECT_TRUE(behaviour.IsIncomplete());
    EXPECT_EQ(behaviour.Report(),
              "ue0: 1 of 2 packets played, 0 found no open port, 2 requests, 1 of the capture never "
              "came, 1 not in the capture\n"
              "ue0: never came: diag 0x10014004, at 0.000 s\n");
    behaviour.Restart(later);
    EXPECT_TRUE(behaviour.IsIncomplete()) << "an earlier run stays incomplete";
}
