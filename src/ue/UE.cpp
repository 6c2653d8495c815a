#include "ue/UE.h"

#include "common/MsgBuf.h"
#include "common/NoMemory.h"

#include <chrono>
#include <memory>

namespace
{
constexpr std::chrono::seconds SETTLE_TIME(1); // from the opening of a device until it is used
} // namespace

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
    return std::ranges::any_of(m_aSerial, [](const CSerial& serial) {
        return serial.IsOpen() || (serial.IsOpening() && !serial.IsOpenedByWrite());
    });
}

bool CUE::IsAttached(enSerialType enType)
{
    const CSerial* const pSerial = GetSerial(enType);
    return pSerial != nullptr && pSerial->GetPortNum() != UNUSED_PORT_NUM;
}

void CUE::OnSerialAttach(const std::string& strName, enSerialType enType, unsigned int uiPort, bool bRepeated)
{
    const PORT_ATTACH stAttach{strName, uiPort, bRepeated};
    CSerial* const pSerial = GetSerial(enType);
    if (pSerial == nullptr || pSerial->IsOpen())
        return;
    if (pSerial->IsOpening() && !pSerial->IsOpenedByWrite()) {
        Keep(enType, stAttach);
        return;
    }
    Identify(*pSerial, stAttach);
    if (pSerial->IsOpenedByWrite())
        return ReportUnopened(*pSerial, stAttach);
    m_Worker.Post(
        [this, pSerial, stAttach, ullOpening = pSerial->BeginOpen()] { OpenPort(*pSerial, ullOpening, stAttach); });
}

void CUE::ReportUnopened(CSerial& serial, const PORT_ATTACH& stAttach)
{
    const auto Report = [this, &serial, stAttach, ullOpening = serial.Opening()] {
        (void)serial.IfCurrent(ullOpening, [&] { PostAttachOf(serial, stAttach); });
    };
    if (m_Worker.IsIdle())
        Report();
    else
        m_Worker.Post(Report); // behind the ports that came before
}

void CUE::Identify(CSerial& serial, const PORT_ATTACH& stAttach)
{
    serial.SetName(stAttach.strName);
    serial.SetPortNum(stAttach.uiPort);
    serial.SetGroupName(GetGroupid());
}

/// On the worker. A port that can't be opened has logged the fault and keeps its name and number.
void CUE::OpenPort(CSerial& serial, uint64_t ullOpening, const PORT_ATTACH& stAttach)
{
    if (!OpenAndSettle(serial, ullOpening, stAttach.bRepeated)) {
        m_fnOpenFailed(serial.GetSerialType());
        return;
    }
    (void)serial.FinishOpen(ullOpening, [&] { PostAttachOf(serial, stAttach); });
    Keep(serial.GetSerialType(), std::nullopt);
}

bool CUE::AttachKept(enSerialType enType)
{
    const auto stKept = TakeKept(enType);
    if (stKept)
        OnSerialAttach(stKept->strName, enType, stKept->uiPort, stKept->bRepeated);
    return stKept.has_value();
}

/// False when the device can't be opened, or was closed meanwhile.
bool CUE::OpenAndSettle(CSerial& serial, uint64_t ullOpening, bool bRepeated)
{
    return serial.OpenSerial(ullOpening, bRepeated) &&
           m_Worker.Rest(SETTLE_TIME, [&] { return serial.Opening() == ullOpening; });
}

void CUE::OpenForWrite(enSerialType enType)
{
    CSerial* const pSerial = GetSerial(enType);
    if (pSerial == nullptr)
        return;
    m_Worker.Post([this, pSerial, ullOpening = pSerial->BeginOpen()] {
        if (OpenAndSettle(*pSerial, ullOpening, false))
            (void)pSerial->FinishOpen(ullOpening, [] {});
    });
}

void CUE::PostAttachOf(const CSerial& serial, const PORT_ATTACH& stAttach) const
{
    for (const CHANNEL_ROW& stRow : ChannelsOf(serial.GetSerialType()))
        PostAttach(m_ulUEIdx, stRow.enChannel, stAttach.uiPort, stAttach.strName, serial.GetGroupName());
}

std::optional<CUE::PORT_ATTACH> CUE::TakeKept(enSerialType enType)
{
    const xtl::MutexGuard guard(m_DataLock);
    return std::exchange(m_aKept[static_cast<size_t>(enType)], std::nullopt);
}

void CUE::Keep(enSerialType enType, std::optional<PORT_ATTACH> stAttach)
{
    const xtl::MutexGuard guard(m_DataLock);
    m_aKept[static_cast<size_t>(enType)] = std::move(stAttach);
}

void CUE::ForgetKept(unsigned int uiPort)
{
    const xtl::MutexGuard guard(m_DataLock);
    for (auto& stKept : m_aKept)
        if (stKept && stKept->uiPort == uiPort)
            stKept.reset();
}

void CUE::ForgetPorts()
{
    for (CSerial& serial : m_aSerial)
        if (!serial.IsOpen() && !serial.IsOpening())
            Forget(serial);
}

void CUE::Forget(CSerial& serial)
{
    serial.SetName("");
    serial.SetGroupName("");
    serial.SetPortNum(UNUSED_PORT_NUM);
}

void CUE::OnSerialDetach(enSerialType enType)
{
    CSerial* const pSerial = GetSerial(enType);
    if (pSerial == nullptr)
        return;
    Keep(enType, std::nullopt);
    // Whatever the device needs for its closing comes before a later job may open it again.
    if (CClosingDevice device = pSerial->EndUse())
        m_Worker.Post([pDevice = std::make_shared<CClosingDevice>(std::move(device))] {});
    m_Worker.Wake(); // from the rest of an opening
    Forget(*pSerial);
    if (!IsUEPresent())
        SetGroupid("");
    for (const CHANNEL_ROW& stRow : ChannelsOf(enType))
        PostDetach(m_ulUEIdx, stRow.enChannel);
}
