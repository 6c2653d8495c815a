#include "unit/ForwardFixture.h"

using namespace std::chrono_literals;

TEST_F(Forward, EachByteOfASpoolArrivesOnce)
{
    Write(Name(0), Segment(500));
    Compress(Name(0));
    Write(Name(1), Segment(300));
    Start();
    Run();
    EXPECT_EQ(Arrived(), m_mapWritten);
}

TEST_F(Forward, LanesAreThoseOfTheInterfaces)
{
    Write(Name(0), Segment(20));
    Start();
    Run();
    std::set<std::string> subjects;
    for (const auto& stored : m_hub.stream)
        subjects.insert(stored.strSubject);
    const std::string strRoot = "vex.lab7." + m_pLedger->Epoch();
    EXPECT_EQ(subjects,
              (std::set<std::string>{strRoot + ".agent.none", strRoot + ".ue0.lte-data", strRoot + ".ue1.lte-data"}));
}

TEST_F(Forward, ABacklogGoesInMessagesOfSomeKilobytes)
{
    Write(Name(0), Segment(2000)); // 900 records of each UE, with 188 bytes a block: 169,200 bytes in each of two lanes
    Start();
    Run(3);
    const std::string strSubject = "vex.lab7." + m_pLedger->Epoch() + ".ue0.lte-data";
    const auto ulMessages = std::ranges::count(m_hub.stream, strSubject, &CFakeHub::STORED::strSubject);
    EXPECT_GE(ulMessages, 8); // of 20,480 bytes
    EXPECT_LE(ulMessages, 9);
}

TEST_F(Forward, AGrowingSegmentIsFollowedByWholeBlocks)
{
    const Bytes segment = Segment(10);
    Write(Name(0), ByteView(segment).first(segment.size() - 150)); // within a block
    Start();
    Run();
    const size_t szFirst = Arrived()[Name(0)].size();
    EXPECT_LT(szFirst, segment.size() - 150);
    EXPECT_GT(szFirst, 1000u);
    Write(Name(0), ByteView(segment).last(150));
    Run();
    EXPECT_EQ(Arrived()[Name(0)], segment);
}

TEST_F(Forward, ALostAnswerIsNoSecondMessage)
{
    Write(Name(0), Segment(500));
    Start();
    Run(1);
    m_hub.bLoseAnswers = true;
    Run(10);
    m_hub.bLoseAnswers = false;
    Run(200);
    EXPECT_EQ(Arrived(), m_mapWritten);
}

TEST_F(Forward, LostRequestsAreSentAgain)
{
    Write(Name(0), Segment(500));
    Start();
    m_hub.bLoseRequests = true;
    Run(20);
    EXPECT_TRUE(m_hub.stream.empty());
    m_hub.bLoseRequests = false;
    Run(200);
    EXPECT_EQ(Arrived(), m_mapWritten);
}

TEST_F(Forward, AConnectionThatComesBackIsAskedFirst)
{
    Write(Name(0), Segment(500));
    Start();
    Run();
    m_hub.Disconnect();
    Run(5);
    Write(Name(0), Segment(10));
    const size_t szAsked = m_hub.szAsked;
    m_hub.Connect();
    Run();
    EXPECT_EQ(m_hub.szAsked, szAsked + 3); // each lane
    EXPECT_EQ(Arrived(), m_mapWritten);
}

TEST_F(Forward, WhatTheHubHasByAnotherWayIsNotSentAgain)
{
    Write(Name(0), Segment(100));
    Start();
    m_hub.bLoseAnswers = true; // the first run's message arrives, its answer doesn't
    Run(2);
    m_hub.bLoseAnswers = false;
    Start(); // and the program is killed
    Run();
    EXPECT_EQ(Arrived(), m_mapWritten);
}

