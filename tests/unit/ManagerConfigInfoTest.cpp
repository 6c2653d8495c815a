#include "data/ManagerConfigInfo.h"

#include "data/DiagPacket.h"
#include "support/Configure.h"

#include <gtest/gtest.h>
#include <utility>

using Info = ManagerConfigInfo;

TEST(ManagerConfigInfo, AnswersWithoutAnyConfiguration)
{
    ConfigureFresh("");
    unsigned int aulPair[2] = {1, 1};
    EXPECT_EQ(Info::Dpi2Cmd(1), 0xFFFFFFFFu);
    EXPECT_EQ(Info::Cmd2Dpi(1), 0xFFFFFFFFu);
    EXPECT_EQ(Info::GetPids(1, 1, aulPair), DIAG_RC_NO_PID);
    EXPECT_TRUE(Info::IsExcludeL1Id(1)) << "an L1 message must be listed to pass";
    EXPECT_FALSE(Info::IsExcludeL23Id(1)) << "an L2/L3 message must be listed to stop";
    EXPECT_FALSE(Info::IsIncludeTdsId(1));
    EXPECT_FALSE(Info::IsTdsIncludeMeasMsg(1));
    EXPECT_EQ(Info::GetTdsMeasMsgPos(1), 0xFFFFu);
    EXPECT_EQ(Info::GetTdsMeasMsgId(0), 0u);
    EXPECT_TRUE(Info::GetLayerMsgCfgMap()->empty());
    EXPECT_FALSE(Info::IsDphFilterEnable(1));
    EXPECT_FALSE(Info::IsIncludeAtIndMsg("+CREG: 1"));
    EXPECT_EQ(Info::GetCellMeasPacketId(aulPair), 0u);
    EXPECT_EQ(aulPair[0], 0u);
    EXPECT_EQ(aulPair[1], 0u);
}

TEST(ManagerConfigInfo, WithoutConfigurationNoIdIsACellMeasurement)
{
    ConfigureFresh("");
    EXPECT_EQ(Info::CellMeasKind(0), CELL_MEAS_NONE);
    EXPECT_EQ(Info::CellMeasKind(5), CELL_MEAS_NONE);
}

TEST(ManagerConfigInfo, CellMeasurementsByTheirPlace)
{
    ConfigureFresh("SPC_DPI_CELL_MEAS=0x100;0x200\n");
    EXPECT_EQ(Info::CellMeasKind(0x100), CELL_MEAS_CONNECTED);
    EXPECT_EQ(Info::CellMeasKind(0x200), CELL_MEAS_IDLE);
    EXPECT_EQ(Info::CellMeasKind(0), CELL_MEAS_NONE);
    unsigned int aulIds[2] = {};
    EXPECT_EQ(Info::GetCellMeasPacketId(aulIds), 0u);
    EXPECT_EQ(aulIds[0], 0x100u);
    EXPECT_EQ(aulIds[1], 0x200u);
}

TEST(ManagerConfigInfo, DpiAndCommandAreMappedBothWays)
{
    ConfigureFresh("DPH_FILTER_REQ_DPI_CMD_PAIR={0x11,0x10020001};{0x12,0x0}\n");
    EXPECT_EQ(Info::Dpi2Cmd(0x11), 0x10020001u);
    EXPECT_EQ(Info::Cmd2Dpi(0x10020001), 0x11u);
    EXPECT_EQ(Info::Dpi2Cmd(0x12), 0u);
    EXPECT_EQ(Info::Dpi2Cmd(0x10020001), 0xFFFFFFFFu);
}

TEST(ManagerConfigInfo, TheFirstEntryWithVersionAndIdGivesThePids)
{
    ConfigureFresh("DPH_FILTER_REQ_OSA_CFG=1-{0x10-0x20}:{101,102};2-{0x10-0x20}:{201,202};2-{0x18-0x30}:{301,302}\n");
    const struct
    {
        const char* pszName;
        unsigned int ulVersion, ulDpi, ulRc, ulSender, ulReceiver;
    } c_astCase[] = {
        {"version 1", 1, 0x10, DIAG_RC_OK, 101, 102},
        {"version 2", 2, 0x10, DIAG_RC_OK, 201, 202},
        {"the earlier entry wins", 2, 0x20, DIAG_RC_OK, 201, 202},
        {"behind the first range", 2, 0x21, DIAG_RC_OK, 301, 302},
        {"end of a range", 2, 0x30, DIAG_RC_OK, 301, 302},
        {"behind the end", 2, 0x31, DIAG_RC_NO_PID, 9, 9},
        {"before the start", 1, 0x0F, DIAG_RC_NO_PID, 9, 9},
        {"no such version", 3, 0x10, DIAG_RC_NO_PID, 9, 9},
    };
    for (const auto& st : c_astCase) {
        unsigned int aulPids[2] = {9, 9};
        EXPECT_EQ(Info::GetPids(st.ulVersion, st.ulDpi, aulPids), st.ulRc) << st.pszName;
        EXPECT_EQ(std::pair(aulPids[0], aulPids[1]), std::pair(st.ulSender, st.ulReceiver)) << st.pszName;
    }
}

