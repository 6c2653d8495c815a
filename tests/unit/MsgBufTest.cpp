#include "common/MsgBuf.h"

#include "support/Blocks.h"
#include "support/LogCapture.h"
#include "support/Queues.h"

#include <gtest/gtest.h>
#include <poll.h>

namespace
{
CPacket Copy(const Bytes& bytes)
{
    return CPacket::Copy(bytes);
}

class MsgBuf : public testing::Test
{
protected:
    ~MsgBuf() override { CMsgBuf::Destory(); }

    CMsgBuf& m_buf = *CMsgBuf::Instance();
};

/// Fills a queue of 10000 and sees the next put block until one record is taken.
template <class Msg, class Queue> void ExpectHolds10000(Queue& queue)
{
    {
        CBackgroundCall fill([&] {
            for (int i = 0; i < 10000; ++i)
                queue.put(Msg{});
        });
        ASSERT_TRUE(fill.Returns());
    }
    CBackgroundCall next([&] { queue.put(Msg{}); });
    EXPECT_TRUE(next.Blocks());
    Msg stOut{};
    EXPECT_TRUE(queue.get(stOut));
    EXPECT_TRUE(next.Returns());
}

} // namespace

TEST_F(MsgBuf, EachQueueHolds10000Records)
{
    ExpectHolds10000<MSG_UE>(m_buf.UeQueue());
    ExpectHolds10000<MSG_AGENT>(m_buf.AgentQueue());
}

TEST_F(MsgBuf, PutWorksBeforeStart)
{
    EXPECT_TRUE(PostUeMsg(UE_MSG_SERIAL, 3, CHANNEL_GU_CMD, {}));
    m_buf.Start();
    EXPECT_EQ(DrainUeQueue().size(), 1u);
}

TEST_F(MsgBuf, APostedRecordArrivesWithItsData)
{
    EXPECT_TRUE(PostAgentMsg(AGENT_MSG_DATA, 2, CHANNEL_LTE_DATA, Copy({0xDE, 0xAD})));
    EXPECT_TRUE(PostUeMsg(UE_MSG_TCP, 15, CHANNEL_GU_CMD, Copy({0x01, 0x02, 0x03})));

    const auto vecAgent = DrainAgentQueue();
    ASSERT_EQ(vecAgent.size(), 1u);
    EXPECT_EQ(vecAgent[0].ulMsgType, 1u);
    EXPECT_EQ(vecAgent[0].ulUeIdx, 2u);
    EXPECT_EQ(vecAgent[0].enChannel, CHANNEL_LTE_DATA);
    EXPECT_EQ(vecAgent[0].data, (Bytes{0xDE, 0xAD}));

    const auto vecUe = DrainUeQueue();
    ASSERT_EQ(vecUe.size(), 1u);
    EXPECT_EQ(vecUe[0].ulMsgType, 2u);
    EXPECT_EQ(vecUe[0].ulUeIdx, 15u);
    EXPECT_EQ(vecUe[0].enChannel, CHANNEL_GU_CMD);
    EXPECT_EQ(vecUe[0].data, (Bytes{0x01, 0x02, 0x03}));
}

TEST_F(MsgBuf, ARunIsPostedAtItsEndOrWhenItIsFull)
{
    CBackgroundCall end([&] {
        CAgentMsgRun run;
        for (unsigned int i = 0; i < MSG_RUN_MAX + 2; ++i)
            run.Add(3, CHANNEL_GU_DATA, Copy({static_cast<unsigned char>(i)}));
        EXPECT_EQ(DrainAgentQueue().size(), MSG_RUN_MAX);
    });
    EXPECT_TRUE(end.Returns());
    const auto vecRest = DrainAgentQueue();
    ASSERT_EQ(vecRest.size(), 2u);
    EXPECT_EQ(vecRest[0].data, Bytes{0x00}); // the 257th
    EXPECT_EQ(vecRest[1].data, Bytes{0x01});
    EXPECT_EQ(vecRest[1].ulUeIdx, 3u);
    EXPECT_EQ(vecRest[1].ulMsgType, AGENT_MSG_DATA);
    EXPECT_EQ(vecRest[1].enChannel, CHANNEL_GU_DATA);
}

