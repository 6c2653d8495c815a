#pragma once

#include "data/gu/report/MsgProcess.h"

/// Road test of the GSM access stratum: eleven reports in three groups. A group is one kind of indication, which the
/// UE sends while a packet of the group runs.
class CGasRoadTestInfoMsg : public IMsgProcess
{
public:
    CGasRoadTestInfoMsg(CMsgDisp* pMsgDisp, const MSG_PROCESS_ROW& stRow, unsigned int ulModem);

    /// False for an unknown kind of indication.
    bool ProcessInd(ByteView packet) override;
    bool SendReqToUe(ByteView request) override;

    // One for each kind of indication. The packet's reports go out in the order of their table.
    void ProcessMeasResult(ByteView packet) { ReportGroup(GROUP_MEAS_RESULT, packet); }
    void ProcessScellPara(ByteView packet) { ReportGroup(GROUP_SCELL_PARA, packet); }
    void ProcessScellDchChanPara(ByteView packet) { ReportGroup(GROUP_SCELL_DCH_CHAN_PARA, packet); }

    // Kinds of indications.
    static constexpr unsigned short GROUP_MEAS_RESULT = 0;
    static constexpr unsigned short GROUP_SCELL_PARA = 1;
    static constexpr unsigned short GROUP_SCELL_DCH_CHAN_PARA = 2;
    static constexpr size_t GROUP_COUNT = 3;

private:
    struct REPORT_ROW;
    static const REPORT_ROW c_astReport[];

    // The builders: body of the indication to report, which comes cleared and in its length.
    static void CalculateRadioParameter(ByteView body, ByteSpan report);
    static void CalculateServingAndNeighborCells(ByteView body, ByteSpan report);
    static void Calculate3GNeighborCellMeasurement(ByteView body, ByteSpan report);
    static void CalculateGprsStatusGasMeas(ByteView body, ByteSpan report);
    static void CalculateCcchParam(ByteView body, ByteSpan report);
    static void CalculateRachParam(ByteView body, ByteSpan report);
    static void CalculateReselectionParam(ByteView body, ByteSpan report);
    static void CalculateGprsStatusGas(ByteView body, ByteSpan report);
    static void CalculateCellParam(ByteView body, ByteSpan report);
    static void CalculateChannel(ByteView body, ByteSpan report);
    static void CalculateHoppingParam(ByteView body, ByteSpan report);

    void ReportGroup(unsigned short usGroup, ByteView packet);
    void Report(const REPORT_ROW& stRow, ByteView packet);
    bool IsValidPeriod(const CMsgPeriods& stPeriods, unsigned int ulPeriodMs) const;
    /// Counts a start or a stop of the group. True when the UE is to be told.
    bool Switch(CMsgPeriods& stPeriods, unsigned short usGroup, ByteView params);
    void SendGroupReq(unsigned char ucSwitch, unsigned short usGroup);

    std::map<unsigned short, unsigned short> m_mapGroup; // request packet id to group; fixed after construction
    std::array<int, GROUP_COUNT> m_anGroupCount{};       // running packets; the main thread only
};
