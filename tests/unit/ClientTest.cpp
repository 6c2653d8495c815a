#include "agent/Client.h"

#include "support/AgentFixture.h"
#include "support/LogCapture.h"
#include "support/WaitFor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{
using Frames = std::vector<Bytes>;

// A request without parameters, and one with three bytes of them.
const Bytes QUERY = Hex("9F 9F 60 00 00 50 F0 00 00 00");
const Bytes QUERY_FRAME = Hex("60 00 00 50 F0 00 00 00");
const Bytes REQ = Hex("9F 9F 17 53 01 10 10 00 03 00 AA BB CC");
const Bytes REQ_FRAME = Hex("17 53 01 10 10 00 03 00 AA BB CC");

class ClientTest : public testing::Test
{
protected:
    /// The frames that come out when the chunks are given one after the other.
    Frames Take(std::initializer_list<Bytes> chunks)
    {
        Frames frames;
        for (const Bytes& chunk : chunks)
            for (ByteView rest = chunk; !rest.empty();) {
                const CClient::TAKEN_FRAME stTaken = m_pClient->GetDiagReqPacket(rest);
                if (!stTaken.frame.empty())
                    frames.push_back(Bytes(stTaken.frame));
                rest = rest.subspan(stTaken.szTaken);
            }
        return frames;
    }

    CAgentFixture m_fix;
    std::shared_ptr<CClient> m_pClient = std::make_shared<CClient>(-1, CHANNEL_LTE_DIAG, &m_fix.Agent().Bindings());
};

Bytes RequestOf(size_t szPayload)
{
    return Join(Hex("9F 9F 01 00 00 10 10 00"), Le(static_cast<uint16_t>(szPayload)), Fill(szPayload, 0x5A));
}
} // namespace

TEST_F(ClientTest, FramesAreFoundInTheStream)
{
    const struct
    {
        const char* pszName;
        Bytes stream;
        Frames frames;
    } astCase[] = {
        {"no payload: complete at the tenth byte", Hex("9F 9F 60 00 00 50 F0 00 00 00"), {QUERY_FRAME}},
        {"a payload", REQ, {REQ_FRAME}},
        {"bytes before the first pair are ignored", Join(Hex("41 00 FF"), QUERY), {QUERY_FRAME}},
        {"a lead byte and another one start nothing", Join(Hex("9F 41 9F 00"), QUERY), {QUERY_FRAME}},
        {"two in a row", Join(QUERY, REQ), {QUERY_FRAME, REQ_FRAME}},
        {"junk between two", Join(QUERY, Hex("00 9F 13"), REQ), {QUERY_FRAME, REQ_FRAME}},
        {"a pair of flags behind each, as some clients send it",
         Join(QUERY, Hex("9F 9F"), REQ, Hex("9F 9F"), QUERY),
         {QUERY_FRAME, REQ_FRAME, QUERY_FRAME}},
        {"the trailing pair alone serves as the next start", Join(QUERY, REQ_FRAME), {QUERY_FRAME}},
        {"a request that begins with a lead byte: it and the second one are the pair",
         Hex("9F 9F 9F 60 00 00 50 F0 00 00 00"),
         {QUERY_FRAME}},
        {"a pair that ends at the seventh byte starts anew", Join(Hex("9F 9F 01 02 03"), QUERY), {QUERY_FRAME}},
        {"a pair that ends at the eighth byte is data",
         Hex("9F 9F 01 02 03 04 9F 9F 00 00"),
         {Hex("01 02 03 04 9F 9F 00 00")}},
        {"a pair inside the payload is data",
         Hex("9F 9F 01 00 00 10 10 00 04 00 9F 9F 9F 9F"),
         {Hex("01 00 00 10 10 00 04 00 9F 9F 9F 9F")}},
        {"nothing but lead bytes", Fill(100, 0x9F), {}},
    };
    for (const auto& stCase : astCase) {
        m_pClient = std::make_shared<CClient>(-1, CHANNEL_LTE_DIAG, &m_fix.Agent().Bindings());
        EXPECT_EQ(Take({stCase.stream}), stCase.frames) << stCase.pszName;
    }
}

TEST_F(ClientTest, ARequestThatBeginsWithALeadByteIsLost)
{
    // Its first byte completes a new pair, so one byte is missing at its end.
    EXPECT_THAT(Take({Hex("9F 9F 9F 01 00 50 F0 00 00 00")}), IsEmpty());
}

