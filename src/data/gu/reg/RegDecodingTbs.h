#pragma once

#include "data/gu/reg/RegDecodingProcess.h"

/// A table per transport block size, of each carrier and of both. Samples only count; the result is
/// built when a report is due, from the entries that were touched since the last one.
class CRegDecodingTbs : public CRegDecodingBase
{
public:
    explicit CRegDecodingTbs(const REG_STAT_SETUP& stSetup);

    void Process(const RegStruct& stReg, unsigned int ulTimeStamp) REQUIRES(m_Mutex) override;
    void BeforReport() REQUIRES(m_Mutex) override;
    void CleanStat() REQUIRES(m_Mutex) override;

private:
    using TbsVector = std::vector<TBSOfSixPhaseSTRU>;

    void SolutionOfTbsRegData(std::span<const unsigned int> half) REQUIRES(m_Mutex);
    void CalculateBufferLess(const TBSCalInfoSTRU& stFrame) REQUIRES(m_Mutex);
    bool CalculateLessFrm(const TBSCalInfoSTRU& stFrame) REQUIRES(m_Mutex);
    void AddTbsInfo(const TBSCalInfoSTRU& stFrame, unsigned int ulTbs, TbsVector& vector, size_t szStream)
        REQUIRES(m_Mutex);
    void TBSValueCalculate(const TBSCalInfoSTRU& stFrame, TBSOfSixPhaseSTRU& stElement, size_t szStream)
        REQUIRES(m_Mutex);
    void TBSValueCalculateSBMinus(const TBSCalInfoSTRU& stFrame, TBSOfSixPhaseSTRU& stElement, size_t szStream)
        REQUIRES(m_Mutex);
    void AddFrmToTti(TBSOfSixPhaseSTRU& stElement, const TBSCalInfoSTRU& stFrame, size_t szStream) REQUIRES(m_Mutex);
    using CRegDecodingBase::AddFrmToTti;

    std::array<TbsVector, CARRIER_COUNT> m_avecTbs GUARDED_BY(m_Mutex); // in the order of first appearance
    std::array<bool, CARRIER_COUNT> m_abNewData GUARDED_BY(m_Mutex){};
};
