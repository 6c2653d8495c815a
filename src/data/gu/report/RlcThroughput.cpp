#include "data/gu/report/RlcThroughput.h"

#include "data/gu/base/Percent.h"
#include "data/gu/base/RecordList.h"
#include "data/gu/report/ReportRecords.h"

namespace
{
// The entry of a radio bearer.
constexpr size_t RB_COUNT = 6;
constexpr size_t RB_SIZE = 116;
constexpr size_t RB_ACTIVE = 0;         // u8, 1 when it is active
constexpr size_t RB_ID = 1;             // u8
constexpr size_t RB_UL_COUNTER_A = 8;   // u64
constexpr size_t RB_UL_COUNTER_B = 16;  // u64
constexpr size_t RB_UL_COUNTER_C = 24;  // u32
constexpr size_t RB_UL_COUNTER_D = 28;  // u32
constexpr size_t RB_DL_COUNTER_A = 76;  // u64
constexpr size_t RB_DL_COUNTER_B = 84;  // u64
constexpr size_t RB_DL_COUNTER_C = 92;  // u32
constexpr size_t RB_DL_COUNTER_D = 96;  // u32
constexpr size_t RB_DL_COUNTER_E = 100; // u32

template <class Function> void ForActive(ByteView payload, Function function)
{
    for (size_t i = 0; i < RB_COUNT; ++i) {
        const ByteView entry = Slice(payload, i * RB_SIZE, RB_SIZE);
        if (LoadLe<uint8_t>(entry, RB_ACTIVE) == 1)
            function(entry);
    }
}

/// Sum of a counter over the active bearers, in the counter's own width.
template <class T> T Sum(ByteView payload, size_t szCounter)
{
    T sum = 0;
    ForActive(payload, [&](ByteView entry) { sum += LoadLe<T>(entry, szCounter); });
    return sum;
}

template <class T> float PerSecond(T count, int iSeconds)
{
    return static_cast<float>(static_cast<double>(count) / iSeconds);
}

std::vector<unsigned char> RlcReport(ByteView payload, int iSeconds, size_t szCounterA, size_t szCounterB, float fRatio)
{
    const auto report =
        EncodeRecord<RLC_Throughput_STRU>({PerSecond(Sum<uint64_t>(payload, szCounterA), iSeconds),
                                           PerSecond(Sum<uint64_t>(payload, szCounterB), iSeconds), fRatio});
    return {report.begin(), report.end()};
}

template <class T> std::vector<unsigned char> RbReport(ByteView payload, int iSeconds, size_t szCounter)
{
    CRecordList<RB_Throughput_STRU, RB_COUNT> records;
    ForActive(payload, [&](ByteView entry) {
        records.Add({LoadLe<uint8_t>(entry, RB_ID), PerSecond(LoadLe<T>(entry, szCounter), iSeconds)});
    });
    return {records.Bytes().begin(), records.Bytes().end()};
}
} // namespace

std::vector<unsigned char> RlcUlReport(ByteView payload, int iSeconds)
{
    const auto ulC = Sum<uint32_t>(payload, RB_UL_COUNTER_C);
    const auto ulD = Sum<uint32_t>(payload, RB_UL_COUNTER_D);
    const float fRatio = ulD == 0 ? 0.0F : static_cast<float>(static_cast<double>(ulD) / (ulD + ulC));
    return RlcReport(payload, iSeconds, RB_UL_COUNTER_A, RB_UL_COUNTER_B, fRatio);
}

std::vector<unsigned char> RlcDlReport(ByteView payload, int iSeconds)
{
    const auto ulC = Sum<uint32_t>(payload, RB_DL_COUNTER_C);
    const auto ulD = Sum<uint32_t>(payload, RB_DL_COUNTER_D);
    const auto ulE = Sum<uint32_t>(payload, RB_DL_COUNTER_E);
    const float fRatio = ulD == 0 ? 0.0F : QuotientPercent(ulC, ulD + ulE);
    return RlcReport(payload, iSeconds, RB_DL_COUNTER_A, RB_DL_COUNTER_B, fRatio);
}

std::vector<unsigned char> RbUlReport(ByteView payload, int iSeconds)
{
    return RbReport<uint64_t>(payload, iSeconds, RB_UL_COUNTER_A);
}

std::vector<unsigned char> RbDlReport(ByteView payload, int iSeconds)
{
    return RbReport<uint32_t>(payload, iSeconds, RB_DL_COUNTER_A);
}