TEST_F(ClientTest, FramesAreTheSameHoweverTheStreamIsCut)
{
    const Bytes stream = Join(REQ, QUERY, Hex("9F 9F"), REQ);
    for (size_t szCut = 0; szCut <= stream.size(); ++szCut)
        EXPECT_EQ(Take({Bytes(Slice(ByteView(stream), 0, szCut)), Bytes(Slice(ByteView(stream), szCut))}),
                  (Frames{REQ_FRAME, QUERY_FRAME, REQ_FRAME}))
            << "cut at " << szCut;
}

TEST_F(ClientTest, TheResultCountsTheBytesUpToTheEndOfTheFrame)
{
    const CClient::TAKEN_FRAME stFirst = m_pClient->GetDiagReqPacket(Join(Hex("00"), QUERY, REQ));
    EXPECT_EQ(stFirst.szTaken, 11u);
    EXPECT_EQ(stFirst.frame.size(), 8u);
    const CClient::TAKEN_FRAME stPart = m_pClient->GetDiagReqPacket(Hex("9F 9F 60"));
    EXPECT_EQ(stPart.szTaken, 3u);
    EXPECT_TRUE(stPart.frame.empty());
}

TEST_F(ClientTest, TheLongestFrameHas10229BytesOfPayload)
{
    CLogCapture log;
    const Bytes longest = RequestOf(10229);
    EXPECT_THAT(Take({longest}), ElementsAre(Bytes(Slice(ByteView(longest), 2))));
    EXPECT_EQ(log.Count("[WAN] : Socket Request Data Too Big!"), 0);
}

TEST_F(ClientTest, AFrameOf10230BytesOfPayloadIsDroppedAndTheSearchGoesOn)
{
    CLogCapture log;
    EXPECT_THAT(Take({RequestOf(10230), QUERY}), ElementsAre(QUERY_FRAME));
    EXPECT_EQ(log.Count("[WAN] : Socket Request Data Too Big!"), 1);
}

TEST_F(ClientTest, ATypeThatIsNoChannelHasNoProcessor)
{
    CClient client(-1, static_cast<enChannelType>(7), &m_fix.Agent().Bindings());
    client.OnClientData(QUERY);
    Bytes packet = Hex("01 02 03");
    client.OnSerialData(packet);
    client.SendAck(1, 2, 3, {}, 0);
    client.SetBindUePort(5);
    EXPECT_EQ(client.GetClientType(), 7);
}

TEST_F(ClientTest, TheEndOfAClientClosesItsSocketAndIsLogged)
{
    CLogCapture log;
    int anPair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, anPair), 0);
    const CUniqueFd far(anPair[1]);
    {
        CClient client(anPair[0], CHANNEL_AT, &m_fix.Agent().Bindings());
        client.SetBindUePort(17);
        EXPECT_EQ(client.GetClientSocket(), anPair[0]);
    }
    char cByte = 0;
    EXPECT_EQ(recv(far.Get(), &cByte, 1, MSG_DONTWAIT), 0) << "closed";
    EXPECT_TRUE(log.Saw("[INF] : Delete Client(com 17) AT\n"));
}

// The AT channel: framed commands and plain text side by side.

class AtClientTest : public testing::Test
{
protected:
    AtClientTest()
    {
        m_fix.AttachUe(3, 42);
        m_fix.Confirm(3);
        m_pClient = std::make_unique<CTestClient>(m_fix.Agent(), CHANNEL_AT);
    }
    /// Another client in the place of the one there was, with nothing held.
    void NewClient()
    {
        m_fix.Detach(3, CHANNEL_AT);
        m_fix.Attach(3, CHANNEL_AT, 42);
        m_fix.Confirm(3);
        m_pClient = std::make_unique<CTestClient>(m_fix.Agent(), CHANNEL_AT);
    }
    std::vector<Bytes> Lines()
    {
        std::vector<Bytes> lines;
        for (const QueuedMsg& stMsg : m_fix.ToUe()) {
            EXPECT_EQ(stMsg.ulUeIdx, 3u);
            EXPECT_EQ(stMsg.enChannel, CHANNEL_AT);
            lines.push_back(stMsg.data);
        }
        return lines;
    }

