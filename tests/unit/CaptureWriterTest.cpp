#include "capture/FileWriter.h"
#include "capture/PcapngReader.h"
#include "capture/Progress.h"
#include "capture/RecordSink.h"
#include "support/TestBytes.h"
#include "support/VexProcess.h"
#include "support/WaitFor.h"

#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/resource.h>
#include <sys/stat.h>

// From records to files: rotation, buffers that are full, disks that are full, pipes that nobody reads.

namespace
{
using RESULT = CPcapngReader::RESULT;
using testing::HasSubstr;

constexpr uint64_t SECOND = 1'000'000'000;
const CAPTURE_RUN RUN{"lab7", 1, 2, 0};
const std::string RUN_TEXT = "run 00000000000000010000000000000002, agent since 1970-01-01T00:00:00Z, bench lab7";

TAP_RECORD Data(uint64_t ullNumber)
{
    return {TAP_KIND::UE_TO_AGENT, 0, CHANNEL_LTE_DATA, 0, 1, 0, ullNumber, SECOND + ullNumber};
}

struct FILE_CONTENT
{
    std::vector<uint64_t> numbers;
    std::vector<uint64_t> lost;
    std::vector<uint8_t> flags;
    std::string strFirstComment;
    RESULT enEnd = RESULT::RECORD;
};
FILE_CONTENT Content(std::unique_ptr<ICaptureSource> pSource)
{
    FILE_CONTENT st;
    CPcapngReader reader(std::move(pSource));
    CAPTURED_RECORD stRecord;
    while ((st.enEnd = reader.Next(stRecord)) == RESULT::RECORD) {
        if (st.numbers.empty())
            st.strFirstComment = stRecord.strComment;
        st.numbers.push_back(stRecord.stRecord.ullNumber);
        st.lost.push_back(stRecord.ullLost);
        st.flags.push_back(stRecord.stRecord.ucFlags);
    }
    return st;
}
FILE_CONTENT ContentOf(const std::string& strPath)
{
    std::string strError;
    auto pSource = OpenCaptureSource(strPath, strError);
    EXPECT_TRUE(pSource) << strError;
    return pSource ? Content(std::move(pSource)) : FILE_CONTENT();
}

/// Blocks of a file with records of 1000 bytes, numbers from 0 on.
Bytes Blocks(uint64_t ullRecords)
{
    Bytes out;
    CPcapngWriter writer(out);
    writer.Begin(RUN, "test");
    for (uint64_t i = 0; i < ullRecords; ++i)
        writer.Record(Data(i), Fill(1000));
    return out;
}

class CEvents : public IFileEvents
{
public:
    void OnOpened(const std::string& strPath) override { m_names.push_back("+" + strPath); }
    void OnClosed(const std::string& strPath) override { m_names.push_back("-" + strPath); }
    std::vector<std::string> m_names;
};

class CaptureWriter : public testing::Test
{
protected:
    CaptureWriter() { (void)signal(SIGXFSZ, SIG_IGN); }

    std::string Path(const std::string& strName) const { return m_dir.Path() + "/" + strName; }
    /// What stands on standard error; the writer may be running.
    bool Said(const std::string& strText)
    {
        return WaitFor([&] { return m_out.Text().find(strText) != std::string::npos; });
    }

    /// A stream that two threads may use.
    class CSharedText : public std::streambuf
    {
    public:
        std::string Text()
        {
            const std::lock_guard guard(m_Lock);
            return m_strText;
        }

    protected:
        std::streamsize xsputn(const char* pText, std::streamsize lCount) override
        {
            const std::lock_guard guard(m_Lock);
            m_strText.append(pText, static_cast<size_t>(lCount));
            return lCount;
        }
        int overflow(int nChar) override
        {
            const std::lock_guard guard(m_Lock);
            m_strText += static_cast<char>(nChar);
            return nChar;
        }

    private:
        std::mutex m_Lock;
        std::string m_strText;
    };
    /// A writer whose queue is closed at its end, however the test ends.
    class CWriter : public CFileWriter
    {
    public:
        explicit CWriter(CaptureWriter& test, std::chrono::seconds patience = PATIENCE)
            : CFileWriter(test.m_queue, test.m_progress, test.m_events, patience), m_queue(test.m_queue)
        {
        }
        ~CWriter() { m_queue.Close(); }

    private:
        CChunkQueue& m_queue;
    };

