#include "agent/StatusRecords.h"
#include "e2e/AgentBench.h"
#include "e2e/ScriptedUe.h"
#include "support/WaitFor.h"

#include <arpa/inet.h>
#include <csignal>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <sys/socket.h>

// The monitor's side: the datagrams of the agent, byte for byte.

namespace
{
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr unsigned char TRANSFER = 6;
constexpr unsigned char VERSION = 7;
const Bytes VERSION_DATAGRAM = Hex("07 000000 0C000000  00000000 01000000 00000000"); // 0.1.0

/// Text in a field of 100 bytes.
Bytes Field100(const std::string& strText)
{
    Bytes field = Fill(100);
    std::ranges::copy(strText, field.begin());
    return field;
}

Bytes PortConnects(const std::string& strGroup, uint32_t ulPort, uint32_t ulChannel)
{
    return Join(Hex("00 000000 6C000000"), Field100(strGroup), Le(ulPort), Le(ulChannel));
}

Bytes UeConnects(const std::string& strGroup, const std::string& strImei, const std::string& strVersion)
{
    return Join(Hex("02 000000 2D010000 01"), Field100(strGroup), Field100(strImei), Field100(strVersion));
}

Bytes ClientConnects(uint32_t ulPort, uint32_t ulType)
{
    return Join(Hex("03 000000 6C000000"), Le(ulPort), Le(ulType), Field100("127.0.0.1"));
}

Bytes ClientDisconnects(uint32_t ulPort, uint32_t ulType)
{
    return Join(Hex("04 000000 08000000"), Le(ulPort), Le(ulType));
}

Bytes PortDisconnects(uint32_t ulPort)
{
    return Join(Hex("01 000000 04000000"), Le(ulPort));
}

class CMonitor
{
public:
    CMonitor() : m_fd(socket(AF_INET, SOCK_DGRAM, 0))
    {
        sockaddr_in stAddr{};
        stAddr.sin_family = AF_INET;
        stAddr.sin_port = htons(20560);
        stAddr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (bind(m_fd.Get(), reinterpret_cast<const sockaddr*>(&stAddr), sizeof(stAddr)) != 0)
            ADD_FAILURE() << "the monitor's port is taken";
    }

    /// The next datagram; empty when none comes.
    Bytes Next(milliseconds limit = seconds(5))
    {
        Bytes datagram(2048, 0);
        pollfd stPoll{m_fd.Get(), POLLIN, 0};
        if (poll(&stPoll, 1, static_cast<int>(limit.count())) <= 0)
            return {};
        const ssize_t lRead = recv(m_fd.Get(), datagram.data(), datagram.size(), 0);
        datagram.resize(lRead > 0 ? static_cast<size_t>(lRead) : 0);
        return datagram;
    }

    /// The next datagram that isn't one of those that come by the clock.
    Bytes NextEvent()
    {
        for (;;) {
            Bytes datagram = Next();
            // Every second brings a version or a report, so a silence ends the wait too.
            if (datagram.empty() || (datagram[0] != TRANSFER && datagram[0] != VERSION))
                return datagram;
            if (datagram[0] == VERSION && ++m_ulIdle > 15)
                return {};
        }
    }

    /// The next datagram of a kind.
    Bytes NextOf(unsigned char ucKind, milliseconds limit = seconds(10))
    {
        const auto end = std::chrono::steady_clock::now() + limit;
        while (std::chrono::steady_clock::now() < end) {
            Bytes datagram = Next(milliseconds(500));
            if (!datagram.empty() && datagram[0] == ucKind)
                return datagram;
        }
        return {};
    }

    void Drain()
    {
        while (!Next(milliseconds(0)).empty()) {
        }
    }

private:
    CUniqueFd m_fd;
    unsigned int m_ulIdle = 0; // version datagrams passed over
};

/// The simulator's totals: the last line of its output.
nlohmann::json TotalsOf(const std::string& strOutput)
{
    return nlohmann::json::parse(strOutput.substr(std::min(strOutput.rfind("\n{"), strOutput.size())), nullptr, false);
}

void Query(unsigned char ucKind)
{
    SendUdp(20561, Bytes{ucKind, 0xAA, 0x55});
}

class Status : public testing::Test
{
protected:
    CMonitor m_monitor;
    CAgentBench m_bench;
    CScriptedUe m_ue{101, "modem"};
};
} // namespace

TEST_F(Status, TheVersionComesInEveryIdleSecond)
{
    m_bench.StartAgent();
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(m_monitor.NextOf(VERSION), VERSION_DATAGRAM);
    Query(0); // no UE is attached: the version alone, and at once
    EXPECT_EQ(m_monitor.Next(), VERSION_DATAGRAM);
}

