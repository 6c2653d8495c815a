#include "data/DataProcessor.h"

#include "common/Debug.h"

namespace
{
/// The agent's version as its payload: the text with its NUL.
ByteView VersionPayload(const char* pszVersion)
{
    const std::string_view version(pszVersion);
    return {reinterpret_cast<const unsigned char*>(pszVersion), version.size() + 1};
}
} // namespace

bool SetMemValue(ByteSpan dst, const VALUE_STRU& stField, ByteView src)
{
    if (!IsFieldUsable(stField, dst.size(), src.size()))
        return false;
    const ByteSpan field = Slice(dst, stField.usOffset, stField.usSize);
    std::copy_n(src.begin(), field.size(), field.begin());
    return true;
}

CDataProcessor::CDataProcessor(IBindings* pBindings, IClientPort* pClient) : m_pClient(pClient), m_pBindings(pBindings)
{
}

bool CDataProcessor::ProcessBind(const DIAG_PACKET_REQ_VIEW* pstReq)
{
    if (pstReq == nullptr)
        return false;
    const bool bBound = m_pBindings != nullptr && m_pBindings->BindCOM(m_pClient, LoadLe<uint32_t>(pstReq->data, 0));
    ByteView payload;
    if (m_pClient != nullptr && m_pClient->GetClientType() == CHANNEL_LTE_DIAG) {
        const char* pszVersion = CConfig::Instance()->GetAgentVersion();
        CDebug::Instance()->PrintInfo("Agent version: %s", pszVersion);
        payload = VersionPayload(pszVersion);
    }
    const auto& stHead = pstReq->stHead;
    if (bBound)
        SendAckToClient(stHead.ulCmdId, stHead.usPktType, DIAG_RC_OK, payload, 0);
    else
        SendAckToClient(stHead.ulCmdId, stHead.usPktType, DIAG_RC_FAIL, {}, 0);
    return bBound;
}

bool CDataProcessor::ProcessUnBind(const DIAG_PACKET_REQ_VIEW* pstReq)
{
    if (m_pBindings == nullptr)
        return false;
    m_pBindings->UnBindUE(m_pClient);
    if (pstReq != nullptr)
        SendAckToClient(pstReq->stHead.ulCmdId, pstReq->stHead.usPktType, DIAG_RC_OK, {}, 0);
    return true;
}

bool CDataProcessor::ProcessBindCmd(const DIAG_PACKET_REQ_VIEW& stReq)
{
    switch (stReq.stHead.ulCmdId) {
    case AGENT_CMD_BIND:
        ProcessBind(&stReq);
        return true;
    case AGENT_CMD_UNBIND:
        ProcessUnBind(&stReq);
        return true;
    default:
        return false;
    }
}

void CDataProcessor::SendAckToClient(unsigned int ulCmdId, unsigned short usPktType, unsigned int ulRc,
                                     ByteView payload, unsigned long long ullTimeStamp)
{
    if (payload.size() > DIAG_PACKET_ACK_STRU::MAX_PAYLOAD || m_pClient == nullptr) {
        CDebug::Instance()->PrintWarn("Send Ack to Client has too large packet");
        return;
    }
    const DIAG_PACKET_ACK_STRU stAck{ulCmdId, ulRc, ullTimeStamp, usPktType, 0};
    if (!SendClientPacket(*m_pClient, stAck, payload))
        CDebug::Instance()->PrintInfo("DataProcess Get Memory faild");
}
