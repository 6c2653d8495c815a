#include "data/gu/reg/RegTables.h"

#include "data/gu/reg/HsdschTbs.h"
#include "data/gu/reg/RegStruct.h"
#include "support/RegFixture.h"

#include <cmath>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <vector>

namespace
{
using Offsets = std::vector<unsigned int>;

template <class Table> Offsets All(const Table& table)
{
    return {table.begin(), table.end()};
}
template <class Table> Offsets Part(const Table& table, size_t szFirst, size_t szCount)
{
    return {table.begin() + static_cast<std::ptrdiff_t>(szFirst),
            table.begin() + static_cast<std::ptrdiff_t>(szFirst + szCount)};
}

RegStruct Regs(const std::vector<unsigned int>& addrs, const std::vector<unsigned char>& values)
{
    return {addrs, values};
}
} // namespace

TEST(RegTables, Decoding)
{
    ASSERT_EQ(g_aulDecodingStatistics.size(), 92U);
    EXPECT_EQ(Part(g_aulDecodingStatistics, 0, 46),
              (Offsets{0x8154, 0x82B0, 0x82B4, 0x82B8, 0x82D8,                         //
                       0x8700, 0x8704, 0x8708, 0x870C, 0x8710, 0x8714, 0x8718, 0x871C, //
                       0x8720, 0x8724, 0x8728, 0x872C, 0x8730, 0x8734, 0x8738, 0x873C, //
                       0x8740, 0x8744, 0x8748, 0x874C, 0x8750, 0x8754, 0x8758, 0x875C, //
                       0x8760, 0x8764, 0x8768, 0x876C, 0x8770, 0x8774, 0x8778, 0x877C, //
                       0x8780, 0x8784, 0x8788, 0x878C, 0x8790, 0x8794, 0x8798, 0x879C, 0x8070}));
    for (size_t i = 0; i < 46; ++i)
        EXPECT_EQ(g_aulDecodingStatistics[46 + i], i == 4 ? 0x82D8U : g_aulDecodingStatistics[i] + 0x80000) << i;
}

TEST(RegTables, DecodingV9)
{
    ASSERT_EQ(g_aulDecodingStatistics_V9.size(), 92U);
    EXPECT_EQ(Part(g_aulDecodingStatistics_V9, 0, 46),
              (Offsets{0x9154, 0x92B0, 0x92B4, 0x92B8, 0x92D8,                         //
                       0x9700, 0x9704, 0x9708, 0x970C, 0x9710, 0x9714, 0x9718, 0x971C, //
                       0x9730, 0x9734, 0x9738, 0x973C, 0x9740, 0x9744, 0x9748, 0x974C, //
                       0x9760, 0x9764, 0x9768, 0x976C, 0x9770, 0x9774, 0x9778, 0x977C, //
                       0x9790, 0x9794, 0x9798, 0x979C, 0x97A0, 0x97A4, 0x97A8, 0x97AC, //
                       0x97C0, 0x97C4, 0x97C8, 0x97CC, 0x97D0, 0x97D4, 0x97D8, 0x97DC, 0x9070}));
    for (size_t i = 0; i < 46; ++i)
        EXPECT_EQ(g_aulDecodingStatistics_V9[46 + i], g_aulDecodingStatistics_V9[i] + 0x20000) << i;
}

TEST(RegTables, Link)
{
    ASSERT_EQ(g_aulLinkStatistics.size(), 116U);
    EXPECT_EQ(Part(g_aulLinkStatistics, 0, 45), Part(g_aulDecodingStatistics, 0, 45));
    EXPECT_EQ(Part(g_aulLinkStatistics, 45, 13), (Offsets{0x8240, 0x8244, 0x8248, 0x824C, 0x8250, 0x8254, 0x8258,
                                                          0x8708, 0x8728, 0x8748, 0x8768, 0x8788, 0x8070}));
    for (size_t i = 0; i < 58; ++i)
        EXPECT_EQ(g_aulLinkStatistics[58 + i], i == 4 ? 0x82D8U : g_aulLinkStatistics[i] + 0x80000) << i;
}

