#include "data/gu/OperationGUData.h"

#include "common/Debug.h"
#include "common/Record.h"
#include "data/gu/reg/RegisterManager.h"

#include <utility>

// The way from the UE to the clients: frames, categories, confirms and indications. The answers to queries are in
// OperationGUDataQuery.cpp.

namespace
{
constexpr std::chrono::milliseconds TICK_INTERVAL(100);

constexpr size_t CNF_PAYLOAD_LEN = 4; // bytes of every confirm that is passed on
} // namespace

void COperationGUData::OnUePacket(IBindings* pBindings, ByteSpan packet, UE_INDEX ulUeIdx)
{
    if (!m_Link.JudgeJIANLIANCMD(packet)) {
        ProcessSerialData(pBindings, packet, ulUeIdx);
        return;
    }
    CGuLink::EnableTransMsg(ulUeIdx);
    CGuLink::SendUeInfoReqToUe(ulUeIdx);
}

void COperationGUData::ProcessSerialData(IBindings* pBindings, ByteSpan data, UE_INDEX ulUeIdx)
{
    SetEntry(pBindings);
    m_ulUeId = ulUeIdx;
    const auto now = m_stClock.fnSteady();
    if (now - m_LastTick >= TICK_INTERVAL) {
        TimerProc();
        m_LastTick = now;
    }
    if (m_ulFrameMode == FRAME_MODE_UNKNOWN)
        FindFrameMode(data);
    if (m_ulFrameMode == FRAME_MODE_TIME_SSID)
        (void)m_stDataProcess.OM_UsbFrameDecap(data, FRAME_LEAD_TIME_SSID, m_ulFrameMode); // a fault loses the block
    else if (m_ulFrameMode == FRAME_MODE_RTC_CPUID)
        (void)m_stDataProcess.OM_UsbFrameDecap(data, FRAME_LEAD_RTC_CPUID, m_ulFrameMode);
}

void COperationGUData::FindFrameMode(ByteView data)
{
    if (LoadLe<uint32_t>(data, FRAME_LEAD_TIME_SSID) == OM_FRAME_START)
        m_ulFrameMode = FRAME_MODE_TIME_SSID;
    else if (LoadLe<uint32_t>(data, FRAME_LEAD_RTC_CPUID) == OM_FRAME_START)
        m_ulFrameMode = FRAME_MODE_RTC_CPUID;
}

int COperationGUData::TranslateUEPacket(ByteView packet)
{
    if (CheckIfMsgHasSn(GuCategory(packet)))
        (void)CheckWhetherMsgIsLost(LoadLe<uint32_t>(packet, GU_SN), LoadLe<uint8_t>(packet, GU_SSID));
    RefreshModem(packet);
    switch (GuCategory(packet)) {
    case GU_CATEGORY_TRACE:
        return ProcTraceMsgFromUe(packet);
    case GU_CATEGORY_OTA:
        return ProcOtaMsgFromUe(packet, 0);
    case GU_CATEGORY_TRANS:
        return DecomposeTransMsg(packet, 0);
    case GU_CATEGORY_QUERY:
        return ProcQueryMsgFromUe(packet, 0);
    case GU_CATEGORY_OTA + GU_CATEGORY_MODEM_1:
        return ProcOtaMsgFromUe(packet, 1);
    case GU_CATEGORY_TRANS + GU_CATEGORY_MODEM_1:
        return DecomposeTransMsg(packet, 1);
    case GU_CATEGORY_QUERY + GU_CATEGORY_MODEM_1:
        return ProcQueryMsgFromUe(packet, 1);
    default:
        return GU_RESULT_UNKNOWN_CATEGORY;
    }
}

/// The second modem's query answers count as messages with an SN, unlike the first's: readers of the log see their
/// bad SSIDs too.
bool COperationGUData::CheckIfMsgHasSn(unsigned char ucCategory)
{
    return ucCategory != 3 && ucCategory != GU_CATEGORY_QUERY && ucCategory != 46;
}

/// Only keeps the books: nobody acts on a lost message. 1 for a gap, and for an SN of 0, which isn't entered.
int COperationGUData::CheckWhetherMsgIsLost(unsigned int ulSn, unsigned char ucSsid)
{
    if (ulSn == 0)
        return 1;
    if (ucSsid >= SSID_COUNT) {
        CDebug::Instance()->PrintInfo("error fail file:%s, line:%d", "./src/data/gu/OperationGUData", __LINE__);
        return 0;
    }
    const xtl::MutexGuard guard(m_hSnLock);
    const unsigned long long ullLast = std::exchange(m_aullLastSn[ucSsid], ulSn);
    return ullLast != SN_UNSET && ulSn != ullLast + 1 ? 1 : 0;
}

