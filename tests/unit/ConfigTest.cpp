#include "common/Config.h"

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using testing::ElementsAre;

/// A configuration after a text.
struct Parsed : CConfig
{
    explicit Parsed(std::string strText) { ParseConfig(strText); }
};

std::string Version(const CConfig& cfg)
{
    int iMajor = -1;
    int iMinor = -1;
    int iPatch = -1;
    cfg.GetVersion(iMajor, iMinor, iPatch);
    return std::to_string(iMajor) + " " + std::to_string(iMinor) + " " + std::to_string(iPatch);
}

std::array<unsigned int, 2> CellMeas(const CConfig& cfg)
{
    std::array<unsigned int, 2> aulIds{0xEEEEEEEE, 0xEEEEEEEE};
    cfg.GetCellMeas(aulIds.data());
    return aulIds;
}

class ConfigFile : public testing::Test
{
protected:
    ConfigFile()
    {
        const int nFd = mkstemp(m_strPath.data());
        EXPECT_GE(nFd, 0);
        close(nFd);
    }
    ~ConfigFile() override { unlink(m_strPath.c_str()); }

    void Write(const std::string& strText) const { std::ofstream(m_strPath, std::ios::binary) << strText; }

    std::string m_strPath = "/tmp/vex-cfg-XXXXXX";
    CConfig m_cfg;
};

} // namespace

TEST(Config, Defaults)
{
    const CConfig cfg;
    EXPECT_EQ(cfg.GetDebugLevel(), 0);
    EXPECT_STREQ(cfg.GetDebugFileName(), "Vex");
    EXPECT_EQ(cfg.GetStatusInfoReportInterval(), 0);
    EXPECT_STREQ(cfg.GetMonitorIPAddr(), "127.0.0.1");
    EXPECT_TRUE(cfg.GetMonitorPortInfo()->empty());
    EXPECT_TRUE(cfg.GetChannelNameEnable());
    EXPECT_TRUE(cfg.GetChannelNames()->empty());
    EXPECT_TRUE(cfg.GetChannelPorts()->empty());
    EXPECT_FALSE(cfg.GetRecovery());
    EXPECT_EQ(cfg.GetLogMaxSize(), 0u);
    EXPECT_STREQ(cfg.GetListenAddress(), "");
    EXPECT_STREQ(cfg.GetTapSocket(), "");
    EXPECT_EQ(cfg.GetTapBytes(), 16u << 20);
    EXPECT_TRUE(cfg.IsPeerAllowed(0x7F000001));
    EXPECT_EQ(cfg.GetTimespaceForGuReq(), 100u);
    EXPECT_STREQ(cfg.GetAgentVersion(), "");
    EXPECT_EQ(Version(cfg), "0 0 0");
    EXPECT_EQ(cfg.GetCellMeasTimeOut(), 200);
    EXPECT_THAT(CellMeas(cfg), ElementsAre(0u, 0u));
    EXPECT_FALSE(cfg.GetDphFilterEnable());
    EXPECT_TRUE(cfg.GetDphFilterRangeList()->empty());
    EXPECT_TRUE(cfg.GetDPH_FILTER_REQ_DPI_CMD_PAIR().empty());
    EXPECT_TRUE(cfg.GetDPH_FILTER_REQ_CMD_DPI_PAIR().empty());
    EXPECT_TRUE(cfg.GetDPH_FILTER_REQ_OSA_CFG()->empty());
    EXPECT_TRUE(cfg.GetLayerMsgCfg()->empty());
    EXPECT_TRUE(cfg.GetL1ExcludeIndMap()->empty());
    EXPECT_TRUE(cfg.GetL3ExcludeIndMap()->empty());
    EXPECT_TRUE(cfg.GetTdsIncludeIndMap()->empty());
    EXPECT_TRUE(cfg.GetTdsCombInd()->empty());
    EXPECT_TRUE(cfg.GetTdsCombMsg()->empty());
    EXPECT_FALSE(cfg.IsPrintMessage(0));
    EXPECT_TRUE(cfg.GetATDataMsgFilter()->empty());
}

