#pragma once

#include "common/Config.h"

#include <string_view>

/// The layout of the modems' LTE packets in the text of the configuration file, read as the agent does.
FILTER_CFG_STRU ReadPacketLayout(std::string_view text);
