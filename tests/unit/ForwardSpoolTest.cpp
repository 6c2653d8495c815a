#include "unit/ForwardFixture.h"

#include "common/Record.h"
#include "tap/TapEvents.h"

TEST_F(Forward, ASegmentMayBeCompressedWhileItIsRead)
{
    const Bytes segment = Segment(2000);
    Write(Name(0), ByteView(segment).first(segment.size() / 2));
    m_stSettings.stPublish.ullMaxRate = 100'000;
    Start();
    Run(20);
    Write(Name(0), ByteView(segment).subspan(segment.size() / 2));
    Compress(Name(0));
    Write(Name(1), Segment(100));
    Run(20);
    Start(); // and begins with the compressed one
    m_stSettings.stPublish.ullMaxRate = 0;
    Start();
    Run();
    EXPECT_EQ(Arrived(), m_mapWritten);
}

TEST_F(Forward, ASegmentThatIsGoneLeavesALossRecord)
{
    for (unsigned int i = 0; i < 4; ++i)
        Write(Name(i), Segment(100));
    Start(); // knows them all, and has no connection
    m_hub.Disconnect();
    Run(5);
    std::filesystem::remove(Path(Name(1)));
    std::filesystem::remove(Path(Name(2)));
    m_hub.Connect();
    Run(200);
    EXPECT_EQ(Losses(), (std::vector<std::pair<std::string, uint64_t>>{{Name(1), 0}, {Name(2), 0}}));
    m_mapWritten.erase(Name(1));
    m_mapWritten.erase(Name(2));
    EXPECT_EQ(Arrived(), m_mapWritten);
    EXPECT_NE(m_text.str().find(Name(1) + ", from byte 0: gone before it was sent"), std::string::npos);
}

TEST_F(Forward, ALossIsToldOnceWhateverIsRestarted)
{
    Write(Name(0), Segment(100));
    Start();
    Run();
    const size_t szFirst = m_mapWritten[Name(0)].size();
    m_pForwarder->Run([] { return true; }); // a clean end
    Write(Name(0), Segment(100));
    m_pForwarder.reset();
    std::filesystem::remove(Path(Name(0))); // while nobody looks
    Write(Name(1), Segment(100));
    for (int i = 0; i < 3; ++i) {
        Start();
        Run(200);
    }
    EXPECT_EQ(Losses(), (std::vector<std::pair<std::string, uint64_t>>{{Name(0), szFirst}}));
    EXPECT_EQ(Arrived()[Name(1)], m_mapWritten[Name(1)]);
}

TEST_F(Forward, ADamagedSegmentIsLostFromThereOn)
{
    const Bytes segment = Segment(10);
    Write(Name(0), segment);
    Write(Name(0), Bytes{6, 0, 0, 0, 13, 0, 0, 0, 1, 2, 3, 4}); // no block is 13 bytes long
    Write(Name(1), Segment(10));
    Start();
    Run(200);
    EXPECT_EQ(Losses(), (std::vector<std::pair<std::string, uint64_t>>{{Name(0), segment.size()}}));
    EXPECT_EQ(Arrived()[Name(0)], segment);
    EXPECT_EQ(Arrived()[Name(1)], m_mapWritten[Name(1)]);
}

TEST_F(Forward, ACompressedFileThatEndsEarlyIsLostFromThereOn)
{
    Write(Name(0), Segment(3000));
    Compress(Name(0));
    const std::string strFile = Path(Name(0)) + ".zst";
    std::filesystem::resize_file(strFile, std::filesystem::file_size(strFile) / 2);
    Write(Name(1), Segment(10));
    Start();
    Run(200);
    ASSERT_EQ(Losses().size(), 1u);
    EXPECT_EQ(Losses()[0].first, Name(0));
    EXPECT_EQ(Losses()[0].second, Arrived()[Name(0)].size());
    EXPECT_EQ(Arrived()[Name(1)], m_mapWritten[Name(1)]);
}

TEST_F(Forward, WhatAKilledCaptureLeftIsNoLoss)
{
    const Bytes segment = Segment(10);
    Write(Name(0), ByteView(segment).first(segment.size() - 10));
    Start();
    Run();
    const size_t szWhole = Arrived()[Name(0)].size();
    std::filesystem::resize_file(Path(Name(0)), szWhole); // as vex-capture cuts it at its next start
    Compress(Name(0));
    Write(Name(1), Segment(10));
    Run(200);
    EXPECT_TRUE(Losses().empty());
    EXPECT_EQ(Arrived()[Name(0)], Bytes(ByteView(segment).first(szWhole)));
    EXPECT_EQ(Arrived()[Name(1)], m_mapWritten[Name(1)]);
}

TEST_F(Forward, AClockThatWasSetBackDoesntChangeTheOrder)
{
    Write(Name(5), Segment(100));
    Start();
    Run();
    Write(Name(5), Segment(50));
    Write(Name(2), Segment(100)); // by its name before the other one
    Run(200);
    Start();
    Run();
    Write(Name(2), Segment(50));
    Run();
    EXPECT_EQ(Arrived(), m_mapWritten);
}

