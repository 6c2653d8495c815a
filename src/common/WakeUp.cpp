#include "common/WakeUp.h"

#include <sys/eventfd.h>

CWakeUp::CWakeUp() : m_Fd(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {}

void CWakeUp::Ring()
{
    if (m_Fd.IsOpen())
        (void)eventfd_write(m_Fd.Get(), 1); // fails only when the wake-up is already far overdue
}

void CWakeUp::Rise()
{
    if (m_bAsleep.exchange(false) || !m_Fd.IsOpen())
        return; // nobody rang
    eventfd_t ullCount = 0;
    (void)eventfd_read(m_Fd.Get(), &ullCount);
}