TEST(Config, ThePacketLayoutStartsAsZerosBehindItsTwoFixedTags)
{
    const CConfig cfg;
    const FILTER_CFG_STRU& stLayout = *cfg.GetFilterCfg();
    EXPECT_EQ(stLayout.ucDataTagFirst, 3);
    EXPECT_EQ(stLayout.ucDataTagSecond, 0xFF);
    EXPECT_EQ(stLayout.usReqHeaderLen, 0);
    EXPECT_EQ(stLayout.usReqHeaderSysSize, 0);
    EXPECT_EQ(stLayout.usAckPayloadOffset, 0);
    EXPECT_EQ(stLayout.usDataPayloadOffset, 0);
    EXPECT_EQ(stLayout.usDataAckOffset, 0);
    for (const VALUE_STRU& stPair : stLayout.astReqHeader) {
        EXPECT_EQ(stPair.usOffset, 0);
        EXPECT_EQ(stPair.usSize, 0);
    }
}

TEST(Config, BlanksTabsAndLineEndsMeanNothing)
{
    for (const char* pszLine : {"debuglevel=15", "debuglevel = 15", "debuglevel=15\r", " debug level\t=\t1 5 \r\n",
                                "\n\n\r\ndebuglevel=15\n\n"})
        EXPECT_EQ(Parsed(pszLine).GetDebugLevel(), 15) << pszLine;
    EXPECT_STREQ(Parsed("debugfilename = a b").GetDebugFileName(), "ab");
}

TEST(Config, OnlyALineThatStartsWithAHashIsAComment)
{
    for (const char* pszLine : {"#debuglevel=15", " # debuglevel=15", "\t#debuglevel=15"})
        EXPECT_EQ(Parsed(pszLine).GetDebugLevel(), 0) << pszLine;
    EXPECT_STREQ(Parsed("debugfilename=log # of the run").GetDebugFileName(), "log#oftherun");
}

TEST(Config, ALineWithoutKeyOrValueIsSkipped)
{
    for (const char* pszLine : {"debuglevel", "=15", " = 15", "debuglevel=", "debuglevel = \r", "="})
        EXPECT_EQ(Parsed(std::string("debuglevel=7\n") + pszLine).GetDebugLevel(), 7) << pszLine;
    EXPECT_THAT(*Parsed("ChannelName=a;b\nChannelName=\n").GetChannelNames(), ElementsAre("a", "b"));
}

TEST(Config, TheKeyEndsAtTheFirstEqualSign)
{
    EXPECT_STREQ(Parsed("debugfilename=b=c").GetDebugFileName(), "b=c");
    EXPECT_STREQ(Parsed("debugfilename==").GetDebugFileName(), "=");
}

TEST(Config, KeysCompareExactlyAndUnknownOnesAreSkipped)
{
    for (const char* pszLine : {"Debuglevel=15", "DEBUGLEVEL=15", "debuglevel2=15", "debugleve=15", "a=b=c"})
        EXPECT_EQ(Parsed(pszLine).GetDebugLevel(), 0) << pszLine;
}

TEST(Config, TheLastLineOfASingleValueWins)
{
    EXPECT_EQ(Parsed("debuglevel=1\ndebuglevel=2").GetDebugLevel(), 2);
    EXPECT_STREQ(Parsed("MonitorIP=1.1.1.1\nMonitorIP=10.0.0.7\n").GetMonitorIPAddr(), "10.0.0.7");
    EXPECT_EQ(Parsed("REQ_CHL_PACKET_HEADER_LEN=3\nREQ_CHL_PACKET_HEADER_LEN=4").GetFilterCfg()->usReqHeaderLen, 4);
}

