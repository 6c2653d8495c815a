#include "common/LogFile.h"

#include "support/Sockets.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/resource.h>
#include <sys/stat.h>

namespace
{
class LogFile : public testing::Test
{
protected:
    LogFile()
    {
        EXPECT_NE(mkdtemp(m_strDir.data()), nullptr);
        m_strPath = m_strDir + "/log.d";
    }
    ~LogFile() override
    {
        std::filesystem::permissions(m_strDir, std::filesystem::perms::owner_all);
        std::filesystem::remove_all(m_strDir);
    }
    static std::string Text(const std::string& strPath)
    {
        std::ostringstream text;
        text << std::ifstream(strPath).rdbuf();
        return text.str();
    }
    std::string Text() const { return Text(m_strPath); }
    std::string Old() const { return Text(m_strPath + ".1"); }

    std::string m_strDir = "/tmp/vex-logfile-XXXXXX";
    std::string m_strPath;
};

/// The descriptor of this process on the file that isn't nFd; -1 without one.
int OtherFd(const std::string& strPath, int nFd)
{
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error; // that of the directory itself is gone by now
        const int nOther = std::stoi(entry.path().filename());
        if (nOther != nFd && std::filesystem::read_symlink(entry.path(), error) == strPath)
            return nOther;
    }
    return -1;
}

/// No file grows beyond a size, as on a full disk, for the life of the object.
class CFileSizeLimit
{
public:
    explicit CFileSizeLimit(rlim_t size)
    {
        (void)signal(SIGXFSZ, SIG_IGN); // write fails instead
        (void)getrlimit(RLIMIT_FSIZE, &m_stBefore);
        Set(size);
    }
    ~CFileSizeLimit() { Set(m_stBefore.rlim_cur); }
    CFileSizeLimit(const CFileSizeLimit&) = delete;
    CFileSizeLimit& operator=(const CFileSizeLimit&) = delete;

private:
    void Set(rlim_t size) const
    {
        const rlimit stLimit{size, m_stBefore.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &stLimit), 0);
    }
    rlimit m_stBefore{};
};
} // namespace

TEST_F(LogFile, StartsEmptyAndHoldsEachLineAtOnce)
{
    std::ofstream(m_strPath) << "of an earlier run\n";
    CLogFile file(m_strPath, 0);
    ASSERT_TRUE(file.IsOpen());
    EXPECT_EQ(Text(), "");
    file.Write("one\n");
    EXPECT_EQ(Text(), "one\n");
    file.Write("");
    file.Write("two\n");
    EXPECT_EQ(Text(), "one\ntwo\n");
}

TEST_F(LogFile, ThatCannotBeOpenedSaysWhyAndTakesNothing)
{
    CLogFile file(m_strDir + "/missing/log.d", 0);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(file.IsOpen());
    file.Write("lost\n");
}

TEST_F(LogFile, IsCutOverBeforeALineWouldExceedTheLimit)
{
    CLogFile file(m_strPath, 10);
    file.Write("1234\n");
    file.Write("5678\n");
    EXPECT_EQ(Text(), "1234\n5678\n") << "10 bytes are within it";
    EXPECT_FALSE(std::filesystem::exists(m_strPath + ".1"));
    file.Write("a\n");
    EXPECT_EQ(Text(), "a\n");
    EXPECT_EQ(Old(), "1234\n5678\n");
    file.Write("bcdefgh\n");
    EXPECT_EQ(Text(), "a\nbcdefgh\n");
    file.Write("i\n");
    EXPECT_EQ(Text(), "i\n");
    EXPECT_EQ(Old(), "a\nbcdefgh\n") << "in the place of the earlier one";
}

TEST_F(LogFile, ALineBeyondTheLimitIsCut)
{
    CLogFile file(m_strPath, 10);
    file.Write("1234\n");
    file.Write("123456789\n");
    EXPECT_EQ(Text(), "123456789\n") << "10 bytes with its end";
    EXPECT_EQ(Old(), "1234\n");
    file.Write("abcdefghijk\n");
    EXPECT_EQ(Text(), "abcdefghi\n");
    EXPECT_EQ(Old(), "123456789\n");
}

TEST_F(LogFile, ThatCannotBeRenamedStartsAgain)
{
    std::filesystem::create_directories(m_strPath + ".1/in-the-way"); // a folder doesn't give way to a file
    CLogFile file(m_strPath, 10);
    file.Write("1234567\n");
    file.Write("abc\n");
    EXPECT_EQ(Text(), "abc\n");
    file.Write("def\n");
    EXPECT_EQ(Text(), "abc\ndef\n");
}

TEST_F(LogFile, AFullDiskNeverGluesLines)
{
    CLogFile file(m_strPath, 0);
    file.Write("before\n");
    {
        const CFileSizeLimit limit(10);
        file.Write("too long\n"); // three bytes of it fit
        EXPECT_EQ(Text(), "before\n");
        file.Write("xy\n");
        EXPECT_EQ(Text(), "before\nxy\n") << "a line that fits is whole";
        file.Write("z\n");
        EXPECT_EQ(Text(), "before\nxy\n");
    }
    file.Write("after\n");
    EXPECT_EQ(Text(), "before\nxy\nafter\n");
}

TEST_F(LogFile, WhatTheDiskTookNotDoesNotCountForTheLimit)
{
    CLogFile file(m_strPath, 20);
    file.Write("before\n");
    {
        const CFileSizeLimit limit(10);
        file.Write("too long\n");
    }
    file.Write("123456789012\n"); // 7 + 13
    EXPECT_EQ(Text(), "before\n123456789012\n");
    EXPECT_EQ(Old(), "");
}

TEST_F(LogFile, APipeThatTookAPartGetsALineEndBeforeTheNext)
{
    // The pipe is non-blocking on the writer's side, so that a full one refuses bytes.
    ASSERT_EQ(mkfifo(m_strPath.c_str(), 0600), 0);
    const CUniqueFd reader(open(m_strPath.c_str(), O_RDONLY | O_NONBLOCK));
    CLogFile file(m_strPath, 10); // no limit for what isn't on a disk
    ASSERT_TRUE(file.IsOpen());
    const int nWriter = OtherFd(m_strPath, reader.Get());
    ASSERT_EQ(fcntl(nWriter, F_SETFL, O_WRONLY | O_NONBLOCK), 0);
    const auto szPipe = static_cast<size_t>(fcntl(nWriter, F_GETPIPE_SZ));

    file.Write(std::string(szPipe + 100, 'x') + "\n");
    std::string strRead(szPipe + 1000, '\0');
    EXPECT_EQ(read(reader.Get(), strRead.data(), strRead.size()), static_cast<ssize_t>(szPipe));
    file.Write("next\n");
    const ssize_t nRead = read(reader.Get(), strRead.data(), strRead.size());
    EXPECT_EQ(strRead.substr(0, static_cast<size_t>(std::max<ssize_t>(nRead, 0))), "\nnext\n");
    EXPECT_FALSE(std::filesystem::exists(m_strPath + ".1"));
}

TEST_F(LogFile, ADeviceThatIsAlwaysFullIsNeverRenamed)
{
    CLogFile file("/dev/full", 4);
    ASSERT_TRUE(file.IsOpen());
    for (int i = 0; i < 10; ++i)
        file.Write("123\n");
    EXPECT_TRUE(std::filesystem::exists("/dev/full"));
}
