#pragma once

#include "page/PacketStore.h"
#include "page/Plot.h"

#include <optional>
#include <span>
#include <string>

/// A capture file of the records from ullFrom (ns since 1970) on, of one UE or of all, as vex-capture writes it: what
/// was there at its start comes first.
std::string CaptureFile(const CPacketSnapshot& snapshot, uint64_t ullFrom, uint64_t ullNow, std::optional<uint8_t> ue);

/// "time" and the names of the lines, then a row a point: ISO 8601 with ms, UTC; empty where a line has no value.
std::string PlotCsv(const std::vector<PLOT_LINE>& lines, std::span<const PLOT_POINT> points);
