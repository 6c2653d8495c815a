#include "agent/Agent.h"

#include "agent/Client.h"
#include "agent/PollSet.h"
#include "common/Config.h"
#include "support/AgentFixture.h"
#include "support/LogCapture.h"
#include "support/Signals.h"
#include "support/WaitFor.h"

#include <arpa/inet.h>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

using namespace std::chrono_literals;
using testing::HasSubstr;
using Clock = std::chrono::steady_clock;

namespace
{
sockaddr_in Local(unsigned short usPort)
{
    sockaddr_in stAddr{};
    stAddr.sin_family = AF_INET;
    stAddr.sin_port = htons(usPort);
    stAddr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return stAddr;
}

/// A socket that holds the port.
CUniqueFd Hold(unsigned short usPort, int iType)
{
    CUniqueFd fd(socket(AF_INET, iType, 0));
    const sockaddr_in stAddr = Local(usPort);
    EXPECT_EQ(bind(fd.Get(), reinterpret_cast<const sockaddr*>(&stAddr), sizeof(stAddr)), 0) << usPort;
    return fd;
}

CUniqueFd TryConnect(unsigned short usPort)
{
    CUniqueFd fd(socket(AF_INET, SOCK_STREAM, 0));
    const sockaddr_in stAddr = Local(usPort);
    if (connect(fd.Get(), reinterpret_cast<const sockaddr*>(&stAddr), sizeof(stAddr)) != 0)
        fd.Reset();
    return fd;
}

/// Exactly szCount bytes, fewer when they don't come in time or the connection ends.
Bytes Receive(const CUniqueFd& fd, size_t szCount)
{
    Bytes received;
    for (pollfd stFd{fd.Get(), POLLIN, 0}; received.size() < szCount && poll(&stFd, 1, 5000) > 0;) {
        unsigned char aucBuf[4096];
        const ssize_t lRead = recv(fd.Get(), aucBuf, std::min(sizeof(aucBuf), szCount - received.size()), 0);
        if (lRead <= 0)
            break;
        received.insert(received.end(), aucBuf, aucBuf + lRead);
    }
    return received;
}

bool IsClosedByAgent(const CUniqueFd& fd)
{
    char cByte;
    pollfd stFd{fd.Get(), POLLIN, 0};
    return poll(&stFd, 1, 5000) > 0 && recv(fd.Get(), &cByte, 1, 0) <= 0;
}

constexpr size_t UE_STATUS_LEN = 114; // what a client is told when it is bound, lead bytes and head included

// An unbind, and its ack.
const Bytes UNBIND = Hex("9F 9F 50 00 00 50 F0 00 00 00");
const Bytes UNBIND_ACK = Hex("9F 9F 50 00 00 50 00 00 00 00 00 00 00 00 00 00 00 00 F0 00 00 00");

/// An agent whose client loop runs on a thread of its own.
class ClientLoopTest : public testing::Test
{
protected:
    void Start()
    {
        m_loop = std::thread([&] {
            m_nLoopId = gettid();
            m_fix.Agent().Clients().ListenFun();
        });
        CUniqueFd probe; // for the port that listens last
        EXPECT_TRUE(WaitFor([&] { return (probe = TryConnect(20270)).IsOpen(); }));
        shutdown(probe.Get(), SHUT_WR);
        EXPECT_TRUE(IsClosedByAgent(probe)) << "it must not count as the first client of its type";
    }
    ~ClientLoopTest() override
    {
        if (!m_loop.joinable())
            return;
        m_fix.Agent().Stop();
        m_loop.join();
    }
    CUniqueFd Connect(enChannelType enType) { return TryConnect(LISTENPORT[static_cast<size_t>(enType)]); }
    /// A client that is bound to a confirmed UE with port 12; null when that fails. far is its own end.
    std::shared_ptr<CClient> ConnectBound(enChannelType enType, CUniqueFd& far)
    {
        m_fix.AttachUe(0, 12);
        m_fix.Confirm(0);
        far = Connect(enType);
        std::shared_ptr<CClient> pClient;
        EXPECT_TRUE(WaitFor([&] { return (pClient = Agent().Table().GetGUDataClient(0, enType)) != nullptr; }));
        return pClient;
    }
    CAgent& Agent() { return m_fix.Agent(); }

