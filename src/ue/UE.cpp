#include "ue/UE.h"

#include "common/MsgBuf.h"

void PostAttach(int iUEIdx, enChannelType enChannel, unsigned int uiPort, const std::string& strName,
                const std::string& strGroupid)
{
    constexpr size_t SIZE = UE_ATTACH_INFO_STRU::SIZE;
    auto pBlock = std::make_unique<unsigned char[]>(SIZE);
    const UE_ATTACH_INFO_STRU stInfo{uiPort, strName, strGroupid};
    CByteWriter writer(ByteSpan(pBlock.get(), SIZE));
    AttachInfo(writer, stInfo);
    PostAgentMsg(AGENT_MSG_CONNECT, static_cast<unsigned int>(iUEIdx), enChannel, std::move(pBlock), SIZE);
}

void PostDetach(int iUEIdx, enChannelType enChannel)
{
    PostAgentMsg(AGENT_MSG_DISCONNECT, static_cast<unsigned int>(iUEIdx), enChannel, nullptr, 0);
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

CChildChannel* CUE::GetSerialChannel(enChannelType enType)
{
    CChildChannel* pChannel = nullptr;
    for (CSerial& serial : m_aSerial) {
        for (int i = 0; i < serial.GetChannelCount(); ++i) {
            pChannel = serial.GetSerialChannel(i);
            if (pChannel->GetType() == enType)
                return pChannel;
        }
    }
    return pChannel;
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
    if (enType != SERIAL_TYPE_AT && !pSerial->OpenSerial())
        return; // the port has logged the fault; it keeps its name and number
    for (int i = 0; i < pSerial->GetChannelCount(); ++i)
        PostAttach(m_iUEIdx, pSerial->GetSerialChannel(i)->GetType(), uiPort, strName, strGroupid);
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
    for (int i = 0; i < pSerial->GetChannelCount(); ++i)
        PostDetach(m_iUEIdx, pSerial->GetSerialChannel(i)->GetType());
}
