#include "data/gu/reg/RegHsupaProcess.h"

#include "data/gu/base/Percent.h"
#include "data/gu/reg/RegMsgProcess.h"
#include "data/gu/reg/RegisterManager.h"

namespace
{

constexpr unsigned int UNWRITTEN = 0x5A5A; // half words
constexpr unsigned int INVALID = 0xFFFF;

constexpr unsigned int TTI_2MS = 1; // value of the time slot word
constexpr unsigned int ENABLED = 1; // value of an enable register

bool IsWritten(unsigned int ulHalf)
{
    return ulHalf != UNWRITTEN;
}
bool IsValid(unsigned int ulHalf)
{
    return ulHalf != INVALID && ulHalf != UNWRITTEN;
}

} // namespace

float HsupaRunRate(unsigned int ulBits, unsigned int ulSamples)
{
    return static_cast<float>(static_cast<long double>(ulBits) * 1000 / 1024 /
                              (static_cast<long double>(ulSamples) * 10));
}

// ---- CRegHsupaBase ----

CRegHsupaBase::CRegHsupaBase(const REG_STAT_SETUP& stSetup, std::span<const unsigned int> table)
    : CPeriodRegMsgFromUe(stSetup, table),
      m_szGroups((table.size() - HSUPA_GROUP) / HSUPA_GROUP_SIZE),
      m_szTimeSlot(table.size() - HSUPA_GROUP)
{
}

CRegHsupaBase::Registers CRegHsupaBase::GetRegisters() const
{
    static constexpr unsigned int c_aulWordItself[] = {0};
    const CRegisterManager& manager = m_pRegMsgProcess->Manager();
    const REG_BASE_ADDR_STRU stBase = manager.GetBaseAddr();
    Registers registers;
    AppendRegisters(registers, stBase.ulWUPABaseAddr, m_pulRegTable.subspan(HSUPA_GROUP));
    AppendRegisters(registers, manager.GetTimeSlotAddr(), c_aulWordItself);
    AppendRegisters(registers, stBase.ulWBBPBaseAddr, m_pulRegTable.subspan(HSUPA_ENABLE, CARRIER_COUNT));
    return registers;
}

void CRegHsupaBase::CleanStat()
{
    InitData();
    CPeriodRegMsgFromUe::CleanStat();
}

/// A carrier that isn't enabled ends the walk, so carrier 1 is never reported without carrier 0. The sample counts
/// before its words are looked for, so it does also while the base of the data area isn't known.
void CRegHsupaBase::Process(const RegStruct& stReg, unsigned int ulTimeStamp)
{
    std::array<unsigned char, 4 + CARRIER_COUNT * HSUPA_Link_Quality_Statistics_STRU::SIZE> aucResult{};
    CByteWriter writer(aucResult);
    writer.Field(0U); // the count, known at the end
    unsigned int ulTimeSlot = 0;
    Locate(stReg);
    if (!GetValue(stReg, m_szTimeSlot, ulTimeSlot))
        return;
    const unsigned int ulTtis = ulTimeSlot == TTI_2MS ? HSUPA_GROUP_SIZE : 1;
    unsigned int ulCount = 0;
    for (; ulCount < CARRIER_COUNT; ++ulCount) {
        unsigned int ulEnable = 0;
        if (!GetValue(stReg, m_szTimeSlot + 1 + ulCount, ulEnable))
            return;
        if (ulEnable != ENABLED)
            break;
        ++m_aulSampleCnt[ulCount];
        if (!CountCarrier(stReg, ulCount, ulTtis))
            return;
        WriteResult(writer, ulCount, ulTtis);
    }
    StoreLe(aucResult, 0, ulCount);
    InsertData(ByteView(aucResult).first(aucResult.size() - writer.Left()), ulTimeStamp);
}

bool CRegHsupaBase::CountCarrier(const RegStruct& stReg, size_t szCarrier, unsigned int ulTtis)
{
    for (size_t szTti = 0; szTti < ulTtis; ++szTti) {
        std::array<unsigned int, MAX_GROUPS> aulWords{};
        for (size_t szGroup = 0; szGroup < m_szGroups; ++szGroup)
            if (!GetValue(stReg, szGroup * HSUPA_GROUP_SIZE + szTti, aulWords[szGroup]))
                return false;
        CountRecord(std::span(aulWords).first(m_szGroups), szCarrier);
    }
    return true;
}

