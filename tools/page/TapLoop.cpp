#include "page/TapLoop.h"

#include <thread>

namespace
{
constexpr std::chrono::seconds CONNECT_PERIOD{1};
constexpr size_t BATCH = 4096; // records between two looks whether it is to stop
} // namespace

void CTapLoop::Run()
{
    while (const auto pTap = AwaitAgent())
        ReadRun(*pTap);
}

/// None when it is to stop. Says once that it waits, and again when the reason is another one.
std::unique_ptr<CTapConnection> CTapLoop::AwaitAgent()
{
    std::string strTold;
    std::chrono::steady_clock::time_point next{};
    for (; !m_stFeed.isStopped(); std::this_thread::sleep_for(TAP_READ_PERIOD)) {
        const auto now = std::chrono::steady_clock::now();
        if (now < next)
            continue;
        next = now + CONNECT_PERIOD;
        std::string strError;
        if (auto pTap = CTapConnection::Open(m_strTap, strError))
            return pTap;
        if (strTold != strError)
            m_stFeed.tell("waiting for an agent at " + strError);
        strTold = strError;
    }
    return nullptr;
}

void CTapLoop::ReadRun(CTapConnection& tap)
{
    m_stFeed.tell("watching the agent on " + tap.Hello().strHost);
    m_stFeed.begin(tap.Hello());
    bool bRing = true;
    for (bool bMore = true; bMore && bRing && !m_stFeed.isStopped();) {
        bMore = tap.Wait(TAP_READ_PERIOD);
        bRing = ReadRing(tap.Reader()); // what came before the end counts
    }
    m_stFeed.end();
    if (!bRing)
        m_stFeed.tell("what the agent shows can't be read; connecting again");
    else if (!m_stFeed.isStopped())
        m_stFeed.tell("the agent has ended");
}

/// All that is in the ring; false when what is there is no ring of an agent.
bool CTapLoop::ReadRing(CTapReader& reader)
{
    TAP_READ stRead;
    for (size_t szRead = 1; szRead % BATCH != 0 || !m_stFeed.isStopped(); ++szRead) {
        const CTapReader::RESULT enResult = reader.Next(stRead);
        if (enResult != CTapReader::RESULT::RECORD)
            return enResult == CTapReader::RESULT::NOTHING;
        m_stFeed.take(stRead.stRecord, stRead.bytes, stRead.ullLost);
    }
    return true;
}
