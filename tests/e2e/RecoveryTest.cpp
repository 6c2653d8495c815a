#include "e2e/AgentBench.h"
#include "e2e/ScriptedLinks.h"
#include "e2e/ScriptedUe.h"
#include "e2e/StatusEars.h"
#include "support/WaitFor.h"

#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <iomanip>
#include <sstream>

// What comes back after it went: the agent itself, ports, links. With Recovery = 1 it works again by itself; without
// it stays as it was.

namespace
{
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr uint32_t PLAIN_CMD = 0x10014003;
constexpr uint32_t DSP_ID = 0x30000001; // config/vex.cfg lets it pass
constexpr uint32_t HOST_CONNECT = 0x10065000;
constexpr PORT_RANGE DIAG_PORT{101, 101};
constexpr const char* pszOn = "Recovery = 1";
constexpr const char* pszOff = "Recovery = 0";

constexpr milliseconds COMES_BACK = seconds(4); // looked for once a second, and a second of settling
constexpr milliseconds STAYS_AWAY = milliseconds(2500);

bool IsListening(unsigned short usPort, milliseconds limit = SOCKET_LIMIT)
{
    return ConnectTcp(usPort, limit).IsOpen();
}

size_t OpenFiles(pid_t lPid)
{
    size_t szCount = 0;
    for ([[maybe_unused]] const auto& entry :
         std::filesystem::directory_iterator("/proc/" + std::to_string(lPid) + "/fd"))
        ++szCount;
    return szCount;
}

/// A modem behind configured names, which are links in the bench's folder that come and go.
class CNamedModem
{
public:
    explicit CNamedModem(CAgentBench& bench) : m_bench(bench)
    {
        std::string strNames;
        for (size_t i = 0; i < SERIALNUM; ++i)
            strNames += (i > 0 ? ";" : "") + Name(i);
        m_bench.AddConfig("ChannelNameEnable=1\nChannelPort=101;102;103;104\nChannelName=" + strNames);
    }

    void Plug()
    {
        m_pUe = std::make_unique<CScriptedUe>(101, "0");
        for (size_t i = 0; i < SERIALNUM; ++i)
            std::filesystem::create_symlink(m_pUe->Port(static_cast<enSerialType>(i)).Name(), Name(i));
    }
    void Unplug()
    {
        for (size_t i = 0; i < SERIALNUM; ++i) {
            std::filesystem::remove(Name(i));
            m_pUe->Port(static_cast<enSerialType>(i)).Unplug();
        }
        m_pGone = std::move(m_pUe); // its ends of the terminals stay, so that the next modem gets other ones
    }
    CScriptedUe& Ue() { return *m_pUe; }
    std::string Name(size_t szPort) const { return m_bench.Dir().Path() + "/modem-" + std::to_string(szPort); }

private:
    CAgentBench& m_bench;
    std::unique_ptr<CScriptedUe> m_pUe;
    std::unique_ptr<CScriptedUe> m_pGone;
};

/// A request of the client goes to this modem and its answer comes back.
void ExpectServed(CTcpClient& client, CScriptedUe& ue)
{
    ASSERT_TRUE(client.Send(PLAIN_CMD, PKT_TYPE_CMD));
    const auto stReq = ue.ReadRequest();
    ASSERT_TRUE(stReq);
    EXPECT_EQ(stReq->ulCmdId, PLAIN_CMD);
    ue.SendAck(PLAIN_CMD, 0, Fill(4));
    EXPECT_TRUE(client.Await(PLAIN_CMD));
}

/// An agent that dies with a client connected, and its port then lingers.
void LeaveLingeringPort(CAgentBench& bench)
{
    bench.StartAgent();
    CTcpClient client(CHANNEL_LTE_DIAG);
    ASSERT_TRUE(client.Ask(AGENT_CMD_CHANNEL_QUERY, PKT_TYPE_AGENT));
    bench.Agent().Signal(SIGKILL);
    ASSERT_TRUE(bench.Agent().WaitExit());
    ASSERT_TRUE(SawClose(client.Fd()));
}
} // namespace

