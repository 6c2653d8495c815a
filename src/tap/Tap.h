#pragma once

#include "tap/TapWriter.h"

/// The tap of this process while somebody observes it, else null: then there is nothing to write. From any thread.
CTapWriter* ObservedTap();
/// From now on this is the process's tap; null for none. The writer outlives every thread that may use it.
void SetTap(CTapWriter* pTap);
