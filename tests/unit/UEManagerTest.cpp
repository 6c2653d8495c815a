#include "ue/UEManager.h"

#include "common/Config.h"
#include "support/HdlcReference.h"
#include "support/Lines.h"
#include "support/LogCapture.h"
#include "support/PtyPair.h"
#include "support/Queues.h"
#include "support/Signals.h"
#include "support/Sockets.h"
#include "support/WaitFor.h"
#include "ue/ReadSet.h"
#include "ue/TcpChannel.h"

#include <ctime>
#include <gtest/gtest.h>

namespace
{
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

const Bytes PACKET = Fill(18, 0xC0);
const Bytes FRAME = Hex("7E C0 C0 C0 C0 C0 C0 C0 C0 C0 C0 C0 C0 C0 C0 C0 C0 C0 C0 2D 9F 7E");

void Configure(const std::string& strLines)
{
    std::string strText = strLines;
    CConfig::Instance()->ParseConfig(strText);
}

/// The record without its buffer's address, for comparison.
using Msg = std::tuple<unsigned int, unsigned int, int>; // kind, UE index, channel

std::vector<Msg> TakenMsgs()
{
    std::vector<Msg> msgs;
    for (const QueuedMsg& stMsg : DrainAgentQueue())
        msgs.emplace_back(stMsg.ulMsgType, stMsg.ulUeIdx, stMsg.enChannel);
    return msgs;
}

void PostToUe(unsigned int ulKind, unsigned int ulUeIdx, enChannelType enChannel, ByteView packet)
{
    PostUeMsg(ulKind, ulUeIdx, enChannel, CPacket::Copy(packet));
}

/// An attach that takes no time, as the port isn't opened.
void AttachAt(CUEManager& manager, const std::string& strGroup, unsigned int uiPort)
{
    manager.OnSerialAttach(strGroup, "/dev/ttyUSB3", SERIAL_TYPE_AT, uiPort);
}

/// Takes packets from the agent queue until one has come; the queue's get would wait for ever.
template <class Condition> std::vector<QueuedMsg> TakeUntil(Condition enough)
{
    std::vector<QueuedMsg> taken;
    WaitFor([&] {
        for (QueuedMsg& stMsg : DrainAgentQueue())
            taken.push_back(std::move(stMsg));
        return enough(taken);
    });
    return taken;
}

double CpuSeconds()
{
    timespec stTime{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &stTime);
    return static_cast<double>(stTime.tv_sec) + 1e-9 * static_cast<double>(stTime.tv_nsec);
}
} // namespace

TEST(UEManager, SixteenSlotsWithTheirIndex)
{
    CUEManager manager;
    for (int i = 0; i < 16; ++i) {
        ASSERT_NE(manager.GetUE(i), nullptr);
        EXPECT_EQ(manager.GetUE(i)->GetUEIdx(), i);
    }
    EXPECT_EQ(manager.GetUE(16), nullptr);
    EXPECT_EQ(manager.GetUE(-1), nullptr);
    EXPECT_NE(manager.GetSerialChannel(14, CHANNEL_AT), nullptr);
    EXPECT_EQ(manager.GetSerialChannel(15, CHANNEL_AT), nullptr);
    EXPECT_EQ(manager.GetSerialChannel(-1, CHANNEL_AT), nullptr);
    EXPECT_EQ(manager.GetTcp(SERIAL_TYPE_DIAG), nullptr);
    EXPECT_EQ(manager.GetTcp(static_cast<enSerialType>(4)), nullptr);
    std::vector<CSerial*> vecOpen = {nullptr};
    manager.GetOpenedSerial(vecOpen);
    EXPECT_TRUE(vecOpen.empty());
}

TEST(UEManager, GroupsTakeTheSlotsInOrderAndASixteenthIsntSeen)
{
    const CLogCapture log;
    CUEManager manager;
    for (unsigned int i = 0; i < 16; ++i)
        AttachAt(manager, "group " + std::to_string(i), 100 + i);
    std::vector<Msg> expected;
    for (unsigned int i = 0; i < 15; ++i)
        expected.emplace_back(AGENT_MSG_CONNECT, i, CHANNEL_AT);
    EXPECT_EQ(TakenMsgs(), expected);
    EXPECT_EQ(manager.GetUE(15)->GetGroupid(), "");
    EXPECT_EQ(log.Count("[INF] : CUEManager::OnSerialAttach groupid is group 15, name is /dev/ttyUSB3, nComNum is 115"),
              1);
    EXPECT_EQ(log.Count("[INF] : SerialAttach: slot 14 is empty"), 1);
    EXPECT_EQ(log.Count("SerialAttach: slot "), 15);
}

