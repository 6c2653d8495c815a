#include "data/DpLteDiag.h"

#include "common/Debug.h"
#include "common/MsgBuf.h"
#include "data/LteLayout.h"
#include "data/ManagerConfigInfo.h"

#include <new>

namespace
{
constexpr size_t REQ_HEAD_RESERVE = 20; // a request must leave this much of REQ_BUF_LEN_MAX
constexpr unsigned char CMD_TYPE_PLAIN = 0;
constexpr unsigned char CMD_TYPE_DPI = 5; // DPI messages and NV traffic
constexpr size_t VERSION_RECORD_SIZE = 28;
constexpr size_t NV_WRITES_MAX = 65536; // that wait for their item; bounds the memory that one client can claim

unsigned char PacketType(const DIAG_PACKET_REQ_STRU& stHead)
{
    return static_cast<unsigned char>(stHead.usPktType);
}

/// Says so when a request with that many parameter bytes is too long to be encoded.
bool IsReqTooBig(size_t szParams)
{
    const bool bTooBig = szParams + REQ_HEAD_RESERVE > REQ_BUF_LEN_MAX;
    if (bTooBig)
        CDebug::Instance()->PrintWarn("Ade Req Packet Too big");
    return bTooBig;
}

/// The UE version record of clients, from what the UE told at the host connect.
std::array<unsigned char, VERSION_RECORD_SIZE> VersionRecord(const ADE_UE_CONNECTION_ACK_STRU& stConnection)
{
    using Ack = ADE_UE_CONNECTION_ACK_STRU;
    constexpr size_t VERSION_WORDS = 6;
    const ByteView ack(stConnection.aucData);
    const auto ulIdentity = LoadLe<uint32_t>(ack, Ack::IDENTITY);
    std::array<unsigned char, VERSION_RECORD_SIZE> aucRecord{};
    CByteWriter writer(aucRecord);
    for (size_t i = 0; i < VERSION_WORDS; ++i) // V, R, C, B, SP, next
        writer.Field(stConnection.Version(i));
    writer.Field(LoadLe<uint32_t>(ack, Ack::EXTRA));
    writer.Field(static_cast<uint16_t>(ulIdentity >> 16));
    writer.Field(static_cast<uint16_t>(ulIdentity));
    writer.Field(LoadLe<uint32_t>(ack, Ack::IDENTITY + 4));
    writer.Field(LoadLe<uint32_t>(ack, Ack::IDENTITY + 8));
    return aucRecord;
}
} // namespace

// What the agent answers by itself. ProcessAgentConfig has nothing to do.
const CDataProcessorLteDiag::AGENT_CMD_ROW CDataProcessorLteDiag::c_astAgentCmd[] = {
    {AGENT_CMD_UE_VERSION, &CDataProcessorLteDiag::ProcessUEVerQuery},
    {AGENT_CMD_BIND, &CDataProcessorLteDiag::ProcessBindReq},
    {AGENT_CMD_UNBIND, &CDataProcessorLteDiag::ProcessBindReq},
    {AGENT_CMD_CHANNEL_QUERY, &CDataProcessorLteDiag::ProcessChannelQuery},
    {AGENT_CMD_TIME_STAMP, &CDataProcessorLteDiag::ProcessTimeStampQuery},
    {AGENT_CMD_CONFIG, &CDataProcessorLteDiag::ProcessAgentConfig},
    {UE_CMD_NV_WRITE, &CDataProcessorLteDiag::ProcessNVWrite},
};

CDataProcessorLteDiag::CDataProcessorLteDiag(IBindings* pBindings, IClientPort* pClient)
    : CDataProcessor(pBindings, pClient)
{
    m_enChannelType = CHANNEL_LTE_DIAG;
}