namespace
{
struct OTA_MSG_ROW
{
    unsigned short usMsgId;
    bool bConfirm;                             // a confirm, or else an indication that tells its length
    std::array<unsigned short, 2> ausClientId; // of modem 0 and 1
};
constexpr OTA_MSG_ROW g_astOtaMsg[] = {
    {0xA015, true, {0xA015, 0xA045}},  //
    {0xA025, false, {0xA025, 0xA055}}, //
    {0xB021, true, {0xB021, 0xB021}},  //
    {0xB022, false, {0xB022, 0xB022}}, //
    {0xC102, true, {0xC102, 0xC105}},  //
    {0xC103, false, {0xC103, 0xC106}}, //
};
constexpr size_t OTA_IND_LEN = 20;      // u32, bytes of the message
constexpr size_t OTA_IND_LEN_EXTRA = 8; // head of the message, not counted there

/// szLen bytes of the payload as the UE sent it, completed with zeros. A length has 16 bits towards clients.
std::vector<unsigned char> PayloadOf(ByteView packet, size_t szLen)
{
    std::vector<unsigned char> payload(static_cast<uint16_t>(szLen));
    CopyPadded(payload, GuPayload(packet));
    return payload;
}
} // namespace

int COperationGUData::ProcOtaMsgFromUe(ByteView packet, unsigned int ulModem)
{
    if (!m_bVersionOk || packet.size() < GU_MIN_PACKET)
        return GU_RESULT_NOTHING;
    for (const OTA_MSG_ROW& stRow : g_astOtaMsg) {
        if (stRow.usMsgId != GuMsgId(packet))
            continue;
        const unsigned short usId = stRow.ausClientId[ulModem];
        const size_t szIndLen = size_t{LoadLe<uint32_t>(packet, OTA_IND_LEN)} + OTA_IND_LEN_EXTRA;
        if (stRow.bConfirm)
            BuildMsgCnfPacket(PKT_TYPE_GU_OTA, 0, GuTimeStamp(packet), usId, PayloadOf(packet, CNF_PAYLOAD_LEN));
        else
            BuildMsgIndPacket(PKT_TYPE_GU_OTA, GuTimeStamp(packet), usId, PayloadOf(packet, szIndLen));
        return GU_RESULT_OK;
    }
    return GU_RESULT_UNKNOWN_ID;
}

namespace
{
constexpr unsigned short ID_UE_INFO = 0xC002; // holds the IMEI
constexpr size_t UE_INFO_IMEI = 53;           // text
constexpr size_t IMEI_BUFFER = 256;

/// Messages of these ids come in chains of several in one packet.
constexpr bool IsChained(unsigned short usMsgId)
{
    return usMsgId >> 8 == 0xF0 || usMsgId >> 8 == 0xE0;
}
} // namespace

int COperationGUData::DecomposeTransMsg(ByteView packet, unsigned int ulModem)
{
    if (packet.size() < GU_MIN_PACKET)
        return GU_RESULT_NOTHING;
    if (!m_bImeiOk && GuMsgId(packet) == ID_UE_INFO)
        TakeImei(packet);
    if (!m_bVersionOk)
        return GU_RESULT_NOTHING;
    if (!IsChained(GuMsgId(packet)))
        return ProcTransMsgFromUe(packet, ulModem);
    return WalkChain(packet, ulModem);
}

/// An IMEI that comes before the version isn't kept: the status text is empty then.
void COperationGUData::TakeImei(ByteView packet)
{
    m_bImeiOk = true;
    if (m_bVersionOk)
        SendGUPacketToClient(FixedText(Slice(packet, UE_INFO_IMEI, IMEI_BUFFER - 1)));
}

int COperationGUData::WalkChain(ByteView chain, unsigned int ulModem)
{
    const unsigned int ulSn = LoadLe<uint32_t>(chain, GU_SN);
    while (chain.size() >= GU_MIN_PACKET) {
        const size_t szMsg = GuPacketSize(chain);
        if (szMsg > chain.size())
            return GU_RESULT_OK;
        if (!IsChained(GuMsgId(chain)))
            return GU_RESULT_NOTHING;
        std::vector<unsigned char> message(chain.begin(), chain.begin() + static_cast<ptrdiff_t>(szMsg));
        StoreLe<uint32_t>(message, GU_SN, ulSn);
        (void)ProcTransMsgFromUe(message, ulModem); // a message that isn't known doesn't stop the others
        chain = chain.subspan(szMsg);
    }
    return GU_RESULT_OK;
}

