#include "e2e/AgentBench.h"
#include "e2e/MockUsb.h"
#include "support/WaitFor.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>

// The real vex-hotplug between modems of a testbed and the real agent. Records are in order, so what the agent has
// been told is settled as soon as a later record has come.

namespace
{
constexpr const char* RULES = "1234:5678 if=00 role=diag\n"
                              "1234:5678 if=01 role=data\n"
                              "1234:5678 if=02 role=gu\n"
                              "1234:* driver=option if=03 role=at\n"
                              "1234:5678 if=05 role=at\n";

class HotplugTest : public testing::Test
{
protected:
    HotplugTest() : m_bench("debuglevel=15") { m_bench.Dir().Write("hotplug.conf", RULES); }

    void StartHotplug(const std::vector<std::string>& more = {})
    {
        std::vector<std::string> args = {"--config", "hotplug.conf", "--state", "state/hotplug.state"};
        args.insert(args.end(), more.begin(), more.end());
        m_pHotplug =
            std::make_unique<CVexProcess>(std::string(VEX_BIN_DIR) + "/vex-hotplug", args, m_bench.Dir().Path());
    }
    bool HotplugSaid(const std::string& strText) const
    {
        return WaitFor([&] { return m_pHotplug->Errors().find(strText) != std::string::npos; });
    }
    void EndAgent(int nSignal)
    {
        m_bench.Agent().Signal(nSignal);
        ASSERT_TRUE(m_bench.Agent().WaitExit());
    }
    /// The log of the runs before doesn't count any more.
    void ForgetLogs() const
    {
        for (const std::string& strName : m_bench.Dir().Files())
            if (strName.ends_with(".d"))
                std::filesystem::remove(m_bench.Dir().Path() + "/" + strName);
    }

    /// A modem with ports on the interfaces 0 to 3, on terminals from nTty on.
    void PlugModem(const std::string& strPlace, int nTty)
    {
        m_usb.AddModem(strPlace, "1234", "5678");
        for (int i = 0; i < 4; ++i)
            m_usb.Plug(strPlace, i, nTty + i);
    }

    static std::string Attached(const std::string& strPlace, int nInterface, int nPort)
    {
        return "serial " + CMockUsb::LinkOf(strPlace, nInterface) + " attach, port is " + std::to_string(nPort) + "\n";
    }
    static std::string Detached(const std::string& strPlace, int nInterface, int nPort)
    {
        return "serial " + CMockUsb::LinkOf(strPlace, nInterface) + " detach, port is " + std::to_string(nPort) + "\n";
    }
    /// How often the agent was told so.
    int Count(const std::string& strLine) const
    {
        const std::string strLog = m_bench.Log();
        int nCount = 0;
        for (size_t i = strLog.find(strLine); i != std::string::npos; i = strLog.find(strLine, i + 1))
            ++nCount;
        return nCount;
    }
    /// Waits until the agent has been told so.
    bool Told(const std::string& strLine) const { return m_bench.Logged(strLine); }
    bool ToldAgain(const std::string& strLine) const
    {
        return WaitFor([&] { return Count(strLine) == 2; });
    }
    /// All records that the agent got.
    int Records() const { return Count(" attach, port is ") + Count(" detach, port is "); }

    CMockUsb m_usb; // before the agent: it opens the testbed's ports
    CAgentBench m_bench;
    std::unique_ptr<CVexProcess> m_pHotplug;
};
} // namespace

TEST_F(HotplugTest, AModemThatIsThereBecomesOneUe)
{
    PlugModem("1-4", 0);
    m_bench.StartAgent();
    StartHotplug();
    for (int i = 0; i < 4; ++i)
        EXPECT_TRUE(Told(Attached("1-4", i, 101 + i))) << i;
    // All of them in slot 0, opened under their names by path.
    for (const char* pszChannel : {"Lte Diag", "Lte Data", "Guom Cmd", "AT"})
        EXPECT_TRUE(m_bench.Logged(std::string("UE 0 ") + pszChannel + " attached")) << pszChannel;
    EXPECT_EQ(Records(), 4);
    EXPECT_EQ(m_bench.Log().find("[ERR]"), std::string::npos) << m_bench.Log();
    m_pHotplug->Signal(SIGTERM);
    EXPECT_EQ(m_pHotplug->WaitExit(), 0);
}

