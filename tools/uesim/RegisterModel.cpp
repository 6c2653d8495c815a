#include "uesim/RegisterModel.h"

#include <algorithm>
#include <iterator>

namespace
{
constexpr uint32_t BANK_BASEBAND = 9; // the WCDMA baseband's base is ..900000 on every platform
constexpr uint32_t BANK_HSUPA = 0xA;
constexpr uint32_t BANK_SHARE = 0xB;
constexpr uint32_t BANK_SIZE = 0x100000;
constexpr uint32_t SECOND_CARRIER = 0x20000 | 0x80000; // one or the other bit of a baseband offset
constexpr uint32_t TTI_STEP = 0x1E0;                   // between two TTI records of the HSUPA data
constexpr unsigned int TTIS = 5;
constexpr unsigned int SLOTS = 15;

constexpr uint32_t DSCH_KEY = 0x12345;
constexpr unsigned int DSCH_MATCH = 2;        // the pair that holds the key
constexpr uint32_t FOUR_CHANNELS = 0x1E;      // HS-SCCH mask: channels 1 to 4
constexpr uint32_t LESS_INDICES = 0x281E140A; // 10, 20, 30, 40
constexpr uint32_t UNWRITTEN = 0x5A5A;
constexpr uint32_t TYPE_LESS_FIRST = 1;
constexpr uint32_t TYPE_SINGLE = 6;
constexpr uint32_t TYPE_DUAL = 7;
constexpr uint32_t TYPE_EMPTY = 14;
constexpr uint32_t c_aulTbs[] = {4748, 9719, 14411, 20251, 27952};
constexpr uint32_t LESS_TBS = 233;

/// A pseudo random number that depends on its argument alone.
constexpr uint32_t Mix(uint32_t ulSeed)
{
    ulSeed ^= ulSeed >> 16;
    ulSeed *= 0x7FEB352D;
    ulSeed ^= ulSeed >> 15;
    ulSeed *= 0x846CA68B;
    return ulSeed ^ (ulSeed >> 16);
}
} // namespace