TEST(Recovery, TheAgentStartsAgainAtOnce)
{
    CAgentBench bench(pszOn);
    LeaveLingeringPort(bench);
    bench.StartAgent();
    for (const unsigned short usPort : LISTENPORT)
        EXPECT_TRUE(IsListening(usPort)) << usPort;
    EXPECT_TRUE(IsListening(DEVICE_MONITOR_PORT));
    EXPECT_TRUE(bench.Agent().IsRunning());
}

TEST(NoRecovery, APortThatLingersEndsTheNextRun)
{
    CAgentBench bench(pszOff);
    LeaveLingeringPort(bench);
    bench.StartAgent();
    EXPECT_EQ(bench.Agent().WaitExit(), 0);
}

TEST(Recovery, TheMonitorsPortIsTriedAgainWhileItIsTaken)
{
    const CStatusEars status;
    CUniqueFd taken = ListenTcp(DEVICE_MONITOR_PORT);
    CAgentBench bench(pszOn);
    bench.StartAgent();
    ASSERT_TRUE(bench.Logged("20460"));
    EXPECT_TRUE(WaitFor([&] { return bench.Agent().Errors().find("20460") != std::string::npos; }));
    std::this_thread::sleep_for(milliseconds(2200)); // two more tries
    taken.Reset();
    CScriptedUe ue(101, "modem");
    ASSERT_TRUE(IsListening(DEVICE_MONITOR_PORT, seconds(3)));
    ASSERT_TRUE(ue.Attach(SERIAL_TYPE_AT));
    EXPECT_TRUE(status.AwaitConnects({104, 104}, 1, seconds(3)));
    const std::string strErrors = bench.Agent().Errors();
    EXPECT_EQ(std::ranges::count(strErrors, '\n'), 1) << strErrors;
}

TEST(NoRecovery, AMonitorsPortThatWasTakenStaysClosed)
{
    CUniqueFd taken = ListenTcp(DEVICE_MONITOR_PORT);
    CAgentBench bench(pszOff);
    bench.StartAgent();
    ASSERT_TRUE(bench.Logged("CDeviceMonitor socket bind fail!"));
    taken.Reset();
    EXPECT_FALSE(IsListening(DEVICE_MONITOR_PORT, STAYS_AWAY));
    EXPECT_TRUE(IsListening(20260));
}

TEST(Recovery, AConfiguredPortThatAppearsLaterIsOpened)
{
    const CStatusEars status;
    CAgentBench bench(pszOn);
    CNamedModem modem(bench);
    bench.StartAgent();
    ASSERT_TRUE(bench.Logged("Open Serial " + modem.Name(0) + " fail!"));
    modem.Plug();
    EXPECT_TRUE(status.AwaitConnects(DIAG_PORT, 1, COMES_BACK));
    EXPECT_TRUE(modem.Ue().TakeHandshake());
    EXPECT_TRUE(status.AwaitUes(1, COMES_BACK));
}

TEST(NoRecovery, AConfiguredPortThatAppearsLaterIsNotSeen)
{
    const CStatusEars status;
    CAgentBench bench(pszOff);
    CNamedModem modem(bench);
    bench.StartAgent();
    ASSERT_TRUE(bench.Logged("Open Serial " + modem.Name(2) + " fail!"));
    modem.Plug();
    EXPECT_FALSE(status.AwaitConnects(DIAG_PORT, 1, STAYS_AWAY));
}

namespace
{
/// The agent with the modem there and confirmed, and a client of its diag channel; null when it isn't confirmed.
std::unique_ptr<CTcpClient> StartServed(CAgentBench& bench, CNamedModem& modem)
{
    modem.Plug();
    bench.StartAgent();
    const bool bAsked = bench.Logged("Send HOST_CONNECT cmd to UE"); // the other ports may take their time first
    if (!bAsked || !modem.Ue().TakeHandshake() || !bench.WaitConfirmed(101))
        return nullptr;
    return bench.BoundClient(CHANNEL_LTE_DIAG, 101);
}
} // namespace

