#include "data/gu/report/MsgProcessGas.h"

#include "support/GuReports.h"

namespace
{
using Gas = GuReports;
using Patches = std::initializer_list<std::pair<size_t, unsigned int>>;

/// Payload of an indication: a gap, the kind, and a body whose word n is 0x1000 + n but for the patches.
Bytes Road(unsigned int ulKind, Patches patches = {})
{
    Bytes payload = Join(Hex("EE EE"), W(ulKind));
    for (unsigned int n = 0; n < 660; ++n)
        payload = Join(payload, W(0x1000 + n));
    for (const auto& [szWord, ulValue] : patches)
        StoreLe<uint16_t>(payload, 4 + 2 * szWord, static_cast<uint16_t>(ulValue));
    return payload;
}
Bytes Text(const std::string& strText)
{
    return Bytes(AsBytes(strText));
}
Bytes GroupReq(unsigned int ulSwitch, unsigned int ulGroup, unsigned int ulPid = 128)
{
    return TransReq(0xA02C, ulPid, WordsOf({ulSwitch, 2, 500, ulGroup}));
}
} // namespace

TEST_F(Gas, MeasurementResult)
{
    for (unsigned short usModem = 0; usModem < 2; ++usModem) {
        const auto Id = [usModem](unsigned int ulId) { return static_cast<unsigned short>(ulId + usModem * 0x100U); };
        for (const unsigned short usReq : Words{0xE500, 0xE536, 0xE526, 0xE533})
            Start(Id(usReq), 500);
        Ind(0xA02E, Road(0, {{20, 2}, {74, 0xFFFF}}), usModem);
        const auto reports = Reports({Id(0xE502), Id(0xE538), Id(0xE528), Id(0xE535)});
        ASSERT_EQ(reports.size(), 4U);
        // 4106 / 4107 * 10000 = 9997.5 and 4108 / 4109 * 10000 = 9997.5
        EXPECT_EQ(reports[0], WordsOf({0x1003, 0x1004, 0x1005, 0x1006, 0x1007, 2, 0x1019, 0x1021, 0x1029, 0x1031,
                                       0x1039, 0x1041, 0x1009, 0x1008, 9997, 9997}));
        EXPECT_EQ(reports[1],
                  Join(WordsOf({0x1000, 0x1002, 0x1001, 0x1005, 0x1004, 0x1003, 0x100E, 0x100F, 0x1010, 0x1011}),
                       Le(2U), WordsOf({0x1016, 0x1018, 0x1017, 0x1019, 0x101A, 0x101B, 0x101C, 0x101D}),
                       WordsOf({0x101E, 0x1020, 0x101F, 0x1021, 0x1022, 0x1023, 0x1024, 0x1025})));
        EXPECT_EQ(reports[2], Hex("15 10 00 00  46 10 47 10 48 10 00 00 00 00 49 10"));
        EXPECT_EQ(reports[3], Hex("12 10 13 10"));
    }
}

TEST_F(Gas, ServingCellParameters)
{
    for (unsigned short usModem = 0; usModem < 2; ++usModem) {
        const auto Id = [usModem](unsigned int ulId) { return static_cast<unsigned short>(ulId + usModem * 0x100U); };
        for (const unsigned short usReq : Words{0xE51D, 0xE520, 0xE523, 0xE543, 0xE510})
            Start(Id(usReq), 500);
        // Country 460, network 0, area 1234, cell 5678.
        Ind(0xA02E, Road(1, {{8, 460}, {9, 0}, {10, 0}, {11, 0}, {12, 1234}, {7, 5678}}), usModem);
        const auto reports = Reports({Id(0xE51F), Id(0xE522), Id(0xE525), Id(0xE545), Id(0xE512)});
        ASSERT_EQ(reports.size(), 5U);
        EXPECT_EQ(reports[0], WordsOf({0x100E, 0x100F, 0x1010, 0x1011}));
        EXPECT_EQ(reports[1], WordsOf({0x1012, 0x1013, 0x1014, 0x101E, 0x1015, 0}));
        EXPECT_EQ(reports[2], WordsOf({0x1016, 0x1017, 0x1018, 0x1019, 0x101A, 0x101B, 0x101C, 0x101D, 0x101E, 0}));
        EXPECT_EQ(reports[3], WordsOf({0x1003, 0x100D, 0x1287, 0x1002})) << "word 647 is 0x1287";
        EXPECT_EQ(reports[4], Join(WordsOf({5678, 0x1005, 0x1000, 0x1001, 0x101F, 1234}), Le(0U), Le(460U),
                                   Text("4600012345678"), Fill(3)));
    }
}