// clang-format off
const CRegisterModel::ROW CRegisterModel::c_astRow[] = {
    // HSDPA: common registers, subframe blocks, activity, counters
    {BANK_BASEBAND, 0x9154, 0,    1,     &CRegisterModel::Const<0x100>},
    {BANK_BASEBAND, 0x92B0, 0,    1,     &CRegisterModel::Const<1>},
    {BANK_BASEBAND, 0x92B4, 0,    1,     &CRegisterModel::Const<LESS_INDICES>},
    {BANK_BASEBAND, 0x92B8, 0,    1,     &CRegisterModel::Const<4>},
    {BANK_BASEBAND, 0x92D8, 0,    1,     &CRegisterModel::Monitored},
    {BANK_BASEBAND, 0x9700, 0x30, 5,     &CRegisterModel::FrameWord0},
    {BANK_BASEBAND, 0x9704, 0x30, 5,     &CRegisterModel::FrameWord1},
    {BANK_BASEBAND, 0x9708, 0x30, 5,     &CRegisterModel::FrameWord2},
    {BANK_BASEBAND, 0x970C, 0x30, 5,     &CRegisterModel::FrameWord3},
    {BANK_BASEBAND, 0x8738, 0,    1,     &CRegisterModel::FrameWord2},
    {BANK_BASEBAND, 0x9070, 0,    1,     &CRegisterModel::Const<1>},
    {BANK_BASEBAND, 0x9240, 4,    7,     &CRegisterModel::Counter},
    // CQI: enable, modes, both report sets
    {BANK_BASEBAND, 0x82B0, 0,    1,     &CRegisterModel::Const<1>},
    {BANK_BASEBAND, 0x8120, 0,    1,     &CRegisterModel::CqiMode},
    {BANK_BASEBAND, 0x84F0, 0,    1,     &CRegisterModel::Const<1>},
    {BANK_BASEBAND, 0x85F0, 0,    1,     &CRegisterModel::Const<0>},
    {BANK_BASEBAND, 0x8C00, 0x40, 5,     &CRegisterModel::Cqi},
    {BANK_BASEBAND, 0x7950, 0x74, 4,     &CRegisterModel::Cqi},
    {BANK_BASEBAND, 0x7C20, 0,    1,     &CRegisterModel::Cqi},
    // channel configuration
    {BANK_BASEBAND, 0x9074, 0,    1,     &CRegisterModel::Const<8>},
    {BANK_BASEBAND, 0x7100, 0,    1,     &CRegisterModel::Const<DSCH_KEY>},
    {BANK_BASEBAND, 0x4220, 4,    6,     &CRegisterModel::DschKey},
    {BANK_BASEBAND, 0x4200, 4,    6,     &CRegisterModel::DschValue},
    {BANK_BASEBAND, 0x8108, 0,    1,     &CRegisterModel::Const<FOUR_CHANNELS>},
    {BANK_BASEBAND, 0x8110, 4,    4,     &CRegisterModel::ScchCode},
    {BANK_BASEBAND, 0xC074, 0,    1,     &CRegisterModel::Const<0x50201>},
    {BANK_BASEBAND, 0xC078, 0,    1,     &CRegisterModel::Const<0x0ABC>},
    {BANK_BASEBAND, 0xC040, 0,    1,     &CRegisterModel::Const<0x18C5>},
    // power control
    {BANK_BASEBAND, 0xC008, 0,    1,     &CRegisterModel::Const<1>},
    {BANK_BASEBAND, 0x6020, 0x24, SLOTS, &CRegisterModel::SlotPower},
    {BANK_BASEBAND, 0x1A2C, 4,    2,     &CRegisterModel::SetPower},
    {BANK_BASEBAND, 0x4574, 0,    1,     &CRegisterModel::SirTarget},
    {BANK_BASEBAND, 0x601C, 0x24, SLOTS, &CRegisterModel::Signal},
    {BANK_BASEBAND, 0x6018, 0x24, SLOTS, &CRegisterModel::Noise},
    {BANK_BASEBAND, 0x621C, 4,    2,     &CRegisterModel::TpcUl},
    {BANK_BASEBAND, 0x6224, 0,    1,     &CRegisterModel::TpcDl},
    // HSUPA: enable registers of both carriers, then the TTI records
    {BANK_BASEBAND, 0xC000, 0,    1,     &CRegisterModel::Const<1>},
    {BANK_BASEBAND, 0xCA8C, 0,    1,     &CRegisterModel::Const<1>},
    {BANK_HSUPA,    0x08,  TTI_STEP, TTIS,     &CRegisterModel::GrantFlag},
    {BANK_HSUPA,    0x0C,  TTI_STEP, TTIS,     &CRegisterModel::AbsoluteGrant},
    {BANK_HSUPA,    0x10,  TTI_STEP, TTIS,     &CRegisterModel::GrantFlag},
    {BANK_HSUPA,    0x14,  TTI_STEP, TTIS,     &CRegisterModel::RelativeCode},
    {BANK_HSUPA,    0x20,  TTI_STEP, TTIS,     &CRegisterModel::Const<0>},
    {BANK_HSUPA,    0x24,  TTI_STEP, TTIS,     &CRegisterModel::ServingGrant},
    {BANK_HSUPA,    0x28,  TTI_STEP, TTIS,     &CRegisterModel::Happy},
    {BANK_HSUPA,    0x38,  TTI_STEP, TTIS,     &CRegisterModel::Served},
    {BANK_HSUPA,    0x44,  TTI_STEP, TTIS,     &CRegisterModel::BlockIndex},
    {BANK_HSUPA,    0x48,  TTI_STEP, TTIS,     &CRegisterModel::DataBits},
    {BANK_HSUPA,    0x4C,  TTI_STEP, TTIS,     &CRegisterModel::HeadBits},
    {BANK_HSUPA,    0x7C,  0,        1,        &CRegisterModel::UlRetrans},
    {BANK_HSUPA,    0x254, TTI_STEP, TTIS - 1, &CRegisterModel::UlRetrans}, // eight bytes short of the others' step
    {BANK_HSUPA,    0x110, TTI_STEP, TTIS,     &CRegisterModel::ServingGrant},
    {BANK_HSUPA,    0x124, TTI_STEP, TTIS,     &CRegisterModel::Limit},
    // what the DSP shares: the query block's first word 0 says that the second is the HSUPA base
    {BANK_SHARE,    0x04,  0,        1,        &CRegisterModel::Const<0>},
    {BANK_SHARE,    0x08,  0,        1,        &CRegisterModel::Const<HSUPA_BASE>},
    {BANK_SHARE,    0x0C,  0,        1,        &CRegisterModel::Const<1>}, // 2 ms TTIs
};
// clang-format on

