#include "data/gu/OperationGUData.h"

#include "common/Config.h"
#include "common/Debug.h"
#include "common/MsgBuf.h"
#include "data/gu/reg/GuRegister.h"
#include "data/gu/reg/RegStatTable.h"
#include "data/gu/reg/RegisterManager.h"

#include <algorithm>
#include <utility>

// The object, and the way from a client's request to the UE. The reverse way is in OperationGUDataFromUe.cpp and
// OperationGUDataQuery.cpp, the periodic reports in report/UeReports.cpp.

namespace
{
constexpr unsigned int PID_BLER = 515; // receiver of the BLER request
} // namespace

COperationGUData::COperationGUData()
    : m_pTransDisp(std::make_unique<CMsgDisp>(this, MSG_DISP_TRANS)),
      m_pTraceDisp(std::make_unique<CMsgDisp>(this, MSG_DISP_TRACE)),
      m_ulBlerPid(PID_BLER),
      m_Reports(*this),
      m_pGuRegister(std::make_unique<CGuRegister>())
{
    m_stDataProcess.SetguDataProcess([this](ByteView packet) { (void)TranslateUEPacket(packet); });
    ResetSn();
}

COperationGUData::~COperationGUData() = default;

void COperationGUData::ResetSn()
{
    const xtl::MutexGuard guard(m_hSnLock);
    m_aullLastSn.fill(SN_UNSET);
    m_ulMsgSn = 1;
}

unsigned int COperationGUData::GetMsgSnValue()
{
    const xtl::MutexGuard guard(m_hSnLock);
    return m_ulMsgSn++;
}

unsigned int COperationGUData::GetRealTimeStamp(unsigned int ulStamp) const
{
    return IsKnownUeVersion(m_enUeVersion) ? ulStamp : ~ulStamp;
}

void COperationGUData::ClearData(std::span<const enChannelType> gone)
{
    std::shared_ptr<CRegisterManager> pOld;
    {
        const xtl::MutexGuard guard(m_RegisterLock);
        pOld = std::exchange(m_pRegisterManager, nullptr);
    }
    m_Link.Down();
    m_bImeiOk = false;
    m_bVersionOk = false;
    m_enModemNum = MODEM_NUM_UNKNOWN;
    m_Reports.Forget();
    if (std::ranges::find(gone, CHANNEL_GU_CMD) != gone.end())
        OnCmdChannelGone();
}

void COperationGUData::OnCmdChannelGone()
{
    m_stDataProcess.OM_InitDecap(); // the rest of a frame held won't come; it would swallow what the UE says next
    const xtl::MutexGuard guard(m_ClientLock);
    m_pClient.reset(); // whether it is bound is nothing to the UE that comes back
}

void COperationGUData::ForgetClient(IClientPort* pClient)
{
    // Taken before the lock and released behind it: letting go of a client for good must not happen under it.
    const std::shared_ptr<IClientPort> pLast = LastClient();
    const xtl::MutexGuard guard(m_ClientLock);
    const bool bSame = !m_pClient.owner_before(pLast) && !pLast.owner_before(m_pClient);
    if (pLast.get() == pClient && bSame)
        m_pClient.reset();
}

std::shared_ptr<IClientPort> COperationGUData::LastClient()
{
    const xtl::MutexGuard guard(m_ClientLock);
    return m_pClient.lock();
}

std::shared_ptr<CRegisterManager> COperationGUData::RegisterManager()
{
    const xtl::MutexGuard guard(m_RegisterLock);
    return m_pRegisterManager;
}

int COperationGUData::TranslateProbePacket(ByteView req, IBindings* pBindings, IClientPort* pClient)
{
    SetEntry(pBindings);
    {
        const xtl::MutexGuard guard(m_ClientLock);
        m_pClient = pClient ? pClient->weak_from_this() : std::weak_ptr<IClientPort>();
    }
    const DIAG_PACKET_REQ_VIEW stReq = ViewReq(req);
    if (stReq.stHead.usLen == 0)
        return 1;
    switch (stReq.stHead.usPktType & 0xFF) {
    case PKT_TYPE_GU_OTA:
        ProcOtaMsgFromProbe(stReq);
        return 0;
    case PKT_TYPE_GU_TRACE:
        ProcTraceMsgFromProbe(req);
        return 0;
    case PKT_TYPE_GU_TRANS:
        ProcTransMsgFromProbe(req);
        return 0;
    case PKT_TYPE_GU_QUERY:
        ProcQueryMsgFromProbe(stReq);
        return 0;
    default:
        return 2;
    }
}

namespace
{
struct OTA_REQ_ROW
{
    unsigned short usId;
    unsigned int ulPid;
    unsigned short usDualCardCnf; // not 0: only for dual card UEs, others get this confirm
};
constexpr OTA_REQ_ROW g_astOtaReq[] = {
    {0xA005, 128, NO_ID}, {0xA035, 28, 0xA045}, {0xB020, 133, NO_ID}, {0xC101, 141, NO_ID}, {0xC104, 30, 0xC105},
};
constexpr size_t OTA_PARAM_LEN = 4;
} // namespace

