#include "uesim/ReplayPlan.h"
#include "common/Record.h"
#include "support/TestBytes.h"
#include "tap/TapEvents.h"

#include <gtest/gtest.h>

// What a capture's packets answer, and which ports come and go.

namespace
{
constexpr uint64_t MS = 1'000'000; // ns
constexpr uint8_t SLOT = 2;

// As in config/vex.cfg: a request has its id at 8; an ack too, and a tag at 4 that isn't 3 or 255.
const std::string LAYOUT =
    "REQ_CHL_PACKET_HEADER_LEN=24\n"
    "REQ_CHL_PACKET_HEADER={0,1};{1,1};{2,1};{3,1};{4,1};{5,1};{6,2};{8,4};{12,4};{16,4};{20,4}\n"
    "ACK_CHL_PACKET_HEADER={8,4};{24,4};{12,4};{5,1};{16,8};{0,0}\n"
    "DATA_ACK_CHL_PACKET_UID={8,4};{4,1};{5,1}\n";

Bytes LteRequest(uint32_t ulId)
{
    return Join(Fill(8), Le(ulId), Fill(12));
}
Bytes LteAck(uint32_t ulId)
{
    return Join(Hex("00 00 00 00 02 00 00 00"), Le(ulId), Fill(16));
}
Bytes LteIndication(uint32_t ulId)
{
    return Join(Hex("00 00 00 00 03 00 00 00"), Le(ulId), Fill(16));
}
/// An OM frame of the agent with a transparent request; its length counts the payload of 28 bytes and 4.
Bytes GuRequest(uint16_t usId, const std::string& strSegment = "01 01")
{
    return Join(Hex("01 55 55 AA AA 20 00" + strSegment + "04"), Fill(23), Le(usId), Fill(2), Hex("AA AA 55 55"));
}
/// A transparent message of 16 bytes: its length field leaves out 4.
Bytes GuMessage(uint16_t usId)
{
    return Join(Hex("04 00 0C 00"), Fill(8), Le(usId), Fill(2));
}
/// A block of frame mode 2 with these messages in one OM frame.
Bytes GuBlock(const Bytes& messages)
{
    return Join(Hex("01"), Fill(8), Hex("55 55 AA AA"), Le(static_cast<uint16_t>(messages.size() + 4)), Hex("01 01"),
                messages, Hex("AA AA 55 55"));
}

/// Builds a plan record by record; times in ms.
class CPlanBuilder
{
public:
    CPlanBuilder() { Add({.enKind = TAP_KIND::CONFIGURATION, .ucFlags = TAP_REPLAYED}, 0, AsBytes(LAYOUT)); }

    void Add(TAP_RECORD stHead, uint64_t ullMs, ByteView bytes, uint64_t ullLost = 0)
    {
        stHead.ullTime = 1'700'000'000'000'000'000 + ullMs * MS;
        m_plan.Add({stHead, bytes, ullLost, ""});
    }
    void Packet(TAP_KIND enKind, enChannelType enChannel, uint64_t ullMs, const Bytes& bytes)
    {
        Add({.enKind = enKind, .ucUe = SLOT, .ucChannel = static_cast<uint8_t>(enChannel), .ulPort = 201}, ullMs,
            bytes);
    }
    void FromUe(enChannelType enChannel, uint64_t ullMs, const Bytes& bytes)
    {
        Packet(TAP_KIND::UE_TO_AGENT, enChannel, ullMs, bytes);
    }
    void ToUe(enChannelType enChannel, uint64_t ullMs, const Bytes& bytes)
    {
        Packet(TAP_KIND::AGENT_TO_UE, enChannel, ullMs, bytes);
    }
    /// Number 0: the port has gone.
    void Channel(enChannelType enChannel, uint32_t ulPort, uint64_t ullMs, uint8_t ucFlags = 0)
    {
        TAP_CHANNEL_EVENT stEvent;
        stEvent.ucAttached = ulPort != 0 ? 1 : 0;
        stEvent.strGroup = ulPort != 0 ? "modem" : "";
        Add({TAP_KIND::PORT_EVENT, SLOT, static_cast<uint8_t>(enChannel), ucFlags, ulPort}, ullMs,
            EncodeRecord(stEvent));
    }

    const CReplayPlan& Plan() const { return m_plan; }
    const REPLAY_UE& Ue() const { return m_plan.Ues().at(SLOT); }
    /// For each packet of the modem, which requests it answers.
    std::vector<std::vector<size_t>> Answers() const
    {
        std::vector<std::vector<size_t>> answers;
        for (const REPLAY_STEP& stStep : Ue().steps)
            answers.push_back(stStep.requests);
        return answers;
    }

private:
    CReplayPlan m_plan;
};

using ANSWERS = std::vector<std::vector<size_t>>;
} // namespace