int CDataProcessorLteDiag::ProcessClientData(ByteView packet)
{
    if (packet.data() == nullptr) {
        CDebug::Instance()->PrintError("Lte Diag Reques is NULL");
        return 0;
    }
    const DIAG_PACKET_REQ_VIEW stReq = ViewReq(packet);
    const unsigned char ucType = PacketType(stReq.stHead);
    CDebug::Instance()->PrintInfo("Client to UE(com %d): lte cmd id is 0x%x, type is %d, line:%d", BindPort(),
                                  stReq.stHead.ulCmdId, ucType, __LINE__);
    switch (ucType) {
    case PKT_TYPE_MSG:
        ProcessDiagMsg(stReq);
        break;
    case PKT_TYPE_CMD:
        ProcessDiagCmd(stReq);
        break;
    case PKT_TYPE_AGENT:
        ProcessDiagAgent(stReq);
        break;
    default:
        ProcessDiagReq(stReq);
        break;
    }
    return 1;
}

void CDataProcessorLteDiag::ProcessDiagReq(const DIAG_PACKET_REQ_VIEW& stReq)
{
    SendReq2UE(stReq, CMD_TYPE_PLAIN);
}

void CDataProcessorLteDiag::ProcessDiagMsg(const DIAG_PACKET_REQ_VIEW& stReq)
{
    const unsigned int ulDpi = stReq.stHead.ulCmdId;
    const unsigned int ulCmdId = ManagerConfigInfo::Dpi2Cmd(ulDpi);
    if (ulCmdId == ID_INVALID) {
        CDebug::Instance()->PrintWarn("ManagerConfigInfo::Dpi2Cmd fail! ulId is 0x%x", ulDpi);
        return;
    }
    ADE_UE_CONNECTION_ACK_STRU stConnection;
    if (!GetConnection(stConnection)) {
        CDebug::Instance()->PrintWarn("client is not bind to any channel");
        AckNotBound(ulDpi, stReq.stHead.usPktType);
        return;
    }
    CRequests out;
    if (!BuildDiagReqPacketByDpi(stConnection.UeVer(), ulDpi, ulCmdId, stReq, out)) {
        CDebug::Instance()->PrintError("BuildDiagReqPacketByDpi is fail, ulId is 0x%x, ulCmdId is 0x%x", ulDpi,
                                       ulCmdId);
        return;
    }
    SendReq2UE(ViewReq(out), CMD_TYPE_DPI);
}

void CDataProcessorLteDiag::ProcessDiagCmd(const DIAG_PACKET_REQ_VIEW& stReq)
{
    if (stReq.stHead.ulCmdId != UE_CMD_USER_PLANE_SWITCH) {
        SendReq2UE(stReq, CMD_TYPE_PLAIN);
        return;
    }
    CRequests out;
    unsigned int ulCount = 0;
    if (DoAirLayerEventUserPlaneReqFilter(stReq, out, ulCount, BindPort()) != DIAG_RC_OK) {
        CDebug::Instance()->PrintInfo("DoAirLayerEventUserPlaneReqFilter() error!");
        return;
    }
    for (ByteView left(out); ulCount > 0; --ulCount) {
        const DIAG_PACKET_REQ_VIEW stPart = ViewReq(left);
        SendReq2UE(stPart, CMD_TYPE_PLAIN);
        left = Slice(left, DIAG_PACKET_REQ_STRU::SIZE + stPart.stHead.usLen);
    }
}

void CDataProcessorLteDiag::ProcessDiagAgent(const DIAG_PACKET_REQ_VIEW& stReq)
{
    for (const AGENT_CMD_ROW& stRow : c_astAgentCmd) {
        if (stRow.ulCmdId == stReq.stHead.ulCmdId) {
            (this->*stRow.pfnProcess)(stReq);
            return;
        }
    }
    CDebug::Instance()->PrintWarn("no process client command %x", stReq.stHead.ulCmdId);
}

void CDataProcessorLteDiag::ProcessUEVerQuery(const DIAG_PACKET_REQ_VIEW& stReq)
{
    ADE_UE_CONNECTION_ACK_STRU stConnection;
    if (GetConnection(stConnection))
        SendAckToClient(stReq.stHead.ulCmdId, stReq.stHead.usPktType, DIAG_RC_OK, VersionRecord(stConnection), 0);
    else
        SendAckToClient(stReq.stHead.ulCmdId, stReq.stHead.usPktType, DIAG_RC_FAIL, {}, 0);
}

void CDataProcessorLteDiag::ProcessBindReq(const DIAG_PACKET_REQ_VIEW& stReq)
{
    (void)ProcessBindCmd(stReq); // only called for the two ids that it knows
}

