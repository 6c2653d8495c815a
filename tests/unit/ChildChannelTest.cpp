#include "ue/ChildChannel.h"

#include "common/Debug.h"
#include "support/HdlcReference.h"
#include "support/LogCapture.h"
#include "support/Queues.h"
#include "support/TestBytes.h"
#include "ue/Serial.h"
#include "ue/TcpChannel.h"
#include "ue/UE.h"

#include <gtest/gtest.h>
#include <random>

namespace
{
using Packets = std::vector<Bytes>;

const Bytes PACKET_A = Hex("A0 A1 A2 A3 A4 A5 A6 A7 A8 A9 AA AB AC AD AE AF B0 B1");
const Bytes FRAME_A = Hex("7E A0 A1 A2 A3 A4 A5 A6 A7 A8 A9 AA AB AC AD AE AF B0 B1 8D 68 7E");
const Bytes PACKET_B = Hex("7E 7D 7E 7D 7E 7D 7E 7D 00 01 02 03 04 05 06 07 08 09 0A 0B");
const Bytes FRAME_B = FrameOf(PACKET_B);
const Bytes PACKET_C = Fill(18, 0xC0);
const Bytes FRAME_C = Hex("7E C0 C0 C0 C0 C0 C0 C0 C0 C0 C0 C0 C0 C0 C0 C0 C0 C0 C0 2D 9F 7E");

/// The packets on the agent's queue.
Packets Taken()
{
    Packets packets;
    for (const QueuedMsg& stMsg : DrainAgentQueue())
        packets.push_back(stMsg.data);
    return packets;
}

/// A link that nothing comes in on by itself.
class CQuietLink : public TCPChannel
{
public:
    explicit CQuietLink(enSerialType role = SERIAL_TYPE_DATA)
        : TCPChannel("", 0, false, static_cast<enChannelType>(role))
    {
    }
};

/// What one read brought, to a link or a port.
template <class Line> void Give(Line& line, ByteView data)
{
    CAgentMsgRun run;
    line.Channel().OnSerialData(data, run);
}

/// Feeds the pieces, one read each, to a fresh link.
template <class... Pieces> Packets Feed(const Pieces&... pieces)
{
    CQuietLink channel;
    (Give(channel, pieces), ...);
    return Taken();
}

ByteView Without(const Bytes& frame, size_t szFront, size_t szBack)
{
    return ByteView(frame).subspan(szFront, frame.size() - szFront - szBack);
}
} // namespace

TEST(ChildChannel, PacketsAreTheSameHoweverTheStreamIsCut)
{
    const Bytes stream = Join(Hex("00 55 7D"), FRAME_A, FRAME_B, Hex("11 22"), FRAME_C);
    for (size_t cut = 0; cut <= stream.size(); ++cut)
        EXPECT_EQ(Feed(ByteView(stream).first(cut), ByteView(stream).subspan(cut)),
                  (Packets{PACKET_A, PACKET_B, PACKET_C}))
            << "cut at " << cut;
}

TEST(ChildChannel, AStreamOfSingleBytesGivesTheSamePackets)
{
    CQuietLink channel;
    for (const unsigned char ucByte : Join(FRAME_A, FRAME_B))
        Give(channel, {&ucByte, 1});
    EXPECT_EQ(Taken(), (Packets{PACKET_A, PACKET_B}));
}

TEST(ChildChannel, HuntsForTheStart)
{
    const struct
    {
        const char* pszName;
        Bytes stream;
        Packets packets;
    } c_aCase[] = {
        {"data before the first flag", Join(Hex("01 02 03"), FRAME_A), {PACKET_A}},
        {"a run of flags", Join(Hex("7E 7E 7E 7E"), FRAME_A), {PACKET_A}},
        {"an even run of flags", Join(Hex("7E 7E 7E 7E 7E"), FRAME_A), {PACKET_A}},
        {"a runt of one byte", Join(Hex("7E 01 7E"), FRAME_A), {PACKET_A}},
        {"a runt of two bytes: the flag as fourth byte is a new start", Join(Hex("7E 01 02"), FRAME_A), {PACKET_A}},
        {"three bytes between flags are a frame, and the hunt goes on behind it",
         Join(Hex("7E 01 02 03 7E"), FRAME_A),
         {PACKET_A}},
        {"flags only", Hex("7E 7E 7E 7E"), {}},
        {"a shared flag costs every second frame",
         Join(FRAME_A, Without(FRAME_B, 1, 0), Without(FRAME_C, 1, 0)),
         {PACKET_A, PACKET_C}},
    };
    for (const auto& stCase : c_aCase)
        EXPECT_EQ(Feed(stCase.stream), stCase.packets) << stCase.pszName;
}

