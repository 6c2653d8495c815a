#pragma once

#include "uesim/SimUe.h"

#include <functional>
#include <span>
#include <string>
#include <vector>

// What the GU side reports: payloads with values that change from one message to the next. ulRound counts the
// messages of one kind; the same round gives the same bytes, so a test can work them out.

using GuPayload = std::vector<unsigned char>;
using GuBuilder = GuPayload (*)(unsigned int ulRound, const UE_IDENTITY& stIdentity);

/// A report that a transparent request starts and stops.
struct GU_REPORT_ROW
{
    uint16_t usRequest;
    uint16_t usConfirm; // 0: none
    uint16_t usIndication;
    GuBuilder pfnBuild;
    int nGroup = -1;    // in the GAS road test the requests of three groups share one id; -1: no group
    bool bOnce = false; // one answer a request
};
std::span<const GU_REPORT_ROW> GuReports();

/// A message that a task sends while it is traced.
struct GU_TRACE_ROW
{
    uint32_t ulPid;       // of the first modem's task
    uint32_t ulSecondPid; // of the second modem's, 0: none
    uint16_t usName;
    GuBuilder pfnBuild;
};
std::span<const GU_TRACE_ROW> GuTraces();

/// An over-the-air switch: its confirm and the messages that follow while it is on.
struct GU_OTA_ROW
{
    uint16_t usRequest;
    unsigned int ulModem;
    uint16_t usConfirm;
    uint16_t usIndication;
};
std::span<const GU_OTA_ROW> GuOtas();
GuPayload BuildOta(unsigned int ulRound, const UE_IDENTITY& stIdentity);
