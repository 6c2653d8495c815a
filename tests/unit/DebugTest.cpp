#include "common/Debug.h"

#include "common/Config.h"
#include "support/Blocks.h"
#include "support/LogCapture.h"
#include "support/TestBytes.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <sstream>
#include <unistd.h>
#include <vector>

namespace
{

void SetLevel(int iLevel)
{
    std::string strLine = "debuglevel=" + std::to_string(iLevel);
    CConfig::Instance()->ParseLine(strLine);
}

/// The time stamp of a line, 23 characters, with 9 for every digit.
std::string StampShape(const std::string& strLine)
{
    std::string strShape = strLine.substr(0, 23);
    std::ranges::replace_if(
        strShape, [](char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; }, '9');
    return strShape;
}

/// A folder of its own, and a log in it that isn't the process' own.
class Debug : public testing::Test
{
protected:
    Debug()
    {
        EXPECT_NE(mkdtemp(m_strDir.data()), nullptr);
        m_strPath = m_strDir + "/log.d";
        SetLevel(15);
    }
    ~Debug() override
    {
        m_pDebug.reset();
        std::filesystem::remove_all(m_strDir);
    }

    std::string Text() const
    {
        std::ostringstream text;
        text << std::ifstream(m_strPath).rdbuf();
        return text.str();
    }
    std::vector<std::string> Lines() const
    {
        std::vector<std::string> vecLines;
        std::istringstream text(Text());
        for (std::string strLine; std::getline(text, strLine);)
            vecLines.push_back(strLine);
        return vecLines;
    }
    /// Lines without their time stamps of 23 characters.
    std::vector<std::string> Texts() const
    {
        std::vector<std::string> vecLines = Lines();
        for (std::string& strLine : vecLines)
            strLine.erase(0, 23);
        return vecLines;
    }

    std::string m_strDir = "/tmp/vex-debug-XXXXXX";
    std::string m_strPath;
    std::unique_ptr<CDebug> m_pDebug = std::make_unique<CDebug>();
};

using Strings = std::vector<std::string>;

} // namespace

TEST_F(Debug, ALineIsTimeStampTagAndText)
{
    setenv("TZ", "VEX-05:45", 1); // local time, not universal time
    tzset();
    const time_t before = time(nullptr);
    EXPECT_TRUE(m_pDebug->Start(m_strPath.c_str()));
    m_pDebug->PrintInfo("UEManager::%s OK!", "Run");
    EXPECT_TRUE(m_pDebug->Stop());
    const time_t after = time(nullptr);

    const std::string strText = Text();
    EXPECT_EQ(StampShape(strText) + strText.substr(23), "9999-99-99 99:99:99.999 [INF] : UEManager::Run OK!\n");
    tm stLocal{};
    ASSERT_NE(strptime(strText.c_str(), "%Y-%m-%d %H:%M:%S", &stLocal), nullptr);
    stLocal.tm_isdst = -1;
    const time_t stamp = mktime(&stLocal);
    EXPECT_GE(stamp, before);
    EXPECT_LE(stamp, after);
}

TEST_F(Debug, EachBitOfTheLevelIsOneClass)
{
    const char* apszTags[4] = {" [INF] : i", " [WAN] : w", " [ERR] : e", " [DAT] : d Buffer="};
    for (int iLevel = 1; iLevel <= 15; ++iLevel) {
        SetLevel(iLevel);
        CDebug log;
        ASSERT_TRUE(log.Start(m_strPath.c_str()));
        log.PrintInfo("i");
        log.PrintWarn("w");
        log.PrintError("e");
        log.PrintRawData("d", {});
        log.Stop();
        Strings vecExpected;
        for (int iBit = 0; iBit < 4; ++iBit)
            if ((iLevel & (1 << iBit)) != 0)
                vecExpected.emplace_back(apszTags[iBit]);
        const Strings vecTexts = Texts();
        ASSERT_EQ(vecTexts.size(), vecExpected.size()) << "level " << iLevel;
        for (size_t i = 0; i < vecTexts.size(); ++i)
            EXPECT_TRUE(vecTexts[i].starts_with(vecExpected[i])) << "level " << iLevel << ": " << vecTexts[i];
    }
}

TEST_F(Debug, LevelZeroMakesNoFileAndNoCallBlocks)
{
    SetLevel(0);
    EXPECT_FALSE(m_pDebug->Start(m_strPath.c_str()));
    for (int i = 0; i < 200; ++i)
        m_pDebug->PrintError("nobody reads this");
    EXPECT_FALSE(std::filesystem::exists(m_strPath));
}

