#include "capture/PcapngReader.h"
#include "capture/PcapngWriter.h"
#include "fleet/FleetTime.h"
#include "fleet/SegmentStore.h"
#include "fleet/SpanWriter.h"
#include "support/TestBytes.h"
#include "support/VexProcess.h"

#include <filesystem>
#include <gtest/gtest.h>

// What vex-fleet makes of the bytes that it gets: segments from pieces in any order, and the packets of a time span.

namespace
{
constexpr uint64_t SECOND = 1'000'000'000;
/// 2023-11-14 22:13:20 UTC
constexpr uint64_t START = 1'700'000'000 * SECOND;
constexpr const char* SEGMENT = "vex_20231114T221320.000Z_0000000001";

TEST(FleetTime, SegmentsTellWhenTheyBegan)
{
    EXPECT_EQ(SegmentTime(SEGMENT), START);
    EXPECT_EQ(SegmentTime("my_bench_20231114T221320.007Z_0000000001"), START + 7'000'000);
    for (const char* pszOther : {"", "vex", "_1", "vex_20231114_1", "vex_20231114T221320.Z_1", "vex_x_1"})
        EXPECT_EQ(SegmentTime(pszOther), std::nullopt) << pszOther;
}

TEST(FleetTime, UsersSayTimesInSeveralForms)
{
    const struct
    {
        const char* pszText;
        std::optional<uint64_t> time;
    } c_astTime[] = {
        {"2023-11-14T22:13:20Z", START},
        {"2023-11-14T22:13:20", START},
        {"2023-11-14T22:13:20.25Z", START + SECOND / 4},
        {"2023-11-14T22:13Z", START - 20 * SECOND},
        {"2023-11-14", START - (22 * 3600 + 13 * 60 + 20) * SECOND},
        {"now", START + 100 * SECOND},
        {"-100s", START},
        {"-2m", START - 20 * SECOND},
        {"-99999999999d", std::nullopt},
        {"-100M", std::nullopt},
        {"2023-11-14T22:13:20+01:00", std::nullopt},
        {"yesterday", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& stTime : c_astTime)
        EXPECT_EQ(ParseTime(stTime.pszText, START + 100 * SECOND), stTime.time) << stTime.pszText;
}

TEST(FleetTime, AgesAreRough)
{
    const struct
    {
        uint64_t ullSeconds;
        const char* pszText;
    } c_astAge[] = {{0, "now"},        {1, "1 s"},    {119, "119 s"},   {120, "2 min"},
                    {7199, "119 min"}, {7200, "2 h"}, {172799, "47 h"}, {172800, "2 d"}};
    for (const auto& stAge : c_astAge)
        EXPECT_EQ(AgeText(START, START + stAge.ullSeconds * SECOND), stAge.pszText);
    EXPECT_EQ(AgeText(START + SECOND, START), "now") << "a bench's clock may go before ours";
    EXPECT_EQ(TimeText(START), "2023-11-14T22:13:20Z");
}

TEST(FleetCoverage, RunsGrowTogether)
{
    CCoverage coverage;
    EXPECT_EQ(coverage.Prefix(), 0u);
    EXPECT_EQ(coverage.Add(10, 5), 0u); // 10-15
    EXPECT_EQ(coverage.Prefix(), 0u);
    EXPECT_EQ(coverage.Behind(), 5u);
    EXPECT_EQ(coverage.Add(0, 4), 0u); // 0-4, 10-15
    EXPECT_EQ(coverage.Prefix(), 4u);
    EXPECT_EQ(coverage.Behind(), 5u);
    EXPECT_EQ(coverage.Add(4, 6), 0u); // 0-15
    EXPECT_EQ(coverage.Prefix(), 15u);
    EXPECT_EQ(coverage.Behind(), 0u);
}

TEST(FleetCoverage, WhatComesTwiceIsCounted)
{
    CCoverage coverage;
    (void)coverage.Add(0, 10);
    (void)coverage.Add(20, 10);
    EXPECT_EQ(coverage.Add(0, 10), 10u);
    EXPECT_EQ(coverage.Add(5, 20), 10u); // 5-10 and 20-25
    EXPECT_EQ(coverage.Prefix(), 30u);
    EXPECT_EQ(coverage.Add(30, 0), 0u);
    EXPECT_EQ(coverage.Prefix(), 30u);
    EXPECT_EQ(coverage.Add(29, 2), 1u);
}

class FleetSegments : public testing::Test
{
protected:
    std::string Path(const std::string& strName) const { return m_dir.Path() + "/" + strName; }

    CTempDir m_dir;
    std::string m_strError;
};

TEST_F(FleetSegments, PiecesInAnyOrderMakeTheFile)
{
    {
        CSegmentStore store(Path("store"));
        ASSERT_TRUE(store.Open(m_strError)) << m_strError;
        ASSERT_TRUE(store.Put("b", 3, AsBytes("def"), m_strError));
        ASSERT_TRUE(store.Put("a", 0, AsBytes("xy"), m_strError));
        ASSERT_TRUE(store.Put("b", 0, AsBytes("abc"), m_strError));
        ASSERT_TRUE(store.Put("b", 2, AsBytes("cd"), m_strError));
        EXPECT_EQ(store.Segments(), (std::vector<std::string>{"a", "b"}));
        EXPECT_EQ(store.Coverage("b").Prefix(), 6u);
        EXPECT_EQ(m_dir.Read("store/b"), "abcdef");
        EXPECT_EQ(store.Twice(), 2u);
    }
    EXPECT_FALSE(std::filesystem::exists(Path("store"))) << "it is there for the time being";
}

TEST_F(FleetSegments, NamesFromTheNetworkLeadNowhereElse)
{
    CSegmentStore store(Path("store"));
    ASSERT_TRUE(store.Open(m_strError)) << m_strError;
    for (const std::string& strName : {std::string(""), std::string(".."), std::string("../x"), std::string("a/b"),
                                       std::string(".x"), std::string("a\0b", 3)})
        EXPECT_FALSE(store.Put(strName, 0, AsBytes("abc"), m_strError)) << strName;
    EXPECT_FALSE(store.Put("a", UINT64_MAX - 1, AsBytes("abc"), m_strError));
    EXPECT_TRUE(store.Segments().empty());
}

TEST_F(FleetSegments, TwoFetchesNeverShareAFolder)
{
    CSegmentStore store(Path("store"));
    ASSERT_TRUE(store.Open(m_strError)) << m_strError;
    m_dir.Write("elsewhere/a", "");
    EXPECT_FALSE(CSegmentStore(Path("none/store")).Open(m_strError));
    EXPECT_NE(m_strError.find("none/store"), std::string::npos) << m_strError;
}

/// A segment with a picture of one record and then one record a second from ullStart on, of UE 3's data channel.
Bytes Segment(uint64_t ullStart, unsigned int ulRecords)
{
    Bytes out;
    CPcapngWriter writer(out);
    writer.Begin({"lab7", 1, 2, START}, "test");
    writer.Record({.enKind = TAP_KIND::CONFIGURATION, .ucFlags = TAP_REPLAYED, .ullTime = 1}, AsBytes("config"));
    for (unsigned int i = 0; i < ulRecords; ++i)
        writer.Record({.enKind = TAP_KIND::UE_TO_AGENT,
                       .ucUe = 3,
                       .ucChannel = 1,
                       .ullNumber = i,
                       .ullTime = ullStart + i * SECOND},
                      AsBytes("12345678"));
    return out;
}

/// Numbers of the records of a file, as "0 1 2"; a replayed one is "r".
std::string NumbersIn(const std::string& strPath)
{
    std::string strNumbers;
    std::string strError;
    const auto enEnd = ReadCaptureFile(
        strPath,
        [&](const CAPTURED_RECORD& st) {
            strNumbers += strNumbers.empty() ? "" : " ";
            strNumbers += st.stRecord.ucFlags & TAP_REPLAYED ? "r" : std::to_string(st.stRecord.ullNumber);
        },
        strError);
    EXPECT_EQ(enEnd, CPcapngReader::RESULT::END) << strError;
    return strNumbers;
}

class FleetSpan : public FleetSegments
{
protected:
    /// Writes the span's packets of the segment files a and b, which begin at these times.
    std::string Written(const TIME_SPAN& stSpan)
    {
        m_dir.Write("a", Text(Segment(START, 10)));
        m_dir.Write("b", Text(Segment(START + 10 * SECOND, 10)));
        CSpanWriter writer(Path("out.pcapng"), stSpan);
        EXPECT_TRUE(writer.Open(m_strError)) << m_strError;
        EXPECT_TRUE(writer.Add(Path("a"), Segment(START, 10).size(), START, m_strError)) << m_strError;
        EXPECT_TRUE(writer.Add(Path("b"), Segment(START, 10).size(), START + 10 * SECOND, m_strError)) << m_strError;
        EXPECT_TRUE(writer.Finish(m_strError)) << m_strError;
        m_ullPackets = writer.Packets();
        m_ullSegments = writer.Segments();
        EXPECT_EQ(writer.Bytes(), m_dir.Read("out.pcapng").size());
        return NumbersIn(Path("out.pcapng"));
    }
    static std::string Text(const Bytes& bytes) { return {bytes.begin(), bytes.end()}; }

    uint64_t m_ullPackets = 0;
    uint64_t m_ullSegments = 0;
};

TEST_F(FleetSpan, AllOfItIsTheFilesThemselves)
{
    EXPECT_EQ(Written({}), "r 0 1 2 3 4 5 6 7 8 9 r 0 1 2 3 4 5 6 7 8 9");
    EXPECT_EQ(m_dir.Read("out.pcapng"), Text(Join(Segment(START, 10), Segment(START + 10 * SECOND, 10))));
    EXPECT_EQ(m_ullPackets, 20u);
    EXPECT_EQ(m_ullSegments, 2u);
}

TEST_F(FleetSpan, PacketsOutsideAreLeftOut)
{
    EXPECT_EQ(Written({START + 8 * SECOND, START + 12 * SECOND}), "r 8 9 r 0 1");
    EXPECT_EQ(m_ullPackets, 4u);
}

TEST_F(FleetSpan, ASegmentWithNothingInTheSpanIsLeftOut)
{
    EXPECT_EQ(Written({START + 15 * SECOND, START + 16 * SECOND}), "r 5");
    EXPECT_EQ(m_ullSegments, 1u);
    EXPECT_EQ(m_dir.Files(), (std::vector<std::string>{"a", "b", "out.pcapng"}));
}

TEST_F(FleetSpan, ASegmentIsCutAtItsLastWholeBlock)
{
    const Bytes segment = Segment(START, 3);
    m_dir.Write("a", Text(segment));
    CSpanWriter writer(Path("out.pcapng"), {});
    ASSERT_TRUE(writer.Open(m_strError)) << m_strError;
    ASSERT_TRUE(writer.Add(Path("a"), segment.size() - 1, START, m_strError)) << m_strError;
    ASSERT_TRUE(writer.Add(Path("a"), 0, START, m_strError)) << m_strError;
    ASSERT_TRUE(writer.Finish(m_strError)) << m_strError;
    EXPECT_EQ(NumbersIn(Path("out.pcapng")), "r 0 1");
    EXPECT_EQ(writer.Packets(), 2u);
}

TEST_F(FleetSpan, WhatIsNotFinishedLeavesNothing)
{
    m_dir.Write("out.pcapng", "as before");
    {
        CSpanWriter writer(Path("out.pcapng"), {});
        ASSERT_TRUE(writer.Open(m_strError)) << m_strError;
        EXPECT_FALSE(writer.Add(Path("missing"), 4, START, m_strError));
        EXPECT_NE(m_strError.find("missing: No such file"), std::string::npos) << m_strError;
    }
    EXPECT_EQ(m_dir.Files(), (std::vector<std::string>{"out.pcapng"}));
    EXPECT_EQ(m_dir.Read("out.pcapng"), "as before");
    CSpanWriter nowhere(Path("none/out.pcapng"), {});
    EXPECT_FALSE(nowhere.Open(m_strError));
}
} // namespace
