#include "data/DpGuData.h"

#include "common/Debug.h"

CDataProcessorGuData::CDataProcessorGuData(IBindings* pBindings, IClientPort* pClient)
    : CDataProcessor(pBindings, pClient)
{
    m_enChannelType = CHANNEL_GU_DATA;
}

int CDataProcessorGuData::ProcessClientData(ByteView packet)
{
    if (packet.data() == nullptr)
        return 0;
    if (!ProcessBindCmd(ViewReq(packet)))
        CDebug::Instance()->PrintWarn(
            "Invalid Command send to Lte Data channel"); // the text of the LTE data channel, kept
    return 1;
}

int CDataProcessorGuData::ProcessSerialData(ByteSpan /*data*/)
{
    return 0;
}
