#pragma once

#include <iosfwd>

/// Writes every table that the dissector shares with the programs, as fields of the Lua table T.
void WriteFieldTables(std::ostream& out);