    CAgentFixture m_fix;
    std::atomic<int> m_nLoopId = 0;  // thread id
    std::atomic<int> m_lAheadMs = 0; // of the real time, as the loop sees it where a test says so
    std::thread m_loop;
};
} // namespace

TEST(Agent, TimesAreNamedInLocalTime)
{
    setenv("TZ", "UTC-3", 1);
    tzset();
    EXPECT_EQ(CAgent::Timeval2String({1394015745, 999999}), "_20140305_133545");
}

TEST(Agent, AMissingConfigurationIsNoError)
{
    CAgent agent;
    EXPECT_TRUE(agent.Init("/nonexistent/vex.cfg"));
    EXPECT_TRUE(agent.Init(nullptr));
}

TEST(Agent, StopIsSafeBeforeAnyRunAndTwice)
{
    CAgent agent;
    EXPECT_TRUE(agent.Init(nullptr));
    EXPECT_TRUE(agent.Stop());
    EXPECT_TRUE(agent.Stop());
}

TEST(Agent, ARunEndsWithoutUesWhenItsFirstPortIsTaken)
{
    static CAgentFixture& s_fix = *new CAgentFixture; // its threads aren't joined, so it stays to the very end
    CLogCapture log;
    CAgentFixture::Configure("debugfilename=/tmp/vex-agent-test\nReportInterval=0\nChannelNameEnable=0");
    const CUniqueFd taken = Hold(20260, SOCK_STREAM);
    testing::internal::CaptureStderr();
    EXPECT_TRUE(s_fix.Agent().Run()) << "the end of the client loop isn't a failure of the run";
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("can't listen on TCP port 20260: Address already"));
    s_fix.Agent().Stop();
}

// Waiting.

TEST(PollSet, ADescriptorThatIsNotOpenFailsTheWholeWait)
{
    const CUniqueFd open = Hold(5000, SOCK_DGRAM);
    CUniqueFd closed(dup(open.Get()));
    const int nClosed = closed.Get();
    closed.Reset();
    for (const int nFd : {nClosed, -1}) {
        CPollSet fds;
        fds.Add(open.Get());
        fds.Add(nFd);
        errno = 0;
        EXPECT_EQ(fds.Wait(0), -1);
        EXPECT_EQ(errno, EBADF);
        fds.Clear();
        fds.Add(open.Get());
        EXPECT_EQ(fds.Wait(0), 0) << "it is forgotten with the set";
    }
}

TEST(PollSet, TellsWhichOnesAreReady)
{
    int anPair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, anPair), 0);
    const CUniqueFd first(anPair[0]), second(anPair[1]);
    CPollSet fds;
    fds.Add(first.Get());
    fds.Add(second.Get());
    EXPECT_EQ(fds.Wait(0), 0);
    ASSERT_EQ(write(first.Get(), "x", 1), 1);
    EXPECT_EQ(fds.Wait(0), 1);
    EXPECT_FALSE(fds.IsReady(first.Get()));
    EXPECT_TRUE(fds.IsReady(second.Get()));
    EXPECT_FALSE(fds.IsReady(-1));
    EXPECT_FALSE(fds.IsReady(100000));
    fds.Clear();
    EXPECT_FALSE(fds.IsReady(second.Get()));
}

TEST(PollSet, TellsWritingFromTheRest)
{
    int anPair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, anPair), 0);
    const CUniqueFd near(anPair[0]);
    CUniqueFd far(anPair[1]);
    CPollSet fds;
    fds.Add(near.Get(), POLLOUT);
    EXPECT_EQ(fds.Wait(0), 1);
    EXPECT_TRUE(fds.IsWritable(near.Get()));
    EXPECT_FALSE(fds.IsReady(near.Get()));
    ASSERT_EQ(write(far.Get(), "x", 1), 1);
    fds.Clear();
    fds.Add(near.Get());
    EXPECT_EQ(fds.Wait(0), 1);
    EXPECT_FALSE(fds.IsWritable(near.Get()));
    EXPECT_TRUE(fds.IsReady(near.Get()));
    far.Reset();
    fds.Clear();
    fds.Add(near.Get(), POLLIN | POLLOUT);
    EXPECT_EQ(fds.Wait(0), 1);
    EXPECT_TRUE(fds.IsWritable(near.Get())) << "it never waits again";
    EXPECT_TRUE(fds.IsReady(near.Get()));
}

