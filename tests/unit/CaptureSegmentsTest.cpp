#include "capture/CompressFile.h"
#include "capture/PcapngBlocks.h"
#include "capture/PcapngReader.h"
#include "capture/PcapngWriter.h"
#include "capture/Progress.h"
#include "capture/SegmentKeeper.h"
#include "support/TestBytes.h"
#include "support/VexProcess.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/stat.h>
#include <zstd.h>

// Files that a capture writes one after the other: names, compression, deletion.

namespace
{
using Names = std::vector<std::string>;

/// 2023-11-14 22:13:20.007 UTC
constexpr uint64_t TIME = 1'700'000'000'007'000'000;

std::string CaptureOf(unsigned int ulRecords)
{
    std::vector<unsigned char> out;
    CPcapngWriter writer(out);
    writer.Begin({"lab7", 1, 2, TIME}, "test");
    for (unsigned int i = 0; i < ulRecords; ++i)
        writer.Record({.enKind = TAP_KIND::STATUS, .ullNumber = i, .ullTime = TIME}, AsBytes("12345678"));
    return {out.begin(), out.end()};
}

/// How many records a file holds that ends as it should; -1 for another.
int RecordsIn(const std::string& strPath)
{
    std::string strError;
    auto pSource = OpenCaptureSource(strPath, strError);
    if (!pSource)
        return -1;
    CPcapngReader reader(std::move(pSource));
    CAPTURED_RECORD stRecord;
    int nCount = 0;
    CPcapngReader::RESULT enResult{};
    while ((enResult = reader.Next(stRecord)) == CPcapngReader::RESULT::RECORD)
        ++nCount;
    return enResult == CPcapngReader::RESULT::END ? nCount : -1;
}

class CaptureSegments : public testing::Test
{
protected:
    std::string Path(const std::string& strName) const { return m_dir.Path() + "/" + strName; }
    CSegmentKeeper::SETTINGS Settings(const KEEP& stKeep, bool bCompress) const
    {
        return {CSegmentNames(Path("vex")), stKeep, bCompress};
    }

    CTempDir m_dir;
    std::ostringstream m_errors;
    CProgress m_progress{m_errors, CProgress::STYLE::LINES};
};
} // namespace

TEST_F(CaptureSegments, AreNamedByTimeAndFirstRecord)
{
    const CSegmentNames names(Path("vex.pcapng"));
    EXPECT_EQ(names.NewPath(TIME, 42), Path("vex_20231114T221320.007Z_0000000042.pcapng"));
    EXPECT_EQ(names.NewPath(TIME, 12345678901), Path("vex_20231114T221320.007Z_12345678901.pcapng"));
    // A clock that was set back: the name is taken, plain or compressed.
    m_dir.Write("vex_20231114T221320.007Z_0000000042.pcapng", "");
    m_dir.Write("vex_20231114T221320.008Z_0000000042.pcapng.zst", "");
    EXPECT_EQ(names.NewPath(TIME, 42), Path("vex_20231114T221320.009Z_0000000042.pcapng"));
    EXPECT_EQ(CSegmentNames("vex").Folder(), ".");
}

TEST_F(CaptureSegments, OnlyFilesOfThatNameAreListed)
{
    const std::string strOld = "vex_20231114T221320.007Z_0000000042.pcapng.zst";
    const std::string strNew = "vex_20231114T221320.008Z_12345678901.pcapng";
    for (const std::string& strName :
         {strNew, strOld, std::string("vex_20231114T221320.007Z_000000042.pcapng"), // a digit is missing
          std::string("vexx_20231114T221320.007Z_0000000042.pcapng"), std::string("vex.pcapng"),
          std::string("vex_20231114T221320.007Z_0000000042.pcapng.zst.tmp"),
          std::string("vex_20231114T221320.007Z_00000000x2.pcapng"), std::string("notes.txt")})
        m_dir.Write(strName, "123");
    const auto segments = CSegmentNames(Path("vex")).List();
    ASSERT_EQ(segments.size(), 2u);
    EXPECT_EQ(segments[0].strPath, Path(strOld));
    EXPECT_TRUE(segments[0].bCompressed);
    EXPECT_EQ(segments[1].strPath, Path(strNew));
    EXPECT_FALSE(segments[1].bCompressed);
    EXPECT_EQ(segments[1].ullBytes, 3u);
}

TEST_F(CaptureSegments, AFileBecomesOneFrame)
{
    const std::string strPlain = CaptureOf(20000); // more than one piece of what zstd takes at a time
    m_dir.Write("f.pcapng", strPlain);
    std::string strError;
    ASSERT_TRUE(CompressFile(Path("f.pcapng"), strError)) << strError;
    EXPECT_EQ(m_dir.Files(), Names{"f.pcapng.zst"});
    const std::string strPacked = m_dir.Read("f.pcapng.zst");
    EXPECT_EQ(ZSTD_findFrameCompressedSize(strPacked.data(), strPacked.size()), strPacked.size());
    EXPECT_EQ(ZSTD_getFrameContentSize(strPacked.data(), strPacked.size()), strPlain.size());
    EXPECT_EQ(RecordsIn(Path("f.pcapng.zst")), 20000);
}

