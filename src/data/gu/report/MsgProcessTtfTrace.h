#pragma once

#include "data/gu/report/MsgProcess.h"

// Byte flow of the layers of the GSM packet data stack, counted from traced messages.

/// Counts bytes and reports them with their rate. Agent message thread.
class CMsgProcessThroughput
{
public:
    virtual ~CMsgProcessThroughput() = default;

    /// The bytes since the last report and their rate, which then start anew. The stamp is real time in 32768 Hz
    /// ticks; the first report after a start has no interval and the rate 0.
    virtual void SendIndPacketToClient(unsigned int ulTimeStamp, CMsgPeriods* pstPeriods, CMsgDisp* pDisp);

protected:
    CMsgProcessThroughput() = default;

    unsigned int m_ulBytes = 0;    // since the last report
    unsigned int m_ulLastTime = 0; // of the last report, ms
};

/// What the six traces share: one packet, and a byte count that each reads from its messages.
class CTraceThroughputMsg : public IMsgProcess, public CMsgProcessThroughput
{
public:
    using IMsgProcess::IMsgProcess;
    /// False for a message that gives no report.
    bool ProcessInd(ByteView packet) override;
    bool SendReqToUe(ByteView request) override { return SendTraceReqToUe(request, &m_ulPid, 1); }

protected:
    /// Bytes that a traced message carries.
    virtual unsigned int ByteCount(ByteView payload) const = 0;
};

// The byte counts, of a message's payload.
unsigned int SndcpUlBytes(ByteView payload);
unsigned int SndcpDlBytes(ByteView payload);
unsigned int LlcUlBytes(ByteView payload);
unsigned int LlcDlBytes(ByteView payload);
unsigned int RlcUlBytes(ByteView payload);
unsigned int RlcDlBytes(ByteView payload);

template <unsigned int (*pfnByteCount)(ByteView payload)> class CTraceLayerMsg : public CTraceThroughputMsg
{
public:
    using CTraceThroughputMsg::CTraceThroughputMsg;

protected:
    unsigned int ByteCount(ByteView payload) const override { return pfnByteCount(payload); }
};

using CTraceSNDCPUlMsg = CTraceLayerMsg<SndcpUlBytes>;
using CTraceSNDCPDlMsg = CTraceLayerMsg<SndcpDlBytes>;
using CTraceLLCUlMsg = CTraceLayerMsg<LlcUlBytes>;
using CTraceLLCDlMsg = CTraceLayerMsg<LlcDlBytes>;
using CTraceRLCUlMsg = CTraceLayerMsg<RlcUlBytes>;
using CTraceRLCDlMsg = CTraceLayerMsg<RlcDlBytes>;