TEST(PollSet, ASignalDoesntEndTheWait)
{
    const CUniqueFd open = Hold(5000, SOCK_DGRAM);
    CPollSet fds;
    fds.Add(open.Get());
    const int nBefore = CSignals::Count();
    const CSignals signals;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(fds.Wait(300), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
    EXPECT_GT(CSignals::Count(), nBefore);
}

// The loop.

TEST_F(ClientLoopTest, WithItsFirstPortTakenItDoesNotStart)
{
    CLogCapture log;
    const CUniqueFd taken = Hold(20260, SOCK_STREAM);
    testing::internal::CaptureStderr();
    EXPECT_EQ(Agent().Clients().ListenFun(), 0);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("TCP port 20260"));
    EXPECT_TRUE(log.Saw("[ERR] : CreateListenSocket fail\n"));
    EXPECT_EQ(log.Count("socket select fail"), 0);
}

TEST_F(ClientLoopTest, WithALaterPortTakenItEndsInItsFirstWait)
{
    for (const unsigned short usPort : {LISTENPORT[1], LISTENPORT[2], LISTENPORT[3], LISTENPORT[4]}) {
        CLogCapture log;
        const CUniqueFd taken = Hold(usPort, SOCK_STREAM);
        testing::internal::CaptureStderr();
        EXPECT_EQ(Agent().Clients().ListenFun(), 0);
        EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("TCP port " + std::to_string(usPort) + ":"));
        EXPECT_TRUE(log.Saw("[ERR] : socket select fail, errno:" + std::to_string(EBADF) + "\n")) << usPort;
        EXPECT_EQ(log.Count("CreateListenSocket fail"), 0) << usPort;
        EXPECT_FALSE(TryConnect(20260).IsOpen()) << "all sockets are closed";
    }
}

TEST_F(ClientLoopTest, TheGreatestDescriptorIsGivenAlsoAfterALaterFailure)
{
    CClientServer::CListenSockets anListen;
    const CUniqueFd taken = Hold(20280, SOCK_STREAM);
    testing::internal::CaptureStderr();
    EXPECT_GE(Agent().Clients().CreateListenSocket(anListen.data(), 5), 0);
    (void)testing::internal::GetCapturedStderr();
    EXPECT_THAT(anListen, testing::Each(-1));
}

TEST_F(ClientLoopTest, EachPortHasItsChannel)
{
    CLogCapture log;
    Start();
    for (const enChannelType enType : ALL_CHANNELS) {
        const CUniqueFd client = Connect(enType);
        EXPECT_TRUE(client.IsOpen());
        EXPECT_TRUE(log.Saw(std::string("[INF] : new Client connect, type is ") +
                            strChannelType[static_cast<size_t>(enType)] + "\n"));
    }
}

TEST_F(ClientLoopTest, ARequestIsAnsweredAndTheEndOfTheClientIsNoticed)
{
    CLogCapture log;
    Start();
    m_fix.AttachUe(0, 12);
    m_fix.Confirm(0);
    CUniqueFd client = Connect(CHANNEL_LTE_DATA);
    EXPECT_TRUE(log.Saw("Client Connected, com port is 12, ip is 127.0.0.1")) << "bound by itself";
    ASSERT_EQ(send(client.Get(), UNBIND.data(), UNBIND.size(), 0), 10);
    EXPECT_EQ(Receive(client, UNBIND_ACK.size()), UNBIND_ACK);
    EXPECT_TRUE(log.Saw("Client Disonnected, com port is 12"));
    client.Reset();
    EXPECT_TRUE(log.Saw("Lte Data is disconnect\n"));
    EXPECT_TRUE(log.Saw("[INF] : Delete Client(com 12) Lte Data\n"));
}

