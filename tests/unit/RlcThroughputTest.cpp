#include "data/gu/report/RlcThroughput.h"

#include "support/TestBytes.h"

#include <array>
#include <gtest/gtest.h>

namespace
{
struct Bearer
{
    unsigned char ucActive;
    unsigned char ucId;
    unsigned long long ullUlA, ullUlB;
    unsigned int ulUlC, ulUlD;
    unsigned long long ullDlA, ullDlB;
    unsigned int ulDlC, ulDlD, ulDlE;
};

/// An entry of 116 bytes.
Bytes Rb(const Bearer& stRb)
{
    return Join(Bytes{stRb.ucActive, stRb.ucId}, Fill(6, 0xEE), Le(stRb.ullUlA), Le(stRb.ullUlB), Le(stRb.ulUlC),
                Le(stRb.ulUlD), Fill(44, 0xEE), Le(stRb.ullDlA), Le(stRb.ullDlB), Le(stRb.ulDlC), Le(stRb.ulDlD),
                Le(stRb.ulDlE), Fill(12, 0xEE));
}

Bytes Payload()
{
    return Join(Rb({1, 5, 1000, 200, 30, 10, 0x1'0000'0800ULL, 400, 50, 20, 30}), Rb({0, 6, 1, 1, 1, 1, 1, 1, 1, 1, 1}),
                Rb({2, 7, 1, 1, 1, 1, 1, 1, 1, 1, 1}), Rb({1, 9, 3000, 600, 50, 10, 2048, 1200, 25, 5, 45}), Fill(232));
}
// 32-bit floats: 0.1 = 3DCCCCCD, 2.0 = 40000000, 75.0 = 42960000 and so on.
} // namespace

TEST(RlcThroughput, EntrySize)
{
    EXPECT_EQ(Payload().size(), 6U * 116);
}

TEST(RlcThroughput, Uplink)
{
    // (1000 + 3000) / 2 = 2000, (200 + 600) / 2 = 400, 20 / (20 + 80) = 0.2: a fraction
    EXPECT_EQ(Bytes(ByteView(RlcUlReport(Payload(), 2))), Hex("00 00 FA 44  00 00 C8 43  CD CC 4C 3E"));
}

TEST(RlcThroughput, Downlink)
{
    // (0x100000800 + 2048) / 2 = 0x80000800, as a float 2147485696 = 4F000008; (400 + 1200) / 2 = 800;
    // 75 / (25 + 75) * 100 = 75: in percent
    EXPECT_EQ(Bytes(ByteView(RlcDlReport(Payload(), 2))), Hex("08 00 00 4F  00 00 48 44  00 00 96 42"));
}

TEST(RlcThroughput, UplinkBearers)
{
    // 1000 / 4 = 250, 3000 / 4 = 750
    EXPECT_EQ(Bytes(ByteView(RbUlReport(Payload(), 4))),
              Hex("02 00 00 00  05 00 00 00 00 00 7A 43  09 00 00 00 00 80 3B 44"));
}

TEST(RlcThroughput, DownlinkBearersTakeTheLowWord)
{
    // 0x800 / 4 = 512, 2048 / 4 = 512
    EXPECT_EQ(Bytes(ByteView(RbDlReport(Payload(), 4))),
              Hex("02 00 00 00  05 00 00 00 00 00 00 44  09 00 00 00 00 00 00 44"));
}

TEST(RlcThroughput, UplinkBearersTakeTheWholeCounter)
{
    // 0x1'0000'0800 / 4 = 0x4000'0200 = 4E800004 as a float; its low word alone would give 512
    EXPECT_EQ(Bytes(ByteView(RbUlReport(Rb({1, 5, 0x1'0000'0800ULL, 0, 0, 0, 0, 0, 0, 0, 0}), 4))),
              Hex("01 00 00 00  05 00 00 00 04 00 80 4E"));
}

TEST(RlcThroughput, CountersAAndBAddUpTo64Bits)
{
    // A: 0x1'8000'0000 + 0x8000'0000 = 0x2'0000'0000, by 2 s 2^32 = 4F800000: neither the sum nor a counter is cut.
    // B: 0x2'C000'0000 + 0x4000'0000 = 0x3'0000'0000, by 2 s 1.5 * 2^32 = 4FC00000.
    constexpr unsigned long long A1 = 0x1'8000'0000ULL;
    constexpr unsigned long long A2 = 0x8000'0000ULL;
    constexpr unsigned long long B1 = 0x2'C000'0000ULL;
    constexpr unsigned long long B2 = 0x4000'0000ULL;
    const Bytes rates = Hex("00 00 80 4F  00 00 C0 4F  00 00 00 00");
    const Bytes up = Join(Rb({1, 1, A1, B1, 0, 0, 0, 0, 0, 0, 0}), Rb({1, 2, A2, B2, 0, 0, 0, 0, 0, 0, 0}));
    const Bytes down = Join(Rb({1, 1, 0, 0, 0, 0, A1, B1, 0, 0, 0}), Rb({1, 2, 0, 0, 0, 0, A2, B2, 0, 0, 0}));
    EXPECT_EQ(Bytes(ByteView(RlcUlReport(up, 2))), rates);
    EXPECT_EQ(Bytes(ByteView(RlcDlReport(down, 2))), rates);
}