    CAgentFixture m_fix;
    std::unique_ptr<CTestClient> m_pClient;
};

namespace
{
const Bytes TEXT = Hex("41 54 0D");                                             // AT
const Bytes FRAMED = Hex("9F 9F 21 00 00 00 F0 00 07 00 41 54 2B 43 53 51 0D"); // id 33, AT+CSQ
const Bytes FRAMED_TEXT = Hex("41 54 2B 43 53 51 0D");
} // namespace

TEST_F(AtClientTest, RawTextReachesTheUe)
{
    m_pClient->Send(TEXT);
    EXPECT_THAT(Lines(), ElementsAre(TEXT));
}

TEST_F(AtClientTest, AChunkOfTwoBytesIsNoText)
{
    m_pClient->Send(Hex("41 0D"));
    EXPECT_THAT(Lines(), IsEmpty());
    m_pClient->Send(TEXT);
    EXPECT_THAT(Lines(), ElementsAre(TEXT)) << "nothing was kept of the two bytes";
}

TEST_F(AtClientTest, AFramedCommandIsSentOnceAndNotReadAsText)
{
    m_pClient->Send(FRAMED);
    EXPECT_THAT(Lines(), ElementsAre(FRAMED_TEXT));
    m_pClient->Send(TEXT);
    EXPECT_THAT(Lines(), ElementsAre(TEXT)) << "the frame left nothing in the line buffer";
}

TEST_F(AtClientTest, AFramedCommandMayBeCutAnywhereBetweenTexts)
{
    for (size_t szCut = 1; szCut < FRAMED.size(); ++szCut) {
        m_pClient->Send(TEXT);
        m_pClient->Send(Slice(ByteView(FRAMED), 0, szCut));
        m_pClient->Send(Slice(ByteView(FRAMED), szCut));
        m_pClient->Send(TEXT);
        EXPECT_THAT(Lines(), ElementsAre(TEXT, FRAMED_TEXT, TEXT)) << "cut at " << szCut;
    }
}

TEST_F(AtClientTest, TextAndFramesMayShareAChunk)
{
    m_pClient->Send(Join(TEXT, FRAMED, TEXT, TEXT, FRAMED));
    EXPECT_THAT(Lines(), ElementsAre(TEXT, FRAMED_TEXT, TEXT, TEXT, FRAMED_TEXT));
}

TEST_F(AtClientTest, ALeadPairStartsAFrameOnlyInFrontOfACommandOfTheChannel)
{
    const struct
    {
        const char* pszName;
        std::vector<Bytes> reads;
        std::vector<Bytes> lines;
    } astCase[] = {
        {"an emoji, F0 9F 9F A2, in a message", // AT+CMGS="..."
         {Hex("41 54 2B 43 4D 47 53 3D 22 F0 9F 9F A2 22 0D"), TEXT},
         {Hex("41 54 2B 43 4D 47 53 3D 22 F0 9F 9F A2 22 0D"), TEXT}},
        {"a pair behind a frame", {Join(FRAMED, Hex("9F 9F")), TEXT}, {FRAMED_TEXT, Join(Hex("9F 9F"), TEXT)}},
        {"a pair on its own in a longer read", {Hex("41 54 9F 9F 0D")}, {Hex("41 54 9F 9F 0D")}},
        {"an id that differs in its last byte",
         {Join(Hex("9F 9F 40 41 42 43"), TEXT)},
         {Join(Hex("9F 9F 40 41 42 43"), TEXT)}},
        {"half a start, and a command in the next read", {Hex("9F 9F 21 00"), TEXT}, {Join(Hex("9F 9F 21"), TEXT)}},
        {"half a start at the end of one read, more of it in the next",
         {Hex("41 9F 9F"), Hex("21 42 0D")},
         {Hex("41 9F 9F 21 42 0D")}},
        {"three lead bytes: the first is text", {Join(Hex("9F"), FRAMED, TEXT)}, {FRAMED_TEXT, Join(Hex("9F"), TEXT)}},
        {"a letter that ends in a lead byte, C3 9F, in front of a frame",
         {Join(Hex("C3 9F"), FRAMED), TEXT},
         {FRAMED_TEXT, Join(Hex("C3 9F"), TEXT)}},
        {"a start that turns into another one",
         {Join(Hex("9F 9F 21"), FRAMED), TEXT},
         {FRAMED_TEXT, Join(Hex("9F 9F 21"), TEXT)}},
        {"the other commands' starts in full", {Hex("9F 9F 50 00 00 50 F0 00 00 00"), TEXT}, {}}, // unbinds
    };
    for (const auto& stCase : astCase) {
        NewClient();
        for (const Bytes& read : stCase.reads)
            m_pClient->Send(read);
        EXPECT_EQ(Lines(), stCase.lines) << stCase.pszName;
    }
}

