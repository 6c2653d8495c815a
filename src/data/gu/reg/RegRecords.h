#pragma once

#include "common/Bytes.h"
#include "data/RecordLayout.h"
#include "data/gu/base/RecordList.h"

#include <array>
#include <cstddef>
#include <cstdint>

// The result records of the register statistics as clients get them. Each record knows its size, and the order of its
// fields with their names, for the agent and for who shows results. Rates are percentages, unless something else
// stands beside them. RegStatTable.cpp says which records make up the result of a statistic.

/// Decoding: per active carrier, then the total of both.
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

    template <class Io, class Rec> static constexpr void Fields(Io& io, Rec& st)
    {
        NamedField(io, "subframes", st.ulSubframes);            //  0
        NamedField(io, "scch_ok", st.ulScchOk);                 //  4
        NamedField(io, "scch_ok_rate", st.fScchOkRate);         //  8
        NamedField(io, "ack_retrans_rate", st.fAckRetransRate); // 12
        NamedField(io, "less_rate", st.fLessRate);              // 16
        NamedField(io, "single", st.ulSingle);                  // 20
        NamedField(io, "dual", st.ulDual);                      // 24
        NamedField(io, "single_rate", st.fSingleRate);          // 28
        NamedField(io, "dual_rate", st.fDualRate);              // 32
        NamedField(io, "single_rate_2", st.fSingleRate2);       // 36
        NamedField(io, "dual_rate_2", st.fDualRate2);           // 40
        NamedField(io, "single_bler", st.fSingleBler);          // 44
        NamedField(io, "dual_bler_0", st.fDualBler0);           // 48
        NamedField(io, "dual_bler_1", st.fDualBler1);           // 52
    }
};

/// Block sizes: blocks of C0, C1 and the total, each with that many of these.
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

    template <class Io, class Rec> static constexpr void Fields(Io& io, Rec& st)
    {
        NamedField(io, "tbs", st.ulTbs);                              //   0
        NamedField(io, "qpsk_0", st.ulQpsk0);                         //   4
        NamedField(io, "qpsk_1", st.ulQpsk1);                         //   8
        NamedField(io, "16qam_0", st.ul16Qam0);                       //  12
        NamedField(io, "16qam_1", st.ul16Qam1);                       //  16
        NamedField(io, "64qam_0", st.ul64Qam0);                       //  20
        NamedField(io, "64qam_1", st.ul64Qam1);                       //  24
        NamedField(io, "block_err_0", st.ulBlockErr0);                //  28
        NamedField(io, "block_err_1", st.ulBlockErr1);                //  32
        NamedField(io, "crc_ok_0", st.ulCrcOk0);                      //  36
        NamedField(io, "crc_ok_1", st.ulCrcOk1);                      //  40
        NamedField(io, "ack_retrans_0", st.ulAckRetrans0);            //  44
        NamedField(io, "ack_retrans_1", st.ulAckRetrans1);            //  48
        NamedField(io, "tbs_change_0", st.ulTbsChange0);              //  52
        NamedField(io, "tbs_change_1", st.ulTbsChange1);              //  56
        NamedField(io, "bler_0", st.fBler0);                          //  60
        NamedField(io, "bler_1", st.fBler1);                          //  64
        NamedField(io, "first_bler_0", st.fFirstBler0);               //  68
        NamedField(io, "first_bler_1", st.fFirstBler1);               //  72
        NamedField(io, "new_after_err_0", st.ulNewAfterErr0);         //  76
        NamedField(io, "new_after_err_1", st.ulNewAfterErr1);         //  80
        NamedField(io, "crc_ok_0_copy", st.ulCrcOk0Copy);             //  84
        NamedField(io, "crc_ok_1_copy", st.ulCrcOk1Copy);             //  88
        NamedField(io, "new_after_err_rate_0", st.fNewAfterErrRate0); //  92
        NamedField(io, "new_after_err_rate_1", st.fNewAfterErrRate1); //  96
        NamedField(io, "phase", st.aulPhase);                         // 100
    }
};

