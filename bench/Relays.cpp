#include "Relays.h"

#include "support/NetNs.h"
#include "support/Sockets.h"
#include "support/WaitFor.h"
#include "tap/TapConnection.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <sys/socket.h>
#include <thread>

namespace
{
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr uint32_t REQUEST_ID = 0x10014003;
constexpr size_t CLIENT_HEAD = LEAD_LEN + DIAG_PACKET_ACK_STRU::SIZE;
constexpr unsigned short SOCAT_PORT = 41000;
constexpr unsigned short SER2NET_PORT = 42000;

unsigned int FirstPort(size_t szUe)
{
    return static_cast<unsigned int>(100 * szUe + 1);
}

std::string FindProgram(const std::string& strName)
{
    for (const char* pszDir : {"/usr/bin/", "/usr/sbin/", "/usr/local/bin/", "/usr/local/sbin/"})
        if (std::filesystem::exists(pszDir + strName))
            return pszDir + strName;
    return "";
}

/// Connects a sink to each lane of a relay that listens on ports in a row.
bool ConnectSinks(RELAY& relay, unsigned short usFirstPort)
{
    for (size_t i = 0; i < relay.lanes.size(); ++i) {
        relay.lanes[i].sink = ConnectTcp(static_cast<unsigned short>(usFirstPort + i));
        if (!relay.lanes[i].sink.IsOpen())
            return false;
        WidenSink(relay.lanes[i].sink);
    }
    return true;
}

/// Reads the tap as a recorder does.
void Observe(const std::string& strTap, const std::stop_token& stop)
{
    std::string strError;
    const auto pTap = CTapConnection::Open(strTap, strError);
    if (!pTap) {
        std::fprintf(stderr, "  no tap: %s\n", strError.c_str());
        return;
    }
    TAP_READ stRead;
    while (!stop.stop_requested()) {
        while (pTap->Reader().Next(stRead) == CTapReader::RESULT::RECORD) {
        }
        std::this_thread::sleep_for(TAP_READ_PERIOD);
    }
    if (pTap->Reader().LostRecords() > 0)
        std::fprintf(stderr, "  an observer lost %llu records\n",
                     static_cast<unsigned long long>(pTap->Reader().LostRecords()));
}
} // namespace

CAgentUnderTest::CAgentUnderTest(std::optional<size_t> observers)
{
    const std::string strTap = TapPath();
    if (observers)
        m_bench.AddConfig("TapSocket = " + strTap);
    m_bench.StartAgent();
    if (CTcpClient(CHANNEL_AT).IsOpen())
        m_szStartKiB = m_bench.Agent().ResidentKiB();
    for (size_t i = 0; i < observers.value_or(0); ++i)
        m_observers.emplace_back([strTap](const std::stop_token& stop) { Observe(strTap, stop); });
}

std::optional<RELAY> CAgentUnderTest::Attach(size_t szUes)
{
    RELAY relay;
    relay.strName = "vex";
    relay.pids = {m_bench.Agent().Pid()};
    relay.frameOut = [](size_t szPayload) { return CLIENT_HEAD + szPayload; };
    for (size_t i = 0; i < szUes; ++i) {
        const std::string strGroup = "modem" + std::to_string(i);
        m_ues.push_back(std::make_unique<CScriptedUe>(FirstPort(i), strGroup));
        RELAY_LANE lane{OpenPty(), {}};
        if (!m_ues.back()->Confirm() ||
            !SendDeviceRecord(FirstPort(i) + 1, SERIAL_TYPE_DATA, 1, lane.pty.strName, strGroup) ||
            !m_bench.Logged("UE " + std::to_string(i) + " Lte Data attached"))
            return std::nullopt;
        m_clients.push_back(m_bench.BoundClient(CHANNEL_LTE_DATA, FirstPort(i)));
        lane.sink.Reset(dup(m_clients.back()->Fd().Get()));
        if (!lane.sink.IsOpen())
            return std::nullopt;
        WidenSink(lane.sink);
        relay.lanes.push_back(std::move(lane));
    }
    return relay;
}

std::optional<RELAY> COtherAgent::Attach(size_t szUes)
{
    const CUniqueFd home(open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC));
    if (!home.IsOpen() || !IsolateNetwork())
        return std::nullopt;
    const char* const pszOurs = std::getenv(AGENT_VARIABLE);
    const std::string strOurs = pszOurs ? pszOurs : "";
    if (!m_strProgram.empty())
        (void)setenv(AGENT_VARIABLE, m_strProgram.c_str(), 1);
    auto relay = m_agent.emplace(m_observers).Attach(szUes);
    (void)(pszOurs ? setenv(AGENT_VARIABLE, strOurs.c_str(), 1) : unsetenv(AGENT_VARIABLE));
    if (relay)
        relay->strName = "other";
    return setns(home.Get(), CLONE_NEWNET) == 0 ? std::move(relay) : std::nullopt;
}