TEST(UEManager, AKnownGroupKeepsItsSlotAndCaseMatters)
{
    CUEManager manager;
    AttachAt(manager, "Group", 1);
    AttachAt(manager, "group", 2);
    AttachAt(manager, "Group", 3);
    EXPECT_EQ(TakenMsgs(), (std::vector<Msg>{{2, 0, 4}, {2, 1, 4}, {2, 0, 4}}));
}

TEST(UEManager, AfterAFullDetachAGroupMayLandLower)
{
    CUEManager manager;
    AttachAt(manager, "a", 1);
    AttachAt(manager, "b", 2);
    manager.OnSerialDetach(1);
    manager.OnSerialDetach(2);
    AttachAt(manager, "b", 2);
    EXPECT_EQ(TakenMsgs(), (std::vector<Msg>{{2, 0, 4}, {2, 1, 4}, {3, 0, 4}, {3, 1, 4}, {2, 0, 4}}));
}

TEST(UEManager, AnEmptyGroupIdSitsInTheFirstFreeSlot)
{
    CUEManager manager;
    AttachAt(manager, "a", 1);
    AttachAt(manager, "", 2);
    AttachAt(manager, "", 3);
    EXPECT_EQ(manager.GetUE(1)->GetGroupid(), "") << "the slot still counts as free";
    AttachAt(manager, "b", 4);
    EXPECT_EQ(TakenMsgs(), (std::vector<Msg>{{2, 0, 4}, {2, 1, 4}, {2, 1, 4}, {2, 1, 4}}));
}

TEST(UEManager, DetachOfAnUnknownPortIsSilent)
{
    CUEManager manager;
    AttachAt(manager, "a", 1);
    DrainAgentQueue();
    const CLogCapture log;
    manager.OnSerialDetach(2);
    manager.OnSerialDetach(2147483647); // the number of ports that have none
    EXPECT_TRUE(TakenMsgs().empty());
    EXPECT_EQ(log.Count(""), 1) << "nothing but the mark";
}

TEST(UEManager, DetachByUeAndType)
{
    CUEManager manager;
    AttachAt(manager, "a", 1);
    DrainAgentQueue();
    manager.OnSerialDetach(0, SERIAL_TYPE_AT);
    EXPECT_EQ(TakenMsgs(), (std::vector<Msg>{{3, 0, 4}}));
    manager.OnSerialDetach(15, SERIAL_TYPE_AT);
    manager.OnSerialDetach(-1, SERIAL_TYPE_AT);
    EXPECT_TRUE(TakenMsgs().empty());
}

TEST(UEManager, APortThatCantBeOpenedKeepsTheSlotForItsGroup)
{
    CUEManager manager;
    manager.OnSerialAttach("a", "/dev/no-such-port", SERIAL_TYPE_DIAG, 1);
    ASSERT_TRUE(PortsSettled(manager));
    EXPECT_TRUE(TakenMsgs().empty());
    EXPECT_EQ(manager.GetUE(0)->GetGroupid(), "a");
    AttachAt(manager, "b", 2);
    EXPECT_EQ(TakenMsgs(), (std::vector<Msg>{{2, 1, 4}}));
}

