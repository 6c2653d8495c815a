#include "common/Config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

/// A configuration after a text.
struct Parsed : CConfig
{
    explicit Parsed(std::string strText) { ParseConfig(strText); }
};

std::vector<std::pair<unsigned int, unsigned int>> Ports(const CConfig& cfg)
{
    std::vector<std::pair<unsigned int, unsigned int>> vecPorts;
    for (const PORT_INFO& stPort : *cfg.GetMonitorPortInfo())
        vecPorts.emplace_back(stPort.uiPort, stPort.uiIsTcp);
    return vecPorts;
}

std::vector<std::pair<unsigned int, unsigned int>> Ranges(const CConfig& cfg)
{
    std::vector<std::pair<unsigned int, unsigned int>> vecRanges;
    for (const ADE_RANGE_STRU& stRange : *cfg.GetDphFilterRangeList())
        vecRanges.emplace_back(stRange.ulLow, stRange.ulHigh);
    return vecRanges;
}

template <size_t COUNT> std::vector<std::pair<int, int>> Pairs(const std::array<VALUE_STRU, COUNT>& astPairs)
{
    std::vector<std::pair<int, int>> vecPairs;
    for (const VALUE_STRU& stPair : astPairs)
        vecPairs.emplace_back(stPair.usOffset, stPair.usSize);
    return vecPairs;
}

/// The ids below 0x40 that a set holds, those of the flag false as they are and those of true as negative numbers.
std::vector<int> Ids(const std::string& strSet)
{
    const Parsed cfg("DPI_L1_FILTER_IND_RANGE_CFG=" + strSet);
    std::vector<int> vecIds;
    for (int i = 0; i < 0x40; ++i)
        if (const auto flag = cfg.GetL1ExcludeIndMap()->Find(static_cast<uint32_t>(i)))
            vecIds.push_back(*flag ? -i : i);
    return vecIds;
}

} // namespace

TEST(ConfigLists, ChannelNamesAppend)
{
    const Parsed cfg("ChannelName=/dev/a;/dev/b\nChannelName=;;/dev/c;\n");
    EXPECT_THAT(*cfg.GetChannelNames(), ElementsAre("/dev/a", "/dev/b", "/dev/c"));
}

TEST(ConfigLists, ChannelPortsAppendAndNoNumberIsThePortNumberOfNone)
{
    EXPECT_THAT(*Parsed("ChannelPort=10;11\nChannelPort=12").GetChannelPorts(), ElementsAre(10u, 11u, 12u));
    EXPECT_THAT(*Parsed("ChannelPort=abc").GetChannelPorts(), ElementsAre(0x7FFFFFFFu));
    EXPECT_THAT(*Parsed("ChannelPort=5;x;7").GetChannelPorts(), ElementsAre(5u, 0x7FFFFFFFu, 7u));
}

TEST(ConfigLists, MonitorPortsAreTcpUnlessTheySay0)
{
    EXPECT_THAT(Ports(Parsed("MonitorPort=20000")), ElementsAre(Pair(20000u, 1u)));
    EXPECT_THAT(Ports(Parsed("MonitorPort=20000:0")), ElementsAre(Pair(20000u, 0u)));
    EXPECT_THAT(Ports(Parsed("MonitorPort=1:1;2:0\nMonitorPort=3:7;x;4:x")),
                ElementsAre(Pair(1u, 1u), Pair(2u, 0u), Pair(3u, 7u), Pair(0u, 1u), Pair(4u, 1u)));
}

namespace
{
/// Which of some addresses may connect, as a text of their letters.
std::string Allowed(const char* pszLines)
{
    static constexpr struct
    {
        char cName;
        uint32_t ulAddress; // host order
    } PEERS[] = {
        {'l', 0x7F000001}, // 127.0.0.1
        {'m', 0x7FFFFFFF}, // 127.255.255.255
        {'n', 0x80000000}, // 128.0.0.0
        {'a', 0xC0A80700}, // 192.168.7.0
        {'b', 0xC0A807FF}, // 192.168.7.255
        {'c', 0xC0A80800}, // 192.168.8.0
        {'z', 0x00000000}, {'y', 0xFFFFFFFF},
    };
    const Parsed cfg(pszLines);
    std::string strNames;
    for (const auto& [cName, ulAddress] : PEERS)
        if (cfg.IsPeerAllowed(ulAddress))
            strNames += cName;
    return strNames;
}
} // namespace

