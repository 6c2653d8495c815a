#include "data/gu/reg/RegLinkProcess.h"

#include <algorithm>
#include <cmath>

namespace
{

constexpr uint32_t WINDOW_MS = 2 * HsDpaLinkStatisticsSTRU::WINDOW; // a subframe lasts 2 ms
constexpr uint16_t HIST_REPORTS = 20;                               // reports of a mean

float Div(uint32_t ulA, uint32_t ulB)
{
    return CPeriodRegMsgFromUe::CalcuDivision(ulA, ulB);
}
float Percent(uint32_t ulA, uint32_t ulB)
{
    return CPeriodRegMsgFromUe::CalcuPercent(ulA, ulB);
}

/// Fields of the UE's seven counters, or of their growth: A is three counters, B and C are two each.
struct LINK_COUNTERS_STRU
{
    std::array<uint32_t, 3> aulA{};
    std::array<uint32_t, 2> aulB{};
    std::array<uint32_t, 2> aulC{};

    void Add(const LINK_COUNTERS_STRU& st)
    {
        std::ranges::transform(aulA, st.aulA, aulA.begin(), std::plus());
        std::ranges::transform(aulB, st.aulB, aulB.begin(), std::plus());
        std::ranges::transform(aulC, st.aulC, aulC.begin(), std::plus());
    }
    float RatioA() const { return Percent(aulA[1] - aulA[2], aulA[0]); }
    float RatioB() const { return Percent(aulB[1], aulB[0]); }
    float RatioC() const { return Percent(aulC[1], aulC[0]); }
};

LINK_COUNTERS_STRU CountersOf(std::span<const unsigned int> half)
{
    const auto r = half.subspan(LINK_COUNTERS, LINK_COUNTER_NUM);
    return {{r[0], r[1], r[2]}, {r[3], r[4]}, {r[5], r[6]}};
}

LINK_COUNTERS_STRU GrowthOf(const HsDpaLinkStatisticsSTRU& st)
{
    return {st.aulDeltaA, st.aulDeltaB, st.aulDeltaC};
}

void SetRatios(HSDPA_Link_Statistics_STRU& stRec, const LINK_COUNTERS_STRU& stGrowth, const LINK_COUNTERS_STRU& stTotal)
{
    stRec.fWinRatioA = stGrowth.RatioA();
    stRec.fRatioA = stTotal.RatioA();
    stRec.fWinRatioB = stGrowth.RatioB();
    stRec.fRatioB = stTotal.RatioB();
    stRec.fWinRatioC = stGrowth.RatioC();
    stRec.fRatioC = stTotal.RatioC();
}

void SetRates(HSDPA_Link_Statistics_STRU& stRec, const HsDpaLinkStatisticsSTRU& st)
{
    stRec.fWinRate = Div(st.ulLastWinBits, WINDOW_MS);
    stRec.fRate0 = Div(st.aulBits[0], st.ulSubframes * 2);
    stRec.fRate1 = Div(st.aulBits[1], st.ulSubframes * 2);
    stRec.fWinServedRate = Div(st.ulLastWinBits, st.ulLastWinServed * 2);
    stRec.fServedRate0 = Div(st.aulBits[0], st.ulServed * 2);
    stRec.fServedRate1 = Div(st.aulBits[1], st.ulServed * 2);
    stRec.fWinOkRate = Div(st.ulLastWinOkBits, st.ulLastWinOkCnt * 2);
    stRec.fOkRate0 = Div(st.aulOkBits[0], st.aulOkCnt[0] * 2);
    stRec.fOkRate1 = Div(st.aulOkBits[1], st.aulOkCnt[1] * 2);
    stRec.fWinRetransRate = Div(st.ulLastWinRetransBits, st.ulLastWinServed * 2);
    stRec.fRetransRate = Div(st.ulRetransBits, st.ulServed * 2);
}

template <size_t N>
void UpdateCounters(std::array<uint32_t, N>& aulCnt, std::array<uint32_t, N>& aulDelta,
                    const std::array<uint32_t, N>& aulNew)
{
    for (size_t i = 0; i < N; ++i)
        aulDelta[i] = CPeriodRegMsgFromUe::CalcuAddValue(aulCnt[i], aulNew[i]);
    aulCnt = aulNew;
}

void CloseWindow(uint32_t& ulRunning, uint32_t& ulLast)
{
    ulLast = ulRunning;
    ulRunning = 0;
}

/// The window is over: what it counted becomes the last window's. A counter of the UE that stepped back gives 0.
void UpdateData(HsDpaLinkStatisticsSTRU& st, std::span<const unsigned int> half)
{
    CloseWindow(st.ulWinBits, st.ulLastWinBits);
    CloseWindow(st.ulWinServed, st.ulLastWinServed);
    CloseWindow(st.ulWinOkBits, st.ulLastWinOkBits);
    CloseWindow(st.ulWinOkCnt, st.ulLastWinOkCnt);
    CloseWindow(st.ulWinRetransBits, st.ulLastWinRetransBits);
    const LINK_COUNTERS_STRU stNew = CountersOf(half);
    UpdateCounters(st.aulCntA, st.aulDeltaA, stNew.aulA);
    UpdateCounters(st.aulCntB, st.aulDeltaB, stNew.aulB);
    UpdateCounters(st.aulCntC, st.aulDeltaC, stNew.aulC);
}

using Histogram = std::array<uint32_t, HsDpaLinkStatisticsSTRU::HIST_BINS>;

float HistMean(const Histogram& aulHist)
{
    uint32_t ulSum = 0;
    uint32_t ulCount = 0;
    for (uint32_t i = 0; i < aulHist.size(); ++i) {
        ulSum += aulHist[i] * (i + 1);
        ulCount += aulHist[i];
    }
    return Div(ulSum, ulCount);
}

uint32_t RoundMean(float fMean)
{
    return static_cast<uint32_t>(std::trunc(static_cast<double>(fMean) + 0.5));
}

HSDPA_Link_Statistics_STRU AddRates(const HSDPA_Link_Statistics_STRU& stA, const HSDPA_Link_Statistics_STRU& stB)
{
    HSDPA_Link_Statistics_STRU stSum;
    stSum.fWinRate = stA.fWinRate + stB.fWinRate;
    stSum.fRate0 = stA.fRate0 + stB.fRate0;
    stSum.fRate1 = stA.fRate1 + stB.fRate1;
    stSum.fWinServedRate = stA.fWinServedRate + stB.fWinServedRate;
    stSum.fServedRate0 = stA.fServedRate0 + stB.fServedRate0;
    stSum.fServedRate1 = stA.fServedRate1 + stB.fServedRate1;
    stSum.fWinOkRate = stA.fWinOkRate + stB.fWinOkRate;
    stSum.fOkRate0 = stA.fOkRate0 + stB.fOkRate0;
    stSum.fOkRate1 = stA.fOkRate1 + stB.fOkRate1;
    stSum.fWinRetransRate = stA.fWinRetransRate + stB.fWinRetransRate;
    stSum.fRetransRate = stA.fRetransRate + stB.fRetransRate;
    return stSum;
}

using LinkRecords = std::array<HSDPA_Link_Statistics_STRU, CARRIER_COUNT>;
using LinkHalves = std::array<std::span<const unsigned int>, CARRIER_COUNT>;

/// The total of two active carriers.
HSDPA_Link_Statistics_STRU BuildTotalResult(const LinkRecords& astRec, const LinkHalves& halves,
                                            const std::array<HsDpaLinkStatisticsSTRU, CARRIER_COUNT>& astLink)
{
    HSDPA_Link_Statistics_STRU stTotal = AddRates(astRec[0], astRec[1]);
    LINK_COUNTERS_STRU stGrowth = GrowthOf(astLink[0]);
    LINK_COUNTERS_STRU stCounters = CountersOf(halves[0]);
    stGrowth.Add(GrowthOf(astLink[1]));
    stCounters.Add(CountersOf(halves[1]));
    SetRatios(stTotal, stGrowth, stCounters);
    Histogram aulHist = astLink[0].aulHistSnap;
    std::ranges::transform(aulHist, astLink[1].aulHistSnap, aulHist.begin(), std::plus());
    stTotal.ulHistMean = RoundMean(HistMean(aulHist));
    return stTotal;
}

} // namespace

