#include "client/Names.h"

#include "client/Parse.h"
#include "data/DiagPacket.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace
{
constexpr NAME_ROW g_astId[] = {
    {AGENT_CMD_UE_STATUS, "UE status"},
    {AGENT_CMD_UE_VERSION, "UE version"},
    {AGENT_CMD_BIND, "bind"},
    {AGENT_CMD_UNBIND, "unbind"},
    {AGENT_CMD_CHANNEL_QUERY, "channel query"},
    {AGENT_CMD_TIME_STAMP, "time stamp"},
    {AGENT_CMD_CONFIG, "agent configuration"},
    {AGENT_CMD_GU_STATUS, "GU status"},
    {0x0154F504, "register list"},
    {0x0154F505, "register list"},
    {AGENT_CMD_AT, "AT text"},
    {AGENT_CMD_AT_IND, "AT indication"},
    {UE_CMD_HOST_CONNECT, "host connect"},
    {UE_CMD_HOST_CONNECT_CNF, "host connect confirmation"},
    {UE_CMD_TIME_STAMP, "UE time stamp"},
    {UE_CMD_AIR_SWITCH, "air switch"},
    {UE_CMD_EVENT_SWITCH, "event switch"},
    {UE_CMD_USER_PLANE_SWITCH, "air/event/user-plane switch"},
    {UE_CMD_SWITCH_ACK_1, "switch ack 1"},
    {UE_CMD_SWITCH_ACK_3, "switch ack 3"},
    {UE_CMD_NV_WRITE, "NV write"},
    {UE_CMD_NV_READ, "NV read"},
    {UE_IND_AIR, "air message"},
    {UE_IND_LAYER, "layer message"},
    {UE_IND_EVENT, "event"},
    {UE_IND_USER_PLANE, "user-plane message"},
    {UE_IND_IMS, "IMS message"},
};

constexpr NAME_ROW g_astResult[] = {
    {DIAG_RC_OK, "DIAG_RC_OK"},
    {DIAG_RC_FAIL, "DIAG_RC_FAIL"},
    {4, "base addresses not known"},
    {DIAG_RC_BAD_LENGTH, "DIAG_RC_BAD_LENGTH"},
    {DIAG_RC_NOT_BOUND, "DIAG_RC_NOT_BOUND"},
    {DIAG_RC_UE_FAIL, "DIAG_RC_UE_FAIL"},
    {DIAG_RC_BAD_HEADER, "DIAG_RC_BAD_HEADER"},
    {DIAG_RC_NO_LAYER_CFG, "DIAG_RC_NO_LAYER_CFG"},
    {46, "register request could not be built"},
    {DIAG_RC_NOT_DUAL_CARD, "DIAG_RC_NOT_DUAL_CARD"},
    {DIAG_RC_BAD_FIELD, "DIAG_RC_BAD_FIELD"},
    {DIAG_RC_FILTERED, "DIAG_RC_FILTERED"},
    {DIAG_RC_NO_PID, "DIAG_RC_NO_PID"},
    {DIAG_RC_NO_MEMORY, "DIAG_RC_NO_MEMORY"},
    {DIAG_RC_NULL_PARAM, "DIAG_RC_NULL_PARAM"},
};

constexpr NAME_ROW g_astPacketType[] = {
    {PKT_TYPE_MSG, "msg"},    {PKT_TYPE_CMD, "cmd"},        {PKT_TYPE_AGENT, "agent"},    {PKT_TYPE_GU_TRACE, "trace"},
    {PKT_TYPE_GU_OTA, "ota"}, {PKT_TYPE_GU_TRANS, "trans"}, {PKT_TYPE_GU_QUERY, "query"}, {10, "query answer"},
};

constexpr NAME_ROW g_astKind[] = {
    {IND_TYPE_OTHER, "dsp/other"},       {IND_TYPE_AIR, "air"}, {IND_TYPE_LAYER, "layer"}, {IND_TYPE_EVENT, "event"},
    {IND_TYPE_USER_PLANE, "user plane"}, {IND_TYPE_DPI, "dpi"}, {IND_TYPE_IMS, "ims"},
};

constexpr NAME_ROW g_astMode[] = {{1, "GU"}, {2, "LTE"}, {3, "TDS"}};

std::string Find(std::span<const NAME_ROW> rows, uint32_t ulValue)
{
    const auto row = std::ranges::find(rows, ulValue, &NAME_ROW::ulValue);
    return row == rows.end() ? "" : row->pszName;
}
} // namespace

std::span<const NAME_ROW> IdNames()
{
    return g_astId;
}
std::span<const NAME_ROW> ResultNames()
{
    return g_astResult;
}
std::span<const NAME_ROW> PacketTypeNames()
{
    return g_astPacketType;
}
std::span<const NAME_ROW> IndicationKindNames()
{
    return g_astKind;
}
std::span<const NAME_ROW> SystemModeNames()
{
    return g_astMode;
}

std::string IdName(uint32_t ulCmdId)
{
    return Find(g_astId, ulCmdId);
}
std::string ResultName(uint32_t ulRc)
{
    return Find(g_astResult, ulRc);
}
std::string PacketTypeName(uint16_t usPktType)
{
    return Find(g_astPacketType, usPktType & 0xFF);
}
std::string IndicationKindName(uint16_t usPktType)
{
    return Find(g_astKind, usPktType & 0xFF);
}
std::string SystemModeName(uint16_t usPktType)
{
    return Find(g_astMode, (usPktType >> 8) & 0xF);
}

std::string HexId(uint32_t ulCmdId)
{
    std::array<char, 16> szId{};
    (void)std::snprintf(szId.data(), szId.size(), "0x%08X", ulCmdId);
    return szId.data();
}

std::string ResultText(uint32_t ulRc)
{
    const std::string strName = ResultName(ulRc);
    return strName.empty() ? std::to_string(ulRc) : strName + " (" + std::to_string(ulRc) + ")";
}

bool ParsePacketType(std::string_view strText, uint16_t& usPktType)
{
    const auto row = std::ranges::find(g_astPacketType, strText, &NAME_ROW::pszName);
    if (row != std::end(g_astPacketType)) {
        usPktType = static_cast<uint16_t>(row->ulValue);
        return true;
    }
    uint32_t ulNumber = 0;
    if (!ParseNumber(strText, ulNumber) || ulNumber > 0xFFFF)
        return false;
    usPktType = static_cast<uint16_t>(ulNumber);
    return true;
}

uint16_t RequestType(uint32_t ulCmdId)
{
    constexpr unsigned int CLASS_COMMAND = 1;
    constexpr unsigned int CLASS_AGENT = 5;
    if (IdClass(ulCmdId) == CLASS_AGENT)
        return PKT_TYPE_AGENT;
    return IdClass(ulCmdId) == CLASS_COMMAND ? PKT_TYPE_CMD : PKT_TYPE_MSG;
}
