#include "hotplug/Hotplug.h"
#include "hotplug/PortList.h"
#include "support/UsbPorts.h"
#include "support/VexProcess.h"

#include <nlohmann/json.hpp>
#include <sstream>

namespace
{
/// Ports that are there, without events.
class CFixedSource : public IPortSource
{
public:
    explicit CFixedSource(std::vector<USB_PORT> ports) : m_ports(std::move(ports)) {}
    int Fd() const override { return -1; }
    std::vector<USB_PORT> List() override { return m_ports; }
    bool Read(std::vector<PORT_EVENT>&) override { return true; }

private:
    std::vector<USB_PORT> m_ports;
};

/// Runs the program with these ports in the place of udev's.
class HotplugList : public testing::Test
{
protected:
    int Run(std::vector<std::string> args)
    {
        args.insert(args.end(), {"--config", m_dir.Path() + "/rules", "--state", m_dir.Path() + "/state"});
        m_out.str("");
        m_errors.str("");
        const auto Open = [&](std::string&) { return std::make_unique<CFixedSource>(m_ports); };
        return RunHotplug(args, Open, m_out, m_errors);
    }

    const CTempDir m_dir;
    std::vector<USB_PORT> m_ports = {UsbPort("b", 0, 12), UsbPort("a", 1, 3), UsbPort("a", 0, 2), UsbPort("a", 4, 4)};
    std::ostringstream m_out;
    std::ostringstream m_errors;
};
constexpr const char* RULES = "1234:5678 if=00 role=diag\n1234:5678 if=04 role=diag\n";
} // namespace

TEST_F(HotplugList, TheTableHasEachPortWithItsRuleAndNumber)
{
    m_dir.Write("rules", RULES);
    m_dir.Write("state", "7 b\n");
    EXPECT_EQ(Run({"--list"}), 0);
    EXPECT_EQ(m_out.str(),
              "PORT           ID         IF  DRIVER  ROLE  NUMBER  RULE                                MODEM\n"
              "/dev/ttyUSB2   1234:5678  00  option  diag  101     line 1                              a\n"
              "/dev/ttyUSB3   1234:5678  01  option  -     -       no rule                             a\n"
              "/dev/ttyUSB4   1234:5678  04  option  diag  -       line 2, conflict with /dev/ttyUSB2  a\n"
              "/dev/ttyUSB12  1234:5678  00  option  diag  701     line 1                              b\n");
    EXPECT_EQ(m_errors.str(), "");
    EXPECT_EQ(m_dir.Read("state"), "7 b\n");
}

TEST_F(HotplugList, JsonHasAnObjectForEachPort)
{
    m_dir.Write("rules", RULES);
    EXPECT_EQ(Run({"--list", "--json"}), 0);
    const auto list = nlohmann::json::parse(m_out.str());
    ASSERT_EQ(list.size(), 4U);
    EXPECT_EQ(list[2], nlohmann::json::parse(R"({"node": "/dev/ttyUSB4", "name": "/dev/serial/by-path/a:4",
        "id": "1234:5678", "interface": "04", "driver": "option", "modem": "a", "state": "conflict", "role": "diag",
        "rule": 2, "conflict": "/dev/ttyUSB2"})"));
    EXPECT_EQ(list[1]["state"], "no rule");
    EXPECT_FALSE(list[1].contains("rule"));
    m_ports.clear();
    EXPECT_EQ(Run({"--list", "--json"}), 0);
    EXPECT_EQ(m_out.str(), "[]\n");
}

TEST_F(HotplugList, WithoutARulesFileTheListShowsThePortsAllTheSame)
{
    EXPECT_EQ(Run({"--list"}), 0);
    EXPECT_NE(m_out.str().find("no rule"), std::string::npos);
    EXPECT_EQ(m_errors.str(), m_dir.Path() + "/rules: No such file or directory\n");
    EXPECT_EQ(Run({"--once"}), 2);
    m_ports.clear();
    EXPECT_EQ(Run({"--list"}), 0);
    EXPECT_EQ(m_out.str(), "no serial port of a USB device is there\n");
}

TEST_F(HotplugList, RulesThatAreWrongEndTheProgramWithAllTheirFaults)
{
    m_dir.Write("rules", "1234 role=at\n\n1234:* role=at\n");
    for (const char* pszWhat : {"--list", "--once"}) {
        EXPECT_EQ(Run({pszWhat}), 2);
        EXPECT_EQ(m_errors.str(), m_dir.Path() + "/rules:1: '1234' is no VENDOR:PRODUCT such as 1234:abcd or 1234:*\n" +
                                      m_dir.Path() + "/rules:3: if= or driver= is missing\n");
    }
}

TEST_F(HotplugList, WrongUsageIsTold)
{
    m_dir.Write("rules", RULES);
    for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{{"--json"},
                                                                                      {"--list", "--once"},
                                                                                      {"--agent", "127.0.0.1"},
                                                                                      {"--agent", "127.0.0.1:0"},
                                                                                      {"--agent", ":x"},
                                                                                      {"--agent", "127.0.0.1:70000"},
                                                                                      {"--forget", "a", "--once"},
                                                                                      {"--no-such"}}) {
        EXPECT_EQ(Run(args), 1) << args[0];
        EXPECT_NE(m_errors.str(), "") << args[0];
    }
}

TEST_F(HotplugList, ADryRunShowsTheRecordsAndKeepsNothing)
{
    m_dir.Write("rules", RULES);
    EXPECT_EQ(Run({"--dry-run", "--once"}), 0);
    EXPECT_EQ(m_errors.str(),
              "/dev/ttyUSB4: conflict, /dev/ttyUSB2 is the modem's diag port already; left out (rule of line 2)\n"
              "would tell port 101, diag: arrives, /dev/serial/by-path/a:0 of modem a\n"
              "would tell port 201, diag: arrives, /dev/serial/by-path/b:0 of modem b\n");
    EXPECT_EQ(m_dir.Files(), std::vector<std::string>{"rules"});
}

TEST_F(HotplugList, ForgetGivesUpTheNumbersOfAModem)
{
    m_dir.Write("state", "1 a\n2 b\n");
    EXPECT_EQ(Run({"--forget", "c"}), 1);
    EXPECT_EQ(Run({"--forget", "a"}), 0);
    EXPECT_EQ(m_dir.Read("state").substr(m_dir.Read("state").find('\n') + 1), "2 b\n");
}

TEST_F(HotplugList, WithoutUdevTheProgramEndsWithTheReason)
{
    m_dir.Write("rules", RULES);
    const auto Open = [](std::string& strError) {
        strError = "no udev";
        return std::unique_ptr<IPortSource>();
    };
    EXPECT_EQ(RunHotplug({"--list", "--config", m_dir.Path() + "/rules"}, Open, m_out, m_errors), 4);
    EXPECT_EQ(m_errors.str(), "no udev\n");
}
