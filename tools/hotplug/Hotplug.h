#pragma once

#include "hotplug/HotplugOptions.h"
#include "hotplug/PortSource.h"

#include <functional>
#include <memory>

/// Opens the source of ports; null, with the reason, when that can't be.
using OpenPortSource = std::function<std::unique_ptr<IPortSource>(std::string& strError)>;

/// The whole program, with the arguments behind its name; gives its exit status. Blocks SIGINT and SIGTERM.
HOTPLUG_EXIT RunHotplug(const std::vector<std::string>& args, const OpenPortSource& openSource, std::ostream& out,
                        std::ostream& errors);
