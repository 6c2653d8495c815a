#pragma once

#include "data/gu/reg/RegDecodingProcess.h"

/// Counters of one carrier. "Win" counts in the running window of 50 subframes, "LastWin" and Delta hold what the
/// previous window had, the others run since the start.
struct HsDpaLinkStatisticsSTRU
{
    template <size_t N> using Counters = std::array<uint32_t, N>;
    static constexpr uint32_t WINDOW = 50; // subframes, that is 100 ms of register data
    static constexpr size_t HIST_BINS = 15;

    uint32_t ulTtiCnt = 0;                         // subframes of the running window
    uint32_t ulWinBits = 0, ulLastWinBits = 0;     // scheduled
    uint32_t ulWinServed = 0, ulLastWinServed = 0; // scheduled subframes
    Counters<STREAM_COUNT> aulBits{};              // scheduled
    uint32_t ulServed = 0;
    uint32_t ulWinOkBits = 0, ulLastWinOkBits = 0; // with a good CRC
    uint32_t ulWinOkCnt = 0, ulLastWinOkCnt = 0;   // stream 0 blocks with a good CRC
    Counters<STREAM_COUNT> aulOkBits{};
    Counters<STREAM_COUNT> aulOkCnt{};
    Counters<3> aulCntA{}, aulDeltaA{}; // last values of the UE's counters and their growth in the last window
    Counters<2> aulCntB{}, aulDeltaB{};
    Counters<2> aulCntC{}, aulDeltaC{};
    uint32_t ulWinRetransBits = 0, ulLastWinRetransBits = 0, ulRetransBits = 0; // of blocks that aren't new data
    uint32_t ulSubframes = 0;
    uint16_t usHistReports = 0;                   // since the last mean
    Counters<HIST_BINS> aulHist{}, aulHistSnap{}; // of the values 1 to 15; the snapshot is of the last mean
    float fHistMean = 0;
    uint32_t ulUnmonitored = 0; // not reported
};

/// Data rates and counters of the HSDPA link.
class CRegLinkStatistics : public CRegDecodingBase
{
public:
    explicit CRegLinkStatistics(const REG_STAT_SETUP& stSetup);

    void Process(const RegStruct& stReg, unsigned int ulTimeStamp) REQUIRES(m_Mutex) override;
    void CleanStat() REQUIRES(m_Mutex) override;

private:
    void CalculateStatics(const TBSCalInfoSTRU& stFrame, unsigned int ulSize, size_t szStream)
        REQUIRES(m_Mutex) override;
    HSDPA_Link_Statistics_STRU BuildResult(std::span<const unsigned int> half) REQUIRES(m_Mutex);
    void UpdateHist(std::span<const unsigned int> half) REQUIRES(m_Mutex);

    std::array<HsDpaLinkStatisticsSTRU, CARRIER_COUNT> m_astLink GUARDED_BY(m_Mutex){};
    // Set when a carrier was scheduled since its last record. Not reset by a stop.
    std::array<unsigned int, CARRIER_COUNT> m_aulChannelFlag GUARDED_BY(m_Mutex){};
};