TEST(UEManager, TheNetworkUeAttachesOnceForAllItsLinks)
{
    Configure("MonitorPort=20000:1;20001:0;20002;20003:1;20004:0\n");
    const CUniqueFd listener = ListenTcp(20000);
    const CLogCapture log;
    CUEManager manager;
    manager.OnSerialAttach("127.0.0.1", "unused", SERIAL_TYPE_GU, 0);
    ASSERT_TRUE(PortsSettled(manager));
    EXPECT_EQ(log.Count("[INF] : Network attach, ip is 127.0.0.1"), 1);
    EXPECT_EQ(log.Count("CUEManager::OnSerialAttach"), 0) << "no slot is touched";
    EXPECT_EQ(log.Count("TCP connect failed, port: 20002"), 1) << "a port alone is a TCP link";
    EXPECT_EQ(log.Count("[WAN] : MonitorPort has 5 rows, only the first 4 are used"), 1);

    const auto msgs = DrainAgentQueue();
    ASSERT_EQ(msgs.size(), 1u);
    EXPECT_EQ(msgs[0].ulMsgType, AGENT_MSG_CONNECT);
    EXPECT_EQ(msgs[0].ulUeIdx, 15u);
    EXPECT_EQ(msgs[0].enChannel, CHANNEL_LTE_DIAG);
    Bytes block(4 + 128, 0);
    block = Join(block, AsBytes("127.0.0.1"));
    block.resize(260);
    EXPECT_EQ(msgs[0].data, block);

    EXPECT_NE(manager.GetTcp(SERIAL_TYPE_DIAG)->GetSocket(), -1);
    EXPECT_NE(manager.GetTcp(SERIAL_TYPE_DATA)->GetSocket(), -1);
    ASSERT_NE(manager.GetTcp(SERIAL_TYPE_GU), nullptr) << "a failed link stays in its place";
    EXPECT_EQ(manager.GetTcp(SERIAL_TYPE_GU)->GetSocket(), -1);

    // A second attach takes the places, and nothing is left of the first one's links.
    const CUniqueFd first = AcceptTcp(listener);
    manager.OnSerialAttach("127.0.0.1", "", SERIAL_TYPE_DIAG, 0);
    const CUniqueFd second = AcceptTcp(listener);
    ASSERT_TRUE(second.IsOpen());
    EXPECT_TRUE(SawClose(first));
    ASSERT_TRUE(PortsSettled(manager));
    DrainAgentQueue();

    manager.OnSerialDetach(0);
    EXPECT_EQ(TakenMsgs(), (std::vector<Msg>{{3, 15, 0}}));
    EXPECT_TRUE(SawClose(second));
    EXPECT_EQ(manager.GetTcp(SERIAL_TYPE_DIAG), nullptr);
}

TEST(UEManager, LinksThatWereDroppedAreLetGoOf)
{
    Configure("MonitorPort=20000:0\n");
    CUEManager manager;
    manager.ProcessTCPUE("127.0.0.1", true);
    ASSERT_TRUE(PortsSettled(manager));
    const std::weak_ptr<TCPChannel> pFirst = manager.GetTcp(SERIAL_TYPE_DIAG);
    EXPECT_FALSE(pFirst.expired());
    manager.ProcessTCPUE("", false);
    manager.ProcessTCPUE("", false);
    EXPECT_TRUE(pFirst.expired());
    manager.ProcessTCPUE("127.0.0.1", true);
    ASSERT_TRUE(PortsSettled(manager));
    EXPECT_NE(manager.GetTcp(SERIAL_TYPE_DIAG)->GetSocket(), -1) << "its port was free again";
}

TEST(UEManager, ANetworkUeWithoutLinksIsAnnouncedAllTheSame)
{
    CUEManager manager;
    manager.ProcessTCPUE("192.0.2.1", true);
    ASSERT_TRUE(PortsSettled(manager));
    EXPECT_EQ(TakenMsgs(), (std::vector<Msg>{{2, 15, 0}}));
    EXPECT_EQ(manager.GetTcp(SERIAL_TYPE_DIAG), nullptr);
}

