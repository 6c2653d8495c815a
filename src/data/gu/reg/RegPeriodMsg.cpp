#include "data/gu/reg/RegPeriodMsg.h"

#include "data/gu/reg/RegMsgProcess.h"
#include "data/gu/reg/RegisterManager.h"

#include <algorithm>
#include <iterator>

CPeriodRegMsgFromUe::CPeriodRegMsgFromUe(const REG_STAT_SETUP& stSetup, std::span<const unsigned int> table)
    : m_pRegMsgProcess(stSetup.pRegMsgProcess),
      m_pulRegTable(table),
      m_ulRegNum(static_cast<unsigned int>(table.size())),
      m_usReqMsgId(stSetup.usReqMsgId)
{
}

void CPeriodRegMsgFromUe::Process(const RegStruct&, unsigned int) {}

bool CPeriodRegMsgFromUe::GetRegAddr(std::vector<unsigned int>& addrs) const
{
    const Registers registers = GetRegisters();
    if (std::ranges::any_of(registers, [](const auto& ulAddr) { return !ulAddr; }))
        return false;
    std::ranges::transform(registers, std::back_inserter(addrs), [](const auto& ulAddr) { return *ulAddr; });
    return true;
}

CPeriodRegMsgFromUe::Registers CPeriodRegMsgFromUe::GetRegisters() const
{
    Registers registers;
    AppendRegisters(registers, m_pRegMsgProcess->Manager().GetBaseAddr().ulWBBPBaseAddr, m_pulRegTable);
    return registers;
}

void CPeriodRegMsgFromUe::AppendRegisters(Registers& registers, unsigned int ulBase,
                                          std::span<const unsigned int> offsets)
{
    const bool bKnown = ulBase != REG_BASE_ADDR_STRU::ADDR_UNKNOWN;
    for (const unsigned int ulOffset : offsets)
        registers.push_back(bKnown ? std::optional(ulBase + ulOffset) : std::nullopt);
}

void CPeriodRegMsgFromUe::CleanStat()
{
    m_aulSampleCnt = {};
    m_usPeriod = 0;
    DeleteDataUnlocked();
}

void CPeriodRegMsgFromUe::InsertData(ByteView data, unsigned int ulTimeStamp)
{
    m_ulTimeStamp = ulTimeStamp;
    InsertDataUnlocked(data);
}

unsigned int CPeriodRegMsgFromUe::CalcuAddValue(unsigned int ulOld, unsigned int ulNew)
{
    return ulNew > ulOld ? ulNew - ulOld : 0;
}

float CPeriodRegMsgFromUe::CalcuDivision(unsigned int ulA, unsigned int ulB)
{
    return ulB == 0 ? 0.0F : static_cast<float>(static_cast<double>(ulA) / static_cast<double>(ulB));
}

void CPeriodRegMsgFromUe::Locate(const RegStruct& stReg)
{
    const CRegisterManager& manager = m_pRegMsgProcess->Manager();
    const REG_BASE_ADDR_STRU stBase = manager.GetBaseAddr();
    const REG_LOCATION_KEY stKey{stReg.m_ullGeneration, stBase.ulWBBPBaseAddr, stBase.ulWUPABaseAddr,
                                 manager.GetTimeSlotAddr()};
    if (stKey.ullGeneration != 0 && stKey == m_stKey)
        return;
    m_stKey = stKey;
    m_aszPos.clear();
    for (const auto& ulAddr : GetRegisters())
        m_aszPos.push_back(ulAddr ? FindReg(stReg.m_aulRegAddrs, *ulAddr) : REG_NOT_FOUND);
}

bool CPeriodRegMsgFromUe::GetValue(const RegStruct& stReg, size_t szIdx, unsigned int& ulValue) const
{
    ulValue = 0;
    if (szIdx >= m_aszPos.size() || m_aszPos[szIdx] == REG_NOT_FOUND)
        return false;
    ulValue = RegValueAt(stReg, m_aszPos[szIdx]);
    return true;
}

bool CPeriodRegMsgFromUe::GetRegValues(const RegStruct& stReg, size_t szIdx, std::span<unsigned int> values) const
{
    for (unsigned int& ulValue : values)
        if (!GetValue(stReg, szIdx++, ulValue))
            return false;
    return true;
}