TEST(RegTables, LinkV9HasOneOffsetOutOfThePattern)
{
    ASSERT_EQ(g_aulLinkStatistics_V9.size(), 116U);
    EXPECT_EQ(Part(g_aulLinkStatistics_V9, 0, 45), Part(g_aulDecodingStatistics_V9, 0, 45));
    EXPECT_EQ(Part(g_aulLinkStatistics_V9, 45, 13), (Offsets{0x9240, 0x9244, 0x9248, 0x924C, 0x9250, 0x9254, 0x9258,
                                                             0x9708, 0x8738, 0x9768, 0x9798, 0x97C8, 0x9070}));
    for (size_t i = 0; i < 58; ++i)
        EXPECT_EQ(g_aulLinkStatistics_V9[58 + i], g_aulLinkStatistics_V9[i] + 0x20000) << i;
    EXPECT_EQ(g_aulLinkStatistics_V9[58 + 53], 0x28738U);
}

TEST(RegTables, Cqi)
{
    EXPECT_EQ(All(g_aulHsdpaCqi),
              (Offsets{0x71F0,  0x7120,  0x74F0,  0x75F0,  0x7900,  0x7974,  0x79E8,  0x7A5C,  0x7AD0,  0x7950,
                       0x79C4,  0x7A38,  0x7AAC,  0x7C20,  0x871F0, 0x87120, 0x874F0, 0x875F0, 0x87900, 0x87974,
                       0x879E8, 0x87A5C, 0x87AD0, 0x87950, 0x879C4, 0x87A38, 0x87AAC, 0x87C20}));
    EXPECT_EQ(All(g_aulHsdpaCqi_V9),
              (Offsets{0x82B0,  0x8120,  0x84F0,  0x85F0,  0x8C00,  0x8C40,  0x8C80,  0x8CC0,  0x8D00,  0x7950,
                       0x79C4,  0x7A38,  0x7AAC,  0x7C20,  0x282B0, 0x28120, 0x284F0, 0x285F0, 0x28C00, 0x28C40,
                       0x28C80, 0x28CC0, 0x28D00, 0x27950, 0x279C4, 0x27A38, 0x27AAC, 0x27C20}));
}

TEST(RegTables, Configuration)
{
    const Offsets pairs{0x4220, 0x4200, 0x4224, 0x4204, 0x4228, 0x4208, 0x422C, 0x420C, 0x4230, 0x4210, 0x4234, 0x4214};
    EXPECT_EQ(Part(g_aulDschConfiguration, 0, 2), (Offsets{0x8074, 0x7100}));
    EXPECT_EQ(Part(g_aulDschConfiguration, 2, 12), pairs);
    EXPECT_EQ(Part(g_aulDschConfiguration_V9, 0, 2), (Offsets{0x9074, 0x7100}));
    EXPECT_EQ(Part(g_aulDschConfiguration_V9, 2, 12), pairs);
    EXPECT_EQ(All(g_aulScchConfiguration), (Offsets{0x7108, 0x7110, 0x7114, 0x7118, 0x711C}));
    EXPECT_EQ(All(g_aulScchConfiguration_V9), (Offsets{0x8108, 0x8110, 0x8114, 0x8118, 0x811C}));
    EXPECT_EQ(All(g_aulDpcchConfiguration), (Offsets{0xC074, 0xC078, 0xC040}));
}

TEST(RegTables, PowerControl)
{
    ASSERT_EQ(g_aulPowerControlSir.size(), 62U);
    EXPECT_EQ(Part(g_aulPowerControlSir, 0, 31),
              (Offsets{0x4574, 0x601C, 0x6040, 0x6064, 0x6088, 0x60AC, 0x60D0, 0x60F4, 0x6118, 0x613C, 0x6160,
                       0x6184, 0x61A8, 0x61CC, 0x61F0, 0x6214, 0x6018, 0x603C, 0x6060, 0x6084, 0x60A8, 0x60CC,
                       0x60F0, 0x6114, 0x6138, 0x615C, 0x6180, 0x61A4, 0x61C8, 0x61EC, 0x6210}));
    for (size_t i = 0; i < 31; ++i)
        EXPECT_EQ(g_aulPowerControlSir[31 + i], g_aulPowerControlSir[i] + 0x80000) << i;
    EXPECT_EQ(All(g_aulPowerControlPower),
              (Offsets{0xC008, 0x6020, 0x60D4, 0x6188, 0x6044, 0x60F8, 0x61AC, 0x6068, 0x611C,  0x61D0,
                       0x608C, 0x6140, 0x61F4, 0x60B0, 0x6164, 0x6218, 0x1A2C, 0x1A30, 0x81A2C, 0x81A30}));
    EXPECT_EQ(All(g_aulPowerControlTpc), (Offsets{0xC008, 0x621C, 0x6220, 0x6224, 0xCA8C, 0x8621C, 0x86220, 0x86224}));
}