TEST_F(Gas, DedicatedChannel)
{
    for (unsigned short usModem = 0; usModem < 2; ++usModem) {
        const auto Id = [usModem](unsigned int ulId) { return static_cast<unsigned short>(ulId + usModem * 0x100U); };
        Start(Id(0xE513), 500);
        Start(Id(0xE519), 500);
        Ind(0xA02E, Road(2), usModem);
        const auto reports = Reports({Id(0xE515), Id(0xE51C)});
        ASSERT_EQ(reports.size(), 2U);
        EXPECT_EQ(reports[0], WordsOf({0x1286, 0x1002, 0x1003, 0x1004, 0, 0x1005, 0x1006, 0x1000, 0x1001, 0x1007}));
        Bytes list; // words 10 to 73
        for (unsigned int n = 0x100A; n <= 0x1049; ++n)
            list = Join(list, W(n));
        EXPECT_EQ(reports[1], Join(WordsOf({0x1008, 0x1009}), list, WordsOf({0x104A, 0x104B})));
        EXPECT_EQ(reports[1].size(), 136U);
    }
}

TEST_F(Gas, Ratios)
{
    const struct
    {
        unsigned int aulFirst[2];  // words 10 and 11
        unsigned int aulSecond[2]; // words 12 and 13
        unsigned int aulReport[2];
    } astCase[] = {
        {{29, 100}, {29, 100}, {2899, 2899}}, // 0.29 * 100 is below 29 in doubles, and truncated
        {{5, 0}, {5, 0}, {0, 0}},
        {{0xFFFF, 1}, {0xFFFF, 1}, {0xD8F0, 0xFFFF}}, // 655350000 is 0x270FD8F0
        {{5, 0xFFFF}, {5, 0xFFFF}, {0xFFFF, 0xFFFF}},
        {{0xFFFF, 0xFFFF}, {0xFFFF, 0xFFFF}, {0xFFFF, 0xFFFF}},
        {{0xFFFF, 0}, {0xFFFF, 0}, {0, 0xFFFF}},
        {{3, 3}, {1, 3}, {10000, 3333}},
    };
    Start(0xE500, 500);
    for (const auto& stCase : astCase) {
        Ind(0xA02E, Road(0, {{10, stCase.aulFirst[0]},
                             {11, stCase.aulFirst[1]},
                             {12, stCase.aulSecond[0]},
                             {13, stCase.aulSecond[1]}}));
        const Bytes report = Report(0xE502);
        EXPECT_EQ(Bytes(Slice(ByteView(report), 28)), WordsOf({stCase.aulReport[0], stCase.aulReport[1]}))
            << stCase.aulFirst[0] << " / " << stCase.aulFirst[1];
    }
}

TEST_F(Gas, CellCounts)
{
    for (const unsigned short usReq : Words{0xE500, 0xE536, 0xE526, 0xE533})
        Start(usReq, 2000);
    Ind(0xA02E, Road(0, {{20, 7}}));
    EXPECT_EQ(Reports({0xE502, 0xE528, 0xE535}).size(), 3U) << "no cell report";
    ulNowMs -= STEP_MS; // no time passes
    Ind(0xA02E, Road(0, {{20, 6}}));
    EXPECT_EQ(Report(0xE538).size(), 120U) << "its period was not spent";
    Ind(0xA02E, Road(0, {{20, 0}}));
    const auto reports = Reports({0xE502, 0xE538, 0xE528, 0xE535});
    ASSERT_EQ(reports.size(), 4U);
    EXPECT_EQ(reports[1].size(), 24U);
}

TEST_F(Gas, NeighboursOf3GAreCutToTheFirst)
{
    Start(0xE526, 500);
    for (const unsigned int ulCount : {0U, 1U, 96U, 0xFFFFU}) {
        Ind(0xA02E, Road(0, {{21, ulCount}}));
        EXPECT_EQ(Report(0xE528), Join(Le(ulCount), Hex("46 10 47 10 48 10 00 00 00 00 49 10")));
    }
}

TEST_F(Gas, CellTexts)
{
    const struct
    {
        Patches patches; // words 8, 9 country, 10, 11 network, 12 area, 7 cell
        const char* pszText;
    } astCase[] = {
        {{{8, 1}, {9, 0}, {10, 1}, {11, 0}, {12, 2}, {7, 3}}, "0010100020003"},
        {{{8, 310}, {9, 0}, {10, 260}, {11, 0}, {12, 65534}, {7, 54321}}, "3102606553454321"}, // fills the field
        {{{8, 0xFFFF}, {9, 0xFFFF}, {10, 0}, {11, 0}, {12, 1}, {7, 2}}, "-010000010002"},
        {{{8, 0}, {9, 0x8000}, {10, 0}, {11, 0x8000}, {12, 1}, {7, 2}}, "-2147483648-2147"}, // cut
    };
    Start(0xE510, 500);
    for (const auto& stCase : astCase) {
        Ind(0xA02E, Road(1, stCase.patches));
        const Bytes report = Report(0xE512);
        Bytes text = Text(stCase.pszText);
        text.resize(16);
        EXPECT_EQ(report.size(), 36U);
        EXPECT_EQ(Bytes(Slice(ByteView(report), 20)), text) << stCase.pszText;
    }
}

