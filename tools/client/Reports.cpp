#include "client/Reports.h"

#include "data/DiagPacket.h"

#include <algorithm>

const REPORT_ROW* FindReport(std::span<const REPORT_ROW> rows, std::string_view strName)
{
    const auto row = std::ranges::find(rows, strName, &REPORT_ROW::pszName);
    return row == rows.end() ? nullptr : &*row;
}

REPORT_ID FindReportByReq(std::span<const REPORT_ROW> rows, uint16_t usReq)
{
    for (const REPORT_ROW& stRow : rows)
        for (const unsigned int ulModem : {0U, 1U})
            if (const REPORT_ID stId{&stRow, ulModem}; stId.Req() == usReq)
                return stId;
    return {};
}

REPORT_ID FindReportByAnswer(uint16_t usId)
{
    for (const auto rows : {GuReports(), StatReports()})
        for (const REPORT_ROW& stRow : rows)
            for (const unsigned int ulModem : {0U, 1U})
                if (const REPORT_ID stId{&stRow, ulModem}; stId.IsCnf(usId) || stId.IsInd(usId))
                    return stId;
    return {};
}

std::vector<unsigned char> ReportParams(PARAM_FORM enForm, bool bStart, uint16_t usPeriodMs)
{
    constexpr uint16_t BLER_START = 3;
    constexpr unsigned char CELL_MODE = 2;
    std::vector<unsigned char> params(4, 0);
    if (enForm == PARAM_ONCE || enForm == PARAM_QUERY)
        return params;
    const uint16_t usStart = enForm == PARAM_BLER ? BLER_START : uint16_t{1};
    StoreLe<uint16_t>(params, 0, bStart ? usStart : uint16_t{0});
    if (enForm == PARAM_CELL)
        params[1] = CELL_MODE;
    if (enForm == PARAM_PERIOD || enForm == PARAM_CELL || enForm == PARAM_BLER)
        StoreLe<uint16_t>(params, 2, usPeriodMs);
    return params;
}

uint32_t ConfirmResult(PARAM_FORM enForm, uint32_t ulRc, ByteView payload)
{
    return ulRc != DIAG_RC_OK || enForm == PARAM_QUERY ? ulRc : LoadLe<uint32_t>(payload, 0);
}
