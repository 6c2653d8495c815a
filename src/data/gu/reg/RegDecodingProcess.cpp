#include "data/gu/reg/RegDecodingProcess.h"

#include "data/gu/base/Percent.h"

namespace
{

void CalculateLessCnt(HsScchDecodingStatisticsSTRU& stStat, const TBSCalInfoSTRU& stFrame, size_t szStream)
{
    const bool bFailed = stFrame.aucCrc[szStream] != 1 && CrcFlag(stFrame);
    if (stFrame.ucFrmType == FRM_TYPE_SINGLE) {
        ++stStat.ulSingle;
        stStat.ulSingleErr += bFailed ? 1 : 0;
    } else if (stFrame.ucFrmType == FRM_TYPE_DUAL) {
        stStat.aulDualErr[szStream] += bFailed ? 1 : 0;
        stStat.ulDual += szStream == 0 ? 1 : 0;
    } else if (IsLessFrm(stFrame) && szStream == 0) {
        ++stStat.ulLess;
    }
}

HSDPA_Decoding_Statistics_STRU BuildResult(const HsScchDecodingStatisticsSTRU& stStat)
{
    HSDPA_Decoding_Statistics_STRU stRec;
    stRec.ulSubframes = stStat.ulSubframes;
    stRec.ulScchOk = stStat.ulScchOk;
    stRec.fScchOkRate = QuotientPercentOrZero(stStat.ulScchOk, stStat.ulSubframes);
    stRec.fAckRetransRate = QuotientPercentOrZero(stStat.ulAckRetrans, stStat.ulCrcOk + stStat.ulAckRetrans);
    stRec.fLessRate = QuotientPercentOrZero(stStat.ulLess, stStat.ulSubframes);
    stRec.ulSingle = stStat.ulSingle;
    stRec.ulDual = stStat.ulDual;
    stRec.fSingleRate = stStat.fSingleRate;
    stRec.fDualRate = stStat.fDualRate;
    stRec.fSingleRate2 = stRec.fSingleRate;
    stRec.fDualRate2 = stRec.fDualRate;
    stRec.fSingleBler = QuotientPercentOrZero(stStat.ulSingleErr, stStat.ulSingle);
    stRec.fDualBler0 = QuotientPercentOrZero(stStat.aulDualErr[0], stStat.ulDual);
    stRec.fDualBler1 = QuotientPercentOrZero(stStat.aulDualErr[1], stStat.ulDual);
    return stRec;
}

void UpdateTypeRates(HsScchDecodingStatisticsSTRU& stStat)
{
    stStat.fSingleRate = CPeriodRegMsgFromUe::CalcuPercent(stStat.ulSingle, stStat.ulSingle + stStat.ulDual);
    stStat.fDualRate = CPeriodRegMsgFromUe::CalcuPercent(stStat.ulDual, stStat.ulSingle + stStat.ulDual);
}

/// The total takes twice carrier 0's retransmissions and HS-SCCH-less frames in the place of the sums; client tools
/// rely on it.
void DoubleFirstCarrier(HsScchDecodingStatisticsSTRU& stTotal, const HsScchDecodingStatisticsSTRU& stFirst)
{
    stTotal.ulAckRetrans = 2 * stFirst.ulAckRetrans;
    stTotal.ulLess = 2 * stFirst.ulLess;
}

} // namespace

// ---- CRegDecodingBase ----

CRegDecodingBase::CRegDecodingBase(const REG_STAT_SETUP& stSetup, std::span<const unsigned int> table, size_t szHalf)
    : CPeriodRegMsgFromUe(stSetup, table), m_szHalf(szHalf)
{
    for (auto& values : m_avecValues)
        values.resize(szHalf);
}

void CRegDecodingBase::CleanStat()
{
    m_ulCarrier = 0;
    m_astHarq = {};
    m_stUpdate = {};
    m_vecLessTbs.clear();
    m_vecFrmBuf.Clear();
    CPeriodRegMsgFromUe::CleanStat();
}

std::span<const unsigned int> CRegDecodingBase::FetchHalf(const RegStruct& stReg, unsigned int ulCarrier)
{
    std::vector<unsigned int>& values = m_avecValues[ulCarrier];
    if (!GetRegValues(stReg, ulCarrier * m_szHalf, values))
        return {};
    return values;
}

void CRegDecodingBase::UpdateCommData(std::span<const unsigned int> half)
{
    m_stUpdate = DecodeCommData(half.subspan(REG_COMMON, REG_COMMON_NUM));
    if (m_ulCarrier == 0)
        UpdateLessFrmArray(m_vecLessTbs, m_stUpdate);
}

TBSCalInfoSTRU CRegDecodingBase::FrameOf(std::span<const unsigned int> half, size_t szSubframe)
{
    return DecodeFrame(half.subspan(REG_BLOCK + szSubframe * REG_BLOCK_SIZE, REG_BLOCK_READ));
}