TEST(RlcThroughput, OtherSumsHave32Bits)
{
    const struct
    {
        const char* pszName;
        std::array<unsigned int, 2> aulC, aulD;
        const char* pszRatio;
    } astUp[] = {
        {"C: 3", {0xFFFFFFFF, 4}, {1, 0}, "00 00 80 3E"},                       // 1 / (1 + 3) = 0.25
        {"D: 1", {3, 0}, {0xFFFFFFFF, 2}, "00 00 80 3E"},                       // the same
        {"D: 0", {3, 0}, {0x80000000, 0x80000000}, "00 00 00 00"},              // no D
        {"D + C: 0x40000000", {0x80000000, 0}, {0xC0000000, 0}, "00 00 40 40"}, // 3.0
    };
    for (const auto& stCase : astUp) {
        const Bytes payload = Join(Rb({1, 1, 0, 0, stCase.aulC[0], stCase.aulD[0], 0, 0, 0, 0, 0}),
                                   Rb({1, 2, 0, 0, stCase.aulC[1], stCase.aulD[1], 0, 0, 0, 0, 0}));
        EXPECT_EQ(Bytes(ByteView(RlcUlReport(payload, 1))), Join(Fill(8), Hex(stCase.pszRatio))) << stCase.pszName;
    }
    const struct
    {
        const char* pszName;
        std::array<unsigned int, 2> aulC, aulD, aulE;
        const char* pszRatio;
    } astDown[] = {
        {"C: 1", {0xFFFFFFFF, 2}, {1, 0}, {3, 0}, "00 00 C8 41"}, // 1 / (1 + 3) * 100 = 25
        {"D: 1", {1, 0}, {0xFFFFFFFF, 2}, {3, 0}, "00 00 C8 41"},
        {"E: 3", {1, 0}, {1, 0}, {0xFFFFFFFF, 4}, "00 00 C8 41"},
        {"D: 0", {1, 0}, {0x80000000, 0x80000000}, {3, 0}, "00 00 00 00"},
        {"D + E: 0x40000000", {0x20000000, 0}, {0xC0000000, 0}, {0x80000000, 0}, "00 00 48 42"}, // 50
    };
    for (const auto& stCase : astDown) {
        const Bytes payload = Join(Rb({1, 1, 0, 0, 0, 0, 0, 0, stCase.aulC[0], stCase.aulD[0], stCase.aulE[0]}),
                                   Rb({1, 2, 0, 0, 0, 0, 0, 0, stCase.aulC[1], stCase.aulD[1], stCase.aulE[1]}));
        EXPECT_EQ(Bytes(ByteView(RlcDlReport(payload, 1))), Join(Fill(8), Hex(stCase.pszRatio))) << stCase.pszName;
    }
}

TEST(RlcThroughput, NoActiveBearer)
{
    EXPECT_EQ(Bytes(ByteView(RlcUlReport(Fill(696), 1))), Fill(12));
    EXPECT_EQ(Bytes(ByteView(RlcDlReport(Fill(696), 1))), Fill(12));
    EXPECT_EQ(Bytes(ByteView(RbUlReport({}, 1))), Fill(4));
    EXPECT_EQ(Bytes(ByteView(RbDlReport({}, 1))), Fill(4));
}

TEST(RlcThroughput, RatioIsZeroWithoutD)
{
    const Bytes payload = Rb({1, 1, 0, 0, 30, 0, 0, 0, 50, 0, 30});
    EXPECT_EQ(Bytes(ByteView(RlcUlReport(payload, 1))), Fill(12));
    EXPECT_EQ(Bytes(ByteView(RlcDlReport(payload, 1))), Fill(12));
}

TEST(RlcThroughput, SixBearersAtMost)
{
    Bytes payload;
    for (int i = 0; i < 7; ++i)
        payload = Join(payload, Rb({1, 1, 10, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(RbUlReport(payload, 1).size(), 4U + 6 * 8);
    EXPECT_EQ(Bytes(Slice(ByteView(RlcUlReport(payload, 1)), 0, 4)), Hex("00 00 70 42")) << "60";
}
