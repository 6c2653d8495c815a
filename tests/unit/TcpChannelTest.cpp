#include "ue/TcpChannel.h"

#include "support/HdlcReference.h"
#include "support/Lines.h"
#include "support/LogCapture.h"
#include "support/Queues.h"
#include "support/Signals.h"
#include "support/Sockets.h"
#include "support/WaitFor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <poll.h>
#include <sys/socket.h>
#include <thread>

namespace
{
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr unsigned short PORT = 20000;
constexpr bool TCP = true;
constexpr bool UDP = false;
constexpr uint64_t MINUS_ONE = 4294967295; // what a failed call adds to a counter

const Bytes PACKET = Fill(18, 0xC0);
const Bytes FRAME = Hex("7E C0 C0 C0 C0 C0 C0 C0 C0 C0 C0 C0 C0 C0 C0 C0 C0 C0 C0 2D 9F 7E");

enChannelType Index(int i)
{
    return static_cast<enChannelType>(i);
}

/// A TCP link with the test as the UE at the other end.
struct Link
{
    explicit Link(int iIndex)
        : listener(ListenTcp(PORT)), channel("127.0.0.1", PORT, TCP, Index(iIndex)), peer(AcceptTcp(listener))
    {
    }
    /// Receives when something is there, as the read thread does.
    void Receive()
    {
        pollfd stPoll{channel.GetSocket(), POLLIN, 0};
        ASSERT_GT(poll(&stPoll, 1, 5000), 0);
        EXPECT_TRUE(ReadPort(channel));
    }
    CUniqueFd listener;
    TCPChannel channel;
    CUniqueFd peer;
};
} // namespace

TEST(TcpChannel, FramesPacketsBothWays)
{
    const CLogCapture log;
    Link link(0);
    ASSERT_TRUE(link.peer.IsOpen());
    EXPECT_EQ(log.Count("[INF] : tcp connect success, port : 20000"), 1);
    EXPECT_EQ(link.channel.GetTotalBytesRead(), 0u);

    WritePacket(link.channel, Hex("01 02 7E 7D"));
    EXPECT_EQ(ReceiveBytes(link.peer, 10), Hex("7E 01 02 7D 5E 7D 5D 6B 97 7E"));
    EXPECT_EQ(link.channel.GetTotalBytesWrite(), 10u);

    // A stream cut in the middle of a frame reassembles.
    SendAll(link.peer, ByteView(FRAME).first(9));
    link.Receive();
    EXPECT_TRUE(DrainAgentQueue().empty());
    SendAll(link.peer, Join(ByteView(FRAME).subspan(9), FRAME));
    link.Receive();
    EXPECT_EQ(link.channel.GetTotalBytesRead(), 2 * FRAME.size());
    const auto msgs = DrainAgentQueue();
    ASSERT_EQ(msgs.size(), 2u);
    for (const QueuedMsg& stMsg : msgs) {
        EXPECT_EQ(stMsg.ulMsgType, AGENT_MSG_DATA);
        EXPECT_EQ(stMsg.ulUeIdx, 15u);
        EXPECT_EQ(stMsg.enChannel, CHANNEL_LTE_DIAG);
        EXPECT_EQ(stMsg.data, PACKET);
    }
}

TEST(TcpChannel, TheIndexGivesTheChannels)
{
    const std::vector<std::vector<enChannelType>> c_aChannel = {
        {CHANNEL_LTE_DIAG}, {CHANNEL_LTE_DATA}, {CHANNEL_GU_CMD, CHANNEL_GU_DATA}};
    for (int i = 0; i < 3; ++i) {
        Link link(i);
        SendAll(link.peer, FRAME);
        link.Receive();
        std::vector<enChannelType> vecGot;
        for (const QueuedMsg& stMsg : DrainAgentQueue())
            vecGot.push_back(stMsg.enChannel);
        EXPECT_EQ(vecGot, c_aChannel[static_cast<size_t>(i)]) << i;
    }
}

TEST(TcpChannel, TheAtLinkTalksText)
{
    Link link(3);
    WritePacket(link.channel, AsBytes("AT+CGSN~\r"));
    EXPECT_EQ(ReceiveBytes(link.peer, 9), Bytes(AsBytes("AT+CGSN~\r")));
    SendAll(link.peer, AsBytes("\r\nOK\r\n"));
    link.Receive();
    const auto msgs = DrainAgentQueue();
    ASSERT_EQ(msgs.size(), 1u);
    EXPECT_EQ(msgs[0].enChannel, CHANNEL_AT);
    EXPECT_EQ(msgs[0].ulUeIdx, 15u);
    EXPECT_EQ(msgs[0].data, Bytes(AsBytes("\r\nOK\r\n")));
}