TEST(UEManager, MovesPacketsBetweenPortsAndQueues)
{
    Configure("ChannelNameEnable=0\n");
    CPtyPair diag;
    CPtyPair at;
    const CLogCapture log;
    CUEManager manager;
    ASSERT_TRUE(manager.Run());
    EXPECT_TRUE(log.Saw("[INF] : UEManager::Run OK!"));
    manager.OnSerialAttach("a", diag.Name(), SERIAL_TYPE_DIAG, 1);
    manager.OnSerialAttach("a", at.Name(), SERIAL_TYPE_AT, 4);
    ASSERT_TRUE(PortsSettled(manager));
    EXPECT_EQ(TakenMsgs(), (std::vector<Msg>{{2, 0, 0}, {2, 0, 4}}));

    diag.Write(Join(FRAME, ByteView(FRAME).first(7)));
    auto msgs = TakeUntil([](const auto& taken) { return taken.size() == 1; });
    ASSERT_EQ(msgs.size(), 1u);
    EXPECT_EQ(msgs[0].data, PACKET);
    diag.Write(ByteView(FRAME).subspan(7));
    EXPECT_EQ(TakeUntil([](const auto& taken) { return taken.size() == 1; }).size(), 1u);

    // Downwards in the order of the queue; records that lead nowhere are dropped.
    PostToUe(99, 0, CHANNEL_LTE_DIAG, PACKET);
    PostToUe(UE_MSG_SERIAL, 15, CHANNEL_LTE_DIAG, PACKET);
    PostToUe(UE_MSG_TCP, 15, CHANNEL_LTE_DIAG, PACKET);
    PostToUe(UE_MSG_SERIAL, 0, CHANNEL_GU_DATA, PACKET);
    PostUeMsg(UE_MSG_SERIAL, 0, CHANNEL_LTE_DIAG, {});
    PostToUe(UE_MSG_SERIAL, 0, CHANNEL_LTE_DIAG, Hex("01 02 7E 7D"));
    PostToUe(UE_MSG_SERIAL, 0, CHANNEL_LTE_DIAG, PACKET);
    EXPECT_EQ(diag.Read(10 + FRAME.size()), Join(Hex("7E 01 02 7D 5E 7D 5D 6B 97 7E"), FRAME));
    EXPECT_EQ(diag.Pending(), Bytes());

    // The first write opens the AT port; from then on it is read as well.
    EXPECT_FALSE(manager.GetUE(0)->GetSerial(SERIAL_TYPE_AT)->IsOpen());
    PostToUe(UE_MSG_SERIAL, 0, CHANNEL_AT, AsBytes("AT\r"));
    EXPECT_EQ(at.Read(3), Bytes(AsBytes("AT\r")));
    at.Write(AsBytes("\r\nOK\r\n"));
    msgs = TakeUntil([](const auto& taken) { return taken.size() == 1; });
    ASSERT_EQ(msgs.size(), 1u);
    EXPECT_EQ(msgs[0].enChannel, CHANNEL_AT);

    const auto start = steady_clock::now();
    manager.OnSerialDetach(1);
    EXPECT_LT(steady_clock::now() - start, milliseconds(500)) << "it waits for nothing";
    EXPECT_EQ(TakenMsgs(), (std::vector<Msg>{{3, 0, 0}}));
    EXPECT_TRUE(manager.GetUE(0)->GetSerial(SERIAL_TYPE_AT)->IsOpen());
    EXPECT_EQ(manager.GetUE(0)->GetGroupid(), "a");
    EXPECT_TRUE(manager.Stop());
}

TEST(UEManager, AModemThatVanishesDoesntMakeTheReadLoopSpinNorHoldUpOthers)
{
    CPtyPair gone;
    CPtyPair other;
    const CLogCapture log;
    CUEManager manager;
    manager.OnSerialAttach("a", gone.Name(), SERIAL_TYPE_DIAG, 1);
    manager.OnSerialAttach("a", other.Name(), SERIAL_TYPE_DATA, 2);
    ASSERT_TRUE(PortsSettled(manager));
    ASSERT_TRUE(manager.StartSerialRW());
    DrainAgentQueue();
    const double dCpu = CpuSeconds();
    const auto start = steady_clock::now();
    gone.Unplug();
    int iSent = 0;
    int iReceived = 0;
    EXPECT_TRUE(WaitFor([&] {
        other.Write(FRAME);
        ++iSent;
        iReceived += static_cast<int>(TakeUntil([](const auto& taken) { return taken.size() == 1; }).size());
        return log.Count("[ERR] : Read Serial fail!") == 3;
    }));
    EXPECT_EQ(iReceived, iSent);
    EXPECT_GE(steady_clock::now() - start, milliseconds(1900)) << "tried again each second";
    EXPECT_LT(CpuSeconds() - dCpu, 1.5);
    EXPECT_TRUE(manager.GetUE(0)->GetSerial(SERIAL_TYPE_DIAG)->IsOpen()) << "only a detach closes it";
    manager.OnSerialDetach(1);
    EXPECT_EQ(TakenMsgs(), (std::vector<Msg>{{3, 0, 0}}));
}