TEST(ConfigLists, AllowFromNamesTheNetworksThatMayConnect)
{
    EXPECT_EQ(Allowed(""), "lmnabczy") << "everybody";
    EXPECT_EQ(Allowed("AllowFrom="), "lmnabczy") << "a line without a value says nothing";
    EXPECT_EQ(Allowed("AllowFrom = 127.0.0.0/8; 192.168.7.0/24"), "lmab");
    EXPECT_EQ(Allowed("AllowFrom=127.0.0.0/8\nAllowFrom=192.168.7.0/24\n"), "lmab") << "lines append";
    EXPECT_EQ(Allowed("AllowFrom=192.168.7.255"), "b") << "without bits: that address";
    EXPECT_EQ(Allowed("AllowFrom=192.168.7.255/32"), "b");
    EXPECT_EQ(Allowed("AllowFrom=192.168.7.99/24"), "ab") << "the bits behind the mask mean nothing";
    EXPECT_EQ(Allowed("AllowFrom=1.2.3.4/0"), "lmnabczy");
    EXPECT_EQ(Allowed("AllowFrom=128.0.0.0/1"), "nabcy");
}

TEST(ConfigLists, AnAllowFromThatCannotBeReadLetsNobodyIn)
{
    for (const char* pszValue : {"127.0.0.0/33", "127.0.0.0/", "127.0.0.0/x", "127.0.0.0/8x", "127.0.0.0/-1",
                                 "127.0.0.0/4294967304", "127.0.0.1.5", "127.0.0", "localhost", "/8", ";", "x;y"})
        EXPECT_EQ(Allowed((std::string("AllowFrom=") + pszValue).c_str()), "") << pszValue;
    EXPECT_EQ(Allowed("AllowFrom=x;127.0.0.1"), "l") << "the others count";
}

TEST(ConfigLists, AtFilterIsReplaced)
{
    EXPECT_THAT(*Parsed("AT_IND_MSG_FILTER=+CREG:;RING\nAT_IND_MSG_FILTER=+CMTI").GetATDataMsgFilter(),
                ElementsAre("+CMTI"));
    EXPECT_THAT(*Parsed("AT_IND_MSG_FILTER=+CREG:;RING").GetATDataMsgFilter(), ElementsAre("+CREG:", "RING"));
}

TEST(ConfigLists, DphRangesAppend)
{
    EXPECT_THAT(Ranges(Parsed("DPH_FILTER_RANGE={0x10,0x1F};{0x30,0x30}\nDPH_FILTER_RANGE={0xFFFFFFFF,0x0}")),
                ElementsAre(Pair(0x10u, 0x1Fu), Pair(0x30u, 0x30u), Pair(0xFFFFFFFFu, 0u)));
    EXPECT_THAT(Ranges(Parsed("DPH_FILTER_RANGE={0x10,0x1F};{0x20;x")),
                ElementsAre(Pair(0x10u, 0x1Fu), Pair(0x20u, 0u), Pair(0u, 0u)));
}

TEST(ConfigLists, DpiPairsEnterBothMapsAndALaterValueOverwrites)
{
    const Parsed cfg("DPH_FILTER_REQ_DPI_CMD_PAIR={0x1,0x100};{0x2,0x200}\n"
                     "DPH_FILTER_REQ_DPI_CMD_PAIR={0x1,0x300};{0x4,0x200}");
    EXPECT_THAT(cfg.GetDPH_FILTER_REQ_DPI_CMD_PAIR(),
                ElementsAre(Pair(0x1u, 0x300u), Pair(0x2u, 0x200u), Pair(0x4u, 0x200u)));
    EXPECT_THAT(cfg.GetDPH_FILTER_REQ_CMD_DPI_PAIR(),
                ElementsAre(Pair(0x100u, 0x1u), Pair(0x200u, 0x4u), Pair(0x300u, 0x1u)));
}