/// Link: per active carrier, then the total of both. Rates in kbit/s (bits per millisecond), ratios in
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

    template <class Io, class Rec> static constexpr void Fields(Io& io, Rec& st)
    {
        NamedField(io, "win_rate", st.fWinRate);                //  0
        NamedField(io, "rate_0", st.fRate0);                    //  4
        NamedField(io, "rate_1", st.fRate1);                    //  8
        NamedField(io, "win_served_rate", st.fWinServedRate);   // 12
        NamedField(io, "served_rate_0", st.fServedRate0);       // 16
        NamedField(io, "served_rate_1", st.fServedRate1);       // 20
        NamedField(io, "win_ok_rate", st.fWinOkRate);           // 24
        NamedField(io, "ok_rate_0", st.fOkRate0);               // 28
        NamedField(io, "ok_rate_1", st.fOkRate1);               // 32
        NamedField(io, "win_ratio_a", st.fWinRatioA);           // 36
        NamedField(io, "ratio_a", st.fRatioA);                  // 40
        NamedField(io, "win_ratio_b", st.fWinRatioB);           // 44
        NamedField(io, "ratio_b", st.fRatioB);                  // 48
        NamedField(io, "win_ratio_c", st.fWinRatioC);           // 52
        NamedField(io, "ratio_c", st.fRatioC);                  // 56
        NamedField(io, "win_retrans_rate", st.fWinRetransRate); // 60
        NamedField(io, "retrans_rate", st.fRetransRate);        // 64
        NamedField(io, "hist_mean", st.ulHistMean);             // 68
    }
};

/// Channel quality: per enabled carrier.
struct HSDPA_CQI_STRU
{
    static constexpr size_t SIZE = 16;

    uint32_t ulCqi = 0;     // mean
    uint32_t ulCqiCopy = 0; // the same
    uint32_t ulCqiFirst = 0;
    uint32_t ulCqiSecond = 0;

    template <class Io, class Rec> static constexpr void Fields(Io& io, Rec& st)
    {
        NamedField(io, "mean_cqi", st.ulCqi);              //  0
        NamedField(io, "mean_cqi_copy", st.ulCqiCopy);     //  4
        NamedField(io, "mean_first_cqi", st.ulCqiFirst);   //  8
        NamedField(io, "mean_second_cqi", st.ulCqiSecond); // 12
    }
};

/// One record without a count.
struct HS_DSCH_Configuration_STRU
{
    static constexpr size_t SIZE = 8;

    uint32_t ulMatched = 0; // shifted left by 8; 0 without a match
    uint32_t ulField = 0;   // 4 bits

    template <class Io, class Rec> static constexpr void Fields(Io& io, Rec& st)
    {
        NamedField(io, "match", st.ulMatched); // 0
        NamedField(io, "field", st.ulField);   // 4
    }
};

/// Per enabled channel.
struct HS_SCCH_Configuration_STRU
{
    static constexpr size_t SIZE = 8;

    uint32_t ulChannel = 0; // 1 to 4
    uint32_t ulCode = 0;    // 7 bits

    template <class Io, class Rec> static constexpr void Fields(Io& io, Rec& st)
    {
        NamedField(io, "channel", st.ulChannel); // 0
        NamedField(io, "code", st.ulCode);       // 4
    }
};

/// One record without a count: fields of three registers A, B and C.
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

    template <class Io, class Rec> static constexpr void Fields(Io& io, Rec& st)
    {
        NamedField(io, "a_16_19", st.ulA16); //  0
        NamedField(io, "a_8_10", st.ulA8);   //  4
        NamedField(io, "a_0_2", st.ulA0);    //  8
        NamedField(io, "b_0_12", st.ulB0);   // 12
        NamedField(io, "c_0_4", st.ulC0);    // 16
        NamedField(io, "c_5_9", st.ulC5);    // 20
        NamedField(io, "c_10_14", st.ulC10); // 24
    }
};

