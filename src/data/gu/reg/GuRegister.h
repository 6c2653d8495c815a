#pragma once

#include <string>
#include <vector>

/// One row of the register address table, as texts.
struct REG_PAIR
{
    std::string strIndex;     // row number in decimal; never read
    std::string strVersion;   // UE version
    std::string strChipType;  // "ASIC" or "FPGA"
    std::string strWBBPBase;  // hexadecimal from here on: WCDMA baseband bank
    std::string strGBBPBase;  // GSM bank; empty in every row, see CreateElement
    std::string strWDSPQuery; // DSP query block
    std::string strWDSPInfo;  // second DSP address
    std::string strTimeSlot;  // DSP time slot word
};

// Fields of a row that GetAddrValueByIndex reads as addresses.
constexpr unsigned int REG_FIELD_WBBP = 3;
constexpr unsigned int REG_FIELD_GBBP = 4;
constexpr unsigned int REG_FIELD_WDSP_QUERY = 5;
constexpr unsigned int REG_FIELD_WDSP_INFO = 6;
constexpr unsigned int REG_FIELD_TIME_SLOT = 7;

constexpr unsigned int REG_INDEX_NONE = 0xFFFFFFFF; // no row
constexpr unsigned int REG_ADDR_UNKNOWN = 0xFFFFFFFF;

/// The static table that turns UE version and chip kind into the base addresses of the register banks. Read only
/// after construction.
class CGuRegister
{
public:
    CGuRegister();
    virtual ~CGuRegister() = default;

    /// Row whose version equals the first eight characters of strVersion and whose chip kind equals strChipType
    /// ("ASIC", "FPGA"), the first one; REG_INDEX_NONE without one. Rows with a version of eleven characters are
    /// never found that way, which is deliberate: those platforms have no register service.
    unsigned int GetIndexValueByVersion(const std::string& strVersion, const std::string& strChipType) const;

    /// Address in a field (REG_FIELD_...) of a row. REG_ADDR_UNKNOWN for other fields and rows that don't exist; 0
    /// for an empty field.
    unsigned int GetAddrValueByIndex(unsigned int ulIndex, unsigned int ulField) const;

private:
    static REG_PAIR CreateElement(const char* s0, const char* s1, const char* s2, const char* s3, const char* s4,
                                  const char* s5, const char* s6, const char* s7);
    void InitRegAddr();

    std::vector<REG_PAIR> m_vecRegPair;
};