TEST(ConfigLists, OsaRowsAppend)
{
    const Parsed cfg("DPH_FILTER_REQ_OSA_CFG=1-{0x10-0x1F}:{120,130};2-{0x20-0x2F}:{220,230}\n"
                     "DPH_FILTER_REQ_OSA_CFG=3-{0x30-0x3F}");
    const auto& vecRows = *cfg.GetDPH_FILTER_REQ_OSA_CFG();
    ASSERT_EQ(vecRows.size(), 3u);
    const uint32_t aaulExpected[3][5] = {{1, 0x10, 0x1F, 120, 130}, {2, 0x20, 0x2F, 220, 230}, {3, 0x30, 0x3F, 0, 0}};
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(vecRows[i].ulUeVer, aaulExpected[i][0]) << i;
        EXPECT_EQ(vecRows[i].ulIdLow, aaulExpected[i][1]) << i;
        EXPECT_EQ(vecRows[i].ulIdHigh, aaulExpected[i][2]) << i;
        EXPECT_EQ(vecRows[i].ulSenderPid, aaulExpected[i][3]) << i;
        EXPECT_EQ(vecRows[i].ulReceiverPid, aaulExpected[i][4]) << i;
    }
}

TEST(ConfigLists, ARepeatedTdsIdKeepsItsFirstPositionAndStandsTwiceInTheList)
{
    const Parsed cfg("TDS_COMB_IND_MSG_FILTER=0x99\nTDS_COMB_IND_MSG_FILTER=0x30;0x10;0x30;0x20");
    EXPECT_THAT(*cfg.GetTdsCombMsg(), ElementsAre(0x30u, 0x10u, 0x30u, 0x20u));
    EXPECT_THAT(*cfg.GetTdsCombInd(), ElementsAre(Pair(0x10u, 1), Pair(0x20u, 3), Pair(0x30u, 0)));
}

TEST(ConfigLists, ThePrintListIsReplaced)
{
    const Parsed cfg("LTE_PRINT_ID_FILTER_LIST=0x1;0x2\nLTE_PRINT_ID_FILTER_LIST=0x3;0xFFFFFFFF");
    EXPECT_FALSE(cfg.IsPrintMessage(1));
    EXPECT_TRUE(cfg.IsPrintMessage(3));
    EXPECT_TRUE(cfg.IsPrintMessage(0xFFFFFFFF));
}

TEST(ConfigLists, LayerMessagesByIdAndTheRowForAllOthers)
{
    EXPECT_THAT(*Parsed("DPH_FILTER_IND_LAYER_MSG_CFG=*:{8,0};{0x100,0x200}:{16,0}").GetLayerMsgCfg(),
                ElementsAre(Pair(0x100u, 16u), Pair(0x200u, 16u), Pair(0xFFFFFFFFu, 8u)));
    EXPECT_THAT(*Parsed("DPH_FILTER_IND_LAYER_MSG_CFG={0x1}:{3,5}").GetLayerMsgCfg(),
                ElementsAre(Pair(1u, 5u * 65536 + 3)));
}

TEST(ConfigLists, LayerNumbersAreCutTo16Bits)
{
    EXPECT_THAT(*Parsed("DPH_FILTER_IND_LAYER_MSG_CFG={0x1}:{65540,65537}").GetLayerMsgCfg(),
                ElementsAre(Pair(1u, 0x00010004u))); // 65536 + 4 and 65536 + 1
}

TEST(ConfigLists, TheFirstLayerRowOfAnIdStandsAndEachLineReplaces)
{
    EXPECT_THAT(*Parsed("DPH_FILTER_IND_LAYER_MSG_CFG={0x9}:{9,0}\n"
                        "DPH_FILTER_IND_LAYER_MSG_CFG={0x1}:{4,0};{0x1}:{8,0};*:{1,0};*:{2,0}")
                     .GetLayerMsgCfg(),
                ElementsAre(Pair(1u, 4u), Pair(0xFFFFFFFFu, 1u)));
}

TEST(ConfigLists, ALayerItemWithoutExactlyTwoPiecesIsSkipped)
{
    for (const char* pszItem : {"{0x1,0x2}", "{0x1}:{4,0}:{5,0}", "{0x1}:", ":", "{}:{4,0}", "{:{4,0}"})
        EXPECT_THAT(*Parsed(std::string("DPH_FILTER_IND_LAYER_MSG_CFG=") + pszItem).GetLayerMsgCfg(), IsEmpty())
            << pszItem;
}