TEST_F(ClientLoopTest, AClientsSocketHasASmallBufferAndNeverWaits)
{
    Start();
    CUniqueFd far;
    const auto pClient = ConnectBound(CHANNEL_AT, far);
    ASSERT_TRUE(pClient);
    const auto Option = [&](int nLevel, int nName) {
        int nValue = -1;
        socklen_t ulLen = sizeof(nValue);
        EXPECT_EQ(getsockopt(pClient->GetClientSocket(), nLevel, nName, &nValue, &ulLen), 0);
        return nValue;
    };
    EXPECT_EQ(Option(SOL_SOCKET, SO_SNDBUF), 2 * 32768) << "the system doubles it for its own needs";
    EXPECT_EQ(Option(IPPROTO_TCP, TCP_NODELAY), 1);
    EXPECT_NE(fcntl(pClient->GetClientSocket(), F_GETFL) & O_NONBLOCK, 0);
}

TEST_F(ClientLoopTest, AClosedClientFreesItsRow)
{
    CLogCapture log;
    Start();
    m_fix.AttachUe(0, 12);
    m_fix.Confirm(0);
    CUniqueFd first = Connect(CHANNEL_GU_DATA);
    EXPECT_TRUE(log.Saw("Guom Data binded to 12"));
    first.Reset();
    EXPECT_TRUE(log.Saw("Guom Data is disconnect"));
    const CUniqueFd second = Connect(CHANNEL_GU_DATA);
    EXPECT_TRUE(WaitFor([&] { return log.Count("Guom Data binded to 12") == 2; }));
}

TEST_F(ClientLoopTest, AResetConnectionIsAnError)
{
    CLogCapture log;
    Start();
    CUniqueFd client = Connect(CHANNEL_LTE_DATA);
    EXPECT_TRUE(log.Saw("new Client connect, type is Lte Data"));
    const linger stLinger{1, 0};
    setsockopt(client.Get(), SOL_SOCKET, SO_LINGER, &stLinger, sizeof(stLinger));
    client.Reset();
    EXPECT_TRUE(log.Saw("data Error, ret:0xffffffff, errno:" + std::to_string(ECONNRESET)));
    EXPECT_EQ(log.Count("Lte Data is disconnect"), 0);
}

TEST_F(ClientLoopTest, HundredsOfClientsAreServedAtOnce)
{
    Start();
    std::vector<CUniqueFd> clients;
    for (int i = 0; i < 300; ++i) {
        clients.push_back(Connect(i % 2 == 0 ? CHANNEL_LTE_DIAG : CHANNEL_LTE_DATA));
        ASSERT_EQ(send(clients.back().Get(), UNBIND.data(), UNBIND.size(), 0), 10) << i;
        if (i % 10 == 9) { // the backlog is short
            ASSERT_EQ(Receive(clients.back(), UNBIND_ACK.size()), UNBIND_ACK) << i;
        }
    }
    for (const CUniqueFd& client : clients)
        ASSERT_EQ(send(client.Get(), UNBIND.data(), UNBIND.size(), 0), 10);
    for (size_t i = 0; i < clients.size(); ++i) {
        const Bytes expected = i % 10 == 9 ? UNBIND_ACK : Join(UNBIND_ACK, UNBIND_ACK);
        EXPECT_EQ(Receive(clients[i], expected.size()), expected) << i;
    }
}

TEST_F(ClientLoopTest, DeviceLossDoesNotWaitForTheIdleSecond)
{
    Start();
    CAgentFixture::Configure("ReportInterval=1\nMonitorIP=127.0.0.1");
    for (int i = 0; i < 5; ++i) {
        m_fix.Attach(0, CHANNEL_LTE_DIAG, 12);
        m_fix.Attach(0, CHANNEL_AT, 12);
        m_fix.Confirm(0);
        const CUniqueFd client = Connect(CHANNEL_AT);
        ASSERT_TRUE(WaitFor([&] { return Agent().Bindings().GetGUDataClient(0, CHANNEL_AT) != nullptr; }));
        const auto start = Clock::now();
        m_fix.Detach(0, CHANNEL_AT);
        EXPECT_LT(Clock::now() - start, 500ms);
        EXPECT_TRUE(IsClosedByAgent(client));
    }
}