TEST(TcpChannel, AnEmptyPacketSendsNothing)
{
    for (const int iIndex : {0, 3}) {
        Link link(iIndex);
        WritePacket(link.channel, ByteView());
        EXPECT_EQ(link.channel.GetTotalBytesWrite(), 0u) << iIndex;
    }
}

TEST(TcpChannel, DecodeFaultsHaveTheFormWithoutAPort)
{
    const CLogCapture log;
    Link link(2);
    SendAll(link.peer, Hex("7E 01 02 03 04 7E"));
    link.Receive();
    EXPECT_EQ(log.Count("[INF] : HDLC Decode Error!182"), 2) << "once for each of the two channels";
}

TEST(TcpChannel, AnIndexBeyondTheLinksStillHasOneChannel)
{
    Link link(4);
    SendAll(link.peer, FRAME);
    link.Receive();
    EXPECT_EQ(DrainAgentQueue().size(), 1u);
}

TEST(TcpChannel, NobodyListensThere)
{
    const CLogCapture log;
    TCPChannel channel("127.0.0.1", PORT, TCP, Index(0));
    EXPECT_EQ(channel.GetSocket(), -1);
    EXPECT_EQ(log.Count("[INF] : TCP connect failed, port: 20000"), 1);
    WritePacket(channel, PACKET);
    EXPECT_EQ(channel.GetTotalBytesWrite(), MINUS_ONE);
    WritePacket(channel, PACKET);
    EXPECT_EQ(channel.GetTotalBytesWrite(), 2 * MINUS_ONE);
}

TEST(TcpChannel, AnAddressThatIsNoneAndAPortThatIsNoneFail)
{
    const CLogCapture log;
    EXPECT_EQ(TCPChannel("group-1", PORT, TCP, Index(0)).GetSocket(), -1);
    const CUniqueFd listener = ListenTcp(PORT);
    EXPECT_EQ(TCPChannel("127.0.0.1", 65536 + PORT, TCP, Index(0)).GetSocket(), -1);
    EXPECT_EQ(TCPChannel("127.0.0.1", 65536 + PORT, UDP, Index(0)).GetSocket(), -1);
    EXPECT_EQ(log.Count("TCP connect failed, port: "), 2);
}

TEST(TcpChannel, AConnectThatIsntAnsweredEndsAfterFiveSeconds)
{
    // A listener that doesn't take its connections leaves further ones unanswered.
    const CUniqueFd listener = ListenTcp(PORT, 0);
    const CUniqueFd waiting = ConnectTcp(PORT);
    ASSERT_TRUE(waiting.IsOpen());
    const CLogCapture log;
    const auto start = steady_clock::now();
    TCPChannel channel("127.0.0.1", PORT, TCP, Index(0));
    const auto took = steady_clock::now() - start;
    EXPECT_EQ(channel.GetSocket(), -1);
    EXPECT_GE(took, milliseconds(4000));
    EXPECT_LT(took, milliseconds(6500));
    EXPECT_EQ(log.Count("TCP connect failed, port: 20000"), 1);
}

TEST(TcpChannel, SignalsDisturbNeitherAConnectNorASend)
{
    const CUniqueFd listener = ListenTcp(PORT, 0);
    const CUniqueFd waiting = ConnectTcp(PORT); // there is no room for another one until this one is taken
    ASSERT_TRUE(waiting.IsOpen());
    const CSignals signals;
    CUniqueFd peer;
    std::thread server([&] {
        CSignals::WaitForMore(20);
        const CUniqueFd first = AcceptTcp(listener);
        peer = AcceptTcp(listener);
    });
    const CLogCapture log;
    TCPChannel channel("127.0.0.1", PORT, TCP, Index(3));
    server.join();
    ASSERT_NE(channel.GetSocket(), -1);
    ASSERT_TRUE(peer.IsOpen());
    EXPECT_EQ(log.Count("[INF] : tcp connect success, port : 20000"), 1);

    const Bytes block = Fill(10'000'000, 'x'); // more than both ends' buffers
    Bytes received;
    std::thread reader([&] {
        CSignals::WaitForMore(50); // the send waits for room meanwhile
        received = ReceiveBytes(peer, block.size());
    });
    WritePacket(channel, block);
    reader.join();
    EXPECT_EQ(received, block);
    EXPECT_EQ(channel.GetTotalBytesWrite(), block.size());
}

TEST(TcpChannel, SignalsDontProlongAConnectThatIsntAnswered)
{
    const CUniqueFd listener = ListenTcp(PORT, 0);
    const CUniqueFd waiting = ConnectTcp(PORT);
    ASSERT_TRUE(waiting.IsOpen());
    const CSignals signals;
    const auto start = steady_clock::now();
    TCPChannel channel("127.0.0.1", PORT, TCP, Index(0));
    EXPECT_EQ(channel.GetSocket(), -1);
    EXPECT_GE(steady_clock::now() - start, milliseconds(4000));
    EXPECT_LT(steady_clock::now() - start, milliseconds(6500));
}

