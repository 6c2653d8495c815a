#pragma once

#include "data/gu/reg/RegPeriodMsg.h"
#include "data/gu/reg/RegRecords.h"

// WCDMA inner loop power control, from one frame of 15 slots. No history: every indication gives a whole new result of
// two sets, one per carrier.

/// Measured and target SIR.
class CRegPowerControlSir : public CPeriodRegMsgFromUe
{
public:
    explicit CRegPowerControlSir(const REG_STAT_SETUP& stSetup);
    void Process(const RegStruct& stReg, unsigned int ulTimeStamp) REQUIRES(m_Mutex) override;
};

/// Powers.
class CRegPowerControlPower : public CPeriodRegMsgFromUe
{
public:
    explicit CRegPowerControlPower(const REG_STAT_SETUP& stSetup);
    void Process(const RegStruct& stReg, unsigned int ulTimeStamp) REQUIRES(m_Mutex) override;

private:
    [[nodiscard]] bool ReadSlotAverage(const RegStruct& stReg, float& fAverage) const REQUIRES(m_Mutex);
};

/// TPC commands.
class CRegPowerControlTpc : public CPeriodRegMsgFromUe
{
public:
    explicit CRegPowerControlTpc(const REG_STAT_SETUP& stSetup);
    void Process(const RegStruct& stReg, unsigned int ulTimeStamp) REQUIRES(m_Mutex) override;
};

/// Mean SIR in dB over the slots: 10 log10(signal / noise) summed over the slots that have both, divided by all 15.
float MeanSir(std::span<const unsigned int, SLOT_COUNT> signal, std::span<const unsigned int, SLOT_COUNT> noise);
/// Target SIR in dB from its register, in units of 1/128; 0 for a register of 0.
float SirTarget(unsigned int ulRegister);
/// A power word of a set in units of 1/8: bits 9 to 19 in two's complement.
float SetPower(unsigned int ulWord);
/// The power field of a slot word, bits 0 to 10 in units of 1/10.
int SlotPower(unsigned int ulWord);
/// Sum of lCount two-bit TPC commands from the low end: 1 raises, 3 lowers, 0 and 2 hold.
int UlTpcCal(unsigned int ulValue, int lCount);
/// Sum of the 15 one-bit TPC commands from bit 0: 1 raises, 0 lowers.
int DlTpcCal(unsigned int ulValue);