void COperationGUData::ProcOtaMsgFromProbe(const DIAG_PACKET_REQ_VIEW& stReq)
{
    for (const OTA_REQ_ROW& stRow : g_astOtaReq) {
        if (stRow.usId != ReqPacketId(stReq))
            continue;
        if (stRow.usDualCardCnf != NO_ID && m_enModemNum != MODEM_NUM_DUAL) {
            BuildErrCnfPacketToClient(stRow.usDualCardCnf, PKT_TYPE_GU_OTA, DIAG_RC_NOT_DUAL_CARD);
            return;
        }
        std::array<unsigned char, OTA_PARAM_LEN> aucParam{};
        CopyPadded(aucParam, stReq.data);
        SendReq2UE(BuildGuRequest(GU_CATEGORY_OTA, stRow.usId, aucParam, stRow.ulPid));
        return;
    }
}

namespace
{
// Requests that go to the UE as they are, under one id or several.
struct OWN_REQ_ROW
{
    unsigned short usId;
    unsigned short usSentId;
    unsigned int ulPid;
};
constexpr OWN_REQ_ROW g_astOwnReq[] = {
    {ID_W_CELL, 0xB010, 133},        {ID_W_CELL, 0xB013, 133},        {ID_W_CELL, 0xB063, 133},
    {ID_GSM_NEIGHBOUR, 0xB016, 133}, {ID_LTE_NEIGHBOUR, 0xB016, 133}, // the UE's one request for both
    {0xB019, 0xB019, 133},           {0xB01C, 0xB01C, 133},           {0xC001, 0xC001, 141},
};
} // namespace

void COperationGUData::ProcTransMsgFromProbe(ByteView req)
{
    const DIAG_PACKET_REQ_VIEW stReq = ViewReq(req);
    const unsigned short usId = ReqPacketId(stReq);
    if (!m_Reports.CheckReportPeriodValid(stReq.data, usId)) {
        BuildErrCnfPacketToClient(usId, PKT_TYPE_GU_TRANS, DIAG_RC_FAIL);
        return;
    }
    if (IsRegStatRequest(usId)) {
        if (const auto pManager = RegisterManager())
            pManager->ProcessRegReqPacket(usId, ReqParams(stReq));
        return;
    }
    (void)m_pTransDisp->SendReqToUe(req, usId); // what follows doesn't depend on it
    SendOwnRequest(stReq);
}

void COperationGUData::SendOwnRequest(const DIAG_PACKET_REQ_VIEW& stReq)
{
    const unsigned short usId = ReqPacketId(stReq);
    for (const OWN_REQ_ROW& stRow : g_astOwnReq)
        if (stRow.usId == usId)
            BuildTransReqMsg(stRow.usSentId, ReqParams(stReq), stRow.ulPid);
    if (usId == ID_BLER)
        SendBlerRequest(stReq);
    m_Reports.ProcessRequest(stReq);
}

/// The UE takes the period in units of 10 ms.
void COperationGUData::SendBlerRequest(const DIAG_PACKET_REQ_VIEW& stReq)
{
    std::vector<unsigned char> params = ReqParams(stReq);
    StoreLe<uint16_t>(params, REQ_PERIOD, static_cast<uint16_t>(ReqPeriod(params) / 10));
    BuildTransReqMsg(ID_BLER, params, m_ulBlerPid);
}

void COperationGUData::ProcTraceMsgFromProbe(ByteView req)
{
    (void)m_pTraceDisp->SendReqToUe(req, ReqPacketId(ViewReq(req))); // an unknown packet gets no answer
}

namespace
{
constexpr unsigned short ID_QUERY_MODE = 0x80A5;
constexpr unsigned short ID_QUERY_MODE_MODEM_1 = 0x80A7; // towards the UE it is ID_QUERY_MODE too
constexpr unsigned short ID_QUERY_MODE_MODEM_1_CNF = 0x80A8;
constexpr size_t QUERY_SIZE = 12;
} // namespace

void COperationGUData::ProcQueryMsgFromProbe(const DIAG_PACKET_REQ_VIEW& stReq)
{
    if (ReqPacketId(stReq) == ID_QUERY_MODE) {
        SendQuery(GU_CATEGORY_QUERY, ID_QUERY_MODE);
        return;
    }
    if (ReqPacketId(stReq) != ID_QUERY_MODE_MODEM_1)
        return;
    if (m_enModemNum == MODEM_NUM_DUAL)
        SendQuery(GU_CATEGORY_QUERY + GU_CATEGORY_MODEM_1, ID_QUERY_MODE);
    else
        BuildErrCnfPacketToClient(ID_QUERY_MODE_MODEM_1_CNF, PKT_TYPE_GU_QUERY, DIAG_RC_NOT_DUAL_CARD);
}

