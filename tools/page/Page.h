#pragma once

#include "page/PageOptions.h"

#include <iosfwd>
#include <string>
#include <vector>

/// The whole program: serves until SIGTERM or SIGINT. What an operator may want to know goes to errors, line by line.
PAGE_EXIT RunPage(std::vector<std::string> args, std::ostream& out, std::ostream& errors);
