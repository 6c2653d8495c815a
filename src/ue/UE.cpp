#include "ue/UE.h"

#include "common/MsgBuf.h"
#include "common/NoMemory.h"

void PostAttach(UE_INDEX ue, enChannelType enChannel, unsigned int uiPort, const std::string& strName,
                const std::string& strGroupid)
{
    CPacket block = CPacket::Zeroed(UE_ATTACH_INFO_STRU::SIZE);
    if (!block)
        return LogNoMemory("the attach of a port");
    const UE_ATTACH_INFO_STRU stInfo{uiPort, strName, strGroupid};
    CByteWriter writer(block.Bytes());
    AttachInfo(writer, stInfo);
    PostAgentMsg(AGENT_MSG_CONNECT, ue, enChannel, std::move(block));
}

void PostDetach(UE_INDEX ue, enChannelType enChannel)
{
    PostAgentMsg(AGENT_MSG_DISCONNECT, ue, enChannel, {});
}

CUE::CUE()
{
    for (size_t i = 0; i < m_aSerial.size(); ++i) {
        m_aSerial[i].SetUE(this);
        m_aSerial[i].SetSerialType(static_cast<enSerialType>(i));
    }
}

std::string CUE::GetGroupid() const
{
    const xtl::MutexGuard guard(m_DataLock);
    return m_strGroupid;
}

void CUE::SetGroupid(const std::string& strGroupid)
{
    const xtl::MutexGuard guard(m_DataLock);
    m_strGroupid = strGroupid;
}

ADE_UE_CONNECTION_ACK_STRU CUE::GetUEConnectionAck() const
{
    const xtl::MutexGuard guard(m_DataLock);
    return m_stConnectionAck;
}

void CUE::SetUEConnectionAck(const ADE_UE_CONNECTION_ACK_STRU& stConnectionAck)
{
    const xtl::MutexGuard guard(m_DataLock);
    m_stConnectionAck = stConnectionAck;
}

CSerial* CUE::GetSerial(enSerialType enType)
{
    const auto szIndex = static_cast<size_t>(enType);
    return szIndex < m_aSerial.size() ? &m_aSerial[szIndex] : nullptr;
}

CChildChannel& CUE::GetSerialChannel(enChannelType enType)
{
    const CHANNEL_ROW* const pRow = RowOf(enType);
    return m_aSerial[static_cast<size_t>(pRow ? pRow->enPort : SERIAL_TYPE_AT)].Channel();
}

bool CUE::IsUEPresent() const
{
    return std::ranges::any_of(m_aSerial, [](const CSerial& serial) { return serial.IsOpen(); });
}

void CUE::OnSerialAttach(const std::string& strName, enSerialType enType, unsigned int uiPort)
{
    CSerial* pSerial = GetSerial(enType);
    if (pSerial == nullptr || pSerial->IsOpen())
        return;
    const std::string strGroupid = GetGroupid();
    pSerial->SetName(strName);
    pSerial->SetPortNum(uiPort);
    pSerial->SetGroupName(strGroupid);
    if (!pSerial->IsOpenedByWrite() && !pSerial->OpenSerial())
        return; // the port has logged the fault; it keeps its name and number
    for (const CHANNEL_ROW& stRow : ChannelsOf(enType))
        PostAttach(m_ulUEIdx, stRow.enChannel, uiPort, strName, strGroupid);
}

void CUE::OnSerialDetach(enSerialType enType)
{
    CSerial* pSerial = GetSerial(enType);
    if (pSerial == nullptr)
        return;
    pSerial->CloseSerial();
    pSerial->SetName("");
    pSerial->SetGroupName("");
    pSerial->SetPortNum(UNUSED_PORT_NUM);
    if (!IsUEPresent())
        SetGroupid("");
    for (const CHANNEL_ROW& stRow : ChannelsOf(enType))
        PostDetach(m_ulUEIdx, stRow.enChannel);
}
