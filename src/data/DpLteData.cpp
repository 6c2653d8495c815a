#include "data/DpLteData.h"

#include "common/Debug.h"
#include "data/LteLayout.h"

CDataProcessorLteData::CDataProcessorLteData(IBindings* pBindings, IClientPort* pClient)
    : CDataProcessor(pBindings, pClient),
      m_stLayout(*CConfig::Instance()->GetFilterCfg()),
      m_stStart(CMeasClock::TimeOfDay())
{
    m_enChannelType = CHANNEL_LTE_DATA;
    m_pMeasStore->ulTimeoutMs = static_cast<uint32_t>(CConfig::Instance()->GetCellMeasTimeOut());
}

int CDataProcessorLteData::ProcessClientData(ByteView packet)
{
    if (packet.data() == nullptr) {
        CDebug::Instance()->PrintError("Lte Data Reques is NULL");
        return 0;
    }
    if (!ProcessBindCmd(ViewReq(packet)))
        CDebug::Instance()->PrintWarn("Invalid Command send to Lte Data channel");
    return 1;
}

int CDataProcessorLteData::ProcessSerialData(ByteSpan data)
{
    ADE_DATA_PACKET_STRU stPacket;
    if (BuildDataPacketVxHeader(data, stPacket) != DIAG_RC_OK)
        CDebug::Instance()->PrintError("build data packet fail");
    else
        ProcessDataPacket(stPacket);
    return 1;
}

unsigned int CDataProcessorLteData::BuildDataPacketVxHeader(ByteSpan packet, ADE_DATA_PACKET_STRU& stData)
{
    return DecodeDataPacket(m_stLayout, packet, stData);
}

void CDataProcessorLteData::ProcessDataPacket(ADE_DATA_PACKET_STRU& stPacket)
{
    PacketSequenceCalib(stPacket);
    unsigned int ulCount = 0;
    const CMeasClock clock(m_stStart);
    if (VEX_ClientIndFilter(stPacket, ulCount, {m_aucOut, *m_pMeasStore, clock, BindPort()}) == DIAG_RC_FILTERED)
        return;
    // Every other result passes: what the filter could not handle goes out as it stands at that moment.
    if (ulCount == 0) {
        SendDiagDataPacket2Client(stPacket);
        return;
    }
    for (unsigned int i = 0; i < ulCount; ++i)
        SendDiagDataPacket2Client(m_aucOut.astPacket[i]);
}

void CDataProcessorLteData::PacketSequenceCalib(ADE_DATA_PACKET_STRU& stPacket)
{
    if (m_ulCalibWindow == CALIB_OFF)
        return;
    if (stPacket.ullTimeStamp >= ullLastStamp) {
        ullLastStamp = stPacket.ullTimeStamp;
        return;
    }
    // The low words alone are compared, so a step back of a multiple of 2^32 counts as none; client tools see the
    // stamps so.
    const uint32_t ulStepBack = static_cast<uint32_t>(ullLastStamp) - static_cast<uint32_t>(stPacket.ullTimeStamp);
    if (ulStepBack < m_ulCalibWindow)
        stPacket.ullTimeStamp = ullLastStamp; // not 0 here, for something was below it
}

unsigned int CDataProcessorLteData::SendDiagDataPacket2Client(const ADE_DATA_PACKET_STRU& stPacket)
{
    if (stPacket.ulCmdId == 0)
        CDebug::Instance()->PrintWarn("before send data to client ulCmdId is ZERO");
    DIAG_PACKET_ACK_STRU stAck;
    stAck.ulCmdId = stPacket.ulCmdId;
    stAck.ulRc = stPacket.ulAckField;
    stAck.ullTimeStamp = stPacket.ullTimeStamp;
    stAck.usPktType = static_cast<uint16_t>(stPacket.ucIndType | stPacket.ucSysMode << 8 | stPacket.ucReserved << 12);
    if (m_pClient != nullptr && !SendClientPacket(*m_pClient, stAck, stPacket.pData)) {
        CDebug::Instance()->PrintInfo("DpLteData function SendDiagDataPacket2Client get memory faild");
        return DIAG_RC_NO_MEMORY;
    }
    return DIAG_RC_OK;
}
