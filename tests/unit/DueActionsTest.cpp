#include "agent/DueActions.h"

#include <gtest/gtest.h>
#include <vector>

namespace
{
using std::chrono::milliseconds;
using std::chrono::seconds;
using enum DUE_ACTION::KIND;

constexpr CDueActions::TIME START{seconds(1000)};
constexpr CDueActions::TIME NEVER = CDueActions::TIME::max();

/// An action in short: its UE and, as a number, what it is: -1 the host connect, 0 to 23 a switch, 24 the report.
struct Action
{
    unsigned int ulUeIdx;
    int nStep;
    bool operator==(const Action&) const = default;
};

void PrintTo(const Action& stAction, std::ostream* pOut)
{
    *pOut << "UE " << stAction.ulUeIdx << " step " << stAction.nStep;
}

/// Everything that is due by then.
std::vector<Action> TakeAll(CDueActions& due, CDueActions::TIME now)
{
    std::vector<Action> taken;
    while (const auto stAction = due.Take(now)) {
        const int nSwitch = static_cast<int>(stAction->szSwitch);
        const int nStep = stAction->enKind == HOST_CONNECT ? -1 : stAction->enKind == SWITCH ? nSwitch : 24;
        taken.push_back({stAction->ulUeIdx, nStep});
    }
    return taken;
}

using Actions = std::vector<Action>;
} // namespace

TEST(DueActions, NothingIsDueAtFirst)
{
    CDueActions due;
    EXPECT_EQ(due.NextTime(), NEVER);
    EXPECT_FALSE(due.Take(START));
}

TEST(DueActions, TheHostConnectIsDueAfterTwoSeconds)
{
    CDueActions due;
    due.StartHostConnect(7, START);
    EXPECT_EQ(due.NextTime(), START + seconds(2));
    EXPECT_EQ(TakeAll(due, START + milliseconds(1999)), Actions{});
    EXPECT_EQ(TakeAll(due, START + seconds(2)), (Actions{{7, -1}}));
    EXPECT_EQ(due.NextTime(), NEVER);
}

TEST(DueActions, ASecondAttachBeginsTheTwoSecondsAgain)
{
    CDueActions due;
    due.StartHostConnect(7, START);
    due.StartHostConnect(7, START + seconds(1));
    EXPECT_EQ(TakeAll(due, START + milliseconds(2999)), Actions{});
    EXPECT_EQ(TakeAll(due, START + seconds(3)), (Actions{{7, -1}}));
}

TEST(DueActions, TheSwitchesStartAtOnceAndTheReportIsBehindThem)
{
    CDueActions due;
    due.StartSwitches(3, START);
    for (int i = 0; i <= 24; ++i) {
        const auto time = START + i * milliseconds(50);
        EXPECT_EQ(due.NextTime(), time);
        EXPECT_EQ(TakeAll(due, time - milliseconds(1)), Actions{});
        EXPECT_EQ(TakeAll(due, time), (Actions{{3, i}}));
    }
    EXPECT_EQ(due.NextTime(), NEVER);
}

TEST(DueActions, ASwitchThatWasLatePutsOffThoseBehindIt)
{
    CDueActions due;
    due.StartSwitches(3, START);
    EXPECT_EQ(TakeAll(due, START + milliseconds(500)), (Actions{{3, 0}}));
    EXPECT_EQ(TakeAll(due, START + milliseconds(549)), Actions{});
    EXPECT_EQ(TakeAll(due, START + milliseconds(580)), (Actions{{3, 1}}));
    EXPECT_EQ(due.NextTime(), START + milliseconds(630));
}

TEST(DueActions, ARepeatedConfirmationStartsAgainButNoCloser)
{
    CDueActions due;
    due.StartSwitches(3, START);
    EXPECT_EQ(TakeAll(due, START), (Actions{{3, 0}}));
    EXPECT_EQ(TakeAll(due, START + milliseconds(50)), (Actions{{3, 1}}));
    due.StartSwitches(3, START + milliseconds(60));
    EXPECT_EQ(TakeAll(due, START + milliseconds(99)), Actions{});
    EXPECT_EQ(TakeAll(due, START + milliseconds(100)), (Actions{{3, 0}}));
    EXPECT_EQ(TakeAll(due, START + milliseconds(150)), (Actions{{3, 1}}));
}

TEST(DueActions, TheSwitchesFollowAHostConnectThatIsStillDue)
{
    CDueActions due;
    due.StartHostConnect(3, START);
    due.StartSwitches(3, START + seconds(1));
    EXPECT_EQ(due.NextTime(), START + seconds(2));
    EXPECT_EQ(TakeAll(due, START + seconds(2)), (Actions{{3, -1}, {3, 0}}));
    EXPECT_EQ(TakeAll(due, START + milliseconds(2050)), (Actions{{3, 1}}));
}

TEST(DueActions, AnAttachEndsTheSwitches)
{
    CDueActions due;
    due.StartSwitches(3, START);
    EXPECT_EQ(TakeAll(due, START), (Actions{{3, 0}}));
    due.StartHostConnect(3, START + milliseconds(10));
    EXPECT_EQ(TakeAll(due, START + seconds(60)), (Actions{{3, -1}}));
}

TEST(DueActions, ACancelIsForOneUe)
{
    CDueActions due;
    due.StartHostConnect(1, START);
    due.StartHostConnect(2, START);
    due.StartSwitches(3, START);
    due.Cancel(1);
    due.Cancel(3);
    EXPECT_EQ(TakeAll(due, START + seconds(2)), (Actions{{2, -1}}));
    EXPECT_EQ(due.NextTime(), NEVER);
}

TEST(DueActions, UesTakeTurnsByTheirTimes)
{
    CDueActions due;
    due.StartSwitches(9, START + milliseconds(20));
    due.StartSwitches(4, START + milliseconds(30));
    due.StartHostConnect(0, START - milliseconds(1975)); // due at 25
    EXPECT_EQ(TakeAll(due, START + milliseconds(40)), (Actions{{9, 0}, {0, -1}, {4, 0}}));
    EXPECT_EQ(TakeAll(due, START + milliseconds(90)), (Actions{{4, 1}, {9, 1}})); // both at 90; the lower UE first
}

TEST(DueActions, IndicesBeyondTheLastUeAreIgnored)
{
    CDueActions due;
    due.StartHostConnect(16, START);
    due.StartSwitches(0xFFFFFFFF, START);
    due.Cancel(16);
    EXPECT_EQ(due.NextTime(), NEVER);
}
