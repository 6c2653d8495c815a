#include "data/gu/reg/RegMsgProcess.h"

#include "data/DiagPacket.h"
#include "data/gu/base/GuOperation.h"
#include "data/gu/base/GuRequest.h"
#include "data/gu/reg/RegStatTable.h"
#include "data/gu/reg/RegisterManager.h"

namespace
{

constexpr unsigned int STATUS_DONE = 0;
constexpr unsigned int STATUS_BAD_REQUEST = 2; // bad start or stop byte, or period out of range
constexpr unsigned int STATUS_NO_BASE = 4;     // base addresses not known
constexpr unsigned int STATUS_NOT_SENT = 46;   // request to the UE could not be built

constexpr unsigned int REPORT_ADVANCE = 5; // ms

/// The length of a report is held in 16 bits on its way to the client, so of a longer one only the rest above whole
/// multiples of 65536 leaves. Client tools rely on it.
ByteView ReportData(ByteView data)
{
    return data.first(data.size() & 0xFFFF);
}

} // namespace

CRegMsgProcess::CRegMsgProcess(CRegisterManager* pRegisterManager)
    : m_pRegisterManager(pRegisterManager), m_pOperation(pRegisterManager->GetParentAdapter())
{
    const bool bV9 = m_pOperation != nullptr && IsKnownUeVersion(m_pOperation->GetUeVersion());
    for (const REG_STAT_ROW& stRow : RegStatTable())
        m_mapRegProcessor[stRow.usReq] = stRow.pfnCreate({this, stRow.usReq, bV9});
}

CPeriodRegMsgFromUe* CRegMsgProcess::Find(unsigned int ulReqMsgId) const
{
    const auto it = m_mapRegProcessor.find(ulReqMsgId);
    return it == m_mapRegProcessor.end() ? nullptr : it->second.get();
}

void CRegMsgProcess::Process(const RegStruct& stReg, unsigned int ulTimeStamp)
{
    const unsigned int ulRealStamp =
        m_pOperation == nullptr ? ulTimeStamp : m_pOperation->GetRealTimeStamp(ulTimeStamp);
    for (const auto& [ulReqMsgId, pStat] : m_mapRegProcessor) {
        const xtl::MutexGuard guard(pStat->Mutex());
        if (pStat->GetPeriod() == 0)
            continue;
        pStat->Process(stReg, ulTimeStamp);
        if (!pStat->IsReport(ulRealStamp, REPORT_ADVANCE))
            continue;
        pStat->BeforReport();
        Timer_BuildIndPacket(pStat.get());
        pStat->AfterReport();
    }
}

/// The stored stamp is made real once the packet has left, though the packet's own stamp is made real on the way
/// too; client tools rely on it. It shows where a report goes out without a new sample's stamp.
void CRegMsgProcess::Timer_BuildIndPacket(CPeriodRegMsgFromUe* pStat)
{
    if (m_pOperation == nullptr)
        return;
    if (!pStat->GetData().empty())
        m_pOperation->BuildMsgIndPacket(PKT_TYPE_GU_TRANS, pStat->GetTimeStamp(), pStat->GetIndMsgId(),
                                        ReportData(pStat->GetData()));
    pStat->SetTimeStamp(m_pOperation->GetRealTimeStamp(pStat->GetTimeStamp()));
    pStat->DeleteDataUnlocked();
}

void CRegMsgProcess::ProcessRegReqPacket(unsigned short usMsgId, ByteView data)
{
    CPeriodRegMsgFromUe* const pStat = Find(usMsgId);
    if (pStat == nullptr)
        return;
    std::vector<unsigned int> addrs;
    if (!m_pRegisterManager->BaseAddrValid() || !pStat->GetRegAddr(addrs)) {
        Refuse(*pStat, STATUS_NO_BASE);
        return;
    }
    switch (ReqSwitch(data)) {
    case SWITCH_ON:
        Answer(*pStat, Start(*pStat, ReqPeriod(data), addrs));
        break;
    case SWITCH_OFF:
        Answer(*pStat, Stop(*pStat, addrs));
        break;
    default:
        Refuse(*pStat, STATUS_BAD_REQUEST);
    }
}

/// A period out of range changes nothing: a running statistic keeps its old one. The statistic's lock is let go
/// before the requests to the UE, which pause between them: the thread of the UE's messages serves all UEs and must
/// not wait for that.
unsigned int CRegMsgProcess::Start(CPeriodRegMsgFromUe& stat, unsigned short usPeriod,
                                   const std::vector<unsigned int>& addrs)
{
    if (usPeriod < PERIOD_MIN || usPeriod > PERIOD_MAX)
        return STATUS_BAD_REQUEST;
    {
        const xtl::MutexGuard guard(stat.Mutex());
        stat.SetPeriod(usPeriod);
        m_pRegisterManager->UpdateRegRefMap(addrs, true, MODE_0);
    }
    return m_pRegisterManager->SendAllRegReq(true, MODE_0) ? STATUS_DONE : STATUS_NOT_SENT;
}

unsigned int CRegMsgProcess::Stop(CPeriodRegMsgFromUe& stat, const std::vector<unsigned int>& addrs)
{
    {
        const xtl::MutexGuard guard(stat.Mutex());
        stat.CleanStat();
        m_pRegisterManager->UpdateRegRefMap(addrs, false, MODE_0);
    }
    return m_pRegisterManager->SendAllRegReq(false, MODE_0) ? STATUS_DONE : STATUS_NOT_SENT;
}

/// The packet's result code and its payload both say the status.
void CRegMsgProcess::Answer(const CPeriodRegMsgFromUe& stat, unsigned int ulStatus)
{
    if (m_pOperation == nullptr)
        return;
    std::array<unsigned char, sizeof(ulStatus)> aucStatus{};
    StoreLe(aucStatus, 0, ulStatus);
    m_pOperation->BuildMsgCnfPacket(PKT_TYPE_GU_TRANS, ulStatus, STAMP_NONE, stat.GetCnfMsgId(), aucStatus);
}

void CRegMsgProcess::Refuse(const CPeriodRegMsgFromUe& stat, unsigned int ulStatus)
{
    if (m_pOperation != nullptr)
        m_pOperation->BuildErrCnfPacketToClient(stat.GetCnfMsgId(), PKT_TYPE_GU_TRANS, ulStatus);
}
