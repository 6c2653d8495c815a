#pragma once

#include "data/gu/report/MsgProcessGdsp.h"

/// AMR modes of a call with their hystereses and thresholds.
class CAmrSettingMsg : public CGphyMsgProcess
{
public:
    using CGphyMsgProcess::CGphyMsgProcess;
    /// False for more modes than there can be.
    bool ProcessInd(ByteView packet) override;
};

/// How often each AMR mode is used, by two sets of counters.
class CAmrCodecUsageMsg : public CGphyMsgProcess
{
public:
    using CGphyMsgProcess::CGphyMsgProcess;
    /// False for more modes than there can be.
    bool ProcessInd(ByteView packet) override;
};

/// Shares of the eight AMR codecs, two reports of two counter blocks each.
class CAmrCodecStatMsg : public CGphyMsgProcess
{
public:
    using CGphyMsgProcess::CGphyMsgProcess;
    bool ProcessInd(ByteView packet) override;

private:
    void Report(unsigned short usPacket, ByteView blocks, unsigned int ulTimeStamp);
};
