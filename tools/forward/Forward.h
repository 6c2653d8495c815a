#pragma once

#include "forward/ForwardOptions.h"

/// The whole program, with the arguments behind its name; gives its exit status. Catches SIGINT and SIGTERM.
FORWARD_EXIT RunForward(std::vector<std::string> args, std::ostream& out, std::ostream& errors);
