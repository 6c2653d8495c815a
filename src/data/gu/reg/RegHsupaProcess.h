#pragma once

#include "data/gu/reg/RegPeriodMsg.h"
#include "data/gu/reg/RegRecords.h"

/// ulBits x 1000 / 1024 / (ulSamples x 10), in extended precision up to the end. ulSamples isn't 0.
float HsupaRunRate(unsigned int ulBits, unsigned int ulSamples);

/// What the HSUPA statistics share: their registers in the DSP's data area, and the walk over carriers and TTI
/// records. They accumulate from start to stop; every indication gives a result over the whole run.
class CRegHsupaBase : public CPeriodRegMsgFromUe
{
public:
    CRegHsupaBase(const REG_STAT_SETUP& stSetup, std::span<const unsigned int> table);

    void Process(const RegStruct& stReg, unsigned int ulTimeStamp) REQUIRES(m_Mutex) override;
    void CleanStat() REQUIRES(m_Mutex) override;

protected:
    /// The words of the data area, then the time slot word, then the enable registers of both carriers.
    Registers GetRegisters() const override;

    static constexpr size_t MAX_GROUPS = 7;
    using Counters = std::array<unsigned int, CARRIER_COUNT>;
    /// The words of one TTI record, a group each. A word holds carrier 0 in its low and carrier 1 in its high half.
    using Words = std::span<const unsigned int>;

    virtual void InitData() REQUIRES(m_Mutex) = 0;
    /// Counts one TTI record of a carrier.
    virtual void CountRecord(Words words, size_t szCarrier) REQUIRES(m_Mutex) = 0;
    /// Writes the carrier's result; ulTtis is the count of TTI records of this indication.
    virtual void WriteResult(CByteWriter& writer, size_t szCarrier, unsigned int ulTtis) const REQUIRES(m_Mutex) = 0;

    static constexpr unsigned char LowBit(size_t szCarrier) { return static_cast<unsigned char>(16 * szCarrier); }
    /// The carrier's half of a word.
    static unsigned int Half(unsigned int ulWord, size_t szCarrier);

private:
    [[nodiscard]] bool CountCarrier(const RegStruct& stReg, size_t szCarrier, unsigned int ulTtis) REQUIRES(m_Mutex);

    const size_t m_szGroups;
    const size_t m_szTimeSlot; // position of the time slot word in GetRegisters' list; the enable registers follow
};

/// Uplink rates.
class CRegHsupaLinkThroughput : public CRegHsupaBase
{
public:
    explicit CRegHsupaLinkThroughput(const REG_STAT_SETUP& stSetup);

private:
    void InitData() REQUIRES(m_Mutex) override;
    void CountRecord(Words words, size_t szCarrier) REQUIRES(m_Mutex) override;
    void WriteResult(CByteWriter& writer, size_t szCarrier, unsigned int ulTtis) const REQUIRES(m_Mutex) override;

    Counters m_aulNonDtxBits GUARDED_BY(m_Mutex){};
    Counters m_aulServedBits GUARDED_BY(m_Mutex){};
    Counters m_aulAvailableBits GUARDED_BY(m_Mutex){};
};

/// Uplink errors, limits and happiness.
class CRegHsupaLinkQuality : public CRegHsupaBase
{
public:
    explicit CRegHsupaLinkQuality(const REG_STAT_SETUP& stSetup);

private:
    /// Counters of one carrier.
    struct QUALITY_STRU
    {
        unsigned int ulDtxCnt = 0;
        unsigned int ulSblerErr = 0, ulSblerAll = 0;
        unsigned int ulFirstAll = 0, ulFirstErr = 0;
        unsigned int ulLimitAll = 0, ulLimit1 = 0, ulLimit0 = 0, ulLimit2 = 0;
        unsigned int ulHappy = 0, ulHappyAll = 0;
    };

    static void CalculateDtxProbability(QUALITY_STRU& st, unsigned int ulB);
    static void CalculateSBLER(QUALITY_STRU& st, unsigned int ulC, unsigned int ulD);
    static void Calculate1stSBLER(QUALITY_STRU& st, unsigned int ulC, unsigned int ulD);
    static void CalculateLimitedRate(QUALITY_STRU& st, unsigned int ulE);
    static void CalculateHappyRate(QUALITY_STRU& st, unsigned int ulA, unsigned int ulB);

    void InitData() REQUIRES(m_Mutex) override;
    void CountRecord(Words words, size_t szCarrier) REQUIRES(m_Mutex) override;
    void WriteResult(CByteWriter& writer, size_t szCarrier, unsigned int ulTtis) const REQUIRES(m_Mutex) override;

    std::array<QUALITY_STRU, CARRIER_COUNT> m_astQuality GUARDED_BY(m_Mutex){};
};

/// Absolute, relative and serving grants.
class CRegHsupaGrant : public CRegHsupaBase
{
public:
    explicit CRegHsupaGrant(const REG_STAT_SETUP& stSetup);

private:
    /// Counters of one carrier.
    struct GRANT_STRU
    {
        std::array<unsigned int, 2> aulAgSum{}, aulAgCnt{}; // by scope, less 1
        unsigned int ulRgAll = 0, ulRgCode2 = 0, ulRgCode1 = 0, ulRgCode3 = 0;
        unsigned int ulSgSum = 0;
    };

    static void CalculateAg(GRANT_STRU& st, Words words, size_t szCarrier);
    static void CalculateRgRate(GRANT_STRU& st, Words words, size_t szCarrier);
    static bool IsRgSuppressed(Words words);

    void InitData() REQUIRES(m_Mutex) override;
    void CountRecord(Words words, size_t szCarrier) REQUIRES(m_Mutex) override;
    void WriteResult(CByteWriter& writer, size_t szCarrier, unsigned int ulTtis) const REQUIRES(m_Mutex) override;

    std::array<GRANT_STRU, CARRIER_COUNT> m_astGrant GUARDED_BY(m_Mutex){};
};