TEST(ConfigLists, IdSets)
{
    const std::vector<int> vecNone;
    const struct
    {
        const char* pszSet;
        std::vector<int> vecIds; // negative: flag true
    } astCases[] = {
        {"{0x1,0x3}", {1, 3}},
        {"+{0x1,0x3}", {1, 3}},
        {"-{0x1,0x3}", {-1, -3}},
        {"[0x5,0x8]", {5, 6, 7, 8}},
        {"-[0x5,0x8]", {-5, -6, -7, -8}},
        {"[0x5,0x5]", {5}},
        {"[0x5,0x3]", vecNone},
        {"(0x11,0x14)", {0x10, 0x11, 0x12, 0x13}},
        {"-(0x11,0x12)", {-0x10, -0x11}},
        {"(0x1,0x1)", {0}},
        {"(0x0,0x5)", vecNone},
        {"(0x1,0x0)", vecNone},
        {"(0x5,0x3)", vecNone},
        {"[0x10]", vecNone},
        {"(0x10)", vecNone},
        {"[0x1,0x2,0x9]", {1, 2}}, // what follows the second part isn't looked at
        {"-", vecNone},
        {"+", vecNone},
        {"{", vecNone},
        {"-{", vecNone},
        {"+-", vecNone},
        {"0x1", vecNone},
        {"-0x1", vecNone},
        {"<0x1,0x2>", vecNone},
        {"{0x1,,0x2}", {1, 2}},
        {"{}", vecNone},
        {"{x}", {0}},          // can't be read: zero
        {"{0x1,0x23", {1, 2}}, // the last character goes, bracket or not
        {"-[0x1,0x4];+{0x2}", {-1, 2, -3, -4}},
        {"{0x2};-[0x1,0x3]", {-1, -2, -3}},
        {"xx{0x1}", vecNone},
        {"xx+{0x1}", {1}},      // a sign cuts off all that stands in front of it
        {"{0x1+0x2}", vecNone}, // also inside: what is left is 0x2}
        {"+-{0x1}", {1}},       // the flag goes by the first character alone
        {"-+{0x1}", {-1}},
        {"-[0x10,0x13];+{0x20,0x24};(0x31,0x33)", {-0x10, -0x11, -0x12, -0x13, 0x20, 0x24, 0x30, 0x31, 0x32}},
    };
    for (const auto& stCase : astCases)
        EXPECT_EQ(Ids(stCase.pszSet), stCase.vecIds) << stCase.pszSet;
}

TEST(ConfigLists, AnIdSetKeepsWhatEarlierLinesGave)
{
    EXPECT_EQ(Ids("{0x1,0x2}\nDPI_L1_FILTER_IND_RANGE_CFG=-{0x2,0x3}"), (std::vector<int>{1, -2, -3}));
}

TEST(ConfigLists, ARangeOverAllIdsCostsNothing)
{
    const Parsed cfg("DPI_L1_FILTER_IND_RANGE_CFG=-[0x0,0xFFFFFFFF];(0x2,0xFFFFFFFF)");
    EXPECT_EQ(cfg.GetL1ExcludeIndMap()->Find(0), true);
    EXPECT_EQ(cfg.GetL1ExcludeIndMap()->Find(1), false);
    EXPECT_EQ(cfg.GetL1ExcludeIndMap()->Find(0xFFFFFFFE), false);
    EXPECT_EQ(cfg.GetL1ExcludeIndMap()->Find(0xFFFFFFFF), true);
}

TEST(ConfigLists, EachIdSetHasItsKey)
{
    const Parsed cfg("DPI_L1_FILTER_IND_RANGE_CFG={0x1}\nDPI_L23_FILTER_IND_RANGE_CFG=-{0x2}\n"
                     "TDS_MSG_MODULE_ID_RANGE={0x3}");
    EXPECT_EQ(cfg.GetL1ExcludeIndMap()->Find(1), false);
    EXPECT_EQ(cfg.GetL3ExcludeIndMap()->Find(2), true);
    EXPECT_FALSE(cfg.GetL3ExcludeIndMap()->contains(1));
    EXPECT_TRUE(cfg.GetTdsIncludeIndMap()->contains(3));
    EXPECT_FALSE(cfg.GetTdsIncludeIndMap()->contains(2));
}

