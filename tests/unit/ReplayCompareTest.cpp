#include "client/ReplayCompare.h"
#include "capture/PcapngReader.h"
#include "client/ReplayScript.h"
#include "common/Record.h"
#include "support/TestBytes.h"
#include "tap/TapEvents.h"

#include <gtest/gtest.h>

// The client side of a replay: what the clients of a capture did, and what of their answers is another.

namespace
{
using PACKETS = std::vector<REPLAY_PACKET>;
using DIFF = REPLAY_DIFFERENCE::KIND;
using ACT = REPLAY_ACT::KIND;

/// A packet of the agent: id, result, time stamp, type, length, payload.
Bytes Packet(uint32_t ulId, const Bytes& payload, uint64_t ullStamp = 5, uint32_t ulRc = 0)
{
    return Join(Le(ulId), Le(ulRc), Le(ullStamp), Le<uint16_t>(0x10), Le(static_cast<uint16_t>(payload.size())),
                payload);
}
const Bytes A = Packet(0x10014003, Hex("01 02 03 04"));
const Bytes B = Packet(0x10015503, Hex("05"));
const Bytes C = Packet(0x30100001, Hex("06"));

struct FOUND
{
    DIFF enKind;
    size_t szExpected;
    size_t szGot;
    bool operator==(const FOUND&) const = default;
};
std::vector<FOUND> Compare(const PACKETS& expected, const PACKETS& got, enChannelType enChannel = CHANNEL_LTE_DIAG)
{
    std::vector<FOUND> found;
    for (const REPLAY_DIFFERENCE& stDifference : ComparePackets(enChannel, expected, got))
        found.push_back({stDifference.enKind, stDifference.szExpected, stDifference.szGot});
    return found;
}
} // namespace

TEST(ReplayCompare, EqualPacketsAreNoDifference)
{
    EXPECT_EQ(Compare({}, {}), (std::vector<FOUND>{}));
    EXPECT_EQ(Compare({A, B, C}, {A, B, C}), (std::vector<FOUND>{}));
    EXPECT_EQ(Compare({A}, {A, B, C}), (std::vector<FOUND>{})); // more behind the last one
}

TEST(ReplayCompare, EachChangedByteIsFoundButThoseOfTheTimeStamp)
{
    for (size_t i = 0; i < A.size(); ++i) {
        Bytes changed = A;
        changed[i] ^= 0x40;
        const auto differences = ComparePackets(CHANNEL_LTE_DIAG, {A, B}, {changed, B});
        if (i >= 8 && i < 16) {
            EXPECT_TRUE(differences.empty()) << i;
            continue;
        }
        ASSERT_EQ(differences.size(), 1u) << i;
        EXPECT_EQ(differences[0].enKind, DIFF::CHANGED) << i;
        EXPECT_EQ(differences[0].szByte, i);
    }
}

TEST(ReplayCompare, OnTheGuDataChannelTheResultIsASerialNumber)
{
    const Bytes first = Packet(0x0154E502, Hex("01"), 5, 7);
    const Bytes later = Packet(0x0154E502, Hex("01"), 6, 8);
    EXPECT_EQ(Compare({first}, {later}, CHANNEL_GU_DATA), (std::vector<FOUND>{}));
    EXPECT_EQ(Compare({first}, {later}, CHANNEL_GU_CMD), (std::vector<FOUND>{{DIFF::CHANGED, 0, 0}}));
}

TEST(ReplayCompare, NamesOfDevicesInTheChannelTableAreAside)
{
    Bytes table(2 * 44, 0); // rows of 44 bytes: a name of 32, port, attached, bound
    Bytes renamed = table;
    renamed[0] = renamed[31] = renamed[44] = 'x';
    EXPECT_EQ(Compare({Packet(0x50000060, table)}, {Packet(0x50000060, renamed)}), (std::vector<FOUND>{}));
    Bytes otherPort = table;
    otherPort[44 + 32] = 1;
    EXPECT_EQ(Compare({Packet(0x50000060, table)}, {Packet(0x50000060, otherPort)}).size(), 1u);
}

TEST(ReplayCompare, TheThreadIsFoundAgainBehindADifference)
{
    EXPECT_EQ(Compare({A, B, C}, {A, C}), (std::vector<FOUND>{{DIFF::MISSING, 1, 1}}));
    EXPECT_EQ(Compare({A, C}, {A, B, C}), (std::vector<FOUND>{{DIFF::EXTRA, 1, 1}}));
    EXPECT_EQ(Compare({A, B, C}, {A}), (std::vector<FOUND>{{DIFF::MISSING, 1, 1}, {DIFF::MISSING, 2, 1}}));
    EXPECT_EQ(Compare({A, B, A, C}, {A, A, C}), (std::vector<FOUND>{{DIFF::MISSING, 1, 1}}));
}

