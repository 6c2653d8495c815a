#include "data/DpLteDiag.h"

#include "common/Debug.h"
#include "common/LteDiagInitCmd.h"
#include "data/LteLayout.h"
#include "data/ManagerConfigInfo.h"

namespace
{
constexpr unsigned char CMD_TYPE_DPI = 5;        // ucCmdType of acks to DPI messages and to NV traffic
constexpr unsigned int UE_RESULT_PARTIAL = 5;    // result of the UE that counts as success beside 0
constexpr size_t RESULT_SIZE = sizeof(uint32_t); // result word that opens the payload of an ack to a command

bool IsUeSuccess(unsigned int ulResult)
{
    return ulResult == DIAG_RC_OK || ulResult == UE_RESULT_PARTIAL;
}

unsigned char AckType(const DIAG_PACKET_ACK_STRU& stHead)
{
    return static_cast<unsigned char>(stHead.usPktType);
}

uint16_t WithType(uint16_t usPktType, unsigned char ucType)
{
    return static_cast<uint16_t>((usPktType & 0xFF00) | ucType);
}

/// The ack in the form of clients, before any filter.
DIAG_PACKET_ACK_VIEW DiagAckOf(const ADE_ACK_PACKET_STRU& stAck)
{
    DIAG_PACKET_ACK_VIEW stView;
    stView.stHead.ulCmdId = stAck.ulCmdId;
    stView.stHead.ulRc = DIAG_RC_OK;
    stView.stHead.ullTimeStamp = stAck.ullTimeStamp;
    const unsigned char ucType = stAck.ucCmdType == CMD_TYPE_DPI ? PKT_TYPE_MSG : PKT_TYPE_CMD;
    stView.stHead.usPktType = static_cast<uint16_t>(ucType | stAck.ucSysMode << 8 | stAck.ucReserved << 12);
    stView.stHead.usLen = stAck.usLen;
    stView.data = stAck.pData;
    return stView;
}

void StripFront(DIAG_PACKET_ACK_VIEW& stAck, size_t szCount)
{
    stAck.data = Slice(stAck.data, szCount);
    stAck.stHead.usLen = static_cast<uint16_t>(stAck.data.size());
}

void LogAck(unsigned int ulPort, const DIAG_PACKET_ACK_STRU& stAck, int iLine)
{
    CDebug::Instance()->PrintInfo("UE(com %d) to Client: lte cmd id is 0x%x, ulRc:0x%x, type is %d, line:%d", ulPort,
                                  stAck.ulCmdId, stAck.ulRc, AckType(stAck), iLine);
}
} // namespace

int CDataProcessorLteDiag::ProcessSerialData(ByteSpan data)
{
    PACKET_CATEGORY_ENUM enCategory = PACKET_CATEGORY_INVALID;
    if (GetPacketType(data, enCategory) != DIAG_RC_OK) {
        CDebug::Instance()->PrintError("Read invalid data from lte diag channel, port:%d", BindPort());
        return 0;
    }
    if (enCategory != PACKET_CATEGORY_ACK) {
        CDebug::Instance()->PrintWarn("Lte Diag Channel Receive NO ACK Data from Serial, port:%d, pktype:%d",
                                      BindPort(), enCategory);
        return 0;
    }
    ADE_ACK_PACKET_STRU stAck;
    if (!GetAdeAck(data, stAck))
        return 0;
    if (!IsIdInDspSwitch(stAck.ulCmdId)) // the agent sent these switches, so no client waits for the ack
        ProcessDiagAck(DiagAckOf(stAck));
    return 1;
}

unsigned int CDataProcessorLteDiag::GetPacketType(ByteView packet, PACKET_CATEGORY_ENUM& enCategory)
{
    return ClassifyPacket(*CConfig::Instance()->GetFilterCfg(), packet, enCategory);
}

bool CDataProcessorLteDiag::IsMgrAckPacketId(unsigned int ulId)
{
    return IsMgrAckId(ulId);
}