CRegLinkStatistics::CRegLinkStatistics(const REG_STAT_SETUP& stSetup)
    : CRegDecodingBase(stSetup, stSetup.bV9 ? g_aulLinkStatistics_V9 : g_aulLinkStatistics, LINK_HALF)
{
}

void CRegLinkStatistics::CleanStat()
{
    m_astLink = {};
    CRegDecodingBase::CleanStat();
}

void CRegLinkStatistics::Process(const RegStruct& stReg, unsigned int ulTimeStamp)
{
    CRecordList<HSDPA_Link_Statistics_STRU, CARRIER_COUNT + 1> records;
    LinkRecords astRec{};
    LinkHalves halves;
    Locate(stReg);
    for (unsigned int ulCarrier = 0; ulCarrier < CARRIER_COUNT; ++ulCarrier) {
        halves[ulCarrier] = FetchHalf(stReg, ulCarrier);
        if (halves[ulCarrier].empty())
            return;
        if (!IsActive(halves[ulCarrier]))
            continue;
        m_ulCarrier = ulCarrier;
        CountHalf(halves[ulCarrier], m_astLink[ulCarrier]);
        astRec[ulCarrier] = BuildResult(halves[ulCarrier]);
        records.Add(astRec[ulCarrier]);
    }
    // The total goes with carrier 1: of both, or a copy of carrier 1's record when it stands alone.
    if (IsActive(halves[1]))
        records.Add(IsActive(halves[0]) ? BuildTotalResult(astRec, halves, m_astLink) : astRec[1]);
    InsertData(records.Bytes(), ulTimeStamp);
}

