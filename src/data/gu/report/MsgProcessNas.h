#pragma once

#include "data/gu/report/MsgProcess.h"

/// Base of the one-shot queries of the NAS: one client request, one UE request, one indication, one report. The
/// period of the packet counts the answers still awaited.
class CNasQueryMsg : public IMsgProcess
{
public:
    using IMsgProcess::IMsgProcess;
    /// Parameters with a first 32-bit other than 0 are refused with result 1.
    bool SendReqToUe(ByteView request) override;

protected:
    /// Receiver of the query.
    virtual unsigned int QueryPid() const { return m_ulPid; }
    /// True when an answer is awaited; it is counted as come then.
    bool TakeAnswer(unsigned short usReqPacket);
};

/// GPRS attach status.
class CGPRSStatusNasMsg : public CNasQueryMsg
{
public:
    using CNasQueryMsg::CNasQueryMsg;
    bool ProcessInd(ByteView packet) override;

protected:
    unsigned int QueryPid() const override;
};

/// Data counters, three periodic reports.
class CGPRSDataNasMsg : public IMsgProcess
{
public:
    using IMsgProcess::IMsgProcess;
    bool ProcessInd(ByteView packet) override;
    bool SendReqToUe(ByteView request) override { return SendTransReqToUe(request); }
};

/// PDP contexts.
class CGPRSPdpContextNasMsg : public CNasQueryMsg
{
public:
    using CNasQueryMsg::CNasQueryMsg;
    /// False for more contexts than there can be.
    bool ProcessInd(ByteView packet) override;
};

/// QoS of the PDP context.
class CGPRSPdpContextQosNasMsg : public CNasQueryMsg
{
public:
    using CNasQueryMsg::CNasQueryMsg;
    bool ProcessInd(ByteView packet) override;
};