TEST_F(HotplugTest, PortsKeepTheirNumbersHoweverTheyComeBack)
{
    m_bench.StartAgent();
    StartHotplug();
    PlugModem("1-4", 0);
    ASSERT_TRUE(Told(Attached("1-4", 3, 104))); // the first to come has the lower numbers
    PlugModem("1-2.1", 4);
    ASSERT_TRUE(Told(Attached("1-2.1", 3, 204)));
    EXPECT_EQ(Records(), 8);

    for (const int nTty : {6, 0, 2, 1}) // GU of the second one; diag, GU, data of the first one
        m_usb.Unplug(nTty);
    m_usb.Plug("1-4", 2, 9);
    m_usb.Plug("1-2.1", 2, 0);
    m_usb.Plug("1-4", 1, 6);
    m_usb.Plug("1-4", 0, 1);
    ASSERT_TRUE(WaitFor([&] { return Records() >= 16; }));
    m_usb.Unplug(3); // AT of the first one, the last record
    ASSERT_TRUE(Told(Detached("1-4", 3, 104)));
    EXPECT_EQ(Records(), 17);
    EXPECT_EQ(Count(Detached("1-4", 0, 101)), 1);
    EXPECT_EQ(Count(Detached("1-4", 1, 102)), 1);
    EXPECT_EQ(Count(Detached("1-4", 2, 103)), 1);
    EXPECT_EQ(Count(Detached("1-2.1", 2, 203)), 1);
    EXPECT_EQ(Count(Attached("1-4", 0, 101)), 2);
    EXPECT_EQ(Count(Attached("1-4", 1, 102)), 2);
    EXPECT_EQ(Count(Attached("1-4", 2, 103)), 2);
    EXPECT_EQ(Count(Attached("1-2.1", 2, 203)), 2);
}

TEST_F(HotplugTest, APortWithoutARuleAndASecondPortOfARoleAreLeftOut)
{
    m_bench.StartAgent();
    StartHotplug({"--verbose"});
    PlugModem("1-4", 0);
    m_usb.Plug("1-4", 4, 4); // no rule
    m_usb.Plug("1-4", 5, 5); // a second AT port
    m_usb.AddModem("1-5", "4321", "5678");
    m_usb.Plug("1-5", 0, 6); // no rule for its vendor
    EXPECT_TRUE(HotplugSaid("/dev/ttyUSB4 (1234:5678 if=04 driver=option): no rule fits, left out\n"));
    EXPECT_TRUE(HotplugSaid(
        "/dev/ttyUSB5: conflict, /dev/ttyUSB3 is the modem's at port already; left out (rule of line 5)\n"));
    EXPECT_TRUE(HotplugSaid("/dev/ttyUSB6 (4321:5678 if=00 driver=option): no rule fits, left out\n"));
    ASSERT_TRUE(Told(Attached("1-4", 3, 104)));
    m_usb.Unplug(3); // the second AT port takes over
    ASSERT_TRUE(Told(Attached("1-4", 5, 104)));
    EXPECT_EQ(Count(Detached("1-4", 3, 104)), 1);
    EXPECT_EQ(Records(), 6);
}

TEST_F(HotplugTest, ANewAgentIsToldEverythingOnceAndNothingThatIsOver)
{
    PlugModem("1-4", 0);
    StartHotplug();
    EXPECT_TRUE(HotplugSaid("no agent listens on 127.0.0.1:20460 of this machine; waiting for one\n"));
    m_bench.StartAgent();
    ASSERT_TRUE(Told(Attached("1-4", 3, 104)));
    EXPECT_EQ(Records(), 4);
    for (const int nSignal : {SIGTERM, SIGKILL}) { // back at once: no look needs to fall between
        EndAgent(nSignal);
        ForgetLogs();
        m_bench.StartAgent();
        ASSERT_TRUE(Told(Attached("1-4", 3, 104))) << nSignal;
        EXPECT_EQ(Records(), 4) << nSignal;
    }
    EndAgent(SIGKILL);
    ForgetLogs();
    m_usb.Unplug(1); // while no agent is there
    m_usb.Unplug(2);
    m_usb.Plug("1-4", 2, 7);
    m_bench.StartAgent();
    ASSERT_TRUE(Told(Attached("1-4", 3, 104)));
    EXPECT_EQ(Records(), 3);
    EXPECT_EQ(Count(Attached("1-4", 0, 101)), 1);
    EXPECT_EQ(Count(Attached("1-4", 2, 103)), 1);
    m_usb.Plug("1-4", 1, 8);
    ASSERT_TRUE(Told(Attached("1-4", 1, 102)));
    EXPECT_EQ(Records(), 4);
}