TEST_F(Debug, WithoutANameItDoesNotStart)
{
    EXPECT_FALSE(m_pDebug->Start(nullptr));
}

TEST_F(Debug, AnUnknownLevelGivesALineWithoutTag)
{
    ASSERT_TRUE(m_pDebug->Start(m_strPath.c_str()));
    m_pDebug->Output("text", 3);
    m_pDebug->Output("more", 0);
    m_pDebug->Stop();
    EXPECT_EQ(Texts(), (Strings{"text", "more"}));
    EXPECT_EQ(StampShape(Lines()[0]), "9999-99-99 99:99:99.999");
}

TEST_F(Debug, RawDataShowsAddressLengthAndEveryByte)
{
    const Bytes data = {0x00, 0x7E, 0x0A, 0xFF};
    ASSERT_TRUE(m_pDebug->Start(m_strPath.c_str()));
    m_pDebug->PrintRawData("frame", data);
    m_pDebug->Stop();
    char szAddress[32];
    (void)snprintf(szAddress, sizeof(szAddress), "%08lx", reinterpret_cast<unsigned long>(data.data()));
    EXPECT_EQ(Texts(),
              (Strings{" [DAT] : frame Buffer=0x" + std::string(szAddress) + ",Length=4,dump=0x00,0x7e,0x0a,0xff,"}));
}

TEST_F(Debug, RawDataOfLengthZeroEndsWithDump)
{
    ASSERT_TRUE(m_pDebug->Start(m_strPath.c_str()));
    m_pDebug->PrintRawData("empty", {});
    m_pDebug->Stop();
    EXPECT_EQ(Texts(), (Strings{" [DAT] : empty Buffer=0x00000000,Length=0,dump="}));
}

TEST_F(Debug, RawDataHasNoLimit)
{
    const Bytes data = Fill(100000, 0x5A);
    ASSERT_TRUE(m_pDebug->Start(m_strPath.c_str()));
    m_pDebug->PrintRawData(std::string(500, 't').c_str(), data);
    m_pDebug->Stop();
    const Strings vecTexts = Texts();
    ASSERT_EQ(vecTexts.size(), 1u);
    const size_t szDump = vecTexts[0].find(",Length=100000,dump=");
    ASSERT_NE(szDump, std::string::npos);
    EXPECT_EQ(vecTexts[0].size() - szDump, 20 + 5 * data.size());
    EXPECT_TRUE(vecTexts[0].starts_with(" [DAT] : " + std::string(500, 't') + " Buffer=0x"));
}

TEST_F(Debug, ATextOf1023CharactersIsWholeALongerOneIsCut)
{
    ASSERT_TRUE(m_pDebug->Start(m_strPath.c_str()));
    m_pDebug->PrintInfo("%s", std::string(1023, 'a').c_str());
    m_pDebug->PrintInfo("%s", std::string(5000, 'b').c_str());
    m_pDebug->Stop();
    EXPECT_EQ(Texts(), (Strings{" [INF] : " + std::string(1023, 'a'), " [INF] : " + std::string(1023, 'b')}));
}

TEST_F(Debug, FiftyLinesWaitForTheStartAndThe51stBlocks)
{
    {
        CBackgroundCall fifty([&] {
            for (int i = 0; i < 50; ++i)
                m_pDebug->PrintInfo("%d", i);
        });
        ASSERT_TRUE(fifty.Returns());
    }
    CBackgroundCall next([&] { m_pDebug->PrintInfo("50"); });
    EXPECT_TRUE(next.Blocks());
    ASSERT_TRUE(m_pDebug->Start(m_strPath.c_str()));
    EXPECT_TRUE(next.Returns());
    m_pDebug->Stop();
    const Strings vecTexts = Texts();
    ASSERT_EQ(vecTexts.size(), 51u);
    EXPECT_EQ(vecTexts.front(), " [INF] : 0");
    EXPECT_EQ(vecTexts.back(), " [INF] : 50");
}

TEST_F(Debug, LinesQueuedBeforeStopReachTheFile)
{
    for (int lRound = 0; lRound < 20; ++lRound) {
        ASSERT_TRUE(m_pDebug->Start(m_strPath.c_str()));
        for (int i = 0; i < 50; ++i)
            m_pDebug->PrintInfo("%d", i);
        m_pDebug->Stop();
        EXPECT_EQ(Lines().size(), 50u); // no waiting: they are there when Stop returns; and each start truncates
    }
}