void CDataProcessorLteDiag::ProcessChannelQuery(const DIAG_PACKET_REQ_VIEW& stReq)
{
    if (m_pBindings != nullptr)
        SendAckToClient(stReq.stHead.ulCmdId, stReq.stHead.usPktType, DIAG_RC_OK, m_pBindings->GetChannelsInfo(), 0);
}

/// The UE's own ack goes out unchanged; all zero while none came.
void CDataProcessorLteDiag::ProcessTimeStampQuery(const DIAG_PACKET_REQ_VIEW& stReq)
{
    const UE_INDEX ulUeIdx = m_pBindings != nullptr ? m_pBindings->GetBindedUE(m_pClient) : UE_NONE;
    if (ulUeIdx == UE_NONE) {
        AckNotBound(stReq.stHead.ulCmdId, stReq.stHead.usPktType);
        return;
    }
    const auto packet = m_pBindings->GetTimeStampPacket(ulUeIdx);
    const DIAG_PACKET_ACK_VIEW stAck = ViewAck(packet);
    SendAckToClient(stAck.stHead.ulCmdId, stAck.stHead.usPktType, stAck.stHead.ulRc, stAck.data,
                    stAck.stHead.ullTimeStamp);
}

void CDataProcessorLteDiag::ProcessAgentConfig(const DIAG_PACKET_REQ_VIEW& /*stReq*/)
{
    // A client may still send it; nothing is left to configure this way, and no answer is expected.
}

void CDataProcessorLteDiag::ProcessNVWrite(const DIAG_PACKET_REQ_VIEW& stReq)
{
    NV_WRITE_STRU stWrite;
    CByteReader reader(stReq.data);
    NvWriteFields(reader, stWrite);
    if (!KeepNvWrite(stWrite)) {
        CDebug::Instance()->PrintInfo("(com %d)DpLteDiag: function ProcessNVWrite Get memory faild", BindPort());
        return;
    }
    std::array<unsigned char, sizeof(uint32_t)> aucNvId{};
    StoreLe<uint32_t>(aucNvId, 0, stWrite.ulNvId);
    SendReq2UE({{UE_CMD_NV_READ, stReq.stHead.usPktType, sizeof(uint32_t)}, aucNvId}, CMD_TYPE_DPI);
}

bool CDataProcessorLteDiag::KeepNvWrite(const NV_WRITE_STRU& stWrite)
{
    const xtl::MutexGuard guard(m_NvMutex);
    if (m_mapNvWrite.contains(stWrite.ulNvId))
        return true;
    if (m_mapNvWrite.size() >= NV_WRITES_MAX)
        return false;
    std::unique_ptr<NV_WRITE_STRU> pWrite(new (std::nothrow) NV_WRITE_STRU(stWrite));
    if (!pWrite)
        return false;
    m_mapNvWrite.emplace(stWrite.ulNvId, std::move(pWrite));
    return true;
}

/// What the bound UE told at the host connect; false without a UE.
bool CDataProcessorLteDiag::GetConnection(ADE_UE_CONNECTION_ACK_STRU& stConnection)
{
    const UE_INDEX ulUeIdx = m_pBindings != nullptr ? m_pBindings->GetBindedUE(m_pClient) : UE_NONE;
    if (ulUeIdx == UE_NONE)
        return false;
    stConnection = m_pBindings->GetUEConnectionAck(ulUeIdx);
    return true;
}

void CDataProcessorLteDiag::AckNotBound(unsigned int ulCmdId, unsigned short usPktType)
{
    SendAckToClient(ulCmdId, usPktType, DIAG_RC_NOT_BOUND, {}, 0);
}

