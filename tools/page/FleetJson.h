#pragma once

#include "page/FleetBoard.h"

#include <nlohmann/json_fwd.hpp>

// The views of a fleet as JSON, as docs/page.md describes them.

nlohmann::ordered_json FleetJson(const CFleetBoard& board);
nlohmann::ordered_json BenchJson(const CFleetBoard& board, const FLEET_BENCH& stBench);