TEST_F(Debug, ARunningLogKeepsItsFile)
{
    ASSERT_TRUE(m_pDebug->Start(m_strPath.c_str()));
    EXPECT_FALSE(m_pDebug->Start((m_strPath + "2").c_str()));
    m_pDebug->PrintInfo("line");
    m_pDebug->Stop();
    EXPECT_EQ(Texts(), (Strings{" [INF] : line"}));
    EXPECT_FALSE(std::filesystem::exists(m_strPath + "2"));
}

TEST_F(Debug, LinesAfterStopAreDropped)
{
    ASSERT_TRUE(m_pDebug->Start(m_strPath.c_str()));
    m_pDebug->PrintInfo("before");
    m_pDebug->Stop();
    for (int i = 0; i < 200; ++i)
        m_pDebug->PrintInfo("after");
    EXPECT_TRUE(m_pDebug->Stop()); // a second time does nothing
    EXPECT_EQ(Texts(), (Strings{" [INF] : before"}));
}

TEST_F(Debug, EveryLineIsInTheFileWithoutAStop)
{
    ASSERT_TRUE(m_pDebug->Start(m_strPath.c_str()));
    m_pDebug->PrintInfo("one");
    EXPECT_TRUE(WaitFor([&] { return Text().ends_with("one\n"); }));
    m_pDebug->PrintInfo("two");
    EXPECT_TRUE(WaitFor([&] { return Text().ends_with("two\n"); }));
}

TEST_F(Debug, ALogThatCannotBeOpenedIsToldOnceAndBlocksNobody)
{
    const std::string strPath = m_strDir + "/missing/log.d";
    testing::internal::CaptureStderr();
    EXPECT_TRUE(m_pDebug->Start(strPath.c_str()));
    {
        CBackgroundCall printer([&] {
            for (int i = 0; i < 500; ++i)
                m_pDebug->PrintError("lost");
        });
        EXPECT_TRUE(printer.Returns());
    }
    m_pDebug->Stop();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "can't write the log file " + strPath + ": No such file or directory; this run has no log\n");
}

TEST_F(Debug, AFullDiskBlocksNobody)
{
    EXPECT_TRUE(m_pDebug->Start("/dev/full"));
    CBackgroundCall printer([&] {
        for (int i = 0; i < 500; ++i)
            m_pDebug->PrintError("lost");
    });
    EXPECT_TRUE(printer.Returns());
    EXPECT_TRUE(m_pDebug->Stop());
}

namespace
{
void SetMaxSize(int iMb)
{
    std::string strLine = "LogMaxSize=" + std::to_string(iMb);
    CConfig::Instance()->ParseLine(strLine);
}
} // namespace

TEST_F(Debug, WithALimitTheNewestLinesAreInTwoFiles)
{
    SetMaxSize(1);
    ASSERT_TRUE(m_pDebug->Start(m_strPath.c_str()));
    constexpr int LINES = 4000; // of about 1 kB each
    for (int i = 0; i < LINES; ++i)
        m_pDebug->PrintInfo("%d %s", i, std::string(1000, 'x').c_str());
    m_pDebug->Stop();
    const std::string strOld = m_strPath + ".1";
    EXPECT_LE(std::filesystem::file_size(m_strPath), 1048576u);
    EXPECT_LE(std::filesystem::file_size(strOld), 1048576u);
    EXPECT_GT(std::filesystem::file_size(strOld), 1048576u - 2000) << "cut over no earlier than need be";

    std::stringstream both;
    both << std::ifstream(strOld).rdbuf() << Text();
    int lNext = -1;
    for (std::string strLine; std::getline(both, strLine); ++lNext) {
        int lLine = -1;
        ASSERT_EQ(sscanf(strLine.c_str() + 23, " [INF] : %d", &lLine), 1) << strLine;
        if (lNext == -1)
            lNext = lLine;
        ASSERT_EQ(lLine, lNext);
    }
    EXPECT_EQ(lNext, LINES) << "up to the last one";
}

TEST_F(Debug, WithALimitLinesThatRepeatAreCountedAtTheEndToo)
{
    // The writer may take longer than a second for them on a slow machine; then each second has lines of its own.
    SetMaxSize(1);
    ASSERT_TRUE(m_pDebug->Start(m_strPath.c_str()));
    constexpr int LINES = 1000;
    for (int i = 0; i < LINES; ++i)
        m_pDebug->PrintWarn("again");
    m_pDebug->Stop();
    int lSum = 0;
    for (const std::string& strText : Texts()) {
        int lMore = 0;
        if (strText == " [WAN] : again")
            ++lSum;
        else if (sscanf(strText.c_str(), " [WAN] : ... and %d more of: again", &lMore) == 1)
            lSum += lMore;
    }
    EXPECT_EQ(lSum, LINES);
    EXPECT_LT(Texts().size(), static_cast<size_t>(LINES));
}

