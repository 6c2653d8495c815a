#pragma once

#include "data/gu/base/GuOperation.h"

class CMsgDisp;
class CTraceReqCounter;

// GetModemNum: what the UE said about its cards.
constexpr unsigned int MODEM_NUM_SINGLE = 0;
constexpr unsigned int MODEM_NUM_DUAL = 1;
constexpr unsigned int MODEM_NUM_UNKNOWN = 2;

/// What the report makers need of the GU operation beside the rest. Any thread.
class IReportOperation : public IGuOperation
{
public:
    /// Tells the UE which PIDs to trace.
    virtual void BuildTraceReqMsg() = 0;

    virtual unsigned int GetModemNum() const = 0;
    virtual CMsgDisp* GetTransMsgDisp() const = 0;
    virtual CTraceReqCounter& TraceCounter() = 0;
};
