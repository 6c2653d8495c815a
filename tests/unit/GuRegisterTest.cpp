#include "data/gu/reg/GuRegister.h"

#include <gtest/gtest.h>

TEST(GuRegister, EveryRowOfEightCharactersIsFound)
{
    struct
    {
        const char* pszVersion;
        const char* pszKind;
        unsigned int ulIndex;
        unsigned int ulWbbp;
    } const aRow[] = {
        {"MAPLE-20", "ASIC", 12, 0x20900000}, {"MAPLE-20", "FPGA", 13, 0x50900000},
        {"PLANE-10", "ASIC", 14, 0xFD900000}, {"PLANE-10", "FPGA", 15, 0x50900000},
        {"CEDAR-03", "ASIC", 16, 0xFD900000}, {"CEDAR-03", "FPGA", 17, 0x50900000},
        {"ROWAN-30", "ASIC", 18, 0xE1900000}, {"ROWAN-30", "FPGA", 19, 0xE1900000},
        {"OLIVE-10", "ASIC", 20, 0xFD900000}, {"OLIVE-10", "FPGA", 21, 0x5D900000},
    };
    const CGuRegister reg;
    for (const auto& stRow : aRow) {
        SCOPED_TRACE(std::string(stRow.pszVersion) + " " + stRow.pszKind);
        EXPECT_EQ(reg.GetIndexValueByVersion(stRow.pszVersion, stRow.pszKind), stRow.ulIndex);
        EXPECT_EQ(reg.GetAddrValueByIndex(stRow.ulIndex, REG_FIELD_WBBP), stRow.ulWbbp);
        EXPECT_EQ(reg.GetAddrValueByIndex(stRow.ulIndex, REG_FIELD_GBBP), 0U);
        EXPECT_EQ(reg.GetAddrValueByIndex(stRow.ulIndex, REG_FIELD_WDSP_QUERY), 0xFFFFFFFFU);
        EXPECT_EQ(reg.GetAddrValueByIndex(stRow.ulIndex, REG_FIELD_WDSP_INFO), 0xFFFFFFFFU);
        EXPECT_EQ(reg.GetAddrValueByIndex(stRow.ulIndex, REG_FIELD_TIME_SLOT), 0xFFFFFFFFU);
    }
}

TEST(GuRegister, AddressesOfTheOlderRows)
{
    const unsigned int aaulAddr[12][4] = {
        {0x202C0000, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF}, {0x202C0000, 0x20307D74, 0x20307D74, 0x20307D74},
        {0x202C0000, 0x20307D74, 0x40000000, 0x40000000}, {0x90400000, 0x90397D74, 0x90397D74, 0x90397D74},
        {0x202C0000, 0x20307D74, 0x201000F0, 0x201000DC}, {0x90400000, 0x90397D74, 0x90397E00, 0x90397D74},
        {0x202C0000, 0x201000D4, 0x201000F0, 0x201000DC}, {0x90400000, 0x90397D74, 0x90397E00, 0x90397D7C},
        {0x20200000, 0x201000E8, 0x20100104, 0x201000F0}, {0x5E200000, 0x5E1000E8, 0x5E100104, 0x5E1000F0},
        {0x20200000, 0x201000E8, 0x20100104, 0x201000F0}, {0x5E200000, 0x5E1000E8, 0x5E100104, 0x5E1000F0},
    };
    const CGuRegister reg;
    for (unsigned int i = 0; i < 12; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(reg.GetAddrValueByIndex(i, 3), aaulAddr[i][0]);
        EXPECT_EQ(reg.GetAddrValueByIndex(i, 4), 0U) << "the GSM bank is dropped on the way in";
        EXPECT_EQ(reg.GetAddrValueByIndex(i, 5), aaulAddr[i][1]);
        EXPECT_EQ(reg.GetAddrValueByIndex(i, 6), aaulAddr[i][2]);
        EXPECT_EQ(reg.GetAddrValueByIndex(i, 7), aaulAddr[i][3]);
    }
}

TEST(GuRegister, OnlyTheFirstEightCharactersOfAVersionCount)
{
    const CGuRegister reg;
    EXPECT_EQ(reg.GetIndexValueByVersion("CEDAR-03C10", "FPGA"), 17U);
    for (const char* pszVersion :
         {"ALDER-01-A1", "ALDER-02-A1", "BIRCH-01-A1", "BIRCH-01-A2", "CEDAR-01-A1", "CEDAR-02-A0", "MAPLE-01-A1"})
        EXPECT_EQ(reg.GetIndexValueByVersion(pszVersion, "ASIC"), REG_INDEX_NONE) << pszVersion;
    for (const char* pszVersion : {"CEDAR-30", "MAPLE-02", "ROWAN-03", "OLIVE-01", "PLANE-01"})
        EXPECT_EQ(reg.GetIndexValueByVersion(pszVersion, "ASIC"), REG_INDEX_NONE) << pszVersion;
}

TEST(GuRegister, WhatMatchesNoRow)
{
    const CGuRegister reg;
    EXPECT_EQ(reg.GetIndexValueByVersion("", "ASIC"), REG_INDEX_NONE);
    EXPECT_EQ(reg.GetIndexValueByVersion("CEDAR-03", ""), REG_INDEX_NONE);
    EXPECT_EQ(reg.GetIndexValueByVersion("CEDAR-0", "ASIC"), REG_INDEX_NONE);
    EXPECT_EQ(reg.GetIndexValueByVersion("CEDAR-03", "PC"), REG_INDEX_NONE);
    EXPECT_EQ(reg.GetIndexValueByVersion("CEDAR-03", "FPGA "), REG_INDEX_NONE);
}

TEST(GuRegister, FieldsThatAreNoAddress)
{
    const CGuRegister reg;
    for (const unsigned int ulField : {0U, 1U, 2U, 8U, 0xFFFFFFFFU})
        EXPECT_EQ(reg.GetAddrValueByIndex(17, ulField), 0xFFFFFFFFU) << ulField;
    EXPECT_EQ(reg.GetAddrValueByIndex(22, 3), 0xFFFFFFFFU);
    EXPECT_EQ(reg.GetAddrValueByIndex(REG_INDEX_NONE, 3), 0xFFFFFFFFU);
}