void CRegLinkStatistics::CalculateStatics(const TBSCalInfoSTRU& stFrame, unsigned int ulSize, size_t szStream)
{
    HsDpaLinkStatisticsSTRU& st = m_astLink[m_ulCarrier];
    const bool bScheduled = stFrame.ucScchPart1 == 1 && stFrame.ucScchCrc == 1;
    const bool bGood = stFrame.aucCrc[szStream] == 1;
    if (bScheduled) {
        m_aulChannelFlag[m_ulCarrier] = 1;
        st.aulBits[szStream] += ulSize;
        st.ulWinBits += ulSize;
        if (bGood) {
            st.ulWinOkBits += ulSize;
            st.aulOkBits[szStream] += ulSize;
        }
    }
    if (bGood) {
        ++st.aulOkCnt[szStream];
        st.ulWinOkCnt += szStream == 0 ? 1 : 0;
    }
    if (stFrame.aucNewData[szStream] != 1) {
        st.ulWinRetransBits += ulSize;
        st.ulRetransBits += ulSize;
    }
    if (szStream == 0 && bScheduled) {
        ++st.ulServed;
        ++st.ulWinServed;
    }
}

HSDPA_Link_Statistics_STRU CRegLinkStatistics::BuildResult(std::span<const unsigned int> half)
{
    HsDpaLinkStatisticsSTRU& st = m_astLink[m_ulCarrier];
    st.ulTtiCnt += SUBFRAMES;
    if (st.ulTtiCnt == HsDpaLinkStatisticsSTRU::WINDOW) {
        UpdateData(st, half);
        st.ulTtiCnt = 0;
    }
    HSDPA_Link_Statistics_STRU stRec;
    SetRates(stRec, st);
    SetRatios(stRec, GrowthOf(st), CountersOf(half));
    UpdateHist(half);
    stRec.ulHistMean = RoundMean(st.fHistMean);
    return stRec;
}

void CRegLinkStatistics::UpdateHist(std::span<const unsigned int> half)
{
    HsDpaLinkStatisticsSTRU& st = m_astLink[m_ulCarrier];
    if (m_aulChannelFlag[m_ulCarrier] == 1)
        for (const unsigned int ulWord : half.subspan(LINK_HIST, LINK_HIST_NUM)) {
            const unsigned int ulValue = GetBitValue(ulWord, 20, 23);
            if (ulValue != 0)
                ++st.aulHist[ulValue - 1];
        }
    m_aulChannelFlag[m_ulCarrier] = 0;
    if (++st.usHistReports < HIST_REPORTS)
        return;
    st.aulHistSnap = st.aulHist;
    st.fHistMean = HistMean(st.aulHist);
    st.aulHist = {};
    st.usHistReports = 0;
}