TEST_F(AtClientTest, TheThreeByteMinimumIsThatOfARead)
{
    const struct
    {
        const char* pszName;
        std::vector<Bytes> reads;
        std::vector<Bytes> lines;
    } astCase[] = {
        {"single bytes beside a frame", {Join(Hex("41"), FRAMED, Hex("0D"))}, {FRAMED_TEXT, Hex("41 0D")}},
        {"a lone 21, which is an id cut short",
         {Join(FRAMED, Hex("21")), Hex("41 42 0D")},
         {FRAMED_TEXT, Hex("21 41 42 0D")}},
        {"a held byte of a short read", {Hex("9F"), TEXT}, {TEXT}},
        {"a held pair of a short read", {Hex("9F 9F"), TEXT}, {TEXT}},
        {"of a long and a short read", {Hex("41 54 9F"), Hex("9F"), Hex("42 43 0D")}, {Hex("41 54 9F 42 43 0D")}},
        {"a short read ends what a long one left",
         {Hex("41 54 9F"), Hex("42"), Hex("43 44 0D")},
         {Hex("41 54 9F 43 44 0D")}},
    };
    for (const auto& stCase : astCase) {
        for (const Bytes& read : stCase.reads)
            m_pClient->Send(read);
        EXPECT_EQ(Lines(), stCase.lines) << stCase.pszName;
    }
}

TEST_F(AtClientTest, FramesAndTextAreTheSameHoweverTheStreamIsCut)
{
    const Bytes text = Hex("41 54 22 F0 9F 9F A2 22 0D");
    const Bytes stream = Join(text, FRAMED, Hex("C3 9F"), FRAMED, Hex("9F 9F 9F"), text, FRAMED, TEXT);
    const std::vector<Bytes> lines = {text,        FRAMED_TEXT, FRAMED_TEXT, Join(Hex("C3 9F 9F 9F 9F"), text),
                                      FRAMED_TEXT, TEXT};
    m_pClient->Send(stream);
    ASSERT_EQ(Lines(), lines);
    constexpr size_t LONG_READ = 3;
    for (size_t szCut = 1; szCut < stream.size(); ++szCut) {
        NewClient();
        m_pClient->Send(Slice(ByteView(stream), 0, szCut));
        m_pClient->Send(Slice(ByteView(stream), szCut));
        const std::vector<Bytes> sent = Lines();
        EXPECT_EQ(std::ranges::count(sent, FRAMED_TEXT), 3) << "cut at " << szCut;
        if (szCut >= LONG_READ && stream.size() - szCut >= LONG_READ) {
            EXPECT_EQ(sent, lines) << "cut at " << szCut;
        }
    }
}

TEST_F(AtClientTest, FramesMayComeByteByByte)
{
    const Bytes stream = Join(FRAMED, Hex("9F"), FRAMED, Hex("9F 9F 21 00"), FRAMED, Hex("41"), FRAMED);
    for (const unsigned char ucByte : stream)
        m_pClient->Send(Bytes{ucByte});
    EXPECT_THAT(Lines(), ElementsAre(FRAMED_TEXT, FRAMED_TEXT, FRAMED_TEXT, FRAMED_TEXT));
    m_pClient->Send(TEXT);
    EXPECT_THAT(Lines(), ElementsAre(TEXT)) << "of reads that short nothing is text";
}

TEST_F(AtClientTest, AStartedFrameThatIsTooLongIsDroppedAndWhatFollowsIsTextAgain)
{
    CLogCapture log;
    // 10240 bytes with the head: 9F 9F, id 33, type, 0xFFFF bytes announced, 10230 of them.
    m_pClient->Send(Join(Hex("9F 9F 21 00 00 00 F0 00 FF FF"), Fill(10230, 0x5A), TEXT, FRAMED));
    EXPECT_EQ(log.Count("[WAN] : Socket Request Data Too Big!"), 1);
    EXPECT_THAT(Lines(), ElementsAre(TEXT, FRAMED_TEXT));
}

