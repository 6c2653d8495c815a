#pragma once

#include "page/FleetBoard.h"

/// What the page knows of a fleet, in the text format of Prometheus.
std::string FleetMetricsText(const CFleetBoard& board);
