#pragma once

#include "common/Bytes.h"

#include <array>
#include <cstddef>
#include <cstdint>

// The result records of the register statistics as clients get them. Each record knows its size and the order of its
// fields, for CByteReader and CByteWriter alike. Rates are percentages, unless something else stands beside them.
// All but three results are a u32 count and that many records (CRegRecordList): the two configurations of one record
// each stand alone, and the power result has its slot average before the count.

/// Indication 62758: per active carrier, then the total of both.
struct HSDPA_Decoding_Statistics_STRU
{
    static constexpr size_t SIZE = 56;

    uint32_t ulSubframes = 0;
    uint32_t ulScchOk = 0;
    float fScchOkRate = 0;
    float fAckRetransRate = 0;
    float fLessRate = 0;
    uint32_t ulSingle = 0;
    uint32_t ulDual = 0;
    float fSingleRate = 0;
    float fDualRate = 0;
    float fSingleRate2 = 0; // copy of fSingleRate
    float fDualRate2 = 0;   // copy of fDualRate
    float fSingleBler = 0;
    float fDualBler0 = 0;
    float fDualBler1 = 0;

    template <class Io, class Rec> static void Fields(Io& io, Rec& st)
    {
        io.Field(st.ulSubframes);     //  0
        io.Field(st.ulScchOk);        //  4
        io.Field(st.fScchOkRate);     //  8
        io.Field(st.fAckRetransRate); // 12
        io.Field(st.fLessRate);       // 16
        io.Field(st.ulSingle);        // 20
        io.Field(st.ulDual);          // 24
        io.Field(st.fSingleRate);     // 28
        io.Field(st.fDualRate);       // 32
        io.Field(st.fSingleRate2);    // 36
        io.Field(st.fDualRate2);      // 40
        io.Field(st.fSingleBler);     // 44
        io.Field(st.fDualBler0);      // 48
        io.Field(st.fDualBler1);      // 52
    }
};

/// Indication 62761: u32 count of blocks (C0, C1, total), each a u32 count and that many of these.
struct Tbs_STRU
{
    static constexpr size_t SIZE = 124;
    static constexpr size_t PHASE_COUNT = 6;

    uint32_t ulTbs = 0; // bits
    uint32_t ulQpsk0 = 0;
    uint32_t ulQpsk1 = 0;
    uint32_t ul16Qam0 = 0;
    uint32_t ul16Qam1 = 0;
    uint32_t ul64Qam0 = 0;
    uint32_t ul64Qam1 = 0;
    uint32_t ulBlockErr0 = 0;
    uint32_t ulBlockErr1 = 0;
    uint32_t ulCrcOk0 = 0;
    uint32_t ulCrcOk1 = 0;
    uint32_t ulAckRetrans0 = 0;
    uint32_t ulAckRetrans1 = 0;
    uint32_t ulTbsChange0 = 0;
    uint32_t ulTbsChange1 = 0;
    float fBler0 = 0;
    float fBler1 = 0;
    float fFirstBler0 = 0;
    float fFirstBler1 = 0;
    uint32_t ulNewAfterErr0 = 0;
    uint32_t ulNewAfterErr1 = 0;
    uint32_t ulCrcOk0Copy = 0;
    uint32_t ulCrcOk1Copy = 0;
    float fNewAfterErrRate0 = 0;
    float fNewAfterErrRate1 = 0;
    std::array<uint32_t, PHASE_COUNT> aulPhase{}; // good blocks by number of the transmission

    template <class Io, class Rec> static void Fields(Io& io, Rec& st)
    {
        io.Field(st.ulTbs);             //   0
        io.Field(st.ulQpsk0);           //   4
        io.Field(st.ulQpsk1);           //   8
        io.Field(st.ul16Qam0);          //  12
        io.Field(st.ul16Qam1);          //  16
        io.Field(st.ul64Qam0);          //  20
        io.Field(st.ul64Qam1);          //  24
        io.Field(st.ulBlockErr0);       //  28
        io.Field(st.ulBlockErr1);       //  32
        io.Field(st.ulCrcOk0);          //  36
        io.Field(st.ulCrcOk1);          //  40
        io.Field(st.ulAckRetrans0);     //  44
        io.Field(st.ulAckRetrans1);     //  48
        io.Field(st.ulTbsChange0);      //  52
        io.Field(st.ulTbsChange1);      //  56
        io.Field(st.fBler0);            //  60
        io.Field(st.fBler1);            //  64
        io.Field(st.fFirstBler0);       //  68
        io.Field(st.fFirstBler1);       //  72
        io.Field(st.ulNewAfterErr0);    //  76
        io.Field(st.ulNewAfterErr1);    //  80
        io.Field(st.ulCrcOk0Copy);      //  84
        io.Field(st.ulCrcOk1Copy);      //  88
        io.Field(st.fNewAfterErrRate0); //  92
        io.Field(st.fNewAfterErrRate1); //  96
        for (auto& ulPhase : st.aulPhase)
            io.Field(ulPhase); // 100
    }
};

