#include "data/gu/reg/RegPowerControl.h"

#include "support/RegFixture.h"

#include <gtest/gtest.h>

TEST(RegPowerControl, UplinkCommands)
{
    EXPECT_EQ(UlTpcCal(0x55555555, 8), 8);
    EXPECT_EQ(UlTpcCal(0x55555555, 7), 7);
    EXPECT_EQ(UlTpcCal(0xFFFFFFFF, 8), -8);
    EXPECT_EQ(UlTpcCal(0xAAAAAAAA, 8), 0);
    EXPECT_EQ(UlTpcCal(0, 8), 0);
    EXPECT_EQ(UlTpcCal(0x00000004, 1), 0) << "the second group isn't looked at";
    EXPECT_EQ(UlTpcCal(0b11'01'01'10'00'01, 6), 2); // +1, 0, 0, +1, +1, -1
}

TEST(RegPowerControl, DownlinkCommands)
{
    EXPECT_EQ(DlTpcCal(0), -15);
    EXPECT_EQ(DlTpcCal(0x7FFF), 15);
    EXPECT_EQ(DlTpcCal(0xFFFF8000), -15) << "15 bits";
    EXPECT_EQ(DlTpcCal(0x00000007), -9); // 3 up, 12 down
}

// Set 0: all 15 groups at 1, downlink all 1. Set 1: all at 3, downlink all 0. Entry 0 isn't read.
TEST(RegPowerControl, Tpc)
{
    CStatBench<CRegPowerControlTpc> bench;
    bench.Reg(0xC008) = 0xFFFFFFFF;
    bench.Reg(0x621C) = 0x5555;
    bench.Reg(0x6220) = 0x1555;
    bench.Reg(0x6224) = 0x7FFF;
    bench.Reg(0x8621C) = 0xFFFF;
    bench.Reg(0x86220) = 0x3FFF;
    EXPECT_EQ(bench.Sample(77), Hex("02 00 00 00  0F 00 00 00  0F 00 00 00  F1 FF FF FF  F1 FF FF FF"));
    EXPECT_EQ(bench.TimeStamp(), 77U);
    bench.Regs().erase(WBBP + 0xC008);
    bench.Reg(0x6224) = 0;
    EXPECT_EQ(bench.Sample(), Hex("02 00 00 00  0F 00 00 00  F1 FF FF FF  F1 FF FF FF  F1 FF FF FF"));
    bench.Regs().erase(WBBP + 0x86224);
    bench.Reg(0x6224) = 0x7FFF;
    EXPECT_EQ(bench.Sample(), Hex("02 00 00 00  0F 00 00 00  F1 FF FF FF  F1 FF FF FF  F1 FF FF FF"))
        << "a missing register leaves the result";
}

TEST(RegPowerControl, PowerFields)
{
    EXPECT_EQ(SetPower(0), 0.0F);
    EXPECT_EQ(SetPower(0x7FF << 9), -0.125F) << "-1";
    EXPECT_EQ(SetPower(0x400 << 9), -128.0F) << "0x400 is negative here";
    EXPECT_EQ(SetPower(0x3FF << 9), 127.875F);
    EXPECT_EQ(SetPower(0xFFF001FF), 0.0F) << "only bits 9 to 19";
    EXPECT_EQ(SlotPower(0x400), 1024) << "0x400 is positive here";
    EXPECT_EQ(SlotPower(0x401), -1023);
    EXPECT_EQ(SlotPower(0x7FF), -1);
    EXPECT_EQ(SlotPower(0xFFFFF800 | 5), 5) << "only bits 0 to 10";
}

// Sets: 8 / 8 = 1 and -1 / 8; 16 / 8 = 2 and 0. Slots: 15 x 30 = 450, / 10 / 15 = 3.
TEST(RegPowerControl, Power)
{
    CStatBench<CRegPowerControlPower> bench;
    bench.Reg(0x1A2C) = 8 << 9;
    bench.Reg(0x1A30) = 0x7FF << 9;
    bench.Reg(0x81A2C) = 16 << 9;
    for (const unsigned int ulOffset : {0x6020U, 0x60D4U, 0x6188U, 0x6044U, 0x60F8U, 0x61ACU, 0x6068U, 0x611CU, 0x61D0U,
                                        0x608CU, 0x6140U, 0x61F4U, 0x60B0U, 0x6164U, 0x6218U})
        bench.Reg(ulOffset) = 30;
    const auto Result = [](float fAverage) { return LeWords({F(fAverage), 2, F(1), F(-0.125F), F(2), F(0)}); };
    bench.Reg(0xC008) = 1;
    EXPECT_EQ(bench.Sample(), Result(3));
    bench.Reg(0x6218) = 0x7FF; // 14 x 30 - 1 = 419: / 10 = 41.9, / 15 = 2.7933333
    EXPECT_EQ(bench.Sample(), Result(2.7933333F));
    bench.Reg(0xC008) = 0;
    EXPECT_EQ(bench.Sample(), Result(0)) << "another state";
    bench.Regs().erase(WBBP + 0xC008);
    EXPECT_EQ(bench.Sample(), Result(2.7933333F)) << "no state counts as active";
    bench.Regs().erase(WBBP + 0x6164);
    bench.Reg(0x1A2C) = 0;
    EXPECT_EQ(bench.Sample(), Result(2.7933333F)) << "a missing slot abandons the result";
    bench.Reg(0xC008) = 2;
    EXPECT_EQ(bench.Sample(), LeWords({F(0), 2, F(0), F(-0.125F), F(2), F(0)})) << "slots aren't needed in this state";
    bench.Regs().erase(WBBP + 0x81A30);
    bench.Reg(0x1A2C) = 8 << 9;
    EXPECT_EQ(bench.Sample(), LeWords({F(0), 2, F(0), F(-0.125F), F(2), F(0)})) << "a missing set word too";
}

// Set 0: 15 slots of 1000 / 10: 20 dB each, 300 / 15 = 20. Target 12800 / 128 = 100: 20 dB.
// Set 1: three slots of 1000 / 1: 90 / 15 = 6; one with a noise of 0 adds nothing. Target 0 stays 0.
TEST(RegPowerControl, Sir)
{
    CStatBench<CRegPowerControlSir> bench;
    for (unsigned int i = 0; i < 15; ++i) {
        bench.Reg(0x601C + 0x24 * i) = 0xFFFF0000 | 1000; // signal: bits 0 to 15
        bench.Reg(0x6018 + 0x24 * i) = 0xFFFC0000 | 10;   // noise: bits 0 to 17
    }
    bench.Reg(0x4574) = 0xABCD0000 | 12800;
    for (unsigned int i = 0; i < 3; ++i) {
        bench.Reg(0x8601C + 0x24 * i) = 1000;
        bench.Reg(0x86018 + 0x24 * i) = 1;
    }
    bench.Reg(0x8601C + 0x24 * 5) = 1000;
    EXPECT_EQ(bench.Sample(), LeWords({2, F(20), F(20), F(6), F(0)}));
    bench.Regs().erase(WBBP + 0x86018);
    bench.Reg(0x4574) = 0;
    EXPECT_EQ(bench.Sample(), LeWords({2, F(20), F(20), F(6), F(0)})) << "a missing register leaves the result";
}

TEST(RegPowerControl, SirOfNothing)
{
    CStatBench<CRegPowerControlSir> bench;
    for (unsigned int i = 0; i < 15; ++i)
        bench.Reg(0x601C + 0x24 * i) = 1000;
    EXPECT_EQ(bench.Sample(), LeWords({2, F(0), F(0), F(0), F(0)})) << "all noise words 0";
}

// The noise has 18 bits: 10 / 100000 (0x186A0) is -40 dB in each slot.
TEST(RegPowerControl, SirBelowANoiseOfMoreThan16Bits)
{
    CStatBench<CRegPowerControlSir> bench;
    for (unsigned int i = 0; i < 15; ++i) {
        bench.Reg(0x601C + 0x24 * i) = 10;
        bench.Reg(0x6018 + 0x24 * i) = 100000;
    }
    EXPECT_EQ(bench.Sample(), LeWords({2, F(-40), F(0), F(0), F(0)}));
}

TEST(RegPowerControl, SirTarget)
{
    EXPECT_EQ(SirTarget(128), 0.0F);
    EXPECT_EQ(SirTarget(1280), 10.0F);
    EXPECT_EQ(SirTarget(0), 0.0F);
    EXPECT_EQ(SirTarget(0x10000), 0.0F) << "bits 0 to 15";
    // 64 / 128: 10 log10(0.5) = -3.0103. 1 / 128: -21.0721.
    EXPECT_EQ(SirTarget(64), -3.0103F);
    EXPECT_EQ(SirTarget(1), -21.0721F);
}