TEST_F(Forward, WhatTheHubHasIsDeletedWhenAskedFor)
{
    m_stSettings.bDelete = true;
    for (unsigned int i = 0; i < 3; ++i)
        Write(Name(i), Segment(100));
    Compress(Name(0));
    Start();
    m_hub.bLoseAnswers = true;
    Run(40);
    EXPECT_TRUE(std::filesystem::exists(Path(Name(0)) + ".zst")); // nothing is known to be there
    m_hub.bLoseAnswers = false;
    Run(500); // 25 s: it may still lose what it has
    EXPECT_TRUE(std::filesystem::exists(Path(Name(0)) + ".zst"));
    Run(300);
    EXPECT_FALSE(std::filesystem::exists(Path(Name(0)) + ".zst"));
    EXPECT_TRUE(std::filesystem::exists(Path(Name(1)))); // may be compressed right now
    EXPECT_TRUE(std::filesystem::exists(Path(Name(2))));
    Start();
    Run(200);
    EXPECT_TRUE(Losses().empty());
    EXPECT_EQ(Arrived(), m_mapWritten);
}

TEST_F(Forward, AnEmptyFileIsSeenWhenItFills)
{
    Start();
    Write(Name(0), {});
    Run();
    Write(Name(0), Segment(10));
    Run();
    EXPECT_EQ(Arrived(), m_mapWritten);
}

TEST_F(Forward, OneForwarderASpool)
{
    Start();
    CSegmentLedger second(Spool());
    std::string strError;
    EXPECT_FALSE(second.Open(strError));
    EXPECT_NE(strError.find("another forwarder is there"), std::string::npos);
    CSegmentLedger none(Spool() + "/none");
    EXPECT_FALSE(none.Open(strError));
    EXPECT_NE(strError.find("there is no such folder"), std::string::npos);
}

TEST_F(Forward, AnInstallationKeepsItsIdAndAWipedOneGetsAnother)
{
    Start();
    const std::string strFirst = m_pLedger->Epoch();
    EXPECT_EQ(strFirst.size(), 16u);
    Start();
    EXPECT_EQ(m_pLedger->Epoch(), strFirst);
    m_pForwarder.reset();
    std::filesystem::remove(Spool() + "/forward.id");
    Start();
    EXPECT_NE(m_pLedger->Epoch(), strFirst);
}

TEST_F(Forward, TheStateTellsWhatGoesOnNow)
{
    Bytes segment;
    CPcapngWriter writer(segment);
    writer.Begin({"lab7", 1, 2, 3}, "test");
    TAP_RECORD stEvent{
        .enKind = TAP_KIND::PORT_EVENT, .ucUe = 3, .ucChannel = CHANNEL_LTE_DATA, .ucFlags = TAP_REPLAYED};
    writer.Record(stEvent, EncodeRecord(TAP_CHANNEL_EVENT{.ucAttached = 1, .strName = {}, .strGroup = {}}));
    stEvent.ucChannel = TAP_NO_CHANNEL;
    writer.Record(stEvent, EncodeRecord(TAP_UE_EVENT{.strImei = {}, .strVersion = "modem A"}));
    Write(Name(0), segment);
    m_stSettings.stateEvery = std::chrono::seconds(1);
    Start();
    m_hub.bLoseRequests = true; // nothing goes, but the state does
    Run(1);
    segment.clear();
    TAP_RECORD stRecord{.enKind = TAP_KIND::UE_TO_AGENT, .ucUe = 3, .ucChannel = CHANNEL_LTE_DATA};
    for (int i = 0; i < 10; ++i)
        writer.Record(stRecord, Bytes{1, 2, 3}, i == 0 ? 5 : 0);
    Write(Name(0), segment);
    Run(20);
    ASSERT_GE(m_hub.states.size(), 2u);
    const auto state = StateFromJson(m_hub.states.at(1));
    ASSERT_TRUE(state);
    EXPECT_EQ(state->strBench, "lab7");
    EXPECT_EQ(state->ullBacklogBytes, m_mapWritten[Name(0)].size());
    EXPECT_EQ(state->ullLostRecords, 5u);
    ASSERT_EQ(state->vecModems.size(), 1u);
    EXPECT_EQ(state->vecModems[0].ulUe, 3u);
    EXPECT_EQ(state->vecModems[0].strName, "modem A");
    ASSERT_EQ(state->vecModems[0].vecChannels.size(), 1u);
    EXPECT_TRUE(state->vecModems[0].vecChannels[0].bPresent);
    EXPECT_EQ(state->vecModems[0].vecChannels[0].ullRecords, 10u);
    EXPECT_NEAR(state->vecModems[0].vecChannels[0].dRecordRate, 10, 0.01); // in a second
}