bool CDataProcessorLteDiag::SendReq2UE(const DIAG_PACKET_REQ_VIEW& stReq, unsigned char ucCmdType)
{
    if (m_pBindings == nullptr)
        return false;
    const UE_INDEX ulUeIdx = m_pBindings->GetBindedUE(m_pClient);
    const bool bReady = ulUeIdx != UE_NONE && m_pBindings->IsChannelOK(ulUeIdx, m_enChannelType);
    if (!bReady) {
        CDebug::Instance()->PrintWarn(ulUeIdx == UE_NONE ? "client is not bind to any channel" : "Channel is not ok");
        // A DPI message gets back the id that the client sent.
        const bool bDpi = PacketType(stReq.stHead) == PKT_TYPE_MSG;
        AckNotBound(bDpi ? ManagerConfigInfo::Cmd2Dpi(stReq.stHead.ulCmdId) : stReq.stHead.ulCmdId,
                    stReq.stHead.usPktType);
        return false;
    }
    SendData2UE(BuildUeBuf(stReq, ucCmdType), ulUeIdx, m_enChannelType);
    return true;
}

CPacket CDataProcessorLteDiag::BuildUeBuf(const DIAG_PACKET_REQ_VIEW& stReq, unsigned char ucCmdType)
{
    if (IsReqTooBig(stReq.stHead.usLen))
        return {};
    ADE_REQ_PACKET_STRU stUeReq;
    stUeReq.ulCmdId = stReq.stHead.ulCmdId;
    stUeReq.ucCmdType = ucCmdType;
    stUeReq.usLen = stReq.stHead.usLen;
    stUeReq.pData = stReq.data;
    return BuildReqPacketVx(stUeReq);
}

CPacket CDataProcessorLteDiag::BuildReqPacketVx(const ADE_REQ_PACKET_STRU& stReq)
{
    return EncodeReqPacket(*CConfig::Instance()->GetFilterCfg(), stReq);
}

bool CDataProcessorLteDiag::BuildDiagReqPacketByDpi(unsigned int ulUeVersion, unsigned int ulDpi, unsigned int ulCmd,
                                                    const DIAG_PACKET_REQ_VIEW& stIn, CRequests& out)
{
    unsigned int aulPids[2] = {};
    (void)ManagerConfigInfo::GetPids(ulUeVersion, ulDpi, aulPids); // no entry leaves both zero
    if (aulPids[0] == 0 || aulPids[1] == 0)
        return false;
    const size_t szParams = stIn.stHead.usLen;
    if (IsReqTooBig(szParams + DIAG_OSA_HEADER::SIZE))
        return false;
    const auto usLen = static_cast<uint16_t>(szParams + DIAG_OSA_HEADER::SIZE);
    const DIAG_PACKET_REQ_STRU stHead{ulCmd, stIn.stHead.usPktType, usLen};
    const DIAG_OSA_HEADER stOsa{aulPids[0], aulPids[1], static_cast<uint32_t>(szParams + DIAG_OSA_HEADER::LEN_SURPLUS),
                                ulDpi, ulCmd & 0xFFFF};
    out.assign(DIAG_PACKET_REQ_STRU::SIZE + usLen, 0);
    CByteWriter writer(out);
    ReqHead(writer, stHead);
    OsaHead(writer, stOsa);
    writer.Bytes(stIn.data);
    return true;
}

