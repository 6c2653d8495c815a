#include "common/RepeatedLines.h"

#include <gtest/gtest.h>
#include <vector>

namespace
{
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr CRepeatedLines::TIME START{seconds(1000)};

class RepeatedLines : public testing::Test
{
protected:
    /// A line of the class, with a time stamp that tells the milliseconds.
    static std::string Line(int lMs, const std::string& strText, const char* pszTag = " [INF] : ")
    {
        char szStamp[32];
        (void)snprintf(szStamp, sizeof(szStamp), "2024-03-05 10:22:%02d.%03d", lMs / 1000, lMs % 1000);
        return szStamp + (pszTag + strText) + "\n";
    }
    void Add(int lMs, const std::string& strText, const char* pszTag = " [INF] : ")
    {
        m_repeated.Add({Line(lMs, strText, pszTag), 23 + std::string_view(pszTag).size()}, START + milliseconds(lMs));
    }
    /// The text lCount times, a millisecond apart.
    void AddMany(int lFrom, int lCount, const std::string& strText)
    {
        for (int i = 0; i < lCount; ++i)
            Add(lFrom + i, strText);
    }
    std::vector<std::string> Written() { return std::exchange(m_written, {}); }

    std::vector<std::string> m_written;
    CRepeatedLines m_repeated{[this](std::string_view line) { m_written.emplace_back(line); }};
};

using Strings = std::vector<std::string>;
} // namespace

TEST_F(RepeatedLines, AHundredASecondArePassedOn)
{
    AddMany(0, 100, "again");
    const Strings written = Written();
    ASSERT_EQ(written.size(), 100u);
    EXPECT_EQ(written.front(), Line(0, "again"));
    EXPECT_EQ(written.back(), Line(99, "again")) << "with its own time stamp";
    EXPECT_EQ(m_repeated.NextTime(), CRepeatedLines::TIME::max());
    m_repeated.Flush();
    EXPECT_EQ(Written(), Strings{});
}

TEST_F(RepeatedLines, TheRestIsCountedWhenAnotherLineComes)
{
    AddMany(0, 150, "again");
    EXPECT_EQ(Written().size(), 100u);
    Add(150, "other");
    EXPECT_EQ(Written(), (Strings{Line(149, "... and 50 more of: again"), Line(150, "other")}));
}

TEST_F(RepeatedLines, TheRestIsCountedWhenTheSecondIsOver)
{
    AddMany(0, 101, "again");
    (void)Written();
    EXPECT_EQ(m_repeated.NextTime(), START + seconds(1));
    m_repeated.Flush();
    EXPECT_EQ(Written(), (Strings{Line(100, "... and 1 more of: again")}));
    EXPECT_EQ(m_repeated.NextTime(), CRepeatedLines::TIME::max());
    Add(500, "again");
    EXPECT_EQ(Written(), Strings{}) << "still in the same second";
    Add(1000, "again");
    EXPECT_EQ(Written(), (Strings{Line(500, "... and 1 more of: again"), Line(1000, "again")}));
}

TEST_F(RepeatedLines, ANewSecondHasAHundredOfItsOwn)
{
    AddMany(0, 100, "again");
    AddMany(1000, 101, "again");
    EXPECT_EQ(Written().size(), 200u);
    EXPECT_EQ(m_repeated.NextTime(), START + seconds(2));
}

TEST_F(RepeatedLines, AreThoseOfOneClassAndText)
{
    for (int i = 0; i < 300; ++i)
        Add(i, "text", i % 2 == 0 ? " [INF] : " : " [ERR] : ");
    for (int i = 0; i < 300; ++i)
        Add(i, i % 2 == 0 ? "text" : "texts");
    EXPECT_EQ(Written().size(), 600u);
}

TEST_F(RepeatedLines, ALineWithoutAClassIsCountedToo)
{
    for (int i = 0; i < 102; ++i)
        Add(i, "plain", "");
    m_repeated.Flush();
    EXPECT_EQ(Written().back(), Line(101, "... and 2 more of: plain", ""));
}
