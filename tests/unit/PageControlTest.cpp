#include "page/ControlWorker.h"
#include "support/Sockets.h"
#include "support/WaitFor.h"

#include <future>
#include <gtest/gtest.h>

// Control against an agent's ports that the test serves byte by byte.

namespace
{
constexpr size_t REQUEST_SIZE = 14; // two lead bytes, a head of 8, 4 bytes of parameters
constexpr unsigned int PORT = 103;

CONTROL_ORDER Order(bool bStart = true)
{
    CONTROL_ORDER stOrder;
    std::string strError;
    const std::string strStart = bStart ? "true" : "false";
    EXPECT_TRUE(ParseOrder(R"({"ue":0,"kind":"report","name":"cells","period_ms":500,"start":)" + strStart + "}",
                           stOrder, strError));
    return stOrder;
}

/// The agent's end of the two GU channels.
class PageControlTest : public testing::Test
{
protected:
    std::future<CONTROL_RESULT> Post(const CONTROL_ORDER& stOrder)
    {
        auto pPromise = std::make_shared<std::promise<CONTROL_RESULT>>();
        m_worker.Post(stOrder, [pPromise](const CONTROL_RESULT& stResult) { pPromise->set_value(stResult); });
        return pPromise->get_future();
    }
    /// Takes a connection and its bind, and acks that with a result.
    static CUniqueFd TakeBind(const CUniqueFd& listener, const Bytes& result)
    {
        CUniqueFd fd = AcceptTcp(listener);
        EXPECT_EQ(ReceiveBytes(fd, REQUEST_SIZE), Hex("9F 9F  40 00 00 50  F0 00  04 00  67 00 00 00"));
        const Bytes ack = Join(Hex("9F 9F  40 00 00 50"), result, Hex("00 00 00 00 00 00 00 00  F0 00  00 00"));
        EXPECT_TRUE(SendAll(fd, ack));
        return fd;
    }
    void TakeBoth()
    {
        m_data = TakeBind(m_dataListener, Hex("00 00 00 00"));
        m_command = TakeBind(m_commandListener, Hex("00 00 00 00"));
    }
    /// Takes the request that starts or stops the cells' report of modem 0.
    void TakeCells(const Bytes& params)
    {
        EXPECT_EQ(ReceiveBytes(m_command, REQUEST_SIZE), Join(Hex("9F 9F  36 E5 00 00  54 00  04 00"), params));
    }
    /// Confirms it with a result of the modem.
    void Confirm(const Bytes& result)
    {
        EXPECT_TRUE(SendAll(
            m_command, Join(Hex("9F 9F  37 E5 00 00  00 00 00 00  00 00 00 00 00 00 00 00  54 00  04 00"), result)));
    }

    CUniqueFd m_dataListener = ListenTcp(LISTENPORT[CHANNEL_GU_DATA]);
    CUniqueFd m_commandListener = ListenTcp(LISTENPORT[CHANNEL_GU_CMD]);
    CUniqueFd m_data;
    CUniqueFd m_command;
    std::string m_strHolder = "192.0.2.1, client 7";
    CControlWorker m_worker{"127.0.0.1", {[] { return PORT; }, [this](enChannelType) { return m_strHolder; }}};
};
} // namespace

TEST_F(PageControlTest, StartsAndStopsAndLetsTheChannelsGo)
{
    auto start = Post(Order());
    TakeBoth();
    TakeCells(Hex("01 00 F4 01")); // on, 500 ms
    Confirm(Hex("00 00 00 00"));
    EXPECT_EQ(start.get().nStatus, 200);
    EXPECT_TRUE(m_worker.State().bBound);
    EXPECT_EQ(m_worker.State().running.size(), 1U);
    auto stop = Post(Order(false));
    TakeCells(Hex("00 00 F4 01"));
    Confirm(Hex("00 00 00 00"));
    EXPECT_EQ(stop.get().nStatus, 200);
    EXPECT_TRUE(SawClose(m_command));
    EXPECT_TRUE(SawClose(m_data));
    EXPECT_FALSE(m_worker.State().bBound);
}

TEST_F(PageControlTest, ARefusalOfTheModemIsToldAndNothingIsHeld)
{
    auto start = Post(Order());
    TakeBoth();
    TakeCells(Hex("01 00 F4 01"));
    Confirm(Hex("02 00 00 00"));
    const CONTROL_RESULT stResult = start.get();
    EXPECT_EQ(stResult.nStatus, 409);
    EXPECT_EQ(stResult.strError, "the modem refuses cells: DIAG_RC_FAIL (2)");
    EXPECT_TRUE(SawClose(m_command));
    EXPECT_TRUE(m_worker.State().running.empty());
}

TEST_F(PageControlTest, WhoHoldsAChannelIsNamed)
{
    auto first = Post(Order());
    (void)TakeBind(m_dataListener, Hex("02 00 00 00"));
    EXPECT_EQ(first.get().strError, "another client holds GU data of port 103: 192.0.2.1, client 7");
    EXPECT_EQ(m_worker.State().strError, ""); // it was the answer, and is old by now
    m_strHolder = "";
    auto second = Post(Order());
    m_data = TakeBind(m_dataListener, Hex("00 00 00 00"));
    (void)TakeBind(m_commandListener, Hex("02 00 00 00"));
    EXPECT_EQ(second.get().strError, "the agent refuses to bind Guom Cmd to port 103: no confirmed modem has it");
    EXPECT_TRUE(SawClose(m_data));
}

TEST_F(PageControlTest, AModemThatDoesNotAnswerIsWaitedForSomeSecondsOnly)
{
    auto start = Post(Order());
    TakeBoth();
    TakeCells(Hex("01 00 F4 01"));
    const CONTROL_RESULT stResult = start.get();
    EXPECT_EQ(stResult.nStatus, 504);
    EXPECT_EQ(stResult.strError, "no answer in time; has the modem told its version, and does it answer?");
    EXPECT_TRUE(SawClose(m_command));
}

TEST_F(PageControlTest, AnAgentThatIsNotThereIsToldAtOnce)
{
    m_dataListener.Reset();
    const CONTROL_RESULT stResult = Post(Order()).get();
    EXPECT_EQ(stResult.nStatus, 504);
    EXPECT_EQ(stResult.strError, "cannot connect to 127.0.0.1 port 20281: Connection refused");
}

TEST_F(PageControlTest, TheEndOfTheConnectionEndsWhatRan)
{
    auto start = Post(Order());
    TakeBoth();
    TakeCells(Hex("01 00 F4 01"));
    Confirm(Hex("00 00 00 00"));
    ASSERT_EQ(start.get().nStatus, 200);
    m_command.Reset();
    ASSERT_TRUE(WaitFor([&] { return m_worker.State().running.empty(); }));
    EXPECT_EQ(m_worker.State().strError, "the agent has closed the connection: what was started here has ended");
    EXPECT_TRUE(SawClose(m_data));
}

TEST_F(PageControlTest, TheEndStopsWhatRunsAndRefusesWhatComes)
{
    auto start = Post(Order());
    TakeBoth();
    TakeCells(Hex("01 00 F4 01"));
    Confirm(Hex("00 00 00 00"));
    ASSERT_EQ(start.get().nStatus, 200);
    m_worker.AskToStop();
    TakeCells(Hex("00 00 F4 01"));
    Confirm(Hex("00 00 00 00"));
    m_worker.Stop();
    EXPECT_TRUE(SawClose(m_command));
    EXPECT_EQ(Post(Order()).get().nStatus, 409);
}
