#pragma once

#include <algorithm>
#include <array>
#include <cstddef>

// The registers that each statistic needs, as offsets from a base address. "_V9" tables are those of the known UE
// kinds; they differ from the plain ones in their offsets only. Tables of two carriers hold two halves of one shape.

constexpr size_t CARRIER_COUNT = 2;
constexpr size_t STREAM_COUNT = 2; // MIMO streams

namespace regtable
{

/// N offsets from ulFirst at a step.
template <size_t N> constexpr std::array<unsigned int, N> Run(unsigned int ulFirst, unsigned int ulStep)
{
    std::array<unsigned int, N> run{};
    for (size_t i = 0; i < N; ++i)
        run[i] = ulFirst + static_cast<unsigned int>(i) * ulStep;
    return run;
}

template <size_t... N> constexpr auto Join(const std::array<unsigned int, N>&... parts)
{
    std::array<unsigned int, (N + ...)> joined{};
    auto end = joined.begin();
    ((end = std::copy(parts.begin(), parts.end(), end)), ...);
    return joined;
}

/// The half of carrier 0 and behind it that of carrier 1, ulDistance further on.
template <size_t N> constexpr auto TwoCarriers(const std::array<unsigned int, N>& half, unsigned int ulDistance)
{
    auto second = half;
    for (unsigned int& ulOffset : second)
        ulOffset += ulDistance;
    return Join(half, second);
}

/// The same, but one register is shared by both carriers.
template <size_t N>
constexpr auto TwoCarriersSharing(size_t szShared, const std::array<unsigned int, N>& half, unsigned int ulDistance)
{
    auto both = TwoCarriers(half, ulDistance);
    both[N + szShared] = half[szShared];
    return both;
}

constexpr unsigned int CARRIER_DISTANCE = 0x80000;
constexpr unsigned int CARRIER_DISTANCE_V9 = 0x20000;

} // namespace regtable

// ---- HSDPA subframes: indices 0 to 44 of the decoding and of the link statistics ----

constexpr size_t REG_COMMON = 0; // R0 to R4
constexpr size_t REG_COMMON_NUM = 5;
constexpr size_t REG_COMMON_SHARED = 4; // in the plain tables R4 is one register for both carriers
constexpr size_t REG_BLOCK = 5;         // five subframe blocks of eight registers, of which four are read
constexpr size_t REG_BLOCK_NUM = 5;
constexpr size_t REG_BLOCK_SIZE = 8;
constexpr size_t REG_BLOCK_READ = 4;

namespace regtable
{

constexpr auto Blocks(unsigned int ulFirst, unsigned int ulStep)
{
    return Join(Run<REG_BLOCK_SIZE>(ulFirst, 4), Run<REG_BLOCK_SIZE>(ulFirst + ulStep, 4),
                Run<REG_BLOCK_SIZE>(ulFirst + 2 * ulStep, 4), Run<REG_BLOCK_SIZE>(ulFirst + 3 * ulStep, 4),
                Run<REG_BLOCK_SIZE>(ulFirst + 4 * ulStep, 4));
}

using Common = std::array<unsigned int, REG_COMMON_NUM>;
inline constexpr auto Subframes = Join(Common{0x8154, 0x82B0, 0x82B4, 0x82B8, 0x82D8}, Blocks(0x8700, 0x20));
inline constexpr auto Subframes_V9 = Join(Common{0x9154, 0x92B0, 0x92B4, 0x92B8, 0x92D8}, Blocks(0x9700, 0x30));

} // namespace regtable

// ---- Decoding statistics: two halves of 46 ----

constexpr size_t DECODING_HALF = 46; // the last is the carrier's active register

inline constexpr auto g_aulDecodingStatistics = regtable::TwoCarriersSharing(
    REG_COMMON_SHARED, regtable::Join(regtable::Subframes, regtable::Run<1>(0x8070, 0)), regtable::CARRIER_DISTANCE);
inline constexpr auto g_aulDecodingStatistics_V9 = regtable::TwoCarriers(
    regtable::Join(regtable::Subframes_V9, regtable::Run<1>(0x9070, 0)), regtable::CARRIER_DISTANCE_V9);
static_assert(g_aulDecodingStatistics.size() == 2 * DECODING_HALF);