    CTempDir m_dir;
    CSharedText m_out;
    std::ostream m_errors{&m_out};
    CProgress m_progress{m_errors, CProgress::STYLE::LINES};
    CEvents m_events;
    CChunkQueue m_queue{4};
};

/// Files are no longer than this while it lives: a full disk.
class CFileLimit
{
public:
    explicit CFileLimit(rlim_t ulBytes)
    {
        (void)getrlimit(RLIMIT_FSIZE, &m_stBefore);
        const rlimit stLimit{ulBytes, m_stBefore.rlim_max};
        (void)setrlimit(RLIMIT_FSIZE, &stLimit);
    }
    ~CFileLimit() { (void)setrlimit(RLIMIT_FSIZE, &m_stBefore); }

private:
    rlimit m_stBefore{};
};
} // namespace

TEST_F(CaptureWriter, EachChunkGoesToItsFile)
{
    CWriter writer(*this);
    writer.Start();
    const std::string strFirst = Path("1");
    const std::string strSecond = Path("2");
    m_queue.Put({strFirst, Blocks(1), 1});
    m_queue.Put({"", Hex("06 00 00 00 0C 00 00 00 0C 00 00 00"), 1});
    m_queue.Put({strSecond, Blocks(2), 2});
    m_queue.Close();
    EXPECT_EQ(writer.Finish(), 0u);
    EXPECT_EQ(m_dir.Read("1").size(), Blocks(1).size() + 12);
    EXPECT_EQ(Bytes(AsBytes(m_dir.Read("2"))), Blocks(2));
    EXPECT_EQ(m_events.m_names,
              (std::vector<std::string>{"+" + strFirst, "-" + strFirst, "+" + strSecond, "-" + strSecond}));
    EXPECT_TRUE(m_queue.IsIdle());
}

TEST_F(CaptureWriter, AFullDiskLeavesWholeBlocksAndIsTriedAgain)
{
    CWriter writer(*this);
    {
        const CFileLimit limit(10000); // 284 bytes of heads and eight records of 1088 bytes
        writer.Start();
        m_queue.Put({Path("f"), Blocks(20), 20});
        ASSERT_TRUE(Said(Path("f") + ": File too large; capture is interrupted, 8 records kept"));
        const FILE_CONTENT stContent = ContentOf(Path("f"));
        EXPECT_EQ(stContent.enEnd, RESULT::END);
        EXPECT_EQ(stContent.numbers.size(), 8u);
    }
    ASSERT_TRUE(Said(Path("f") + ": there is room again; capture goes on"));
    m_queue.Close();
    EXPECT_EQ(writer.Finish(), 0u);
    EXPECT_EQ(Bytes(AsBytes(m_dir.Read("f"))), Blocks(20));
}

TEST_F(CaptureWriter, WhatADiskThatStaysFullDoesNotTakeIsCounted)
{
    const CFileLimit limit(10000);
    CWriter writer(*this);
    writer.Start();
    m_queue.Put({Path("f"), Blocks(20), 20});
    ASSERT_TRUE(Said("capture is interrupted"));
    m_queue.Put({Path("g"), Blocks(3), 3});
    m_queue.Close();
    EXPECT_EQ(writer.Finish(), 15u); // twelve of the first file, and those of the second
    EXPECT_EQ(ContentOf(Path("f")).numbers.size(), 8u);
    EXPECT_THAT(m_out.Text(), testing::Not(HasSubstr("room again")));
}

TEST_F(CaptureWriter, AFolderThatIsGoneIsTriedAgainToo)
{
    CWriter writer(*this);
    writer.Start();
    m_queue.Put({Path("sub/f"), Blocks(1), 1});
    ASSERT_TRUE(Said("sub/f: No such file or directory; capture is interrupted, 0 records kept"));
    ASSERT_EQ(mkdir(Path("sub").c_str(), 0777), 0);
    ASSERT_TRUE(Said("sub/f: there is room again; capture goes on"));
    m_queue.Close();
    EXPECT_EQ(writer.Finish(), 0u);
    EXPECT_EQ(Bytes(AsBytes(m_dir.Read("sub/f"))), Blocks(1));
}