TEST_F(HotplugTest, AnAgentKeepsItsPortsOverARestartOfTheProgramAndLosesThoseThatWent)
{
    PlugModem("1-4", 0);
    PlugModem("1-6", 4);
    m_bench.StartAgent();
    StartHotplug();
    ASSERT_TRUE(Told(Attached("1-6", 3, 204)));
    ASSERT_TRUE(m_bench.Logged("UE 1 Guom Cmd attached"));
    m_pHotplug->Signal(SIGTERM);
    ASSERT_EQ(m_pHotplug->WaitExit(), 0);
    for (const int nTty : {0, 1, 2, 3})
        m_usb.Unplug(nTty);
    StartHotplug({"--once"});
    EXPECT_EQ(m_pHotplug->WaitExit(), 0) << m_pHotplug->Errors();
    for (const int nPort : {101, 102, 103, 104})
        EXPECT_TRUE(Told("serial  detach, port is " + std::to_string(nPort) + "\n")) << nPort;
    EXPECT_TRUE(m_bench.Logged("UE 0 Lte Diag detached"));
    EXPECT_TRUE(ToldAgain(Attached("1-6", 3, 204))); // the last one
    EXPECT_EQ(Count(Attached("1-6", 0, 201)), 2);    // which the agent ignores while the port is open
    EXPECT_EQ(Count("UE 1 Lte Diag attached"), 1);
    EXPECT_EQ(Count("UE 1 Lte Diag detached"), 0);
}

TEST_F(HotplugTest, TheExampleRulesHaveNoFaultWithOrWithoutTheirExamples)
{
    std::ostringstream text;
    text << std::ifstream(std::string(VEX_SOURCE_DIR) + "/config/hotplug.conf").rdbuf();
    const std::string strExamples = std::regex_replace(text.str(), std::regex("#1234"), "1234");
    ASSERT_NE(text.str(), strExamples);
    PlugModem("1-4", 0);
    for (const std::string& strRules : {text.str(), strExamples}) {
        m_bench.Dir().Write("hotplug.conf", strRules);
        StartHotplug({"--list"});
        EXPECT_EQ(m_pHotplug->WaitExit(), 0) << m_pHotplug->Errors();
        EXPECT_EQ(m_pHotplug->Errors(), "");
    }
}

TEST_F(HotplugTest, TheListShowsPortsWithTheirRulesAndTouchesNothing)
{
    PlugModem("1-4", 0);
    m_usb.Plug("1-4", 4, 4);
    m_usb.Plug("1-4", 5, 5);
    CMockUsb::ForgetUdevEntry(5); // not ready yet, so it isn't shown
    StartHotplug({"--list", "--json"});
    ASSERT_EQ(m_pHotplug->WaitExit(), 0) << m_pHotplug->Errors();
    const auto list = nlohmann::json::parse(m_pHotplug->Output());
    ASSERT_EQ(list.size(), 5U);
    EXPECT_EQ(list[3], (nlohmann::json{{"node", "/dev/ttyUSB3"},
                                       {"name", "/dev/serial/by-path/pci-0000:00:14.0-usb-0:4:1.3-port0"},
                                       {"id", "1234:5678"},
                                       {"interface", "03"},
                                       {"driver", "option"},
                                       {"modem", "pci-0000:00:14.0-usb-0:4"},
                                       {"state", "served"},
                                       {"role", "at"},
                                       {"rule", 4},
                                       {"number", 104}}));
    EXPECT_EQ(list[4]["state"], "no rule");
    StartHotplug({"--once", "--dry-run"});
    EXPECT_EQ(m_pHotplug->WaitExit(), 0);
    EXPECT_NE(m_pHotplug->Errors().find("would tell port 101, diag: arrives, "), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(m_bench.Dir().Path() + "/state"));
    StartHotplug({"--once"});
    EXPECT_EQ(m_pHotplug->WaitExit(), 3); // no agent
    EXPECT_EQ(m_bench.Dir().Read("state/hotplug.state"),
              "# Numbers of modems by the path of their USB device: the ports of modem n are 100 n + 1 to + 4.\n"
              "1 pci-0000:00:14.0-usb-0:4\n");
}