void CRegDecodingBase::CountFrames(std::span<const unsigned int> half)
{
    std::array<uint16_t, STREAM_COUNT> ausTbs{}; // of the last usable frame of this pass
    for (size_t i = 0; i < REG_BLOCK_NUM; ++i) {
        const TBSCalInfoSTRU stFrame = FrameOf(half, i);
        if (IsUsable(stFrame))
            ausTbs = stFrame.ausTbs;
        if (!IsLessFrm(stFrame) || stFrame.aucCrc[0] == 1)
            CalculateStatics(stFrame, ausTbs[0], 0);
        if (stFrame.ucFrmType == FRM_TYPE_DUAL)
            CalculateStatics(stFrame, ausTbs[1], 1);
        if (stFrame.ausTbs[0] == 0)
            continue;
        m_vecFrmBuf.AddFrmToBuf(stFrame);
        AddFrmToTti(stFrame, 0);
        AddFrmToTti(stFrame, 1);
        CalculateBufferLess(stFrame);
    }
}

void CRegDecodingBase::CalculateStatics(const TBSCalInfoSTRU&, unsigned int, size_t) {}

void CRegDecodingBase::AddFrmToTti(const TBSCalInfoSTRU&, size_t) {}

std::optional<TBSCalInfoSTRU> CRegDecodingBase::FailedLessFrm(const TBSCalInfoSTRU& stFrame) const
{
    const auto stEarlier = m_vecFrmBuf.GetLessFrm(stFrame.ucLessOffset);
    return stEarlier && stEarlier->aucCrc[0] == 0 && IsLessFrm(*stEarlier) ? stEarlier : std::nullopt;
}

/// The HS-SCCH of a retransmission reveals that the earlier, failed frame was meant for this UE.
void CRegDecodingBase::CalculateBufferLess(const TBSCalInfoSTRU& stFrame)
{
    if (!IsUsable(stFrame) || (stFrame.ucFrmType != FRM_TYPE_LESS_2 && stFrame.ucFrmType != FRM_TYPE_LESS_3))
        return;
    if (const auto stEarlier = FailedLessFrm(stFrame))
        CalculateStatics(*stEarlier, stEarlier->ausTbs[0], 0);
}

// ---- CRegDecodingStat ----

CRegDecodingStat::CRegDecodingStat(const REG_STAT_SETUP& stSetup)
    : CRegDecodingBase(stSetup, stSetup.bV9 ? g_aulDecodingStatistics_V9 : g_aulDecodingStatistics, DECODING_HALF)
{
}

void CRegDecodingStat::Process(const RegStruct& stReg, unsigned int ulTimeStamp)
{
    CRecordList<HSDPA_Decoding_Statistics_STRU, CARRIER_COUNT + 1> records;
    Locate(stReg);
    for (unsigned int ulCarrier = 0; ulCarrier < CARRIER_COUNT; ++ulCarrier) {
        const auto half = FetchHalf(stReg, ulCarrier);
        if (half.empty())
            return;
        if (!IsActive(half))
            continue;
        m_ulCarrier = ulCarrier;
        CountHalf(half, m_astStat[ulCarrier]);
        records.Add(BuildResult(m_astStat[ulCarrier]));
        if (ulCarrier == 1)
            records.Add(BuildTotalResult());
    }
    InsertData(records.Bytes(), ulTimeStamp);
}

void CRegDecodingStat::CleanStat()
{
    m_astStat = {};
    CRegDecodingBase::CleanStat();
}

void CRegDecodingStat::CalculateStatics(const TBSCalInfoSTRU& stFrame, unsigned int, size_t szStream)
{
    HsScchDecodingStatisticsSTRU& stStat = m_astStat[m_ulCarrier];
    CalculateLessCnt(stStat, stFrame, szStream);
    stStat.ulCrcOk += stFrame.aucCrc[szStream] == 1 ? 1 : 0;
    if (szStream != 0)
        return;
    stStat.ulServed = stStat.ulSubframes - stStat.ulUnmonitored;
    stStat.ulScchOk += stFrame.ucScchCrc == 1 && stFrame.ucScchPart1 == 1 ? 1 : 0;
    UpdateTypeRates(stStat);
}

void CRegDecodingStat::AddFrmToTti(const TBSCalInfoSTRU& stFrame, size_t szStream)
{
    HARQ_PROC_STRU& stHarq = m_astHarq[stFrame.ucHarqId];
    if (stHarq.bSeen && stHarq.aucCrc[szStream] == 1 && stFrame.aucNewData[szStream] == 0)
        ++m_astStat[m_ulCarrier].ulAckRetrans;
    stHarq.bSeen = true;
    stHarq.Store(stFrame, szStream);
}

HSDPA_Decoding_Statistics_STRU CRegDecodingStat::BuildTotalResult() const
{
    const HsScchDecodingStatisticsSTRU& stFirst = m_astStat[0];
    const HsScchDecodingStatisticsSTRU& stSecond = m_astStat[1];
    HsScchDecodingStatisticsSTRU stTotal = stFirst;
    stTotal.ulSubframes += stSecond.ulSubframes;
    stTotal.ulScchOk += stSecond.ulScchOk;
    stTotal.ulSingle += stSecond.ulSingle;
    stTotal.ulDual += stSecond.ulDual;
    stTotal.ulCrcOk += stSecond.ulCrcOk;
    stTotal.ulSingleErr += stSecond.ulSingleErr;
    for (size_t i = 0; i < STREAM_COUNT; ++i)
        stTotal.aulDualErr[i] += stSecond.aulDualErr[i];
    DoubleFirstCarrier(stTotal, stFirst);
    UpdateTypeRates(stTotal);
    return BuildResult(stTotal);
}