TEST_F(Debug, TheCountIsWrittenWhenTheSecondIsOverThoughNothingComes)
{
    SetMaxSize(1);
    ASSERT_TRUE(m_pDebug->Start(m_strPath.c_str()));
    for (int i = 0; i < 200; ++i)
        m_pDebug->PrintWarn("again");
    EXPECT_TRUE(WaitFor([&] { return Text().find(" more of: again\n") != std::string::npos; }));
}

TEST_F(Debug, WithoutALimitEveryLineIsWritten)
{
    ASSERT_TRUE(m_pDebug->Start(m_strPath.c_str()));
    for (int i = 0; i < 500; ++i)
        m_pDebug->PrintWarn("again");
    m_pDebug->Stop();
    EXPECT_EQ(Texts(), Strings(500, " [WAN] : again"));
}

TEST_F(Debug, ThreadsNeverMixTheirLinesAndKeepTheirOrder)
{
    constexpr int THREADS = 4;
    constexpr int EACH = 500;
    ASSERT_TRUE(m_pDebug->Start(m_strPath.c_str()));
    {
        std::vector<std::thread> vecThreads;
        for (int i = 0; i < THREADS; ++i)
            vecThreads.emplace_back([this, i] {
                for (int lLine = 0; lLine < EACH; ++lLine)
                    m_pDebug->PrintInfo("%d %d", i, lLine);
            });
        for (std::thread& thread : vecThreads)
            thread.join();
    }
    m_pDebug->Stop();
    std::array<int, THREADS> alNext{};
    for (const std::string& strText : Texts()) {
        int lThread = -1;
        int lLine = -1;
        ASSERT_EQ(sscanf(strText.c_str(), " [INF] : %d %d", &lThread, &lLine), 2) << strText;
        ASSERT_TRUE(lThread >= 0 && lThread < THREADS);
        EXPECT_EQ(lLine, alNext[static_cast<size_t>(lThread)]++);
    }
    EXPECT_EQ(alNext, (std::array<int, THREADS>{EACH, EACH, EACH, EACH}));
}

TEST_F(Debug, TheThreadEntryTakesANullArgument)
{
    EXPECT_EQ(Debug_Thread(nullptr), nullptr);
}

TEST_F(Debug, ADestroyedLogGivesBackLinesThatNobodyTook)
{
    m_pDebug->PrintInfo("never written");
    m_pDebug.reset(); // a leak fails the sanitized run
}

TEST_F(Debug, InstanceAfterDestoryIsANewLog)
{
    CDebug* pFirst = CDebug::Instance();
    EXPECT_EQ(CDebug::Instance(), pFirst);
    CDebug::Destory();
    EXPECT_NE(CDebug::Instance(), pFirst);
    ASSERT_TRUE(CDebug::Instance()->Start(m_strPath.c_str()));
    CDebug::Instance()->PrintInfo("second");
    CDebug::Destory();
    EXPECT_EQ(Texts(), (Strings{" [INF] : second"}));
}

TEST_F(Debug, PrintingBehindDestoryIsHarmless)
{
    CDebug* pOld = CDebug::Instance();
    ASSERT_TRUE(pOld->Start(m_strPath.c_str()));
    std::atomic<bool> bEnd = false;
    std::atomic<int> lPrinted = 0;
    std::vector<std::thread> vecThreads;
    for (int i = 0; i < 3; ++i)
        vecThreads.emplace_back([&] {
            while (!bEnd) {
                CDebug::Instance()->PrintInfo("line");
                pOld->PrintInfo("line");
                ++lPrinted;
            }
        });
    EXPECT_TRUE(WaitFor([&] { return lPrinted > 50; }));
    CDebug::Destory();
    const int lAtDestory = lPrinted;
    EXPECT_TRUE(WaitFor([&] { return lPrinted > lAtDestory + 1000; })); // nobody is held by a queue without reader
    bEnd = true;
    for (std::thread& thread : vecThreads)
        thread.join();
}

TEST(LogCapture, CountsTheLinesBeforeTheCallWhateverClassesAreOn)
{
    const CLogCapture log(DEBUGLEVEL_WARN);
    CDebug::Instance()->PrintWarn("heard");
    CDebug::Instance()->PrintInfo("heard");
    CDebug::Instance()->PrintWarn("heard again");
    EXPECT_EQ(log.Count("heard"), 2);
    EXPECT_TRUE(log.Saw("heard again"));
    EXPECT_EQ(log.Count("unheard"), 0);
}