TEST_F(Status, PortsUesAndClientsAreToldAsTheyComeAndGo)
{
    m_bench.StartAgent();
    ASSERT_TRUE(m_ue.Attach(SERIAL_TYPE_AT));
    EXPECT_EQ(m_monitor.NextEvent(), PortConnects("modem", 104, 4));
    ASSERT_TRUE(m_ue.Attach(SERIAL_TYPE_GU)); // one port with two channels
    EXPECT_EQ(m_monitor.NextEvent(), PortConnects("modem", 103, 2));
    EXPECT_EQ(m_monitor.NextEvent(), PortConnects("modem", 103, 3));
    ASSERT_TRUE(m_ue.Confirm());
    EXPECT_EQ(m_monitor.NextEvent(), PortConnects("modem", 101, 0));
    EXPECT_EQ(m_monitor.NextEvent(), UeConnects("modem", "490154203237518", "V001R002C03B004SP05"));

    CTcpClient client(CHANNEL_LTE_DIAG); // the first of its channel is bound at once
    EXPECT_EQ(m_monitor.NextEvent(), ClientConnects(101, 0));
    ASSERT_TRUE(client.Ask(AGENT_CMD_UNBIND, PKT_TYPE_AGENT));
    EXPECT_EQ(m_monitor.NextEvent(), ClientDisconnects(101, 0));
    ASSERT_TRUE(client.Ask(AGENT_CMD_UNBIND, PKT_TYPE_AGENT)); // holds no row: nothing is told
    ASSERT_TRUE(client.Bind(104));                             // any port names the UE, the client's row is told
    EXPECT_EQ(m_monitor.NextEvent(), ClientConnects(101, 0));

    ASSERT_TRUE(m_ue.Detach(SERIAL_TYPE_DIAG));
    EXPECT_EQ(m_monitor.NextEvent(), PortDisconnects(101));
    EXPECT_EQ(m_monitor.NextEvent(), ClientDisconnects(101, 0));
    EXPECT_TRUE(SawClose(client.Fd()));
}

TEST_F(Status, AQueryReplaysThePicture)
{
    m_bench.StartAgent();
    ASSERT_TRUE(m_ue.Attach(SERIAL_TYPE_AT));
    ASSERT_TRUE(m_ue.Attach(SERIAL_TYPE_DIAG));
    ASSERT_TRUE(m_bench.Logged("UE 0 Lte Diag attached"));
    ASSERT_EQ(m_monitor.NextEvent(), PortConnects("modem", 104, 4));
    ASSERT_EQ(m_monitor.NextEvent(), PortConnects("modem", 101, 0));
    Query(0); // attached, not confirmed: ports only
    EXPECT_EQ(m_monitor.NextEvent(), PortConnects("modem", 101, 0));
    EXPECT_EQ(m_monitor.NextEvent(), PortConnects("modem", 104, 4));

    for (int i = 0; i < 2; ++i)
        ASSERT_TRUE(m_ue.ReadRequest()); // host connect and time stamp
    Bytes payload = Fill(320);
    StoreText(ByteSpan(payload).subspan(4, 16), "490154203237518");
    m_ue.SendAck(0x10065000, 0, payload);
    const Bytes ueDatagram = UeConnects("modem", "490154203237518", "V000R000C00B000SP00");
    EXPECT_EQ(m_monitor.NextEvent(), ueDatagram);
    CTcpClient client(CHANNEL_AT);
    EXPECT_EQ(m_monitor.NextEvent(), ClientConnects(104, 4));

    Query(1); // no such kind: ignored
    Query(0);
    EXPECT_EQ(m_monitor.NextEvent(), PortConnects("modem", 101, 0));
    EXPECT_EQ(m_monitor.NextEvent(), ueDatagram);
    EXPECT_EQ(m_monitor.NextEvent(), PortConnects("modem", 104, 4));
    EXPECT_EQ(m_monitor.NextEvent(), ClientConnects(104, 4));
}

TEST(StatusOff, AnIntervalOfZeroSendsNothingAtAll)
{
    CMonitor monitor;
    CAgentBench bench("ReportInterval = 0");
    CScriptedUe ue(101, "modem");
    bench.StartAgent();
    ASSERT_TRUE(ue.Confirm());
    CTcpClient client(CHANNEL_LTE_DIAG);
    ASSERT_TRUE(client.Bind(101)); // clients and UEs work as ever
    Query(0);
    ASSERT_TRUE(ue.Detach(SERIAL_TYPE_DIAG));
    ASSERT_TRUE(SawClose(client.Fd()));
    EXPECT_EQ(monitor.Next(milliseconds(1500)), Bytes()); // an idle second included
}