CRegisterModel::PLACE CRegisterModel::Find(uint32_t ulAddress)
{
    const uint32_t ulBank = (ulAddress / BANK_SIZE) & 0xF;
    uint32_t ulOffset = ulAddress % BANK_SIZE;
    const bool bSecond = ulBank == BANK_BASEBAND && (ulOffset & SECOND_CARRIER) != 0;
    if (bSecond)
        ulOffset &= ~SECOND_CARRIER;
    for (size_t i = 0; i < std::size(c_astRow); ++i) {
        const ROW& stRow = c_astRow[i];
        if (stRow.ulBank != ulBank || ulOffset < stRow.ulFirst)
            continue;
        const uint32_t ulBehind = ulOffset - stRow.ulFirst;
        const uint32_t ulIndex = stRow.ulStep != 0 ? ulBehind / stRow.ulStep : 0;
        if (ulIndex < stRow.ulCount && ulBehind == ulIndex * stRow.ulStep)
            return {static_cast<uint8_t>(i), bSecond, static_cast<uint8_t>(ulIndex)};
    }
    return {};
}

uint32_t CRegisterModel::Value(const PLACE& stPlace) const
{
    if (stPlace.ucRow >= std::size(c_astRow))
        return 0;
    return (this->*c_astRow[stPlace.ucRow].pfnValue)(stPlace.ucCarrier, stPlace.ucIndex);
}

void CRegisterModel::Advance()
{
    ++m_ulFrame;
    for (size_t szCarrier = 0; szCarrier < CARRIERS; ++szCarrier)
        for (size_t i = 0; i < SUBFRAMES; ++i)
            MakeSubframe(szCarrier, i);
}

/// A process that failed sends the same block again until it is good. One subframe in 40 holds nothing, one in 30 is
/// a small block without control channel.
void CRegisterModel::MakeSubframe(size_t szCarrier, size_t szSubframe)
{
    const auto ulNumber = static_cast<uint32_t>(m_ulFrame * SUBFRAMES + szSubframe);
    const uint32_t ulDice = Mix(2 * ulNumber + static_cast<uint32_t>(szCarrier));
    SUBFRAME& stSubframe = m_aSubframe[szCarrier][szSubframe];
    stSubframe = {};
    if (ulNumber % 40 == 17) {
        stSubframe.ulType = TYPE_EMPTY;
        return;
    }
    if (ulNumber % 30 == 11) {
        stSubframe.ulType = TYPE_LESS_FIRST;
        stSubframe.bGood = ulDice % 4 != 0;
        stSubframe.ulTbs[0] = LESS_TBS;
        return;
    }
    stSubframe.ulHarqId = ulNumber % PROCESSES;
    PROCESS& stProcess = m_aProcess[szCarrier][stSubframe.ulHarqId];
    stProcess.ulRetrans = stProcess.bFailed ? std::min(stProcess.ulRetrans + 1, 7U) : 0;
    if (!stProcess.bFailed)
        stProcess.ulTbs = c_aulTbs[(m_ulFrame / 20 + ulDice % 2) % std::size(c_aulTbs)];
    stProcess.bFailed = (ulDice >> 8) % 10 == 0;
    stSubframe.ulType = ulNumber % 4 == 3 ? TYPE_DUAL : TYPE_SINGLE;
    stSubframe.ulRetrans = stProcess.ulRetrans;
    stSubframe.bGood = !stProcess.bFailed;
    stSubframe.ulTbs[0] = stProcess.ulTbs;
    stSubframe.ulTbs[1] = stSubframe.ulType == TYPE_DUAL ? stProcess.ulTbs : 0;
}

unsigned int CRegisterModel::Wave(unsigned int ulPhase, unsigned int ulLow, unsigned int ulHigh) const
{
    const unsigned int ulSpan = ulHigh - ulLow;
    const unsigned int ulAt = (m_ulFrame / 10 + ulPhase) % (2 * ulSpan);
    return ulLow + (ulAt <= ulSpan ? ulAt : 2 * ulSpan - ulAt);
}

