#pragma once

#include "fleet/FleetState.h"

#include <vector>

/// The benches for people, one a line below a heading, by name. ullNow: ms since 1970, as in the states.
std::string BenchTable(std::vector<FLEET_BENCH_STATE> benches, uint64_t ullNow);

/// "0", "812", "1.5k", "28M": short, with two digits at least above 1000.
std::string ShortNumber(double dNumber);
