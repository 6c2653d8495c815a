#pragma once

#include "page/PageState.h"

#include <nlohmann/json_fwd.hpp>

// The parts of the views as JSON, as docs/page.md describes them.

nlohmann::ordered_json OverviewJson(const PAGE_STATE& stState);
nlohmann::ordered_json ModemJson(const PAGE_STATE& stState, const PAGE_MODEM& stModem);
/// What a plot is, without its points.
nlohmann::ordered_json PlotJson(const std::string& strId, const CPlotStore::ENTRY& stEntry, double dNow);
nlohmann::ordered_json PlotsJson(const PAGE_STATE& stState, unsigned int ulUe);
/// {"t", "v"} of points in a row.
nlohmann::ordered_json PointsJson(const std::vector<PLOT_LINE>& lines, std::span<const PLOT_POINT> points);
/// The points of the newest tick of each plot of a UE that has some.
nlohmann::ordered_json NewPointsJson(const PAGE_STATE& stState, unsigned int ulUe);
/// A value as a client prints it: an integer without a fraction.
nlohmann::ordered_json PlotNumber(const PLOT_LINE& stLine, double dValue);
/// A time for people and files: "2026-11-22T15:04:05.123Z", UTC.
std::string IsoTime(double dTime);
/// JSON text; bytes that aren't UTF-8 are replaced.
std::string JsonText(const nlohmann::ordered_json& value);