bool CDataProcessorLteDiag::GetAdeAck(ByteView packet, ADE_ACK_PACKET_STRU& stAck)
{
    return DecodeAckPacket(*CConfig::Instance()->GetFilterCfg(), packet, stAck);
}

bool CDataProcessorLteDiag::IsIdInDspSwitch(unsigned int ulId)
{
    return IsLteDiagInitCmd(ulId);
}

void CDataProcessorLteDiag::ProcessDiagAck(DIAG_PACKET_ACK_VIEW stAck)
{
    if (stAck.stHead.ulCmdId == UE_CMD_NV_READ) {
        SendWriteNvReq(stAck);
        return;
    }
    if (stAck.stHead.ulCmdId == UE_CMD_NV_WRITE) // the client sent it as a command for the agent
        stAck.stHead.usPktType = WithType(stAck.stHead.usPktType, PKT_TYPE_AGENT);
    CAcks out;
    unsigned int ulCount = 0;
    if (AckFilter(stAck, out, ulCount) == DIAG_RC_FILTERED)
        return;
    const auto Send = [this](const DIAG_PACKET_ACK_VIEW& st) {
        SendAckToClient(st.stHead.ulCmdId, st.stHead.usPktType, st.stHead.ulRc, st.data, st.stHead.ullTimeStamp);
    };
    if (ulCount == 0)
        Send(stAck);
    for (unsigned int i = 0; i < ulCount; ++i)
        Send(out[i]);
}

unsigned int CDataProcessorLteDiag::AckFilter(DIAG_PACKET_ACK_VIEW& stIn, CAcks& out, unsigned int& ulCount)
{
    ulCount = 0;
    if (stIn.stHead.usLen == 0)
        return DIAG_RC_OK;
    switch (AckType(stIn.stHead)) {
    case PKT_TYPE_CMD:
        return FilterCmdAck(stIn, out, ulCount);
    case PKT_TYPE_MSG:
        return CConfig::Instance()->GetDphFilterEnable() ? FilterDpiAck(stIn, out, ulCount) : DIAG_RC_OK;
    default:
        return DIAG_RC_OK;
    }
}

/// Acks to plain commands lose the UE's result word. It isn't looked at: the client sees success here, unlike in
/// the acks to the switches. Client tools rely on it.
unsigned int CDataProcessorLteDiag::FilterCmdAck(const DIAG_PACKET_ACK_VIEW& stIn, CAcks& out, unsigned int& ulCount)
{
    const unsigned int ulId = stIn.stHead.ulCmdId;
    if (ulId == UE_CMD_USER_PLANE_SWITCH || ulId == UE_CMD_EVENT_SWITCH || ulId == UE_CMD_AIR_SWITCH)
        return DoAirLayerEventUserPlaneAckFilter(stIn, out[0], ulCount, BindPort());
    if (!IsMspCmd(ulId))
        return DIAG_RC_OK;
    out[0] = stIn;
    StripFront(out[0], RESULT_SIZE);
    if (!IsUeSuccess(stIn.stHead.ulRc))
        out[0].stHead.ulRc = DIAG_RC_UE_FAIL;
    ulCount = 1;
    LogAck(BindPort(), out[0].stHead, __LINE__);
    return DIAG_RC_OK;
}