// What the UE's own transparent messages become, whatever the dispatcher did with them.
struct COperationGUData::TRANS_MSG_ROW
{
    unsigned short usMsgId;
    void (COperationGUData::*pfnProcess)(ByteView packet);
    bool bModem0Only = false;
};
const COperationGUData::TRANS_MSG_ROW COperationGUData::c_astTransMsg[] = {
    {0xB011, &COperationGUData::PassConfirm},
    {0xB017, &COperationGUData::PassConfirm},
    {0xB01A, &COperationGUData::PassConfirm},
    {0xB01D, &COperationGUData::PassConfirm},
    {0xB061, &COperationGUData::PassConfirm},
    {0xC011, &COperationGUData::PassConfirm},
    {0xF021, &COperationGUData::PassConfirm},
    {0xB012, &COperationGUData::StoreWCell<0>},
    {0xB015, &COperationGUData::StoreWCell<1>},
    {0xB065, &COperationGUData::StoreWCell<2>},
    {0xB018, &COperationGUData::Report<&CUeReports::BuildGSMNeighberIndPacket>},
    {0xB062, &COperationGUData::Report<&CUeReports::BuildLTENeighberIndPacket>},
    {0xB01B, &COperationGUData::PassIndication<24>},
    {0xB01E, &COperationGUData::PassIndication<4>},
    {0xC002, &COperationGUData::PassIndication<288>},
    {0xD002, &COperationGUData::StartRlcTime},
    {0xD003, &COperationGUData::BuildRlcReports},
    {0xF022, &COperationGUData::Report<&CUeReports::BuildWBlerIndPacket>},
    {0xE501, &COperationGUData::PassRegInd, true},
    {0xF501, &COperationGUData::PassRegInd, true},
    {0xF504, &COperationGUData::PassRegCnf},
    {0xF505, &COperationGUData::PassRegCnf},
    {0xFE02, &COperationGUData::TakeDspShareAddr},
};

int COperationGUData::ProcTransMsgFromUe(ByteView packet, unsigned int ulModem)
{
    if (packet.size() < GU_MIN_PACKET || GuPacketSize(packet) != packet.size())
        return GU_RESULT_BAD_LENGTH;
    (void)m_pTransDisp->Process(packet, (ulModem << 16) | GuMsgId(packet)); // the agent's own table comes in any case
    for (const TRANS_MSG_ROW& stRow : c_astTransMsg) {
        if (stRow.usMsgId != GuMsgId(packet))
            continue;
        if (ulModem == 0 || !stRow.bModem0Only)
            (this->*stRow.pfnProcess)(packet);
        return GU_RESULT_OK;
    }
    return GU_RESULT_UNKNOWN_ID;
}

void COperationGUData::PassConfirm(ByteView packet)
{
    BuildMsgCnfPacket(PKT_TYPE_GU_TRANS, 0, GuTimeStamp(packet), GuMsgId(packet), PayloadOf(packet, CNF_PAYLOAD_LEN));
}

template <size_t LEN> void COperationGUData::PassIndication(ByteView packet)
{
    BuildMsgIndPacket(PKT_TYPE_GU_TRANS, GuTimeStamp(packet), GuMsgId(packet), PayloadOf(packet, LEN));
}

template <void (CUeReports::*PFN)(ByteView)> void COperationGUData::Report(ByteView packet)
{
    (m_Reports.*PFN)(packet);
}

template <size_t PART> void COperationGUData::StoreWCell(ByteView packet)
{
    m_Reports.StoreWCell(PART, packet);
}

void COperationGUData::StartRlcTime(ByteView)
{
    m_Reports.StartRlcTime(m_stClock.fnWall());
}

void COperationGUData::BuildRlcReports(ByteView packet)
{
    m_Reports.BuildRlcReports(packet, m_stClock.fnWall());
}

void COperationGUData::PassRegInd(ByteView packet)
{
    if (const auto pManager = RegisterManager())
        pManager->ProcessRegIndMsg(packet);
}

void COperationGUData::PassRegCnf(ByteView packet)
{
    if (const auto pManager = RegisterManager())
        pManager->ProcessRegCnfMsg(packet);
}

namespace
{
constexpr unsigned short ID_TRACE = 0x8003;
constexpr unsigned short TRACE_MIN_LEN = 38; // smallest usPacketLen
constexpr unsigned int TRACE_PID_MODEM_1_FIRST = 2;
constexpr unsigned int TRACE_PID_MODEM_1_LAST = 98;
constexpr unsigned short TRACE_MAC_CONFIRM = 0; // message names
constexpr unsigned short TRACE_MAC_CONFIG = 8;

unsigned int TraceKey(ByteView packet)
{
    const unsigned int ulSender = LoadLe<uint32_t>(packet, GU_TRACE_SENDER_PID);
    const bool bModem1 = ulSender >= TRACE_PID_MODEM_1_FIRST && ulSender <= TRACE_PID_MODEM_1_LAST;
    return LoadLe<uint16_t>(packet, GU_TRACE_MSG_NAME) | (bModem1 ? 0x10000U : 0U);
}
} // namespace