TEST_F(AtClientTest, OtherChannelsTakeNoText)
{
    CTestClient diag = m_fix.AddClient(CHANNEL_LTE_DIAG);
    diag.Send(TEXT);
    EXPECT_THAT(Lines(), IsEmpty());
}

// Sending.

class SendTest : public testing::Test
{
protected:
    bool Send(size_t szLen, unsigned char ucByte = 0x11)
    {
        return m_client.Get()->SendData2Client({}, Fill(szLen, ucByte));
    }

    CAgentFixture m_fix;
    CTestClient m_client = m_fix.AddClient(CHANNEL_LTE_DATA);
};

TEST_F(SendTest, ALargePacketArrivesWhole)
{
    EXPECT_TRUE(Send(1'000'000));
    Bytes received;
    for (Bytes part = m_client.Pending(); !part.empty(); part = m_client.Pending()) {
        received = Join(received, part);
        m_client.Get()->LookAtOutput();
    }
    EXPECT_EQ(received, Fill(1'000'000, 0x11));
}

TEST_F(SendTest, AClientThatStopsReadingLosesPacketsAndKeepsItsConnection)
{
    CLogCapture log;
    CClient& client = *m_client.Get();
    CWakeUp wake;
    client.SetWakeUp(wake);
    wake.FallAsleep();
    while (!client.HasOutput())
        EXPECT_TRUE(Send(4096)); // true whatever happens
    pollfd stWake{wake.Fd(), POLLIN, 0};
    EXPECT_EQ(poll(&stWake, 1, 0), 1) << "whoever looks after the sockets is told";
    EXPECT_TRUE(client.Output().bWaiting);
    EXPECT_GT(client.Output().nextAt, std::chrono::steady_clock::now() - std::chrono::milliseconds(20));
    EXPECT_TRUE(WaitFor([&] {
        client.LookAtOutput();
        return client.Output().nextAt == CClientOut::TIME::max() || !client.HasOutput();
    })) << "its patience ends";
    const auto stalled = std::chrono::steady_clock::now();
    for (int i = 0; i < 100; ++i)
        EXPECT_TRUE(Send(4096));
    EXPECT_LT(std::chrono::steady_clock::now() - stalled, std::chrono::milliseconds(1000)) << "nobody waits for it";
    EXPECT_GE(log.Count("[WAN] : Client SendDataToClient select TimeOut, channel:Lte Data, errno :"), 10);

    while (!m_client.Pending().empty())
        client.LookAtOutput();
    EXPECT_FALSE(m_client.IsClosed());
    EXPECT_TRUE(Send(3, 0x22));
    EXPECT_EQ(m_client.Pending(), Hex("22 22 22"));
}

TEST_F(SendTest, LossesThatWereOnlyCountedAreToldAtTheEndOfTheClient)
{
    CLogCapture log;
    auto pClient = m_client.Get()->Hold();
    shutdown(m_client.Socket(), SHUT_RDWR);
    for (int i = 0; i < 13; ++i)
        Send(5);
    EXPECT_EQ(log.Count("[ERR] : Client SendDataToClient send Fail, channel:Lte Data, lenth/total: 5/5, errno :" +
                        std::to_string(EPIPE)),
              10);
    EXPECT_TRUE(pClient->HasOutput()) << "the line with the count is due";
    EXPECT_EQ(log.Count("more frames lost"), 0);
    m_fix.Agent().Clients().RemoveLostClient(pClient.get());
    pClient.reset();
    EXPECT_TRUE(log.Saw("TimeOut, channel:Lte Data, 3 more frames lost\n"));
}