uint32_t CRegisterModel::FrameWord0(unsigned int ulCarrier, unsigned int ulIndex) const
{
    const SUBFRAME& st = m_aSubframe[ulCarrier][ulIndex];
    const uint32_t ulScch = st.ulType == TYPE_EMPTY || st.ulType == TYPE_LESS_FIRST ? 0 : 1;
    const uint32_t ulGood = st.bGood && st.ulType != TYPE_EMPTY ? 1 : 0;
    const uint32_t ulGood1 = st.ulType == TYPE_DUAL && (m_ulFrame + ulIndex) % 7 != 0 ? 1 : 0;
    return 1 | st.ulType << 4 | ulScch << 12 | ulScch << 16 | ulGood1 << 24 | ulGood << 25;
}

uint32_t CRegisterModel::FrameWord1(unsigned int ulCarrier, unsigned int ulIndex) const
{
    const SUBFRAME& st = m_aSubframe[ulCarrier][ulIndex];
    return st.ulTbs[0] | st.ulTbs[1] << 16;
}

/// HARQ process, modulations by block size, the histogram field, new data flags.
uint32_t CRegisterModel::FrameWord2(unsigned int ulCarrier, unsigned int ulIndex) const
{
    const SUBFRAME& st = m_aSubframe[ulCarrier][ulIndex];
    const uint32_t ulModulation = st.ulTbs[0] > 14000 ? 3 : st.ulTbs[0] > 7000 ? 2 : 0;
    const uint32_t ulNew = st.ulRetrans == 0 ? 1 : 0;
    return st.ulHarqId | ulModulation << 16 | ulModulation << 18 | Wave(ulIndex, 1, 15) << 20 | ulNew << 28 |
           ulNew << 29;
}

uint32_t CRegisterModel::FrameWord3(unsigned int ulCarrier, unsigned int ulIndex) const
{
    return m_aSubframe[ulCarrier][ulIndex].ulRetrans << 8 | 6U << 20;
}

uint32_t CRegisterModel::Monitored(unsigned int, unsigned int) const
{
    return m_ulFrame % 50 == 0 ? 0 : 0x100;
}

/// Seven counters that only grow, in the ratios total, good, bad; total, bad; total, bad.
uint32_t CRegisterModel::Counter(unsigned int ulCarrier, unsigned int ulIndex) const
{
    static constexpr uint32_t PER_HUNDRED[] = {1000, 930, 40, 500, 35, 400, 12};
    return static_cast<uint32_t>(uint64_t{m_ulFrame} * PER_HUNDRED[ulIndex] / (100 * (ulCarrier + 1)));
}

/// The second report set takes its turn every 20 s.
uint32_t CRegisterModel::CqiMode(unsigned int, unsigned int) const
{
    return m_ulFrame / 2000 % 2 == 1 ? 2U << 16 : 0;
}

uint32_t CRegisterModel::Cqi(unsigned int ulCarrier, unsigned int ulIndex) const
{
    return Wave(ulIndex + 3 * ulCarrier, 12, 28) | Wave(2 * ulIndex, 10, 200) << 16;
}

uint32_t CRegisterModel::DschKey(unsigned int, unsigned int ulIndex) const
{
    return ulIndex == DSCH_MATCH ? DSCH_KEY : ulIndex;
}

uint32_t CRegisterModel::DschValue(unsigned int, unsigned int ulIndex) const
{
    return 0x40 + ulIndex;
}
uint32_t CRegisterModel::ScchCode(unsigned int, unsigned int ulIndex) const
{
    return 3 + 2 * ulIndex;
}

uint32_t CRegisterModel::SlotPower(unsigned int, unsigned int ulIndex) const
{
    return (0U - Wave(ulIndex, 50, 250)) & 0x7FF; // tenths of dBm, below zero
}

uint32_t CRegisterModel::SetPower(unsigned int ulCarrier, unsigned int ulIndex) const
{
    return ((0U - Wave(5 * ulCarrier + ulIndex, 400, 720)) & 0x7FF) << 9; // eighths
}