TEST(Config, SingleValues)
{
    const Parsed cfg("debuglevel=9\ndebugfilename=run\nReportInterval=5\nMonitorIP=10.1.2.3\nChannelNameEnable=0\n"
                     "TIME_SPACE=250\nagentver=3.14.159\nCELL_MEAS_TIMEOUT=1000\nSPC_DPI_CELL_MEAS=0x1F;0xABCDEF01\n"
                     "DPH_FILTER_ENABLE=1\nRecovery=1\nLogMaxSize=100\nListenAddress=127.0.0.1\n"
                     "TapSocket=/run/vex/tap\nTapSize=3\n");
    EXPECT_EQ(cfg.GetDebugLevel(), 9);
    EXPECT_STREQ(cfg.GetDebugFileName(), "run");
    EXPECT_EQ(cfg.GetStatusInfoReportInterval(), 5);
    EXPECT_STREQ(cfg.GetMonitorIPAddr(), "10.1.2.3");
    EXPECT_FALSE(cfg.GetChannelNameEnable());
    EXPECT_EQ(cfg.GetTimespaceForGuReq(), 250u);
    EXPECT_STREQ(cfg.GetAgentVersion(), "3.14.159");
    EXPECT_EQ(Version(cfg), "3 14 159");
    EXPECT_EQ(cfg.GetCellMeasTimeOut(), 1000);
    EXPECT_THAT(CellMeas(cfg), ElementsAre(0x1Fu, 0xABCDEF01u));
    EXPECT_TRUE(cfg.GetDphFilterEnable());
    EXPECT_TRUE(cfg.GetRecovery());
    EXPECT_EQ(cfg.GetLogMaxSize(), 100u);
    EXPECT_STREQ(cfg.GetListenAddress(), "127.0.0.1");
    EXPECT_STREQ(cfg.GetTapSocket(), "/run/vex/tap");
    EXPECT_EQ(cfg.GetTapBytes(), 3u << 20);
}

TEST(Config, TheTapsRingHasAMiBAtLeastAndAGiBAtMost)
{
    EXPECT_EQ(Parsed("TapSize=0").GetTapBytes(), 1u << 20);
    EXPECT_EQ(Parsed("TapSize=1024").GetTapBytes(), 1u << 30);
    EXPECT_EQ(Parsed("TapSize=4000000000").GetTapBytes(), 1u << 30);
    EXPECT_EQ(Parsed("TapSize=many").GetTapBytes(), 16u << 20);
}

TEST(Config, SwitchesAreOnForAnythingButZero)
{
    EXPECT_TRUE(Parsed("DPH_FILTER_ENABLE=-1").GetDphFilterEnable());
    EXPECT_TRUE(Parsed("DPH_FILTER_ENABLE=256").GetDphFilterEnable());
    EXPECT_FALSE(Parsed("DPH_FILTER_ENABLE=1\nDPH_FILTER_ENABLE=0").GetDphFilterEnable());
    EXPECT_TRUE(Parsed("ChannelNameEnable=2").GetChannelNameEnable());
    EXPECT_FALSE(Parsed("Recovery=1\nRecovery=0").GetRecovery());
}

TEST(Config, ANumberThatCannotBeReadGivesThePresetOfItsKey)
{
    EXPECT_EQ(Parsed("debuglevel=7\ndebuglevel=x").GetDebugLevel(), 0);
    EXPECT_EQ(Parsed("TIME_SPACE=x").GetTimespaceForGuReq(), 0u); // not its default of 100
    EXPECT_EQ(Parsed("CELL_MEAS_TIMEOUT=300\nCELL_MEAS_TIMEOUT=x").GetCellMeasTimeOut(), 200);
    EXPECT_EQ(Parsed("ReportInterval=3\nReportInterval=x").GetStatusInfoReportInterval(), 0);
    EXPECT_FALSE(Parsed("ChannelNameEnable=x").GetChannelNameEnable());
    EXPECT_FALSE(Parsed("Recovery=x").GetRecovery());
    EXPECT_EQ(Parsed("LogMaxSize=5\nLogMaxSize=x").GetLogMaxSize(), 0u);
    EXPECT_FALSE(Parsed("DPH_FILTER_ENABLE=1\nDPH_FILTER_ENABLE=x").GetDphFilterEnable());
    EXPECT_EQ(Parsed("ACK_CHL_PACKET_PAYLOAD_OFFSET=x").GetFilterCfg()->usAckPayloadOffset, 0);
}