TEST_F(CaptureSegments, WhatCannotBeCompressedStays)
{
    m_dir.Write("f.pcapng", "x");
    std::filesystem::create_directory(Path("f.pcapng.zst")); // nothing can be renamed to it
    std::string strError;
    EXPECT_FALSE(CompressFile(Path("f.pcapng"), strError));
    EXPECT_EQ(strError, Path("f.pcapng") + ": not compressed: Is a directory");
    EXPECT_EQ(m_dir.Files(), Names{"f.pcapng"});
    EXPECT_FALSE(CompressFile(Path("none"), strError));
    EXPECT_EQ(strError, Path("none") + ": not compressed: No such file or directory");
}

TEST_F(CaptureSegments, ADeviceIsNeitherCompressedNorDeleted)
{
    ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0600), 0);
    {
        CSegmentKeeper keeper({std::nullopt, {}, true}, m_progress);
        keeper.OnClosed(Path("fifo"));
    }
    EXPECT_TRUE(std::filesystem::is_fifo(Path("fifo")));
    EXPECT_FALSE(std::filesystem::exists(Path("fifo.zst")));
    std::string strError;
    EXPECT_FALSE(CompressFile("/dev/full", strError)); // what can't be written in full, if the rule were broken
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/full"));
}

TEST_F(CaptureSegments, AreCutToWholeBlocks)
{
    const std::string strWhole = CaptureOf(2);
    const std::string strThree = CaptureOf(3);
    ASSERT_EQ(strThree.compare(0, strWhole.size(), strWhole), 0);
    for (size_t szSize = strWhole.size(); szSize < strThree.size(); ++szSize) {
        EXPECT_EQ(WholeBlocks(ByteView(AsBytes(strThree)).first(szSize)), strWhole.size());
        m_dir.Write("f", strThree.substr(0, szSize));
        EXPECT_TRUE(CutToWholeBlocks(Path("f")));
        ASSERT_EQ(m_dir.Read("f"), strWhole) << szSize;
    }
    EXPECT_EQ(WholeBlocks(AsBytes(strThree)), strThree.size());
    EXPECT_EQ(CountPackets(AsBytes(strThree)), 3u);
    EXPECT_FALSE(CutToWholeBlocks(Path("none")));
}

TEST_F(CaptureSegments, LeftoversOfACaptureThatWasKilledAreCompressed)
{
    const std::string strCut = CaptureOf(5);
    m_dir.Write("vex_20231114T221320.007Z_0000000000.pcapng", strCut.substr(0, strCut.size() - 3));
    m_dir.Write("vex_20231114T221320.007Z_0000000000.pcapng.zst.tmp", "half");
    m_dir.Write("vex_20231114T221320.008Z_0000000005.pcapng", ""); // opened, and killed before the first block
    m_dir.Write("other.pcapng", "not ours");
    {
        CSegmentKeeper keeper(Settings({}, true), m_progress);
        keeper.TakeLeftovers();
    }
    EXPECT_EQ(m_errors.str(), "");
    EXPECT_EQ(m_dir.Files(), (Names{"other.pcapng", "vex_20231114T221320.007Z_0000000000.pcapng.zst"}));
    EXPECT_EQ(RecordsIn(Path("vex_20231114T221320.007Z_0000000000.pcapng.zst")), 4);
}

TEST_F(CaptureSegments, TheOldestAreDeletedBeyondACount)
{
    const Names names = {"vex_20231114T221320.001Z_0000000000.pcapng.zst", "vex_20231114T221320.002Z_0000000001.pcapng",
                         "vex_20231114T221320.003Z_0000000002.pcapng"};
    for (const std::string& strName : names)
        m_dir.Write(strName, "1234");
    m_dir.Write("vex_notes.txt", "12345678");
    {
        CSegmentKeeper keeper(Settings({0, 2}, false), m_progress);
        keeper.OnOpened("");
    }
    EXPECT_EQ(m_dir.Files(), (Names{names[1], names[2], "vex_notes.txt"}));
}

TEST_F(CaptureSegments, TheOldestAreDeletedBeyondASizeButNeverTheNewest)
{
    const Names names = {"vex_20231114T221320.001Z_0000000000.pcapng", "vex_20231114T221320.002Z_0000000001.pcapng",
                         "vex_20231114T221320.003Z_0000000002.pcapng"};
    for (const std::string& strName : names)
        m_dir.Write(strName, "1234");
    {
        CSegmentKeeper keeper(Settings({8, 0}, false), m_progress);
        keeper.OnOpened("");
    }
    EXPECT_EQ(m_dir.Files(), (Names{names[1], names[2]}));
    {
        CSegmentKeeper keeper(Settings({3, 0}, false), m_progress);
        keeper.OnOpened("");
    }
    EXPECT_EQ(m_dir.Files(), (Names{names[2]}));
}
