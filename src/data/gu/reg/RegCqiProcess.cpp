#include "data/gu/reg/RegCqiProcess.h"

#include "data/gu/reg/RegRecords.h"

namespace
{

/// First register of the report set that the mode registers P, Q and R select.
size_t ReportSet(const std::array<unsigned int, CQI_MODE_NUM>& aulMode)
{
    const auto [ulP, ulQ, ulR] = aulMode;
    const bool bSecond = GetBitValue(ulP, 16, 17) == 2 && (GetBitValue(ulQ, 0, 0) == 1 || GetBitValue(ulR, 0, 0) == 1);
    return bSecond ? CQI_SECOND_SET : CQI_FIRST_SET;
}

/// Means over the registers of a report set, in integers. A dual stream report holds both values in one number from
/// 31 on; a single stream one counts for both.
HSDPA_CQI_STRU MeanCqi(std::span<const unsigned int> reports)
{
    HSDPA_CQI_STRU stSum;
    for (const unsigned int ulReport : reports) {
        const unsigned int ulPair = GetBitValue(ulReport, 16, 23);
        stSum.ulCqi += GetBitValue(ulReport, 0, 4);
        stSum.ulCqiFirst += ulPair > 30 ? (ulPair - 31) / 15 : ulPair;
        stSum.ulCqiSecond += ulPair > 30 ? (ulPair - 31) % 15 : ulPair;
    }
    const unsigned int ulCount = static_cast<unsigned int>(reports.size());
    const unsigned int ulMean = stSum.ulCqi / ulCount;
    return {ulMean, ulMean, stSum.ulCqiFirst / ulCount, stSum.ulCqiSecond / ulCount};
}

} // namespace

CRegHsdpaCqi::CRegHsdpaCqi(const REG_STAT_SETUP& stSetup)
    : CPeriodRegMsgFromUe(stSetup, stSetup.bV9 ? g_aulHsdpaCqi_V9 : g_aulHsdpaCqi)
{
}

/// A carrier that isn't enabled ends the walk, so carrier 1 is never reported without carrier 0.
void CRegHsdpaCqi::Process(const RegStruct& stReg, unsigned int ulTimeStamp)
{
    std::array<unsigned int, CQI_MODE_NUM> aulMode{};
    Locate(stReg);
    if (!GetRegValues(stReg, CQI_MODE, aulMode))
        return;
    const size_t szSet = ReportSet(aulMode);
    CRecordList<HSDPA_CQI_STRU, CARRIER_COUNT> records;
    for (size_t szHalf = 0; szHalf < CARRIER_COUNT * CQI_HALF; szHalf += CQI_HALF) {
        unsigned int ulEnable = 0;
        if (!GetValue(stReg, szHalf + CQI_ENABLE, ulEnable) || ulEnable != 1)
            break;
        std::array<unsigned int, CQI_SET_SIZE> aulReports{};
        if (!GetRegValues(stReg, szHalf + szSet, aulReports))
            return;
        records.Add(MeanCqi(aulReports));
    }
    InsertData(records.Bytes(), ulTimeStamp);
}

CRegDschCfg::CRegDschCfg(const REG_STAT_SETUP& stSetup)
    : CPeriodRegMsgFromUe(stSetup, stSetup.bV9 ? g_aulDschConfiguration_V9 : g_aulDschConfiguration)
{
}

void CRegDschCfg::Process(const RegStruct& stReg, unsigned int ulTimeStamp)
{
    unsigned int ulKey = 0;
    unsigned int ulField = 0;
    HS_DSCH_Configuration_STRU stRec;
    Locate(stReg);
    if (!GetValue(stReg, DSCH_KEY, ulKey) || !ReadMatched(stReg, GetBitValue(ulKey, 0, 17), stRec.ulMatched) ||
        !GetValue(stReg, DSCH_FIELD, ulField))
        return;
    stRec.ulField = GetBitValue(ulField, 0, 3);
    InsertData(EncodeRecord(stRec), ulTimeStamp);
}

/// The value of the first pair whose register equals the key; ulMatched stays as it is without one. False when a
/// register on the way is missing.
bool CRegDschCfg::ReadMatched(const RegStruct& stReg, unsigned int ulKey, unsigned int& ulMatched) const
{
    for (size_t szPair = DSCH_PAIR; szPair < DSCH_PAIR + 2 * DSCH_PAIR_NUM; szPair += 2) {
        unsigned int ulValue = 0;
        if (!GetValue(stReg, szPair, ulValue))
            return false;
        if (GetBitValue(ulValue, 0, 17) != ulKey)
            continue;
        const bool bFound = GetValue(stReg, szPair + 1, ulValue);
        ulMatched = GetBitValue(ulValue, 0, 7) << 8;
        return bFound;
    }
    return true;
}

CRegScchCfg::CRegScchCfg(const REG_STAT_SETUP& stSetup)
    : CPeriodRegMsgFromUe(stSetup, stSetup.bV9 ? g_aulScchConfiguration_V9 : g_aulScchConfiguration)
{
}

/// Channel i is enabled by bit i of the mask; bit 0 is never looked at.
void CRegScchCfg::Process(const RegStruct& stReg, unsigned int ulTimeStamp)
{
    CRecordList<HS_SCCH_Configuration_STRU, SCCH_CHANNEL_NUM> records;
    unsigned int ulMask = 0;
    Locate(stReg);
    if (!GetValue(stReg, 0, ulMask))
        return;
    for (unsigned int ulChannel = 1; ulChannel <= SCCH_CHANNEL_NUM; ++ulChannel) {
        if ((ulMask >> ulChannel & 1) == 0)
            continue;
        unsigned int ulValue = 0;
        if (!GetValue(stReg, ulChannel, ulValue))
            return;
        records.Add({ulChannel, GetBitValue(ulValue, 0, 6)});
    }
    InsertData(records.Bytes(), ulTimeStamp);
}

CRegDpcchCfg::CRegDpcchCfg(const REG_STAT_SETUP& stSetup) : CPeriodRegMsgFromUe(stSetup, g_aulDpcchConfiguration) {}

void CRegDpcchCfg::Process(const RegStruct& stReg, unsigned int ulTimeStamp)
{
    std::array<unsigned int, 3> aulValues{};
    Locate(stReg);
    if (!GetRegValues(stReg, 0, aulValues))
        return;
    const auto [ulA, ulB, ulC] = aulValues;
    const HS_DPCCH_Configuration_STRU stRec = {
        GetBitValue(ulA, 16, 19), GetBitValue(ulA, 8, 10), GetBitValue(ulA, 0, 2),  GetBitValue(ulB, 0, 12),
        GetBitValue(ulC, 0, 4),   GetBitValue(ulC, 5, 9),  GetBitValue(ulC, 10, 14)};
    InsertData(EncodeRecord(stRec), ulTimeStamp);
}
