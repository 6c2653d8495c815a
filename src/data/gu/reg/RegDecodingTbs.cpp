#include "data/gu/reg/RegDecodingTbs.h"

#include <algorithm>
#include <unordered_map>

namespace
{

constexpr std::array<const char*, CARRIER_COUNT> g_strCarrierMode = {"C0", "C1"};

/// Share of the blocks that weren't good at new data, in percent; rounded where it is stored.
float FirstBler(uint32_t ulFirstOk, uint32_t ulBlocks)
{
    if (ulBlocks == 0)
        return 0.0F;
    return static_cast<float>((1.0 - static_cast<double>(ulFirstOk) / static_cast<double>(ulBlocks)) * 100.0);
}

Tbs_STRU BuildRecord(const TBSOfSixPhaseSTRU& st)
{
    const auto percent = CPeriodRegMsgFromUe::CalcuPercent;
    Tbs_STRU stRec;
    stRec.ulTbs = st.ulTbs;
    stRec.ulQpsk0 = st.aulModCnt[0][0];
    stRec.ulQpsk1 = st.aulModCnt[1][0];
    stRec.ul16Qam0 = st.aulModCnt[0][2];
    stRec.ul16Qam1 = st.aulModCnt[1][2];
    stRec.ul64Qam0 = st.aulModCnt[0][3];
    stRec.ul64Qam1 = st.aulModCnt[1][3];
    stRec.ulBlockErr0 = st.aulBlockErr[0];
    stRec.ulBlockErr1 = st.aulBlockErr[1];
    stRec.ulCrcOk0 = stRec.ulCrcOk0Copy = st.aulCrcOk[0];
    stRec.ulCrcOk1 = stRec.ulCrcOk1Copy = st.aulCrcOk[1];
    stRec.ulAckRetrans0 = st.aulAckRetrans[0];
    stRec.ulAckRetrans1 = st.aulAckRetrans[1];
    stRec.ulTbsChange0 = st.aulTbsChange[0];
    stRec.ulTbsChange1 = st.aulTbsChange[1];
    stRec.fBler0 = percent(st.aulBlockErr[0], st.aulCrcOk[0] + st.aulBlockErr[0]);
    stRec.fBler1 = percent(st.aulBlockErr[1], st.aulCrcOk[1] + st.aulBlockErr[1]);
    stRec.fFirstBler0 = FirstBler(st.aulFirstOk[0], st.aulCrcOk[0] + st.aulBlockErr[0]);
    stRec.fFirstBler1 = FirstBler(st.aulFirstOk[1], st.aulCrcOk[1] + st.aulBlockErr[1]);
    stRec.ulNewAfterErr0 = st.aulNewAfterErr[0];
    stRec.ulNewAfterErr1 = st.aulNewAfterErr[1];
    stRec.fNewAfterErrRate0 = percent(st.aulNewAfterErr[0], st.aulCrcOk[0] + st.aulNewAfterErr[0]);
    stRec.fNewAfterErrRate1 = percent(st.aulNewAfterErr[1], st.aulCrcOk[1] + st.aulNewAfterErr[1]);
    stRec.aulPhase = st.aulPhase;
    return stRec;
}

/// One block, HSDPA_Decoding_Tbs_STRU: u32 count and the records of the touched entries, which then count as
/// reported.
std::vector<unsigned char> BuildResult(std::vector<TBSOfSixPhaseSTRU>& vector)
{
    const auto lCount = std::ranges::count(vector, true, &TBSOfSixPhaseSTRU::bDirty);
    std::vector<unsigned char> block(4 + static_cast<size_t>(lCount) * Tbs_STRU::SIZE);
    CByteWriter writer(block);
    writer.Field(static_cast<uint32_t>(lCount));
    for (TBSOfSixPhaseSTRU& stEntry : vector) {
        if (!stEntry.bDirty)
            continue;
        stEntry.bDirty = false;
        const Tbs_STRU stRec = BuildRecord(stEntry);
        Tbs_STRU::Fields(writer, stRec);
    }
    return block;
}

/// Adds carrier 1's counters to an entry of the total. Carrier 1's stream 0 modulations go to both streams, and its
/// blocks good at new data aren't added though the sums that they are divided by are; client tools rely on it.
void AddToTotal(TBSOfSixPhaseSTRU& stTotal, const TBSOfSixPhaseSTRU& stSecond)
{
    const auto add = [](auto& sums, const auto& counters) {
        std::ranges::transform(sums, counters, sums.begin(), std::plus());
    };
    for (const size_t szModulation : {0U, 2U, 3U})
        for (auto& modCnt : stTotal.aulModCnt)
            modCnt[szModulation] += stSecond.aulModCnt[0][szModulation];
    add(stTotal.aulBlockErr, stSecond.aulBlockErr);
    add(stTotal.aulCrcOk, stSecond.aulCrcOk);
    add(stTotal.aulAckRetrans, stSecond.aulAckRetrans);
    add(stTotal.aulTbsChange, stSecond.aulTbsChange);
    add(stTotal.aulNewAfterErr, stSecond.aulNewAfterErr);
    add(stTotal.aulPhase, stSecond.aulPhase);
}

std::vector<unsigned char> BuildTotalResult(const std::vector<TBSOfSixPhaseSTRU>& vecFirst,
                                            const std::vector<TBSOfSixPhaseSTRU>& vecSecond)
{
    std::vector<TBSOfSixPhaseSTRU> vecTotal = vecFirst;
    // By size, so that carriers of thousands of sizes don't hold up the thread of all UEs.
    std::unordered_map<uint32_t, size_t> mapFirst;
    for (size_t i = 0; i < vecFirst.size(); ++i)
        mapFirst.try_emplace(vecFirst[i].ulTbs, i);
    for (const TBSOfSixPhaseSTRU& stSecond : vecSecond) {
        const auto it = mapFirst.find(stSecond.ulTbs);
        if (it == mapFirst.end()) {
            if (stSecond.bDirty)
                vecTotal.push_back(stSecond);
        } else if (TBSOfSixPhaseSTRU& stTotal = vecTotal[it->second]; stTotal.bDirty || stSecond.bDirty) {
            stTotal.bDirty = true;
            AddToTotal(stTotal, stSecond);
        }
    }
    return BuildResult(vecTotal);
}

/// Good blocks of stream 0 by number of the transmission; HS-SCCH-less frames are counted by their type elsewhere.
void TBSValueCalculateTrans(const TBSCalInfoSTRU& stFrame, TBSOfSixPhaseSTRU& stElement, size_t szStream)
{
    constexpr size_t LAST = TBSOfSixPhaseSTRU::PHASE_NUM - 1;
    if (szStream == 0 && !IsLessFrm(stFrame))
        ++stElement.aulPhase[std::min<size_t>(stFrame.ucTransCnt, LAST)];
}

void CountModulation(const TBSCalInfoSTRU& stFrame, TBSOfSixPhaseSTRU& stElement, size_t szStream)
{
    const uint8_t ucModulation = stFrame.aucModulation[szStream];
    if (IsLessFrm(stFrame))
        ++stElement.aulModCnt[szStream][0];
    else if (ucModulation != 1 && CrcFlag(stFrame))
        ++stElement.aulModCnt[szStream][ucModulation];
}

} // namespace

