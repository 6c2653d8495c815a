#pragma once

#include <string>
#include <string_view>

/// The name with which the agent's log files begin, as its configuration has it; empty when it is relative (the page
/// doesn't know to what) or when there is no log.
std::string LogNameOf(std::string_view configuration);

/// The newest log file of that name: each run of the agent adds its start and ".d". A name that is a file is that file.
/// Empty when there is none.
std::string NewestLogFile(const std::string& strName);