TEST(Recovery, AConfiguredPortThatComesBackWorksAgain)
{
    const CStatusEars status;
    CAgentBench bench(pszOn);
    CNamedModem modem(bench);
    const auto pClient = StartServed(bench, modem);
    ASSERT_TRUE(pClient && pClient->IsOpen());
    modem.Unplug();
    EXPECT_TRUE(SawClose(pClient->Fd()));
    pClient->Close();

    status.Drain();
    modem.Plug();
    EXPECT_TRUE(status.AwaitConnects(DIAG_PORT, 1, COMES_BACK));
    ASSERT_TRUE(modem.Ue().TakeHandshake());
    ASSERT_TRUE(bench.WaitConfirmed(101));
    const auto pAgain = bench.BoundClient(CHANNEL_LTE_DIAG, 101);
    ASSERT_TRUE(pAgain->IsOpen());
    ExpectServed(*pAgain, modem.Ue());
}

TEST(NoRecovery, AConfiguredPortThatVanishedKeepsItsClientAndStaysAway)
{
    const CStatusEars status;
    CAgentBench bench(pszOff);
    CNamedModem modem(bench);
    const auto pClient = StartServed(bench, modem);
    ASSERT_TRUE(pClient && pClient->IsOpen());
    modem.Unplug();
    ASSERT_TRUE(bench.Logged("Read Serial fail!"));
    status.Drain();
    modem.Plug();
    EXPECT_FALSE(status.AwaitConnects(DIAG_PORT, 1, STAYS_AWAY));
    EXPECT_FALSE(SawClose(pClient->Fd(), milliseconds(0)));
}

namespace
{
/// A modem came again under another name, and its detach was lost.
class Renamed : public testing::TestWithParam<const char*> // the new group
{
protected:
    void SetUpAgent(const char* pszConfig)
    {
        m_pBench = std::make_unique<CAgentBench>(pszConfig);
        m_pBench->StartAgent();
        ASSERT_TRUE(m_old.Confirm());
        ASSERT_TRUE(m_pBench->WaitConfirmed(101));
        m_pClient = m_pBench->BoundClient(CHANNEL_LTE_DIAG, 101);
        ASSERT_TRUE(m_pClient->IsOpen());
        m_status.Drain();
    }

    CStatusEars m_status;
    std::unique_ptr<CAgentBench> m_pBench;
    CScriptedUe m_old{101, "one"};
    CScriptedUe m_new{101, GetParam()};
    std::unique_ptr<CTcpClient> m_pClient;
};
using NotReplaced = Renamed;
} // namespace

TEST_P(Renamed, ThePortOfAnotherNameReplacesTheFirst)
{
    SetUpAgent(pszOn);
    ASSERT_TRUE(m_new.Confirm()); // the handshakes reach the new one
    EXPECT_TRUE(m_status.AwaitDisconnects(DIAG_PORT, 1, COMES_BACK));
    EXPECT_TRUE(m_status.AwaitConnects(DIAG_PORT, 1, COMES_BACK));
    EXPECT_TRUE(SawClose(m_pClient->Fd()));
    ASSERT_TRUE(m_pBench->WaitConfirmed(101));
    const auto pAgain = m_pBench->BoundClient(CHANNEL_LTE_DIAG, 101);
    ASSERT_TRUE(pAgain->IsOpen());
    ExpectServed(*pAgain, m_new);
}
INSTANTIATE_TEST_SUITE_P(Recovery, Renamed, testing::Values("one", "two"));

TEST_P(NotReplaced, TheFirstStays)
{
    SetUpAgent(pszOff);
    ASSERT_TRUE(m_new.Attach(SERIAL_TYPE_DIAG));
    EXPECT_FALSE(m_status.AwaitDisconnects(DIAG_PORT, 1, STAYS_AWAY));
    ExpectServed(*m_pClient, m_old);
}
INSTANTIATE_TEST_SUITE_P(NoRecovery, NotReplaced, testing::Values("one", "two"));

