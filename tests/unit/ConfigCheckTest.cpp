#include "common/ConfigCheck.h"

#include "common/Config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

namespace
{
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> Check(const std::string& strText)
{
    std::vector<std::string> lines;
    for (const CONFIG_FINDING& stFinding : CheckConfig(strText))
        lines.push_back(FindingText("F", stFinding));
    return lines;
}

/// What the check says of one line.
struct LINE_CASE
{
    std::string strLine;
    std::string strFinding; // behind "F:1: "; empty for none
};

class ConfigCheckLine : public testing::TestWithParam<LINE_CASE>
{
};
} // namespace

TEST_P(ConfigCheckLine, HasItsFinding)
{
    const auto& [strLine, strFinding] = GetParam();
    const std::vector<std::string> found = Check(strLine + "\n");
    if (strFinding.empty())
        EXPECT_THAT(found, IsEmpty()) << strLine;
    else
        EXPECT_THAT(found, ElementsAre("F:1: " + strFinding)) << strLine;
}

constexpr const char* ID_SET_FORM = "isn't of the form {0xHEX,...}, [0xHEX,0xHEX] or (0xHEX,0xHEX)";

INSTANTIATE_TEST_SUITE_P(
    All, ConfigCheckLine,
    testing::Values(
        LINE_CASE{"", ""}, LINE_CASE{"# anything = 3", ""}, LINE_CASE{" \t\r", ""},
        LINE_CASE{"debuglevel", "warning: no \"=\"; the line is passed over"},
        LINE_CASE{"= 3", "warning: no key before \"=\"; the line is passed over"},
        LINE_CASE{"debuglevel =", "warning: debuglevel has no value; the line is passed over"},
        LINE_CASE{"debuglevl=7", "error: unknown key \"debuglevl\"; \"debuglevel\" is known"},
        LINE_CASE{"TIMESPACE=7", "error: unknown key \"TIMESPACE\"; \"TIME_SPACE\" is known"},
        LINE_CASE{"something_else_altogether=7", "error: unknown key \"something_else_altogether\""},
        LINE_CASE{"debuglevel = 1 5", ""}, LINE_CASE{"debuglevel=16", "warning: debuglevel is 16; 0 to 15 are meant"},
        LINE_CASE{"debuglevel=-1", "warning: debuglevel is -1; 0 to 15 are meant"},
        LINE_CASE{"debuglevel=x", "error: \"x\" is no number"},
        LINE_CASE{"debuglevel=7x", "error: \"7x\" is no number"},
        LINE_CASE{"LogMaxSize=4294967296", "warning: \"4294967296\" needs more than 32 bits; the high ones are lost"},
        LINE_CASE{"TapSize=1024", ""}, LINE_CASE{"TapSize=1025", "warning: TapSize is 1025; 1 to 1024 are meant"},
        LINE_CASE{"TapSize=0", "warning: TapSize is 0; 1 to 1024 are meant"},
        LINE_CASE{"TapSocket=/" + std::string(106, 'a'), ""},
        LINE_CASE{"TapSocket=/" + std::string(107, 'a'),
                  "warning: the path has 108 characters; a socket's has 107 at most"},
        LINE_CASE{"Recovery=2", "warning: Recovery is 2; 0 to 1 are meant"},
        LINE_CASE{"agentver=1.2", "error: \"1.2\" isn't of the form N.N.N"}, LINE_CASE{"agentver=1.2.3", ""},
        LINE_CASE{"ListenAddress=127.0.0", "error: \"127.0.0\" is no IPv4 address"},
        LINE_CASE{"AllowFrom=127.0.0.0/8;10.0.0.1", ""},
        LINE_CASE{"AllowFrom=127.0.0.0/33", "error: \"127.0.0.0/33\" is neither ADDRESS nor ADDRESS/BITS"},
        LINE_CASE{"MonitorPort=21000:1;21001:0;21002", ""},
        LINE_CASE{"MonitorPort=0", "warning: port 0; 1 to 65535 are meant"},
        LINE_CASE{"MonitorPort=65536:1", "warning: port 65536; 1 to 65535 are meant"},
        LINE_CASE{"MonitorPort=5:2", "warning: \"5:2\": 1 means TCP, 0 UDP, and this is taken for TCP"},
        LINE_CASE{"MonitorPort=a:1", "error: \"a:1\" is neither PORT:0, PORT:1 nor PORT"},
        LINE_CASE{"ChannelPort=1;x", "error: \"x\" is no number"}, LINE_CASE{"SPC_DPI_CELL_MEAS=0x1;0x2", ""},
        LINE_CASE{"SPC_DPI_CELL_MEAS=0x1", "warning: SPC_DPI_CELL_MEAS has 1 items; 2 are meant"},
        LINE_CASE{"TDS_COMB_IND_MSG_FILTER=12", "error: \"12\" isn't of the form 0xHEX"},
        LINE_CASE{"DPH_FILTER_RANGE={0x10,0x10}", ""},
        LINE_CASE{"DPH_FILTER_RANGE={0x11,0x10}",
                  "warning: \"{0x11,0x10}\" begins behind its end, so it holds nothing"},
        LINE_CASE{"DPH_FILTER_RANGE={0x11,0x1FFFFFFFF}",
                  "warning: \"{0x11,0x1FFFFFFFF}\" needs more than 32 bits; the high ones are lost"},
        LINE_CASE{"DPH_FILTER_RANGE={0x11}", "error: \"{0x11}\" isn't of the form {0xHEX,0xHEX}"},
        LINE_CASE{"DPH_FILTER_REQ_DPI_CMD_PAIR={0x2,0x1}", ""},
        LINE_CASE{"DPH_FILTER_REQ_OSA_CFG=1-{0x1-0x2}:{3,4}", ""},
        LINE_CASE{"DPH_FILTER_REQ_OSA_CFG=3-{0x1-0x2}:{3,4}",
                  "warning: \"3-{0x1-0x2}:{3,4}\": no modem has version 3, only 1 or 2"},
        LINE_CASE{"DPH_FILTER_REQ_OSA_CFG=1-{0x2-0x1}:{3,4}",
                  "warning: \"1-{0x2-0x1}:{3,4}\" begins behind its end, so it holds nothing"},
        LINE_CASE{"DPH_FILTER_IND_LAYER_MSG_CFG={0x1,0x2}:{16,0};*:{0,0}", ""},
        LINE_CASE{"DPH_FILTER_IND_LAYER_MSG_CFG={0x1,2}:{16,0}",
                  "error: \"{0x1,2}:{16,0}\" isn't of the form {0xHEX,...}:{N,N} or *:{N,N}"},
        LINE_CASE{"DPI_L1_FILTER_IND_RANGE_CFG=+[0x1,0x2];-{0x3};(0x4,0x5);{0x6,0x7,0x8}", ""},
        LINE_CASE{"DPI_L1_FILTER_IND_RANGE_CFG=-[0x2,0x1]",
                  "warning: \"-[0x2,0x1]\" begins behind its end, so it holds nothing"},
        LINE_CASE{"DPI_L1_FILTER_IND_RANGE_CFG=[0x1]", std::string("error: \"[0x1]\" ") + ID_SET_FORM},
        LINE_CASE{"DPI_L1_FILTER_IND_RANGE_CFG=-", std::string("error: \"-\" ") + ID_SET_FORM},
        LINE_CASE{"DPI_L1_FILTER_IND_RANGE_CFG={0x100000000}",
                  "warning: \"{0x100000000}\" needs more than 32 bits; the high ones are lost"},
        LINE_CASE{"DATA_ACK_CHL_PACKET_UID={0,0};{4,8};{65535,1}", ""},
        LINE_CASE{"DATA_ACK_CHL_PACKET_UID={0,0};{4,9};{0,0}",
                  "warning: \"{4,9}\": a field has 1 to 8 bytes, so this one is absent"},
        LINE_CASE{"DATA_ACK_CHL_PACKET_UID={0,0};{65536,1};{0,0}",
                  "warning: \"{65536,1}\": an offset is at most 65535"},
        LINE_CASE{"ACK_CHL_PACKET_HEADER={0,4}", "warning: ACK_CHL_PACKET_HEADER has 1 items; 6 are meant"}));