namespace
{
constexpr size_t SWITCH_ENTRY_SIZE = 12;
constexpr unsigned int SWITCH_ENTRIES_MAX = 200;

/// One entry of a client's air/event/user-plane switch.
struct SWITCH_ENTRY
{
    uint32_t ulLogId = 0;
    uint32_t ulLogKind = 0; // SWITCH_KIND_... from the client, UE_KIND_... towards the UE
    uint32_t ulLogValue = 0;
};
template <class Io, class Entry> void SwitchEntry(Io& io, Entry& stEntry)
{
    io.Field(stEntry.ulLogId);    // 0
    io.Field(stEntry.ulLogKind);  // 4
    io.Field(stEntry.ulLogValue); // 8
}
enum
{
    SWITCH_KIND_AIR = 1,
    SWITCH_KIND_USER_PLANE = 2,
    SWITCH_KIND_EVENT = 3,
    SWITCH_KIND_USER_PLANE_2 = 4
};
constexpr uint32_t UE_KIND_USER_PLANE = 0x1000;
constexpr uint32_t UE_KIND_USER_PLANE_2 = 0x200;

using CWords = std::vector<uint32_t>;

/// The parameters of the UE's three switches.
struct SWITCH_LISTS
{
    CWords air;       // pairs {value, 1}
    CWords event;     // values
    CWords userPlane; // entries {id, UE_KIND_..., value}
};

/// False for a kind that isn't known.
bool SortSwitchEntry(const SWITCH_ENTRY& stEntry, SWITCH_LISTS& stLists)
{
    const auto AddUserPlane = [&](uint32_t ulId, uint32_t ulKind) {
        stLists.userPlane.insert(stLists.userPlane.end(), {ulId, ulKind, stEntry.ulLogValue});
    };
    switch (stEntry.ulLogKind) {
    case SWITCH_KIND_AIR:
        stLists.air.insert(stLists.air.end(), {stEntry.ulLogValue, 1});
        return true;
    case SWITCH_KIND_EVENT:
        stLists.event.push_back(stEntry.ulLogValue);
        return true;
    case SWITCH_KIND_USER_PLANE:
        AddUserPlane(stEntry.ulLogId, UE_KIND_USER_PLANE);
        // Clients know one id of the cell measurements; the UE has a second one behind it.
        if (ManagerConfigInfo::CellMeasKind(stEntry.ulLogId) == CELL_MEAS_CONNECTED) {
            unsigned int aulIds[2] = {};
            (void)ManagerConfigInfo::GetCellMeasPacketId(aulIds); // has no way to fail
            AddUserPlane(aulIds[CELL_MEAS_IDLE], UE_KIND_USER_PLANE);
        }
        return true;
    case SWITCH_KIND_USER_PLANE_2:
        AddUserPlane(stEntry.ulLogId, UE_KIND_USER_PLANE_2);
        return true;
    default:
        return false;
    }
}

/// Appends a request with the words as parameters. False, and nothing appended, when there are none.
bool AppendSwitchReq(CDataProcessorLteDiag::CRequests& out, unsigned int ulCmdId, uint16_t usPktType,
                     const CWords& words)
{
    if (words.empty())
        return false;
    const size_t szStart = out.size();
    const size_t szLen = words.size() * sizeof(uint32_t);
    out.resize(szStart + DIAG_PACKET_REQ_STRU::SIZE + szLen);
    CByteWriter writer(ByteSpan(out).subspan(szStart));
    const DIAG_PACKET_REQ_STRU stHead{ulCmdId, usPktType, static_cast<uint16_t>(szLen)};
    ReqHead(writer, stHead);
    for (const uint32_t ulWord : words)
        writer.Field(ulWord);
    return true;
}
} // namespace

unsigned int CDataProcessorLteDiag::DoAirLayerEventUserPlaneReqFilter(const DIAG_PACKET_REQ_VIEW& stIn, CRequests& out,
                                                                      unsigned int& ulCount, unsigned int ulPort)
{
    const unsigned int usLogCatInCnt = stIn.stHead.usLen / SWITCH_ENTRY_SIZE;
    if (usLogCatInCnt == 0 || usLogCatInCnt > SWITCH_ENTRIES_MAX) {
        CDebug::Instance()->PrintError("usLogCatInCnt is %d", usLogCatInCnt);
        return DIAG_RC_FAIL;
    }
    SWITCH_LISTS stLists;
    CByteReader reader(stIn.data);
    for (unsigned int i = 0; i < usLogCatInCnt; ++i) {
        SWITCH_ENTRY stEntry;
        SwitchEntry(reader, stEntry);
        // An entry of unknown kind holds the walk up for good: the entries behind it are lost, and client tools know
        // it.
        if (!SortSwitchEntry(stEntry, stLists))
            break;
    }
    const uint16_t usPktType = stIn.stHead.usPktType;
    ulCount = 0;
    ulCount += AppendSwitchReq(out, UE_CMD_AIR_SWITCH, usPktType, stLists.air);
    ulCount += AppendSwitchReq(out, UE_CMD_EVENT_SWITCH, usPktType, stLists.event);
    if (AppendSwitchReq(out, UE_CMD_USER_PLANE_SWITCH, usPktType, stLists.userPlane)) {
        ++ulCount;
        CDebug::Instance()->PrintInfo("Client to UE(com %d): lte cmd id is 0x%x, switch: 0x%x, line:%d", ulPort,
                                      stLists.userPlane[0], stLists.userPlane[2], __LINE__);
    }
    return DIAG_RC_OK;
}
