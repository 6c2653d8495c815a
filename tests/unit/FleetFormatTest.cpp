#include "fleet/FleetFormat.h"

#include "support/TestBytes.h"

#include <gtest/gtest.h>

namespace
{
// Head: "VEXF", version 1, kind 1, lengths 1 and 1 of the names "a" and "b", completed offset 0x0102, 2 runs. Runs: 4
// bytes at 0x10, 2 bytes at 0x20. Then the six bytes.
const Bytes BLOCKS = {'V', 'E', 'X', 'F', 1, 1, 1, 1, 2,    1, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0, 'a', 'b', 0x10, 0, 0, 0,
                      0,   0,   0,   0,   4, 0, 0, 0, 0x20, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0, 1,   2,   3,    4, 5, 6};
} // namespace

TEST(FleetFormat, AMessageHasItsBytes)
{
    const Bytes payload = {1, 2, 3, 4, 5, 6};
    const FLEET_MESSAGE stMessage{FLEET_KIND::BLOCKS, "a", {"b", 0x0102}, {{0x10, 4}, {0x20, 2}}, payload};
    EXPECT_EQ(Bytes(ByteView(EncodeMessage(stMessage))), BLOCKS);
    EXPECT_EQ(stMessage.End(), 0x22u);
}

TEST(FleetFormat, AMessageIsReadBack)
{
    FLEET_MESSAGE stMessage;
    ASSERT_TRUE(DecodeMessage(BLOCKS, stMessage));
    EXPECT_EQ(stMessage.enKind, FLEET_KIND::BLOCKS);
    EXPECT_EQ(stMessage.strSegment, "a");
    EXPECT_EQ(stMessage.stCompleted, (FLEET_POSITION{"b", 0x0102}));
    EXPECT_EQ(stMessage.vecRuns, (std::vector<FLEET_RUN>{{0x10, 4}, {0x20, 2}}));
    EXPECT_EQ(Bytes(stMessage.bytes.begin(), stMessage.bytes.end()), (Bytes{1, 2, 3, 4, 5, 6}));
}

TEST(FleetFormat, NoPartOfAMessageIsOne)
{
    FLEET_MESSAGE stMessage;
    for (size_t sz = 0; sz < BLOCKS.size(); ++sz)
        EXPECT_FALSE(DecodeMessage(ByteView(BLOCKS).first(sz), stMessage)) << sz;
}

TEST(FleetFormat, WrongMessagesAreRefused)
{
    const struct
    {
        const char* pszName;
        size_t szAt;
        unsigned char ucValue;
    } astCase[] = {
        {"other magic", 0, 'W'},
        {"later version", 4, 2},
        {"unknown kind", 5, 3},
        {"a loss with bytes", 5, 2},
        {"name longer than all", 6, 255},
        {"runs without end", 19, 0xFF},
        {"no runs", 16, 0},
        {"a name that is a path", 20, '/'},
        {"a hidden file", 20, '.'},
        {"runs that overlap", 34, 0x13},
        {"an offset without end", 29, 0xFF},
        {"more bytes than there are", 42, 3},
        {"fewer bytes than there are", 42, 1},
    };
    for (const auto& stCase : astCase) {
        Bytes bytes = BLOCKS;
        bytes[stCase.szAt] = stCase.ucValue;
        FLEET_MESSAGE stMessage;
        EXPECT_FALSE(DecodeMessage(bytes, stMessage)) << stCase.pszName;
    }
}

TEST(FleetFormat, ALossStandsForTheRestOfItsSegment)
{
    const auto bytes = EncodeMessage({FLEET_KIND::LOSS, "a", {}, {{7, 0}}, {}});
    FLEET_MESSAGE stMessage;
    ASSERT_TRUE(DecodeMessage(bytes, stMessage));
    EXPECT_EQ(stMessage.enKind, FLEET_KIND::LOSS);
    EXPECT_EQ(stMessage.vecRuns, (std::vector<FLEET_RUN>{{7, 0}}));
    EXPECT_EQ(stMessage.stCompleted, FLEET_POSITION{});
    EXPECT_EQ(stMessage.End(), UINT64_MAX);
}

TEST(FleetFormat, ALaneIsOfOneUeAndChannel)
{
    const struct
    {
        const char* pszInterface;
        FLEET_LANE stLane;
    } astCase[] = {
        {"ue3-lte-data", {"ue3", "lte-data"}}, {"ue15-at", {"ue15", "at"}},       {"ue0", {"ue0", "none"}},
        {"agent", {"agent", "none"}},          {"status", {"agent", "none"}},     {"", {"agent", "none"}},
        {"eth0", {"agent", "none"}},           {"ue3-a.b", {"agent", "none"}},    {"ue", {"agent", "none"}},
        {"ue3-", {"agent", "none"}},           {"ue12345-at", {"agent", "none"}},
    };
    for (const auto& stCase : astCase)
        EXPECT_EQ(LaneOfInterface(stCase.pszInterface), stCase.stLane) << stCase.pszInterface;
}

TEST(FleetFormat, SubjectsAreReadAsTheyAreWritten)
{
    const FLEET_SUBJECT stSubject{"lab-7", "0a1b", {"ue3", "lte-data"}};
    EXPECT_EQ(stSubject.Text(), "vex.lab-7.0a1b.ue3.lte-data");
    EXPECT_EQ(ParseSubject("vex.lab-7.0a1b.ue3.lte-data"), stSubject);
    for (const char* const pszWrong : {"", "vex", "vex.a.b.c", "vex.a.b.c.d.e", "vey.a.b.c.d", "vex..b.c.d",
                                       "vex.a.b.c.", "vex.a.b.>.d", "vex.a b.b.c.d"})
        EXPECT_FALSE(ParseSubject(pszWrong)) << pszWrong;
}

TEST(FleetFormat, OtherSubjectsAndIds)
{
    EXPECT_EQ(RequestSubject("lab7"), "vexreq.lab7");
    EXPECT_EQ(StateSubject("lab7"), "$KV.vex-benches.lab7");
    EXPECT_EQ(LastMessageSubject("vex.a.b.agent.none"), "$JS.API.DIRECT.GET.VEX.vex.a.b.agent.none");
    EXPECT_EQ(InboxPrefix("lab7"), "_INBOX.lab7");
    EXPECT_EQ(MessageId({"lab7", "e1", {"ue3", "at"}}, "vex_1", 48), "e1-ue3-at-vex_1-48");
    EXPECT_EQ(MessageId({"lab7", "e1", {"agent", "none"}}, "vex_1", 48, true), "e1-agent-none-vex_1-48-loss");
}

TEST(FleetFormat, NamesAreTokens)
{
    EXPECT_TRUE(IsBenchName("Lab_7-a"));
    EXPECT_TRUE(IsBenchName(std::string(64, 'a')));
    for (const std::string& strWrong : {std::string(), std::string(65, 'a'), std::string("a.b"), std::string("a b"),
                                        std::string("*"), std::string(">"), std::string("\xC3\xA4")})
        EXPECT_FALSE(IsBenchName(strWrong)) << strWrong;
    EXPECT_TRUE(IsSegmentName("vex_20261122T115029.202Z_0000001474"));
    EXPECT_TRUE(IsSegmentName(std::string(200, 'a')));
    for (const std::string& strWrong : {std::string(), std::string(201, 'a'), std::string("../a"), std::string("a/b")})
        EXPECT_FALSE(IsSegmentName(strWrong)) << strWrong;
}
