#include "data/gu/base/PeriodMsgFromUe.h"

#include "data/gu/base/GuPacket.h"

#include <utility>

void CPeriodMsgFromUe::Process(ByteView) {}
void CPeriodMsgFromUe::BeforReport() {}
void CPeriodMsgFromUe::AfterReport() {}

void CPeriodMsgFromUe::InsertData(ByteView data)
{
    const xtl::MutexGuard guard(m_Mutex);
    InsertDataUnlocked(data);
}

void CPeriodMsgFromUe::DeleteData()
{
    const xtl::MutexGuard guard(m_Mutex);
    DeleteDataUnlocked();
}

std::vector<unsigned char> CPeriodMsgFromUe::TakeData()
{
    const xtl::MutexGuard guard(m_Mutex);
    return std::exchange(m_data, {});
}

void CPeriodMsgFromUe::InsertDataUnlocked(ByteView data)
{
    m_data.assign(data.begin(), data.end());
}

void CPeriodMsgFromUe::DeleteDataUnlocked()
{
    m_data.clear();
}

bool CPeriodMsgFromUe::IsReport(unsigned int ulTimeStamp, unsigned int ulAdvance)
{
    const unsigned int ulMs = TicksToMs(ulTimeStamp);
    const unsigned int ulPeriod = m_usPeriod;
    if (ulPeriod == 0)
        return false;
    if (ulMs - m_ulLastReport + ulAdvance < ulPeriod)
        return false;
    m_ulLastReport = ulMs;
    return true;
}
