#pragma once

#include "data/RecordLayout.h"
#include "data/gu/reg/RegPeriodMsg.h"

#include <memory>
#include <span>

/// A register statistic: all that the agent, its tools, the fuzzer and the benchmark know of it by name or number.
struct REG_STAT_ROW
{
    unsigned short usReq; // id of the request, from which the two others follow
    std::unique_ptr<CPeriodRegMsgFromUe> (*pfnCreate)(const REG_STAT_SETUP&);
    const char* pszName;    // on command lines
    RECORD_LAYOUT stResult; // payload of the indication, with its name for people
};

/// Every statistic, by rising id.
std::span<const REG_STAT_ROW> RegStatTable();

/// Whether a client's request is one for a statistic.
bool IsRegStatRequest(unsigned short usReq);