TEST(ConfigCheck, CountsLinesAndNamesTheFirstOfAKeyThatStandsTwice)
{
    EXPECT_THAT(Check("debuglevel=1\n\nTIME_SPACE=1\ndebuglevel=2\nAllowFrom=1.2.3.4\nAllowFrom=1.2.3.5\n"),
                ElementsAre("F:4: warning: debuglevel stands in line 1 already; this one counts"));
}

TEST(ConfigCheck, SeesNulBytesAndAMissingNewline)
{
    EXPECT_THAT(Check(std::string("debug\0level=1\nTIME_SPACE=1", 26)),
                ElementsAre("F:1: warning: a NUL byte; what follows it within a kilobyte isn't read",
                            "F:2: warning: the last line has no newline"));
    EXPECT_THAT(Check(""), IsEmpty());
}

TEST(ConfigCheck, ConfiguredPortsMustExistAndHaveNumbers)
{
    EXPECT_THAT(Check("ChannelName=/dev/null;/does/not/exist\nChannelPort=1;2\n"),
                ElementsAre("F:1: warning: /does/not/exist doesn't exist now"));
    EXPECT_THAT(Check("ChannelName=/dev/null\nChannelName=/dev/zero\nChannelPort=1\n"),
                ElementsAre("F:2: error: ChannelPort has numbers for 1 of 2 names of ChannelName; the agent would not "
                            "start"));
    EXPECT_THAT(Check("ChannelNameEnable=0\nChannelName=/does/not/exist\n"), IsEmpty());
}

TEST(ConfigCheck, TheShippedFileIsClean)
{
    const auto text = ReadConfigText(VEX_CONFIG_FILE);
    ASSERT_TRUE(text);
    EXPECT_THAT(Check(*text), IsEmpty());
    // With everything that stands in comments switched on, too; but its ports aren't here.
    std::string strAll;
    std::istringstream lines(*text);
    for (std::string strLine; std::getline(lines, strLine); strAll += strLine + "\n")
        if (strLine.starts_with('#') && strLine.find(" = ") != std::string::npos && strLine[1] != ' ')
            strLine.erase(0, 1);
    EXPECT_NE(strAll, *text);
    EXPECT_THAT(Check(strAll), IsEmpty());
    EXPECT_EQ(ReadConfigText("/does/not/exist"), std::nullopt);
}
