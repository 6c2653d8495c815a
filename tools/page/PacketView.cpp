#include "page/PacketView.h"

#include "client/Decode.h"
#include "client/Names.h"
#include "client/Parse.h"
#include "client/Reports.h"
#include "common/Record.h"
#include "common/Types.h"
#include "data/DiagPacket.h"
#include "data/LteLayout.h"
#include "page/PageState.h"
#include "tap/TapEvents.h"

#include <nlohmann/json.hpp>

using nlohmann::ordered_json;

namespace
{
constexpr size_t HEX_MOST = 4096; // bytes of a packet that are shown
constexpr size_t SUMMARY_BYTES = 16;
constexpr size_t SUMMARY_TEXT = 80; // characters
constexpr size_t TEXT_MOST = 4096;

/// What can be said of a packet; empty or null where nothing can.
struct PACKET_WORDS // NOLINT(bugprone-exception-escape): moving a JSON value throws nothing, it only asserts
{
    std::optional<uint32_t> id = {};
    std::string strName = {};
    std::string strType = {};
    std::optional<uint32_t> rc = {};
    std::string strSummary = {};
    ordered_json head = {};
    ordered_json decoded = {};
};

bool IsGu(uint8_t ucChannel)
{
    return ucChannel == CHANNEL_GU_CMD || ucChannel == CHANNEL_GU_DATA;
}

std::string ReportName(const REPORT_ID& stId)
{
    if (stId.pstRow == nullptr)
        return "";
    return std::string(stId.pstRow->pszName) + (stId.pstRow->usModemStep != 0 && stId.ulModem == 1 ? ", modem 1" : "");
}

REPORT_ID FindByRequest(uint16_t usReq)
{
    const REPORT_ID stId = FindReportByReq(GuReports(), usReq);
    return stId.pstRow != nullptr ? stId : FindReportByReq(StatReports(), usReq);
}

/// The first bytes in hexadecimal digits, in pairs of bytes.
std::string BytesSummary(ByteView bytes)
{
    std::string strText;
    for (const unsigned char ucByte : Slice(bytes, 0, SUMMARY_BYTES))
        strText += (strText.empty() ? "" : " ") + HexDigits({&ucByte, 1});
    return strText + (bytes.size() > SUMMARY_BYTES ? " .." : "");
}

/// Text with everything but printable ASCII as a dot.
std::string Printable(ByteView bytes, size_t szMost)
{
    std::string strText;
    for (const unsigned char ucByte : Slice(bytes, 0, szMost))
        if (ucByte != '\r' && ucByte != '\n')
            strText += ucByte >= ' ' && ucByte < 0x7F ? static_cast<char>(ucByte) : '.';
    return strText;
}

/// The record behind an answer's head; null when its fields aren't known.
ordered_json DecodeAnswer(uint8_t ucChannel, const DIAG_PACKET_ACK_VIEW& stAck, const REPORT_ID& stReport)
{
    if (const RECORD_LAYOUT* const pstLayout = AnswerLayout(stAck.stHead.ulCmdId))
        return Decode(*pstLayout, stAck.data);
    if (ucChannel == CHANNEL_LTE_DATA) {
        const RECORD_LAYOUT* const pstLayout = IndicationLayout(stAck.stHead.usPktType, stAck.data.size());
        return pstLayout == nullptr ? ordered_json() : Decode(*pstLayout, stAck.data);
    }
    if (stReport.pstRow == nullptr)
        return {};
    const bool bData =
        stReport.IsInd(static_cast<uint16_t>(stAck.stHead.ulCmdId & 0xFFFF)) || stReport.pstRow->enForm == PARAM_QUERY;
    if (!bData)
        return {{"result", LoadLe<uint32_t>(stAck.data, 0)}};
    return stReport.pstRow->pstLayout == nullptr ? ordered_json() : Decode(*stReport.pstRow->pstLayout, stAck.data);
}

ordered_json AckHeadJson(const DIAG_PACKET_ACK_STRU& stHead)
{
    return {{"id", HexId(stHead.ulCmdId)},
            {"rc", stHead.ulRc},
            {"stamp", stHead.ullTimeStamp},
            {"type", stHead.usPktType & 0xFF},
            {"mode", SystemModeName(stHead.usPktType)},
            {"length", stHead.usLen}};
}

PACKET_WORDS ToClientWords(uint8_t ucChannel, ByteView packet)
{
    const DIAG_PACKET_ACK_VIEW stAck = ViewAck(packet);
    const DIAG_PACKET_ACK_STRU& stHead = stAck.stHead;
    PACKET_WORDS stWords{.id = stHead.ulCmdId, .strName = IdName(stHead.ulCmdId), .rc = stHead.ulRc};
    REPORT_ID stReport;
    if (IsGu(ucChannel) && stWords.strName.empty())
        stReport = FindReportByAnswer(static_cast<uint16_t>(stHead.ulCmdId & 0xFFFF));
    const bool bLteData = ucChannel == CHANNEL_LTE_DATA;
    if (stWords.strName.empty())
        stWords.strName = bLteData ? IndicationKindName(stHead.usPktType) : ReportName(stReport);
    stWords.strType = bLteData ? IndicationKindName(stHead.usPktType) : PacketTypeName(stHead.usPktType);
    stWords.head = AckHeadJson(stHead);
    stWords.decoded = DecodeAnswer(ucChannel, stAck, stReport);
    stWords.strSummary = ucChannel == CHANNEL_AT ? Printable(stAck.data, SUMMARY_TEXT) : BytesSummary(stAck.data);
    const bool bResult = ucChannel == CHANNEL_LTE_DIAG || ucChannel == CHANNEL_GU_CMD;
    if (bResult && stHead.ulRc != DIAG_RC_OK)
        stWords.strSummary = ResultText(stHead.ulRc);
    return stWords;
}

PACKET_WORDS FromClientWords(uint8_t ucChannel, ByteView packet)
{
    const DIAG_PACKET_REQ_VIEW stReq = ViewReq(packet);
    const DIAG_PACKET_REQ_STRU& stHead = stReq.stHead;
    PACKET_WORDS stWords{.id = stHead.ulCmdId, .strName = IdName(stHead.ulCmdId)};
    if (IsGu(ucChannel) && stWords.strName.empty())
        stWords.strName = ReportName(FindByRequest(static_cast<uint16_t>(stHead.ulCmdId & 0xFFFF)));
    stWords.strType = PacketTypeName(stHead.usPktType);
    stWords.head = {{"id", HexId(stHead.ulCmdId)}, {"type", stHead.usPktType & 0xFF}, {"length", stHead.usLen}};
    if (stHead.ulCmdId == AGENT_CMD_BIND)
        stWords.decoded = {{"port", LoadLe<uint32_t>(stReq.data, 0)}};
    stWords.strSummary = ucChannel == CHANNEL_AT ? Printable(stReq.data, SUMMARY_TEXT) : BytesSummary(stReq.data);
    return stWords;
}

PACKET_WORDS TextWords(ByteView packet)
{
    return {.strName = "AT text",
            .strSummary = Printable(packet, SUMMARY_TEXT),
            .decoded = {{"text", Printable(packet, TEXT_MOST)}}};
}

PACKET_WORDS ChannelWords(ByteView bytes)
{
    TAP_CHANNEL_EVENT st;
    (void)DecodeRecord(bytes, st); // what is missing is empty
    const std::string strState = st.ucAttached == 0 ? "detached" : st.ucConfirmed != 0 ? "confirmed" : "attached";
    return {.strName = "port event",
            .strSummary = Printable(AsBytes(st.strName), SUMMARY_TEXT) + ' ' + strState,
            .decoded = {{"name", st.strName},
                        {"group", st.strGroup},
                        {"attached", st.ucAttached != 0},
                        {"confirmed", st.ucConfirmed != 0}}};
}

PACKET_WORDS EventWords(ByteView bytes)
{
    TAP_UE_EVENT stUe;
    TAP_CLIENT_EVENT stClient;
    TAP_SINCE_EVENT stSince;
    TAP_LOG_EVENT stLog;
    switch (static_cast<TAP_EVENT>(LoadLe<uint32_t>(bytes, 0))) {
    case TAP_EVENT::CHANNEL:
        return ChannelWords(bytes);
    case TAP_EVENT::UE:
        (void)DecodeRecord(bytes, stUe); // what is missing is empty
        return {.strName = "UE event",
                .strSummary = Printable(AsBytes(stUe.strVersion), SUMMARY_TEXT),
                .decoded = {{"version", stUe.strVersion}, {"imei", stUe.strImei}}};
    case TAP_EVENT::CLIENT:
        (void)DecodeRecord(bytes, stClient); // what is missing is empty
        return {.strName = "client event",
                .strSummary = stClient.ucConnected != 0 ? "connected from " + stClient.strAddress : "gone",
                .decoded = {{"connected", stClient.ucConnected != 0}, {"address", stClient.strAddress}}};
    case TAP_EVENT::SINCE:
        (void)DecodeRecord(bytes, stSince); // what is missing is 0
        return {.strName = "since event",
                .strSummary = "since when the channel is as it is",
                .decoded = {{"state_ns", stSince.ullState},
                            {"bound_ns", stSince.ullBound},
                            {"connected_ns", stSince.ullConnected}}};
    case TAP_EVENT::LOG:
        (void)DecodeRecord(bytes, stLog); // what is missing is empty
        return {.strName = "log event",
                .strSummary = Printable(AsBytes(stLog.strFile), SUMMARY_TEXT),
                .decoded = {{"file", stLog.strFile}}};
    }
    return {};
}

PACKET_WORDS AckFromUe(const FILTER_CFG_STRU& stLayout, ByteView packet)
{
    ADE_ACK_PACKET_STRU stAck;
    if (!DecodeAckPacket(stLayout, packet, stAck))
        return {};
    return {.id = stAck.ulCmdId,
            .strName = IdName(stAck.ulCmdId),
            .strType = "ack",
            .strSummary = BytesSummary(stAck.pData),
            .head = {{"id", HexId(stAck.ulCmdId)},
                     {"ack_field", stAck.usAckField},
                     {"stamp", stAck.ullTimeStamp},
                     {"length", stAck.usLen}}};
}

PACKET_WORDS IndicationFromUe(const FILTER_CFG_STRU& stLayout, ByteView packet)
{
    std::vector<unsigned char> copy(packet.begin(), packet.end());
    ADE_DATA_PACKET_STRU stData;
    if (DecodeDataPacket(stLayout, copy, stData) != DIAG_RC_OK)
        return {};
    return {.id = stData.ulCmdId,
            .strName = IdName(stData.ulCmdId),
            .strType = "indication",
            .strSummary = BytesSummary(stData.pData),
            .head = {{"id", HexId(stData.ulCmdId)},
                     {"ack_field", stData.ulAckField},
                     {"stamp", stData.ullTimeStamp},
                     {"length", stData.usLen}}};
}

/// A packet of the LTE channels by the configured header; only its bytes where that doesn't fit.
PACKET_WORDS FromUeWords(uint8_t ucChannel, ByteView packet, const FILTER_CFG_STRU& stLayout)
{
    PACKET_WORDS stWords;
    PACKET_CATEGORY_ENUM enCategory = PACKET_CATEGORY_INVALID;
    const bool bLte = ucChannel == CHANNEL_LTE_DIAG || ucChannel == CHANNEL_LTE_DATA;
    if (bLte && ClassifyPacket(stLayout, packet, enCategory) == DIAG_RC_OK)
        stWords = enCategory == PACKET_CATEGORY_DATA ? IndicationFromUe(stLayout, packet) : AckFromUe(stLayout, packet);
    if (!stWords.id)
        stWords.strSummary = BytesSummary(packet);
    return stWords;
}

PACKET_WORDS Words(const KEPT_PACKET& stPacket, const FILTER_CFG_STRU& stLayout)
{
    const TAP_RECORD& stRecord = stPacket.stRecord;
    const bool bText = stRecord.ucChannel == CHANNEL_AT &&
                       ((stRecord.ucFlags & TAP_TEXT) != 0 || stRecord.enKind == TAP_KIND::UE_TO_AGENT ||
                        stRecord.enKind == TAP_KIND::AGENT_TO_UE);
    if (bText)
        return TextWords(stPacket.bytes);
    switch (stRecord.enKind) {
    case TAP_KIND::AGENT_TO_CLIENT:
        return ToClientWords(stRecord.ucChannel, stPacket.bytes);
    case TAP_KIND::CLIENT_TO_AGENT:
        return FromClientWords(stRecord.ucChannel, stPacket.bytes);
    case TAP_KIND::UE_TO_AGENT:
        return FromUeWords(stRecord.ucChannel, stPacket.bytes, stLayout);
    case TAP_KIND::PORT_EVENT:
        return EventWords(stPacket.bytes);
    default:
        return {.strSummary = BytesSummary(stPacket.bytes)};
    }
}

ordered_json Row(const KEPT_PACKET& stPacket, const PACKET_WORDS& stWords)
{
    const TAP_RECORD& stRecord = stPacket.stRecord;
    return {{"number", stPacket.ullNumber},
            {"time", PageTime(stRecord.ullTime)},
            {"ue", stRecord.ucUe == TAP_NO_UE ? ordered_json() : ordered_json(stRecord.ucUe)},
            {"direction", KindName(stRecord.enKind)},
            {"channel", ChannelName(stRecord.ucChannel)},
            {"client", stRecord.ulClient == 0 ? ordered_json() : ordered_json(stRecord.ulClient)},
            {"id", stWords.id ? ordered_json(HexId(*stWords.id)) : ordered_json()},
            {"name", stWords.strName},
            {"type", stWords.strType},
            {"rc", stWords.rc ? ordered_json(*stWords.rc) : ordered_json()},
            {"length", stPacket.bytes.size()},
            {"summary", stWords.strSummary}};
}
} // namespace

ordered_json PacketRow(const KEPT_PACKET& stPacket, const FILTER_CFG_STRU& stLayout)
{
    return Row(stPacket, Words(stPacket, stLayout));
}

ordered_json PacketDetail(const KEPT_PACKET& stPacket, const FILTER_CFG_STRU& stLayout)
{
    const PACKET_WORDS stWords = Words(stPacket, stLayout);
    ordered_json detail = Row(stPacket, stWords);
    detail["head"] = stWords.head;
    detail["decoded"] = stWords.decoded;
    detail["hex"] = HexDigits(Slice(stPacket.bytes, 0, HEX_MOST));
    detail["hex_cut"] = stPacket.bytes.size() > HEX_MOST || (stPacket.stRecord.ucFlags & TAP_CUT) != 0;
    return detail;
}

bool IsPacketRow(const TAP_RECORD& stRecord)
{
    return stRecord.enKind != CPacketStore::RUN_KIND && stRecord.enKind != TAP_KIND::CONFIGURATION;
}