TEST(TcpChannel, AUdpLinkReceivesAndItsWritesVanish)
{
    const CLogCapture log;
    TCPChannel channel("192.0.2.1", PORT, UDP, Index(0));
    ASSERT_NE(channel.GetSocket(), -1);
    EXPECT_EQ(log.Count("[INF] : udp bind success, port : 20000"), 1);
    // A frame over two datagrams, and two frames in one.
    SendUdp(PORT, ByteView(FRAME).first(5));
    SendUdp(PORT, Join(ByteView(FRAME).subspan(5), FRAME));
    EXPECT_TRUE(ReadPort(channel));
    EXPECT_TRUE(ReadPort(channel));
    EXPECT_EQ(DrainAgentQueue().size(), 2u);
    EXPECT_EQ(channel.GetTotalBytesRead(), 2 * FRAME.size());

    WritePacket(channel, PACKET);
    EXPECT_EQ(channel.GetTotalBytesWrite(), MINUS_ONE);

    SendUdp(PORT, ByteView());
    EXPECT_TRUE(ReadPort(channel));
    EXPECT_EQ(log.Count("[ERR] : Recv channel data fail, com:20000, errno:"), 1);
    EXPECT_EQ(log.Count(", line:192"), 1);
    EXPECT_FALSE(channel.IsPeerClosed());
    EXPECT_EQ(channel.GetTotalBytesRead(), 2 * FRAME.size());

    EXPECT_TRUE(ReadPort(channel)); // nothing there: doesn't wait
    EXPECT_EQ(channel.GetTotalBytesRead(), 2 * FRAME.size());
}

TEST(TcpChannel, AUdpPortThatIsTakenFailsWithoutALine)
{
    TCPChannel first("", PORT, UDP, Index(0));
    const CLogCapture log;
    TCPChannel second("", PORT, UDP, Index(1));
    EXPECT_EQ(second.GetSocket(), -1);
    EXPECT_EQ(log.Count("bind"), 0);
}

TEST(TcpChannel, APeerThatClosesIsNotedWithoutALine)
{
    Link link(0);
    const CLogCapture log;
    SendAll(link.peer, FRAME);
    link.peer.Reset();
    link.Receive();
    EXPECT_FALSE(link.channel.IsPeerClosed());
    link.Receive();
    EXPECT_TRUE(link.channel.IsPeerClosed());
    EXPECT_NE(link.channel.GetSocket(), -1) << "the socket stays until the detach";
    EXPECT_EQ(link.channel.GetTotalBytesRead(), FRAME.size());
    EXPECT_EQ(log.Count(""), 1) << "nothing but the mark";

    // Writing to it fails sooner or later, and never kills the process.
    EXPECT_TRUE(WaitFor([&] {
        WritePacket(link.channel, PACKET);
        return link.channel.GetTotalBytesWrite() >= MINUS_ONE;
    }));
}

TEST(TcpChannel, AResetCountsAsMinusOneAndEndsTheLink)
{
    Link link(0);
    const linger stLinger{1, 0};
    setsockopt(link.peer.Get(), SOL_SOCKET, SO_LINGER, &stLinger, sizeof(stLinger));
    link.peer.Reset();
    link.Receive();
    EXPECT_TRUE(link.channel.IsPeerClosed());
    EXPECT_EQ(link.channel.GetTotalBytesRead(), MINUS_ONE);
    EXPECT_TRUE(DrainAgentQueue().empty());
}

TEST(TcpChannel, APeerThatStopsReadingLosesThePacketAfterFiveSeconds)
{
    Link link(3);
    const Bytes block = Fill(10'000'000, 'x'); // more than both ends' buffers
    const auto start = steady_clock::now();
    WritePacket(link.channel, block);
    const auto took = steady_clock::now() - start;
    EXPECT_GE(took, milliseconds(4000));
    EXPECT_LT(took, milliseconds(6500));
    EXPECT_GE(link.channel.GetTotalBytesWrite(), MINUS_ONE);
}

TEST(TcpChannel, ItsEndClosesTheSocket)
{
    const CUniqueFd listener = ListenTcp(PORT);
    auto pChannel = std::make_unique<TCPChannel>("127.0.0.1", PORT, TCP, Index(0));
    const CUniqueFd peer = AcceptTcp(listener);
    EXPECT_FALSE(SawClose(peer, milliseconds(20)));
    pChannel.reset();
    EXPECT_TRUE(SawClose(peer));
}
