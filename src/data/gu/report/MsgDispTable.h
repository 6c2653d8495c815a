#pragma once

#include "data/gu/report/MsgProcess.h"

#include <span>

/// The processors of a dispatcher of kind MSG_DISP_TRANS or MSG_DISP_TRACE, in order of construction; none for
/// another kind.
std::span<const MSG_PROCESS_ROW> MsgProcessTable(unsigned int ulKind);
