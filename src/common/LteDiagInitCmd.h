#pragma once

#include "common/Bytes.h"

#include <algorithm>
#include <array>

/// One diag switch that a UE receives after the host connect.
struct LTE_DIAG_INIT_CMD_STRU
{
    uint32_t ulCmdId;
    uint32_t ulLen; // bytes of aucData in use
    std::array<unsigned char, 16> aucData;

    ByteView Data() const { return Slice(ByteView(aucData), 0, ulLen); }
};

constexpr size_t LTE_INIT_DSPSWITCH_COUNT = 24;
constexpr std::array<unsigned char, 16> ENABLE_ALL = {1};          // u32 1
constexpr std::array<unsigned char, 16> ENABLE_RPT = {1, 0, 1, 0}; // u16 1, u16 1, then zeros

/// The switches that the agent itself sends to a UE at its host connect, in this order. The UE's acks to these ids are
/// recognised by the same table and reach no client, also when a client has sent such a switch.
// clang-format off
inline constexpr std::array<LTE_DIAG_INIT_CMD_STRU, LTE_INIT_DSPSWITCH_COUNT> LTE_DIAG_INIT_CMD = {{
    {0x30900099,  4, ENABLE_ALL}, // S_LPHY_REQ_OM_ENA_PPT_ALL
    {0x30900001, 14, ENABLE_RPT}, // S_LPHY_REQ_OM_ENA_RPT_RFE
    {0x30900002, 14, ENABLE_RPT}, // S_LPHY_REQ_OM_ENA_RPT_AGC
    {0x30900003, 14, ENABLE_RPT}, // S_LPHY_REQ_OM_ENA_RPT_AFC
    {0x30900004, 14, ENABLE_RPT}, // S_LPHY_REQ_OM_ENA_RPT_CS
    {0x30900005, 14, ENABLE_RPT}, // S_LPHY_REQ_OM_ENA_RPT_CMU
    {0x30900006, 14, ENABLE_RPT}, // S_LPHY_REQ_OM_ENA_RPT_EMU
    {0x30900007, 14, ENABLE_RPT}, // S_LPHY_REQ_OM_ENA_RPT_CHE
    {0x30900008, 14, ENABLE_RPT}, // S_LPHY_REQ_OM_ENA_RPT_DEM
    {0x30900009, 14, ENABLE_RPT}, // S_LPHY_REQ_OM_ENA_RPT_CQI
    {0x3090000a, 14, ENABLE_RPT}, // S_LPHY_REQ_OM_ENA_RPT_CORR
    {0x3090000b, 14, ENABLE_RPT}, // S_LPHY_REQ_OM_ENA_RPT_SYNC
    {0x3090000c, 14, ENABLE_RPT}, // S_LPHY_REQ_OM_ENA_RPT_TIMING
    {0x3090000d, 14, ENABLE_RPT}, // S_LPHY_REQ_OM_ENA_RPT_DRX
    {0x3090000e, 14, ENABLE_RPT}, // S_LPHY_REQ_OM_ENA_RPT_SERV
    {0x3090000f, 14, ENABLE_RPT}, // S_LPHY_REQ_OM_ENA_RPT_UL
    {0x30900010, 14, ENABLE_RPT}, // S_LPHY_REQ_OM_ENA_RPT_CHANCTRL
    {0x30900011, 14, ENABLE_RPT}, // S_LPHY_REQ_OM_ENA_RPT_OM
    {0x30900012, 14, ENABLE_RPT}, // S_LPHY_REQ_OM_ENA_RPT_DMA
    {0x30900013, 14, ENABLE_RPT}, // S_LPHY_REQ_OM_ENA_RPT_VITERBI
    {0x30900014, 14, ENABLE_RPT}, // S_LPHY_REQ_OM_ENA_RPT_TURBO
    {0x30900015, 14, ENABLE_RPT}, // S_LPHY_REQ_OM_ENA_RPT_SCHED
    {0x30900016, 14, ENABLE_RPT}, // S_LPHY_REQ_OM_ENA_RPT_INTERRUPT
    {0x30900017, 14, ENABLE_RPT}, // S_LPHY_REQ_OM_ENA_RPT_EQUIP
}};
// clang-format on

/// Whether the id is one of the switches of the table.
constexpr bool IsLteDiagInitCmd(uint32_t ulCmdId)
{
    return std::ranges::any_of(LTE_DIAG_INIT_CMD, [=](const auto& stRow) { return stRow.ulCmdId == ulCmdId; });
}
