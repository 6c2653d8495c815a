#pragma once

#include "capture/CaptureOptions.h"

/// The whole program: parses the arguments, captures until a stop signal, the given time or count. bTerminal: whether
/// the errors go to one.
CAPTURE_EXIT RunCapture(std::vector<std::string> args, std::ostream& out, std::ostream& errors, bool bTerminal);
