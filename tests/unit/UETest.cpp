#include "ue/UE.h"

#include "support/Lines.h"
#include "support/LogCapture.h"
#include "support/PtyPair.h"
#include "support/Queues.h"
#include "support/TestBytes.h"

#include <gtest/gtest.h>

namespace
{
/// The connect block: u32 port, 128 bytes of name, 128 bytes of group id.
Bytes ConnectBlock(uint32_t ulPort, const std::string& strName, const std::string& strGroup)
{
    Bytes block = Join(Le(ulPort), AsBytes(strName));
    block.resize(4 + 128);
    block = Join(block, AsBytes(strGroup));
    block.resize(4 + 128 + 128);
    return block;
}
} // namespace

TEST(UE, ANewSlotIsFree)
{
    CUE ue;
    EXPECT_EQ(ue.GetGroupid(), "");
    EXPECT_FALSE(ue.IsUEPresent());
    for (int i = 0; i < 4; ++i) {
        CSerial* pSerial = ue.GetSerial(static_cast<enSerialType>(i));
        ASSERT_NE(pSerial, nullptr);
        EXPECT_EQ(pSerial->GetSerialType(), i);
        EXPECT_EQ(pSerial->GetUE(), &ue);
    }
    EXPECT_EQ(ue.GetSerial(static_cast<enSerialType>(4)), nullptr);
    EXPECT_EQ(ue.GetSerial(static_cast<enSerialType>(-1)), nullptr);
}

TEST(UE, FindsTheChannelAndTakesTheAtChannelForAnUnknownOne)
{
    CUE ue;
    const enSerialType aenPort[] = {SERIAL_TYPE_DIAG, SERIAL_TYPE_DATA, SERIAL_TYPE_GU, SERIAL_TYPE_GU, SERIAL_TYPE_AT};
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(&ue.GetSerialChannel(static_cast<enChannelType>(i)), &ue.GetSerial(aenPort[i])->Channel()) << i;
    EXPECT_EQ(&ue.GetSerialChannel(static_cast<enChannelType>(5)), &ue.GetSerial(SERIAL_TYPE_AT)->Channel());
}

TEST(UE, KeepsTheConnectionAckByCopy)
{
    CUE ue;
    EXPECT_EQ(ue.GetUEConnectionAck().aucData, ADE_UE_CONNECTION_ACK_STRU{}.aucData);
    ADE_UE_CONNECTION_ACK_STRU stAck;
    stAck.aucData.fill(0x5A);
    ue.SetUEConnectionAck(stAck);
    EXPECT_EQ(ue.GetUEConnectionAck().aucData, stAck.aucData);
    ue.ClearUEConnectionAck();
    EXPECT_EQ(ue.GetUEConnectionAck().aucData, ADE_UE_CONNECTION_ACK_STRU{}.aucData);
}

TEST(UE, AnAtPortIsAnnouncedButNotOpened)
{
    CUE ue;
    ue.SetUEIdx(4);
    ue.SetGroupid("group-1");
    ue.OnSerialAttach("/dev/ttyUSB3", SERIAL_TYPE_AT, 0x01020304);
    const auto msgs = DrainAgentQueue();
    ASSERT_EQ(msgs.size(), 1u);
    EXPECT_EQ(msgs[0].ulMsgType, AGENT_MSG_CONNECT);
    EXPECT_EQ(msgs[0].ulUeIdx, 4u);
    EXPECT_EQ(msgs[0].enChannel, CHANNEL_AT);
    EXPECT_EQ(msgs[0].data, ConnectBlock(0x01020304, "/dev/ttyUSB3", "group-1"));
    EXPECT_EQ(msgs[0].data.size(), 260u);
    EXPECT_FALSE(ue.IsUEPresent());
    EXPECT_EQ(ue.GetSerial(SERIAL_TYPE_AT)->GetGroupName(), "group-1");

    // Again, as no write has opened it: it is renamed and announced once more.
    ue.OnSerialAttach("/dev/ttyUSB7", SERIAL_TYPE_AT, 9);
    const auto again = DrainAgentQueue();
    ASSERT_EQ(again.size(), 1u);
    EXPECT_EQ(again[0].data, ConnectBlock(9, "/dev/ttyUSB7", "group-1"));
    EXPECT_EQ(ue.GetSerial(SERIAL_TYPE_AT)->GetName(), "/dev/ttyUSB7");
    EXPECT_EQ(ue.GetSerial(SERIAL_TYPE_AT)->GetPortNum(), 9u);
}

TEST(UE, LongTextsAreCutToTheirFields)
{
    CUE ue;
    ue.SetGroupid(std::string(300, 'g'));
    ue.OnSerialAttach(std::string(300, 'n'), SERIAL_TYPE_AT, 1);
    const auto msgs = DrainAgentQueue();
    ASSERT_EQ(msgs.size(), 1u);
    EXPECT_EQ(msgs[0].data, ConnectBlock(1, std::string(127, 'n'), std::string(127, 'g')));
}