TEST(ChildChannel, ALostClosingFlagCostsOnlyTheFrameBehind)
{
    // The first frame ends at the start flag of the second, whose body is then dropped in the hunt; its closing
    // flag and the start flag of the third collapse.
    const CLogCapture log;
    EXPECT_EQ(Feed(Without(FRAME_A, 0, 1), FRAME_B, FRAME_C), (Packets{PACKET_A, PACKET_C}));
    EXPECT_EQ(log.Count("HDLC"), 0);
}

TEST(ChildChannel, ALostStartFlagCostsOnlyItsFrame)
{
    EXPECT_EQ(Feed(FRAME_A, Without(FRAME_B, 1, 0), FRAME_C, FRAME_A), (Packets{PACKET_A, PACKET_C, PACKET_A}));
}

TEST(ChildChannel, ABadFrameIsDroppedAndTheNextOneCounts)
{
    const CLogCapture log;
    Bytes bad = FRAME_B;
    bad[12] ^= 1;
    EXPECT_EQ(Feed(FRAME_A, bad, FRAME_C), (Packets{PACKET_A, PACKET_C}));
    EXPECT_EQ(log.Count("[INF] : HDLC Decode Error!182"), 1);
}

TEST(ChildChannel, FramesOf5To21RawBytesAreDecodeErrorsAndSmallerOnesAreNot)
{
    for (size_t szBody = 0; szBody <= 19; ++szBody) {
        const CLogCapture log;
        EXPECT_EQ(Feed(Join(Hex("7E"), Fill(szBody, 1), Hex("7E"))), Packets{});
        EXPECT_EQ(log.Count("HDLC Decode Error!182"), szBody + HDLC_FLAG_PAIR >= 5 ? 1 : 0) << szBody;
    }
}

TEST(ChildChannel, NothingComesOfNothing)
{
    const CLogCapture log;
    EXPECT_EQ(Feed(ByteView()), Packets{});
    CQuietLink channel;
    {
        CAgentMsgRun run;
        channel.Channel().SendPacketToAgent({}, run);
    }
    EXPECT_EQ(Taken(), Packets{});
}

namespace
{
/// A frame whose closing flag is byte number szRawLen of the collection: a payload of ordinary bytes with its FCS.
Bytes FrameOfRawLen(size_t szRawLen)
{
    for (unsigned char ucByte = 0;; ++ucByte) {
        Bytes frame = FrameOf(Fill(szRawLen - 4, ucByte));
        if (frame.size() == szRawLen) // no FCS byte was stuffed
            return frame;
    }
}
} // namespace

TEST(ChildChannel, AFrameThatFillsTheBufferToTheLastByteIsDecoded)
{
    const CLogCapture log;
    const Bytes frame = FrameOfRawLen(131072);
    const Packets expected = {Bytes(ByteView(frame).subspan(1, 131072 - 4))};
    EXPECT_EQ(Feed(frame), expected);
    EXPECT_EQ(Feed(ByteView(frame).first(70000), ByteView(frame).subspan(70000)), expected);
    EXPECT_EQ(Feed(ByteView(frame).first(131071), ByteView(frame).subspan(131071)), expected);
    EXPECT_EQ(log.Count("HDLC"), 0);
}

