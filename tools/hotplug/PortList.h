#pragma once

#include "hotplug/Modems.h"

#include <iosfwd>

/// The ports as a table with a head; a line that says so when there are none.
void PrintPortTable(std::ostream& out, std::span<const PORT_ROW> rows);
/// The ports as a JSON array.
void PrintPortJson(std::ostream& out, std::span<const PORT_ROW> rows);
