#pragma once

#include "common/UeConnectionAck.h"
#include "common/xtl.h"
#include "data/DataProcessor.h"
#include "data/NvWrite.h"

#include <array>
#include <map>
#include <memory>
#include <vector>

/// The channel on which a diag client talks to its modem. Client side: requests become UE packets of the configured
/// layout, some are answered by the agent itself, DPI messages become UE commands, the air/event/user-plane switch
/// becomes up to three. UE side: acks are filtered and renamed into what the client asked for. Both sides together
/// make the read-modify-write of an NV item.
class CDataProcessorLteDiag : public CDataProcessor
{
public:
    using CRequests = std::vector<unsigned char>;       // requests back to back, each its head and usLen bytes
    using CAcks = std::array<DIAG_PACKET_ACK_VIEW, 32>; // acks that a filter emits; payloads lie in the UE packet

    CDataProcessorLteDiag(IBindings* pBindings, IClientPort* pClient);

    // Client to UE (DpLteDiag.cpp).

    int ProcessClientData(ByteView packet) override;
    /// Sends a request to the bound UE. False, and an ack DIAG_RC_NOT_BOUND, when the client isn't bound or the
    /// channel isn't up. A request that can't be encoded is dropped with a warning; true.
    bool SendReq2UE(const DIAG_PACKET_REQ_VIEW& stReq, unsigned char ucCmdType);
    /// Encodes a request by the configured header. False when it is too long or memory is short.
    static CPacket BuildUeBuf(const DIAG_PACKET_REQ_VIEW& stReq, unsigned char ucCmdType);
    /// The encoder itself: header plus payload bytes. False when memory is short.
    static CPacket BuildReqPacketVx(const ADE_REQ_PACKET_STRU& stReq);
    /// Puts the OSA header in front of the parameters of a DPI message. False without PIDs for the id, and for
    /// parameters that wouldn't fit a request then.
    static bool BuildDiagReqPacketByDpi(unsigned int ulUeVersion, unsigned int ulDpi, unsigned int ulCmd,
                                        const DIAG_PACKET_REQ_VIEW& stIn, CRequests& out);
    /// One client switch into the requests of the UE: air, event, user plane, those that have entries.
    /// DIAG_RC_FAIL for no entry or more than 200.
    static unsigned int DoAirLayerEventUserPlaneReqFilter(const DIAG_PACKET_REQ_VIEW& stIn, CRequests& out,
                                                          unsigned int& ulCount, unsigned int ulPort);

    // UE to client (DpLteDiagAck.cpp).

    int ProcessSerialData(ByteSpan data) override;
    /// Sorts a UE packet by the configured layout; enCategory is PACKET_CATEGORY_INVALID unless the packet could be
    /// sorted. DIAG_RC_OK, _BAD_LENGTH, _BAD_FIELD or _BAD_HEADER.
    static unsigned int GetPacketType(ByteView packet, PACKET_CATEGORY_ENUM& enCategory);
    static bool IsMgrAckPacketId(unsigned int ulId);
    /// Reads a UE ack by the configured header; stAck.pData points into the packet. False refuses the packet.
    static bool GetAdeAck(ByteView packet, ADE_ACK_PACKET_STRU& stAck);
    static bool IsMspCmd(unsigned int ulId) { return IdClass(ulId) == ID_CLASS_MSP_CMD; }
    /// Whether an id is one of the report switches that the agent sends by itself.
    static bool IsIdInDspSwitch(unsigned int ulId);
    /// Filters and sends.
    void ProcessDiagAck(DIAG_PACKET_ACK_VIEW stAck);
    /// What the client sees of an ack: the ulCount acks of out, or stIn, as it is left, when there are none.
    /// DIAG_RC_OK or DIAG_RC_FILTERED.
    unsigned int AckFilter(DIAG_PACKET_ACK_VIEW& stIn, CAcks& out, unsigned int& ulCount);
    static unsigned int DoAirLayerEventUserPlaneAckFilter(const DIAG_PACKET_ACK_VIEW& stIn, DIAG_PACKET_ACK_VIEW& stOut,
                                                          unsigned int& ulCount, unsigned int ulPort);
    /// Splits an ack by the bit set behind its head; its usLen counts from there. DIAG_RC_FILTERED without one.
    static unsigned int DoAckPacketParamSpliyViaBit(unsigned int ulId, const DIAG_PACKET_ACK_VIEW& stIn, CAcks& out,
                                                    unsigned int& ulCount);
    /// Second step of an NV write: the item was read, now it is changed and written back. Gives the UE's result, or
    /// DIAG_RC_FAIL for a read that doesn't hold the item.
    unsigned int SendWriteNvReq(const DIAG_PACKET_ACK_VIEW& stAck);

private:
    struct AGENT_CMD_ROW
    {
        unsigned int ulCmdId;
        void (CDataProcessorLteDiag::*pfnProcess)(const DIAG_PACKET_REQ_VIEW& stReq);
    };
    static const AGENT_CMD_ROW c_astAgentCmd[];

    void ProcessDiagReq(const DIAG_PACKET_REQ_VIEW& stReq);
    void ProcessDiagMsg(const DIAG_PACKET_REQ_VIEW& stReq);
    void ProcessDiagCmd(const DIAG_PACKET_REQ_VIEW& stReq);
    void ProcessDiagAgent(const DIAG_PACKET_REQ_VIEW& stReq);
    void ProcessUEVerQuery(const DIAG_PACKET_REQ_VIEW& stReq);
    void ProcessBindReq(const DIAG_PACKET_REQ_VIEW& stReq);
    void ProcessChannelQuery(const DIAG_PACKET_REQ_VIEW& stReq);
    void ProcessTimeStampQuery(const DIAG_PACKET_REQ_VIEW& stReq);
    void ProcessAgentConfig(const DIAG_PACKET_REQ_VIEW& stReq);
    /// First step of an NV write: keeps the descriptor and reads the item. A descriptor that still waits for its
    /// item stays, and the new one is ignored.
    void ProcessNVWrite(const DIAG_PACKET_REQ_VIEW& stReq);

    void AckNotBound(unsigned int ulCmdId, unsigned short usPktType);
    bool GetConnection(ADE_UE_CONNECTION_ACK_STRU& stConnection);
    /// False when memory is short or too many writes wait already.
    bool KeepNvWrite(const NV_WRITE_STRU& stWrite);
    std::unique_ptr<NV_WRITE_STRU> TakeNvWrite(unsigned int ulNvId);
    void AckNvWrite(const DIAG_PACKET_ACK_STRU& stAck, unsigned int ulRc, unsigned int ulSecondWord);
    unsigned int FilterCmdAck(const DIAG_PACKET_ACK_VIEW& stIn, CAcks& out, unsigned int& ulCount);
    unsigned int FilterDpiAck(DIAG_PACKET_ACK_VIEW& stIn, CAcks& out, unsigned int& ulCount);

    xtl::Mutex m_NvMutex; // around the map alone, never held across a send
    /// NV writes whose item has been asked for, by NV id.
    std::map<unsigned int, std::unique_ptr<NV_WRITE_STRU>> m_mapNvWrite GUARDED_BY(m_NvMutex);
};
