#include "e2e/AgentBench.h"
#include "support/WaitFor.h"

#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>

// AT tools of Debian's at the terminal that vex-client makes, with the simulated modem behind it.

namespace
{
class AtToolsTest : public testing::Test
{
protected:
    void SetUp() override
    {
        m_bench.StartAgent();
        m_bench.StartModem({"--first-port", "101"});
        ASSERT_TRUE(m_bench.WaitConfirmed(101));
        m_pClient = &m_bench.StartClient({"--bind", "104", "at", "--pty", Link()});
        ASSERT_TRUE(m_pClient->Saw("is the modem's AT port")) << m_pClient->Errors();
    }

    std::string Link() const { return m_bench.Dir().Path() + "/modem"; }
    /// Runs a program of Debian's through the shell; its status.
    std::optional<int> Run(const std::string& strCommand)
    {
        CVexProcess process("/bin/sh", {"-c", strCommand}, m_bench.Dir().Path());
        const auto status = process.WaitExit(std::chrono::seconds(30));
        m_strOutput = process.Output() + process.Errors();
        return status;
    }

    CAgentBench m_bench;
    CVexProcess* m_pClient = nullptr;
    std::string m_strOutput;
};
} // namespace

TEST_F(AtToolsTest, GammuIdentifiesTheModem)
{
    m_bench.Dir().Write("gammurc", "[gammu]\nport = " + Link() + "\nconnection = at115200\n");
    ASSERT_EQ(Run("gammu -c gammurc identify"), 0) << m_strOutput;
    for (const char* pszLine : {"Manufacturer         : Vex", "Model                : unknown (Simulated modem)",
                                "Firmware             : V100R001C10B200SP00", "IMEI                 : 860000000110000"})
        EXPECT_NE(m_strOutput.find(pszLine), std::string::npos) << m_strOutput;
}

TEST_F(AtToolsTest, AChatScriptGetsItsAnswersEchoAndErrors)
{
    m_bench.Dir().Write("script", R"(TIMEOUT 5
ABORT '+CME ERROR: 3'
'' 'ATE1'
'OK' 'AT+CGSN'
'AT+CGSN' ''
'860000000110000' ''
'OK' 'AT+CMEE=2'
'OK' 'AT+NONSENSE'
'operation not supported' 'AT+CMEE=0'
'OK' 'AT+NONSENSE'
'ERROR' 'ATE0'
'OK' 'AT+COPS?'
'Simulated' 'AT+CREG?'
'+CREG: 1,1' 'AT+CSQ'
'+CSQ:' ''
'OK'
)");
    EXPECT_EQ(Run("/usr/sbin/chat -v -s -f script <modem >modem"), 0) << m_strOutput;
}

TEST_F(AtToolsTest, TheLinkGoesWithTheClientAndTheClientWithTheAgent)
{
    m_pClient->Signal(SIGTERM);
    EXPECT_EQ(m_pClient->WaitExit(), 0);
    EXPECT_FALSE(std::filesystem::is_symlink(Link()));
    CVexProcess& client = m_bench.StartClient({"--bind", "104", "at", "--pty", Link()});
    ASSERT_TRUE(client.Saw("is the modem's AT port")) << client.Errors();
    m_bench.Agent().Signal(SIGTERM);
    EXPECT_EQ(client.WaitExit(), 2);
    EXPECT_FALSE(std::filesystem::is_symlink(Link()));
}