// ---- Link statistics: two halves of 58 ----

constexpr size_t LINK_COUNTERS = 45; // seven free-running counters
constexpr size_t LINK_COUNTER_NUM = 7;
constexpr size_t LINK_HIST = 52; // third register of each subframe block
constexpr size_t LINK_HIST_NUM = 5;
constexpr size_t LINK_HALF = 58; // the last is the carrier's active register

inline constexpr auto g_aulLinkStatistics = regtable::TwoCarriersSharing(
    REG_COMMON_SHARED,
    regtable::Join(regtable::Subframes, regtable::Run<LINK_COUNTER_NUM>(0x8240, 4),
                   regtable::Run<LINK_HIST_NUM>(0x8708, 0x20), regtable::Run<1>(0x8070, 0)),
    regtable::CARRIER_DISTANCE);
/// 0x8738 is deliberate, though the pattern would have 0x9738: it is what the UEs are asked for, and carrier 1 has
/// 0x28738 in its place.
inline constexpr auto g_aulLinkStatistics_V9 = regtable::TwoCarriers(
    regtable::Join(regtable::Subframes_V9, regtable::Run<LINK_COUNTER_NUM>(0x9240, 4),
                   std::array<unsigned int, LINK_HIST_NUM>{0x9708, 0x8738, 0x9768, 0x9798, 0x97C8},
                   regtable::Run<1>(0x9070, 0)),
    regtable::CARRIER_DISTANCE_V9);
static_assert(g_aulLinkStatistics.size() == 2 * LINK_HALF);

// ---- Channel quality: two halves of 14 ----

constexpr size_t CQI_ENABLE = 0;
constexpr size_t CQI_MODE = 1; // P, Q, R
constexpr size_t CQI_MODE_NUM = 3;
constexpr size_t CQI_FIRST_SET = 4;
constexpr size_t CQI_SECOND_SET = 9;
constexpr size_t CQI_SET_SIZE = 5;
constexpr size_t CQI_HALF = 14;

// clang-format off
inline constexpr auto g_aulHsdpaCqi = regtable::TwoCarriers(std::array<unsigned int, CQI_HALF>{
    0x71F0, 0x7120, 0x74F0, 0x75F0,
    0x7900, 0x7974, 0x79E8, 0x7A5C, 0x7AD0,
    0x7950, 0x79C4, 0x7A38, 0x7AAC, 0x7C20}, regtable::CARRIER_DISTANCE);
inline constexpr auto g_aulHsdpaCqi_V9 = regtable::TwoCarriers(std::array<unsigned int, CQI_HALF>{
    0x82B0, 0x8120, 0x84F0, 0x85F0,
    0x8C00, 0x8C40, 0x8C80, 0x8CC0, 0x8D00,
    0x7950, 0x79C4, 0x7A38, 0x7AAC, 0x7C20}, regtable::CARRIER_DISTANCE_V9);

// ---- Configuration snapshots ----

constexpr size_t DSCH_FIELD = 0;
constexpr size_t DSCH_KEY = 1;
constexpr size_t DSCH_PAIR = 2; // pairs of a register to compare with the key and one to report
constexpr size_t DSCH_PAIR_NUM = 6;

inline constexpr std::array<unsigned int, 14> g_aulDschConfiguration = {
    0x8074, 0x7100,
    0x4220, 0x4200,  0x4224, 0x4204,  0x4228, 0x4208,  0x422C, 0x420C,  0x4230, 0x4210,  0x4234, 0x4214};
inline constexpr std::array<unsigned int, 14> g_aulDschConfiguration_V9 = {
    0x9074, 0x7100,
    0x4220, 0x4200,  0x4224, 0x4204,  0x4228, 0x4208,  0x422C, 0x420C,  0x4230, 0x4210,  0x4234, 0x4214};

constexpr unsigned int SCCH_CHANNEL_NUM = 4; // channel i is entry i; entry 0 is the mask

inline constexpr std::array<unsigned int, 5> g_aulScchConfiguration    = {0x7108, 0x7110, 0x7114, 0x7118, 0x711C};
inline constexpr std::array<unsigned int, 5> g_aulScchConfiguration_V9 = {0x8108, 0x8110, 0x8114, 0x8118, 0x811C};

