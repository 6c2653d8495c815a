#include "data/gu/reg/GuRegister.h"

#include <array>
#include <cstdlib>

namespace
{

constexpr size_t VERSION_LEN = 8; // characters of a version that count

constexpr const char* c_apszRegAddr[][8] = {
    // clang-format off
    // index  version       kind    WBBP        GBBP        WDSP query  WDSP info   time slot
    {"0",  "ALDER-01-A1", "ASIC", "202C0000", "202C0000", "FFFFFFFF", "FFFFFFFF", "FFFFFFFF"},
    {"1",  "ALDER-02-A1", "ASIC", "202C0000", "202C0000", "20307D74", "20307D74", "20307D74"},
    {"2",  "BIRCH-01-A1", "ASIC", "202C0000", "202C0000", "20307D74", "40000000", "40000000"},
    {"3",  "BIRCH-01-A1", "FPGA", "90400000", "90400000", "90397D74", "90397D74", "90397D74"},
    {"4",  "BIRCH-01-A2", "ASIC", "202C0000", "202C0000", "20307D74", "201000F0", "201000DC"},
    {"5",  "BIRCH-01-A2", "FPGA", "90400000", "90400000", "90397D74", "90397E00", "90397D74"},
    {"6",  "CEDAR-01-A1", "ASIC", "202C0000", "202C0000", "201000D4", "201000F0", "201000DC"},
    {"7",  "CEDAR-01-A1", "FPGA", "90400000", "90400000", "90397D74", "90397E00", "90397D7C"},
    {"8",  "CEDAR-02-A0", "ASIC", "20200000", "20210000", "201000E8", "20100104", "201000F0"},
    {"9",  "CEDAR-02-A0", "FPGA", "5E200000", "5E210000", "5E1000E8", "5E100104", "5E1000F0"},
    {"10", "MAPLE-01-A1", "ASIC", "20200000", "20210000", "201000E8", "20100104", "201000F0"},
    {"11", "MAPLE-01-A1", "FPGA", "5E200000", "5E210000", "5E1000E8", "5E100104", "5E1000F0"},
    {"12", "MAPLE-20",    "ASIC", "20900000", "20800000", "FFFFFFFF", "FFFFFFFF", "FFFFFFFF"},
    {"13", "MAPLE-20",    "FPGA", "50900000", "50800000", "FFFFFFFF", "FFFFFFFF", "FFFFFFFF"},
    {"14", "PLANE-10",    "ASIC", "FD900000", "FD800000", "FFFFFFFF", "FFFFFFFF", "FFFFFFFF"},
    {"15", "PLANE-10",    "FPGA", "50900000", "50800000", "FFFFFFFF", "FFFFFFFF", "FFFFFFFF"},
    {"16", "CEDAR-03",    "ASIC", "FD900000", "FD800000", "FFFFFFFF", "FFFFFFFF", "FFFFFFFF"},
    {"17", "CEDAR-03",    "FPGA", "50900000", "50800000", "FFFFFFFF", "FFFFFFFF", "FFFFFFFF"},
    {"18", "ROWAN-30",    "ASIC", "E1900000", "E1800000", "FFFFFFFF", "FFFFFFFF", "FFFFFFFF"},
    {"19", "ROWAN-30",    "FPGA", "E1900000", "E1800000", "FFFFFFFF", "FFFFFFFF", "FFFFFFFF"},
    {"20", "OLIVE-10",    "ASIC", "FD900000", "FD800000", "FFFFFFFF", "FFFFFFFF", "FFFFFFFF"},
    {"21", "OLIVE-10",    "FPGA", "5D900000", "5D800000", "FFFFFFFF", "FFFFFFFF", "FFFFFFFF"},
    // clang-format on
};

} // namespace

CGuRegister::CGuRegister()
{
    InitRegAddr();
}

/// The GSM base (s4) is written where the second DSP address (s6) then overwrites it, so strGBBPBase stays empty and
/// the GSM base reads as 0. Statistics rely on it: the UEs' GSM bank is never read, and 0 counts as a known address.
REG_PAIR CGuRegister::CreateElement(const char* s0, const char* s1, const char* s2, const char* s3, const char* s4,
                                    const char* s5, const char* s6, const char* s7)
{
    REG_PAIR stPair;
    stPair.strIndex = s0;
    stPair.strVersion = s1;
    stPair.strChipType = s2;
    stPair.strWBBPBase = s3;
    stPair.strWDSPInfo = s4;
    stPair.strWDSPQuery = s5;
    stPair.strWDSPInfo = s6;
    stPair.strTimeSlot = s7;
    return stPair;
}

void CGuRegister::InitRegAddr()
{
    for (const auto& row : c_apszRegAddr)
        m_vecRegPair.push_back(CreateElement(row[0], row[1], row[2], row[3], row[4], row[5], row[6], row[7]));
}

unsigned int CGuRegister::GetIndexValueByVersion(const std::string& strVersion, const std::string& strChipType) const
{
    if (strVersion.empty() || strChipType.empty())
        return REG_INDEX_NONE;
    const std::string strCut = strVersion.substr(0, VERSION_LEN);
    for (size_t i = 0; i < m_vecRegPair.size(); ++i)
        if (m_vecRegPair[i].strVersion == strCut && m_vecRegPair[i].strChipType == strChipType)
            return static_cast<unsigned int>(i);
    return REG_INDEX_NONE;
}

unsigned int CGuRegister::GetAddrValueByIndex(unsigned int ulIndex, unsigned int ulField) const
{
    static constexpr std::array<std::string REG_PAIR::*, 5> c_apField = {
        &REG_PAIR::strWBBPBase, &REG_PAIR::strGBBPBase, &REG_PAIR::strWDSPQuery, &REG_PAIR::strWDSPInfo,
        &REG_PAIR::strTimeSlot};
    if (ulIndex >= m_vecRegPair.size() || ulField < REG_FIELD_WBBP || ulField > REG_FIELD_TIME_SLOT)
        return REG_ADDR_UNKNOWN;
    const std::string& strAddr = m_vecRegPair[ulIndex].*c_apField[ulField - REG_FIELD_WBBP];
    return static_cast<unsigned int>(std::strtoul(strAddr.c_str(), nullptr, 16));
}