TEST(ManagerConfigInfo, TheSignsOfTheL1ListDecideAndUnlistedIsExcluded)
{
    ConfigureFresh("DPI_L1_FILTER_IND_RANGE_CFG=+[0x30000010,0x30000012];-{0x30000020};{0x30000030}\n");
    EXPECT_FALSE(Info::IsExcludeL1Id(0x30000010));
    EXPECT_FALSE(Info::IsExcludeL1Id(0x30000012));
    EXPECT_TRUE(Info::IsExcludeL1Id(0x30000013));
    EXPECT_TRUE(Info::IsExcludeL1Id(0x30000020)) << "listed to stop, like an unlisted one";
    EXPECT_FALSE(Info::IsExcludeL1Id(0x30000030)) << "no sign passes";
}

TEST(ManagerConfigInfo, TheSignsOfTheL23ListDecideAndUnlistedPasses)
{
    ConfigureFresh("DPI_L23_FILTER_IND_RANGE_CFG=-[0x10,0x12];+{0x20}\n");
    EXPECT_TRUE(Info::IsExcludeL23Id(0x10));
    EXPECT_TRUE(Info::IsExcludeL23Id(0x12));
    EXPECT_FALSE(Info::IsExcludeL23Id(0x13));
    EXPECT_FALSE(Info::IsExcludeL23Id(0x20));
}

TEST(ManagerConfigInfo, TdsModulesCountWhateverTheirSign)
{
    ConfigureFresh("TDS_MSG_MODULE_ID_RANGE=-{0x70};+{0x71};{0x72}\n");
    for (const unsigned int ulId : {0x70u, 0x71u, 0x72u})
        EXPECT_TRUE(Info::IsIncludeTdsId(ulId));
    EXPECT_FALSE(Info::IsIncludeTdsId(0x73));
}

TEST(ManagerConfigInfo, TdsMeasurementsByPosition)
{
    ConfigureFresh("TDS_COMB_IND_MSG_FILTER=0xA0;0xA1;0xA0;0xA3\n");
    EXPECT_TRUE(Info::IsTdsIncludeMeasMsg(0xA3));
    EXPECT_EQ(Info::GetTdsMeasMsgPos(0xA0), 0u) << "a repeated id keeps its first place";
    EXPECT_EQ(Info::GetTdsMeasMsgPos(0xA3), 3u);
    EXPECT_EQ(Info::GetTdsMeasMsgPos(0xA2), 0xFFFFu);
    EXPECT_EQ(Info::GetTdsMeasMsgId(2), 0xA0u) << "and stands twice in the list";
    EXPECT_EQ(Info::GetTdsMeasMsgId(3), 0xA3u);
    EXPECT_EQ(Info::GetTdsMeasMsgId(4), 0u) << "past the end";
}

TEST(ManagerConfigInfo, DphRangesIncludeBothEnds)
{
    ConfigureFresh("DPH_FILTER_RANGE={0x100,0x1FF};{0x300,0x300}\n");
    EXPECT_FALSE(Info::IsDphFilterEnable(0xFF));
    EXPECT_TRUE(Info::IsDphFilterEnable(0x100));
    EXPECT_TRUE(Info::IsDphFilterEnable(0x1FF));
    EXPECT_FALSE(Info::IsDphFilterEnable(0x200));
    EXPECT_TRUE(Info::IsDphFilterEnable(0x300));
}

TEST(ManagerConfigInfo, ATextIsUnsolicitedWhenItHoldsAnyWordOfTheList)
{
    ConfigureFresh("AT_IND_MSG_FILTER=+CREG;^RSSI\n");
    EXPECT_TRUE(Info::IsIncludeAtIndMsg("\r\n+CREG: 1\r\n"));
    EXPECT_TRUE(Info::IsIncludeAtIndMsg("^RSSI:20"));
    EXPECT_FALSE(Info::IsIncludeAtIndMsg("+CRE"));
    EXPECT_FALSE(Info::IsIncludeAtIndMsg(""));
}

TEST(ManagerConfigInfo, NoIdIsSplitByBits)
{
    ConfigureFresh("");
    ADE_PARMA_SPLIT_BIT_DATA_STRU stSplit;
    for (const unsigned int ulId : {0u, 0x10015503u, 0xFFFFFFFFu}) {
        EXPECT_FALSE(Info::IsNeedAckParamSplitByBit(ulId));
        EXPECT_FALSE(Info::IsNeedIndParamSplitByBit(ulId));
        EXPECT_FALSE(Info::GetAckParamSplitByBit(ulId, stSplit));
        EXPECT_FALSE(Info::GetIndParamSplitByBit(ulId, stSplit));
    }
}