TEST(ReplayCompare, ADifferenceIsToldWithItsBytes)
{
    Bytes changed = A;
    changed[22] = 0xFF;
    const PACKETS expected = {A};
    const PACKETS got = {changed};
    EXPECT_EQ(DifferenceText(ComparePackets(CHANNEL_LTE_DIAG, expected, got).at(0), expected, got),
              "packet 1: 0x10014003, 24 bytes, differs from byte 22 on\n"
              "  expected 03 40 01 10 00 00 00 00 05 00 00 00 00 00 00 00 10 00 04 00 01 02 03 04\n"
              "  got      03 40 01 10 00 00 00 00 05 00 00 00 00 00 00 00 10 00 04 00 01 02 FF 04\n");
    EXPECT_EQ(DifferenceText(ComparePackets(CHANNEL_LTE_DIAG, expected, {}).at(0), expected, {}),
              "packet 1: missing: 0x10014003, 24 bytes\n"
              "  expected 03 40 01 10 00 00 00 00 05 00 00 00 00 00 00 00 10 00 04 00 01 02 03 04\n");
}

namespace
{
/// Records of client 3 on the LTE diag channel, bound to port 201 of UE 1; times in ms.
class CScriptBuilder
{
public:
    void Add(TAP_KIND enKind, uint64_t ullMs, ByteView bytes, uint8_t ucFlags = 0)
    {
        m_script.Add(
            {{enKind, 1, CHANNEL_LTE_DIAG, ucFlags, 201, 3, 0, 1'000'000'000 + ullMs * 1'000'000}, bytes, 0, ""});
    }
    void Client(bool bConnected, uint64_t ullMs)
    {
        TAP_CLIENT_EVENT stEvent;
        stEvent.ucConnected = bConnected ? 1 : 0;
        Add(TAP_KIND::PORT_EVENT, ullMs, EncodeRecord(stEvent));
    }
    const CReplayScript& Script() const { return m_script; }

private:
    CReplayScript m_script;
};
} // namespace

TEST(ReplayScript, AClientsActsFollowEachOther)
{
    CScriptBuilder builder;
    builder.Client(true, 10);
    builder.Add(TAP_KIND::CLIENT_TO_AGENT, 20, Hex("40 00 00 50 F0 00 04 00 C9 00 00 00"));
    builder.Add(TAP_KIND::AGENT_TO_CLIENT, 21, B);
    builder.Add(TAP_KIND::CLIENT_TO_AGENT, 30, Hex("41 54 0D"), TAP_TEXT);
    builder.Client(false, 40);
    ASSERT_EQ(builder.Script().Clients().size(), 1u);
    const REPLAY_CLIENT& stClient = builder.Script().Clients()[0];
    EXPECT_EQ(stClient.ulNumber, 3u);
    EXPECT_FALSE(stClient.bindPort); // it binds itself
    EXPECT_EQ(stClient.answers, PACKETS{B});
    const struct
    {
        ACT enKind;
        uint64_t ullMs; // since the first record
        Bytes bytes;
    } expected[] = {{ACT::CONNECT, 0, {}},
                    {ACT::SEND, 10, Hex("9F 9F 40 00 00 50 F0 00 04 00 C9 00 00 00")},
                    {ACT::AWAIT, 11, {}},
                    {ACT::SEND, 20, Hex("41 54 0D")}, // bare text has no lead bytes
                    {ACT::CLOSE, 30, {}}};
    const auto& acts = builder.Script().Acts();
    ASSERT_EQ(acts.size(), std::size(expected));
    for (size_t i = 0; i < acts.size(); ++i) {
        EXPECT_EQ(acts[i].enKind, expected[i].enKind) << i;
        EXPECT_EQ(acts[i].ullTime, expected[i].ullMs * 1'000'000) << i;
        EXPECT_EQ(Bytes(ByteView(acts[i].bytes)), expected[i].bytes) << i;
    }
}

TEST(ReplayScript, AClientThatWasThereBeforeIsConnectedAndBoundFirst)
{
    CScriptBuilder builder;
    builder.Add(TAP_KIND::PORT_EVENT, 0, EncodeRecord(TAP_CHANNEL_EVENT{}), TAP_REPLAYED); // of the picture
    builder.Add(TAP_KIND::AGENT_TO_CLIENT, 5, C);
    ASSERT_EQ(builder.Script().Clients().size(), 1u);
    EXPECT_EQ(builder.Script().Clients()[0].bindPort, 201u);
    ASSERT_EQ(builder.Script().Acts().size(), 2u);
    EXPECT_EQ(builder.Script().Acts()[0].enKind, ACT::CONNECT);
    EXPECT_EQ(builder.Script().Acts()[1].enKind, ACT::AWAIT);
}
