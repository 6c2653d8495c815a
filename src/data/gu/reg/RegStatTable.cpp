#include "data/gu/reg/RegStatTable.h"

#include "data/gu/reg/RegCqiProcess.h"
#include "data/gu/reg/RegDecodingProcess.h"
#include "data/gu/reg/RegDecodingTbs.h"
#include "data/gu/reg/RegHsupaProcess.h"
#include "data/gu/reg/RegLinkProcess.h"
#include "data/gu/reg/RegPowerControl.h"
#include "data/gu/reg/RegRecords.h"

#include <algorithm>

// The one place that knows which statistics there are, their ids and what their results are made of.

namespace
{
template <class Stat> std::unique_ptr<CPeriodRegMsgFromUe> Create(const REG_STAT_SETUP& stSetup)
{
    return std::make_unique<Stat>(stSetup);
}

// Groups of as many records as the head of type Head says in its last field.
template <class Head> constexpr uint16_t COUNT_OFFSET = FIELD_ROWS<Head>.back().usOffset;
template <class Rec, class Head>
constexpr GROUP_ROW CARRIERS[] = {{"carriers", &PLAIN_RECORD<Rec>, 0, COUNT_OFFSET<Head>}};
template <class Rec> constexpr GROUP_ROW CHANNELS[] = {{"channels", &PLAIN_RECORD<Rec>, 0}};
template <class Rec> constexpr GROUP_ROW RECORDS[] = {{"records", &PLAIN_RECORD<Rec>, 0}};

constexpr RECORD_LAYOUT Counted(const char* pszTitle, std::span<const GROUP_ROW> groups)
{
    return {pszTitle, Record_Count_STRU::SIZE, FIELD_ROWS<Record_Count_STRU>, groups};
}

template <class Rec> constexpr RECORD_LAYOUT Single(const char* pszTitle)
{
    return {pszTitle, Rec::SIZE, FIELD_ROWS<Rec>};
}
template <class Rec, class Head = Record_Count_STRU> constexpr RECORD_LAYOUT PerCarrier(const char* pszTitle)
{
    return {pszTitle, Head::SIZE, FIELD_ROWS<Head>, CARRIERS<Rec, Head>};
}
template <class Rec> constexpr RECORD_LAYOUT PerChannel(const char* pszTitle)
{
    return Counted(pszTitle, CHANNELS<Rec>);
}
/// Carriers and their total.
template <class Rec> constexpr RECORD_LAYOUT WithTotal(const char* pszTitle)
{
    return Counted(pszTitle, RECORDS<Rec>);
}

/// A block for each carrier and one for their total, each with a record for each block size.
template <class Rec> constexpr RECORD_LAYOUT BLOCK = Counted(nullptr, RECORDS<Rec>);
template <class Rec> constexpr GROUP_ROW BLOCKS[] = {{"blocks", &BLOCK<Rec>, 0}};
template <class Rec> constexpr RECORD_LAYOUT InBlocks(const char* pszTitle)
{
    return Counted(pszTitle, BLOCKS<Rec>);
}

// clang-format off
constexpr REG_STAT_ROW g_astRegStat[] = {
    {62726, Create<CRegPowerControlSir>,     "sir",           PerCarrier<Power_Control_SIR_STRU>("power control SIR")},
    {62729, Create<CRegPowerControlPower>,   "power",         PerCarrier<Power_Control_Power_STRU, Power_Control_Head_STRU>("power control power")},
    {62732, Create<CRegPowerControlTpc>,     "tpc",           PerCarrier<Power_Control_TPC_STRU>("power control TPC")},
    {62735, Create<CRegDschCfg>,             "dsch-cfg",      Single<HS_DSCH_Configuration_STRU>("HS-DSCH configuration")},
    {62738, Create<CRegScchCfg>,             "scch-cfg",      PerChannel<HS_SCCH_Configuration_STRU>("HS-SCCH configuration")},
    {62741, Create<CRegDpcchCfg>,            "dpcch-cfg",     Single<HS_DPCCH_Configuration_STRU>("HS-DPCCH configuration")},
    {62750, Create<CRegHsdpaCqi>,            "cqi",           PerCarrier<HSDPA_CQI_STRU>("HSDPA CQI")},
    {62753, Create<CRegLinkStatistics>,      "link",          WithTotal<HSDPA_Link_Statistics_STRU>("HSDPA link statistics")},
    {62756, Create<CRegDecodingStat>,        "decoding",      WithTotal<HSDPA_Decoding_Statistics_STRU>("HSDPA decoding statistics")},
    {62759, Create<CRegDecodingTbs>,         "tbs",           InBlocks<Tbs_STRU>("HSDPA block sizes")},
    {62768, Create<CRegHsupaLinkThroughput>, "hsupa-rate",    PerCarrier<HSUPA_Link_Throughput_Statistics_STRU>("HSUPA link throughput")},
    {62771, Create<CRegHsupaLinkQuality>,    "hsupa-quality", PerCarrier<HSUPA_Link_Quality_Statistics_STRU>("HSUPA link quality")},
    {62774, Create<CRegHsupaGrant>,          "hsupa-grant",   PerCarrier<HSUPA_Grant_Statistics_STRU>("HSUPA grant")},
};
// clang-format on
static_assert(std::ranges::is_sorted(g_astRegStat, {}, &REG_STAT_ROW::usReq));
} // namespace

std::span<const REG_STAT_ROW> RegStatTable()
{
    return g_astRegStat;
}

bool IsRegStatRequest(unsigned short usReq)
{
    return std::ranges::binary_search(g_astRegStat, usReq, {}, &REG_STAT_ROW::usReq);
}