TEST_F(SendTest, PacketsThatAreSentTogetherWaitForTheEndOrUntilTheyAreMany)
{
    {
        const CClient::CSendTogether together(*m_client.Get());
        EXPECT_TRUE(Send(5000, 0x11));
        EXPECT_TRUE(Send(5000, 0x22));
        EXPECT_TRUE(Send(6384, 0x33)); // 16384 bytes
        EXPECT_THAT(m_client.Pending(), IsEmpty());
        EXPECT_TRUE(Send(1, 0x44));
        EXPECT_EQ(m_client.Pending(), Join(Fill(5000, 0x11), Fill(5000, 0x22), Fill(6384, 0x33)));
        EXPECT_TRUE(Send(16385, 0x55)); // too large to be held at all
        EXPECT_EQ(m_client.Pending(), Join(Hex("44"), Fill(16385, 0x55)));
        EXPECT_TRUE(Send(2, 0x77));
        EXPECT_THAT(m_client.Pending(), IsEmpty());
    }
    EXPECT_EQ(m_client.Pending(), Hex("77 77"));
    EXPECT_TRUE(Send(1, 0x66));
    EXPECT_EQ(m_client.Pending(), Hex("66")) << "on its own again";
}

TEST_F(SendTest, PacketsOfTwoThreadsNeverMix)
{
    constexpr size_t PACKET = 3000, COUNT = 200;
    std::atomic<int> nRunning = 2;
    const auto sender = [&](unsigned char ucByte) {
        for (size_t i = 0; i < COUNT; ++i) {
            Send(PACKET, ucByte);
            (void)WaitFor([&] { return !m_client.Get()->HasOutput(); });
        }
        --nRunning;
    };
    std::thread first(sender, 0xAA), second(sender, 0xBB);
    Bytes received;
    const auto Take = [&] {
        const Bytes part = m_client.Pending();
        received = Join(received, part);
        m_client.Get()->LookAtOutput();
        return !part.empty();
    };
    while (nRunning > 0)
        (void)Take();
    first.join();
    second.join();
    while (Take() || m_client.Get()->HasOutput()) {
    }
    // All of them, unless this thread was kept from reading for 20 ms.
    ASSERT_EQ(received.size() % PACKET, 0u);
    EXPECT_GT(received.size(), COUNT * PACKET);
    for (size_t i = 0; i < received.size(); i += PACKET)
        EXPECT_EQ(Bytes(Slice(ByteView(received), i, PACKET)), Fill(PACKET, received[i])) << "packet at " << i;
}

TEST_F(SendTest, WhatWaitsForAClientCountsForTheLineThatItComesFrom)
{
    CLineLoad load;
    CClient& client = *m_client.Get();
    client.SetSource(&load);
    Send(CLineLoad::ROOM - 2000);
    ASSERT_TRUE(client.HasOutput());
    EXPECT_TRUE(load.HasRoom());
    Send(2000);
    EXPECT_FALSE(load.HasRoom());
    while (!m_client.Pending().empty())
        client.LookAtOutput();
    EXPECT_TRUE(load.HasRoom()) << "it reads again";

    Send(CLineLoad::ROOM);
    EXPECT_FALSE(load.HasRoom());
    EXPECT_TRUE(WaitFor([&] {
        client.LookAtOutput();
        return load.HasRoom();
    })) << "given up: it holds its line back no longer";
    client.SetSource(nullptr);
}

// Clients that are faster than their UE.

class HeldBackTest : public testing::Test
{
protected:
    HeldBackTest()
    {
        m_fix.AttachUe(2, 30);
        m_fix.Confirm(2);
        m_pGu = std::make_unique<CTestClient>(m_fix.Agent(), CHANNEL_GU_CMD);
    }
    /// A request that goes to the UE in one segment.
    static Bytes OtaRequest(unsigned char ucParam)
    {
        return Join(Hex("9F 9F"), Le(0xA005u), Le(uint16_t{PKT_TYPE_GU_OTA}), Le(uint16_t{4}), Bytes{ucParam, 0, 0, 0});
    }
    /// The next record for the UEs, which holds its charge as long as it lives.
    static MSG_UE NextToUe()
    {
        MSG_UE stMsg;
        EXPECT_TRUE(CMsgBuf::Instance()->UeQueue().get(stMsg));
        return stMsg;
    }
    /// The parameter of the request in a frame: behind the frame's head of 9 bytes at offset 28.
    static int ParamOf(const MSG_UE& stMsg) { return stMsg.packet.Bytes()[9 + 28]; }
    static CLineLoad& Load(enChannelType enChannel) { return *CMsgBuf::Instance()->LoadToUe(2, enChannel); }

    CAgentFixture m_fix{std::string(TEST_LAYOUT) + "TIME_SPACE=40\n"};
    std::unique_ptr<CTestClient> m_pGu;
};