TEST_F(Gas, KindsOfIndications)
{
    for (const unsigned short usReq : Words{0xE500, 0xE51D, 0xE513})
        Start(usReq, 500);
    CMsgDisp& disp = *gu.Operation().GetTransMsgDisp();
    EXPECT_FALSE(disp.Process(GuMsg(0xA02E, Road(3), NextStamp()), 0xA02E));
    EXPECT_FALSE(disp.Process(GuMsg(0xA02E, Road(0xFFFF), NextStamp()), 0xA02E));
    EXPECT_TRUE(NoReport());
    EXPECT_TRUE(disp.Process(GuMsg(0xA02E, Road(2), NextStamp()), 0xA02E));
    EXPECT_EQ(Report(0xE515).size(), 20U);
    EXPECT_TRUE(disp.Process(GuMsg(0xA02E, Hex("00 00 01 00"), NextStamp()), 0xA02E));
    EXPECT_EQ(Report(0xE51F), Fill(8)) << "a body that isn't there";
    EXPECT_TRUE(disp.Process(GuMsg(0xA02D, Fill(4)), 0xA02D)) << "the confirm is taken";
}

TEST_F(Gas, GroupsAreCounted)
{
    const auto Send = [this](unsigned short usReq, const Bytes& params) {
        gu.Request(usReq, 84, params);
        return gu.ToUe();
    };
    const Bytes start = Hex("01 00 E8 03");
    const Bytes stop = Hex("00 00 E8 03");
    using Sent = std::vector<Bytes>;
    EXPECT_EQ(Send(0xE500, start), Sent{GroupReq(1, 0)}) << "the UE runs at 500 ms";
    EXPECT_EQ(Send(0xE536, start), Sent{GroupReq(1, 0)});
    EXPECT_EQ(Send(0xE513, start), Sent{GroupReq(1, 2)});
    EXPECT_EQ(Send(0xE600, start), Sent{GroupReq(1, 0, 28)});
    EXPECT_EQ(Send(0xE500, stop), Sent{}) << "another packet of the group runs";
    EXPECT_EQ(Send(0xE536, stop), Sent{GroupReq(0, 0)});
    EXPECT_EQ(Send(0xE513, stop), Sent{GroupReq(0, 2)});
    EXPECT_EQ(Send(0xE600, stop), Sent{GroupReq(0, 0, 28)});
    const auto confirms = gu.Confirms();
    ASSERT_EQ(confirms.size(), 8U);
    for (const ClientPacket& packet : confirms)
        ExpectPacket(packet, {packet.stHead.ulCmdId, 0, 0, 0x0154, Fill(4)});
}

TEST_F(Gas, StartsAndStopsAreCountedAsTheyCome)
{
    const auto Send = [this](const Bytes& params) {
        gu.Request(0xE51D, 84, params);
        return gu.ToUe().size();
    };
    const Bytes start = Hex("01 00 F4 01");
    EXPECT_EQ(Send(start), 1U);
    EXPECT_EQ(Send(start), 1U) << "a second start is sent and counted";
    EXPECT_EQ(Send(Fill(4)), 0U) << "so one stop doesn't stop the UE";
    Ind(0xA02E, Road(1));
    EXPECT_TRUE(NoReport()) << "though the packet is off";
    EXPECT_EQ(Send(Fill(4)), 1U);
    EXPECT_EQ(Send(Fill(4)), 1U) << "below 0";
    EXPECT_EQ(Send(start), 1U);
    EXPECT_EQ(Send(start), 1U);
    EXPECT_EQ(Send(Fill(4)), 1U) << "the count was at -1";
}

TEST_F(Gas, BadRequests)
{
    for (const char* pszParams : {"01 00 EE 02", "01 00 00 00", "01 00 C4 09", "01 00 F3 01", "02 00 F4 01"}) {
        gu.Request(0xE519, 84, Hex(pszParams));
        const auto confirms = gu.Confirms();
        ASSERT_EQ(confirms.size(), 1U) << pszParams;
        ExpectPacket(confirms[0], {0x0154E51B, 1, 0, 0x0154, Le(1U)});
        EXPECT_TRUE(gu.ToUe().empty()) << pszParams;
    }
    IMsgProcess* const pProcess = gu.Operation().GetTransMsgDisp()->GetProcessorByUeIND(0xA02E);
    EXPECT_FALSE(pProcess->SendReqToUe(Join(Le(0xE600U), Le(0x00040054U), Hex("01 00 F4 01")))) << "the other modem's";
    EXPECT_FALSE(pProcess->SendReqToUe(Join(Le(0xE51AU), Le(0x00040054U), Hex("01 00 F4 01"))));
    EXPECT_TRUE(gu.Confirms().empty());
}