TEST(ReplayPlan, AnAckAnswersTheEarliestRequestOfItsIdThatHasNoAnswer)
{
    CPlanBuilder plan;
    plan.ToUe(CHANNEL_LTE_DIAG, 100, LteRequest(0x10014003)); // 0
    plan.ToUe(CHANNEL_LTE_DIAG, 110, LteRequest(0x10014003)); // 1
    plan.ToUe(CHANNEL_LTE_DIAG, 120, LteRequest(0x10015503)); // 2
    plan.FromUe(CHANNEL_LTE_DIAG, 130, LteAck(0x10015503));
    plan.FromUe(CHANNEL_LTE_DIAG, 140, LteAck(0x10014003));
    plan.FromUe(CHANNEL_LTE_DIAG, 150, LteAck(0x10014003));
    plan.FromUe(CHANNEL_LTE_DIAG, 160, LteAck(0x10014003)); // nobody asked
    EXPECT_EQ(plan.Answers(), (ANSWERS{{2}, {0}, {1}, {}}));
    EXPECT_EQ(plan.Ue().requests[0].strName, "0x10014003");
    EXPECT_EQ(plan.Ue().requests[0].ullTime, 100 * MS);
    EXPECT_EQ(plan.Ue().steps[0].ullTime, 130 * MS);
    EXPECT_EQ(plan.Ue().requests[0].szSteps, 0u);
    EXPECT_TRUE(plan.Ue().requests[2].bAnswered);
}

TEST(ReplayPlan, TheHostConnectHasTwoFormsOfConfirmation)
{
    for (const uint32_t ulId : {0x10065000U, 0x10066000U}) {
        CPlanBuilder plan;
        plan.ToUe(CHANNEL_LTE_DIAG, 0, LteRequest(0x10065000));
        plan.FromUe(CHANNEL_LTE_DIAG, 5, LteAck(ulId));
        EXPECT_EQ(plan.Answers(), (ANSWERS{{0}})) << ulId;
    }
}

TEST(ReplayPlan, WhatIsNoAnswerComesByItself)
{
    CPlanBuilder plan;
    plan.ToUe(CHANNEL_LTE_DIAG, 0, LteRequest(0x10014003));
    plan.FromUe(CHANNEL_LTE_DIAG, 1, LteIndication(0x10014003));
    plan.FromUe(CHANNEL_LTE_DATA, 2, LteAck(0x10014003)); // on another port
    EXPECT_EQ(plan.Answers(), (ANSWERS{{}, {}}));
    EXPECT_FALSE(plan.Ue().requests[0].bAnswered);
}

TEST(ReplayPlan, GuConfirmsAnswerByTheTableOfReports)
{
    CPlanBuilder plan;
    plan.ToUe(CHANNEL_GU_CMD, 0, GuRequest(0xE600));          // 0: its confirm is E601
    plan.ToUe(CHANNEL_GU_CMD, 1, GuRequest(0xB013));          // 1: has none, its report is B015
    plan.ToUe(CHANNEL_GU_CMD, 2, GuRequest(0x0000, "02 02")); // a further segment
    plan.ToUe(CHANNEL_GU_CMD, 3, GuRequest(0xF502));          // 2: registers, F504
    EXPECT_EQ(plan.Ue().requests.size(), 3u);
    EXPECT_EQ(plan.Ue().requests[1].strName, "gu 0xB013");
    plan.FromUe(CHANNEL_GU_CMD, 5, GuBlock(GuMessage(0xE602))); // a report of the first
    plan.FromUe(CHANNEL_GU_CMD, 6, GuBlock(GuMessage(0xF504)));
    plan.FromUe(CHANNEL_GU_CMD, 7, GuBlock(Join(GuMessage(0xE601), GuMessage(0xB015)))); // two in one
    EXPECT_EQ(plan.Answers(), (ANSWERS{{}, {2}, {0, 1}}));
}

TEST(ReplayPlan, TheLinkRequestIsAnsweredByAQueryAnswer)
{
    CPlanBuilder plan;
    plan.ToUe(CHANNEL_GU_CMD, 0, Hex("10 00 01 01 0A 00 08 00 B1 80 00 00 00 00 00 00"));
    plan.FromUe(CHANNEL_GU_CMD, 1, GuBlock(Hex("0A 00 08 00 B2 80 00 00 01 00 00 00")));
    EXPECT_EQ(plan.Answers(), (ANSWERS{{0}}));
}

TEST(ReplayPlan, AtLinesBelongToTheCommandBeforeThem)
{
    CPlanBuilder plan;
    plan.FromUe(CHANNEL_AT, 0, Bytes(AsBytes("\r\nRING\r\n")));
    plan.ToUe(CHANNEL_AT, 1, Bytes(AsBytes("AT+CS"))); // a command in two pieces
    plan.ToUe(CHANNEL_AT, 2, Bytes(AsBytes("Q\r")));
    plan.FromUe(CHANNEL_AT, 3, Bytes(AsBytes("+CSQ: 15,99\r\n")));
    plan.FromUe(CHANNEL_AT, 4, Bytes(AsBytes("OK\r\n")));
    plan.ToUe(CHANNEL_AT, 5, Bytes(AsBytes("ATI\rAT\r"))); // and two in a piece
    plan.FromUe(CHANNEL_AT, 6, Bytes(AsBytes("OK\r\n")));
    EXPECT_EQ(plan.Answers(), (ANSWERS{{}, {0}, {0}, {2}}));
    EXPECT_EQ(plan.Ue().requests[0].strName, "AT+CSQ");
    EXPECT_EQ(plan.Ue().requests[0].ullTime, 2 * MS);
}