TEST_F(ClientLoopTest, WhatAClientDidntTakeComesWhenItReadsAgain)
{
    Start();
    CUniqueFd client;
    const auto pClient = ConnectBound(CHANNEL_LTE_DATA, client);
    ASSERT_TRUE(pClient);
    // More than the buffers of both ends take, as one packet: its rest can't be given up.
    constexpr size_t LARGE = 16 << 20;
    EXPECT_TRUE(pClient->SendData2Client({}, Fill(LARGE, 0x5A)));
    EXPECT_TRUE(pClient->HasOutput());
    EXPECT_EQ(Receive(client, LARGE), Fill(LARGE, 0x5A));
    EXPECT_TRUE(WaitFor([&] { return !pClient->HasOutput(); }));
}

TEST_F(ClientLoopTest, AClientThatTakesNothingIsGivenUpByTheLoop)
{
    CLogCapture log;
    Start();
    CUniqueFd client;
    const auto pClient = ConnectBound(CHANNEL_LTE_DATA, client);
    ASSERT_TRUE(pClient);
    EXPECT_TRUE(WaitFor([&] { return IsAsleep(m_nLoopId); }));
    EXPECT_TRUE(pClient->SendData2Client({}, Fill(16 << 20, 0x5A)));
    for (int i = 0; i < 12; ++i)
        EXPECT_TRUE(pClient->SendData2Client({}, Fill(3)));
    const std::string strLost = "[WAN] : Client SendDataToClient select TimeOut, channel:Lte Data, ";
    EXPECT_TRUE(log.Saw(strLost + "errno :" + std::to_string(EAGAIN)));
    EXPECT_TRUE(log.Saw(strLost + "2 more frames lost")) << "told a second later";
}

TEST_F(ClientLoopTest, AClientWhoseUeNeedsAPauseWaitsAndOthersDont)
{
    CAgentFixture::Configure("TIME_SPACE=40");
    Start();
    m_fix.AttachUe(0, 12);
    m_fix.Confirm(0);
    const CUniqueFd gu = Connect(CHANNEL_GU_CMD);
    ASSERT_EQ(Receive(gu, UE_STATUS_LEN).size(), UE_STATUS_LEN) << "bound";
    const Bytes request = Hex("9F 9F 05 A0 00 00 52 00 04 00 01 00 00 00"); // 0xA005
    const Bytes requests = Join(request, request, UNBIND, request);
    CUeMsgQueue& queue = CMsgBuf::Instance()->UeQueue();
    const CLineLoad& load = *CMsgBuf::Instance()->LoadToUe(0, CHANNEL_GU_CMD);
    ASSERT_EQ(send(gu.Get(), requests.data(), requests.size(), 0), static_cast<ssize_t>(requests.size()));
    MSG_UE stMsg; // holds the charge, as long as the pause would last
    ASSERT_TRUE(queue.get(stMsg));

    const CUniqueFd other = Connect(CHANNEL_GU_CMD);
    ASSERT_EQ(send(other.Get(), UNBIND.data(), UNBIND.size(), 0), 10);
    EXPECT_EQ(Receive(other, UNBIND_ACK.size()), UNBIND_ACK) << "meanwhile";
    EXPECT_TRUE(WaitFor([&] { return IsAsleep(m_nLoopId); }));
    EXPECT_EQ(load.PacedPosted(), 1U) << "the second request isn't handled yet";

    stMsg = {};
    ASSERT_TRUE(queue.get(stMsg));
    EXPECT_EQ(load.PacedPosted(), 2U);
    pollfd stAnswer{gu.Get(), POLLIN, 0};
    EXPECT_EQ(poll(&stAnswer, 1, 50), 0) << "the answer to the third comes behind the pause of the second";
    stMsg = {};
    EXPECT_EQ(Receive(gu, UNBIND_ACK.size()), UNBIND_ACK);
}

