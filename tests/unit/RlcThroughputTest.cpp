#include "data/gu/RlcThroughput.h"

#include "support/TestBytes.h"

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
