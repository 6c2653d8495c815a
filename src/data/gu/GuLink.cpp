#include "data/gu/GuLink.h"

#include "common/Debug.h"
#include "common/MsgBuf.h"
#include "data/gu/GUDataProcess.h"
#include "data/gu/base/GuPacket.h"

#include <array>

namespace
{
// The link request and the UE's answer.
constexpr std::array<unsigned char, 16> LINK_REQUEST = {0x10, 0x00, 0x01, 0x01, 0x0A, 0x00, 0x08, 0x00,
                                                        0xB1, 0x80, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00};
constexpr size_t LINK_ANSWER_ID_OFFSET = 12; // from OM_FRAME_START
constexpr uint16_t LINK_ANSWER_ID = 0x80B2;

constexpr uint16_t GU_ENABLE_TRANS = 0x5000;
constexpr uint16_t GU_IMEI_QUERY = 0xC001;
constexpr uint16_t GU_VERSION_QUERY = 0x8081;
constexpr uint16_t GU_MODEM_NUM_QUERY = 0x8211;
constexpr uint16_t GU_MODE_QUERY = 0x80A5;
constexpr uint32_t GU_PID_IMEI = 141; // receiver of the IMEI query

/// A request of szSize bytes with its head, the rest zero.
template <size_t szSize> std::array<unsigned char, szSize> GuRequest(unsigned char ucCategory)
{
    std::array<unsigned char, szSize> aucReq{};
    aucReq[GU_CATEGORY] = ucCategory;
    StoreLe<uint16_t>(aucReq, GU_PACKET_LEN, szSize - GU_LEN_OFFSET_BASE);
    return aucReq;
}

template <size_t szSize> std::array<unsigned char, szSize> GuShortQuery(unsigned char ucCategory, uint16_t usId)
{
    auto aucReq = GuRequest<szSize>(ucCategory);
    StoreLe<uint16_t>(aucReq, GU_QUERY_MSG_ID, usId);
    return aucReq;
}
} // namespace

/// The request goes out as it stands, without an OM frame.
void CGuLink::SendLinkRequest(UE_INDEX ulUeIdx)
{
    CPacket request = CPacket::Copy(LINK_REQUEST);
    if (!request)
        CDebug::Instance()->PrintInfo("Agent:pBuf Get memory faild");
    SendData2UE(std::move(request), ulUeIdx, CHANNEL_GU_CMD);
}

bool CGuLink::JudgeJIANLIANCMD(ByteView packet)
{
    if (m_bJianLian)
        return false;
    size_t szMark = 0;
    while (szMark < packet.size() && LoadLe<uint32_t>(packet, szMark) != OM_FRAME_START)
        ++szMark;
    const size_t szId = szMark + LINK_ANSWER_ID_OFFSET;
    if (szId + 1 >= packet.size() || LoadLe<uint16_t>(packet, szId) != LINK_ANSWER_ID)
        return false;
    CDebug::Instance()->PrintInfo("JIAN LIAN SUCCESS");
    m_bJianLian = true;
    return true;
}

void CGuLink::SendGUReq2UE(ByteView msg, UE_INDEX ulUeIdx)
{
    CPacket frame = CGUDataProcess::OM_UsbFrameEncap(msg, 1, 1);
    if (!frame)
        CDebug::Instance()->PrintInfo("DpGuCmd function SendReq2UE Get memory Faild");
    SendData2UE(std::move(frame), ulUeIdx, CHANNEL_GU_CMD);
}

void CGuLink::EnableTransMsg(UE_INDEX ulUeIdx)
{
    SendGUReq2UE(GuShortQuery<12>(GU_CATEGORY_TRANS, GU_ENABLE_TRANS), ulUeIdx);
}

void CGuLink::SendUeInfoReqToUe(UE_INDEX ulUeIdx)
{
    auto aucImei = GuRequest<32>(GU_CATEGORY_TRANS);
    StoreLe<uint32_t>(aucImei, GU_REQ_SENDER_PID, GU_PID_AGENT);
    StoreLe<uint32_t>(aucImei, GU_REQ_RECEIVER_PID, GU_PID_IMEI);
    StoreLe<uint32_t>(aucImei, GU_REQ_PARAM_LEN, 8); // four bytes of parameters, all zero
    StoreLe<uint16_t>(aucImei, GU_REQ_MSG_ID, GU_IMEI_QUERY);
    CDebug::Instance()->PrintInfo("gu:send imei query to ue: 0x%04x", GU_IMEI_QUERY);
    SendGUReq2UE(aucImei, ulUeIdx);
    CDebug::Instance()->PrintInfo("gu:send version query to ue: 0x%04x", GU_VERSION_QUERY);
    SendGUReq2UE(GuShortQuery<12>(GU_CATEGORY_QUERY, GU_VERSION_QUERY), ulUeIdx);
}

void CGuLink::QueryUeModemNum(UE_INDEX ulUeIdx)
{
    CDebug::Instance()->PrintInfo("Query is or not insist single double card ueid = %d", static_cast<int>(ulUeIdx));
    SendGUReq2UE(GuShortQuery<8>(GU_CATEGORY_QUERY, GU_MODEM_NUM_QUERY), ulUeIdx);
}

void CGuLink::ModeQuery(DSDA_MODEM_ID_ENUM enModemId, UE_INDEX ulUeIdx)
{
    CDebug::Instance()->PrintInfo("ModeQuery");
    const unsigned char ucModem = enModemId == MODEM_ID_1 ? GU_CATEGORY_MODEM_1 : 0;
    CDebug::Instance()->PrintInfo("Send Query Mode request enModemId = %d", static_cast<int>(enModemId));
    SendGUReq2UE(GuShortQuery<12>(GU_CATEGORY_QUERY | ucModem, GU_MODE_QUERY), ulUeIdx);
}