TEST(UE, APortThatCantBeOpenedIsNotAnnouncedAndKeepsItsNameAndNumber)
{
    CUE ue;
    ue.SetGroupid("group-1");
    ue.OnSerialAttach("/dev/no-such-port", SERIAL_TYPE_DIAG, 6);
    ASSERT_TRUE(PortsSettled(ue));
    EXPECT_TRUE(DrainAgentQueue().empty());
    EXPECT_FALSE(ue.IsUEPresent());
    EXPECT_EQ(ue.GetSerial(SERIAL_TYPE_DIAG)->GetName(), "/dev/no-such-port");
    EXPECT_EQ(ue.GetSerial(SERIAL_TYPE_DIAG)->GetPortNum(), 6u);
    EXPECT_EQ(ue.GetGroupid(), "group-1");
}

TEST(UE, AnUnknownTypeIsIgnored)
{
    CUE ue;
    ue.OnSerialAttach("/dev/ttyUSB3", static_cast<enSerialType>(4), 6);
    ue.OnSerialDetach(static_cast<enSerialType>(4));
    EXPECT_TRUE(DrainAgentQueue().empty());
}

TEST(UE, AGuPortComesAndGoesAsTwoChannels)
{
    CPtyPair modem;
    CUE ue;
    ue.SetUEIdx(2);
    ue.SetGroupid("group-1");
    ue.OnSerialAttach(modem.Name(), SERIAL_TYPE_GU, 12);
    EXPECT_TRUE(ue.IsUEPresent());
    EXPECT_TRUE(DrainAgentQueue().empty()) << "not before it has settled";
    ASSERT_TRUE(PortsSettled(ue));
    auto msgs = DrainAgentQueue();
    ASSERT_EQ(msgs.size(), 2u);
    EXPECT_EQ(msgs[0].enChannel, CHANNEL_GU_CMD);
    EXPECT_EQ(msgs[1].enChannel, CHANNEL_GU_DATA);
    for (const QueuedMsg& stMsg : msgs) {
        EXPECT_EQ(stMsg.ulMsgType, AGENT_MSG_CONNECT);
        EXPECT_EQ(stMsg.ulUeIdx, 2u);
        EXPECT_EQ(stMsg.data, ConnectBlock(12, modem.Name(), "group-1"));
    }

    // The type is open: a further attach changes nothing and posts nothing.
    ue.OnSerialAttach("/dev/other", SERIAL_TYPE_GU, 13);
    EXPECT_TRUE(DrainAgentQueue().empty());
    EXPECT_EQ(ue.GetSerial(SERIAL_TYPE_GU)->GetName(), modem.Name());
    EXPECT_EQ(ue.GetSerial(SERIAL_TYPE_GU)->GetPortNum(), 12u);

    ue.OnSerialDetach(SERIAL_TYPE_GU);
    msgs = DrainAgentQueue();
    ASSERT_EQ(msgs.size(), 2u);
    EXPECT_EQ(msgs[0].enChannel, CHANNEL_GU_CMD);
    EXPECT_EQ(msgs[1].enChannel, CHANNEL_GU_DATA);
    for (const QueuedMsg& stMsg : msgs) {
        EXPECT_EQ(stMsg.ulMsgType, AGENT_MSG_DISCONNECT);
        EXPECT_EQ(stMsg.ulUeIdx, 2u);
        EXPECT_EQ(stMsg.data, Bytes());
    }
    EXPECT_EQ(ue.GetSerial(SERIAL_TYPE_GU)->GetName(), "");
    EXPECT_EQ(ue.GetSerial(SERIAL_TYPE_GU)->GetGroupName(), "");
    EXPECT_EQ(ue.GetSerial(SERIAL_TYPE_GU)->GetPortNum(), 0x7FFFFFFFu);
    EXPECT_EQ(ue.GetGroupid(), "") << "its last open port has gone";
}

TEST(UE, TheGroupStaysWhileAnotherPortIsOpenAndAnUnopenedAtPortDoesntCount)
{
    CPtyPair diag;
    CPtyPair data;
    CUE ue;
    ue.SetGroupid("group-1");
    ue.OnSerialAttach(diag.Name(), SERIAL_TYPE_DIAG, 1);
    ue.OnSerialAttach(data.Name(), SERIAL_TYPE_DATA, 2);
    ue.OnSerialAttach("/dev/ttyUSB3", SERIAL_TYPE_AT, 4);
    ASSERT_TRUE(PortsSettled(ue));
    ue.OnSerialDetach(SERIAL_TYPE_DIAG);
    EXPECT_EQ(ue.GetGroupid(), "group-1");
    EXPECT_TRUE(ue.GetSerial(SERIAL_TYPE_DATA)->IsOpen());
    ue.OnSerialDetach(SERIAL_TYPE_DATA);
    EXPECT_EQ(ue.GetGroupid(), "");
    EXPECT_EQ(ue.GetSerial(SERIAL_TYPE_AT)->GetName(), "/dev/ttyUSB3") << "kept into the slot's next life";
    EXPECT_EQ(ue.GetSerial(SERIAL_TYPE_AT)->GetPortNum(), 4u);
}