TEST_F(CaptureWriter, APipeWhoseReaderHasGoneEndsItWithoutAWord)
{
    (void)signal(SIGPIPE, SIG_IGN);
    ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0600), 0);
    CUniqueFd readerFd(open(Path("fifo").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    auto pOut = OpenFifo(Path("fifo"));
    ASSERT_TRUE(pOut);
    CWriter writer(*this);
    writer.Use(std::move(pOut), "fifo");
    writer.Start();
    m_queue.Put({"", Blocks(1), 1});
    ASSERT_TRUE(WaitFor([&] { return m_queue.IsIdle(); }));
    Bytes read(Blocks(1).size());
    EXPECT_EQ(::read(readerFd.Get(), read.data(), read.size()), static_cast<ssize_t>(read.size()));
    EXPECT_EQ(read, Blocks(1));
    EXPECT_FALSE(writer.IsLeft());
    readerFd.Reset();
    m_queue.Put({"", Blocks(1), 1});
    EXPECT_TRUE(WaitFor([&] { return writer.IsLeft(); }));
    m_queue.Close();
    EXPECT_EQ(writer.Finish(), 0u);
    EXPECT_EQ(m_out.Text(), "");
}

TEST_F(CaptureWriter, APipeThatIsNotReadHoldsUpNoEnd)
{
    ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0600), 0);
    const CUniqueFd readerFd(open(Path("fifo").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    CWriter writer(*this, std::chrono::seconds(1));
    writer.Use(OpenFifo(Path("fifo")), "fifo");
    writer.Start();
    m_queue.Put({"", Blocks(200), 200}); // a pipe holds 64 KiB: 59 records of 1088 bytes behind 284 bytes of heads
    m_queue.Close();
    EXPECT_EQ(writer.Finish(), 141u);
}

TEST_F(CaptureWriter, APipeIsWaitedForWhenItsReaderIsSlow)
{
    ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0600), 0);
    const CUniqueFd readerFd(open(Path("fifo").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    CWriter writer(*this);
    writer.Use(OpenFifo(Path("fifo")), "fifo");
    writer.Start();
    const Bytes blocks = Blocks(200);
    m_queue.Put({"", blocks, 200});
    m_queue.Close();
    std::this_thread::sleep_for(std::chrono::milliseconds(2500)); // longer than the writer waits in one go
    Bytes read;
    ASSERT_TRUE(WaitFor([&] {
        std::array<unsigned char, 4096> aucPart{};
        const ssize_t lRead = ::read(readerFd.Get(), aucPart.data(), aucPart.size());
        read.insert(read.end(), aucPart.begin(), aucPart.begin() + std::max<ssize_t>(lRead, 0));
        return read.size() >= blocks.size();
    }));
    EXPECT_EQ(writer.Finish(), 0u);
    EXPECT_EQ(read, blocks);
}

TEST(CaptureSink, EachFileOfARotationStandsAlone)
{
    CTempDir dir;
    CChunkQueue queue(8);
    CRecordSink sink(queue, CSegmentNames(dir.Path() + "/c"), {3000, std::chrono::seconds(0)});
    sink.BeginRun(RUN);
    ASSERT_TRUE(
        sink.Put({.enKind = TAP_KIND::CONFIGURATION, .ucFlags = TAP_REPLAYED, .ullTime = SECOND}, AsBytes("cfg"), 0));
    for (uint64_t i = 1; i < 6; ++i)
        ASSERT_TRUE(sink.Put(Data(i), Fill(1000), 0));
    sink.Finish(7);
    const auto first = queue.Take();
    const auto second = queue.Take();
    ASSERT_TRUE(first && second);
    EXPECT_FALSE(queue.Take()); // closed
    EXPECT_EQ(first->strNewFile, dir.Path() + "/c_19700101T000001.000Z_0000000000.pcapng");
    const FILE_CONTENT stFirst = Content(MemoryCaptureSource(first->vecBytes));
    EXPECT_EQ(stFirst.numbers, (std::vector<uint64_t>{0, 1, 2, 3}));
    EXPECT_EQ(stFirst.strFirstComment, RUN_TEXT);
    EXPECT_EQ(first->ullRecords, 4u);
    EXPECT_EQ(second->strNewFile, dir.Path() + "/c_19700101T000001.000Z_0000000004.pcapng");
    const FILE_CONTENT stSecond = Content(MemoryCaptureSource(second->vecBytes));
    EXPECT_EQ(stSecond.numbers, (std::vector<uint64_t>{0, 4, 5})); // the configuration again
    EXPECT_EQ(stSecond.flags, (std::vector<uint8_t>{TAP_REPLAYED, 0, 0}));
    EXPECT_EQ(stSecond.strFirstComment, RUN_TEXT);
    // The last blocks are the statistics of the two interfaces; the first one's, 52 bytes each, tells all losses.
    const ByteView end = ByteView(second->vecBytes).last(104);
    EXPECT_EQ(LoadLe<uint32_t>(end, 0), 5u);
    EXPECT_EQ(LoadLe<uint64_t>(end, 24), 1u);
    EXPECT_EQ(LoadLe<uint64_t>(end, 36), 7u);
}

TEST(CaptureSink, ALossStandsAtTheNextRecordAndAFullBufferLosesWhatComes)
{
    CChunkQueue queue(1); // beside the one that the sink fills
    CRecordSink sink(queue, std::nullopt, {});
    sink.BeginRun(RUN);
    uint64_t ullNumber = 0;
    while (sink.Put(Data(ullNumber), Fill(1000), 0))
        ASSERT_LT(++ullNumber, 10000u);
    // Two buffers that are handed over once they have 262144 bytes: 241 records of 1088 bytes each.
    EXPECT_EQ(ullNumber, 482u);
    const TAP_RECORD config{.enKind = TAP_KIND::CONFIGURATION, .ullNumber = 483};
    EXPECT_FALSE(sink.Put(config, AsBytes("cfg"), 0));
    auto chunk = queue.Take();
    ASSERT_TRUE(chunk);
    const Bytes before = Bytes(ByteView(chunk->vecBytes));
    queue.GiveBack(std::move(*chunk));
    EXPECT_TRUE(sink.Put(Data(ullNumber + 2), Fill(1000), 2)); // there is room again
    chunk = queue.Take();
    ASSERT_TRUE(chunk);
    const Bytes middle = Bytes(ByteView(chunk->vecBytes));
    sink.Finish(0);
    const auto last = queue.Take();
    ASSERT_TRUE(last);
    const FILE_CONTENT st = Content(MemoryCaptureSource(Join(before, middle, last->vecBytes)));
    EXPECT_EQ(st.enEnd, RESULT::END);
    ASSERT_EQ(st.numbers.size(), 484u);
    EXPECT_EQ(st.numbers[482], 483u); // the configuration was lost, and the file needs it
    EXPECT_EQ(st.flags[482], TAP_REPLAYED);
    EXPECT_EQ(st.lost[482], 0u);
    EXPECT_EQ(st.numbers.back(), 484u);
    EXPECT_EQ(st.lost.back(), 2u);
}

TEST(CaptureSink, GivesWhatThereIsOnlyToAWriterWithoutWork)
{
    CChunkQueue queue(8);
    CRecordSink sink(queue, std::nullopt, {});
    sink.BeginRun(RUN);
    ASSERT_TRUE(sink.Put(Data(0), {}, 0));
    EXPECT_TRUE(queue.IsIdle());
    sink.Flush();
    EXPECT_FALSE(queue.IsIdle());
    ASSERT_TRUE(sink.Put(Data(1), {}, 0));
    sink.Flush(); // the first one is still on its way: small pieces don't use up the buffers
    auto chunk = queue.Take();
    ASSERT_TRUE(chunk);
    EXPECT_EQ(chunk->ullRecords, 1u);
    queue.GiveBack(std::move(*chunk));
    EXPECT_TRUE(queue.IsIdle());
    sink.Flush();
    EXPECT_FALSE(queue.IsIdle());
}

TEST(CaptureProgress, TellsLossesOncePerSecondAndProgressOnATerminalAlone)
{
    using namespace std::chrono_literals;
    const std::chrono::steady_clock::time_point start(100s);
    std::ostringstream lines;
    CProgress plain(lines, CProgress::STYLE::LINES);
    plain.Show({10, 1000, 3}, start);
    plain.Show({20, 2000, 4}, start + 900ms);
    plain.Show({20, 2000, 5}, start + 1s);
    plain.End({20, 2000, 6});
    EXPECT_EQ(lines.str(), "vex-capture: 3 records lost, 3 in all\n"
                           "vex-capture: 2 records lost, 5 in all\n"
                           "vex-capture: 1 records lost, 6 in all\n"
                           "vex-capture: 20 records, 2000 bytes, 6 lost\n");
    std::ostringstream screen;
    CProgress terminal(screen, CProgress::STYLE::TERMINAL);
    terminal.Show({0, 0, 0}, start);
    terminal.Show({20, 3'000'000, 0}, start + 2s);
    terminal.Problem("x");
    EXPECT_EQ(screen.str(), "\r\x1b[K0 records, 0.0 MB, 0.00 MB/s, 0 lost"
                            "\r\x1b[K20 records, 3.0 MB, 1.50 MB/s, 0 lost"
                            "\r\x1b[Kvex-capture: x\n");
    std::ostringstream problems;
    CProgress quiet(problems, CProgress::STYLE::PROBLEMS);
    quiet.Info("all is well");
    quiet.End({1, 2, 1});
    EXPECT_EQ(problems.str(), "vex-capture: 1 records lost, 1 in all\n");
}