inline constexpr std::array<unsigned int, 3> g_aulDpcchConfiguration = {0xC074, 0xC078, 0xC040}; // A, B, C
// clang-format on

// ---- Power control ----

constexpr size_t SLOT_COUNT = 15; // slots of a 10 ms frame

constexpr size_t SIR_TARGET = 0; // in each of two sets
constexpr size_t SIR_SIGNAL = 1;
constexpr size_t SIR_NOISE = 16;
constexpr size_t SIR_SET = 31;

inline constexpr auto g_aulPowerControlSir =
    regtable::TwoCarriers(regtable::Join(regtable::Run<1>(0x4574, 0), regtable::Run<SLOT_COUNT>(0x601C, 0x24),
                                         regtable::Run<SLOT_COUNT>(0x6018, 0x24)),
                          regtable::CARRIER_DISTANCE);
static_assert(g_aulPowerControlSir.size() == 2 * SIR_SET);

constexpr size_t POWER_STATE = 0;
constexpr size_t POWER_SLOT = 1;
constexpr size_t POWER_SET = 16; // two words of each set
constexpr size_t POWER_SET_SIZE = 2;

// clang-format off
inline constexpr std::array<unsigned int, 20> g_aulPowerControlPower = {
    0xC008,
    0x6020, 0x60D4, 0x6188, 0x6044, 0x60F8, 0x61AC, 0x6068, 0x611C, 0x61D0, 0x608C, 0x6140, 0x61F4, 0x60B0, 0x6164,
    0x6218,
    0x1A2C, 0x1A30,
    0x81A2C, 0x81A30};

constexpr size_t TPC_UL_FIRST = 1; // in each of two sets; entry 0 is only requested, never read
constexpr size_t TPC_UL_LAST = 2;
constexpr size_t TPC_DL = 3;
constexpr size_t TPC_SET = 4;

inline constexpr std::array<unsigned int, 8> g_aulPowerControlTpc = {
    0xC008, 0x621C,  0x6220,  0x6224,
    0xCA8C, 0x8621C, 0x86220, 0x86224};
// clang-format on

// ---- HSUPA: the enable registers of both carriers in the baseband, then groups of five in the DSP's data area ----

constexpr size_t HSUPA_ENABLE = 0;
constexpr size_t HSUPA_GROUP = 2;      // first group
constexpr size_t HSUPA_GROUP_SIZE = 5; // one word for each of the TTI records
constexpr unsigned int HSUPA_TTI_STEP = 0x1E0;

namespace regtable
{

inline constexpr std::array<unsigned int, 2> HsupaEnable = {0xC000, 0xCA8C};

/// One word of each TTI record.
constexpr auto Tti(unsigned int ulFirst)
{
    return Run<HSUPA_GROUP_SIZE>(ulFirst, HSUPA_TTI_STEP);
}

} // namespace regtable

// clang-format off
inline constexpr auto g_aulHsupaLinkThroughput = regtable::Join(regtable::HsupaEnable,
    regtable::Tti(0x38),   // T0
    regtable::Tti(0x44),   // T1
    regtable::Tti(0x48),   // T2
    regtable::Tti(0x4C));  // T3

inline constexpr auto g_aulHsupaLinkQuality = regtable::Join(regtable::HsupaEnable,
    regtable::Tti(0x28),   // Q0
    regtable::Tti(0x38),   // Q1
    regtable::Tti(0x44),   // Q2
    // Q3: the first step is 8 short of the others
    std::array<unsigned int, HSUPA_GROUP_SIZE>{0x7C, 0x254, 0x434, 0x614, 0x7F4},
    regtable::Tti(0x124)); // Q4

inline constexpr auto g_aulHsupaGrant = regtable::Join(regtable::HsupaEnable,
    regtable::Tti(0x08),   // G0
    regtable::Tti(0x0C),   // G1
    regtable::Tti(0x10),   // G2
    regtable::Tti(0x14),   // G3
    regtable::Tti(0x24),   // G4
    regtable::Tti(0x20),   // G5
    regtable::Tti(0x110)); // G6
// clang-format on
static_assert(g_aulHsupaLinkThroughput.size() == 22 && g_aulHsupaLinkQuality.size() == 27 &&
              g_aulHsupaGrant.size() == 37);
