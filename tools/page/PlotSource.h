#pragma once

#include "client/Reports.h"
#include "page/Plot.h"
#include "tap/TapRecord.h"

#include <optional>
#include <string>

/// A packet to a client that has something to plot.
struct PLOT_FRAME
{
    std::string strPlot; // id of the plot: "stat/decoding", "report/cells/1" for modem 1, "lte/cells"
    std::string strTitle;
    std::string strGroup;
    const RECORD_LAYOUT* pstLayout = nullptr;
    bool bSkipEmpty = false; // records that are all zero aren't there
    ByteView payload;        // inside the packet
};

/// What is to be plotted of a packet without its lead bytes; none for other packets. Costs little then.
std::optional<PLOT_FRAME> PlotFrameOf(uint8_t ucChannel, ByteView packet);
/// All numbers of a frame, under the names that a client prints.
PLOT_VALUES PlotValues(const PLOT_FRAME& stFrame);

/// Where users look for a report: "HSDPA", "HSUPA", "Power control", "GSM", "W", "Other".
std::string ReportGroup(const REPORT_ROW& stRow);
/// Whether the report is a register statistic.
bool IsStatistic(const REPORT_ROW& stRow);
/// Unit of a field by its name; empty when it doesn't say.
std::string UnitOf(const std::string& strField);