CRegDecodingTbs::CRegDecodingTbs(const REG_STAT_SETUP& stSetup)
    : CRegDecodingBase(stSetup, stSetup.bV9 ? g_aulDecodingStatistics_V9 : g_aulDecodingStatistics, DECODING_HALF)
{
}

void CRegDecodingTbs::CleanStat()
{
    for (TbsVector& vector : m_avecTbs)
        vector.clear();
    m_abNewData = {};
    CRegDecodingBase::CleanStat();
}

void CRegDecodingTbs::Process(const RegStruct& stReg, unsigned int ulTimeStamp)
{
    Locate(stReg);
    for (unsigned int ulCarrier = 0; ulCarrier < CARRIER_COUNT; ++ulCarrier) {
        const auto half = FetchHalf(stReg, ulCarrier);
        if (half.empty())
            return;
        if (ulCarrier == 1)
            m_ulTimeStamp = ulTimeStamp;
        if (!IsActive(half))
            continue;
        m_abNewData[ulCarrier] = true;
        m_ulCarrier = ulCarrier;
        SolutionOfTbsRegData(half);
    }
}

void CRegDecodingTbs::SolutionOfTbsRegData(std::span<const unsigned int> half)
{
    UpdateCommData(half);
    for (size_t i = 0; i < REG_BLOCK_NUM; ++i) {
        const TBSCalInfoSTRU stFrame = FrameOf(half, i);
        if (stFrame.ausTbs[0] == 0)
            continue;
        m_vecFrmBuf.AddFrmToBuf(stFrame);
        if (IsUsable(stFrame))
            CalculateBufferLess(stFrame);
    }
}

void CRegDecodingTbs::CalculateBufferLess(const TBSCalInfoSTRU& stFrame)
{
    TbsVector& vecTbs = m_avecTbs[m_ulCarrier];
    if (!IsLessFrm(stFrame))
        AddTbsInfo(stFrame, stFrame.ausTbs[0], vecTbs, 0);
    else if (!CalculateLessFrm(stFrame))
        return;
    if (stFrame.ucFrmType == FRM_TYPE_DUAL)
        AddTbsInfo(stFrame, stFrame.ausTbs[1], vecTbs, 1);
}

