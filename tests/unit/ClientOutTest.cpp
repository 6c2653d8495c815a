#include "agent/ClientOut.h"

#include "common/UniqueFd.h"
#include "support/LogCapture.h"
#include "support/TestBytes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <sys/socket.h>

using namespace std::chrono_literals;
using testing::IsEmpty;

namespace
{
const std::string TIME_OUT =
    "[WAN] : Client SendDataToClient select TimeOut, channel:AT, errno :" + std::to_string(EAGAIN);
constexpr auto NEVER = CClientOut::TIME::max();

/// A client at the other end of a socket that takes little, and a clock that stands still.
class ClientOutTest : public testing::Test
{
protected:
    ClientOutTest()
    {
        const int nSmall = 4096;
        setsockopt(m_near.Get(), SOL_SOCKET, SO_SNDBUF, &nSmall, sizeof(nSmall));
        m_out.SetClock([this] { return m_now; });
    }
    static std::array<int, 2> Pair()
    {
        std::array<int, 2> anPair{-1, -1};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, anPair.data()), 0);
        return anPair;
    }
    void Add(size_t szLen, unsigned char ucByte) { EXPECT_TRUE(m_out.Add({}, Fill(szLen, ucByte))); }
    /// What the client finds by now, 8 KiB at most.
    Bytes Read()
    {
        Bytes read(8192);
        const ssize_t lRead = recv(m_far.Get(), read.data(), read.size(), 0);
        read.resize(static_cast<size_t>(std::max<ssize_t>(lRead, 0)));
        return read;
    }
    /// Everything, as a client that reads on and a loop that looks on.
    Bytes ReadAll()
    {
        Bytes received;
        for (Bytes part = Read(); !part.empty(); part = Read()) {
            received = Join(received, part);
            m_out.Look();
        }
        return received;
    }

    std::array<int, 2> m_anPair = Pair();
    CUniqueFd m_near{m_anPair[0]};
    CUniqueFd m_far{m_anPair[1]};
    CClientOut::TIME m_now{1h};
    CClientOut m_out{m_anPair[0], "AT"};
};
} // namespace

TEST_F(ClientOutTest, WhatTheSocketTakesGoesAtOnce)
{
    Add(3, 0x11);
    Add(2, 0x22);
    EXPECT_FALSE(m_out.IsWaiting());
    EXPECT_EQ(m_out.NextLook(), NEVER);
    EXPECT_EQ(Read(), Hex("11 11 11 22 22"));
}