unsigned int CRegHsupaBase::Half(unsigned int ulWord, size_t szCarrier)
{
    return GetBitValue(ulWord, LowBit(szCarrier), static_cast<unsigned char>(LowBit(szCarrier) + 15));
}

// ---- CRegHsupaLinkThroughput ----

CRegHsupaLinkThroughput::CRegHsupaLinkThroughput(const REG_STAT_SETUP& stSetup)
    : CRegHsupaBase(stSetup, g_aulHsupaLinkThroughput)
{
}

void CRegHsupaLinkThroughput::InitData()
{
    m_aulNonDtxBits = {};
    m_aulServedBits = {};
    m_aulAvailableBits = {};
}

void CRegHsupaLinkThroughput::CountRecord(Words words, size_t szCarrier)
{
    const unsigned int ulA = Half(words[0], szCarrier);
    const unsigned int ulB = Half(words[1], szCarrier);
    const unsigned int ulC = Half(words[2], szCarrier);
    const unsigned int ulD = Half(words[3], szCarrier);
    if (IsValid(ulB))
        m_aulNonDtxBits[szCarrier] += ulD + ulC;
    if (ulA == 1 && IsWritten(ulC))
        m_aulServedBits[szCarrier] += ulC;
    if (ulA == 1 && IsWritten(ulC) && IsWritten(ulD))
        m_aulAvailableBits[szCarrier] += ulD + ulC;
}

void CRegHsupaLinkThroughput::WriteResult(CByteWriter& writer, size_t szCarrier, unsigned int) const
{
    const unsigned int ulSamples = m_aulSampleCnt[szCarrier];
    const HSUPA_Link_Throughput_Statistics_STRU stRec = {HsupaRunRate(m_aulNonDtxBits[szCarrier], ulSamples),
                                                         HsupaRunRate(m_aulServedBits[szCarrier], ulSamples),
                                                         HsupaRunRate(m_aulAvailableBits[szCarrier], ulSamples)};
    stRec.Fields(writer, stRec);
}

// ---- CRegHsupaLinkQuality ----

CRegHsupaLinkQuality::CRegHsupaLinkQuality(const REG_STAT_SETUP& stSetup)
    : CRegHsupaBase(stSetup, g_aulHsupaLinkQuality)
{
}

void CRegHsupaLinkQuality::InitData()
{
    m_astQuality = {};
}

void CRegHsupaLinkQuality::CountRecord(Words words, size_t szCarrier)
{
    const unsigned int ulA = Half(words[0], szCarrier);
    const unsigned int ulB = Half(words[1], szCarrier);
    const unsigned int ulC = Half(words[2], szCarrier);
    const unsigned int ulD = Half(words[3], szCarrier);
    const unsigned int ulE = Half(words[4], szCarrier);
    QUALITY_STRU& st = m_astQuality[szCarrier];
    CalculateDtxProbability(st, ulB);
    CalculateSBLER(st, ulC, ulD);
    Calculate1stSBLER(st, ulC, ulD);
    CalculateLimitedRate(st, ulE);
    CalculateHappyRate(st, ulA, ulB);
}

void CRegHsupaLinkQuality::CalculateDtxProbability(QUALITY_STRU& st, unsigned int ulB)
{
    st.ulDtxCnt += ulB == 0 || !IsWritten(ulB) ? 1 : 0;
}

void CRegHsupaLinkQuality::CalculateSBLER(QUALITY_STRU& st, unsigned int ulC, unsigned int ulD)
{
    if (!IsValid(ulC))
        return;
    ++st.ulSblerAll;
    st.ulSblerErr += ulD != 0 ? 1 : 0;
}

/// A failed first transmission counts whatever ulC says, unlike a good one. Client tools rely on it.
void CRegHsupaLinkQuality::Calculate1stSBLER(QUALITY_STRU& st, unsigned int ulC, unsigned int ulD)
{
    st.ulFirstAll += IsValid(ulC) && ulD == 0 ? 1 : 0;
    st.ulFirstErr += ulD == 1 ? 1 : 0;
}

void CRegHsupaLinkQuality::CalculateLimitedRate(QUALITY_STRU& st, unsigned int ulE)
{
    st.ulLimitAll += IsWritten(ulE) ? 1 : 0;
    st.ulLimit1 += ulE == 1 ? 1 : 0;
    st.ulLimit0 += ulE == 0 ? 1 : 0;
    st.ulLimit2 += ulE == 2 ? 1 : 0;
}