namespace
{
/// Takes what it is offered, or says that it is busy.
class CTaker : public IAgentMsgTaker
{
public:
    bool TryTake(std::span<MSG_AGENT> msgs) override
    {
        if (m_bBusy)
            return false;
        for (MSG_AGENT& stMsg : msgs)
            m_vecUe.push_back(stMsg.ulUeIdx);
        return true;
    }

    bool m_bBusy = false;
    std::vector<UE_INDEX> m_vecUe; // of the records taken, in order
};

void PostData(std::initializer_list<UE_INDEX> ues)
{
    CAgentMsgRun run;
    for (const UE_INDEX ulUeIdx : ues)
        run.Add(ulUeIdx, CHANNEL_LTE_DATA, Copy({0x01}));
}
} // namespace

TEST_F(MsgBuf, DataThatFindsNoOtherOnItsWayIsHandedOver)
{
    CTaker taker;
    m_buf.SetAgentTaker(&taker);
    PostData({1, 2});
    EXPECT_EQ(taker.m_vecUe, (std::vector<UE_INDEX>{1, 2}));
    EXPECT_EQ(m_buf.LoadFromUe(1, CHANNEL_LTE_DATA)->Cost(), 0u) << "never under way";
    EXPECT_TRUE(DrainAgentQueue().empty());
}

TEST_F(MsgBuf, DataGoesThroughTheQueueWhileTheTakerIsBusy)
{
    CTaker taker;
    taker.m_bBusy = true;
    m_buf.SetAgentTaker(&taker);
    PostData({1, 2});
    EXPECT_EQ(m_buf.LoadFromUe(1, CHANNEL_LTE_DATA)->Cost(), CLineLoad::RECORD_COST + 1);
    EXPECT_EQ(DrainAgentQueue().size(), 2u);
    EXPECT_TRUE(taker.m_vecUe.empty());
}

TEST_F(MsgBuf, NothingOvertakesWhatIsOnTheQueueOrInTheHandsOfItsReader)
{
    CTaker taker;
    m_buf.SetAgentTaker(&taker);
    EXPECT_TRUE(PostAgentMsg(AGENT_MSG_CONNECT, 1, CHANNEL_LTE_DATA, {})); // never handed over
    PostData({1});
    EXPECT_EQ(DrainAgentQueue().size(), 2u); // taken off, but not handled yet
    PostData({1});
    EXPECT_TRUE(taker.m_vecUe.empty());
    EXPECT_EQ(DrainAgentQueue().size(), 1u);
    m_buf.OnAgentMsgsDone(1, 2);
    PostData({1});
    EXPECT_TRUE(taker.m_vecUe.empty()) << "one is left";
    EXPECT_EQ(DrainAgentQueue().size(), 1u);
    m_buf.OnAgentMsgsDone(1, 2);
    PostData({1});
    EXPECT_EQ(taker.m_vecUe, std::vector<UE_INDEX>{1});
}

TEST_F(MsgBuf, WhatIsOnTheQueueOfOneUeHoldsUpNoOther)
{
    CTaker taker;
    m_buf.SetAgentTaker(&taker);
    EXPECT_TRUE(PostAgentMsg(AGENT_MSG_CONNECT, 1, CHANNEL_LTE_DATA, {}));
    PostData({2, 1, 15});
    EXPECT_EQ(taker.m_vecUe, (std::vector<UE_INDEX>{2, 15}));
    EXPECT_EQ(DrainAgentQueue().size(), 2u);
}

TEST_F(MsgBuf, WithoutATakerAllGoesThroughTheQueue)
{
    CTaker taker;
    m_buf.SetAgentTaker(&taker);
    m_buf.SetAgentTaker(nullptr);
    PostData({1});
    EXPECT_EQ(DrainAgentQueue().size(), 1u);
    EXPECT_TRUE(taker.m_vecUe.empty());
}

TEST_F(MsgBuf, WhatAStoppedQueueRefusesIsOnNoWay)
{
    CTaker taker;
    m_buf.SetAgentTaker(&taker);
    m_buf.Stop();
    EXPECT_FALSE(PostAgentMsg(AGENT_MSG_DISCONNECT, 1, CHANNEL_LTE_DATA, {}));
    PostData({1});
    EXPECT_EQ(taker.m_vecUe, std::vector<UE_INDEX>{1}) << "the count is what it was";
}