/// Per carrier, always two.
struct Power_Control_SIR_STRU
{
    static constexpr size_t SIZE = 8;

    float fSir = 0;       // dB
    float fSirTarget = 0; // dB

    template <class Io, class Rec> static constexpr void Fields(Io& io, Rec& st)
    {
        NamedField(io, "sir_db", st.fSir);              // 0
        NamedField(io, "sir_target_db", st.fSirTarget); // 4
    }
};

/// Head of the powers.
struct Power_Control_Head_STRU
{
    static constexpr size_t SIZE = 8;

    float fSlotAverage = 0;
    uint32_t ulCount = 0;

    template <class Io, class Rec> static constexpr void Fields(Io& io, Rec& st)
    {
        NamedField(io, "slot_average", st.fSlotAverage); // 0
        NamedField(io, "count", st.ulCount);             // 4
    }
};

/// Per carrier, always two.
struct Power_Control_Power_STRU
{
    static constexpr size_t SIZE = 8;

    float fPower0 = 0;
    float fPower1 = 0;

    template <class Io, class Rec> static constexpr void Fields(Io& io, Rec& st)
    {
        NamedField(io, "power_0", st.fPower0); // 0
        NamedField(io, "power_1", st.fPower1); // 4
    }
};

/// Per carrier, always two.
struct Power_Control_TPC_STRU
{
    static constexpr size_t SIZE = 8;

    int32_t lUlTpcSum = 0;
    int32_t lDlTpcSum = 0;

    template <class Io, class Rec> static constexpr void Fields(Io& io, Rec& st)
    {
        NamedField(io, "ul_tpc_sum", st.lUlTpcSum); // 0
        NamedField(io, "dl_tpc_sum", st.lDlTpcSum); // 4
    }
};

/// Per enabled carrier, values of HsupaRunRate.
struct HSUPA_Link_Throughput_Statistics_STRU
{
    static constexpr size_t SIZE = 12;

    float fNonDtxRate = 0;
    float fServedRate = 0;
    float fAvailableRate = 0;

    template <class Io, class Rec> static constexpr void Fields(Io& io, Rec& st)
    {
        NamedField(io, "non_dtx_rate", st.fNonDtxRate);      // 0
        NamedField(io, "served_rate", st.fServedRate);       // 4
        NamedField(io, "available_rate", st.fAvailableRate); // 8
    }
};

/// Per enabled carrier.
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

    template <class Io, class Rec> static constexpr void Fields(Io& io, Rec& st)
    {
        NamedField(io, "dtx_probability", st.fDtxProbability); //  0
        NamedField(io, "sbler", st.fSbler);                    //  4
        NamedField(io, "first_sbler", st.f1stSbler);           //  8
        NamedField(io, "limit_rate_1", st.fLimitRate1);        // 12
        NamedField(io, "limit_rate_0", st.fLimitRate0);        // 16
        NamedField(io, "limit_rate_2", st.fLimitRate2);        // 20
        NamedField(io, "happy_rate", st.fHappyRate);           // 24
    }
};

/// Per enabled carrier.
struct HSUPA_Grant_Statistics_STRU
{
    static constexpr size_t SIZE = 20;

    float fAgMean = 0; // mean absolute grant, as its index
    float fRgCode2Rate = 0;
    float fRgCode1Rate = 0;
    float fRgCode3Rate = 0;
    float fSgMean = 0; // mean serving grant, as its index

    template <class Io, class Rec> static constexpr void Fields(Io& io, Rec& st)
    {
        NamedField(io, "ag_mean", st.fAgMean);             //  0
        NamedField(io, "rg_code_2_rate", st.fRgCode2Rate); //  4
        NamedField(io, "rg_code_1_rate", st.fRgCode1Rate); //  8
        NamedField(io, "rg_code_3_rate", st.fRgCode3Rate); // 12
        NamedField(io, "sg_mean", st.fSgMean);             // 16
    }
};
