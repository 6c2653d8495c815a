#pragma once

#include "data/gu/reg/RegDecodingFrame.h"
#include "data/gu/reg/RegPeriodMsg.h"
#include "data/gu/reg/RegRecords.h"

#include <array>
#include <span>
#include <vector>

/// What the statistics on the HSDPA decoder share: the halves of the register table, the frames of an indication and
/// the hindsight of HS-SCCH-less operation, whose failed first transmissions are only recognised by a later one.
class CRegDecodingBase : public CPeriodRegMsgFromUe
{
public:
    /// szHalf: registers of one carrier; the last one tells whether the carrier is active.
    CRegDecodingBase(const REG_STAT_SETUP& stSetup, std::span<const unsigned int> table, size_t szHalf);

    void CleanStat() REQUIRES(m_Mutex) override;

protected:
    static constexpr unsigned int SUBFRAMES = 5; // of an indication

    /// The registers of a carrier, valid until the next indication; empty when one is missing.
    std::span<const unsigned int> FetchHalf(const RegStruct& stReg, unsigned int ulCarrier) REQUIRES(m_Mutex);
    static bool IsActive(std::span<const unsigned int> half) { return half.back() == 1; }

    void UpdateCommData(std::span<const unsigned int> half) REQUIRES(m_Mutex);
    static TBSCalInfoSTRU FrameOf(std::span<const unsigned int> half, size_t szSubframe);

    /// Takes the half of a carrier: counts its subframes, and those in which the UE didn't monitor, in the carrier's
    /// counters, then its frames.
    template <class Counters> void CountHalf(std::span<const unsigned int> half, Counters& stCounters) REQUIRES(m_Mutex)
    {
        UpdateCommData(half);
        stCounters.ulSubframes += SUBFRAMES;
        stCounters.ulUnmonitored += m_stUpdate.ulMonitored == 0 ? SUBFRAMES : 0;
        CountFrames(half);
    }
    /// Walks the five frames: counts what belongs to this UE, and with hindsight an earlier frame too.
    void CountFrames(std::span<const unsigned int> half) REQUIRES(m_Mutex);
    /// Counts the block of a frame's stream; ulSize is the block size that stands for the stream at present.
    virtual void CalculateStatics(const TBSCalInfoSTRU& stFrame, unsigned int ulSize, size_t szStream)
        REQUIRES(m_Mutex);
    /// Brings the HARQ process of the frame up to date.
    virtual void AddFrmToTti(const TBSCalInfoSTRU& stFrame, size_t szStream) REQUIRES(m_Mutex);
    /// The failed HS-SCCH-less frame that a later transmission points back to, if there is one.
    std::optional<TBSCalInfoSTRU> FailedLessFrm(const TBSCalInfoSTRU& stFrame) const REQUIRES(m_Mutex);

    unsigned int m_ulCarrier GUARDED_BY(m_Mutex) = 0;                // being processed
    std::vector<TBSOfSixPhaseSTRU> m_vecLessTbs GUARDED_BY(m_Mutex); // of the configured HS-SCCH-less sizes
    std::array<HARQ_PROC_STRU, HARQ_NUM> m_astHarq GUARDED_BY(m_Mutex){};
    UPDATE_BY_10MS_STRU m_stUpdate GUARDED_BY(m_Mutex);
    CFrmFifo m_vecFrmBuf GUARDED_BY(m_Mutex); // of both carriers

private:
    void CalculateBufferLess(const TBSCalInfoSTRU& stFrame) REQUIRES(m_Mutex);

    const size_t m_szHalf;
    std::array<std::vector<unsigned int>, CARRIER_COUNT> m_avecValues GUARDED_BY(m_Mutex); // of the indication
};

/// Counters of one carrier, reset only by CleanStat.
struct HsScchDecodingStatisticsSTRU
{
    uint32_t ulServed = 0; // not reported
    uint32_t ulScchOk = 0;
    uint32_t ulCrcOk = 0;
    uint32_t ulSingle = 0;
    uint32_t ulDual = 0;
    float fSingleRate = 0; // percent
    float fDualRate = 0;
    uint32_t ulSubframes = 0;
    uint32_t ulUnmonitored = 0;
    uint32_t ulAckRetrans = 0; // retransmissions after a good CRC
    uint32_t ulSingleErr = 0;
    std::array<uint32_t, STREAM_COUNT> aulDualErr{};
    uint32_t ulLess = 0;
};

/// Decoding rates per carrier.
class CRegDecodingStat : public CRegDecodingBase
{
public:
    explicit CRegDecodingStat(const REG_STAT_SETUP& stSetup);

    void Process(const RegStruct& stReg, unsigned int ulTimeStamp) REQUIRES(m_Mutex) override;
    void CleanStat() REQUIRES(m_Mutex) override;

private:
    void CalculateStatics(const TBSCalInfoSTRU& stFrame, unsigned int ulSize, size_t szStream)
        REQUIRES(m_Mutex) override;
    void AddFrmToTti(const TBSCalInfoSTRU& stFrame, size_t szStream) REQUIRES(m_Mutex) override;
    HSDPA_Decoding_Statistics_STRU BuildTotalResult() const REQUIRES(m_Mutex);

    std::array<HsScchDecodingStatisticsSTRU, CARRIER_COUNT> m_astStat GUARDED_BY(m_Mutex){};
};