TEST_F(Status, ATransferReportHasThePortsBytes)
{
    m_bench.StartAgent();
    ASSERT_TRUE(m_ue.Attach(SERIAL_TYPE_DATA));
    ASSERT_TRUE(m_bench.Logged("UE 0 Lte Data attached"));
    m_ue.Port(SERIAL_TYPE_DATA).Write(Hex("01 02 03 04 05 06"));
    const Bytes report =
        Join(Hex("06 000000 18000000  00000000 66000000  0600000000000000 0000000000000000"), Fill(184));
    Bytes last;
    EXPECT_TRUE(WaitFor([&] { return (last = m_monitor.NextOf(TRANSFER)) == report; })) << testing::PrintToString(last);
}

TEST_F(Status, TheNetworkUeHasFiveChannelsAndFourLinks)
{
    m_bench.StartAgent();
    CVexProcess& modem = m_bench.StartModem({"--ues", "0", "--network", "--quiet"});
    for (uint32_t ulChannel = 0; ulChannel < CHANNELNUM; ++ulChannel)
        EXPECT_EQ(m_monitor.NextEvent(), PortConnects("127.0.0.1", 0, ulChannel));
    const Bytes ue = m_monitor.NextEvent();
    ASSERT_EQ(ue.size(), 309U);
    EXPECT_EQ(Bytes(ByteView(ue).first(109)), Join(Hex("02 000000 2D010000 01"), Field100("127.0.0.1")));
    m_monitor.Drain();
    // A report lists the links in order; the AT link has its channel's number.
    while (LoadLe<uint32_t>(m_monitor.NextOf(TRANSFER), 8) != CHANNEL_AT) {
    }
    for (const uint32_t ulChannel : {0U, 1U, 2U, 4U}) {
        const Bytes report = m_monitor.NextOf(TRANSFER);
        ASSERT_EQ(report.size(), 216U);
        EXPECT_EQ(Bytes(ByteView(report).first(16)), Join(Hex("06 000000 18000000"), Le(ulChannel), Le(0U)));
    }
    modem.Signal(SIGTERM);
    for (uint32_t i = 0; i < CHANNELNUM; ++i)
        EXPECT_EQ(m_monitor.NextEvent(), PortDisconnects(0));
}

TEST_F(Status, TheTotalsAreThoseThatTheModemCounted)
{
    m_bench.StartAgent();
    CVexProcess& modem =
        m_bench.StartModem({"--lte-rate", "0", "--lte-count", "3000", "--lte-start-on-switch", "--quiet", "--json"});
    // Until the stream has run and two reports of four ports each tell the same.
    constexpr uint32_t DATA_PORT = 2;
    std::map<uint32_t, SerialPortTransfer> ports;
    int nSame = 0;
    const auto isSettled = [&] {
        const Bytes datagram = m_monitor.NextOf(TRANSFER);
        SerialPortTransfer stNow;
        if (datagram.size() != 216 || !DecodeRecord(ByteView(datagram).subspan(8, 24), stNow))
            return false;
        const SerialPortTransfer stLast = std::exchange(ports[stNow.ulPort], stNow);
        const bool bSame = stLast.ullReadBytes == stNow.ullReadBytes && stLast.ullWriteBytes == stNow.ullWriteBytes;
        nSame = bSame ? nSame + 1 : 0;
        return nSame >= 8 && ports[DATA_PORT].ullReadBytes > 0;
    };
    ASSERT_TRUE(WaitFor(isSettled, seconds(40)));

    modem.Signal(SIGTERM);
    ASSERT_EQ(modem.WaitExit(), 0);
    const auto totals = TotalsOf(modem.Output());
    ASSERT_FALSE(totals.is_discarded());
    ASSERT_EQ(totals["ues"][0]["ports"].size(), 4U);
    for (const auto& port : totals["ues"][0]["ports"]) {
        const SerialPortTransfer& stTold = ports[port["number"].get<uint32_t>()];
        EXPECT_EQ(stTold.ulChannel, 0U) << port;
        EXPECT_EQ(stTold.ullReadBytes, port["bytes_out"].get<uint64_t>()) << port;
        EXPECT_EQ(stTold.ullWriteBytes, port["bytes_in"].get<uint64_t>()) << port;
    }
    EXPECT_GT(ports[DATA_PORT].ullReadBytes, 3000U * 92);
    EXPECT_GT(ports[1].ullWriteBytes, 24U * 28); // the report switches
}
