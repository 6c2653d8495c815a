#pragma once

#include "data/gu/report/MsgProcess.h"

#include <deque>

/// Base of the processors of the GSM physical layer.
class CGphyMsgProcess : public IMsgProcess
{
public:
    using IMsgProcess::IMsgProcess;
    bool SendReqToUe(ByteView request) override { return SendTransReqToUe(request); }

protected:
    /// The switch as 16-bit and 16 bits of 0, whatever the client gave.
    std::vector<unsigned char> UeReqParams(const DIAG_PACKET_REQ_VIEW& stReq) const override;
};

/// Payload of an earlier indication.
using UE_MSG_DATA_STRU = std::vector<unsigned char>;

/// Signal quality of the cells, smoothed over the last indications.
class CGsmCellSnrMsg : public CGphyMsgProcess
{
public:
    using CGphyMsgProcess::CGphyMsgProcess;
    /// False for more cells than there can be.
    bool ProcessInd(ByteView packet) override;
    /// Restarts the smoothing.
    bool ProcessCnf(ByteView packet) override;

    /// Enters the payload as the newest of the history, which forgets its oldest when it is full.
    void PushElem(ByteView payload);
    void ClearQueue() { m_dequeHistory.clear(); }
    /// Smoothes the cells in place with those of the history, the newest entry of which is this payload itself.
    void SmoothData(ByteSpan payload) const;

private:
    void SmoothCell(ByteSpan cell) const;
    void ReportCells(ByteView payload, unsigned int ulTimeStamp);
    void ReportMinimum(ByteView payload, unsigned int ulTimeStamp);

    std::deque<UE_MSG_DATA_STRU> m_dequeHistory; // the UE's thread only
};

/// BA list and the channels beside the serving one.
class CBaListMeasMsg : public CGphyMsgProcess
{
public:
    using CGphyMsgProcess::CGphyMsgProcess;
    /// False for more entries than there can be.
    bool ProcessInd(ByteView packet) override;

private:
    void ReportList(ByteView payload, unsigned int ulTimeStamp);
    void ReportAdjacent(ByteView payload, unsigned int ulTimeStamp);
};

/// Transmit info of a call: three words.
class CCsTxInfoMsg : public CGphyMsgProcess
{
public:
    using CGphyMsgProcess::CGphyMsgProcess;
    /// False for a payload of neither form, the packet's period being spent then.
    bool ProcessInd(ByteView packet) override;
};

/// Frame erasure rates of a call.
class CCsFerMsg : public CGphyMsgProcess
{
public:
    using CGphyMsgProcess::CGphyMsgProcess;
    bool ProcessInd(ByteView packet) override;
};

/// Current DSC, one word.
class CGetCurrentDscMsg : public CGphyMsgProcess
{
public:
    using CGphyMsgProcess::CGphyMsgProcess;
    bool ProcessInd(ByteView packet) override;
};
