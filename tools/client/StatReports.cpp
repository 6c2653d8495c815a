#include "client/Reports.h"

#include "data/DiagPacket.h"

// clang-format off
namespace
{
constexpr FIELD_ROW COUNT_FIELDS[] = {{"count", 0, U32}};

// Power control.
constexpr FIELD_ROW SIR_FIELDS[] = {{"sir_db", 0, F32}, {"sir_target_db", 4, F32}};
constexpr RECORD_LAYOUT SIR_RECORD{nullptr, 8, SIR_FIELDS};
constexpr GROUP_ROW SIR_GROUPS[] = {{"carriers", &SIR_RECORD, 0}};
constexpr RECORD_LAYOUT SIR{"power control SIR", 4, COUNT_FIELDS, SIR_GROUPS};

constexpr FIELD_ROW POWER_FIELDS[] = {{"slot_average", 0, F32}, {"count", 4, U32}};
constexpr FIELD_ROW POWER_RECORD_FIELDS[] = {{"power_0", 0, F32}, {"power_1", 4, F32}};
constexpr RECORD_LAYOUT POWER_RECORD{nullptr, 8, POWER_RECORD_FIELDS};
constexpr GROUP_ROW POWER_GROUPS[] = {{"carriers", &POWER_RECORD, 0, 4}};
constexpr RECORD_LAYOUT POWER{"power control power", 8, POWER_FIELDS, POWER_GROUPS};

constexpr FIELD_ROW TPC_FIELDS[] = {{"ul_tpc_sum", 0, I32}, {"dl_tpc_sum", 4, I32}};
constexpr RECORD_LAYOUT TPC_RECORD{nullptr, 8, TPC_FIELDS};
constexpr GROUP_ROW TPC_GROUPS[] = {{"carriers", &TPC_RECORD, 0}};
constexpr RECORD_LAYOUT TPC{"power control TPC", 4, COUNT_FIELDS, TPC_GROUPS};

// HSDPA link.
constexpr FIELD_ROW DSCH_FIELDS[] = {{"match", 0, U32}, {"field", 4, U32}};
constexpr RECORD_LAYOUT DSCH{"HS-DSCH configuration", 8, DSCH_FIELDS};

constexpr FIELD_ROW SCCH_FIELDS[] = {{"channel", 0, U32}, {"code", 4, U32}};
constexpr RECORD_LAYOUT SCCH_RECORD{nullptr, 8, SCCH_FIELDS};
constexpr GROUP_ROW SCCH_GROUPS[] = {{"channels", &SCCH_RECORD, 0}};
constexpr RECORD_LAYOUT SCCH{"HS-SCCH configuration", 4, COUNT_FIELDS, SCCH_GROUPS};

constexpr FIELD_ROW DPCCH_FIELDS[] = {
    {"a_16_19",  0, U32},
    {"a_8_10",   4, U32},
    {"a_0_2",    8, U32},
    {"b_0_12",  12, U32},
    {"c_0_4",   16, U32},
    {"c_5_9",   20, U32},
    {"c_10_14", 24, U32},
};
constexpr RECORD_LAYOUT DPCCH{"HS-DPCCH configuration", 28, DPCCH_FIELDS};

constexpr FIELD_ROW CQI_FIELDS[] = {
    {"mean_cqi",         0, U32},
    {"mean_cqi_copy",    4, U32},
    {"mean_first_cqi",   8, U32},
    {"mean_second_cqi", 12, U32},
};
constexpr RECORD_LAYOUT CQI_RECORD{nullptr, 16, CQI_FIELDS};
constexpr GROUP_ROW CQI_GROUPS[] = {{"carriers", &CQI_RECORD, 0}};
constexpr RECORD_LAYOUT CQI{"HSDPA CQI", 4, COUNT_FIELDS, CQI_GROUPS};

constexpr FIELD_ROW LINK_FIELDS[] = {
    {"win_rate",          0, F32},
    {"rate_0",            4, F32},
    {"rate_1",            8, F32},
    {"win_served_rate",  12, F32},
    {"served_rate_0",    16, F32},
    {"served_rate_1",    20, F32},
    {"win_ok_rate",      24, F32},
    {"ok_rate_0",        28, F32},
    {"ok_rate_1",        32, F32},
    {"win_ratio_a",      36, F32},
    {"ratio_a",          40, F32},
    {"win_ratio_b",      44, F32},
    {"ratio_b",          48, F32},
    {"win_ratio_c",      52, F32},
    {"ratio_c",          56, F32},
    {"win_retrans_rate", 60, F32},
    {"retrans_rate",     64, F32},
    {"hist_mean",        68, U32},
};
constexpr RECORD_LAYOUT LINK_RECORD{nullptr, 72, LINK_FIELDS};
constexpr GROUP_ROW LINK_GROUPS[] = {{"records", &LINK_RECORD, 0}};
constexpr RECORD_LAYOUT LINK{"HSDPA link statistics", 4, COUNT_FIELDS, LINK_GROUPS};

// HSDPA decoding.
constexpr FIELD_ROW DECODING_FIELDS[] = {
    {"subframes",         0, U32},
    {"scch_ok",           4, U32},
    {"scch_ok_rate",      8, F32},
    {"ack_retrans_rate", 12, F32},
    {"less_rate",        16, F32},
    {"single",           20, U32},
    {"dual",             24, U32},
    {"single_rate",      28, F32},
    {"dual_rate",        32, F32},
    {"single_rate_2",    36, F32},
    {"dual_rate_2",      40, F32},
    {"single_bler",      44, F32},
    {"dual_bler_0",      48, F32},
    {"dual_bler_1",      52, F32},
};
constexpr RECORD_LAYOUT DECODING_RECORD{nullptr, 56, DECODING_FIELDS};
constexpr GROUP_ROW DECODING_GROUPS[] = {{"records", &DECODING_RECORD, 0}};
constexpr RECORD_LAYOUT DECODING{"HSDPA decoding statistics", 4, COUNT_FIELDS, DECODING_GROUPS};

constexpr FIELD_ROW TBS_FIELDS[] = {
    {"tbs",                    0, U32},
    {"qpsk_0",                 4, U32},
    {"qpsk_1",                 8, U32},
    {"16qam_0",               12, U32},
    {"16qam_1",               16, U32},
    {"64qam_0",               20, U32},
    {"64qam_1",               24, U32},
    {"block_err_0",           28, U32},
    {"block_err_1",           32, U32},
    {"crc_ok_0",              36, U32},
    {"crc_ok_1",              40, U32},
    {"ack_retrans_0",         44, U32},
    {"ack_retrans_1",         48, U32},
    {"tbs_change_0",          52, U32},
    {"tbs_change_1",          56, U32},
    {"bler_0",                60, F32},
    {"bler_1",                64, F32},
    {"first_bler_0",          68, F32},
    {"first_bler_1",          72, F32},
    {"new_after_err_0",       76, U32},
    {"new_after_err_1",       80, U32},
    {"crc_ok_0_copy",         84, U32},
    {"crc_ok_1_copy",         88, U32},
    {"new_after_err_rate_0",  92, F32},
    {"new_after_err_rate_1",  96, F32},
    {"phase",                100, U32, 6},
};
constexpr RECORD_LAYOUT TBS_RECORD{nullptr, 124, TBS_FIELDS};
constexpr GROUP_ROW TBS_BLOCK_GROUPS[] = {{"records", &TBS_RECORD, 0}};
constexpr RECORD_LAYOUT TBS_BLOCK{nullptr, 4, COUNT_FIELDS, TBS_BLOCK_GROUPS};
constexpr GROUP_ROW TBS_GROUPS[] = {{"blocks", &TBS_BLOCK, 0}};
constexpr RECORD_LAYOUT TBS{"HSDPA block sizes", 4, COUNT_FIELDS, TBS_GROUPS};

// HSUPA.
constexpr FIELD_ROW UPA_RATE_FIELDS[] = {{"non_dtx_rate", 0, F32}, {"served_rate", 4, F32}, {"available_rate", 8, F32}};
constexpr RECORD_LAYOUT UPA_RATE_RECORD{nullptr, 12, UPA_RATE_FIELDS};
constexpr GROUP_ROW UPA_RATE_GROUPS[] = {{"carriers", &UPA_RATE_RECORD, 0}};
constexpr RECORD_LAYOUT UPA_RATE{"HSUPA link throughput", 4, COUNT_FIELDS, UPA_RATE_GROUPS};

constexpr FIELD_ROW UPA_QUALITY_FIELDS[] = {
    {"dtx_probability", 0, F32},
    {"sbler",           4, F32},
    {"first_sbler",     8, F32},
    {"limit_rate_1",   12, F32},
    {"limit_rate_0",   16, F32},
    {"limit_rate_2",   20, F32},
    {"happy_rate",     24, F32},
};
constexpr RECORD_LAYOUT UPA_QUALITY_RECORD{nullptr, 28, UPA_QUALITY_FIELDS};
constexpr GROUP_ROW UPA_QUALITY_GROUPS[] = {{"carriers", &UPA_QUALITY_RECORD, 0}};
constexpr RECORD_LAYOUT UPA_QUALITY{"HSUPA link quality", 4, COUNT_FIELDS, UPA_QUALITY_GROUPS};

constexpr FIELD_ROW UPA_GRANT_FIELDS[] = {
    {"ag_mean",         0, F32},
    {"rg_code_2_rate",  4, F32},
    {"rg_code_1_rate",  8, F32},
    {"rg_code_3_rate", 12, F32},
    {"sg_mean",        16, F32},
};
constexpr RECORD_LAYOUT UPA_GRANT_RECORD{nullptr, 20, UPA_GRANT_FIELDS};
constexpr GROUP_ROW UPA_GRANT_GROUPS[] = {{"carriers", &UPA_GRANT_RECORD, 0}};
constexpr RECORD_LAYOUT UPA_GRANT{"HSUPA grant", 4, COUNT_FIELDS, UPA_GRANT_GROUPS};

constexpr REPORT_ROW Stat(const char* pszName, uint16_t usReq, const RECORD_LAYOUT* pstLayout)
{
    constexpr uint16_t PERIOD_MS = 500;
    return {pszName,       usReq,        static_cast<uint16_t>(usReq + 1), static_cast<uint16_t>(usReq + 2),
            PKT_TYPE_GU_TRANS, PARAM_PERIOD, PERIOD_MS, 0, pstLayout, pstLayout->pszName};
}

// Periods from 100 to 2000 ms. Confirm and indication ids follow the request's.
constexpr REPORT_ROW g_astStat[] = {
    Stat("sir",           62726, &SIR),
    Stat("power",         62729, &POWER),
    Stat("tpc",           62732, &TPC),
    Stat("dsch-cfg",      62735, &DSCH),
    Stat("scch-cfg",      62738, &SCCH),
    Stat("dpcch-cfg",     62741, &DPCCH),
    Stat("cqi",           62750, &CQI),
    Stat("link",          62753, &LINK),
    Stat("decoding",      62756, &DECODING),
    Stat("tbs",           62759, &TBS),
    Stat("hsupa-rate",    62768, &UPA_RATE),
    Stat("hsupa-quality", 62771, &UPA_QUALITY),
    Stat("hsupa-grant",   62774, &UPA_GRANT),
};
} // namespace
// clang-format on

std::span<const REPORT_ROW> StatReports()
{
    return g_astStat;
}