TEST(UE, PortsAreAnnouncedInTheOrderInWhichTheyCame)
{
    CPtyPair diag;
    CPtyPair data;
    CUE ue;
    ue.OnSerialAttach(diag.Name(), SERIAL_TYPE_DIAG, 1);
    ue.OnSerialAttach("/dev/ttyUSB3", SERIAL_TYPE_AT, 4);
    ue.OnSerialAttach(data.Name(), SERIAL_TYPE_DATA, 2);
    ASSERT_TRUE(PortsSettled(ue));
    std::vector<enChannelType> vecChannel;
    for (const QueuedMsg& stMsg : DrainAgentQueue())
        vecChannel.push_back(stMsg.enChannel);
    EXPECT_EQ(vecChannel, (std::vector<enChannelType>{CHANNEL_LTE_DIAG, CHANNEL_AT, CHANNEL_LTE_DATA}));
}

TEST(UE, ADetachEndsAnOpeningAtOnce)
{
    CPtyPair modem;
    CUE ue;
    ue.SetGroupid("group-1");
    ue.OnSerialAttach(modem.Name(), SERIAL_TYPE_DIAG, 1);
    EXPECT_TRUE(WaitFor([&] { return ue.GetSerial(SERIAL_TYPE_DIAG)->GetHandler() != -1; }));
    const auto start = std::chrono::steady_clock::now();
    ue.OnSerialDetach(SERIAL_TYPE_DIAG);
    EXPECT_FALSE(ue.IsUEPresent());
    EXPECT_EQ(ue.GetGroupid(), "");
    ASSERT_TRUE(PortsSettled(ue));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(900)) << "not its whole second";
    const auto msgs = DrainAgentQueue();
    ASSERT_EQ(msgs.size(), 1u) << "no attach";
    EXPECT_EQ(msgs[0].ulMsgType, AGENT_MSG_DISCONNECT);
    EXPECT_EQ(ue.GetSerial(SERIAL_TYPE_DIAG)->GetHandler(), -1);
}

TEST(UE, AnAttachWhileThePortOpensCountsWhenThatFails)
{
    CPtyPair first;
    CPtyPair other;
    CUE ue;
    ue.SetOnOpenFailed([&](enSerialType enType) { EXPECT_TRUE(ue.AttachKept(enType)); }); // as the manager does
    ue.OnSerialAttach(first.Name(), SERIAL_TYPE_DATA, 1);                                 // keeps the worker busy
    ue.OnSerialAttach("/dev/no-such-port", SERIAL_TYPE_DIAG, 2);
    ue.OnSerialAttach(other.Name(), SERIAL_TYPE_DIAG, 3);
    ASSERT_TRUE(PortsSettled(ue));
    EXPECT_TRUE(ue.GetSerial(SERIAL_TYPE_DIAG)->IsOpen());
    EXPECT_EQ(ue.GetSerial(SERIAL_TYPE_DIAG)->GetPortNum(), 3u);
    EXPECT_EQ(DrainAgentQueue().size(), 2u);
}

TEST(UE, ADetachTakesBackAnAttachThatWasKept)
{
    CPtyPair first;
    CPtyPair other;
    CUE ue;
    ue.SetOnOpenFailed([&](enSerialType enType) { EXPECT_FALSE(ue.AttachKept(enType)); });
    ue.OnSerialAttach(first.Name(), SERIAL_TYPE_DATA, 1);
    ue.OnSerialAttach("/dev/no-such-port", SERIAL_TYPE_DIAG, 2);
    ue.OnSerialAttach(other.Name(), SERIAL_TYPE_DIAG, 3);
    ue.ForgetKept(4);
    ue.ForgetKept(3);
    ASSERT_TRUE(PortsSettled(ue));
    EXPECT_FALSE(ue.GetSerial(SERIAL_TYPE_DIAG)->IsOpen());
    EXPECT_EQ(ue.GetSerial(SERIAL_TYPE_DIAG)->GetPortNum(), 2u);
}

TEST(UE, APortIsOpenAgainAfterADetachAndAnAttachInARow)
{
    CPtyPair modem;
    CUE ue;
    ue.OnSerialAttach(modem.Name(), SERIAL_TYPE_DIAG, 1);
    ue.OnSerialDetach(SERIAL_TYPE_DIAG);
    ue.OnSerialAttach(modem.Name(), SERIAL_TYPE_DIAG, 2);
    ASSERT_TRUE(PortsSettled(ue));
    EXPECT_TRUE(ue.GetSerial(SERIAL_TYPE_DIAG)->IsOpen());
    const auto msgs = DrainAgentQueue();
    ASSERT_EQ(msgs.size(), 2u);
    EXPECT_EQ(msgs[0].ulMsgType, AGENT_MSG_DISCONNECT);
    EXPECT_EQ(msgs[1].ulMsgType, AGENT_MSG_CONNECT);
}