TEST(Config, ANumberThatDoesNotFitIsCutToItsMember)
{
    EXPECT_EQ(Parsed("debuglevel=271").GetDebugLevel(), 15); // 256 + 15
    EXPECT_EQ(Parsed("debuglevel=-1").GetDebugLevel(), 0xFF);
    EXPECT_EQ(Parsed("REQ_CHL_PACKET_HEADER_LEN=65560").GetFilterCfg()->usReqHeaderLen, 24); // 65536 + 24
    EXPECT_EQ(Parsed("ReportInterval=4294967298").GetStatusInfoReportInterval(), 2);         // 2^32 + 2
    EXPECT_EQ(Parsed("ReportInterval=-3").GetStatusInfoReportInterval(), -3);
    EXPECT_EQ(Parsed("TIME_SPACE=-1").GetTimespaceForGuReq(), 0xFFFFFFFFu);
    EXPECT_EQ(Parsed("SPC_DPI_CELL_MEAS=0x100000005;0x1").GetFilterCfg()->ucDataTagFirst, 3);
    EXPECT_THAT(CellMeas(Parsed("SPC_DPI_CELL_MEAS=0x100000005;0x1")), ElementsAre(5u, 1u));
}

TEST(Config, AShortVersionKeepsItsTextAndHasZeros)
{
    const Parsed cfg("agentver=9.8.7\nagentver=1.2");
    EXPECT_EQ(Version(cfg), "1 2 0");
    EXPECT_STREQ(cfg.GetAgentVersion(), "1.2");
    EXPECT_EQ(Version(Parsed("agentver=beta")), "0 0 0");
    EXPECT_STREQ(Parsed("agentver=beta").GetAgentVersion(), "beta");
}

TEST(Config, AShortCellMeasurementValueHasAZero)
{
    EXPECT_THAT(CellMeas(Parsed("SPC_DPI_CELL_MEAS=0x10;0x20\nSPC_DPI_CELL_MEAS=0x30")), ElementsAre(0x30u, 0u));
    EXPECT_THAT(CellMeas(Parsed("SPC_DPI_CELL_MEAS=10;20")), ElementsAre(0u, 0u));
}

TEST(Config, SplitDropsEmptyPieces)
{
    std::vector<std::string> vecPieces = {"old"};
    EXPECT_TRUE(CConfig::Split("a;;b;", vecPieces, ";"));
    EXPECT_THAT(vecPieces, ElementsAre("a", "b"));
    EXPECT_TRUE(CConfig::Split("abc", vecPieces, ";"));
    EXPECT_THAT(vecPieces, ElementsAre("abc"));
    EXPECT_TRUE(CConfig::Split(";;", vecPieces, ";"));
    EXPECT_TRUE(vecPieces.empty());
    EXPECT_TRUE(CConfig::Split("", vecPieces, ";"));
    EXPECT_TRUE(vecPieces.empty());
}

TEST(Config, InitBringsTheDefaultsBack)
{
    Parsed cfg("debuglevel=9\nChannelName=a;b\nTIME_SPACE=1\nChannelNameEnable=0\nLTE_PRINT_ID_FILTER_LIST=0x1\n"
               "Recovery=1\nLogMaxSize=3\nListenAddress=127.0.0.1\nAllowFrom=127.0.0.1");
    cfg.Init();
    EXPECT_EQ(cfg.GetDebugLevel(), 0);
    EXPECT_TRUE(cfg.GetChannelNames()->empty());
    EXPECT_EQ(cfg.GetTimespaceForGuReq(), 100u);
    EXPECT_TRUE(cfg.GetChannelNameEnable());
    EXPECT_FALSE(cfg.IsPrintMessage(1));
    EXPECT_FALSE(cfg.GetRecovery());
    EXPECT_EQ(cfg.GetLogMaxSize(), 0u);
    EXPECT_STREQ(cfg.GetListenAddress(), "");
    EXPECT_TRUE(cfg.IsPeerAllowed(0));
}

