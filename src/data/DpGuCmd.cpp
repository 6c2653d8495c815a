#include "data/DpGuCmd.h"

#include "common/Debug.h"

// m_enChannelType keeps the base's zero; no request of this channel passes code that reads it.
CDataProcessorGuCmd::CDataProcessorGuCmd(IBindings* pBindings, IClientPort* pClient)
    : CDataProcessor(pBindings, pClient)
{
}

int CDataProcessorGuCmd::ProcessClientData(ByteView packet)
{
    if (packet.data() == nullptr)
        return 0;
    const DIAG_PACKET_REQ_VIEW stReq = ViewReq(packet);
    CDebug::Instance()->PrintInfo("Client to UE(com %d): gu cmd id is 0x%x, line:%d", BindPort(), stReq.stHead.ulCmdId,
                                  __LINE__);
    IGuRequests* pOperation = m_pBindings != nullptr ? m_pBindings->GetOperationGUFromClient(m_pClient) : nullptr;
    if (ProcessBindCmd(stReq))
        return 1;
    if (pOperation != nullptr)
        pOperation->TranslateProbePacket(packet, m_pBindings, m_pClient);
    else
        CDebug::Instance()->PrintInfo("POperationGUData IS NULL");
    return 1;
}

int CDataProcessorGuCmd::ProcessSerialData(ByteSpan /*data*/)
{
    return 0;
}
