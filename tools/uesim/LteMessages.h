#pragma once

#include "common/Config.h"
#include "uesim/Options.h"

#include <array>
#include <vector>

/// One message that a stream sends again and again, ready but for its head and its number.
struct LTE_MESSAGE
{
    uint32_t ulCmdId = 0;               // in the packet's head
    std::vector<unsigned char> payload; // behind the head
    size_t szNumberAt = 0;              // place in the payload of the running number
    size_t szNumberSize = 0;            // 4 or 2 bytes of it; 0: the payload has no place for it
    bool bPasses = false;               // the agent is to pass it on; all others carry no number at all
};

/// The messages of each class, several where a class has several forms. What the agent does with them follows from
/// its configuration: filters, bytes stripped, ids of the measurements. A class may be empty, when the
/// configuration lacks what it needs.
using LTE_MESSAGES = std::array<std::vector<LTE_MESSAGE>, LTE_CLASS_COUNT>;
LTE_MESSAGES MakeLteMessages(const CConfig& config, const UESIM_OPTIONS& stOptions);
