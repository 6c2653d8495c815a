#include "data/gu/report/MsgProcessGdspAmr.h"

#include "support/GuReports.h"

namespace
{
using Amr = GuReports;

Bytes Counters(std::initializer_list<unsigned int> counters)
{
    Bytes bytes;
    for (const unsigned int ulCounter : counters)
        bytes = Join(bytes, Le(ulCounter));
    return bytes;
}
Bytes Setting(unsigned int ulCount)
{
    return Join(W(ulCount), Hex("EE EE"), WordsOf({0x0A, 0x0B, 0x0C, 0x0D}), WordsOf({2, 3, 4}), WordsOf({10, 20, 31}));
}
Bytes Usage(unsigned int ulCount, const Bytes& first, const Bytes& second)
{
    return Join(W(ulCount), Hex("EE EE"), WordsOf({0x0A, 0x0B, 0x0C, 0x0D}), first, second);
}
} // namespace

TEST_F(Amr, SettingOfFourModes)
{
    const Bytes expected =
        Join(Le(4U),                                                               //
             WordsOf({0x0A, 0x0A, 2, 10}), Hex("00 00 40 00"), F(6.0F),            // half of 0x00800000; (10 + 2) / 2
             WordsOf({0x0B, 0x0B, 3, 20}), F(5.0F), F(11.5F),                      //
             WordsOf({0x0C, 0x0C, 4, 31}), F(10.0F), F(17.5F),                     //
             WordsOf({0x0D, 0x0D, 0xFFFF, 0xFFFF}), F(15.5F), Hex("FF FF FF 7E")); // half of 0x7F7FFFFF
    Start(0xE589, 500);
    Start(0xE689, 500);
    Ind(0xE608, Setting(4));
    EXPECT_EQ(Report(0xE58B), expected);
    Ind(0xE608, Setting(4), 1);
    EXPECT_EQ(Report(0xE68B), expected);
}

TEST_F(Amr, SettingOfFewerModes)
{
    Start(0xE589, 500);
    Ind(0xE608, Setting(2));
    EXPECT_EQ(Report(0xE58B), Hex("02 00 00 00  0A 00 0A 00 02 00 0A 00 00 00 40 00 00 00 C0 40 "
                                  "0B 00 0B 00 03 00 14 00 00 00 A0 40 00 00 38 41"));
    Ind(0xE608, Setting(0));
    EXPECT_EQ(Report(0xE58B), Fill(4));
    Ind(0xE608, Hex("01 00 00 00"));
    EXPECT_EQ(Report(0xE58B), Join(Le(1U), Fill(8), Hex("00 00 40 00"), Fill(4))) << "what isn't there is 0";
}

TEST_F(Amr, MoreThanFourModes)
{
    Start(0xE589, 500);
    Start(0xE58C, 500);
    CMsgDisp& disp = *gu.Operation().GetTransMsgDisp();
    EXPECT_FALSE(disp.Process(GuMsg(0xE608, Setting(5), NextStamp()), 0xE608));
    EXPECT_FALSE(disp.Process(GuMsg(0xE60B, Usage(5, Fill(16), Fill(16)), NextStamp()), 0xE60B));
    EXPECT_TRUE(NoReport());
    EXPECT_TRUE(disp.Process(GuMsg(0xE608, Setting(4), NextStamp()), 0xE608));
    EXPECT_EQ(Report(0xE58B).size(), 68U);
    EXPECT_TRUE(disp.Process(GuMsg(0xE60B, Usage(4, Fill(16), Fill(16)), NextStamp()), 0xE60B));
    EXPECT_EQ(Report(0xE58E).size(), 52U);
}

TEST_F(Amr, UsageSumsOnlyItsModes)
{
    Start(0xE58C, 500);
    Ind(0xE60B, Usage(2, Counters({1, 3, 100, 100}), Counters({0, 0, 100, 100})));
    EXPECT_EQ(Report(0xE58E),
              Join(Le(2U), WordsOf({0x0A, 0x0A}), F(25.0F), F(0), WordsOf({0x0B, 0x0B}), F(75.0F), F(0)));
    Ind(0xE60B, Usage(3, Counters({1, 1, 1, 9}), Counters({0x80000000, 0x80000000, 0, 0})));
    EXPECT_EQ(Report(0xE58E), Join(Hex("03 00 00 00"), Hex("0A 00 0A 00 55 55 05 42"), F(50.0F),
                                   Hex("0B 00 0B 00 55 55 05 42"), F(50.0F), Hex("0C 00 0C 00 55 55 05 42"), F(0)));
}

TEST_F(Amr, StatReports)
{
    Start(0xE593, 500);
    Start(0xE590, 500);
    Ind(0xE60E, Join(Counters({1, 0, 0, 0, 0, 0, 0, 1}), Fill(32), Counters({1, 1, 2, 0, 0, 0, 0, 0}),
                     Counters({0, 0, 0, 0, 0, 0, 1, 3})));
    const auto reports = Reports({0xE595, 0xE592});
    ASSERT_EQ(reports.size(), 2U);
    EXPECT_EQ(reports[0], Join(Hex("00 00 00 00"), F(25), F(0), Hex("01 00 00 00"), F(25), F(0), //
                               Hex("02 00 00 00"), F(50), F(0), Hex("03 00 00 00"), F(0), F(0),  //
                               Hex("04 00 00 00"), F(0), F(0), Hex("05 00 00 00"), F(0), F(0),   //
                               Hex("06 00 00 00"), F(0), F(25), Hex("07 00 00 00"), F(0), F(75)));
    EXPECT_EQ(reports[1], Join(Hex("00 00 00 00"), F(50), F(0), Hex("01 00 00 00"), Fill(8), //
                               Hex("02 00 00 00"), Fill(8), Hex("03 00 00 00"), Fill(8),     //
                               Hex("04 00 00 00"), Fill(8), Hex("05 00 00 00"), Fill(8),     //
                               Hex("06 00 00 00"), Fill(8), Hex("07 00 00 00"), F(50), F(0)));
    Ind(0xE60E, Fill(4, 1));
    EXPECT_EQ(Reports({0xE595, 0xE592}).size(), 2U) << "any payload will do";
}
