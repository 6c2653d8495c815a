#pragma once

#include "common/Config.h"

#include <string>
#include <string_view>

/// What the page needs of the agent's configuration.
struct PAGE_CONFIG
{
    /// The name with which the agent's log files begin; empty when it is relative (the page doesn't know to what) or
    /// when there is no log.
    std::string strLogName;
    FILTER_CFG_STRU stLayout; // of the modems' LTE packets
};

/// Reads the text of the configuration file, as the agent does.
PAGE_CONFIG ReadPageConfig(std::string_view text);