void CRegHsupaLinkQuality::CalculateHappyRate(QUALITY_STRU& st, unsigned int ulA, unsigned int ulB)
{
    if ((ulB & 1) == 0)
        return;
    ++st.ulHappyAll;
    st.ulHappy += ulA & 1;
}

/// The DTX count is of the records without transmission, while the field says the share of the others; and it is
/// divided by the present number of TTI records for the whole run, also after that number has changed. Client tools
/// rely on both.
void CRegHsupaLinkQuality::WriteResult(CByteWriter& writer, size_t szCarrier, unsigned int ulTtis) const
{
    const QUALITY_STRU& st = m_astQuality[szCarrier];
    const double dDtx = CalcuDivision(st.ulDtxCnt, m_aulSampleCnt[szCarrier] * ulTtis);
    const HSUPA_Link_Quality_Statistics_STRU stRec = {
        static_cast<float>((1 - dDtx) * 100),       CalcuPercent(st.ulSblerErr, st.ulSblerAll),
        CalcuPercent(st.ulFirstErr, st.ulFirstAll), CalcuPercent(st.ulLimit1, st.ulLimitAll),
        CalcuPercent(st.ulLimit0, st.ulLimitAll),   CalcuPercent(st.ulLimit2, st.ulLimitAll),
        CalcuPercent(st.ulHappy, st.ulHappyAll)};
    stRec.Fields(writer, stRec);
}

// ---- CRegHsupaGrant ----

CRegHsupaGrant::CRegHsupaGrant(const REG_STAT_SETUP& stSetup) : CRegHsupaBase(stSetup, g_aulHsupaGrant) {}

void CRegHsupaGrant::InitData()
{
    m_astGrant = {};
}

void CRegHsupaGrant::CountRecord(Words words, size_t szCarrier)
{
    GRANT_STRU& st = m_astGrant[szCarrier];
    CalculateAg(st, words, szCarrier);
    CalculateRgRate(st, words, szCarrier);
    const unsigned int ulServing = Half(words[4], szCarrier);
    if (IsWritten(ulServing))
        st.ulSgSum += ulServing;
}

void CRegHsupaGrant::CalculateAg(GRANT_STRU& st, Words words, size_t szCarrier)
{
    const unsigned int ulFlag = Half(words[0], szCarrier);
    const unsigned int ulGrant = Half(words[1], szCarrier);
    const unsigned int ulScope = GetBitValue(ulGrant, 8, 9);
    if ((ulFlag & 1) == 0 || (ulScope != 1 && ulScope != 2))
        return;
    st.aulAgSum[ulScope - 1] += GetBitValue(ulGrant, 1, 5);
    ++st.aulAgCnt[ulScope - 1];
}

/// Looks at the low halves for either carrier; client tools rely on it.
bool CRegHsupaGrant::IsRgSuppressed(Words words)
{
    return GetBitValue(words[5], 0, 0) == 1 && GetBitValue(words[4], 0, 1) == 3;
}

void CRegHsupaGrant::CalculateRgRate(GRANT_STRU& st, Words words, size_t szCarrier)
{
    if ((Half(words[2], szCarrier) & 1) == 0)
        return;
    const unsigned int ulCode = GetBitValue(Half(words[3], szCarrier), 0, 1);
    const bool bSuppressed = IsRgSuppressed(words);
    ++st.ulRgAll;
    st.ulRgCode2 += ulCode == 2 && !bSuppressed ? 1 : 0;
    st.ulRgCode1 += ulCode == 1 && !bSuppressed ? 1 : 0;
    st.ulRgCode3 += ulCode == 3 ? 1 : 0;
}

/// The serving grant is divided by the present number of TTI records for the whole run; client tools rely on it.
void CRegHsupaGrant::WriteResult(CByteWriter& writer, size_t szCarrier, unsigned int ulTtis) const
{
    const GRANT_STRU& st = m_astGrant[szCarrier];
    const auto percent = [&](unsigned int ulCount) { return QuotientPercentOrZero(ulCount, st.ulRgAll); };
    const HSUPA_Grant_Statistics_STRU stRec = {
        CalcuDivision(st.aulAgSum[0] + st.aulAgSum[1], st.aulAgCnt[0] + st.aulAgCnt[1]), percent(st.ulRgCode2),
        percent(st.ulRgCode1), percent(st.ulRgCode3), CalcuDivision(st.ulSgSum, m_aulSampleCnt[szCarrier] * ulTtis)};
    stRec.Fields(writer, stRec);
}