unsigned int CDataProcessorLteDiag::FilterDpiAck(DIAG_PACKET_ACK_VIEW& stIn, CAcks& out, unsigned int& ulCount)
{
    DIAG_PACKET_ACK_STRU& stHead = stIn.stHead;
    if (stHead.ulRc == UE_RESULT_PARTIAL) {
        constexpr unsigned int NOT_TRANSLATED = 0x5000;
        stHead.usPktType = static_cast<uint16_t>((stHead.usPktType & 0x0FFF) | NOT_TRANSLATED);
        stHead.ulCmdId = ManagerConfigInfo::Cmd2Dpi(stHead.ulCmdId);
        stHead.usLen = 0;
        stIn.data = {};
        return DIAG_RC_OK;
    }
    if (stHead.usLen < DIAG_OSA_HEADER::ACK_SIZE)
        return DIAG_RC_FILTERED;
    const unsigned int ulUeId = stHead.ulCmdId;
    stHead.ulRc = LoadLe<uint32_t>(stIn.data, DIAG_OSA_HEADER::RESULT_OFFSET);
    stHead.ulCmdId = LoadLe<uint32_t>(stIn.data, DIAG_OSA_HEADER::DPI_OFFSET);
    stHead.usLen = static_cast<uint16_t>(stHead.usLen - DIAG_OSA_HEADER::ACK_SIZE);
    unsigned int ulRc = DIAG_RC_OK;
    if (stHead.usLen > 0 && ManagerConfigInfo::IsNeedAckParamSplitByBit(ulUeId))
        ulRc = DoAckPacketParamSpliyViaBit(ulUeId, stIn, out, ulCount);
    else
        StripFront(stIn, DIAG_OSA_HEADER::ACK_SIZE);
    LogAck(BindPort(), stHead, __LINE__);
    return ulRc;
}

/// The client sent one switch with one id; the acks of its parts all come back under that id, each with the result
/// of its own part.
unsigned int CDataProcessorLteDiag::DoAirLayerEventUserPlaneAckFilter(const DIAG_PACKET_ACK_VIEW& stIn,
                                                                      DIAG_PACKET_ACK_VIEW& stOut,
                                                                      unsigned int& ulCount, unsigned int ulPort)
{
    const unsigned int ulId = stIn.stHead.ulCmdId;
    constexpr std::array<unsigned int, 5> SWITCH_IDS = {UE_CMD_AIR_SWITCH, UE_CMD_EVENT_SWITCH, UE_CMD_SWITCH_ACK_1,
                                                        UE_CMD_SWITCH_ACK_3, UE_CMD_USER_PLANE_SWITCH};
    stOut.stHead = stIn.stHead;
    if (std::ranges::find(SWITCH_IDS, ulId) == SWITCH_IDS.end())
        return DIAG_RC_OK;
    if (!IsUeSuccess(LoadLe<uint32_t>(stIn.data, 0)))
        stOut.stHead.ulRc = DIAG_RC_UE_FAIL;
    stOut.stHead.ulCmdId = UE_CMD_USER_PLANE_SWITCH;
    stOut.stHead.usLen = 0;
    stOut.data = {};
    ulCount = 1;
    const DIAG_PACKET_ACK_STRU& stHead = stOut.stHead;
    if (ulId == UE_CMD_AIR_SWITCH)
        CDebug::Instance()->PrintInfo("UE(com %d) to Client: lte cmd id(air) is 0x%x, ulRc:0x%x, type is %d, line:%d",
                                      ulPort, stHead.ulCmdId, stHead.ulRc, AckType(stHead), __LINE__);
    else if (ulId == UE_CMD_EVENT_SWITCH)
        CDebug::Instance()->PrintInfo("UE(com %d) to Client: lte cmd id(event) is 0x%x, ulRc:0x%x, type is %d, line:%d",
                                      ulPort, stHead.ulCmdId, stHead.ulRc, AckType(stHead), __LINE__);
    else
        LogAck(ulPort, stHead, __LINE__);
    return DIAG_RC_OK;
}

unsigned int CDataProcessorLteDiag::DoAckPacketParamSpliyViaBit(unsigned int ulId, const DIAG_PACKET_ACK_VIEW& stIn,
                                                                CAcks& out, unsigned int& ulCount)
{
    constexpr size_t BIT_SET_OFFSET = DIAG_OSA_HEADER::ACK_SIZE; // u32
    const auto ulBits = LoadLe<uint32_t>(stIn.data, BIT_SET_OFFSET);
    if (stIn.stHead.usLen <= sizeof(ulBits) || ulBits == 0)
        return DIAG_RC_FILTERED;
    ulCount = 0;
    for (unsigned int n = 0; n < out.size(); ++n) {
        ADE_PARMA_SPLIT_BIT_DATA_STRU stSplit;
        if ((ulBits >> n & 1) == 0 || !ManagerConfigInfo::GetAckParamSplitByBit(n << 24 | (ulId & 0xFFFFFF), stSplit))
            continue;
        DIAG_PACKET_ACK_VIEW& stPart = out[ulCount++];
        stPart.stHead = stIn.stHead;
        stPart.stHead.ulCmdId = stSplit.ulNewId;
        stPart.data = Slice(stIn.data, stSplit.usOffset, stSplit.usLen);
        stPart.stHead.usLen = static_cast<uint16_t>(stPart.data.size());
    }
    return DIAG_RC_OK;
}