bool CAgentUnderTest::AttachNetwork(RELAY& relay)
{
    if (!m_links.Listen() || !CScriptedLinks::Attach() || !m_links.Accept() || !m_links.Confirm())
        return false;
    m_clients.push_back(m_bench.BoundClient(CHANNEL_LTE_DATA, 0));
    RELAY_LANE lane{{CUniqueFd(dup(m_links.Link(SERIAL_TYPE_DATA).Get())), {}, "network"},
                    CUniqueFd(dup(m_clients.back()->Fd().Get()))};
    const bool bOpen = lane.pty.master.IsOpen() && lane.sink.IsOpen();
    WidenSink(lane.sink);
    relay.lanes.push_back(std::move(lane));
    return bOpen;
}

bool CAgentUnderTest::ConnectIdle(size_t szClients)
{
    for (size_t i = 0; i < szClients; ++i)
        m_idle.push_back(ConnectTcp(LISTENPORT[CHANNEL_LTE_DIAG]));
    return std::ranges::all_of(m_idle, &CUniqueFd::IsOpen);
}

std::vector<double> CAgentUnderTest::MeasureRoundTrip(milliseconds time)
{
    std::vector<double> micros;
    const auto pClient = m_bench.BoundClient(CHANNEL_LTE_DIAG, FirstPort(0));
    const auto end = Clock::now() + time;
    while (Clock::now() < end) {
        const auto start = Clock::now();
        if (!pClient->Send(REQUEST_ID, PKT_TYPE_CMD, Hex("01 02 03 04")) || !m_ues[0]->ReadRequest())
            return {};
        m_ues[0]->SendAck(REQUEST_ID, 0, Hex("00 00 00 00 05 06 07 08"));
        if (!pClient->Await(REQUEST_ID))
            return {};
        micros.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    std::ranges::sort(micros);
    return micros;
}

std::optional<RELAY> StartSocat(size_t szLanes)
{
    const std::string strProgram = FindProgram("socat");
    if (strProgram.empty())
        return std::nullopt;
    RELAY relay;
    relay.strName = "socat";
    for (size_t i = 0; i < szLanes; ++i) {
        RELAY_LANE lane{OpenPty(), {}};
        const std::vector<std::string> args = {"-b", "65536", "FILE:" + lane.pty.strName + ",raw,echo=0",
                                               "TCP-LISTEN:" + std::to_string(SOCAT_PORT + i) +
                                                   ",bind=127.0.0.1,reuseaddr,nodelay"};
        const auto pProcess = std::make_shared<CVexProcess>(strProgram, args, "/tmp");
        relay.pids.push_back(pProcess->Pid());
        relay.owned.push_back(pProcess);
        relay.lanes.push_back(std::move(lane));
    }
    return ConnectSinks(relay, SOCAT_PORT) ? std::optional<RELAY>(std::move(relay)) : std::nullopt;
}

std::optional<RELAY> StartSer2net(size_t szLanes)
{
    const std::string strProgram = FindProgram("ser2net");
    if (strProgram.empty())
        return std::nullopt;
    RELAY relay;
    relay.strName = "ser2net";
    std::string strConfig = "%YAML 1.1\n---\n";
    for (size_t i = 0; i < szLanes; ++i) {
        RELAY_LANE lane{OpenPty(), {}};
        strConfig += "connection: &lane" + std::to_string(i) + "\n  accepter: tcp(nodelay),127.0.0.1," +
                     std::to_string(SER2NET_PORT + i) + "\n  connector: serialdev(nouucplock)," + lane.pty.strName +
                     ",4000000n81,local\n";
        relay.lanes.push_back(std::move(lane));
    }
    const auto pDir = std::make_shared<CTempDir>();
    pDir->Write("ser2net.yaml", strConfig);
    const auto pProcess = std::make_shared<CVexProcess>(
        strProgram, std::vector<std::string>{"-n", "-u", "-c", pDir->Path() + "/ser2net.yaml"}, "/tmp");
    relay.pids = {pProcess->Pid()};
    relay.owned = {pDir, pProcess};
    return ConnectSinks(relay, SER2NET_PORT) ? std::optional<RELAY>(std::move(relay)) : std::nullopt;
}