TEST_F(ClientLoopTest, AClientWhoseLineIsFullIsntReadUntilThereIsRoom)
{
    Start();
    m_fix.AttachUe(0, 12);
    m_fix.Confirm(0);
    const CUniqueFd at = Connect(CHANNEL_AT);
    ASSERT_TRUE(WaitFor([&] { return Agent().Table().GetGUDataClient(0, CHANNEL_AT) != nullptr; }));
    CLineCharge full(*CMsgBuf::Instance()->LoadToUe(0, CHANNEL_AT), CLineLoad::ROOM);
    const Bytes text = Hex("41 54 0D");
    ASSERT_EQ(send(at.Get(), text.data(), text.size(), 0), 3);
    const CUniqueFd other = Connect(CHANNEL_AT);
    ASSERT_EQ(send(other.Get(), UNBIND.data(), UNBIND.size(), 0), 10);
    EXPECT_EQ(Receive(other, UNBIND_ACK.size()), UNBIND_ACK) << "bound to none, it goes on";
    EXPECT_TRUE(WaitFor([&] { return IsAsleep(m_nLoopId); })) << "a client that isn't read keeps no core busy";
    EXPECT_TRUE(m_fix.ToUe().empty());
    full.Release();
    MSG_UE stMsg;
    ASSERT_TRUE(CMsgBuf::Instance()->UeQueue().get(stMsg));
    EXPECT_EQ(Bytes(stMsg.packet.Bytes()), text);
}

TEST_F(ClientLoopTest, AClientThatHasEndedStaysForThePauseUnlessAnotherComes)
{
    CLogCapture log;
    CAgentFixture::Configure("TIME_SPACE=20000");
    Start();
    CUniqueFd gu;
    const auto pClient = ConnectBound(CHANNEL_GU_CMD, gu);
    ASSERT_TRUE(pClient);
    const Bytes request = Hex("9F 9F 05 A0 00 00 52 00 04 00 01 00 00 00"); // 0xA005
    ASSERT_EQ(send(gu.Get(), request.data(), request.size(), 0), 14);
    ASSERT_TRUE(WaitFor([&] { return CMsgBuf::Instance()->LoadToUe(0, CHANNEL_GU_CMD)->Cost() > 0; }));
    ASSERT_EQ(send(gu.Get(), request.data(), request.size(), 0), 14); // one more, which waits for the first
    ASSERT_EQ(shutdown(gu.Get(), SHUT_WR), 0);                        // it may still wait for an answer
    EXPECT_FALSE(WaitFor([&] { return log.Count("Client Disonnected, com port is 12") > 0; }, 200ms));
    const CUniqueFd next = Connect(CHANNEL_GU_CMD);
    EXPECT_TRUE(log.Saw("Client Disonnected, com port is 12"));
    EXPECT_TRUE(WaitFor([&] {
        const auto pNext = Agent().Table().GetGUDataClient(0, CHANNEL_GU_CMD);
        return pNext && pNext != pClient;
    })) << "bound in its place";
}

TEST_F(ClientLoopTest, DeviceLossEndsAClientThatIsHeldBack)
{
    Start();
    m_fix.AttachUe(0, 12);
    m_fix.Confirm(0);
    const CUniqueFd at = Connect(CHANNEL_AT);
    ASSERT_TRUE(WaitFor([&] { return Agent().Table().GetGUDataClient(0, CHANNEL_AT) != nullptr; }));
    const CLineCharge full(*CMsgBuf::Instance()->LoadToUe(0, CHANNEL_AT), CLineLoad::ROOM);
    ASSERT_EQ(send(at.Get(), "AT\r", 3, 0), 3);
    EXPECT_TRUE(WaitFor([&] { return IsAsleep(m_nLoopId); }));
    m_fix.Detach(0, CHANNEL_AT);
    EXPECT_TRUE(IsClosedByAgent(at));
}

