#pragma once

#include "client/Reports.h"

#include <cstdint>
#include <string>
#include <string_view>

/// One wish of a viewer: a report or a statistic of a modem is to start or to stop.
struct CONTROL_ORDER
{
    unsigned int ulUe = 0;
    REPORT_ID stReport;      // pstRow points to a row of the tables
    bool bStat = false;      // of the statistics, not of the reports
    uint16_t usPeriodMs = 0; // 0 for what has none
    bool bStart = true;

    bool IsSame(const CONTROL_ORDER& stOther) const
    {
        return stReport.pstRow == stOther.stReport.pstRow && stReport.ulModem == stOther.stReport.ulModem;
    }
    bool HasEnd() const; // it runs until it is stopped
};

/// Whether a row answers once and is over.
bool IsOnce(PARAM_FORM enForm);
/// Whether its request has a period.
bool HasPeriod(PARAM_FORM enForm);

/// Reads {"ue", "kind": "stat" or "report", "name", "modem", "period_ms", "start"}; the last three may be left out.
/// False, with what is wrong, for anything else.
bool ParseOrder(std::string_view strBody, CONTROL_ORDER& stOrder, std::string& strError);