/// An HS-SCCH-less frame, and with hindsight the failed one before it. False when nothing more is to be done.
bool CRegDecodingTbs::CalculateLessFrm(const TBSCalInfoSTRU& stFrame)
{
    if (stFrame.ucFrmType != FRM_TYPE_LESS_1)
        if (const auto stEarlier = FailedLessFrm(stFrame)) {
            const bool bOwnSize = stFrame.ucFrmType == FRM_TYPE_LESS_2;
            AddTbsInfo(*stEarlier, bOwnSize ? stFrame.ausTbs[0] : stEarlier->ausTbs[0], m_vecLessTbs, 0);
        }
    if (stFrame.aucCrc[0] != 1)
        return false;
    if (m_ulCarrier == 0)
        AddTbsInfo(stFrame, stFrame.ausTbs[0], m_vecLessTbs, 0);
    return true;
}

void CRegDecodingTbs::AddTbsInfo(const TBSCalInfoSTRU& stFrame, unsigned int ulTbs, TbsVector& vector, size_t szStream)
{
    bool bFound = false;
    for (TBSOfSixPhaseSTRU& stElement : vector)
        if (stElement.ulTbs == ulTbs) {
            TBSValueCalculate(stFrame, stElement, szStream);
            bFound = true;
        }
    if (bFound)
        return;
    vector.emplace_back().ulTbs = ulTbs;
    TBSValueCalculate(stFrame, vector.back(), szStream);
}

void CRegDecodingTbs::TBSValueCalculate(const TBSCalInfoSTRU& stFrame, TBSOfSixPhaseSTRU& stElement, size_t szStream)
{
    const bool bGood = stFrame.aucCrc[szStream] == 1;
    stElement.bDirty = true;
    ++stElement.ulCnt;
    stElement.szCarrier = g_strCarrierMode[m_ulCarrier];
    AddFrmToTti(stElement, stFrame, szStream);
    CountModulation(stFrame, stElement, szStream);
    stElement.ulMode = m_stUpdate.ucMode;
    if (IsLessFrm(stFrame))
        ++stElement.aulPhase[stFrame.ucFrmType - 1U];
    if (bGood && stFrame.aucNewData[szStream] == 1)
        ++stElement.aulFirstOk[szStream];
    if (bGood) {
        ++stElement.aulCrcOk[szStream];
        TBSValueCalculateTrans(stFrame, stElement, szStream);
    }
    TBSValueCalculateSBMinus(stFrame, stElement, szStream);
}

void CRegDecodingTbs::TBSValueCalculateSBMinus(const TBSCalInfoSTRU& stFrame, TBSOfSixPhaseSTRU& stElement,
                                               size_t szStream)
{
    if (IsLessFrm(stFrame)) {
        if (m_ulCarrier == 0 && stFrame.aucCrc[0] == 0)
            ++stElement.aulBlockErr[0];
    } else if (stFrame.aucCrc[szStream] != 1 && stFrame.ucFrmType != FRM_TYPE_NO_DATA && CrcFlag(stFrame)) {
        ++stElement.aulBlockErr[szStream];
    }
}

void CRegDecodingTbs::AddFrmToTti(TBSOfSixPhaseSTRU& stElement, const TBSCalInfoSTRU& stFrame, size_t szStream)
{
    HARQ_PROC_STRU& stHarq = m_astHarq[stFrame.ucHarqId];
    if (stHarq.bSeen) {
        const bool bNew = stFrame.aucNewData[szStream] == 1;
        const bool bGood = stFrame.aucCrc[szStream] == 1;
        const bool bLastGood = stHarq.aucCrc[szStream] == 1;
        if (!bNew && !bLastGood && bGood && stHarq.ausTbs[szStream] != stFrame.ausTbs[szStream])
            ++stElement.aulTbsChange[szStream];
        if (!bLastGood && stHarq.aucNewData[szStream] != 1 && bNew)
            ++stElement.aulNewAfterErr[szStream];
        if (bLastGood && !bNew)
            ++stElement.aulAckRetrans[szStream];
    }
    stHarq.bSeen = true;
    stHarq.Store(stFrame, szStream);
}

/// The total is built first, since it looks at what was touched, which the carriers' own blocks reset; the blocks go
/// out in the reverse order of their building.
void CRegDecodingTbs::BeforReport()
{
    std::vector<std::vector<unsigned char>> blocks;
    if (m_abNewData[1]) {
        m_ulCarrier = 1;
        blocks.push_back(BuildTotalResult(m_avecTbs[0], m_avecTbs[1]));
        blocks.push_back(BuildResult(m_avecTbs[1]));
    }
    if (m_abNewData[0]) {
        m_ulCarrier = 0;
        blocks.push_back(BuildResult(m_avecTbs[0]));
    }
    m_abNewData = {};

    std::vector<unsigned char> result(4);
    StoreLe(result, 0, static_cast<uint32_t>(blocks.size()));
    for (auto block = blocks.rbegin(); block != blocks.rend(); ++block)
        result.insert(result.end(), block->begin(), block->end());
    InsertData(result, m_ulTimeStamp);
}