TEST(ConfigLayout, PairsAreStoredInTheirOrder)
{
    const Parsed cfg("REQ_CHL_PACKET_HEADER={0,1};{1,2};{3,1};{4,1};{5,1};{6,4};{10,8};{18,4};{22,4};{26,4};{30,2}\n"
                     "ACK_CHL_PACKET_HEADER={1,2};{3,4};{5,6};{7,8};{9,10};{11,12}\n"
                     "DATA_CHL_PACKET_HEADER={21,1};{22,2};{23,3};{24,4};{25,5}\n"
                     "DATA_ACK_CHL_PACKET_UID={31,1};{32,2};{33,3}");
    const FILTER_CFG_STRU& stLayout = *cfg.GetFilterCfg();
    EXPECT_THAT(Pairs(stLayout.astReqHeader),
                ElementsAre(Pair(0, 1), Pair(1, 2), Pair(3, 1), Pair(4, 1), Pair(5, 1), Pair(6, 4), Pair(10, 8),
                            Pair(18, 4), Pair(22, 4), Pair(26, 4), Pair(30, 2)));
    EXPECT_THAT(Pairs(stLayout.astAckHeader),
                ElementsAre(Pair(1, 2), Pair(3, 4), Pair(5, 6), Pair(7, 8), Pair(9, 10), Pair(11, 12)));
    EXPECT_THAT(Pairs(stLayout.astDataHeader),
                ElementsAre(Pair(21, 1), Pair(22, 2), Pair(23, 3), Pair(24, 4), Pair(25, 5)));
    EXPECT_THAT(Pairs(stLayout.astDataAckUid), ElementsAre(Pair(31, 1), Pair(32, 2), Pair(33, 3)));
}

TEST(ConfigLayout, NumbersOfTheLayout)
{
    const Parsed cfg("REQ_CHL_PACKET_HEADER_LEN=24\nREQ_CHL_PACKET_HEADER_SYS_SIZE=8\n"
                     "ACK_CHL_PACKET_PAYLOAD_OFFSET=28\nDATA_CHL_PACKET_PAYLOAD_OFFSET=32\n"
                     "DATA_ACK_CHL_PACKET_OFFSET=6");
    const FILTER_CFG_STRU& stLayout = *cfg.GetFilterCfg();
    EXPECT_EQ(stLayout.usReqHeaderLen, 24);
    EXPECT_EQ(stLayout.usReqHeaderSysSize, 8);
    EXPECT_EQ(stLayout.usAckPayloadOffset, 28);
    EXPECT_EQ(stLayout.usDataPayloadOffset, 32);
    EXPECT_EQ(stLayout.usDataAckOffset, 6);
}

TEST(ConfigLayout, ALayoutThatBreaksOffHasZerosBehind)
{
    const std::string strWhole = "DATA_ACK_CHL_PACKET_UID={1,2};{3,4};{5,6}\nDATA_ACK_CHL_PACKET_UID=";
    const auto uid = [&](const char* pszValue) {
        return Pairs(Parsed(strWhole + pszValue).GetFilterCfg()->astDataAckUid);
    };
    EXPECT_THAT(uid("{7,8}"), ElementsAre(Pair(7, 8), Pair(0, 0), Pair(0, 0)));
    EXPECT_THAT(uid("{7,8};{9"), ElementsAre(Pair(7, 8), Pair(9, 0), Pair(0, 0)));
    EXPECT_THAT(uid("{7,8x};{9,1};{2,3}"), ElementsAre(Pair(7, 8), Pair(0, 0), Pair(0, 0)));
    EXPECT_THAT(uid("{7,8},{9,1};{2,3}"), ElementsAre(Pair(7, 8), Pair(0, 0), Pair(0, 0)));
    EXPECT_THAT(uid("x"), ElementsAre(Pair(0, 0), Pair(0, 0), Pair(0, 0)));
    EXPECT_THAT(uid("{65537,65540};{-1,1};{2,3};{4,5}"), ElementsAre(Pair(1, 4), Pair(0xFFFF, 1), Pair(2, 3)));
}