TEST(Recovery, ANetworkModemWhoseLinksClosedIsConnectedAgain)
{
    CScriptedLinks links;
    ASSERT_TRUE(links.Listen());
    CAgentBench bench(pszOn);
    bench.StartAgent();
    ASSERT_TRUE(CScriptedLinks::Attach() && links.Accept() && links.Confirm());
    ASSERT_TRUE(bench.WaitConfirmed(0));
    const auto begin = std::chrono::steady_clock::now();
    links.CloseLinks();
    ASSERT_TRUE(links.Accept(seconds(7)));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, milliseconds(6500)); // every 5 s
    EXPECT_TRUE(links.Confirm());
    EXPECT_TRUE(bench.WaitConfirmed(0));
}

TEST(NoRecovery, ANetworkModemWhoseLinksClosedIsLeftAlone)
{
    CScriptedLinks links;
    ASSERT_TRUE(links.Listen());
    CAgentBench bench(pszOff);
    bench.StartAgent();
    ASSERT_TRUE(CScriptedLinks::Attach() && links.Accept() && links.Confirm());
    links.CloseLinks();
    EXPECT_FALSE(links.Accept(seconds(7)));
}

TEST(Recovery, ASecondNetworkAttachClosesTheFirstLinksUdpIncluded)
{
    constexpr unsigned short UDP_PORT = CScriptedLinks::FIRST_PORT + SERIAL_TYPE_DATA;
    CScriptedLinks links;
    ASSERT_TRUE(links.ListenWithoutData());
    CAgentBench bench(pszOn);
    std::string strConfig = bench.Dir().Read("config/vex.cfg");
    const std::string strRow = std::to_string(UDP_PORT) + ":";
    strConfig.replace(strConfig.find(strRow + "1"), strRow.size() + 1, strRow + "0");
    bench.Dir().Write("config/vex.cfg", strConfig);
    bench.StartAgent();
    ASSERT_TRUE(CScriptedLinks::Attach() && links.Accept() && links.Confirm());
    const CUniqueFd first(dup(links.Link(SERIAL_TYPE_DIAG).Get()));

    ASSERT_TRUE(CScriptedLinks::Attach() && links.Accept() && links.Confirm());
    EXPECT_TRUE(SawClose(first));
    ASSERT_TRUE(bench.WaitConfirmed(0));
    const auto pClient = bench.BoundClient(CHANNEL_LTE_DATA, 0);
    ASSERT_TRUE(pClient->IsOpen());
    SendUdp(UDP_PORT, CScriptedUe::Frame(CScriptedUe::Packet(3, DSP_ID, 0, 7, 100, Hex("01 02 03 04"))));
    const auto stPacket = pClient->Await(DSP_ID);
    ASSERT_TRUE(stPacket);
    EXPECT_EQ(stPacket->payload, Hex("01 02 03 04"));
}

namespace
{
class Duplicates : public testing::TestWithParam<const char*>
{
};
} // namespace

TEST_P(Duplicates, LeakNoDescriptor)
{
    CScriptedLinks links;
    ASSERT_TRUE(links.Listen());
    CAgentBench bench(GetParam());
    CScriptedUe ue(101, "modem");
    bench.StartAgent();
    ASSERT_TRUE(ue.Confirm() && CScriptedLinks::Attach() && links.Accept() && links.Confirm());
    const size_t szBefore = OpenFiles(bench.Agent().Pid());
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(ue.Attach(SERIAL_TYPE_DIAG));
        ASSERT_TRUE(CScriptedLinks::Attach() && links.Accept() && links.Confirm()) << "attach " << i;
    }
    const auto isSame = [&] { return OpenFiles(bench.Agent().Pid()) <= szBefore; };
    EXPECT_TRUE(WaitFor(isSame, seconds(5))) << OpenFiles(bench.Agent().Pid()) << " files, " << szBefore << " before";
}
INSTANTIATE_TEST_SUITE_P(, Duplicates, testing::Values(pszOn, pszOff));