/// Indication 62755: per active carrier, then the total of both. Rates in kbit/s (bits per millisecond), ratios in
/// percent. "Win" is the last window of 50 subframes, the others run since the start.
struct HSDPA_Link_Statistics_STRU
{
    static constexpr size_t SIZE = 72;

    float fWinRate = 0;
    float fRate0 = 0;
    float fRate1 = 0;
    float fWinServedRate = 0;
    float fServedRate0 = 0;
    float fServedRate1 = 0;
    float fWinOkRate = 0;
    float fOkRate0 = 0;
    float fOkRate1 = 0;
    float fWinRatioA = 0;
    float fRatioA = 0;
    float fWinRatioB = 0;
    float fRatioB = 0;
    float fWinRatioC = 0;
    float fRatioC = 0;
    float fWinRetransRate = 0;
    float fRetransRate = 0;
    uint32_t ulHistMean = 0;

    template <class Io, class Rec> static void Fields(Io& io, Rec& st)
    {
        io.Field(st.fWinRate);        //  0
        io.Field(st.fRate0);          //  4
        io.Field(st.fRate1);          //  8
        io.Field(st.fWinServedRate);  // 12
        io.Field(st.fServedRate0);    // 16
        io.Field(st.fServedRate1);    // 20
        io.Field(st.fWinOkRate);      // 24
        io.Field(st.fOkRate0);        // 28
        io.Field(st.fOkRate1);        // 32
        io.Field(st.fWinRatioA);      // 36
        io.Field(st.fRatioA);         // 40
        io.Field(st.fWinRatioB);      // 44
        io.Field(st.fRatioB);         // 48
        io.Field(st.fWinRatioC);      // 52
        io.Field(st.fRatioC);         // 56
        io.Field(st.fWinRetransRate); // 60
        io.Field(st.fRetransRate);    // 64
        io.Field(st.ulHistMean);      // 68
    }
};

/// Indication 62752: per enabled carrier.
struct HSDPA_CQI_STRU
{
    static constexpr size_t SIZE = 16;

    uint32_t ulCqi = 0;     // mean
    uint32_t ulCqiCopy = 0; // the same
    uint32_t ulCqiFirst = 0;
    uint32_t ulCqiSecond = 0;

    template <class Io, class Rec> static void Fields(Io& io, Rec& st)
    {
        io.Field(st.ulCqi);       //  0
        io.Field(st.ulCqiCopy);   //  4
        io.Field(st.ulCqiFirst);  //  8
        io.Field(st.ulCqiSecond); // 12
    }
};

/// Indication 62737, one record without a count.
struct HS_DSCH_Configuration_STRU
{
    static constexpr size_t SIZE = 8;

    uint32_t ulMatched = 0; // shifted left by 8; 0 without a match
    uint32_t ulField = 0;   // 4 bits

    template <class Io, class Rec> static void Fields(Io& io, Rec& st)
    {
        io.Field(st.ulMatched); // 0
        io.Field(st.ulField);   // 4
    }
};

/// Indication 62740: per enabled channel.
struct HS_SCCH_Configuration_STRU
{
    static constexpr size_t SIZE = 8;

    uint32_t ulChannel = 0; // 1 to 4
    uint32_t ulCode = 0;    // 7 bits

    template <class Io, class Rec> static void Fields(Io& io, Rec& st)
    {
        io.Field(st.ulChannel); // 0
        io.Field(st.ulCode);    // 4
    }
};

/// Indication 62743, one record without a count: fields of three registers A, B and C.
struct HS_DPCCH_Configuration_STRU
{
    static constexpr size_t SIZE = 28;

    uint32_t ulA16 = 0; // A bits 16 to 19
    uint32_t ulA8 = 0;  // A bits 8 to 10
    uint32_t ulA0 = 0;  // A bits 0 to 2
    uint32_t ulB0 = 0;  // B bits 0 to 12
    uint32_t ulC0 = 0;  // C bits 0 to 4
    uint32_t ulC5 = 0;  // C bits 5 to 9
    uint32_t ulC10 = 0; // C bits 10 to 14

    template <class Io, class Rec> static void Fields(Io& io, Rec& st)
    {
        io.Field(st.ulA16); //  0
        io.Field(st.ulA8);  //  4
        io.Field(st.ulA0);  //  8
        io.Field(st.ulB0);  // 12
        io.Field(st.ulC0);  // 16
        io.Field(st.ulC5);  // 20
        io.Field(st.ulC10); // 24
    }
};