TEST_F(ClientOutTest, WhatItDoesntTakeWaitsInOrder)
{
    const CLogCapture log;
    Add(100'000, 0x11);
    EXPECT_TRUE(m_out.IsWaiting());
    EXPECT_EQ(m_out.NextLook(), m_now + 20ms);
    Add(1, 0x22);
    Add(2, 0x33);
    EXPECT_EQ(ReadAll(), Join(Fill(100'000, 0x11), Hex("22 33 33")));
    EXPECT_FALSE(m_out.IsWaiting());
    EXPECT_EQ(m_out.NextLook(), NEVER);
    EXPECT_EQ(log.Count("SendDataToClient"), 0);
}

TEST_F(ClientOutTest, After20MsAllIsLostButTheRestOfTheOneThatWasSentInPart)
{
    const CLogCapture log;
    Add(100'000, 0x11);
    Add(5, 0x22);
    m_now += 19ms;
    m_out.Look();
    Add(6, 0x33);
    EXPECT_EQ(log.Count(TIME_OUT), 0);
    m_now += 1ms;
    m_out.Look();
    EXPECT_EQ(log.Count(TIME_OUT), 2) << "one for each packet";
    EXPECT_TRUE(m_out.IsWaiting());
    EXPECT_EQ(m_out.NextLook(), NEVER) << "the rest may stay for good";
    Add(7, 0x44);
    EXPECT_EQ(log.Count(TIME_OUT), 3) << "lost at once";
    EXPECT_EQ(ReadAll(), Fill(100'000, 0x11)) << "whole";
    Add(1, 0x55);
    EXPECT_EQ(Read(), Hex("55"));
    EXPECT_EQ(log.Count(TIME_OUT), 3);
}

TEST_F(ClientOutTest, ThePacketThatComesTooLateLearnsItToo)
{
    const CLogCapture log;
    Add(100'000, 0x11);
    m_now += 20ms; // and nobody looks
    Add(5, 0x22);
    EXPECT_EQ(log.Count(TIME_OUT), 1);
    EXPECT_EQ(ReadAll(), Fill(100'000, 0x11));
}

TEST_F(ClientOutTest, HeadwayGivesAnother20Ms)
{
    const CLogCapture log;
    Add(100'000, 0x11);
    Add(5, 0x22);
    for (int i = 0; i < 4; ++i) {
        m_now += 19ms;
        ASSERT_FALSE(Read().empty());
        m_out.Look();
        EXPECT_EQ(m_out.NextLook(), m_now + 20ms);
    }
    EXPECT_EQ(log.Count(TIME_OUT), 0);
}

TEST_F(ClientOutTest, AStalledClientThatTakesBytesHas20MsAgain)
{
    const CLogCapture log;
    Add(100'000, 0x11);
    m_now += 20ms;
    m_out.Look();
    ASSERT_EQ(m_out.NextLook(), NEVER);
    ASSERT_FALSE(Read().empty());
    m_now += 1s;
    Add(5, 0x22);
    EXPECT_EQ(m_out.NextLook(), m_now + 20ms);
    EXPECT_EQ(log.Count(TIME_OUT), 0);
}

TEST_F(ClientOutTest, WithoutATornPacketAStalledClientHasNothingToWaitFor)
{
    const CLogCapture log;
    while (send(m_near.Get(), "x", 1, 0) == 1) { // now it takes nothing
    }
    Add(5, 0x11);
    EXPECT_TRUE(m_out.IsWaiting());
    m_now += 20ms;
    m_out.Look();
    EXPECT_FALSE(m_out.IsWaiting());
    EXPECT_EQ(m_out.NextLook(), NEVER);
    Add(5, 0x22);
    EXPECT_FALSE(m_out.IsWaiting()) << "lost at once";
    EXPECT_EQ(log.Count(TIME_OUT), 2);
    (void)ReadAll();
    Add(2, 0x33);
    EXPECT_EQ(Read(), Hex("33 33"));
}

TEST_F(ClientOutTest, WhatWaitsIsBounded)
{
    const CLogCapture log;
    Add(CClientOut::LIMIT + 1, 0x11); // larger than all the room, but nothing else is there
    Add(1, 0x22);
    EXPECT_EQ(log.Count(TIME_OUT), 1);
    EXPECT_EQ(ReadAll(), Fill(CClientOut::LIMIT + 1, 0x11));

    while (send(m_near.Get(), "x", 1, 0) == 1) {
    }
    Add(CClientOut::LIMIT - 2 * CClientOut::PACKET_COST - 10, 0x33);
    Add(10, 0x44); // fits
    Add(1, 0x55);  // doesn't
    EXPECT_EQ(log.Count(TIME_OUT), 2);
    const Bytes received = ReadAll();
    EXPECT_EQ(Bytes(received.end() - 11, received.end()), Join(Hex("33"), Fill(10, 0x44)));
}

TEST_F(ClientOutTest, TenLinesASecondAndThenTheCount)
{
    const std::string strCount = "[WAN] : Client SendDataToClient select TimeOut, channel:AT, 5 more frames lost";
    const CLogCapture log;
    while (send(m_near.Get(), "x", 1, 0) == 1) {
    }
    Add(1, 0x11);
    m_now += 20ms;
    m_out.Look();
    const auto first = m_now;
    EXPECT_EQ(log.Count(TIME_OUT), 1);
    for (int i = 0; i < 14; ++i)
        Add(1, 0x22);
    EXPECT_EQ(log.Count(TIME_OUT), 10);
    EXPECT_EQ(m_out.NextLook(), first + 1s);
    m_now = first + 999ms;
    m_out.Look();
    EXPECT_EQ(log.Count("more frames lost"), 0);
    m_now = first + 1s;
    m_out.Look();
    EXPECT_EQ(log.Count(strCount), 1);
    EXPECT_EQ(m_out.NextLook(), NEVER);

    for (int i = 0; i < 15; ++i) // a new second
        Add(1, 0x33);
    EXPECT_EQ(log.Count(TIME_OUT), 20);
    m_out.TellCount();
    EXPECT_EQ(log.Count(strCount), 2);
    m_out.TellCount();
    EXPECT_EQ(log.Count("more frames lost"), 2) << "told";
}

TEST_F(ClientOutTest, ABrokenConnectionLosesEachPacketWithAnError)
{
    const std::string strError = "[ERR] : Client SendDataToClient send Fail, channel:AT, lenth/total: ";
    const CLogCapture log;
    Add(100'000, 0x11);
    Add(7, 0x22);
    Bytes received;
    while (received.size() < 50'000) {
        received = Join(received, Read());
        m_out.Look();
    }
    m_far.Reset();
    m_out.Look();
    EXPECT_FALSE(m_out.IsWaiting());
    EXPECT_EQ(log.Count(strError + "7/7, errno :" + std::to_string(EPIPE)), 1);
    EXPECT_EQ(log.Count("/100000, errno :" + std::to_string(EPIPE)), 1);
    Add(5, 0x33);
    EXPECT_EQ(log.Count(strError + "5/5, errno :" + std::to_string(EPIPE)), 1);
    EXPECT_EQ(log.Count(strError), 3);
    for (int i = 0; i < 20; ++i)
        Add(1, 0x44);
    EXPECT_EQ(log.Count(strError), 10) << "as many as of the warnings";
}

TEST_F(ClientOutTest, WithoutASocketPacketsVanish)
{
    const CLogCapture log;
    CClientOut out(-1, "AT");
    EXPECT_TRUE(out.Add(Hex("01"), Hex("02")));
    EXPECT_FALSE(out.IsWaiting());
    EXPECT_EQ(log.Count("SendDataToClient"), 0);
}

TEST_F(ClientOutTest, NoPacketIsEverTorn)
{
    // Packets of number, length and as many bytes, to a client that reads now and then, at times that are too far
    // apart.
    std::mt19937 random(20261122);
    const auto upTo = [&](unsigned int ulMax) { return random() % ulMax + 1; };
    constexpr uint32_t COUNT = 6000;
    constexpr size_t HEAD = 6;
    Bytes received;
    for (uint32_t ulNumber = 0; ulNumber < COUNT; ++ulNumber) {
        const auto usLen = static_cast<uint16_t>(upTo(3000));
        if (ulNumber % 8 == 0)
            m_out.SetHolding(ulNumber % 3 == 0);
        EXPECT_TRUE(m_out.Add(Join(Le(ulNumber), Le(usLen)), Fill(usLen, static_cast<unsigned char>(ulNumber))));
        m_now += std::chrono::milliseconds(upTo(9));
        if (upTo(8) == 1)
            received = Join(received, Read());
        if (upTo(2) == 1)
            m_out.Look();
    }
    m_out.SetHolding(false);
    received = Join(received, ReadAll());

    uint32_t ulNext = 0;
    uint32_t ulCame = 0;
    for (ByteView rest = received; !rest.empty(); ++ulCame) {
        const auto ulNumber = LoadLe<uint32_t>(rest, 0);
        const auto usLen = LoadLe<uint16_t>(rest, 4);
        ASSERT_GE(ulNumber, ulNext) << "in order";
        ASSERT_EQ(Bytes(Slice(rest, HEAD, usLen)), Fill(usLen, static_cast<unsigned char>(ulNumber))) << ulNumber;
        ulNext = ulNumber + 1;
        rest = rest.subspan(HEAD + usLen);
    }
    EXPECT_GT(ulCame, COUNT / 10);
    EXPECT_LT(ulCame, COUNT) << "some were lost";
}
