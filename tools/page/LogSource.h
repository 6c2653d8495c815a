#pragma once

#include <string>

/// The newest log file of that name: each run of the agent adds its start and ".d". A name that is a file is that file.
/// Empty when there is none.
std::string NewestLogFile(const std::string& strName);