/// Indication 62728: per carrier, always two.
struct Power_Control_SIR_STRU
{
    static constexpr size_t SIZE = 8;

    float fSir = 0;       // dB
    float fSirTarget = 0; // dB

    template <class Io, class Rec> static void Fields(Io& io, Rec& st)
    {
        io.Field(st.fSir);       // 0
        io.Field(st.fSirTarget); // 4
    }
};

/// Indication 62731: float slot average, u32 count, then per carrier, always two.
struct Power_Control_Power_STRU
{
    static constexpr size_t SIZE = 8;

    float fPower0 = 0;
    float fPower1 = 0;

    template <class Io, class Rec> static void Fields(Io& io, Rec& st)
    {
        io.Field(st.fPower0); // 0
        io.Field(st.fPower1); // 4
    }
};

/// Indication 62734: per carrier, always two.
struct Power_Control_TPC_STRU
{
    static constexpr size_t SIZE = 8;

    int32_t lUlTpcSum = 0;
    int32_t lDlTpcSum = 0;

    template <class Io, class Rec> static void Fields(Io& io, Rec& st)
    {
        io.Field(st.lUlTpcSum); // 0
        io.Field(st.lDlTpcSum); // 4
    }
};

/// Indication 62770: per enabled carrier, values of HsupaRunRate.
struct HSUPA_Link_Throughput_Statistics_STRU
{
    static constexpr size_t SIZE = 12;

    float fNonDtxRate = 0;
    float fServedRate = 0;
    float fAvailableRate = 0;

    template <class Io, class Rec> static void Fields(Io& io, Rec& st)
    {
        io.Field(st.fNonDtxRate);    // 0
        io.Field(st.fServedRate);    // 4
        io.Field(st.fAvailableRate); // 8
    }
};

/// Indication 62773: per enabled carrier.
struct HSUPA_Link_Quality_Statistics_STRU
{
    static constexpr size_t SIZE = 28;

    float fDtxProbability = 0;
    float fSbler = 0;
    float f1stSbler = 0;
    float fLimitRate1 = 0;
    float fLimitRate0 = 0;
    float fLimitRate2 = 0;
    float fHappyRate = 0;

    template <class Io, class Rec> static void Fields(Io& io, Rec& st)
    {
        io.Field(st.fDtxProbability); //  0
        io.Field(st.fSbler);          //  4
        io.Field(st.f1stSbler);       //  8
        io.Field(st.fLimitRate1);     // 12
        io.Field(st.fLimitRate0);     // 16
        io.Field(st.fLimitRate2);     // 20
        io.Field(st.fHappyRate);      // 24
    }
};

/// Indication 62776: per enabled carrier.
struct HSUPA_Grant_Statistics_STRU
{
    static constexpr size_t SIZE = 20;

    float fAgMean = 0; // mean absolute grant, as its index
    float fRgCode2Rate = 0;
    float fRgCode1Rate = 0;
    float fRgCode3Rate = 0;
    float fSgMean = 0; // mean serving grant, as its index

    template <class Io, class Rec> static void Fields(Io& io, Rec& st)
    {
        io.Field(st.fAgMean);      //  0
        io.Field(st.fRgCode2Rate); //  4
        io.Field(st.fRgCode1Rate); //  8
        io.Field(st.fRgCode3Rate); // 12
        io.Field(st.fSgMean);      // 16
    }
};

/// A result of a u32 count and at most MAX records, built without the heap.
template <class Rec, size_t MAX> class CRegRecordList
{
public:
    void Add(const Rec& stRec)
    {
        CByteWriter writer(Slice(ByteSpan(m_aucBytes), COUNT_SIZE + m_ulCount * Rec::SIZE, Rec::SIZE));
        Rec::Fields(writer, stRec);
        StoreLe<uint32_t>(m_aucBytes, 0, ++m_ulCount);
    }

    ByteView Bytes() const { return ByteView(m_aucBytes).first(COUNT_SIZE + m_ulCount * Rec::SIZE); }

private:
    static constexpr size_t COUNT_SIZE = 4;

    std::array<unsigned char, COUNT_SIZE + MAX * Rec::SIZE> m_aucBytes{};
    uint32_t m_ulCount = 0;
};

/// One record as bytes.
template <class Rec> std::array<unsigned char, Rec::SIZE> RecordBytes(const Rec& stRec)
{
    std::array<unsigned char, Rec::SIZE> aucBytes{};
    CByteWriter writer(aucBytes);
    Rec::Fields(writer, stRec);
    return aucBytes;
}
