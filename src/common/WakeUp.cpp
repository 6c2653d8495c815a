#include "common/WakeUp.h"

#include <sys/eventfd.h>
#include <utility>

CWakeUp::CWakeUp() : m_Fd(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {}

void CWakeUp::Ring()
{
    if (m_Fd.IsOpen())
        (void)eventfd_write(m_Fd.Get(), 1); // fails only when the wake-up is already far overdue
}

void CWakeUp::FallAsleep()
{
    Rise(); // should the last sleep have ended without it
    m_bDown = true;
    m_bAsleep = true;
}

void CWakeUp::Rise()
{
    if (!std::exchange(m_bDown, false))
        return;
    m_ullOwed += m_bAsleep.exchange(false) ? 0 : 1;
    if (m_ullOwed == 0 || !m_Fd.IsOpen())
        return;
    // A ring may arrive late, behind this look. It would end every wait from then on if nobody came back for it.
    eventfd_t ullCount = 0;
    if (eventfd_read(m_Fd.Get(), &ullCount) == 0)
        m_ullOwed -= ullCount;
}