unsigned int CDataProcessorLteDiag::SendWriteNvReq(const DIAG_PACKET_ACK_VIEW& stAck)
{
    if (stAck.data.empty()) {
        AckNvWrite(stAck.stHead, DIAG_RC_NULL_PARAM, UE_CMD_NV_WRITE);
        return DIAG_RC_NULL_PARAM;
    }
    uint32_t ulResult = 0, ulNvId = 0, ulNvLen = 0;
    CByteReader reader(stAck.data);
    reader.Field(ulResult);
    reader.Field(ulNvId);
    reader.Field(ulNvLen);
    if (ulResult != DIAG_RC_OK) { // the descriptor stays for a later read of the item
        AckNvWrite(stAck.stHead, ulResult, ulNvId);
        return ulResult;
    }
    // What is missing must not be written as zeros over the item. The descriptor stays here too.
    if (!reader.Ok() || reader.Left() < ulNvLen) {
        AckNvWrite(stAck.stHead, DIAG_RC_FAIL, ulNvId);
        return DIAG_RC_FAIL;
    }
    const std::unique_ptr<NV_WRITE_STRU> pWrite = TakeNvWrite(ulNvId);
    if (!pWrite)
        return DIAG_RC_OK;

    constexpr size_t NV_HEAD_SIZE = 2 * sizeof(uint32_t); // NV id, data length
    std::vector<unsigned char> params(NV_HEAD_SIZE + ulNvLen);
    StoreLe<uint32_t>(params, 0, ulNvId);
    StoreLe<uint32_t>(params, sizeof(uint32_t), ulNvLen);
    const ByteSpan nvData = ByteSpan(params).subspan(NV_HEAD_SIZE);
    std::ranges::copy(reader.Take(ulNvLen), nvData.begin());
    if (pWrite->ulItemCount > 0 && !ApplyNvWrite(*pWrite, nvData)) {
        AckNvWrite(stAck.stHead, DIAG_RC_FAIL, ulNvId);
        return DIAG_RC_FAIL;
    }
    // An item too long for a request is refused by the encoder.
    SendReq2UE({{UE_CMD_NV_WRITE, stAck.stHead.usPktType, static_cast<uint16_t>(params.size())}, params}, CMD_TYPE_DPI);
    return DIAG_RC_OK;
}

std::unique_ptr<NV_WRITE_STRU> CDataProcessorLteDiag::TakeNvWrite(unsigned int ulNvId)
{
    const xtl::MutexGuard guard(m_NvMutex);
    auto node = m_mapNvWrite.extract(ulNvId);
    return node ? std::move(node.mapped()) : nullptr;
}

/// Tells the client, which sent the write as a command for the agent, that it can't be done.
void CDataProcessorLteDiag::AckNvWrite(const DIAG_PACKET_ACK_STRU& stAck, unsigned int ulRc, unsigned int ulSecondWord)
{
    std::array<unsigned char, 2 * sizeof(uint32_t)> aucPayload{};
    StoreLe<uint32_t>(aucPayload, 0, ulRc);
    StoreLe<uint32_t>(aucPayload, sizeof(uint32_t), ulSecondWord);
    SendAckToClient(UE_CMD_NV_WRITE, WithType(stAck.usPktType, PKT_TYPE_AGENT), ulRc, aucPayload, stAck.ullTimeStamp);
}
