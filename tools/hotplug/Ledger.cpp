#include "hotplug/Ledger.h"

CLedger::CLedger(std::span<const uint32_t> unknown)
{
    for (const uint32_t ulNumber : unknown)
        m_told.emplace(ulNumber, std::nullopt);
}

void CLedger::Want(std::span<const PORT_ROW> rows)
{
    m_wanted.clear();
    for (const PORT_ROW& stRow : rows)
        if (stRow.enFate == PORT_FATE::SERVED)
            m_wanted[stRow.ulNumber] = {{stRow.ulNumber, static_cast<uint8_t>(stRow.pRule->enRole),
                                         DEVICE_MONITOR_INFO_STRU::ARRIVED, stRow.stPort.strName,
                                         stRow.stPort.strModem},
                                        stRow.ullVisit};
}

std::optional<DEVICE_MONITOR_INFO_STRU> CLedger::Next()
{
    for (const auto& [ulNumber, stTold] : m_told) {
        const auto wanted = m_wanted.find(ulNumber);
        if (wanted != m_wanted.end() && (!stTold || *stTold == wanted->second))
            continue;
        m_asked = {ulNumber, std::nullopt};
        DEVICE_MONITOR_INFO_STRU stRecord = stTold ? stTold->stArrival : DEVICE_MONITOR_INFO_STRU{};
        stRecord.ulPortNum = ulNumber;
        stRecord.barrive = DEVICE_MONITOR_INFO_STRU::LEFT;
        return stRecord;
    }
    for (const auto& [ulNumber, stWanted] : m_wanted) {
        const auto told = m_told.find(ulNumber);
        if (told != m_told.end() && told->second)
            continue;
        m_asked = {ulNumber, stWanted};
        return stWanted.stArrival;
    }
    return std::nullopt;
}

void CLedger::Told()
{
    if (m_asked.second)
        m_told[m_asked.first] = m_asked.second;
    else
        m_told.erase(m_asked.first);
}
