#include "client/Reports.h"

#include "data/DiagPacket.h"

#include <algorithm>

// clang-format off
namespace
{
// Answers and status records of the agent.
constexpr FIELD_ROW UE_VERSION_FIELDS[] = {
    {"v",             0, U16},
    {"r",             2, U16},
    {"c",             4, U16},
    {"b",             6, U16},
    {"sp",            8, U16},
    {"word_10",      10, U16},
    {"word_12",      12, U32},
    {"identity_high", 16, U16},
    {"identity_low", 18, U16},
    {"word_20",      20, U32},
    {"word_24",      24, U32},
};
constexpr RECORD_LAYOUT UE_VERSION{"UE version", 28, UE_VERSION_FIELDS};

constexpr FIELD_ROW UE_STATUS_FIELDS[] = {
    {"state",      0, U8},
    {"ue",         1, U8},
    {"data_port",  2, U16},
    {"version",    4, TEXT, 32},
    {"imei",      36, TEXT, 56}, // the GU form may use the whole rest of the record
};
constexpr RECORD_LAYOUT UE_STATUS{"UE status", 92, UE_STATUS_FIELDS};

constexpr FIELD_ROW CHANNEL_FIELDS[] = {
    {"name",      0, TEXT, 32},
    {"port",     32, I32},
    {"attached", 36, U32},
    {"bound",    40, U32},
};
constexpr RECORD_LAYOUT CHANNEL{nullptr, 44, CHANNEL_FIELDS};
constexpr GROUP_ROW UE_CHANNEL_GROUPS[] = {{"channels", &CHANNEL, 5}};
constexpr RECORD_LAYOUT UE_CHANNELS{nullptr, 0, {}, UE_CHANNEL_GROUPS};
constexpr GROUP_ROW CHANNEL_TABLE_GROUPS[] = {{"ues", &UE_CHANNELS, 16}};
constexpr RECORD_LAYOUT CHANNEL_TABLE{"channel table", 0, {}, CHANNEL_TABLE_GROUPS};

// Air and IMS messages: the head that the agent puts in front of the message.
constexpr FIELD_ROW MESSAGE_FIELDS[] = {
    {"info",        0, U8},
    {"message_len", 2, U16},
};
constexpr RECORD_LAYOUT MESSAGE{"message", 4, MESSAGE_FIELDS};

// Entries of four words: what the words mean is the modem's own business.
constexpr FIELD_ROW CELL4_FIELDS[] = {{"words", 0, U16, 4}};
constexpr RECORD_LAYOUT CELL4{nullptr, 8, CELL4_FIELDS};

// Measurement records. The first cell of an idle record is the serving one, the others are its neighbours; "count" says
// how many of the entries count. What stands behind them, up to the record's end, only a full record fills.
constexpr FIELD_ROW LTE_MEAS_FIELDS[] = {
    {"record_type", 0, U16},
    {"connected",   2, U8},
    {"word_4",      4, U16},
    {"word_6",      6, U16},
    {"count",       8, U16},
    {"word_10",    10, U16},
};
constexpr GROUP_ROW LTE_MEAS_GROUPS[] = {{"cells", &CELL4, 33}};
constexpr RECORD_LAYOUT LTE_MEAS{"LTE cell measurement", 12, LTE_MEAS_FIELDS, LTE_MEAS_GROUPS};

constexpr FIELD_ROW CMAC_ENTRY_FIELDS[] = {
    {"channel",   0, U16},
    {"cell_code", 2, U16},
    {"level",     4, U8},
};
constexpr RECORD_LAYOUT CMAC_ENTRY{nullptr, 8, CMAC_ENTRY_FIELDS};
constexpr FIELD_ROW CMAC_FIELDS[] = {{"form", 0, U8}, {"count", 1, U8}};
constexpr GROUP_ROW CMAC_GROUPS[] = {{"entries", &CMAC_ENTRY, 0, 1, U8}};
constexpr RECORD_LAYOUT CMAC{"TDS measurement", 4, CMAC_FIELDS, CMAC_GROUPS};

constexpr FIELD_ROW FLAG_FIELDS[] = {{"flag", 2, U8}};

constexpr FIELD_ROW INTER_RAT_FIELDS[] = {{"head", 0, U16}, {"word_4", 4, U16}, {"word_6", 6, U16}};
constexpr GROUP_ROW INTER_RAT_GROUPS[] = {{"cells", &CELL4, 32}};
constexpr RECORD_LAYOUT INTER_RAT{nullptr, 8, INTER_RAT_FIELDS, INTER_RAT_GROUPS};
constexpr GROUP_ROW LTE_TO_OTHER_GROUPS[] = {{"groups", &INTER_RAT, 4}};
constexpr RECORD_LAYOUT LTE_TO_OTHER{"LTE to TDS or GSM measurement", 4, FLAG_FIELDS, LTE_TO_OTHER_GROUPS};

constexpr FIELD_ROW TL_CELL_FIELDS[] = {{"word_0", 0, U16}, {"word_4", 4, U16}, {"word_6", 6, U16}};
constexpr RECORD_LAYOUT TL_CELL{nullptr, 8, TL_CELL_FIELDS};
constexpr FIELD_ROW TL_GROUP_FIELDS[] = {
    {"head",    0, U16},
    {"word_4",  4, U16},
    {"word_6",  6, U16},
    {"word_10", 10, U16},
};
constexpr GROUP_ROW TL_GROUP_GROUPS[] = {{"cells", &TL_CELL, 32}};
constexpr RECORD_LAYOUT TL_GROUP{nullptr, 12, TL_GROUP_FIELDS, TL_GROUP_GROUPS};
constexpr GROUP_ROW TDS_TO_LTE_GROUPS[] = {{"groups", &TL_GROUP, 3}};
constexpr RECORD_LAYOUT TDS_TO_LTE{"TDS to LTE measurement", 4, FLAG_FIELDS, TDS_TO_LTE_GROUPS};

constexpr FIELD_ROW GT_ENTRY_FIELDS[] = {{"head", 0, U16}, {"words", 4, U16, 3}};
constexpr RECORD_LAYOUT GT_ENTRY{nullptr, 12, GT_ENTRY_FIELDS};
constexpr GROUP_ROW GSM_TO_TDS_GROUPS[] = {{"entries", &GT_ENTRY, 32}};
constexpr RECORD_LAYOUT GSM_TO_TDS{"GSM to TDS measurement", 4, {}, GSM_TO_TDS_GROUPS};

constexpr FIELD_ROW TG_CELL_FIELDS[] = {{"words", 0, U16, 2}};
constexpr RECORD_LAYOUT TG_CELL{nullptr, 4, TG_CELL_FIELDS};
constexpr FIELD_ROW TG_GROUP_FIELDS[] = {
    {"head",    0, U16},
    {"word_4",  4, U16},
    {"word_6",  6, U16},
    {"word_10", 10, U16},
};
constexpr GROUP_ROW TG_GROUP_GROUPS[] = {{"cells", &TG_CELL, 32}};
constexpr RECORD_LAYOUT TG_GROUP{nullptr, 12, TG_GROUP_FIELDS, TG_GROUP_GROUPS};
constexpr GROUP_ROW TDS_TO_GSM_GROUPS[] = {{"groups", &TG_GROUP, 9}};
constexpr RECORD_LAYOUT TDS_TO_GSM{"TDS to GSM measurement", 4, {}, TDS_TO_GSM_GROUPS};

constexpr ANSWER_ROW g_astAnswer[] = {
    {AGENT_CMD_UE_VERSION,    &UE_VERSION},
    {AGENT_CMD_UE_STATUS,     &UE_STATUS},
    {AGENT_CMD_GU_STATUS,     &UE_STATUS},
    {AGENT_CMD_CHANNEL_QUERY, &CHANNEL_TABLE},
};

constexpr MEASUREMENT_ROW g_astMeasurement[] = {
    {1096, &LTE_MEAS,     "cells"},
    {516,  &CMAC,         "tds"},
    {1060, &LTE_TO_OTHER, "lte-to-other"},
    {808,  &TDS_TO_LTE,   "tds-to-lte"},
    {388,  &GSM_TO_TDS,   "gsm-to-tds"},
    {1264, &TDS_TO_GSM,   "tds-to-gsm"},
};
} // namespace
// clang-format on

std::span<const ANSWER_ROW> AnswerLayouts()
{
    return g_astAnswer;
}
std::span<const MEASUREMENT_ROW> MeasurementLayouts()
{
    return g_astMeasurement;
}
const RECORD_LAYOUT& MessageLayout()
{
    return MESSAGE;
}

const RECORD_LAYOUT* AnswerLayout(uint32_t ulCmdId)
{
    const auto row = std::ranges::find(g_astAnswer, ulCmdId, &ANSWER_ROW::ulCmdId);
    return row == std::end(g_astAnswer) ? nullptr : row->pstLayout;
}

const RECORD_LAYOUT* IndicationLayout(uint16_t usPktType, size_t szLen)
{
    const auto ucKind = static_cast<unsigned char>(usPktType & 0xFF);
    if ((ucKind == IND_TYPE_AIR || ucKind == IND_TYPE_IMS) && szLen >= MESSAGE.usSize)
        return &MESSAGE;
    if (ucKind != IND_TYPE_LAYER)
        return nullptr;
    const auto row = std::ranges::find(g_astMeasurement, szLen, &MEASUREMENT_ROW::szLen);
    return row == std::end(g_astMeasurement) ? nullptr : row->pstLayout;
}