TEST_F(ClientLoopTest, PeersThatArentAllowedAreClosedUnread)
{
    CLogCapture log;
    CAgentFixture::Configure("AllowFrom=192.0.2.0/24");
    Start();
    const CUniqueFd client = Connect(CHANNEL_LTE_DATA);
    (void)send(client.Get(), UNBIND.data(), UNBIND.size(), MSG_NOSIGNAL);
    EXPECT_TRUE(IsClosedByAgent(client));
    EXPECT_TRUE(log.Saw("[WAN] : Connection from 127.0.0.1 is not allowed, closed\n"));
    EXPECT_EQ(log.Count("new Client connect, type is Lte Data"), 0);
}

TEST_F(ClientLoopTest, PeersThatAreAllowedAreServed)
{
    CAgentFixture::Configure("AllowFrom=192.0.2.0/24;127.0.0.0/8");
    Start();
    const CUniqueFd client = Connect(CHANNEL_LTE_DATA);
    ASSERT_EQ(send(client.Get(), UNBIND.data(), UNBIND.size(), 0), 10);
    EXPECT_EQ(Receive(client, UNBIND_ACK.size()), UNBIND_ACK);
}

TEST_F(ClientLoopTest, WithRecoveryAPeerThatHasVanishedIsNoticed)
{
    CAgentFixture::Configure("Recovery=1");
    Start();
    CUniqueFd far;
    const auto pClient = ConnectBound(CHANNEL_AT, far);
    ASSERT_TRUE(pClient);
    const struct
    {
        int nLevel, nName, nValue;
    } astOption[] = {{SOL_SOCKET, SO_KEEPALIVE, 1},
                     {IPPROTO_TCP, TCP_KEEPIDLE, 10},
                     {IPPROTO_TCP, TCP_KEEPINTVL, 5},
                     {IPPROTO_TCP, TCP_KEEPCNT, 4},
                     {IPPROTO_TCP, TCP_USER_TIMEOUT, 30'000}};
    for (const auto& stOption : astOption) {
        int nValue = -1;
        socklen_t ulLen = sizeof(nValue);
        EXPECT_EQ(getsockopt(pClient->GetClientSocket(), stOption.nLevel, stOption.nName, &nValue, &ulLen), 0);
        EXPECT_EQ(nValue, stOption.nValue) << stOption.nName;
    }
}

TEST_F(ClientLoopTest, AStopBeforeItsStartEndsIt)
{
    Agent().Clients().Stop();
    EXPECT_EQ(Agent().Clients().ListenFun(), 0);
    EXPECT_FALSE(TryConnect(20260).IsOpen());
}

TEST_F(ClientLoopTest, EachIdleSecondTellsTheVersion)
{
    const CUniqueFd monitor = Hold(20560, SOCK_DGRAM);
    CAgentFixture::Configure("ReportInterval=1\nMonitorIP=127.0.0.1\nagentver=4.5.6");
    EXPECT_TRUE(Agent().Init(nullptr));
    m_fix.AttachUe(0, 1);
    m_fix.Confirm(0);
    Agent().Clients().SetClock([this] { return Clock::now() + std::chrono::milliseconds(m_lAheadMs); });
    Start();
    const CUniqueFd client = Connect(CHANNEL_LTE_DATA);
    const auto version = [&] {
        for (Bytes datagram(2048, 0);;) { // status of ports and clients comes as well
            pollfd stFd{monitor.Get(), POLLIN, 0};
            if (poll(&stFd, 1, 3000) <= 0)
                return Bytes{};
            const ssize_t lRead = recv(monitor.Get(), datagram.data(), datagram.size(), 0);
            if (datagram[0] == 7)
                return Bytes(Slice(ByteView(datagram), 0, static_cast<size_t>(lRead)));
        }
    };
    const Bytes expected = Hex("07 00 00 00 0C 00 00 00 04 00 00 00 05 00 00 00 06 00 00 00");
    EXPECT_EQ(version(), expected);
    EXPECT_TRUE(WaitFor([&] { return IsAsleep(m_nLoopId); }));
    // A device loss ends the wait early. That is no idle second, nor does it put the second off.
    const auto start = Clock::now();
    m_lAheadMs = 500;
    m_fix.Detach(0, CHANNEL_LTE_DATA);
    EXPECT_TRUE(IsClosedByAgent(client));
    EXPECT_EQ(version(), expected);
    EXPECT_GE(Clock::now() - start, 350ms);
    EXPECT_LT(Clock::now() - start, 900ms);
}

TEST_F(ClientLoopTest, WithoutDescriptorsItPausesInsteadOfSpinning)
{
    CLogCapture log;
    ASSERT_EQ(log.Count("Accept"), 0); // its writer has its file open now
    Start();
    CUniqueFd client(socket(AF_INET, SOCK_STREAM, 0));
    rlimit stLimit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &stLimit), 0);
    const rlimit stShort{static_cast<rlim_t>(client.Get()) + 1, stLimit.rlim_max};
    std::vector<CUniqueFd> fillers; // the numbers below are all in use then
    for (CUniqueFd filler(dup(client.Get())); filler.Get() >= 0 && filler.Get() < client.Get();
         filler = CUniqueFd(dup(client.Get())))
        fillers.push_back(std::move(filler));
    EXPECT_TRUE(WaitFor([&] { return IsAsleep(m_nLoopId); })); // a sanitizer needs descriptors to check a destruction
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &stShort), 0);

    const sockaddr_in stAddr = Local(20261);
    const auto start = Clock::now();
    ASSERT_EQ(connect(client.Get(), reinterpret_cast<const sockaddr*>(&stAddr), sizeof(stAddr)), 0);
    EXPECT_TRUE(WaitFor([&] { return log.Count("[ERR] : Accept socket fail!") >= 2; }));
    EXPECT_GE(Clock::now() - start, 900ms) << "tried again each second";
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &stLimit), 0);

    ASSERT_EQ(send(client.Get(), UNBIND.data(), UNBIND.size(), 0), 10);
    EXPECT_EQ(Receive(client, UNBIND_ACK.size()), UNBIND_ACK) << "served once there are descriptors again";
}

