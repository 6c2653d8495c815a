#pragma once

#include "client/Decode.h"

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

// The reports and statistics that a GU client can ask for, and the fixed records of the other channels.

/// Parameters of a report's request.
enum PARAM_FORM : uint8_t
{
    PARAM_PERIOD, // u8 switch, u8 0, u16 period in ms
    PARAM_CELL,   // u8 switch, u8 2, u16 period
    PARAM_BLER,   // u16 3 to start, 0 to stop, u16 period
    PARAM_SWITCH, // u8 switch, 3 bytes 0
    PARAM_WORD,   // u32 switch
    PARAM_ONCE,   // u32 0: one question, one report; there is no stop
    PARAM_QUERY,  // u32 0: one question, whose answer is the confirm
};

struct REPORT_ROW
{
    const char* pszName;
    uint16_t usReq; // ids of modem 0
    uint16_t usCnf;
    uint16_t usInd; // 0: none
    uint8_t ucType; // packet type of the request
    PARAM_FORM enForm;
    uint16_t usPeriodMs;            // unless the user gives one
    uint16_t usModemStep;           // added to the three ids for modem 1; 0: there is no such report of modem 1
    const RECORD_LAYOUT* pstLayout; // of the indication (PARAM_QUERY: of the confirm); null when it isn't fixed
    const char* pszWhat;
    uint16_t usOtherCnf = 0; // a second id under which the confirm may come
};

/// A report of one of the two modems.
struct REPORT_ID
{
    const REPORT_ROW* pstRow = nullptr;
    unsigned int ulModem = 0;

    uint16_t Step() const { return ulModem == 0 ? uint16_t{0} : pstRow->usModemStep; }
    uint16_t Req() const { return static_cast<uint16_t>(pstRow->usReq + Step()); }
    uint16_t Cnf() const { return static_cast<uint16_t>(pstRow->usCnf + Step()); }
    uint16_t Ind() const { return static_cast<uint16_t>(pstRow->usInd + Step()); }
    bool IsCnf(uint16_t usId) const { return usId == Cnf() || (usId == pstRow->usOtherCnf && usId != 0); }
    bool IsInd(uint16_t usId) const { return pstRow->usInd != 0 && usId == Ind(); }
};

std::span<const REPORT_ROW> GuReports();
std::span<const REPORT_ROW> StatReports();

/// The row of a name; null when there is none.
const REPORT_ROW* FindReport(std::span<const REPORT_ROW> rows, std::string_view strName);
/// The report that a client request id starts, of either modem; pstRow is null when there is none.
REPORT_ID FindReportByReq(std::span<const REPORT_ROW> rows, uint16_t usReq);
/// The same among all rows by the id of a confirm or an indication.
REPORT_ID FindReportByAnswer(uint16_t usId);

/// Parameters of the request that starts or stops a report.
std::vector<unsigned char> ReportParams(PARAM_FORM enForm, bool bStart, uint16_t usPeriodMs);
/// Result of a confirm, DIAG_RC_...: a refusal stands in ulRc, or in the first word of a confirm that the UE or a trace
/// report answers with.
uint32_t ConfirmResult(PARAM_FORM enForm, uint32_t ulRc, ByteView payload);

/// Layout of an answer or a status record of the agent; null when it has none.
const RECORD_LAYOUT* AnswerLayout(uint32_t ulCmdId);
/// Layout of an LTE indication by its kind and length; null when it has none. Measurement records are told by their
/// lengths, since their ids stand in the agent's configuration only.
const RECORD_LAYOUT* IndicationLayout(uint16_t usPktType, size_t szLen);

/// What stands behind these two.
struct ANSWER_ROW
{
    uint32_t ulCmdId;
    const RECORD_LAYOUT* pstLayout;
};
struct MEASUREMENT_ROW
{
    size_t szLen;
    const RECORD_LAYOUT* pstLayout;
    const char* pszShort; // name in addresses and ids
};
std::span<const ANSWER_ROW> AnswerLayouts();
std::span<const MEASUREMENT_ROW> MeasurementLayouts();
const RECORD_LAYOUT& MessageLayout(); // of air and IMS messages