TEST(UEManager, ASignalDoesntEndTheWaitOfTheReadLoop)
{
    CReadSet readSet(CMsgBuf::Instance()->ReadWake(0));
    const int nBefore = CSignals::Count();
    const CSignals signals;
    const auto start = steady_clock::now();
    EXPECT_TRUE(readSet.Wait(300));
    EXPECT_GE(steady_clock::now() - start, milliseconds(300));
    EXPECT_GT(CSignals::Count(), nBefore);
}

TEST(UEManager, AnInvalidDescriptorIsToldAndLeftOut)
{
    CPtyPair modem;
    const CLogCapture log;
    CUEManager manager;
    manager.OnSerialAttach("a", modem.Name(), SERIAL_TYPE_DIAG, 1);
    ASSERT_TRUE(PortsSettled(manager));
    close(manager.GetUE(0)->GetSerial(SERIAL_TYPE_DIAG)->GetHandler()); // as no one should
    ASSERT_TRUE(manager.StartSerialRW());
    EXPECT_TRUE(log.Saw("[ERR] : read serial select fail!"));
    EXPECT_EQ(log.Count("read serial select fail!"), 1) << "not over and over";
    manager.OnSerialDetach(1); // its lock isn't lost
    EXPECT_FALSE(manager.GetUE(0)->IsUEPresent());
}

TEST(UEManager, MovesPacketsOverTheLinksOfTheNetworkUe)
{
    Configure("MonitorPort=20000;20001;20002;20003\n");
    const CUniqueFd aListener[] = {ListenTcp(20000), ListenTcp(20001), ListenTcp(20002), ListenTcp(20003)};
    CUEManager manager;
    ASSERT_TRUE(manager.StartSerialRW());
    manager.OnSerialAttach("127.0.0.1", "", SERIAL_TYPE_DIAG, 0);
    CUniqueFd aPeer[4];
    for (size_t i = 0; i < 4; ++i)
        aPeer[i] = AcceptTcp(aListener[i]);
    ASSERT_TRUE(PortsSettled(manager));
    DrainAgentQueue();

    const struct
    {
        enChannelType enChannel;
        size_t szLink;
    } c_aCase[] = {{CHANNEL_LTE_DIAG, 0}, {CHANNEL_LTE_DATA, 1}, {CHANNEL_GU_CMD, 2}, {CHANNEL_GU_DATA, 2}};
    for (const auto& stCase : c_aCase) {
        PostToUe(UE_MSG_TCP, 15, stCase.enChannel, PACKET);
        EXPECT_EQ(ReceiveBytes(aPeer[stCase.szLink], FRAME.size()), FRAME) << stCase.enChannel;
    }
    PostToUe(UE_MSG_TCP, 15, CHANNEL_AT, AsBytes("AT\r"));
    EXPECT_EQ(ReceiveBytes(aPeer[3], 3), Bytes(AsBytes("AT\r")));
    PostToUe(UE_MSG_TCP, 15, static_cast<enChannelType>(9), PACKET);

    SendAll(aPeer[2], FRAME);
    auto msgs = TakeUntil([](const auto& taken) { return taken.size() == 2; });
    ASSERT_EQ(msgs.size(), 2u);
    EXPECT_EQ(msgs[0].ulUeIdx, 15u);
    EXPECT_EQ(msgs[0].enChannel, CHANNEL_GU_CMD);
    EXPECT_EQ(msgs[1].enChannel, CHANNEL_GU_DATA);

    // Two peers close: the others go on, and nothing spins until the detach.
    aPeer[0].Reset();
    aPeer[1].Reset();
    EXPECT_TRUE(WaitFor([&] {
        return manager.GetTcp(SERIAL_TYPE_DIAG)->IsPeerClosed() && manager.GetTcp(SERIAL_TYPE_DATA)->IsPeerClosed();
    }));
    const double dCpu = CpuSeconds();
    std::this_thread::sleep_for(milliseconds(300));
    EXPECT_LT(CpuSeconds() - dCpu, 0.15);
    SendAll(aPeer[3], AsBytes("\r\nOK\r\n"));
    EXPECT_EQ(TakeUntil([](const auto& taken) { return taken.size() == 1; }).size(), 1u);

    manager.OnSerialDetach(0);
    EXPECT_TRUE(SawClose(aPeer[2]));
    EXPECT_TRUE(SawClose(aPeer[3]));
    PostToUe(UE_MSG_TCP, 15, CHANNEL_AT, AsBytes("AT\r"));
}

