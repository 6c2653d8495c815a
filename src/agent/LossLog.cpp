#include "agent/LossLog.h"

#include "common/Debug.h"

#include <cerrno>

namespace
{
constexpr std::chrono::seconds SECOND(1);
constexpr int LINES_A_SECOND = 10;
} // namespace

void CLossLog::FrameTimedOut(TIME now)
{
    if (MayTell(now))
        CDebug::Instance()->PrintWarn("Client SendDataToClient select TimeOut, channel:%s, errno :%d", m_pszChannel,
                                      EAGAIN);
}

void CLossLog::FrameFailed(TIME now, size_t szLeft, size_t szTotal, int iError)
{
    if (MayTell(now))
        CDebug::Instance()->PrintError("Client SendDataToClient send Fail, channel:%s, lenth/total: %d/%d, errno :%d",
                                       m_pszChannel, static_cast<int>(szLeft), static_cast<int>(szTotal), iError);
}

void CLossLog::TellCount()
{
    if (m_ulMore > 0)
        CDebug::Instance()->PrintWarn("Client SendDataToClient select TimeOut, channel:%s, %u more frames lost",
                                      m_pszChannel, m_ulMore);
    m_ulMore = 0;
}

/// False for a frame that is only counted.
bool CLossLog::MayTell(TIME now)
{
    if (now >= m_SecondEnd) {
        TellCount();
        m_SecondEnd = now + SECOND;
        m_nTold = 0;
    }
    if (m_nTold == LINES_A_SECOND) {
        ++m_ulMore;
        return false;
    }
    ++m_nTold;
    return true;
}