int COperationGUData::ProcTraceMsgFromUe(ByteView packet)
{
    if (!m_bVersionOk)
        return GU_RESULT_NOTHING;
    if (packet.size() < GU_MIN_PACKET)
        return GU_RESULT_BAD_LENGTH;
    if (GuMsgId(packet) != ID_TRACE || GuPacketLen(packet) < TRACE_MIN_LEN)
        return GU_RESULT_UNKNOWN_ID;
    const bool bTaken = m_pTraceDisp->Process(packet, TraceKey(packet));
    switch (LoadLe<uint16_t>(packet, GU_TRACE_MSG_NAME)) {
    case TRACE_MAC_CONFIRM:
        m_Reports.OnMacConfirm(packet);
        return GU_RESULT_OK;
    case TRACE_MAC_CONFIG:
        m_Reports.OnMacConfig(packet);
        return GU_RESULT_OK;
    default:
        return bTaken ? GU_RESULT_TRACE_TAKEN : GU_RESULT_UNKNOWN_ID;
    }
}

DIAG_PACKET_ACK_STRU COperationGUData::GuAckHead(unsigned short usType, unsigned short usId)
{
    constexpr unsigned short MODE_GU = 0x0100; // system mode 1
    DIAG_PACKET_ACK_STRU stAck;
    stAck.usPktType = MODE_GU | usType;
    stAck.ulCmdId = (static_cast<unsigned int>(stAck.usPktType & 0xFFF) << 16) | usId;
    return stAck;
}

void COperationGUData::BuildMsgCnfPacket(unsigned short usType, unsigned int ulRc, unsigned int ulTimeStamp,
                                         unsigned short usId, ByteView data)
{
    DIAG_PACKET_ACK_STRU stAck = GuAckHead(usType, usId);
    stAck.ulRc = ulRc;
    stAck.ullTimeStamp = GetRealTimeStamp(ulTimeStamp);
    SendGUAckToClient(stAck, data);
}

DIAG_PACKET_ACK_STRU COperationGUData::BuildMsgIndPacket(unsigned short usType, unsigned int ulTimeStamp,
                                                         unsigned short usId, ByteView data)
{
    DIAG_PACKET_ACK_STRU stAck = GuAckHead(usType, usId);
    stAck.ulRc = GetMsgSnValue();
    stAck.ullTimeStamp = GetRealTimeStamp(ulTimeStamp);
    SendGUDataPacket2Client(stAck, data);
    return stAck;
}

void COperationGUData::SendGUAckToClient(const DIAG_PACKET_ACK_STRU& stAck, ByteView payload)
{
    IBindings* const pBindings = m_pBindings;
    const UE_INDEX ulUeIdx = m_ulUeId;
    if (ulUeIdx == UE_NONE)
        SendTo(LastClient().get(), stAck, payload);
    else if (pBindings)
        SendTo(pBindings->GetGUDataClient(ulUeIdx, CHANNEL_GU_CMD).get(), stAck, payload);
}

void COperationGUData::SendGUDataPacket2Client(const DIAG_PACKET_ACK_STRU& stAck, ByteView payload)
{
    IBindings* const pBindings = m_pBindings;
    if (pBindings)
        SendTo(pBindings->GetGUDataClient(m_ulUeId, CHANNEL_GU_DATA).get(), stAck, payload);
}

void COperationGUData::SendTo(IClientPort* pClient, const DIAG_PACKET_ACK_STRU& stAck, ByteView payload)
{
    if (pClient && !SendClientPacket(*pClient, stAck, payload))
        CDebug::Instance()->PrintInfo("DpGuCmd: function SendGUAckToClient Get memory faild");
}

/// The UE's name stands in the place of its version.
void COperationGUData::SendGUPacketToClient(const std::string& strText)
{
    UE_STATUS_STRU stStatus;
    stStatus.usPort = LISTENPORT[CHANNEL_GU_CMD];
    stStatus.szVersion = "UE0";
    stStatus.szText = strText;
    DIAG_PACKET_ACK_STRU stAck;
    stAck.ulCmdId = AGENT_CMD_GU_STATUS;
    stAck.usPktType = AGENT_CMD_GU_STATUS >> 16;
    SendGUAckToClient(stAck, EncodeRecord(stStatus));
}