TEST(ChildChannel, ACollectionWithoutAFlagBy131072BytesIsDroppedAndTheHuntGoesOn)
{
    const Bytes tooBig = Join(Hex("7E"), Fill(131071, 1));
    const CLogCapture log;
    EXPECT_EQ(Feed(tooBig, FRAME_A), Packets{PACKET_A});
    EXPECT_EQ(log.Count("[INF] : HDLC Data Too Big"), 1);
    EXPECT_EQ(Feed(Join(tooBig, FRAME_A)), Packets{PACKET_A}) << "in one read";
    EXPECT_EQ(log.Count("HDLC Data Too Big"), 2);
    // The flag of a frame that is one byte too long comes as the start of the next.
    EXPECT_EQ(Feed(FrameOfRawLen(131073), Without(FRAME_A, 1, 0)), Packets{PACKET_A});
    EXPECT_EQ(log.Count("HDLC Data Too Big"), 3);
    EXPECT_EQ(log.Count("Decode Error"), 0);
}

TEST(ChildChannel, EqualsAPlainWalkByteByByte)
{
    std::mt19937 random(20280);
    const Bytes special = Hex("7E 7E 7E 7D 5D 5E");
    for (int iRound = 0; iRound < 300; ++iRound) {
        CQuietLink channel;
        CReferenceChannel reference;
        const CLogCapture log(DEBUGLEVEL_INFO);
        for (int iRead = 0; iRead < 30; ++iRead) {
            Bytes read;
            const size_t szLen = random() % 200;
            while (read.size() < szLen) {
                if (random() % 12 == 0)
                    read = Join(read, random() % 2 ? FRAME_A : FRAME_B);
                else
                    read.push_back(random() % 8 == 0 ? special[random() % special.size()]
                                                     : static_cast<unsigned char>(random()));
            }
            read.resize(szLen);
            Give(channel, read);
            reference.Feed(read);
        }
        ASSERT_EQ(Taken(), reference.packets) << "round " << iRound;
        if (iRound % 50 == 0) {
            ASSERT_EQ(log.Count("HDLC Decode Error!182"), reference.iErrors) << "round " << iRound;
        }
    }
}

TEST(ChildChannel, BigReadsEqualAPlainWalkByteByByte)
{
    std::mt19937 random(20281);
    CQuietLink channel;
    CReferenceChannel reference;
    const CLogCapture log(DEBUGLEVEL_INFO);
    for (int iRead = 0; iRead < 40; ++iRead) {
        const Bytes read = Join(Fill(random() % 200000, 'x'), random() % 2 ? FRAME_A : Hex("7E"));
        Give(channel, read);
        reference.Feed(read);
    }
    ASSERT_GT(reference.iTooBig, 0);
    EXPECT_EQ(Taken(), reference.packets);
    EXPECT_EQ(log.Count("HDLC Data Too Big"), reference.iTooBig);
    EXPECT_EQ(log.Count("HDLC Decode Error!182"), reference.iErrors);
}

TEST(ChildChannel, TextPacketsAreTheLinesOfOneRead)
{
    const struct
    {
        const char* pszName;
        std::string strRead;
        std::vector<std::string> vecPacket;
    } c_aCase[] = {
        {"a line without its leading CR LF", "OK\r\n", {"\r\nOK\r\n"}},
        {"a whole reply", "\r\nOK\r\n", {"\r\nOK\r\n"}},
        {"two lines", "+CSQ: 20\r\nOK\r\n", {"\r\n+CSQ: 20\r\n", "\r\nOK\r\n"}},
        {"two replies", "\r\n+CSQ: 20\r\n\r\nOK\r\n", {"\r\n+CSQ: 20\r\n", "\r\nOK\r\n"}},
        {"a line that doesn't end in this read is gone", "OK", {}},
        {"the rest behind a line is gone", "OK\r\nERR", {"\r\nOK\r\n"}},
        {"one byte in front of CR LF", "A\r\n", {"\r\nA\r\n"}},
        {"CR LF alone", "\r\n", {}},
        {"three bytes that begin with CR LF", "\r\nA", {}},
        {"two bytes", "AB", {}},
        {"CR alone ends no line", "A\rB\r\n", {"\r\nA\rB\r\n"}},
        {"LF alone ends no line", "A\nB\r\n", {"\r\nA\nB\r\n"}},
        {"CR CR LF", "A\r\r\n", {"\r\nA\r\r\n"}},
        {"a CR at the end is no pair", "ABC\r", {}},
        {"a flag is text", "~~~~~~\r\n", {"\r\n~~~~~~\r\n"}},
    };
    CQuietLink channel(SERIAL_TYPE_AT);
    for (const auto& stCase : c_aCase) {
        Packets expected;
        for (const std::string& strLine : stCase.vecPacket)
            expected.push_back(Bytes(AsBytes(strLine)));
        Give(channel, AsBytes(stCase.strRead));
        EXPECT_EQ(Taken(), expected) << stCase.pszName;
    }
}

