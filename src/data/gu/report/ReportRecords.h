#pragma once

#include "data/RecordLayout.h"

#include <cstddef>
#include <cstdint>

// Records of the reports as clients get them, each with its size, and the order of its fields with the names that
// tools show. Reports that pass words of the UE on as they lie in its message have none.

/// Throughput of all radio bearers.
struct RLC_Throughput_STRU
{
    static constexpr size_t SIZE = 12;

    float fRateA = 0; // per second
    float fRateB = 0;
    float fRatio = 0; // uplink: a fraction, downlink: percent

    template <class Io, class Rec> static constexpr void Fields(Io& io, Rec& st)
    {
        NamedField(io, "rate_a", st.fRateA); // 0
        NamedField(io, "rate_b", st.fRateB); // 4
        NamedField(io, "ratio", st.fRatio);  // 8
    }
};

/// Throughput of a radio bearer, in a list with its count.
struct RB_Throughput_STRU
{
    static constexpr size_t SIZE = 8;

    uint32_t ulRb = 0;
    float fRate = 0; // per second

    template <class Io, class Rec> static constexpr void Fields(Io& io, Rec& st)
    {
        NamedField(io, "rb", st.ulRb);    // 0
        NamedField(io, "rate", st.fRate); // 4
    }
};

/// A channel of the BA list.
struct BA_Channel_STRU
{
    static constexpr size_t SIZE = 8;

    uint16_t usArfcn = 0;
    uint16_t usBand = 0;
    uint16_t usFirst = 0;
    uint16_t usSecond = 0;

    template <class Io, class Rec> static constexpr void Fields(Io& io, Rec& st)
    {
        NamedField(io, "arfcn", st.usArfcn);   // 0
        NamedField(io, "band", st.usBand);     // 2
        NamedField(io, "first", st.usFirst);   // 4
        NamedField(io, "second", st.usSecond); // 6
    }
};

/// An AMR mode as it is set, in a list with its count.
struct AMR_Setting_STRU
{
    static constexpr size_t SIZE = 16;

    uint16_t usMode = 0;
    uint16_t usModeCopy = 0; // the same
    uint16_t usHysteresis = 0;
    uint16_t usThreshold = 0;
    float fLower = 0;
    float fUpper = 0;

    template <class Io, class Rec> static constexpr void Fields(Io& io, Rec& st)
    {
        NamedField(io, "mode", st.usMode);             //  0
        NamedField(io, "mode_copy", st.usModeCopy);    //  2
        NamedField(io, "hysteresis", st.usHysteresis); //  4
        NamedField(io, "threshold", st.usThreshold);   //  6
        NamedField(io, "lower", st.fLower);            //  8
        NamedField(io, "upper", st.fUpper);            // 12
    }
};

/// An AMR mode as it is used, in a list with its count.
struct AMR_Usage_STRU
{
    static constexpr size_t SIZE = 12;

    uint16_t usMode = 0;
    uint16_t usModeCopy = 0; // the same
    float fFirst = 0;
    float fSecond = 0;

    template <class Io, class Rec> static constexpr void Fields(Io& io, Rec& st)
    {
        NamedField(io, "mode", st.usMode);            // 0
        NamedField(io, "mode_copy", st.usModeCopy);   // 2
        NamedField(io, "first_percent", st.fFirst);   // 4
        NamedField(io, "second_percent", st.fSecond); // 8
    }
};

/// Shares of a codec.
struct AMR_Codec_STRU
{
    static constexpr size_t SIZE = 12;

    uint16_t usIndex = 0;
    float fFirst = 0;
    float fSecond = 0;

    template <class Io, class Rec> static constexpr void Fields(Io& io, Rec& st)
    {
        NamedField(io, "index", st.usIndex);          // 0
        io.Gap(2);                                    // 2
        NamedField(io, "first_percent", st.fFirst);   // 4
        NamedField(io, "second_percent", st.fSecond); // 8
    }
};

/// Transmit power.
struct CS_Tx_STRU
{
    static constexpr size_t SIZE = 8;

    uint16_t usFirst = 0;
    uint16_t usMean = 0; // whole units
    uint16_t usLast = 0;

    template <class Io, class Rec> static constexpr void Fields(Io& io, Rec& st)
    {
        NamedField(io, "word_0", st.usFirst); // 0
        NamedField(io, "power", st.usMean);   // 2
        NamedField(io, "word_2", st.usLast);  // 4
        io.Gap(2);                            // 6
    }
};

/// Frame erasures.
struct CS_Fer_STRU
{
    static constexpr size_t SIZE = 8;

    float fFirst = 0;
    float fSecond = 0;

    template <class Io, class Rec> static constexpr void Fields(Io& io, Rec& st)
    {
        NamedField(io, "first_percent", st.fFirst);   // 0
        NamedField(io, "second_percent", st.fSecond); // 4
    }
};

/// Maintenance of RLC/MAC. First and second are the two directions.
struct Mntn_Usage_STRU
{
    static constexpr size_t SIZE = 12;

    uint8_t ucTimeslots1 = 0; // number of them
    uint8_t ucTimeslots2 = 0;
    uint8_t ucByte1 = 0;
    uint8_t ucByte2 = 0;
    uint32_t ulValue = 0;
    uint16_t usScheme1 = 0; // seen most often
    uint16_t usScheme2 = 0;

    template <class Io, class Rec> static constexpr void Fields(Io& io, Rec& st)
    {
        NamedField(io, "timeslots_1", st.ucTimeslots1); //  0
        NamedField(io, "timeslots_2", st.ucTimeslots2); //  1
        NamedField(io, "byte_16", st.ucByte1);          //  2
        NamedField(io, "byte_28", st.ucByte2);          //  3
        NamedField(io, "p0", st.ulValue);               //  4
        NamedField(io, "scheme_1", st.usScheme1);       //  8
        NamedField(io, "scheme_2", st.usScheme2);       // 10
    }
};

/// Throughput of a traced layer.
struct Throughput_STRU
{
    static constexpr size_t SIZE = 8;

    uint32_t ulBytes = 0;
    float fRate = 0;

    template <class Io, class Rec> static constexpr void Fields(Io& io, Rec& st)
    {
        NamedField(io, "bytes", st.ulBytes);    // 0
        NamedField(io, "kbit_per_s", st.fRate); // 4
    }
};
