#pragma once

#include "common/ConfigForm.h"

#include <optional>

/// All that is wrong or strange in the text of a configuration file, by line. Port names are looked for on this
/// machine.
std::vector<CONFIG_FINDING> CheckConfig(const std::string& strText);

/// The whole file, NUL bytes included; nothing, with errno, when it can't be read.
std::optional<std::string> ReadConfigText(const std::string& strPath);

/// "FILE:LINE: error: TEXT" or "FILE:LINE: warning: TEXT".
std::string FindingText(const std::string& strFile, const CONFIG_FINDING& stFinding);