TEST(ReplayPlan, PortsOfThePictureArePresentAndOthersComeASecondBeforeTheAgentTellsOfThem)
{
    CPlanBuilder plan;
    plan.Channel(CHANNEL_LTE_DIAG, 201, 0, TAP_REPLAYED);
    plan.Channel(CHANNEL_LTE_DATA, 202, 1500);
    plan.Channel(CHANNEL_GU_CMD, 203, 1700);
    plan.Channel(CHANNEL_GU_DATA, 203, 1700);  // the same port
    plan.Channel(CHANNEL_LTE_DATA, 202, 1800); // a client was bound: no change of the port
    plan.FromUe(CHANNEL_LTE_DATA, 1900, LteIndication(1));
    plan.Channel(CHANNEL_LTE_DATA, 0, 2000);
    plan.Channel(CHANNEL_LTE_DATA, 302, 4000);
    const REPLAY_UE& stUe = plan.Ue();
    EXPECT_EQ(stUe.strGroup, "modem");
    EXPECT_EQ(stUe.present, (std::array<bool, SERIALNUM>{true, false, false, false}));
    EXPECT_EQ(stUe.ports[SERIAL_TYPE_DATA], 202u);
    EXPECT_FALSE(stUe.ports[SERIAL_TYPE_AT]);
    const struct
    {
        enSerialType enPort;
        bool bArrives;
        uint32_t ulNumber;
        uint64_t ullMs;
        size_t szSteps;
    } expected[] = {{SERIAL_TYPE_DATA, true, 202, 500, 0},
                    {SERIAL_TYPE_GU, true, 203, 700, 0},
                    {SERIAL_TYPE_DATA, false, 202, 2000, 1},
                    {SERIAL_TYPE_DATA, true, 302, 3000, 1}};
    ASSERT_EQ(stUe.events.size(), std::size(expected));
    for (size_t i = 0; i < std::size(expected); ++i) {
        EXPECT_EQ(stUe.events[i].enPort, expected[i].enPort) << i;
        EXPECT_EQ(stUe.events[i].bArrives, expected[i].bArrives) << i;
        EXPECT_EQ(stUe.events[i].ulNumber, expected[i].ulNumber) << i;
        EXPECT_EQ(stUe.events[i].ullTime, expected[i].ullMs * MS) << i;
        EXPECT_EQ(stUe.events[i].szSteps, expected[i].szSteps) << i;
    }
}

TEST(ReplayPlan, AModemOfThePictureThatWasConfirmedKeepsItsIdentity)
{
    CPlanBuilder plan;
    plan.Channel(CHANNEL_LTE_DIAG, 201, 0, TAP_REPLAYED);
    TAP_UE_EVENT stUe;
    stUe.strImei = "860000000110002";
    stUe.strVersion = "V100R001C10B200SP02";
    plan.Add({TAP_KIND::PORT_EVENT, SLOT, CHANNEL_LTE_DIAG, TAP_REPLAYED}, 0, EncodeRecord(stUe));
    EXPECT_TRUE(plan.Ue().bConfirmed);
    EXPECT_EQ(plan.Ue().strImei, "860000000110002");
    // One that confirms within the capture has its own confirmation there.
    CPlanBuilder later;
    later.Channel(CHANNEL_LTE_DIAG, 201, 10);
    later.Add({TAP_KIND::PORT_EVENT, SLOT, CHANNEL_LTE_DIAG}, 20, EncodeRecord(stUe));
    EXPECT_FALSE(later.Ue().bConfirmed);
}

TEST(ReplayPlan, CountsWhatTheCaptureMisses)
{
    CPlanBuilder plan;
    const TAP_RECORD stCut{TAP_KIND::UE_TO_AGENT, SLOT, CHANNEL_LTE_DATA, TAP_CUT, 202};
    plan.Add(stCut, 5, LteIndication(1), 7);
    plan.Add(stCut, 3, LteIndication(1)); // the clock was set back
    EXPECT_EQ(plan.Plan().Lost(), 7u);
    EXPECT_EQ(plan.Plan().Cut(), 2u);
    EXPECT_EQ(plan.Plan().End(), 5 * MS);
    EXPECT_TRUE(plan.Ue().present[SERIAL_TYPE_DATA]); // no event told of the port: it was there
}

TEST(ReplayPlan, SaysWhyAFileCannotBePlayed)
{
    CReplayPlan plan;
    std::string strError;
    EXPECT_FALSE(plan.Load("/does/not/exist", strError));
    EXPECT_EQ(strError, "/does/not/exist: No such file or directory");
}
