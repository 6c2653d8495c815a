#include "page/TapLoop.h"
#include "support/RunningTap.h"
#include "support/VexProcess.h"
#include "support/WaitFor.h"

#include <gtest/gtest.h>
#include <mutex>

namespace
{
/// A loop on a thread of its own, and what it has told.
class CRunningLoop
{
public:
    explicit CRunningLoop(const std::string& strTap) : m_loop(strTap, Feed()), m_thread([this] { m_loop.Run(); }) {}
    ~CRunningLoop()
    {
        m_bStop = true;
        m_thread.join();
    }
    CRunningLoop(const CRunningLoop&) = delete;
    CRunningLoop& operator=(const CRunningLoop&) = delete;

    std::string Told()
    {
        const std::lock_guard guard(m_lock);
        return m_strTold;
    }
    bool Saw(const std::string& strText)
    {
        return WaitFor([&] { return Told().find(strText) != std::string::npos; });
    }

private:
    CTapLoop::FEED Feed()
    {
        return {
            [this](const TAP_HELLO&) { Add("begin;"); },
            [this](const TAP_RECORD&, ByteView bytes, uint64_t) { Add(std::string(bytes.begin(), bytes.end()) + ";"); },
            [this] { Add("end;"); }, [this](const std::string& strText) { Add("[" + strText + "]"); },
            [this] { return m_bStop.load(); }};
    }
    void Add(const std::string& strText)
    {
        const std::lock_guard guard(m_lock);
        m_strTold += strText;
    }

    std::mutex m_lock;
    std::string m_strTold;
    std::atomic<bool> m_bStop = false;
    CTapLoop m_loop;
    std::thread m_thread;
};

void Write(CRunningTap& tap, const std::string& strText)
{
    TAP_RECORD stRecord;
    stRecord.enKind = TAP_KIND::UE_TO_AGENT;
    tap.Writer().Write(stRecord, AsBytes(strText));
}
} // namespace

TEST(PageTapLoop, WaitsForAnAgentAndForTheNextOne)
{
    const CTempDir dir;
    const std::string strPath = dir.Path() + "/tap";
    CRunningLoop loop(strPath);
    ASSERT_TRUE(loop.Saw("[waiting for an agent at " + strPath + ": No such file or directory]"));
    for (const char* pszText : {"first", "second"}) {
        const size_t szBefore = loop.Told().size();
        CRunningTap tap(strPath);
        ASSERT_TRUE(tap.IsOpen()) << tap.Error();
        ASSERT_TRUE(WaitFor([&] { return loop.Told().find("begin;picture;", szBefore) != std::string::npos; }));
        Write(tap, pszText);
        ASSERT_TRUE(loop.Saw(std::string(pszText) + ";"));
    }
    ASSERT_TRUE(loop.Saw("second;end;[the agent has ended]"));
    EXPECT_EQ(loop.Told().find("[waiting"), 0U);
    EXPECT_NE(loop.Told().find("picture;first;end;[the agent has ended]"), std::string::npos);
}