TEST(UEManager, PortsAndLinksComeAndGoWhileTheCountersAreRead)
{
    Configure("MonitorPort=20000:0;20001:0\n");
    CPtyPair modem;
    CUEManager manager;
    ASSERT_TRUE(manager.StartSerialRW());
    std::atomic<bool> bDone = false;
    uint64_t ullSum = 0;
    std::thread status([&] {
        while (!bDone) {
            for (int i = 0; i < 4; ++i) {
                const CSerial& serial = *manager.GetUE(0)->GetSerial(static_cast<enSerialType>(i));
                if (serial.IsOpen())
                    ullSum += serial.GetPortNum() + serial.GetTotalBytesRead() + serial.GetTotalBytesWrite();
                if (const auto pLink = manager.GetTcp(static_cast<enSerialType>(i)))
                    ullSum += pLink->GetTotalBytesRead() + pLink->GetTotalBytesWrite();
                (void)manager.GetUE(0)->GetGroupid();
            }
        }
    });
    manager.OnSerialAttach("127.0.0.1", "", SERIAL_TYPE_DIAG, 0);
    manager.OnSerialAttach("a", modem.Name(), SERIAL_TYPE_DIAG, 1);
    EXPECT_TRUE(PortsSettled(manager));
    modem.Write(FRAME);
    SendUdp(20001, FRAME);
    PostToUe(UE_MSG_SERIAL, 0, CHANNEL_LTE_DIAG, PACKET);
    PostToUe(UE_MSG_TCP, 15, CHANNEL_LTE_DATA, PACKET);
    EXPECT_EQ(modem.Read(FRAME.size()), FRAME);
    EXPECT_TRUE(WaitFor([&] { return manager.GetTcp(SERIAL_TYPE_DATA)->GetTotalBytesRead() == FRAME.size(); }));
    EXPECT_TRUE(
        WaitFor([&] { return manager.GetUE(0)->GetSerial(SERIAL_TYPE_DIAG)->GetTotalBytesRead() == FRAME.size(); }));
    manager.OnSerialDetach(0);
    manager.OnSerialDetach(1);
    bDone = true;
    status.join();
    EXPECT_GT(ullSum, 0u);
}

TEST(UEManager, TheWriteThreadOutlivesAStoppedQueue)
{
    Configure("MonitorPort=20000:1\n");
    const CUniqueFd listener = ListenTcp(20000);
    CUEManager manager;
    ASSERT_TRUE(manager.StartSerialRW());
    manager.OnSerialAttach("127.0.0.1", "", SERIAL_TYPE_DIAG, 0);
    const CUniqueFd peer = AcceptTcp(listener);
    ASSERT_TRUE(PortsSettled(manager));
    CMsgBuf::Instance()->UeQueue().stop();
    CMsgBuf::Instance()->UeQueue().start();
    PostToUe(UE_MSG_TCP, 15, CHANNEL_LTE_DIAG, PACKET);
    EXPECT_EQ(ReceiveBytes(peer, FRAME.size()), FRAME);
    EXPECT_TRUE(manager.StopSerialRW());
}

namespace
{
/// Memory of the process that is in use, in KiB.
long ResidentKiB()
{
    long lPages = 0;
    FILE* pFile = std::fopen("/proc/self/statm", "r");
    if (pFile == nullptr || std::fscanf(pFile, "%*d %ld", &lPages) != 1)
        lPages = -1;
    if (pFile != nullptr)
        std::fclose(pFile);
    return lPages * (sysconf(_SC_PAGESIZE) / 1024);
}
} // namespace

TEST(UEManager, BuffersThatNothingReachedCostNoMemory)
{
    const long lBefore = ResidentKiB();
    const CUEManager manager;
    EXPECT_LT(ResidentKiB() - lBefore, 16 * 1024) << "of 40 MiB of buffers; sanitizers add some of their own";
}
