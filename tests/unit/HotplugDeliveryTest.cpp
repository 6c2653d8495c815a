#include "common/Types.h"
#include "common/Wait.h"
#include "hotplug/Delivery.h"
#include "hotplug/Listener.h"
#include "support/Sockets.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

namespace
{
using STATE = CDelivery::STATE;
using std::chrono::steady_clock;

sockaddr_in Agent()
{
    sockaddr_in stAddr{};
    stAddr.sin_family = AF_INET;
    stAddr.sin_port = htons(DEVICE_MONITOR_PORT);
    stAddr.sin_addr.s_addr = inet_addr("127.0.0.1");
    return stAddr;
}

/// Goes on until the state is another one than UNDER_WAY.
STATE Finish(CDelivery& delivery)
{
    const auto end = steady_clock::now() + std::chrono::seconds(5);
    STATE enState = STATE::UNDER_WAY;
    while (enState == STATE::UNDER_WAY && steady_clock::now() < end) {
        pollfd stFd = delivery.PollFd();
        (void)PollFor({&stFd, 1}, 100);
        enState = delivery.Advance(steady_clock::now());
    }
    return enState;
}

class HotplugDelivery : public testing::Test
{
protected:
    void Start() { m_delivery.Start(Agent(), m_stRecord, m_start); }

    const DEVICE_MONITOR_INFO_STRU m_stRecord{0x01020304, SERIAL_TYPE_GU, 1, "/dev/ttyUSB2", "path"};
    const steady_clock::time_point m_start = steady_clock::now();
    CUniqueFd m_listener = ListenTcp(DEVICE_MONITOR_PORT);
    CDelivery m_delivery;
};
} // namespace

TEST_F(HotplugDelivery, ARecordIsDeliveredOnceTheAgentHasTakenItAndCloses)
{
    Start();
    EXPECT_TRUE(m_delivery.IsUnderWay());
    EXPECT_EQ(m_delivery.Advance(m_start), STATE::UNDER_WAY);
    CUniqueFd agent = AcceptTcp(m_listener);
    EXPECT_EQ(ReceiveBytes(agent, 520), Join(Hex("01 02 03 04 02 01"), Hex("2F 64 65 76 2F 74 74 79 55 53 42 32"),
                                             Fill(244), Hex("70 61 74 68"), Fill(254)));
    EXPECT_EQ(m_delivery.Advance(m_start), STATE::UNDER_WAY) << "taken, but not closed";
    agent.Reset();
    EXPECT_EQ(Finish(m_delivery), STATE::DELIVERED);
    EXPECT_FALSE(m_delivery.IsUnderWay());
    EXPECT_EQ(m_delivery.PollFd().fd, -1);
}

TEST_F(HotplugDelivery, AnAgentThatClosesBeforeItHasTakenAllHasNotGotTheRecord)
{
    Start();
    EXPECT_EQ(m_delivery.Advance(m_start), STATE::UNDER_WAY);
    CUniqueFd agent = AcceptTcp(m_listener);
    EXPECT_EQ(ReceiveBytes(agent, 519).size(), 519U);
    agent.Reset();
    EXPECT_EQ(Finish(m_delivery), STATE::FAILED);
    EXPECT_EQ(m_delivery.Error(), "Connection reset by peer");
}

TEST_F(HotplugDelivery, AnAgentThatClosesBeforeAByteCameHasNotGotTheRecord)
{
    Start(); // connects, and sends nothing yet
    AcceptTcp(m_listener).Reset();
    EXPECT_EQ(Finish(m_delivery), STATE::FAILED);
    EXPECT_EQ(m_delivery.Error(),
              "the agent closes the connection without the record; does AllowFrom let this address in?");
}

TEST_F(HotplugDelivery, AnAgentThatEndsWithTheConnectionUntakenHasNotGotTheRecord)
{
    Start();
    EXPECT_EQ(m_delivery.Advance(m_start), STATE::UNDER_WAY);
    m_listener.Reset();
    EXPECT_EQ(Finish(m_delivery), STATE::FAILED);
    EXPECT_EQ(m_delivery.Error(), "Connection reset by peer");
    Start();
    EXPECT_EQ(Finish(m_delivery), STATE::FAILED);
    EXPECT_EQ(m_delivery.Error(), "Connection refused");
}

TEST_F(HotplugDelivery, APeerThatAnswersIsNoAgent)
{
    Start();
    EXPECT_EQ(m_delivery.Advance(m_start), STATE::UNDER_WAY);
    const CUniqueFd agent = AcceptTcp(m_listener);
    ASSERT_TRUE(SendAll(agent, Hex("00")));
    EXPECT_EQ(Finish(m_delivery), STATE::FAILED);
    EXPECT_EQ(m_delivery.Error(), "what listens there is no agent");
}

TEST_F(HotplugDelivery, AnAgentThatTakesNothingIsGivenUpAfterFifteenSeconds)
{
    Start();
    EXPECT_EQ(m_delivery.End(), m_start + std::chrono::seconds(15));
    EXPECT_EQ(m_delivery.Advance(m_start + std::chrono::milliseconds(14999)), STATE::UNDER_WAY);
    EXPECT_EQ(m_delivery.Advance(m_start + std::chrono::seconds(15)), STATE::FAILED);
    EXPECT_EQ(m_delivery.Error(), "the agent doesn't take the record");
}

TEST(HotplugListener, TheTableOfTheKernelIsReadByAddressAndState)
{
    constexpr const char* TABLE =
        "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode\n"
        "   0: 00000000:4FED 00000000:0000 0A 00000000:00000000 00:00000000 00000000     0        0 1111 1 0 100 0\n"
        "   1: 0201A8C0:4FEC 00000000:0000 0A 00000000:00000000 00:00000000 00000000   107        0 2222 1 0 100 0\n"
        "   2: 0100007F:4FEC 0100007F:9C40 01 00000000:00000000 00:00000000 00000000     0        0 3333 1 0 100 0\n";
    EXPECT_EQ(FindListener(TABLE, Agent()), 0U); // another port, another address, no listener
    EXPECT_EQ(FindListener(std::string(TABLE) + "   3: 00000000:4FEC 00000000:0000 0A 00000000:00000000 00:00000000 "
                                                "00000000     0        0 18446744073709551615 1 0\n",
                           Agent()),
              18446744073709551615U); // all addresses
    sockaddr_in stOther = Agent();
    stOther.sin_addr.s_addr = inet_addr("192.168.1.2");
    EXPECT_EQ(FindListener(TABLE, stOther), 2222U);
    EXPECT_EQ(FindListener("", stOther), 0U);
}

TEST(HotplugListener, AListenerThatComesAnewIsAnotherOne)
{
    EXPECT_EQ(FindListener(Agent()), 0U);
    CUniqueFd listener = ListenTcp(DEVICE_MONITOR_PORT);
    const uint64_t ullFirst = FindListener(Agent());
    EXPECT_NE(ullFirst, 0U);
    const CUniqueFd client = ConnectTcp(DEVICE_MONITOR_PORT);
    EXPECT_EQ(FindListener(Agent()), ullFirst);
    listener.Reset();
    listener = ListenTcp(DEVICE_MONITOR_PORT);
    EXPECT_NE(FindListener(Agent()), 0U);
    EXPECT_NE(FindListener(Agent()), ullFirst);
}