TEST(Config, OutputConfigWritesTheCommandToDpiMap)
{
    std::string strRoot = "/tmp/vex-cfg-XXXXXX";
    ASSERT_NE(mkdtemp(strRoot.data()), nullptr);
    std::filesystem::create_directories(strRoot + "/cygdrive/d"); // the path is fixed: give it a root of its own
    const Parsed cfg("DPH_FILTER_REQ_DPI_CMD_PAIR={0x2a,0x200};{0x1,0x100}");
    const pid_t nChild = fork();
    if (nChild == 0) {
        if (chroot(strRoot.c_str()) != 0)
            _exit(1);
        cfg.OutputConfig();
        _exit(0);
    }
    int nStatus = -1;
    EXPECT_EQ(waitpid(nChild, &nStatus, 0), nChild);
    EXPECT_EQ(nStatus, 0);
    std::ostringstream text;
    text << std::ifstream(strRoot + "/cygdrive/d/save.cfg").rdbuf();
    EXPECT_EQ(text.str(), "0x100, 1\n0x200, 2a\n");
    std::filesystem::remove_all(strRoot);
}

TEST_F(ConfigFile, AMissingFileLeavesTheDefaults)
{
    EXPECT_TRUE(m_cfg.LoadConfigFile("/nonexistent/vex.cfg"));
    EXPECT_TRUE(m_cfg.LoadConfigFile("/tmp")); // a folder opens but can't be read
    EXPECT_TRUE(m_cfg.LoadConfigFile(nullptr));
    EXPECT_EQ(m_cfg.GetTimespaceForGuReq(), 100u);
}

TEST_F(ConfigFile, TheLastLineNeedsNoLineEnd)
{
    Write("debuglevel=3\nTIME_SPACE=7");
    EXPECT_TRUE(m_cfg.LoadConfigFile(m_strPath.c_str()));
    EXPECT_EQ(m_cfg.GetDebugLevel(), 3);
    EXPECT_EQ(m_cfg.GetTimespaceForGuReq(), 7u);
}

TEST_F(ConfigFile, ALineMayCrossTheReadsOf1023Bytes)
{
    Write("#" + std::string(1015, '-') + "\nTIME_SPACE=1234\n"); // bytes 1017 to 1032
    EXPECT_TRUE(m_cfg.LoadConfigFile(m_strPath.c_str()));
    EXPECT_EQ(m_cfg.GetTimespaceForGuReq(), 1234u);
}

TEST_F(ConfigFile, AZeroByteCutsItsReadOf1023Bytes)
{
    std::string strText = "debuglevel=5\n";
    strText += '\0';
    strText += "TIME_SPACE=7\n";
    strText.resize(1023, '#');
    strText += "\nReportInterval=9\n"; // the second read
    Write(strText);
    EXPECT_TRUE(m_cfg.LoadConfigFile(m_strPath.c_str()));
    EXPECT_EQ(m_cfg.GetDebugLevel(), 5);
    EXPECT_EQ(m_cfg.GetTimespaceForGuReq(), 100u);
    EXPECT_EQ(m_cfg.GetStatusInfoReportInterval(), 9);
}

TEST(ConfigInstance, DestoryMakesRoomForANewObject)
{
    CConfig* pFirst = CConfig::Instance();
    std::string strLine = "debuglevel=4";
    pFirst->ParseLine(strLine);
    EXPECT_EQ(CConfig::Instance(), pFirst);
    CConfig::Destory();
    EXPECT_EQ(pFirst->GetDebugLevel(), 4); // a thread that still reads it finds it whole
    EXPECT_NE(CConfig::Instance(), pFirst);
    EXPECT_EQ(CConfig::Instance()->GetDebugLevel(), 0);
}