TEST(RegTables, Hsupa)
{
    EXPECT_EQ(All(g_aulHsupaLinkThroughput),
              (Offsets{0xC000, 0xCA8C, 0x38,  0x218, 0x3F8, 0x5D8, 0x7B8, 0x44,  0x224, 0x404, 0x5E4,
                       0x7C4,  0x48,   0x228, 0x408, 0x5E8, 0x7C8, 0x4C,  0x22C, 0x40C, 0x5EC, 0x7CC}));
    EXPECT_EQ(All(g_aulHsupaLinkQuality), (Offsets{0xC000, 0xCA8C, 0x28,  0x208, 0x3E8, 0x5C8, 0x7A8, 0x38,  0x218,
                                                   0x3F8,  0x5D8,  0x7B8, 0x44,  0x224, 0x404, 0x5E4, 0x7C4, 0x7C,
                                                   0x254,  0x434,  0x614, 0x7F4, 0x124, 0x304, 0x4E4, 0x6C4, 0x8A4}));
    EXPECT_EQ(All(g_aulHsupaGrant),
              (Offsets{0xC000, 0xCA8C, 0x08,  0x1E8, 0x3C8, 0x5A8, 0x788, 0x0C,  0x1EC, 0x3CC, 0x5AC, 0x78C, 0x10,
                       0x1F0,  0x3D0,  0x5B0, 0x790, 0x14,  0x1F4, 0x3D4, 0x5B4, 0x794, 0x24,  0x204, 0x3E4, 0x5C4,
                       0x7A4,  0x20,   0x200, 0x3E0, 0x5C0, 0x7A0, 0x110, 0x2F0, 0x4D0, 0x6B0, 0x890}));
}

TEST(HsdschTbs, EverySizeIsTheOneOfTheStandard)
{
    std::ifstream file(VEX_TEST_DATA_DIR "/hsdsch_tbs.csv");
    std::map<char, std::vector<unsigned int>> sizes; // by table, from k = 1 on
    for (std::string strLine; std::getline(file, strLine);) {
        if (strLine.starts_with('#') || strLine.starts_with("table,"))
            continue;
        char cTable = 0;
        char cComma = 0;
        size_t szK = 0;
        unsigned int ulBits = 0;
        std::istringstream row(strLine);
        ASSERT_TRUE(row >> cTable >> cComma >> szK >> cComma >> ulBits) << strLine;
        sizes[cTable].push_back(ulBits);
        ASSERT_EQ(szK, sizes[cTable].size()) << strLine;
    }
    const auto Compare = [](const auto& table, const std::vector<unsigned int>& expected) {
        ASSERT_EQ(table.size(), expected.size());
        for (size_t i = 0; i < table.size(); ++i) {
            EXPECT_EQ(table[i].k, static_cast<int>(i + 1));
            EXPECT_EQ(table[i].tbs, expected[i]) << "k = " << i + 1;
        }
    };
    Compare(g_arrTableTbsize_LessA, sizes['A']);
    Compare(g_arrTableTbsize_LessB, sizes['B']);
}

// The rules that generate the sizes: 125 + 12 k below k = 40, else floor(296 (2085/2048)^k), and
// 8 (14 + k) below k = 40, else 8 floor(27 (5274/27)^(k/295)).
TEST(HsdschTbs, SizesFollowTheRulesOfTheStandard)
{
    ASSERT_EQ(g_arrTableTbsize_LessA.size(), 254U);
    for (int k = 1; k <= 254; ++k) {
        const cKOI_STRU& stPair = g_arrTableTbsize_LessA[static_cast<size_t>(k - 1)];
        EXPECT_EQ(stPair.k, k);
        const double dSize = k < 40 ? 125 + 12 * k : std::floor(296 * std::pow(2085.0 / 2048.0, k));
        EXPECT_EQ(stPair.tbs, static_cast<unsigned int>(dSize)) << k;
    }
    ASSERT_EQ(g_arrTableTbsize_LessB.size(), 295U);
    for (int k = 1; k < 295; ++k) {
        const cKOI_STRU& stPair = g_arrTableTbsize_LessB[static_cast<size_t>(k - 1)];
        EXPECT_EQ(stPair.k, k);
        const double dSize = k < 40 ? 8 * (14 + k) : 8 * std::floor(27 * std::pow(5274.0 / 27.0, k / 295.0));
        EXPECT_EQ(stPair.tbs, static_cast<unsigned int>(dSize)) << k;
    }
    EXPECT_EQ(g_arrTableTbsize_LessA.back().tbs, 27952U);
    EXPECT_EQ(g_arrTableTbsize_LessB.back().tbs, 42192U);
    EXPECT_EQ(g_arrTableTbsize_LessB.back().k, 295);
}

