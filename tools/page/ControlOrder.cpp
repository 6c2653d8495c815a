#include "page/ControlOrder.h"

#include "common/Types.h"

#include <nlohmann/json.hpp>

namespace
{
using nlohmann::json;

struct PERIODS
{
    uint16_t usLeast;
    uint16_t usMost;
};
constexpr PERIODS STAT_PERIODS{100, 2000};     // what the agent computes them at
constexpr PERIODS REPORT_PERIODS{100, 0xFFFF}; // the field's end; a shorter one would flood the modem

/// A whole number up to a limit; what isn't there is the default.
bool ReadNumber(const json& body, const char* pszName, uint32_t ulMost, uint32_t& ulNumber)
{
    const auto found = body.find(pszName);
    if (found == body.end() || found->is_null())
        return true;
    if (!found->is_number_unsigned() || found->get<uint64_t>() > ulMost)
        return false;
    ulNumber = found->get<uint32_t>();
    return true;
}

std::string Text(const json& body, const char* pszName)
{
    const auto found = body.find(pszName);
    return found != body.end() && found->is_string() ? found->get<std::string>() : std::string();
}

bool ReadReport(const json& body, CONTROL_ORDER& stOrder, std::string& strError)
{
    const std::string strKind = Text(body, "kind");
    const std::string strName = Text(body, "name");
    stOrder.bStat = strKind == "stat";
    if (!stOrder.bStat && strKind != "report")
        strError = "kind is stat or report";
    else if (stOrder.stReport.pstRow = FindReport(stOrder.bStat ? StatReports() : GuReports(), strName);
             stOrder.stReport.pstRow == nullptr)
        strError = "there is no " + strKind + " of the name '" + strName + "'";
    else if (uint32_t ulModem = 0; !ReadNumber(body, "modem", 1, ulModem))
        strError = "modem is 0 or 1";
    else if (stOrder.stReport.ulModem = ulModem; ulModem == 1 && stOrder.stReport.pstRow->usModemStep == 0)
        strError = strName + " has no form for modem 1";
    return strError.empty();
}

bool ReadPeriod(const json& body, CONTROL_ORDER& stOrder, std::string& strError)
{
    const REPORT_ROW& stRow = *stOrder.stReport.pstRow;
    if (!HasPeriod(stRow.enForm))
        return true;
    const PERIODS& stPeriods = stOrder.bStat ? STAT_PERIODS : REPORT_PERIODS;
    uint32_t ulPeriod = stRow.usPeriodMs;
    if (!ReadNumber(body, "period_ms", stPeriods.usMost, ulPeriod) || ulPeriod < stPeriods.usLeast)
        strError = "period_ms is from " + std::to_string(stPeriods.usLeast) + " to " + std::to_string(stPeriods.usMost);
    stOrder.usPeriodMs = static_cast<uint16_t>(ulPeriod);
    return strError.empty();
}

bool ReadStart(const json& body, CONTROL_ORDER& stOrder, std::string& strError)
{
    const auto found = body.find("start");
    if (found != body.end() && !found->is_boolean())
        strError = "start is true or false";
    else if (found != body.end())
        stOrder.bStart = found->get<bool>();
    if (!stOrder.bStart && IsOnce(stOrder.stReport.pstRow->enForm))
        strError = std::string(stOrder.stReport.pstRow->pszName) + " answers once, there is nothing to stop";
    return strError.empty();
}
} // namespace

bool CONTROL_ORDER::HasEnd() const
{
    return !IsOnce(stReport.pstRow->enForm);
}

bool IsOnce(PARAM_FORM enForm)
{
    return enForm == PARAM_ONCE || enForm == PARAM_QUERY;
}

bool HasPeriod(PARAM_FORM enForm)
{
    return enForm == PARAM_PERIOD || enForm == PARAM_CELL || enForm == PARAM_BLER;
}

bool ParseOrder(std::string_view strBody, CONTROL_ORDER& stOrder, std::string& strError)
{
    const json body = json::parse(strBody, nullptr, false);
    if (!body.is_object())
        strError = "the body is no JSON object";
    else if (!body.contains("ue") || !ReadNumber(body, "ue", MAXUENUM - 1, stOrder.ulUe))
        strError = "ue is the slot of a modem, from 0 to " + std::to_string(MAXUENUM - 1);
    return strError.empty() && ReadReport(body, stOrder, strError) && ReadPeriod(body, stOrder, strError) &&
           ReadStart(body, stOrder, strError);
}
