#include "client/Reports.h"

#include "data/DiagPacket.h"
#include "data/gu/report/ChannelConfigReports.h"
#include "data/gu/report/ReportRecords.h"

// Fields whose meaning is the modem's own business carry their place in its message: b3 is the 16-bit word 3 of a
// road-test body, p0 the 32-bit word 0 of a payload, byte_15 the byte 15.

// clang-format off
namespace
{
constexpr FIELD_ROW COUNT_FIELDS[] = {{"count", 0, U32}};

// Neighbours of the three parts of the W cell report and of the neighbour reports.
constexpr FIELD_ROW W_PART_ITEM_FIELDS[] = {{"bytes", 0, BYTES, 24}};
constexpr RECORD_LAYOUT W_PART_ITEM{nullptr, 24, W_PART_ITEM_FIELDS};
constexpr FIELD_ROW W_PART_FIELDS[] = {{"head", 0, BYTES, 6}, {"count", 6, U16}};
constexpr GROUP_ROW W_PART_GROUPS[] = {{"cells", &W_PART_ITEM, 0, 6, U16}};
constexpr RECORD_LAYOUT W_PART{nullptr, 8, W_PART_FIELDS, W_PART_GROUPS};
constexpr FIELD_ROW W_PART3_FIELDS[] = {{"head", 0, BYTES, 6}, {"count_1", 6, U8}, {"count_2", 7, U8}, {"tail", 8, BYTES, 4}};
constexpr GROUP_ROW W_PART3_GROUPS[] = {{"cells_1", &W_PART_ITEM, 0, 6, U8}, {"cells_2", &W_PART_ITEM, 0, 7, U8}};
constexpr RECORD_LAYOUT W_PART3{nullptr, 12, W_PART3_FIELDS, W_PART3_GROUPS};
constexpr GROUP_ROW W_CELL_GROUPS[] = {{"part_1", &W_PART, 1}, {"part_2", &W_PART, 1}, {"part_3", &W_PART3, 1}};
constexpr RECORD_LAYOUT W_CELL{"W cells", 0, {}, W_CELL_GROUPS};

constexpr FIELD_ROW NEIGHBOUR_FIELDS[] = {{"word_0", 0, U16}, {"count", 2, U16}};
constexpr FIELD_ROW GSM_NEIGHBOUR_ITEM_FIELDS[] = {{"bytes", 0, BYTES, 20}};
constexpr RECORD_LAYOUT GSM_NEIGHBOUR_ITEM{nullptr, 20, GSM_NEIGHBOUR_ITEM_FIELDS};
constexpr GROUP_ROW GSM_NEIGHBOUR_GROUPS[] = {{"cells", &GSM_NEIGHBOUR_ITEM, 0, 2, U16}};
constexpr RECORD_LAYOUT GSM_NEIGHBOUR{"GSM neighbours", 4, NEIGHBOUR_FIELDS, GSM_NEIGHBOUR_GROUPS};
constexpr FIELD_ROW LTE_NEIGHBOUR_ITEM_FIELDS[] = {{"bytes", 0, BYTES, 12}};
constexpr RECORD_LAYOUT LTE_NEIGHBOUR_ITEM{nullptr, 12, LTE_NEIGHBOUR_ITEM_FIELDS};
constexpr GROUP_ROW LTE_NEIGHBOUR_GROUPS[] = {{"cells", &LTE_NEIGHBOUR_ITEM, 0, 2, U16}};
constexpr RECORD_LAYOUT LTE_NEIGHBOUR{"LTE neighbours", 4, NEIGHBOUR_FIELDS, LTE_NEIGHBOUR_GROUPS};

constexpr FIELD_ROW NAS_FIELDS[] = {{"byte_15", 15, U8}, {"imei", 37, TEXT, 16}, {"byte_284", 284, U8}};
constexpr RECORD_LAYOUT NAS{"NAS information", 288, NAS_FIELDS};

// RLC throughput, MAC-d flows, reordering queues.
constexpr RECORD_LAYOUT RLC{"RLC throughput", RLC_Throughput_STRU::SIZE, FIELD_ROWS<RLC_Throughput_STRU>};
constexpr GROUP_ROW RB_GROUPS[] = {{"rbs", &PLAIN_RECORD<RB_Throughput_STRU>, 0}};
constexpr RECORD_LAYOUT RB{"radio bearer throughput", 4, COUNT_FIELDS, RB_GROUPS};
constexpr GROUP_ROW MAC_GROUPS[] = {{"flows", &PLAIN_RECORD<MAC_d_Flow_Mapping_STRU>, 0}};
constexpr RECORD_LAYOUT MAC{"MAC-d flow mapping", 4, COUNT_FIELDS, MAC_GROUPS};
constexpr GROUP_ROW REORDER_GROUPS[] = {{"queues", &PLAIN_RECORD<Reordering_Queue_Parameters_STRU>, 0}};
constexpr RECORD_LAYOUT REORDER{"reordering queues", 4, COUNT_FIELDS, REORDER_GROUPS};

// GSM physical layer.
constexpr FIELD_ROW SNR_ITEM_FIELDS[] = {{"cell", 0, U16}, {"word_2", 2, U16}, {"value", 4, U16}, {"word_6", 6, U16}};
constexpr RECORD_LAYOUT SNR_ITEM{nullptr, 8, SNR_ITEM_FIELDS};
constexpr GROUP_ROW SNR_GROUPS[] = {{"cells", &SNR_ITEM, 0}};
constexpr RECORD_LAYOUT SNR{"GSM cell quality", 4, COUNT_FIELDS, SNR_GROUPS};
constexpr FIELD_ROW SNR_MIN_FIELDS[] = {{"minimum", 0, U32}};
constexpr RECORD_LAYOUT SNR_MIN{"GSM smallest cell quality", 4, SNR_MIN_FIELDS};
constexpr GROUP_ROW BA_GROUPS[] = {{"channels", &PLAIN_RECORD<BA_Channel_STRU>, 32}};
constexpr RECORD_LAYOUT BA{"GSM BA list", 0, {}, BA_GROUPS};
constexpr FIELD_ROW ADJACENT_ITEM_FIELDS[] = {{"level", 0, I16}, {"difference", 2, I16}};
constexpr RECORD_LAYOUT ADJACENT_ITEM{nullptr, 4, ADJACENT_ITEM_FIELDS};
constexpr GROUP_ROW ADJACENT_GROUPS[] = {{"channels", &ADJACENT_ITEM, 4}};
constexpr RECORD_LAYOUT ADJACENT{"GSM adjacent channels", 0, {}, ADJACENT_GROUPS};
constexpr GROUP_ROW AMR_SET_GROUPS[] = {{"modes", &PLAIN_RECORD<AMR_Setting_STRU>, 0}};
constexpr RECORD_LAYOUT AMR_SET{"AMR settings", 4, COUNT_FIELDS, AMR_SET_GROUPS};
constexpr GROUP_ROW AMR_USE_GROUPS[] = {{"modes", &PLAIN_RECORD<AMR_Usage_STRU>, 0}};
constexpr RECORD_LAYOUT AMR_USE{"AMR codec usage", 4, COUNT_FIELDS, AMR_USE_GROUPS};
constexpr GROUP_ROW AMR_STAT_GROUPS[] = {{"codecs", &PLAIN_RECORD<AMR_Codec_STRU>, 8}};
constexpr RECORD_LAYOUT AMR_STAT{"AMR codec statistics", 0, {}, AMR_STAT_GROUPS};
constexpr RECORD_LAYOUT CS_TX{"CS transmit power", CS_Tx_STRU::SIZE, FIELD_ROWS<CS_Tx_STRU>};
constexpr RECORD_LAYOUT CS_FER{"CS frame erasures", CS_Fer_STRU::SIZE, FIELD_ROWS<CS_Fer_STRU>};
constexpr FIELD_ROW DSC_FIELDS[] = {{"dsc", 0, U32}};
constexpr RECORD_LAYOUT DSC{"current DSC", 4, DSC_FIELDS};

// GAS road test.
constexpr FIELD_ROW RADIO_FIELDS[] = {
    {"b3_b7",        0, U16, 5},
    {"b20",         10, U16},
    {"b25",         12, U16},
    {"b33",         14, U16},
    {"b41",         16, U16},
    {"b49",         18, U16},
    {"b57",         20, U16},
    {"b65",         22, U16},
    {"b9",          24, U16},
    {"b8",          26, U16},
    {"ratio_10_11", 28, U16},
    {"ratio_12_13", 30, U16},
};
constexpr RECORD_LAYOUT RADIO{"GSM radio parameters", 32, RADIO_FIELDS};
constexpr FIELD_ROW CELLS_FIELDS[] = {
    {"b0",       0, U16},
    {"b2",       2, U16},
    {"b1",       4, U16},
    {"b5",       6, U16},
    {"b4",       8, U16},
    {"b3",      10, U16},
    {"b14_b17", 12, U16, 4},
    {"count",   20, U32},
};
constexpr FIELD_ROW CELLS_ITEM_FIELDS[] = {
    {"b0",    0, U16},
    {"b2",    2, U16},
    {"b1",    4, U16},
    {"b3_b7", 6, U16, 5},
};
constexpr RECORD_LAYOUT CELLS_ITEM{nullptr, 16, CELLS_ITEM_FIELDS};
constexpr GROUP_ROW CELLS_GROUPS[] = {{"cells", &CELLS_ITEM, 0, 20}};
constexpr RECORD_LAYOUT CELLS{"GSM serving and neighbour cells", 24, CELLS_FIELDS, CELLS_GROUPS};
constexpr FIELD_ROW NEIGHBOUR_3G_FIELDS[] = {{"count", 0, U32}, {"b70_b72", 4, U16, 3}, {"b73", 14, U16}};
constexpr RECORD_LAYOUT NEIGHBOUR_3G{"3G neighbour cells", 16, NEIGHBOUR_3G_FIELDS};
constexpr FIELD_ROW GPRS_MEAS_FIELDS[] = {{"b18", 0, U16}, {"b19", 2, U16}};
constexpr RECORD_LAYOUT GPRS_MEAS{"GPRS status measurement", 4, GPRS_MEAS_FIELDS};
constexpr FIELD_ROW CCCH_FIELDS[] = {{"b14_b17", 0, U16, 4}};
constexpr RECORD_LAYOUT CCCH{"CCCH parameters", 8, CCCH_FIELDS};
constexpr FIELD_ROW RACH_FIELDS[] = {{"b18_b20", 0, U16, 3}, {"b30", 6, U16}, {"b21", 8, U16}};
constexpr RECORD_LAYOUT RACH{"RACH parameters", 12, RACH_FIELDS};
constexpr FIELD_ROW RESELECTION_FIELDS[] = {{"b22_b30", 0, U16, 9}};
constexpr RECORD_LAYOUT RESELECTION{"reselection parameters", 20, RESELECTION_FIELDS};
constexpr FIELD_ROW GPRS_GAS_FIELDS[] = {{"b3", 0, U16}, {"b13", 2, U16}, {"b647", 4, U16}, {"b2", 6, U16}};
constexpr RECORD_LAYOUT GPRS_GAS{"GPRS status", 8, GPRS_GAS_FIELDS};
constexpr FIELD_ROW CELL_PARAM_FIELDS[] = {
    {"cell",     0, U16},
    {"b5",       2, U16},
    {"b0",       4, U16},
    {"b1",       6, U16},
    {"b31",      8, U16},
    {"lac",     10, U16},
    {"mnc",     12, U32},
    {"mcc",     16, U32},
    {"cell_id", 20, TEXT, 16},
};
constexpr RECORD_LAYOUT CELL_PARAM{"GSM cell parameters", 36, CELL_PARAM_FIELDS};
constexpr FIELD_ROW CHANNEL_FIELDS[] = {
    {"b646",  0, U16},
    {"b2_b4", 2, U16, 3},
    {"zero",  8, U16},
    {"b5",   10, U16},
    {"b6",   12, U16},
    {"b0",   14, U16},
    {"b1",   16, U16},
    {"b7",   18, U16},
};
constexpr RECORD_LAYOUT CHANNEL{"GSM channel", 20, CHANNEL_FIELDS};
constexpr FIELD_ROW HOPPING_FIELDS[] = {
    {"b8",        0, U16},
    {"b9",        2, U16},
    {"channels",  4, U16, 64},
    {"b74",     132, U16},
    {"b75",     134, U16},
};
constexpr RECORD_LAYOUT HOPPING{"GSM hopping", 136, HOPPING_FIELDS};

// NAS status.
constexpr FIELD_ROW GPRS_STATUS_FIELDS[] = {{"byte_284", 0, U8}, {"byte_15", 1, U8}};
constexpr RECORD_LAYOUT GPRS_STATUS{"GPRS attach status", 4, GPRS_STATUS_FIELDS};
constexpr FIELD_ROW P0_P1_FIELDS[] = {{"p0", 0, U32}, {"p1", 4, U32}};
constexpr RECORD_LAYOUT P0_P1{"GPRS data counters", 8, P0_P1_FIELDS};
constexpr FIELD_ROW P3_P6_FIELDS[] = {{"p3_p6", 0, U32, 4}};
constexpr RECORD_LAYOUT P3_P6{"GPRS data words", 16, P3_P6_FIELDS};
constexpr FIELD_ROW PDP_ITEM_FIELDS[] = {
    {"byte_0",     0, U8},
    {"byte_4",     4, U8},
    {"byte_5",     5, U8},
    {"byte_6",     6, U8},
    {"byte_8",     8, U8},
    {"text",       9, TEXT, 101},
    {"bytes_112", 112, U8, 4},
};
constexpr RECORD_LAYOUT PDP_ITEM{nullptr, 116, PDP_ITEM_FIELDS};
constexpr GROUP_ROW PDP_GROUPS[] = {{"contexts", &PDP_ITEM, 0}};
constexpr RECORD_LAYOUT PDP{"PDP contexts", 4, COUNT_FIELDS, PDP_GROUPS};
constexpr FIELD_ROW PDP_QOS_FIELDS[] = {
    {"byte_1", 0, U8},
    {"byte_2", 1, U8},
    {"byte_4", 2, U8},
    {"byte_3", 3, U8},
    {"byte_5", 4, U8},
};
constexpr RECORD_LAYOUT PDP_QOS{"PDP context QoS", 8, PDP_QOS_FIELDS};

// Packet data of GSM.
constexpr RECORD_LAYOUT GRM{"RLC/MAC maintenance", Mntn_Usage_STRU::SIZE, FIELD_ROWS<Mntn_Usage_STRU>};
constexpr FIELD_ROW TIMESLOT_FIELDS[] = {{"count_1", 0, U8}, {"count_2", 1, U8}, {"slots_1", 2, U8, 4}, {"slots_2", 6, U8, 6}};
constexpr RECORD_LAYOUT TIMESLOT{"timeslots", 12, TIMESLOT_FIELDS};
constexpr FIELD_ROW SCHEME_FIELDS[] = {
    {"timeslots_1", 0, U8},
    {"timeslots_2", 1, U8},
    {"cs_1",        2, U8},
    {"cs_2",        3, U8},
    {"mcs_1",       4, U8},
    {"mcs_2",       5, U8},
};
constexpr RECORD_LAYOUT SCHEME{"coding schemes", 8, SCHEME_FIELDS};
constexpr FIELD_ROW CIPHER_FIELDS[] = {{"cipher", 0, U8}};
constexpr RECORD_LAYOUT CIPHER{"PS ciphering", 4, CIPHER_FIELDS};
constexpr FIELD_ROW SHARE_FIELDS[] = {{"count", 0, U16}};
constexpr FIELD_ROW SHARE_ITEM_FIELDS[] = {
    {"cs_percent",   0, F32, 4},
    {"mcs_percent", 16, F32, 9},
    {"sum_0_7",     52, F32},
    {"sum_8_11",    56, F32},
};
constexpr RECORD_LAYOUT SHARE_ITEM{nullptr, 60, SHARE_ITEM_FIELDS};
constexpr GROUP_ROW SHARE_GROUPS[] = {{"timeslots", &SHARE_ITEM, 0, 0, U16}};
constexpr RECORD_LAYOUT SHARE{"coding scheme shares", 4, SHARE_FIELDS, SHARE_GROUPS};
constexpr RECORD_LAYOUT FLOW{"throughput", Throughput_STRU::SIZE, FIELD_ROWS<Throughput_STRU>};

constexpr FIELD_ROW MODE_FIELDS[] = {{"mode", 0, U32}};
constexpr RECORD_LAYOUT MODE{"mode", 4, MODE_FIELDS};

constexpr uint8_t TRANS = PKT_TYPE_GU_TRANS;
constexpr uint8_t TRACE = PKT_TYPE_GU_TRACE;
constexpr uint8_t OTA = PKT_TYPE_GU_OTA;
constexpr uint8_t QUERY = PKT_TYPE_GU_QUERY;

constexpr REPORT_ROW g_astGu[] = {
    // name            request  confirm indication type  parameters  period modem 1 layout        what
    {"radio",          0xE500, 0xE501, 0xE502, TRANS, PARAM_PERIOD, 500, 0x100, &RADIO,         "GSM radio parameters"},
    {"cells",          0xE536, 0xE537, 0xE538, TRANS, PARAM_PERIOD, 500, 0x100, &CELLS,         "GSM serving and neighbour cells"},
    {"3g-neighbour",   0xE526, 0xE527, 0xE528, TRANS, PARAM_PERIOD, 500, 0x100, &NEIGHBOUR_3G,  "3G neighbour cells"},
    {"gprs-meas",      0xE533, 0xE534, 0xE535, TRANS, PARAM_PERIOD, 500, 0x100, &GPRS_MEAS,     "GPRS status measurement"},
    {"ccch",           0xE51D, 0xE51E, 0xE51F, TRANS, PARAM_PERIOD, 500, 0x100, &CCCH,          "CCCH parameters"},
    {"rach",           0xE520, 0xE521, 0xE522, TRANS, PARAM_PERIOD, 500, 0x100, &RACH,          "RACH parameters"},
    {"reselection",    0xE523, 0xE524, 0xE525, TRANS, PARAM_PERIOD, 500, 0x100, &RESELECTION,   "reselection parameters"},
    {"gprs-gas",       0xE543, 0xE544, 0xE545, TRANS, PARAM_PERIOD, 500, 0x100, &GPRS_GAS,      "GPRS status"},
    {"cell-param",     0xE510, 0xE511, 0xE512, TRANS, PARAM_PERIOD, 500, 0x100, &CELL_PARAM,    "GSM cell parameters"},
    {"channel",        0xE513, 0xE514, 0xE515, TRANS, PARAM_PERIOD, 500, 0x100, &CHANNEL,       "GSM channel"},
    {"hopping",        0xE519, 0xE51B, 0xE51C, TRANS, PARAM_PERIOD, 500, 0x100, &HOPPING,       "GSM hopping"},
    {"snr",            0xE52C, 0xE52D, 0xE52E, TRANS, PARAM_PERIOD, 500, 0x100, &SNR,           "GSM cell quality, smoothed"},
    {"snr-min",        0xE506, 0xE507, 0xE508, TRANS, PARAM_PERIOD, 500, 0x100, &SNR_MIN,       "GSM smallest cell quality"},
    {"ba-list",        0xE529, 0xE52A, 0xE52B, TRANS, PARAM_PERIOD, 500, 0x100, &BA,            "GSM BA list"},
    {"adjacent",       0xE530, 0xE531, 0xE532, TRANS, PARAM_PERIOD, 500, 0x100, &ADJACENT,      "GSM adjacent channels"},
    {"amr-setting",    0xE589, 0xE58A, 0xE58B, TRANS, PARAM_PERIOD, 500, 0x100, &AMR_SET,       "AMR settings"},
    {"amr-usage",      0xE58C, 0xE58D, 0xE58E, TRANS, PARAM_PERIOD, 500, 0x100, &AMR_USE,       "AMR codec usage"},
    {"amr-stat-2",     0xE593, 0xE594, 0xE595, TRANS, PARAM_PERIOD, 500, 0x100, &AMR_STAT,      "AMR codec statistics, second block"},
    {"amr-stat-1",     0xE590, 0xE591, 0xE592, TRANS, PARAM_PERIOD, 500, 0x100, &AMR_STAT,      "AMR codec statistics, first block"},
    {"cs-tx",          0xE503, 0xE504, 0xE505, TRANS, PARAM_PERIOD, 500, 0x100, &CS_TX,         "CS transmit power"},
    {"cs-fer",         0xE509, 0xE50A, 0xE50B, TRANS, PARAM_PERIOD, 500, 0x100, &CS_FER,        "CS frame erasures"},
    {"dsc",            0xE50C, 0xE50D, 0xE50E, TRANS, PARAM_PERIOD, 500, 0x100, &DSC,           "current DSC"},
    {"gprs-status",    0xE546, 0xE547, 0xE548, TRANS, PARAM_ONCE,     0, 0x100, &GPRS_STATUS,   "GPRS attach status, once"},
    {"gprs-data",      0xE550, 0xE551, 0xE552, TRANS, PARAM_PERIOD, 1000, 0x100, &P0_P1,        "GPRS data counters"},
    {"gprs-words",     0xE569, 0xE56A, 0xE56B, TRANS, PARAM_PERIOD, 1000, 0x100, &P3_P6,        "GPRS data words 3 to 6"},
    {"gprs-data-2",    0xE583, 0xE584, 0xE585, TRANS, PARAM_PERIOD, 1000, 0x100, &P0_P1,        "GPRS data counters, second packet"},
    {"pdp",            0xE570, 0xE571, 0xE572, TRANS, PARAM_ONCE,     0, 0x100, &PDP,           "PDP contexts, once"},
    {"pdp-qos",        0xE573, 0xE574, 0xE575, TRANS, PARAM_ONCE,     0, 0x100, &PDP_QOS,       "QoS of a PDP context, once"},
    {"grm",            0xE549, 0xE54A, 0xE54B, TRANS, PARAM_PERIOD, 1000, 0x100, &GRM,          "RLC/MAC maintenance"},
    {"timeslots",      0xE579, 0xE57A, 0xE57B, TRANS, PARAM_PERIOD, 1000, 0x100, &TIMESLOT,     "timeslots in use"},
    {"schemes",        0xE586, 0xE587, 0xE588, TRANS, PARAM_PERIOD, 1000, 0x100, &SCHEME,       "coding schemes in use"},
    {"shares",         0xE57C, 0xE57D, 0xE57E, TRACE, PARAM_PERIOD, 500, 0x100, &SHARE,         "shares of the coding schemes"},
    {"cipher",         0xE516, 0xE517, 0xE518, TRACE, PARAM_PERIOD, 60000, 0x100, &CIPHER,      "PS ciphering"},
    {"llc-dl",         0xE55C, 0xE55D, 0xE55E, TRACE, PARAM_PERIOD, 500, 0x100, &FLOW,          "LLC downlink throughput"},
    {"llc-ul",         0xE559, 0xE55A, 0xE55B, TRACE, PARAM_PERIOD, 500, 0x100, &FLOW,          "LLC uplink throughput"},
    {"sndcp-dl",       0xE556, 0xE557, 0xE558, TRACE, PARAM_PERIOD, 500, 0x100, &FLOW,          "SNDCP downlink throughput"},
    {"sndcp-ul",       0xE553, 0xE554, 0xE555, TRACE, PARAM_PERIOD, 500, 0x100, &FLOW,          "SNDCP uplink throughput"},
    {"rlc-mac-dl",     0xE563, 0xE564, 0xE565, TRACE, PARAM_PERIOD, 500, 0x100, &FLOW,          "GSM RLC downlink throughput"},
    {"rlc-mac-ul",     0xE560, 0xE561, 0xE562, TRACE, PARAM_PERIOD, 500, 0x100, &FLOW,          "GSM RLC uplink throughput"},
    {"bler",           0xF020, 0xF021, 0xF022, TRANS, PARAM_BLER,   500, 0, nullptr,            "W block error rate"},
    {"w-cell",         0xB010, 0xB011, 0xB012, TRANS, PARAM_CELL,   500, 0, &W_CELL,            "W cells, three messages in one"},
    {"gsm-neighbour",  0xB016, 0xB017, 0xB018, TRANS, PARAM_CELL,   500, 0, &GSM_NEIGHBOUR,     "GSM neighbours in W"},
    {"lte-neighbour",  0xB060, 0xB061, 0xB062, TRANS, PARAM_CELL,   500, 0, &LTE_NEIGHBOUR,     "LTE neighbours in W", 0xB017},
    {"w-b019",         0xB019, 0xB01A, 0xB01B, TRANS, PARAM_PERIOD, 500, 0, nullptr,            "24 bytes of message 0xB01B"},
    {"w-b01c",         0xB01C, 0xB01D, 0xB01E, TRANS, PARAM_PERIOD, 500, 0, nullptr,            "4 bytes of message 0xB01E"},
    {"nas",            0xC001, 0xC011, 0xC002, TRANS, PARAM_PERIOD, 500, 0, &NAS,               "NAS information"},
    {"rlc-ul",         0xF539, 0xF53A, 0xF53B, TRANS, PARAM_PERIOD, 1000, 0, &RLC,              "W RLC uplink throughput"},
    {"rb-ul",          0xF53C, 0xF53D, 0xF53E, TRANS, PARAM_PERIOD, 1000, 0, &RB,               "W uplink throughput by radio bearer"},
    {"rlc-dl",         0xF53F, 0xF540, 0xF541, TRANS, PARAM_PERIOD, 1000, 0, &RLC,              "W RLC downlink throughput"},
    {"rb-dl",          0xF542, 0xF543, 0xF544, TRANS, PARAM_PERIOD, 1000, 0, &RB,               "W downlink throughput by radio bearer"},
    {"mac-d",          0xF518, 0xF519, 0xF51A, TRANS, PARAM_SWITCH,   0, 0, &MAC,               "MAC-d flow mapping"},
    {"reordering",     0xF51B, 0xF51C, 0xF51D, TRANS, PARAM_SWITCH,   0, 0, &REORDER,           "reordering queues"},
    {"ota-gas",        0xA005, 0xA015, 0xA025, OTA,   PARAM_WORD,     0, 0x30, nullptr,         "over-the-air messages, GSM access stratum"},
    {"ota-was",        0xB020, 0xB021, 0xB022, OTA,   PARAM_WORD,     0, 0, nullptr,            "over-the-air messages, W"},
    {"ota-nas",        0xC101, 0xC102, 0xC103, OTA,   PARAM_WORD,     0, 3, nullptr,            "over-the-air messages, NAS"},
    {"mode",           0x80A5, 0x80A6, 0,      QUERY, PARAM_QUERY,    0, 2, &MODE,              "radio mode of the modem"},
};
} // namespace
// clang-format on

std::span<const REPORT_ROW> GuReports()
{
    return g_astGu;
}
