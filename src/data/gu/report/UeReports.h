#pragma once

#include "data/DiagPacket.h"
#include "data/gu/base/PeriodMsgFromUe.h"
#include "data/gu/report/ChannelConfigReports.h"

#include <array>
#include <ctime>
#include <vector>

class IReportOperation;

// Requests for the UE's own reports.
constexpr unsigned short ID_BLER = 0xF020;
constexpr unsigned short ID_W_CELL = 0xB010;
constexpr unsigned short ID_GSM_NEIGHBOUR = 0xB016;
constexpr unsigned short ID_LTE_NEIGHBOUR = 0xB060;

/// Reports that the agent times and makes of the UE's own messages: W cells, neighbour cells, block errors, RLC and
/// bearer throughput, MAC-d flows, reordering queues. Requests come on the main thread, messages and ticks on the agent
/// message thread; each report is safe by itself.
class CUeReports
{
public:
    static constexpr size_t W_CELL_PARTS = 3;

    /// The operation of the reports' UE, which must outlive the object.
    explicit CUeReports(IReportOperation& operation) : m_operation(operation) {}
    CUeReports(const CUeReports&) = delete;
    CUeReports& operator=(const CUeReports&) = delete;

    // Requests.

    /// Stores the period that a start request for one of the UE's own reports asks for, clears it for anything else.
    /// False for a period out of range or an unknown switch.
    bool CheckReportPeriodValid(ByteView params, unsigned short usId);
    static bool CheckCellReportPeriodValid(ByteView params, CPeriodMsgFromUe& report);
    /// Starts or stops a report that the agent itself confirms; nothing for other ids.
    void ProcessRequest(const DIAG_PACKET_REQ_VIEW& stReq);

    // Messages of the UE.

    void StoreWCell(size_t szPart, ByteView packet) { m_aWCellReport[szPart].InsertData(packet); }
    void BuildWBlerIndPacket(ByteView packet);
    void BuildGSMNeighberIndPacket(ByteView packet);
    void BuildLTENeighberIndPacket(ByteView packet);
    /// The UE's RLC counters start now.
    void StartRlcTime(time_t now) { m_tRlcStart = now; }
    void BuildRlcReports(ByteView packet, time_t now);
    void OnMacConfirm(ByteView packet);
    void OnMacConfig(ByteView packet);
    /// The UE has gone: what a report behind it could be made of goes too.
    void Forget();

    /// A tick of 100 ms. Only a UE whose version is known has anything to report.
    void TimerProc(bool bVersionOk);

private:
    void RLC_ThroughputReqPro(const DIAG_PACKET_REQ_VIEW& stReq, CPeriodMsgFromUe& report);
    void MacHsConfigReqPro(const DIAG_PACKET_REQ_VIEW& stReq, CPeriodMsgFromUe& report);
    bool IsRlcReporting() const;
    void SendRlcSwitch(bool bEnable);

    void Timer_BuildIndPacket(CPeriodMsgFromUe& report);
    void Timer_BuildWCellIndPacket();
    bool JoinWCellParts(std::vector<unsigned char>& payload, unsigned int& ulTimeStamp);
    void SendByArrival(CPeriodMsgFromUe& report, ByteView packet, unsigned short usId, size_t szLen);
    void BuildMAC_dIndPacket(unsigned int ulTimeStamp);
    void BuildReorderingQueueIndPacket(unsigned int ulTimeStamp);
    void SendStored(CPeriodMsgFromUe& report, unsigned int ulTimeStamp, unsigned short usId);

    IReportOperation& m_operation;
    CPeriodMsgFromUe m_BlerReport;
    std::array<CPeriodMsgFromUe, W_CELL_PARTS> m_aWCellReport;
    CPeriodMsgFromUe m_GsmNeighbour;
    CPeriodMsgFromUe m_LteNeighbour;
    CPeriodMsgFromUe m_RlcUlReport;
    CPeriodMsgFromUe m_RbUlReport;
    CPeriodMsgFromUe m_RlcDlReport;
    CPeriodMsgFromUe m_RbDlReport;
    CPeriodMACMsgFromUe m_MacReport;
    CPeriodReorderingMsgFromUe m_ReorderReport;

    // The UE's thread only.
    unsigned int m_ulTick = 0;
    time_t m_tRlcStart = 0; // start of the UE's RLC counters, in seconds
};
