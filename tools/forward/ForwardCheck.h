#pragma once

#include "forward/ForwardOptions.h"

/// Says line by line whether spool, connection, stream, bucket and permissions are good; stores nothing at the hub.
FORWARD_EXIT CheckForward(const FORWARD_OPTIONS& stOptions, std::ostream& out);
