#include "data/gu/reg/RegPowerControl.h"

#include <cmath>

namespace
{

constexpr unsigned int STATE_ACTIVE = 1;
constexpr int UL_GROUPS_FIRST = 8; // of the 15 uplink commands, in the first and in the second register
constexpr int UL_GROUPS_LAST = 7;
static_assert(UL_GROUPS_FIRST + UL_GROUPS_LAST == SLOT_COUNT);

} // namespace

float MeanSir(std::span<const unsigned int, SLOT_COUNT> signal, std::span<const unsigned int, SLOT_COUNT> noise)
{
    double dSum = 0.0;
    for (size_t i = 0; i < SLOT_COUNT; ++i) {
        const unsigned int ulSignal = GetBitValue(signal[i], 0, 15);
        const unsigned int ulNoise = GetBitValue(noise[i], 0, 17);
        if (ulSignal != 0 && ulNoise != 0)
            dSum += 10 * std::log10(static_cast<double>(ulSignal) / static_cast<double>(ulNoise));
    }
    return static_cast<float>(dSum / 15.0);
}

float SirTarget(unsigned int ulRegister)
{
    const double dTarget = GetBitValue(ulRegister, 0, 15) / 128.0;
    return dTarget > 1e-07 ? static_cast<float>(10 * std::log10(dTarget)) : 0.0F;
}

float SetPower(unsigned int ulWord)
{
    const int lField = static_cast<int>(GetBitValue(ulWord, 9, 19));
    return static_cast<float>(((lField & 0x400) != 0 ? lField - 2048 : lField) / 8.0);
}

/// 0x400 itself counts as positive here, unlike in a set's own words; client tools rely on both.
int SlotPower(unsigned int ulWord)
{
    const int lField = static_cast<int>(GetBitValue(ulWord, 0, 10));
    return lField > 0x400 ? lField - 2048 : lField;
}

int UlTpcCal(unsigned int ulValue, int lCount)
{
    static constexpr std::array<int, 4> c_alStep = {0, +1, 0, -1};
    int lSum = 0;
    for (; lCount > 0; --lCount, ulValue >>= 2)
        lSum += c_alStep[ulValue & 3];
    return lSum;
}

int DlTpcCal(unsigned int ulValue)
{
    int lSum = 0;
    for (size_t i = 0; i < SLOT_COUNT; ++i, ulValue >>= 1)
        lSum += (ulValue & 1) != 0 ? 1 : -1;
    return lSum;
}

CRegPowerControlSir::CRegPowerControlSir(const REG_STAT_SETUP& stSetup)
    : CPeriodRegMsgFromUe(stSetup, g_aulPowerControlSir)
{
}

void CRegPowerControlSir::Process(const RegStruct& stReg, unsigned int ulTimeStamp)
{
    CRecordList<Power_Control_SIR_STRU, CARRIER_COUNT> records;
    Locate(stReg);
    for (size_t szSet = 0; szSet < CARRIER_COUNT * SIR_SET; szSet += SIR_SET) {
        std::array<unsigned int, SLOT_COUNT> aulSignal{};
        std::array<unsigned int, SLOT_COUNT> aulNoise{};
        unsigned int ulTarget = 0;
        if (!GetRegValues(stReg, szSet + SIR_SIGNAL, aulSignal) || !GetRegValues(stReg, szSet + SIR_NOISE, aulNoise) ||
            !GetValue(stReg, szSet + SIR_TARGET, ulTarget))
            return;
        records.Add({MeanSir(aulSignal, aulNoise), SirTarget(ulTarget)});
    }
    InsertData(records.Bytes(), ulTimeStamp);
}

CRegPowerControlPower::CRegPowerControlPower(const REG_STAT_SETUP& stSetup)
    : CPeriodRegMsgFromUe(stSetup, g_aulPowerControlPower)
{
}

void CRegPowerControlPower::Process(const RegStruct& stReg, unsigned int ulTimeStamp)
{
    float fAverage = 0;
    Locate(stReg);
    if (!ReadSlotAverage(stReg, fAverage))
        return;
    CRecordList<Power_Control_Power_STRU, CARRIER_COUNT, Power_Control_Head_STRU> records({fAverage});
    for (size_t i = 0; i < CARRIER_COUNT; ++i) {
        std::array<unsigned int, POWER_SET_SIZE> aulWords{};
        if (!GetRegValues(stReg, POWER_SET + i * POWER_SET_SIZE, aulWords))
            return;
        records.Add({SetPower(aulWords[0]), SetPower(aulWords[1])});
    }
    InsertData(records.Bytes(), ulTimeStamp);
}

/// The average of the slot words, while the state is active or isn't there; else fAverage stays as it is. False when
/// a slot word is missing.
bool CRegPowerControlPower::ReadSlotAverage(const RegStruct& stReg, float& fAverage) const
{
    unsigned int ulState = 0;
    if (GetValue(stReg, POWER_STATE, ulState) && ulState != STATE_ACTIVE)
        return true;
    std::array<unsigned int, SLOT_COUNT> aulSlots{};
    if (!GetRegValues(stReg, POWER_SLOT, aulSlots))
        return false;
    int lSum = 0;
    for (const unsigned int ulSlot : aulSlots)
        lSum += SlotPower(ulSlot);
    fAverage = static_cast<float>(lSum / 10.0 / 15.0);
    return true;
}

CRegPowerControlTpc::CRegPowerControlTpc(const REG_STAT_SETUP& stSetup)
    : CPeriodRegMsgFromUe(stSetup, g_aulPowerControlTpc)
{
}

void CRegPowerControlTpc::Process(const RegStruct& stReg, unsigned int ulTimeStamp)
{
    CRecordList<Power_Control_TPC_STRU, CARRIER_COUNT> records;
    Locate(stReg);
    for (size_t szSet = 0; szSet < CARRIER_COUNT * TPC_SET; szSet += TPC_SET) {
        unsigned int ulFirst = 0;
        unsigned int ulLast = 0;
        unsigned int ulDl = 0;
        if (!GetValue(stReg, szSet + TPC_UL_FIRST, ulFirst) || !GetValue(stReg, szSet + TPC_UL_LAST, ulLast) ||
            !GetValue(stReg, szSet + TPC_DL, ulDl))
            return;
        records.Add({UlTpcCal(ulFirst, UL_GROUPS_FIRST) + UlTpcCal(ulLast, UL_GROUPS_LAST), DlTpcCal(ulDl)});
    }
    InsertData(records.Bytes(), ulTimeStamp);
}
