#pragma once

#include "data/gu/reg/RegPeriodMsg.h"

/// Channel quality reports.
class CRegHsdpaCqi : public CPeriodRegMsgFromUe
{
public:
    explicit CRegHsdpaCqi(const REG_STAT_SETUP& stSetup);
    void Process(const RegStruct& stReg, unsigned int ulTimeStamp) REQUIRES(m_Mutex) override;
};

// Snapshots of the configuration, a new one with every indication.

/// The HS-DSCH: the value that the UE matched to its key.
class CRegDschCfg : public CPeriodRegMsgFromUe
{
public:
    explicit CRegDschCfg(const REG_STAT_SETUP& stSetup);
    void Process(const RegStruct& stReg, unsigned int ulTimeStamp) REQUIRES(m_Mutex) override;

private:
    [[nodiscard]] bool ReadMatched(const RegStruct& stReg, unsigned int ulKey, unsigned int& ulMatched) const
        REQUIRES(m_Mutex);
};

/// The enabled HS-SCCHs and their codes.
class CRegScchCfg : public CPeriodRegMsgFromUe
{
public:
    explicit CRegScchCfg(const REG_STAT_SETUP& stSetup);
    void Process(const RegStruct& stReg, unsigned int ulTimeStamp) REQUIRES(m_Mutex) override;
};

/// Fields of the HS-DPCCH.
class CRegDpcchCfg : public CPeriodRegMsgFromUe
{
public:
    explicit CRegDpcchCfg(const REG_STAT_SETUP& stSetup);
    void Process(const RegStruct& stReg, unsigned int ulTimeStamp) REQUIRES(m_Mutex) override;
};