TEST(ChildChannel, ALineInTwoReadsIsLost)
{
    CQuietLink channel(SERIAL_TYPE_AT);
    Give(channel, AsBytes("+CGSN: 12"));
    Give(channel, AsBytes("34\r\n"));
    EXPECT_EQ(Taken(), Packets{Bytes(AsBytes("\r\n34\r\n"))});
}

TEST(ChildChannel, APacketGoesOutUnderItsUeAndChannel)
{
    CUE ue;
    ue.SetUEIdx(7);
    CSerial& serial = *ue.GetSerial(SERIAL_TYPE_DATA);
    Give(serial, FRAME_A);
    CQuietLink link(SERIAL_TYPE_DIAG);
    Give(link, FRAME_A);

    const auto msgs = DrainAgentQueue();
    ASSERT_EQ(msgs.size(), 2u);
    EXPECT_EQ(msgs[0].ulMsgType, AGENT_MSG_DATA);
    EXPECT_EQ(msgs[0].ulUeIdx, 7u);
    EXPECT_EQ(msgs[0].enChannel, CHANNEL_LTE_DATA);
    EXPECT_EQ(msgs[0].data, PACKET_A);
    EXPECT_EQ(msgs[1].ulMsgType, AGENT_MSG_DATA);
    EXPECT_EQ(msgs[1].ulUeIdx, 15u);
    EXPECT_EQ(msgs[1].enChannel, CHANNEL_LTE_DIAG);
}

TEST(ChildChannel, BothGuChannelsGetEveryFrame)
{
    CUE ue;
    CSerial& serial = *ue.GetSerial(SERIAL_TYPE_GU);
    serial.SetPortNum(12);
    const CLogCapture log;
    Give(serial, Join(FRAME_A, Hex("7E 01 02 03 04 05 7E"), ByteView(FRAME_C).first(9)));
    Give(serial, ByteView(FRAME_C).subspan(9));

    const auto msgs = DrainAgentQueue();
    ASSERT_EQ(msgs.size(), 4u);
    EXPECT_EQ(msgs[0].enChannel, CHANNEL_GU_CMD);
    EXPECT_EQ(msgs[1].enChannel, CHANNEL_GU_DATA);
    EXPECT_EQ(msgs[2].enChannel, CHANNEL_GU_CMD);
    EXPECT_EQ(msgs[3].enChannel, CHANNEL_GU_DATA);
    EXPECT_EQ(msgs[1].data, PACKET_A);
    EXPECT_EQ(msgs[2].data, PACKET_C);
    EXPECT_EQ(log.Count("[ERR] : HDLC Decode Error!com:12, type:2"), 2);
}

TEST(ChildChannel, APortsChannelNamesThePortInItsFaults)
{
    CUE ue;
    CSerial& serial = *ue.GetSerial(SERIAL_TYPE_DIAG);
    serial.SetPortNum(31);
    const CLogCapture log;
    Give(serial, Join(Hex("7E"), Fill(131071, 1)));
    EXPECT_EQ(log.Count("[WAN] : HDLC Data Too Big!com:31, type:0"), 1);
    EXPECT_FALSE(serial.Channel().WriteChannel(CPacket::Copy({})));
    EXPECT_EQ(log.Count("[ERR] : HDLC Encode Error!com:31, type:0"), 1);
}