// 16777217 and 33554435 aren't floats; as floats they give 16777216 / 33554436 = 0.49999994. 3538501297 / 4275361147 =
// (27771315 - 1 / 4275361147) / 2^25, just below the middle of the floats 13885657 / 2^24 and 13885658 / 2^24, by a
// part of 8E-18: as a double it is the middle, and that rounds to the even 13885658.
TEST(RegPeriodMsg, QuotientsAreDoublesRoundedOnceToFloats)
{
    const struct
    {
        unsigned int ulA, ulB;
        float fQuotient;
    } aRow[] = {
        {0, 0, 0},
        {7, 0, 0},
        {0, 7, 0},
        {1, 3, 11184811 * 0x1p-25F},
        {0xFFFFFFFF, 1, 4294967296.0F},
        {16777217, 33554435, 0.5F},
        {3538501297, 4275361147, 13885658 * 0x1p-24F},
    };
    for (const auto& stRow : aRow)
        EXPECT_EQ(F(CPeriodRegMsgFromUe::CalcuDivision(stRow.ulA, stRow.ulB)), F(stRow.fQuotient))
            << stRow.ulA << " / " << stRow.ulB;
}

TEST(RegStruct, GetBitValue)
{
    EXPECT_EQ(GetBitValue(0xFFFFFFFF, 0, 31), 0xFFFFFFFFU);
    EXPECT_EQ(GetBitValue(0x80000000, 31, 31), 1U);
    EXPECT_EQ(GetBitValue(0x00000001, 0, 0), 1U);
    EXPECT_EQ(GetBitValue(0xABCD1234, 8, 15), 0x12U);
    EXPECT_EQ(GetBitValue(0xABCD1234, 16, 31), 0xABCDU);
    EXPECT_EQ(GetBitValue(0xFFFFFFFF, 9, 19), 0x7FFU);
    EXPECT_EQ(GetBitValue(0xFFF001FF, 9, 19), 0U);
}

TEST(RegStruct, GetRegValueFindsEachAddressOfAnAscendingList)
{
    for (unsigned int ulSize = 0; ulSize < 20; ++ulSize) {
        std::vector<unsigned int> addrs;
        std::vector<unsigned char> values(4 * ulSize);
        for (unsigned int i = 0; i < ulSize; ++i) {
            addrs.push_back(100 + 2 * i);
            StoreLe<uint32_t>(values, 4 * i, 7000 + i);
        }
        unsigned int ulValue = 0;
        for (unsigned int i = 0; i < ulSize; ++i) {
            EXPECT_TRUE(GetRegValue(Regs(addrs, values), 100 + 2 * i, ulValue));
            EXPECT_EQ(ulValue, 7000 + i);
            EXPECT_FALSE(GetRegValue(Regs(addrs, values), 101 + 2 * i, ulValue));
            EXPECT_EQ(ulValue, 0U);
        }
        EXPECT_FALSE(GetRegValue(Regs(addrs, values), 99, ulValue));
        EXPECT_FALSE(GetRegValue(Regs(addrs, values), 0xFFFFFFFF, ulValue));
    }
}

// Size 5: the middles are 2, then (0 + 2) / 2 = 1 or (2 + 5) / 2 = 3. Of the two 20s the one at 2 is met first; 50,
// out of its place at 0, is never met, since 30 at 2 would have to be above it.
TEST(RegStruct, BisectionIsTheSearchAlsoWhereTheListIsNotAscending)
{
    const std::vector<unsigned int> twice = {10, 20, 20, 30, 40};
    EXPECT_EQ(FindReg(twice, 20), 2U);
    const std::vector<unsigned int> wrong = {50, 20, 30, 40, 60};
    EXPECT_EQ(FindReg(wrong, 50), REG_NOT_FOUND);
    EXPECT_EQ(FindReg(wrong, 20), 1U);
}

TEST(RegStruct, ValuesBeyondTheMessageAreZero)
{
    const std::vector<unsigned int> addrs = {1, 2, 3};
    const std::vector<unsigned char> values = {0x11, 0x22, 0x33, 0x44, 0x55};
    unsigned int ulValue = 9;
    EXPECT_TRUE(GetRegValue(Regs(addrs, values), 2, ulValue));
    EXPECT_EQ(ulValue, 0x55U);
    EXPECT_TRUE(GetRegValue(Regs(addrs, values), 3, ulValue));
    EXPECT_EQ(ulValue, 0U);
}
