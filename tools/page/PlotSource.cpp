#include "page/PlotSource.h"

#include "client/Decode.h"
#include "client/Names.h"
#include "common/Types.h"
#include "data/DiagPacket.h"

#include <nlohmann/json.hpp>
#include <unordered_map>

using nlohmann::ordered_json;

namespace
{
/// The reports that have numbers, by the id of what carries them: the indication, or the answer to a question.
std::unordered_map<uint16_t, REPORT_ID> MakeReportIndex()
{
    std::unordered_map<uint16_t, REPORT_ID> index;
    for (const auto rows : {GuReports(), StatReports()})
        for (const REPORT_ROW& stRow : rows)
            for (const unsigned int ulModem : {0U, 1U}) {
                const REPORT_ID stId{&stRow, ulModem};
                const uint16_t usCarrier = stRow.enForm == PARAM_QUERY ? stId.Cnf() : stId.Ind();
                const REPORT_ID stFound = FindReportByAnswer(usCarrier); // as the client names it
                if (stRow.pstLayout != nullptr && stFound.pstRow == &stRow)
                    index.emplace(usCarrier, stFound);
            }
    return index;
}

const REPORT_ID* FindCarrier(uint16_t usId)
{
    static const std::unordered_map<uint16_t, REPORT_ID> s_index = MakeReportIndex();
    const auto found = s_index.find(usId);
    return found == s_index.end() ? nullptr : &found->second;
}

std::optional<PLOT_FRAME> GuFrame(const DIAG_PACKET_ACK_VIEW& stAck)
{
    const REPORT_ID* const pstId = FindCarrier(static_cast<uint16_t>(stAck.stHead.ulCmdId & 0xFFFF));
    if (pstId == nullptr || !IdName(stAck.stHead.ulCmdId).empty()) // a status record or an answer of the agent
        return std::nullopt;
    const REPORT_ROW& stRow = *pstId->pstRow;
    const bool bSecond = pstId->ulModem == 1 && stRow.usModemStep != 0;
    PLOT_FRAME stFrame;
    stFrame.strPlot = std::string(IsStatistic(stRow) ? "stat/" : "report/") + stRow.pszName + (bSecond ? "/1" : "");
    stFrame.strTitle = std::string(stRow.pszWhat) + (bSecond ? ", modem 1" : "");
    stFrame.strGroup = ReportGroup(stRow);
    stFrame.pstLayout = stRow.pstLayout;
    stFrame.payload = stAck.data;
    return stFrame;
}

std::optional<PLOT_FRAME> LteFrame(const DIAG_PACKET_ACK_VIEW& stAck)
{
    if ((stAck.stHead.usPktType & 0xFF) != IND_TYPE_LAYER)
        return std::nullopt;
    for (const MEASUREMENT_ROW& stRow : MeasurementLayouts())
        if (stRow.szLen == stAck.data.size())
            return PLOT_FRAME{std::string("lte/") + stRow.pszShort,
                              stRow.pstLayout->pszName,
                              "LTE",
                              stRow.pstLayout,
                              true,
                              stAck.data};
    return std::nullopt;
}

bool IsAllZero(const ordered_json& value)
{
    if (value.is_structured())
        return std::ranges::all_of(value, IsAllZero);
    return !value.is_number() || value == 0;
}

/// Adds the numbers inside a value, each under its path.
void Collect(const ordered_json& value, const std::string& strPath, bool bSkipEmpty, PLOT_VALUES& values)
{
    if (value.is_number()) {
        values.push_back({strPath, value.get<double>(), !value.is_number_float()});
    } else if (value.is_object()) {
        for (const auto& item : value.items())
            Collect(item.value(), strPath.empty() ? item.key() : strPath + '.' + item.key(), bSkipEmpty, values);
    } else if (value.is_array()) {
        for (size_t i = 0; i < value.size(); ++i)
            if (!bSkipEmpty || !value[i].is_object() || !IsAllZero(value[i]))
                Collect(value[i], strPath + '[' + std::to_string(i) + ']', bSkipEmpty, values);
    }
}
} // namespace

std::optional<PLOT_FRAME> PlotFrameOf(uint8_t ucChannel, ByteView packet)
{
    if (ucChannel == CHANNEL_GU_DATA || ucChannel == CHANNEL_GU_CMD)
        return GuFrame(ViewAck(packet));
    if (ucChannel == CHANNEL_LTE_DATA)
        return LteFrame(ViewAck(packet));
    return std::nullopt;
}

PLOT_VALUES PlotValues(const PLOT_FRAME& stFrame)
{
    PLOT_VALUES values;
    Collect(Decode(*stFrame.pstLayout, stFrame.payload), "", stFrame.bSkipEmpty, values);
    return values;
}

std::string ReportGroup(const REPORT_ROW& stRow)
{
    const std::string_view what = stRow.pszWhat;
    if (IsStatistic(stRow))
        return what.starts_with("HSUPA") ? "HSUPA" : what.starts_with("power control") ? "Power control" : "HSDPA";
    switch (stRow.usReq >> 8) {
    case 0xE5:
        return "GSM";
    case 0xB0:
    case 0xF0:
    case 0xF5:
        return "W";
    default:
        return "Other";
    }
}

bool IsStatistic(const REPORT_ROW& stRow)
{
    const auto rows = StatReports();
    return !std::less<>()(&stRow, rows.data()) && std::less<>()(&stRow, rows.data() + rows.size());
}

std::string UnitOf(const std::string& strField)
{
    static constexpr struct
    {
        std::string_view end, unit;
    } UNITS[] = {{"_db", "dB"}, {"kbit_per_s", "kbit/s"}, {"percent", "%"}, {"_bytes", "bytes"}};
    const std::string_view name = std::string_view(strField).substr(0, strField.find_last_not_of("0123456789[]") + 1);
    for (const auto& stUnit : UNITS)
        if (name.ends_with(stUnit.end))
            return std::string(stUnit.unit);
    return "";
}