TEST_F(HeldBackTest, TheNextRequestIsHandledWhenThePauseOfTheLastOneIsOver)
{
    CClient& client = *m_pGu->Get();
    m_pGu->Send(Join(OtaRequest(1), OtaRequest(2), OtaRequest(3), Slice(ByteView(OtaRequest(4)), 0, 9)));
    EXPECT_TRUE(client.HasKept());
    EXPECT_TRUE(client.IsHeldBack());
    EXPECT_EQ(Load(CHANNEL_GU_CMD).PacedPosted(), 1U);
    for (int i = 1; i <= 3; ++i) {
        MSG_UE stMsg = NextToUe();
        EXPECT_EQ(ParamOf(stMsg), i);
        EXPECT_EQ(stMsg.pause, std::chrono::milliseconds(40));
        EXPECT_TRUE(client.MustWait()) << i;
        stMsg = {};
        EXPECT_FALSE(client.MustWait()) << i;
        EXPECT_EQ(client.HasKept(), true);
        EXPECT_EQ(Load(CHANNEL_GU_CMD).PacedPosted(), static_cast<uint64_t>(i)) << "nothing is handled by itself";
        client.OnKeptData();
        if (i == 3)
            break;
    }
    EXPECT_FALSE(client.HasKept()) << "the start of the fourth is in the frame being assembled";
    m_pGu->Send(Slice(ByteView(OtaRequest(4)), 9));
    EXPECT_EQ(ParamOf(NextToUe()), 4);
}

TEST_F(HeldBackTest, EachSegmentOfARequestCounts)
{
    // 0xB010 goes to the UE as three requests.
    m_pGu->Send(Join(Hex("9F 9F"), Le(0xB010u), Le(uint16_t{PKT_TYPE_GU_TRANS}), Le(uint16_t{4}), Hex("01 02 64 00")));
    EXPECT_EQ(Load(CHANNEL_GU_CMD).PacedPosted(), 3U);
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(m_pGu->Get()->MustWait()) << i;
        (void)NextToUe();
    }
    EXPECT_FALSE(m_pGu->Get()->MustWait());
}

TEST_F(HeldBackTest, TheEndOfAPauseWakesWhoeverWaits)
{
    CWakeUp& room = CMsgBuf::Instance()->RoomWake();
    m_pGu->Send(OtaRequest(1));
    room.FallAsleep();
    EXPECT_TRUE(m_pGu->Get()->MustWait());
    pollfd stRoom{room.Fd(), POLLIN, 0};
    EXPECT_EQ(poll(&stRoom, 1, 0), 0);
    (void)NextToUe();
    EXPECT_EQ(poll(&stRoom, 1, 0), 1);
    room.Rise();
}

TEST_F(HeldBackTest, ALineWithoutRoomHoldsItsClientsBackAndNoOthers)
{
    CTestClient at(m_fix.Agent(), CHANNEL_AT), diag(m_fix.Agent(), CHANNEL_LTE_DIAG);
    CTestClient unbound(m_fix.Agent(), CHANNEL_AT);
    CLineCharge full(Load(CHANNEL_AT), CLineLoad::ROOM);
    EXPECT_TRUE(at.Get()->MustWait());
    EXPECT_TRUE(at.Get()->IsHeldBack());
    for (const CTestClient* pOther : {&diag, &unbound, m_pGu.get()})
        EXPECT_FALSE(pOther->Get()->MustWait());
    full.Release();
    EXPECT_FALSE(at.Get()->MustWait());
    EXPECT_FALSE(at.Get()->IsHeldBack());
}

TEST_F(HeldBackTest, AnUnbindReleasesTheClient)
{
    m_pGu->Send(OtaRequest(1));
    EXPECT_TRUE(m_pGu->Get()->MustWait());
    {
        const xtl::MutexGuard guard(m_fix.Agent().Bindings().Mutex());
        m_fix.Agent().Bindings().UnBindUE(m_pGu->Get());
    }
    EXPECT_FALSE(m_pGu->Get()->MustWait());
    ASSERT_TRUE(m_fix.Bind(*m_pGu, 30));
    EXPECT_FALSE(m_pGu->Get()->MustWait()) << "what the earlier binding left is nothing to the new one";
}