TEST_F(MsgBuf, ChargesGoWithTheRecordsOfTheirLine)
{
    // Both channels of the GU port are one line.
    CLineLoad& up = *m_buf.LoadFromUe(2, CHANNEL_GU_CMD);
    EXPECT_EQ(&up, m_buf.LoadFromUe(2, CHANNEL_GU_DATA));
    EXPECT_NE(&up, m_buf.LoadFromUe(2, CHANNEL_LTE_DIAG));
    EXPECT_NE(&up, m_buf.LoadFromUe(3, CHANNEL_GU_CMD));
    EXPECT_NE(&up, m_buf.LoadToUe(2, CHANNEL_GU_CMD));
    EXPECT_EQ(m_buf.LoadFromUe(16, CHANNEL_GU_CMD), nullptr);
    EXPECT_EQ(m_buf.LoadToUe(0, static_cast<enChannelType>(5)), nullptr);
    {
        CAgentMsgRun run;
        run.Add(2, CHANNEL_GU_CMD, CPacket::Zeroed(150'000));
        run.Add(2, CHANNEL_GU_DATA, CPacket::Zeroed(150'000));
    }
    EXPECT_FALSE(up.HasRoom());
    EXPECT_EQ(DrainAgentQueue().size(), 2u);
    EXPECT_TRUE(up.HasRoom());
}

TEST_F(MsgBuf, APauseBehindAPacketIsCountedUntilItsChargeIsGone)
{
    CLineLoad& load = *m_buf.LoadToUe(1, CHANNEL_GU_CMD);
    SendData2UE(Copy({1}), 1, CHANNEL_GU_CMD, std::chrono::milliseconds(100));
    SendData2UE(Copy({2}), 1, CHANNEL_GU_CMD);
    EXPECT_EQ(load.PacedPosted(), 1u);
    MSG_UE stMsg;
    ASSERT_TRUE(m_buf.UeQueue().get(stMsg));
    EXPECT_EQ(stMsg.pause, std::chrono::milliseconds(100));
    EXPECT_EQ(load.PacedDone(), 0u);
    ASSERT_TRUE(m_buf.UeQueue().get(stMsg)) << "the next one takes its place";
    EXPECT_EQ(stMsg.pause, std::chrono::milliseconds(0));
    EXPECT_EQ(load.PacedDone(), 1u);
}

TEST_F(MsgBuf, BeyondTheLimitOfALinePacketsAreLostWithOneWarning)
{
    const CLogCapture log;
    for (int i = 0; i < 3; ++i)
        SendData2UE(CPacket::Zeroed(200'000), 4, CHANNEL_AT); // the third begins below the limit
    for (int i = 0; i < 5; ++i)
        SendData2UE(Copy({1}), 4, CHANNEL_AT);
    SendData2UE(Copy({2}), 4, CHANNEL_LTE_DIAG); // another line of the same UE
    EXPECT_EQ(log.Count("[WAN] : UE 4 AT: too many packets wait to be written, what comes now is lost"), 1);
    const auto taken = DrainUeQueue();
    ASSERT_EQ(taken.size(), 4u);
    EXPECT_EQ(taken[3].enChannel, CHANNEL_LTE_DIAG);
    SendData2UE(Copy({3}), 4, CHANNEL_AT);
    EXPECT_EQ(DrainUeQueue().size(), 1u) << "there is room again";
    EXPECT_EQ(log.Count("too many packets"), 1);
}

TEST_F(MsgBuf, APostWakesTheWriterThatSleeps)
{
    CWakeUp& wake = m_buf.WriteWake();
    pollfd stFd{wake.Fd(), POLLIN, 0};
    EXPECT_TRUE(PostUeMsg(UE_MSG_SERIAL, 0, CHANNEL_AT, {}));
    EXPECT_EQ(poll(&stFd, 1, 0), 0) << "it was awake";
    wake.FallAsleep();
    EXPECT_TRUE(PostUeMsg(UE_MSG_SERIAL, 0, CHANNEL_AT, {}));
    EXPECT_EQ(poll(&stFd, 1, 0), 1);
}

TEST_F(MsgBuf, AStoppedQueueRefusesAndTheDataIsFreed)
{
    m_buf.Stop();
    {
        CAgentMsgRun run;
        run.Add(0, CHANNEL_AT, Copy({0x01}));
    }
    EXPECT_FALSE(PostAgentMsg(AGENT_MSG_DATA, 0, CHANNEL_AT, Copy({0x01}))); // a leak fails the sanitized run
    EXPECT_FALSE(PostUeMsg(UE_MSG_SERIAL, 0, CHANNEL_AT, Copy({0x01})));
    m_buf.Start();
    EXPECT_TRUE(PostAgentMsg(AGENT_MSG_DATA, 0, CHANNEL_AT, Copy({0x01})));
}

TEST_F(MsgBuf, StopReleasesBothReaders)
{
    CBackgroundCall agent([&] {
        MSG_AGENT stMsg{};
        EXPECT_FALSE(m_buf.AgentQueue().get(stMsg));
    });
    CBackgroundCall ue([&] {
        MSG_UE stMsg{};
        EXPECT_FALSE(m_buf.UeQueue().get(stMsg));
    });
    EXPECT_TRUE(agent.Blocks());
    EXPECT_TRUE(ue.Blocks());
    m_buf.Stop();
    EXPECT_TRUE(agent.Returns());
    EXPECT_TRUE(ue.Returns());
}

TEST_F(MsgBuf, DestoryFreesWhatIsLeftAndLetsThreadsLeave)
{
    PostUeMsg(UE_MSG_SERIAL, 0, CHANNEL_AT, Copy({0x01}));
    PostAgentMsg(AGENT_MSG_DATA, 0, CHANNEL_AT, Copy({0x01}));
    MSG_AGENT stFirst{};
    ASSERT_TRUE(m_buf.AgentQueue().get(stFirst));
    CBackgroundCall reader([&] {
        MSG_AGENT stMsg{};
        EXPECT_FALSE(m_buf.AgentQueue().get(stMsg));
    });
    EXPECT_TRUE(reader.Blocks());
    CMsgBuf::Destory();
    EXPECT_TRUE(reader.Returns());
    EXPECT_FALSE(m_buf.UeQueue().put(MSG_UE{})); // the old object is stopped and still there
    EXPECT_NE(CMsgBuf::Instance(), &m_buf);
    EXPECT_TRUE(PostUeMsg(UE_MSG_SERIAL, 0, CHANNEL_AT, {}));
}

TEST_F(MsgBuf, SeveralFirstCallersGetOneObject)
{
    CMsgBuf::Destory();
    std::array<std::atomic<CMsgBuf*>, 4> apSeen{};
    {
        std::vector<std::thread> vecThreads;
        for (auto& pSeen : apSeen)
            vecThreads.emplace_back([&pSeen] { pSeen = CMsgBuf::Instance(); });
        for (std::thread& thread : vecThreads)
            thread.join();
    }
    for (const auto& pSeen : apSeen)
        EXPECT_EQ(pSeen, CMsgBuf::Instance());
}

TEST(AttachInfo, BlockHas260Bytes)
{
    UE_ATTACH_INFO_STRU stInfo;
    stInfo.ulPortNum = 0x01020304;
    stInfo.szSerialName = "/dev/ttyUSB0";
    stInfo.szGroupId = "7";
    Bytes block(UE_ATTACH_INFO_STRU::SIZE, 0xEE);
    CByteWriter writer(block);
    AttachInfo(writer, stInfo);
    EXPECT_TRUE(writer.Ok());
    EXPECT_EQ(block, Join(Hex("04 03 02 01"), AsBytes("/dev/ttyUSB0"), Fill(116), AsBytes("7"), Fill(127)));

    UE_ATTACH_INFO_STRU stBack;
    CByteReader reader(block);
    AttachInfo(reader, stBack);
    EXPECT_TRUE(reader.Ok());
    EXPECT_EQ(stBack.ulPortNum, 0x01020304u);
    EXPECT_EQ(stBack.szSerialName, "/dev/ttyUSB0");
    EXPECT_EQ(stBack.szGroupId, "7");
}

TEST(AttachInfo, TextsAreCutToTheirFields)
{
    UE_ATTACH_INFO_STRU stInfo;
    stInfo.szSerialName.assign(128, 'a');
    stInfo.szGroupId.assign(300, 'b');
    Bytes block(UE_ATTACH_INFO_STRU::SIZE);
    CByteWriter writer(block);
    AttachInfo(writer, stInfo);
    EXPECT_EQ(block, Join(Fill(4), Fill(127, 'a'), Fill(1), Fill(127, 'b'), Fill(1)));
}