namespace
{
constexpr unsigned int MISSING_GROUPS = 17; // more than there are slots
constexpr unsigned int MISSING_PORT = 2000;

/// Modems whose every port is missing, then a real one.
void AttachBehindMissingOnes(CScriptedUe& ue)
{
    for (unsigned int i = 0; i < MISSING_GROUPS; ++i)
        ASSERT_TRUE(SendDeviceRecord(MISSING_PORT + i, SERIAL_TYPE_DATA, 1, "/dev/does-not-exist",
                                     "missing" + std::to_string(i)));
    ASSERT_TRUE(ue.Attach(SERIAL_TYPE_DIAG));
}
} // namespace

TEST(Recovery, ASlotWhosePortsAllFailedIsFreeAgain)
{
    CAgentBench bench(pszOn);
    CScriptedUe ue(101, "real");
    bench.StartAgent();
    AttachBehindMissingOnes(ue);
    EXPECT_TRUE(ue.TakeHandshake());
    EXPECT_TRUE(bench.WaitConfirmed(101));
}

TEST(NoRecovery, ASlotWhosePortsAllFailedStaysTaken)
{
    const CStatusEars status;
    CAgentBench bench(pszOff);
    CScriptedUe ue(101, "real");
    bench.StartAgent();
    AttachBehindMissingOnes(ue);
    ASSERT_TRUE(bench.Logged("groupid is real"));
    EXPECT_FALSE(status.AwaitConnects(DIAG_PORT, 1, STAYS_AWAY));
}

namespace
{
/// Of the log, from the line that says that the device can't be opened: the first behind it that names the device.
std::string LineBehindFailure(const CAgentBench& bench, const std::string& strName)
{
    const std::string strLog = bench.Log();
    const std::string strFailure = "Open Serial " + strName + " fail!";
    const size_t szAt = strLog.find(strFailure);
    if (szAt == std::string::npos)
        return "";
    const size_t szName = strLog.find(strName, szAt + strFailure.size()); // lines of other threads may come before
    return szName == std::string::npos ? "" : strLog.substr(szName, strLog.find('\n', szName) - szName);
}
} // namespace

TEST(Recovery, AFailedOpenIsFollowedByItsReason)
{
    CAgentBench bench(pszOn);
    bench.StartAgent();
    const std::string strName = "/dev/does-not-exist";
    ASSERT_TRUE(SendDeviceRecord(102, SERIAL_TYPE_DATA, 1, strName, "g"));
    ASSERT_TRUE(bench.Logged("Open Serial " + strName + " fail!"));
    EXPECT_TRUE(WaitFor([&] { return !LineBehindFailure(bench, strName).empty(); }, seconds(3)));
    EXPECT_EQ(LineBehindFailure(bench, strName), strName + ": missing, there is no such device");
}

namespace
{
/// Whether the agent's end of a client connection at the port is kept alive by a timer. From /proc/net/tcp.
bool HasKeepalive(unsigned short usPort)
{
    std::ostringstream local;
    local << ":" << std::hex << std::uppercase << std::setw(4) << std::setfill('0') << usPort;
    std::ifstream table("/proc/net/tcp");
    for (std::string strLine; std::getline(table, strLine);) {
        std::istringstream fields(strLine);
        std::string strSlot, strLocal, strRemote, strState, strQueues, strTimer;
        fields >> strSlot >> strLocal >> strRemote >> strState >> strQueues >> strTimer;
        if (strLocal.ends_with(local.str()) && strState == "01")
            return strTimer.starts_with("02");
    }
    return false;
}

bool ClientIsKeptAlive(const char* pszConfig)
{
    CAgentBench bench(pszConfig);
    bench.StartAgent();
    CTcpClient client(CHANNEL_GU_CMD);
    EXPECT_TRUE(client.Ask(AGENT_CMD_UNBIND, PKT_TYPE_AGENT));
    return WaitFor([] { return HasKeepalive(20280); }, seconds(1));
}
} // namespace

TEST(Recovery, AClientThatVanishedIsNoticed)
{
    EXPECT_TRUE(ClientIsKeptAlive(pszOn));
}

TEST(NoRecovery, AClientThatVanishedIsNot)
{
    EXPECT_FALSE(ClientIsKeptAlive(pszOff));
}