uint32_t CRegisterModel::SirTarget(unsigned int ulCarrier, unsigned int) const
{
    return Wave(ulCarrier, 200, 900);
}
uint32_t CRegisterModel::Signal(unsigned int ulCarrier, unsigned int ulIndex) const
{
    return Wave(7 * ulCarrier + ulIndex, 8000, 9000);
}
uint32_t CRegisterModel::Noise(unsigned int ulCarrier, unsigned int ulIndex) const
{
    return Wave(3 * ulCarrier + 2 * ulIndex, 900, 1400);
}

/// Two bits a slot, 1 up and 3 down.
uint32_t CRegisterModel::TpcUl(unsigned int ulCarrier, unsigned int ulIndex) const
{
    return Mix(m_ulFrame * 4 + 2 * ulCarrier + ulIndex) | 0x55555555;
}
uint32_t CRegisterModel::TpcDl(unsigned int ulCarrier, unsigned int) const
{
    return Mix(m_ulFrame + 0x10000 * (ulCarrier + 1)) & 0x7FFF;
}

/// One TTI in eight sends nothing.
uint32_t CRegisterModel::Served(unsigned int, unsigned int ulIndex) const
{
    return Halves([&](uint32_t ulCarrier) -> uint32_t { return (m_ulFrame + ulIndex + ulCarrier) % 8 == 0 ? 0 : 1; });
}
uint32_t CRegisterModel::BlockIndex(unsigned int, unsigned int ulIndex) const
{
    return Halves([&](uint32_t ulCarrier) -> uint32_t {
        return (m_ulFrame + ulIndex + ulCarrier) % 8 == 0 ? UNWRITTEN : Wave(ulIndex + ulCarrier, 20, 90);
    });
}
uint32_t CRegisterModel::DataBits(unsigned int, unsigned int ulIndex) const
{
    return Halves([&](uint32_t ulCarrier) -> uint32_t { return Wave(ulIndex + 9 * ulCarrier, 2000, 9000); });
}
uint32_t CRegisterModel::HeadBits(unsigned int, unsigned int) const
{
    return Halves([](uint32_t ulCarrier) -> uint32_t { return 18 + 6 * ulCarrier; });
}
uint32_t CRegisterModel::Happy(unsigned int, unsigned int ulIndex) const
{
    return Halves(
        [&](uint32_t ulCarrier) -> uint32_t { return (m_ulFrame + 2 * ulIndex + ulCarrier) % 3 != 0 ? 1 : 0; });
}
uint32_t CRegisterModel::UlRetrans(unsigned int, unsigned int ulIndex) const
{
    return Halves(
        [&](uint32_t ulCarrier) -> uint32_t { return (m_ulFrame + 3 * ulIndex + ulCarrier) % 10 == 0 ? 1 : 0; });
}
uint32_t CRegisterModel::Limit(unsigned int, unsigned int ulIndex) const
{
    return Halves([&](uint32_t ulCarrier) -> uint32_t { return (m_ulFrame / 16 + ulIndex + ulCarrier) % 3; });
}
uint32_t CRegisterModel::GrantFlag(unsigned int, unsigned int ulIndex) const
{
    return Halves([&](uint32_t ulCarrier) -> uint32_t { return (m_ulFrame + ulIndex + ulCarrier) % 4 == 0 ? 1 : 0; });
}
uint32_t CRegisterModel::AbsoluteGrant(unsigned int, unsigned int ulIndex) const
{
    return Halves([&](uint32_t ulCarrier) -> uint32_t {
        return Wave(ulIndex + ulCarrier, 5, 30) << 1 | (1 + (m_ulFrame / 50 + ulCarrier) % 2) << 8;
    });
}
uint32_t CRegisterModel::RelativeCode(unsigned int, unsigned int ulIndex) const
{
    return Halves([&](uint32_t ulCarrier) -> uint32_t { return 1 + (m_ulFrame / 4 + ulIndex + ulCarrier) % 3; });
}
uint32_t CRegisterModel::ServingGrant(unsigned int, unsigned int ulIndex) const
{
    return Halves([&](uint32_t ulCarrier) -> uint32_t { return Wave(ulIndex + 4 * ulCarrier, 4, 37); });
}