TEST_F(ClientLoopTest, TheEndOfTheLoopClosesClientsAndPorts)
{
    CLogCapture log;
    Start();
    m_fix.AttachUe(0, 12);
    m_fix.Confirm(0);
    const CUniqueFd client = Connect(CHANNEL_LTE_DATA);
    EXPECT_TRUE(log.Saw("Lte Data binded to 12"));
    Agent().Stop();
    m_loop.join();
    EXPECT_TRUE(IsClosedByAgent(client) || !Receive(client, 1).empty());
    EXPECT_EQ(Agent().Bindings().GetGUDataClient(0, CHANNEL_LTE_DATA), nullptr);
    EXPECT_FALSE(TryConnect(20260).IsOpen());
}

TEST_F(ClientLoopTest, RequestsUeDataAndDeviceLossMayMeet)
{
    // For the sanitizers: the main loop, the thread of the UE events, and one that sends without the binding lock.
    CLogCapture log(4);
    Start();
    std::atomic<bool> bEnd = false;
    std::thread events([&] {
        while (!bEnd) {
            m_fix.AttachUe(0, 12);
            m_fix.Confirm(0);
            for (int i = 0; i < 20; ++i)
                m_fix.FromUe(0, CHANNEL_AT, Hex("4F 4B 0D 0A"));
            m_fix.Detach(0, CHANNEL_AT);
            m_fix.Detach(0, CHANNEL_LTE_DIAG);
        }
    });
    std::thread gu([&] {
        while (!bEnd)
            if (const auto pClient = Agent().Table().GetGUDataClient(0, CHANNEL_AT))
                pClient->SendAck(1, 2, 3, Hex("01 02 03"), 4);
    });
    for (int i = 0; i < 60; ++i) {
        const CUniqueFd client = Connect(CHANNEL_AT);
        const Bytes bind = Hex("9F 9F 40 00 00 50 F0 00 04 00 0C 00 00 00");
        (void)send(client.Get(), bind.data(), bind.size(), MSG_NOSIGNAL);
        (void)Receive(client, 22);
    }
    bEnd = true;
    events.join();
    gu.join();
    EXPECT_EQ(log.Count("socket select fail"), 0) << log.Text();
}