void COperationGUData::SendQuery(unsigned char ucCategory, unsigned short usId)
{
    std::array<unsigned char, QUERY_SIZE> aucQuery{};
    StoreLe<uint8_t>(aucQuery, GU_CATEGORY, ucCategory);
    StoreLe<uint16_t>(aucQuery, GU_PACKET_LEN, QUERY_SIZE - GU_LEN_OFFSET_BASE);
    StoreLe<uint16_t>(aucQuery, GU_QUERY_MSG_ID, usId);
    SendReq2UE(aucQuery);
}

void COperationGUData::BuildTransReqMsg(unsigned short usId, ByteView params, unsigned int ulPid)
{
    SendReq2UE(BuildGuRequest(GU_CATEGORY_TRANS, usId, params, ulPid));
}

namespace
{
constexpr unsigned short ID_TRACE_SWITCH = 0x8101;
constexpr size_t TRACE_SWITCH_HEAD = 16;
} // namespace

void COperationGUData::BuildTraceReqMsg()
{
    std::vector<unsigned int> vecPids;
    m_TraceCounter.GetPidNeedSend(vecPids);
    std::vector<unsigned char> packet(TRACE_SWITCH_HEAD + 4 * vecPids.size());
    CByteWriter writer(packet);
    writer.Field(GU_CATEGORY_TRACE);                                         //  0
    writer.Field(uint8_t{0});                                                //  1
    writer.Field(static_cast<uint16_t>(packet.size() - GU_LEN_OFFSET_BASE)); //  2
    writer.Field(ID_TRACE_SWITCH);                                           //  4
    writer.Field(uint16_t{0});                                               //  6
    writer.Field(uint16_t{1});                                               //  8
    writer.Field(uint16_t{1});                                               // 10
    writer.Field(static_cast<uint32_t>(vecPids.size()));                     // 12
    for (const unsigned int ulPid : vecPids)
        writer.Field(ulPid);
    SendReq2UE(packet);
}

/// This UE, wherever the last client went since: what is sent may be the UE's own set-up or registers, which no other
/// UE may get. Only while the index isn't known is it that client's UE. UE_NONE for a last client that is bound to
/// none, and without an agent.
UE_INDEX COperationGUData::TargetUe()
{
    IBindings* const pBindings = m_pBindings;
    if (!pBindings)
        return UE_NONE;
    const UE_INDEX ulOwnIdx = m_ulUeId;
    const std::shared_ptr<IClientPort> pClient = LastClient();
    const UE_INDEX ulBoundIdx = pClient ? pBindings->GetBindedUE(pClient.get()) : ulOwnIdx;
    return ulBoundIdx == UE_NONE || ulOwnIdx == UE_NONE ? ulBoundIdx : ulOwnIdx;
}

void COperationGUData::SendReq2UE(ByteView packet)
{
    const UE_INDEX ulUeIdx = TargetUe();
    if (ulUeIdx == UE_NONE) {
        CDebug::Instance()->PrintWarn("client is not bind to any channel");
        return;
    }
    const auto ucTotal = static_cast<unsigned char>((packet.size() + OM_MAX_SEGMENT - 1) / OM_MAX_SEGMENT);
    const std::chrono::milliseconds pause(CConfig::Instance()->GetTimespaceForGuReq());
    for (unsigned char ucIndex = 1; ucIndex <= ucTotal; ++ucIndex) {
        CPacket frame = CGUDataProcess::OM_UsbFrameEncap(Slice(packet, (ucIndex - 1) * OM_MAX_SEGMENT, OM_MAX_SEGMENT),
                                                         ucTotal, ucIndex);
        if (!frame) {
            CDebug::Instance()->PrintInfo("DpGuCmd function SendReq2UE Get memory Faild");
            return;
        }
        SendData2UE(std::move(frame), ulUeIdx, CHANNEL_GU_CMD, pause); // the UE needs time between segments
    }
}

namespace
{
/// Requests whose error confirm goes out under the confirm's id; for all others the caller gives that id.
constexpr unsigned short ErrCnfId(unsigned short usId)
{
    switch (usId) {
    case ID_BLER:
    case ID_W_CELL:
    case ID_GSM_NEIGHBOUR:
    case ID_LTE_NEIGHBOUR:
        return static_cast<unsigned short>(usId + 1);
    default:
        return usId;
    }
}
} // namespace

void COperationGUData::BuildErrCnfPacketToClient(unsigned short usId, unsigned int ulType, unsigned int ulRc)
{
    unsigned char aucRc[4];
    StoreLe<uint32_t>(aucRc, 0, ulRc);
    DIAG_PACKET_ACK_STRU stAck = GuAckHead(static_cast<unsigned short>(ulType), ErrCnfId(usId));
    stAck.ulRc = ulRc;
    SendGUAckToClient(stAck, aucRc);
}
