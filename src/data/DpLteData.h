#pragma once

#include "data/DataProcessor.h"
#include "data/LteIndFilter.h"

/// Carries the stream of indications from a UE to its data client: each packet is read by the configured header,
/// its time stamp repaired, and the filter drops, passes, renames or rebuilds it. This is the system's hot path: a
/// packet is rewritten in place, and the only allocation is that of the packet for the client.
class CDataProcessorLteData : public CDataProcessor
{
public:
    CDataProcessorLteData(IBindings* pBindings, IClientPort* pClient);

    int ProcessClientData(ByteView packet) override;
    int ProcessSerialData(ByteSpan data) override;

    unsigned int BuildDataPacketVxHeader(ByteSpan packet, ADE_DATA_PACKET_STRU& stData);
    void ProcessDataPacket(ADE_DATA_PACKET_STRU& stPacket);
    /// Repair of the time stamp: one that steps back by less than the window becomes the highest one seen, so that
    /// the client's time axis never runs backwards over a jitter. A larger step back passes as it is.
    void PacketSequenceCalib(ADE_DATA_PACKET_STRU& stPacket);
    /// DIAG_RC_OK or DIAG_RC_NO_MEMORY.
    unsigned int SendDiagDataPacket2Client(const ADE_DATA_PACKET_STRU& stPacket);

protected:
    static constexpr unsigned int CALIB_OFF = 0xFFFFFFFF;

    std::unique_ptr<IDLE_MEAS_STORE> m_pMeasStore = std::make_unique<IDLE_MEAS_STORE>();
    unsigned int m_ulCalibWindow = 10; // ticks; CALIB_OFF switches the repair off

private:
    const FILTER_CFG_STRU& m_stLayout; // of the configuration, which outlives every client
    uint64_t ullLastStamp = 0;         // highest time stamp seen
    timeval m_stStart;                 // of the measurement clock: construction
    IND_OUTPUT m_aucOut;               // output area of the filter
};