TEST_F(Forward, ARestartInTheMiddleGoesOn)
{
    Write(Name(0), Segment(2000));
    m_stSettings.stPublish.ullMaxRate = 100'000;
    for (int i = 0; i < 20; ++i) {
        Start();
        Run(7);
    }
    EXPECT_LT(m_hub.stream.size() * 10'000, m_mapWritten[Name(0)].size() * 2);
    m_stSettings.stPublish.ullMaxRate = 0;
    Start();
    Run();
    EXPECT_EQ(Arrived(), m_mapWritten);
}

TEST_F(Forward, AServerThatTellsNothingOfWhatIsThereIsLeftAfterAMinute)
{
    Write(Name(0), Segment(100));
    Start();
    Run();
    const auto before = m_hub.stream;
    Write(Name(0), Segment(100));
    m_hub.bIsBehind = true;
    Start();    // is told that there is nothing; what it sends is refused
    Run(1'180); // 59 s
    EXPECT_FALSE(m_pForwarder->Publisher().IsStuck(m_now));
    Run(60); // 3 s
    EXPECT_TRUE(m_pForwarder->Publisher().IsStuck(m_now));
    EXPECT_EQ(m_hub.stream.size(), before.size());
    m_hub.bIsBehind = false;
    m_hub.Connect(); // to another server
    Run();
    EXPECT_FALSE(m_pForwarder->Publisher().IsStuck(m_now));
    EXPECT_EQ(Arrived(), m_mapWritten);
}

TEST_F(Forward, AServerThatAnswersNothingIsLeftAfterAMinute)
{
    Write(Name(0), Segment(10));
    m_hub.bLoseRequests = true;
    Start();
    Run(1'280); // 64 s: given up after 5 s, and a minute has still to pass
    EXPECT_FALSE(m_pForwarder->Publisher().IsStuck(m_now));
    Run(60);
    EXPECT_TRUE(m_pForwarder->Publisher().IsStuck(m_now));
    m_hub.Disconnect();
    Run(1);
    EXPECT_FALSE(m_pForwarder->Publisher().IsStuck(m_now)) << "another one is looked for anyhow";
}

TEST_F(Forward, ARefusalNowAndThenIsNoReasonToLeave)
{
    Start();
    for (int i = 0; i < 30; ++i) { // 90 s
        m_hub.bLoseRequests = true;
        Write(Name(0), Segment(1));
        Run(30);
        m_hub.bLoseRequests = false;
        Run(30);
        ASSERT_FALSE(m_pForwarder->Publisher().IsStuck(m_now)) << i;
    }
}

TEST_F(Forward, ARefusalIsAskedAbout)
{
    Write(Name(0), Segment(100));
    Start();
    Run();
    // Another run of the program with the same installation has sent what came next.
    Write(Name(0), Segment(100));
    CFakeHub& hub = m_hub;
    const auto before = hub.stream;
    Run();
    const auto after = hub.stream;
    hub.stream = before;
    Start(); // knows the stream as it was
    hub.stream = after;
    Run(200);
    EXPECT_EQ(hub.stream.size(), after.size());
    EXPECT_EQ(Arrived(), m_mapWritten);
}

TEST_F(Forward, WhatTheHubHasLostIsSentAgain)
{
    Write(Name(0), Segment(2000));
    Start();
    Run();
    m_hub.Disconnect();
    m_hub.stream.resize(m_hub.stream.size() / 2); // a power cut of all servers
    Run(2);
    m_hub.Connect();
    Run(200);
    EXPECT_EQ(Arrived(), m_mapWritten);
    EXPECT_NE(m_text.str().find("no longer has the last message"), std::string::npos);
}

TEST_F(Forward, ALaneThatTheHubHasLostTheEndOfIsSentAgainFromThere)
{
    Write(Name(0), Segment(100));
    Start();
    Run(800); // 40 s: more than the time in which a hub loses anything
    Write(Name(1), Segment(0));
    Run(800);
    Write(Name(2), Segment(0));
    Run(); // this message tells that all of the first segment is there
    m_hub.Disconnect();
    m_hub.LoseLast("vex.lab7." + m_pLedger->Epoch() + ".ue1.lte-data");
    Run(2);
    m_hub.Connect();
    Run(200);
    EXPECT_EQ(Arrived(), m_mapWritten);
}

TEST_F(Forward, ARestartDoesNotRelyOnWhatTheHubHasHadForAMomentOnly)
{
    Write(Name(0), Segment(100));
    Start();
    Run(500); // 25 s
    Write(Name(1), Segment(0));
    Run();
    m_hub.LoseLast("vex.lab7." + m_pLedger->Epoch() + ".ue1.lte-data"); // a server is killed, and the program, too
    Start();
    Run(200);
    EXPECT_EQ(Arrived(), m_mapWritten);
}

TEST_F(Forward, AMessageTellsWhatTheHubHasHadForAWhile)
{
    const auto completed = [&] {
        FLEET_MESSAGE stMessage;
        EXPECT_TRUE(DecodeMessage(m_hub.stream.back().vecBytes, stMessage));
        return stMessage.stCompleted;
    };
    Write(Name(0), Segment(100));
    Start();
    Run(500); // 25 s
    Write(Name(1), Segment(0));
    Run();
    EXPECT_EQ(completed(), FLEET_POSITION());
    Run(800);
    Write(Name(2), Segment(0));
    Run();
    EXPECT_EQ(completed(), (FLEET_POSITION{Name(1), m_mapWritten[Name(1)].size()}));
}

TEST_F(Forward, AHubThatBeginsAnewGetsTheWholeSpool)
{
    Write(Name(0), Segment(500));
    Compress(Name(0));
    Write(Name(1), Segment(500));
    Start();
    Run();
    m_hub.stream.clear();
    Start();
    Run();
    EXPECT_EQ(Arrived(), m_mapWritten);
}

TEST_F(Forward, TheRateIsBounded)
{
    Write(Name(0), Segment(5000)); // 0.9 MB
    m_stSettings.stPublish.ullMaxRate = 200'000;
    Start();
    Run(40); // 2 s, and 250 ms that may come at once, and a message that began
    size_t szBytes = 0;
    for (const auto& [strName, bytes] : Arrived())
        szBytes += bytes.size();
    EXPECT_GT(szBytes, 350'000u);
    EXPECT_LT(szBytes, 480'000u);
}

TEST_F(Forward, AForeignMessageStopsItsLane)
{
    Write(Name(0), Segment(100));
    Start();
    m_hub.stream.push_back({"vex.lab7." + m_pLedger->Epoch() + ".ue0.lte-data", "x", {1, 2, 3}});
    Run();
    EXPECT_NE(m_text.str().find("somebody else has published there"), std::string::npos);
    EXPECT_EQ(std::ranges::count(m_hub.stream, m_hub.stream[0].strSubject, &CFakeHub::STORED::strSubject), 1);
}

TEST(ForwardLane, ALargeBlockGoesInPieces)
{
    CLane lane({"lab7", "e", {"ue0", "at"}});
    const Bytes block(ByteView(std::vector<unsigned char>(FLEET_MESSAGE_MOST + 100, 7)));
    lane.Add({1, 40}, block, 0, {});
    EXPECT_EQ(lane.Bytes(), block.size());
    EXPECT_EQ(lane.Front().vecRuns, (std::vector<FLEET_RUN>{{40, FLEET_MESSAGE_MOST}}));
    lane.Trim(lane.Front().End());
    EXPECT_EQ(lane.Front().vecRuns, (std::vector<FLEET_RUN>{{40 + FLEET_MESSAGE_MOST, 100}}));
}

TEST(ForwardLane, WhatTheHubHasIsCutOffWithinAMessage)
{
    CLane lane({"lab7", "e", {"ue0", "at"}});
    lane.Add({1, 0}, Bytes{1, 2, 3, 4}, 0, {});
    lane.Add({1, 10}, Bytes{5, 6, 7, 8}, 0, {});
    lane.Trim({1, 12});
    EXPECT_EQ(lane.Front().vecRuns, (std::vector<FLEET_RUN>{{12, 2}}));
    EXPECT_EQ(Bytes(ByteView(lane.Front().vecBytes)), (Bytes{7, 8}));
    EXPECT_EQ(lane.Bytes(), 2u);
}

TEST(ForwardLane, AMessageIsOfOneSegmentAndWaitsForMore)
{
    const CLane::TIME start{};
    CLane lane({"lab7", "e", {"ue0", "at"}});
    lane.Add({1, 0}, Bytes{1, 2, 3, 4}, 0, start);
    lane.Add({1, 4}, Bytes{5, 6, 7, 8}, 0, start);
    EXPECT_EQ(lane.Front().vecRuns, (std::vector<FLEET_RUN>{{0, 8}})); // they lie together
    EXPECT_FALSE(lane.IsRipe(start + 199ms, 200ms));
    EXPECT_TRUE(lane.IsRipe(start + 200ms, 200ms));
    lane.Add({2, 0}, Bytes{9}, 0, start);
    EXPECT_TRUE(lane.IsRipe(start, 200ms));
    EXPECT_EQ(lane.Front().vecBytes.size(), 8u);
}