// The example that users start from: what it says must be what the agent reads.
TEST(ConfigExample, EveryKeyIsRead)
{
    CConfig cfg;
    EXPECT_TRUE(cfg.LoadConfigFile(VEX_CONFIG_FILE));
    EXPECT_EQ(cfg.GetDebugLevel(), 7);
    EXPECT_STREQ(cfg.GetDebugFileName(), "vex");
    EXPECT_EQ(cfg.GetStatusInfoReportInterval(), 1);
    EXPECT_STREQ(cfg.GetMonitorIPAddr(), "127.0.0.1");
    EXPECT_STREQ(cfg.GetAgentVersion(), "0.1.0");
    EXPECT_FALSE(cfg.GetChannelNameEnable());
    EXPECT_TRUE(cfg.GetRecovery());
    EXPECT_EQ(cfg.GetLogMaxSize(), 0u);
    EXPECT_STREQ(cfg.GetListenAddress(), "");
    EXPECT_TRUE(cfg.IsPeerAllowed(0xC0000201)); // 192.0.2.1: everybody
    EXPECT_EQ(cfg.GetMonitorPortInfo()->size(), 4u);
    EXPECT_EQ(cfg.GetATDataMsgFilter()->size(), 5u);
    EXPECT_EQ(cfg.GetDPH_FILTER_REQ_DPI_CMD_PAIR().size(), 3u);
    EXPECT_EQ(cfg.GetDPH_FILTER_REQ_OSA_CFG()->size(), 4u);
    EXPECT_TRUE(cfg.GetDphFilterEnable());
    EXPECT_EQ(cfg.GetDphFilterRangeList()->size(), 2u);
    EXPECT_EQ(cfg.GetL1ExcludeIndMap()->Find(0x30010012), false);
    EXPECT_EQ(cfg.GetL1ExcludeIndMap()->Find(0x30010013), true);
    EXPECT_EQ(cfg.GetL3ExcludeIndMap()->Find(0x0043017F), true);
    EXPECT_EQ(cfg.GetL3ExcludeIndMap()->Find(0x00430180), false);
    EXPECT_EQ(cfg.GetLayerMsgCfg()->size(), 4u);
    EXPECT_TRUE(cfg.GetTdsIncludeIndMap()->contains(0x350));
    EXPECT_EQ(cfg.GetTdsCombMsg()->size(), 11u);
    EXPECT_THAT(CellMeas(cfg), ElementsAre(0x00500001u, 0x00500002u));
    EXPECT_TRUE(cfg.IsPrintMessage(0x30010001));
}

TEST(ConfigExample, TheLayoutTellsAnswersFromIndications)
{
    CConfig cfg;
    EXPECT_TRUE(cfg.LoadConfigFile(VEX_CONFIG_FILE));
    const FILTER_CFG_STRU& stLayout = *cfg.GetFilterCfg();
    EXPECT_EQ(stLayout.usReqHeaderLen, 24);
    for (const VALUE_STRU& stPair : stLayout.astReqHeader) {
        EXPECT_TRUE(stPair.usSize >= 1 && stPair.usSize <= 8);
        EXPECT_LE(stPair.usOffset + stPair.usSize, stLayout.usReqHeaderLen);
    }
    EXPECT_GT(stLayout.usAckPayloadOffset, 23); // an ack without payload must be long enough to be taken
    EXPECT_EQ(stLayout.usDataPayloadOffset, stLayout.usAckPayloadOffset);
    const VALUE_STRU& stTag = stLayout.astDataAckUid[1];
    EXPECT_EQ(stTag.usSize, 1);
    EXPECT_LE(stTag.usOffset, stLayout.usDataAckOffset); // the limit that the tag is read with
    EXPECT_LT(stLayout.usDataAckOffset, stLayout.usAckPayloadOffset);
}
