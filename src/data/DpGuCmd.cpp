#include "data/DpGuCmd.h"

#include "agent/Agent.h"
#include "common/Debug.h"
#include "data/gu/OperationGUData.h"

// m_enChannelType keeps the base's zero; no request of this channel passes code that reads it.
CDataProcessorGuCmd::CDataProcessorGuCmd(CAgent* pAgent, CClient* pClient, CUEManager* pUEManager)
    : CDataProcessor(pAgent, pClient, pUEManager)
{
}

int CDataProcessorGuCmd::ProcessClientData(ByteView packet)
{
    if (packet.data() == nullptr)
        return 0;
    const DIAG_PACKET_REQ_VIEW stReq = ViewReq(packet);
    CDebug::Instance()->PrintInfo("Client to UE(com %d): gu cmd id is 0x%x, line:%d", BindPort(), stReq.stHead.ulCmdId,
                                  __LINE__);
    COperationGUData* pOperation = m_pAgent != nullptr ? m_pAgent->GetOperationGUFromClient(m_pClient) : nullptr;
    if (ProcessBindCmd(stReq))
        return 1;
    if (pOperation != nullptr)
        pOperation->TranslateProbePacket(packet, m_pAgent, m_pClient);
    else
        CDebug::Instance()->PrintInfo("POperationGUData IS NULL");
    return 1;
}

int CDataProcessorGuCmd::ProcessSerialData(ByteSpan /*data*/)
{
    return 0;
}
