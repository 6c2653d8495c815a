#include "data/DpAt.h"

#include "common/Debug.h"
#include "common/MsgBuf.h"
#include "data/ManagerConfigInfo.h"

namespace
{
constexpr unsigned char CARRIAGE_RETURN = 13;
} // namespace

CDataProcessorAt::CDataProcessorAt(IBindings* pBindings, IClientPort* pClient) : CDataProcessor(pBindings, pClient)
{
    m_enChannelType = CHANNEL_AT;
}

int CDataProcessorAt::ProcessClientData(ByteView packet)
{
    if (packet.data() == nullptr) {
        CDebug::Instance()->PrintError("Lte Diag Reques is NULL");
        return 0;
    }
    const DIAG_PACKET_REQ_VIEW stReq = ViewReq(packet);
    if (packet.size() < sizeof(stReq.stHead.ulCmdId)) // too short for an id: a lone "!" isn't 33
        TakeRawText(packet);
    else if (stReq.stHead.ulCmdId == AGENT_CMD_AT)
        ProcessAtCmd(stReq.data);
    else if (!ProcessBindCmd(stReq))
        TakeRawText(packet);
    return 1;
}

void CDataProcessorAt::TakeRawText(ByteView text)
{
    for (const unsigned char ucByte : text) {
        if (ucByte == 0)
            return;
        if (ucByte == CARRIAGE_RETURN) {
            m_acLine[m_usLineLen] = ucByte;
            ProcessAtCmd(Slice(ByteView(m_acLine), 0, m_usLineLen + size_t{1}));
            m_usLineLen = 0;
        } else if (m_usLineLen < LINE_LEN) {
            m_acLine[m_usLineLen++] = ucByte;
        }
    }
}

void CDataProcessorAt::ProcessAtCmd(ByteView text)
{
    if (m_pBindings == nullptr || text.empty())
        return;
    const UE_INDEX ulUeIdx = m_pBindings->GetBindedUE(m_pClient);
    if (ulUeIdx == UE_NONE) {
        CDebug::Instance()->PrintInfo("AT Client has not bind to UE");
        return;
    }
    SendData2UE(CPacket::Copy(text), ulUeIdx, m_enChannelType);
}

int CDataProcessorAt::ProcessSerialData(ByteSpan data)
{
    if (m_pClient == nullptr)
        return 0;
    const bool bInd = ManagerConfigInfo::IsIncludeAtIndMsg(FixedText(data));
    DIAG_PACKET_ACK_STRU stAck;
    stAck.ulCmdId = bInd ? AGENT_CMD_AT_IND : AGENT_CMD_AT;
    stAck.usPktType = PKT_TYPE_AGENT;
    if (!SendClientPacket(*m_pClient, stAck, data)) {
        CDebug::Instance()->PrintInfo("DpAt:function ProcessSerialData Get memory faild");
        return 0;
    }
    return 1;
}
