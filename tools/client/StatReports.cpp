#include "client/Reports.h"

#include "data/DiagPacket.h"
#include "data/gu/reg/RegStatTable.h"

#include <algorithm>
#include <iterator>

namespace
{
/// Periods from 100 to 2000 ms.
REPORT_ROW Stat(const REG_STAT_ROW& stRow)
{
    constexpr uint16_t PERIOD_MS = 500;
    return {stRow.pszName, stRow.usReq, RegCnfId(stRow.usReq), RegIndId(stRow.usReq), PKT_TYPE_GU_TRANS, PARAM_PERIOD,
            PERIOD_MS,     0,           &stRow.stResult,       stRow.stResult.pszName};
}
} // namespace

std::span<const REPORT_ROW> StatReports()
{
    static const std::vector<REPORT_ROW> s_rows = [] {
        std::vector<REPORT_ROW> rows;
        std::ranges::transform(RegStatTable(), std::back_inserter(rows), Stat);
        return rows;
    }();
    return s_rows;
}
