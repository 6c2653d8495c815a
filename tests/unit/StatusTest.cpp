#include "agent/Agent.h"
#include "agent/Client.h"
#include "agent/StatusRecords.h"
#include "common/Config.h"
#include "support/AgentFixture.h"
#include "support/Lines.h"
#include "support/LogCapture.h"
#include "support/WaitFor.h"
#include "ue/UE.h"

#include <arpa/inet.h>
#include <cstdlib>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{
/// The monitor's socket.
class CMonitor
{
public:
    CMonitor() : m_Socket(socket(AF_INET, SOCK_DGRAM, 0))
    {
        const sockaddr_in stAddr = Local(20560);
        EXPECT_EQ(bind(m_Socket.Get(), reinterpret_cast<const sockaddr*>(&stAddr), sizeof(stAddr)), 0);
    }
    /// The next datagram; empty when none comes in time.
    Bytes Next(int lTimeoutMs = 2000)
    {
        pollfd stFd{m_Socket.Get(), POLLIN, 0};
        if (poll(&stFd, 1, lTimeoutMs) <= 0)
            return {};
        Bytes datagram(2048, 0);
        const ssize_t lRead = recv(m_Socket.Get(), datagram.data(), datagram.size(), 0);
        datagram.resize(static_cast<size_t>(std::max<ssize_t>(lRead, 0)));
        return datagram;
    }
    /// All that has arrived. The loopback delivers within the send.
    std::vector<Bytes> All()
    {
        std::vector<Bytes> all;
        for (Bytes datagram = Next(0); !datagram.empty(); datagram = Next(0))
            all.push_back(datagram);
        return all;
    }
    void Query(const Bytes& query)
    {
        const sockaddr_in stAddr = Local(20561);
        sendto(m_Socket.Get(), query.data(), query.size(), 0, reinterpret_cast<const sockaddr*>(&stAddr),
               sizeof(stAddr));
    }

private:
    static sockaddr_in Local(unsigned short usPort)
    {
        sockaddr_in stAddr{};
        stAddr.sin_family = AF_INET;
        stAddr.sin_port = htons(usPort);
        stAddr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return stAddr;
    }

    CUniqueFd m_Socket;
};

class StatusTest : public testing::Test
{
protected:
    explicit StatusTest(const char* pszConfig = "ReportInterval=1\nMonitorIP=127.0.0.1\nagentver=1.2.3\n")
        : m_fix(std::string(TEST_LAYOUT) + pszConfig)
    {
        EXPECT_TRUE(Agent().Init(nullptr));
    }
    CAgent& Agent() { return m_fix.Agent(); }
    /// A UE that has told its IMEI and versions.
    void SetIdentity(unsigned int ulUeIdx)
    {
        ADE_UE_CONNECTION_ACK_STRU stAck;
        StoreText(ByteSpan(stAck.aucData).subspan(4, 16), "861234567890123");
        const uint16_t ausVersion[5] = {7, 11, 6, 20, 3};
        for (size_t i = 0; i < 5; ++i)
            StoreLe<uint16_t>(stAck.aucData, 32 + 2 * i, ausVersion[i]);
        Agent().UEManager().GetUE(static_cast<int>(ulUeIdx))->SetUEConnectionAck(stAck);
    }

    CMonitor m_monitor;
    CAgentFixture m_fix;
};

/// A text field of szSize bytes.
Bytes Text(const std::string& strText, size_t szSize)
{
    Bytes field(AsBytes(strText));
    field.resize(szSize, 0);
    return field;
}

// Datagrams, by their kinds.
Bytes PortConnected(const std::string& strGroup, unsigned int ulPort, unsigned int ulChannel)
{
    return Join(Hex("00 00 00 00 6C 00 00 00"), Text(strGroup, 100), Le(ulPort), Le(ulChannel));
}
Bytes PortDisconnected(unsigned int ulPort)
{
    return Join(Hex("01 00 00 00 04 00 00 00"), Le(ulPort));
}
Bytes UeConnected(const std::string& strGroup, const std::string& strImei, const std::string& strVersion)
{
    return Join(Hex("02 00 00 00 2D 01 00 00 01"), Text(strGroup, 100), Text(strImei, 100), Text(strVersion, 100));
}
Bytes ClientConnected(unsigned int ulPort, unsigned int ulType)
{
    return Join(Hex("03 00 00 00 6C 00 00 00"), Le(ulPort), Le(ulType), Text("192.0.2.1", 100));
}
Bytes ClientDisconnected(unsigned int ulPort, unsigned int ulType)
{
    return Join(Hex("04 00 00 00 08 00 00 00"), Le(ulPort), Le(ulType));
}
const Bytes VERSION = Hex("07 00 00 00 0C 00 00 00 01 00 00 00 02 00 00 00 03 00 00 00");
} // namespace

// Records.

TEST(StatusRecords, EncodeAndDecodeAgree)
{
    const Bytes bytes = Join(Text("group", 100), Hex("04 03 02 01 02 00 00 00"));
    EXPECT_EQ(Bytes(EncodeRecord(SerialPortConnect{"group", 0x01020304, 2})), bytes);
    SerialPortConnect stRecord;
    EXPECT_TRUE(DecodeRecord(bytes, stRecord));
    EXPECT_EQ(stRecord.szGroupId, "group");
    EXPECT_EQ(stRecord.ulPort, 0x01020304u);
    EXPECT_EQ(stRecord.ulChannel, 2u);
    EXPECT_FALSE(DecodeRecord(ByteView(bytes).first(107), stRecord)) << "one byte short";
}

TEST(StatusRecords, TextsAreCutToTheirFields)
{
    const auto aucRecord = EncodeRecord(SerialPortConnect{std::string(150, 'x'), 1, 1});
    EXPECT_EQ(Bytes(aucRecord), Join(Fill(99, 'x'), Hex("00 01 00 00 00 01 00 00 00")));
}

TEST(StatusRecords, SizesOnTheWire)
{
    EXPECT_EQ(DATAGRAM_SIZE<SerialPortConnect>, 116u);
    EXPECT_EQ(DATAGRAM_SIZE<SerialPortDisconnect>, 12u);
    EXPECT_EQ(DATAGRAM_SIZE<UEConnect>, 309u);
    EXPECT_EQ(DATAGRAM_SIZE<ClientConnect>, 116u);
    EXPECT_EQ(DATAGRAM_SIZE<ClientDisconnect>, 16u);
    EXPECT_EQ(DATAGRAM_SIZE<SerialPortTransfer>, 216u);
    EXPECT_EQ(DATAGRAM_SIZE<AgentVer>, 20u);
}

/// Each record fills its size exactly: a field too many or too few would show here.
template <class Record> void ExpectFieldsFill()
{
    Bytes bytes(Record::SIZE, 0);
    CByteReader reader(bytes);
    Record stRecord;
    Record::Fields(reader, stRecord);
    EXPECT_TRUE(reader.Ok());
    EXPECT_EQ(reader.Left(), 0u);
}

TEST(StatusRecords, FieldsFillTheRecords)
{
    ExpectFieldsFill<STATUS_HEAD_STRU>();
    ExpectFieldsFill<SerialPortConnect>();
    ExpectFieldsFill<SerialPortDisconnect>();
    ExpectFieldsFill<UEConnect>();
    ExpectFieldsFill<ClientConnect>();
    ExpectFieldsFill<ClientDisconnect>();
    ExpectFieldsFill<SerialPortTransfer>();
    ExpectFieldsFill<AgentVer>();
    ExpectFieldsFill<SERAIL_CHANNEL_STATUS>();
    ExpectFieldsFill<UE_STATUS_STRU>();
}

// What happens is told.

TEST_F(StatusTest, PortsComeAndGo)
{
    m_fix.Attach(3, CHANNEL_GU_CMD, 21, "/dev/ttyUSB3", "usb-1-3");
    EXPECT_THAT(m_monitor.All(), ElementsAre(PortConnected("usb-1-3", 21, 2)));
    m_fix.Detach(3, CHANNEL_GU_CMD);
    EXPECT_THAT(m_monitor.All(), ElementsAre(PortDisconnected(21)));
    m_fix.Detach(3, CHANNEL_GU_CMD);
    EXPECT_THAT(m_monitor.All(), ElementsAre(PortDisconnected(0xFFFFFFFF))) << "a free row has port -1";
}

TEST_F(StatusTest, TheNetworkUeGivesARecordForEachChannel)
{
    m_fix.Attach(15, CHANNEL_LTE_DIAG, 0, "", "192.0.2.7");
    EXPECT_THAT(m_monitor.All(), ElementsAre(PortConnected("192.0.2.7", 0, 0), PortConnected("192.0.2.7", 0, 1),
                                             PortConnected("192.0.2.7", 0, 2), PortConnected("192.0.2.7", 0, 3),
                                             PortConnected("192.0.2.7", 0, 4)));
    m_fix.Detach(15, CHANNEL_LTE_DIAG);
    EXPECT_THAT(m_monitor.All(), ElementsAre(PortDisconnected(0), PortDisconnected(0), PortDisconnected(0),
                                             PortDisconnected(0), PortDisconnected(0)));
}

TEST_F(StatusTest, AConfirmedUe)
{
    m_fix.Attach(1, CHANNEL_LTE_DIAG, 5, "/dev/ttyUSB0", "usb-7");
    (void)m_monitor.All();
    Bytes payload(320, 0);
    StoreText(ByteSpan(payload).subspan(4, 16), "490154203237518");
    StoreLe<uint16_t>(payload, 32, 100);
    StoreLe<uint16_t>(payload, 34, 2);
    StoreLe<uint16_t>(payload, 36, 30);
    StoreLe<uint16_t>(payload, 38, 65535);
    StoreLe<uint16_t>(payload, 40, 123);
    m_fix.FromUe(1, CHANNEL_LTE_DIAG, LteAck(0x10065000, payload));
    EXPECT_THAT(m_monitor.All(), IsEmpty()) << "first the 24 switches, 50 ms apart";
    const auto now = std::chrono::steady_clock::now();
    for (int i = 0; i <= 24; ++i)
        EXPECT_TRUE(Agent().Events().RunDueAction(now + i * std::chrono::milliseconds(50)));
    EXPECT_THAT(m_monitor.All(), ElementsAre(UeConnected("usb-7", "490154203237518", "V100R002C30B65535SP123")));
}

TEST_F(StatusTest, ClientsAreBoundAndUnbound)
{
    m_fix.AttachUe(0, 31);
    m_fix.Confirm(0);
    (void)m_monitor.All();
    CTestClient client = m_fix.AddClient(CHANNEL_AT);
    EXPECT_THAT(m_monitor.All(), ElementsAre(ClientConnected(31, 4)));
    {
        const xtl::MutexGuard guard(Agent().Bindings().Mutex());
        Agent().Bindings().UnBindUE(client.Get());
        EXPECT_THAT(m_monitor.All(), ElementsAre(ClientDisconnected(31, 4)));
        Agent().Bindings().UnBindUE(client.Get());
        EXPECT_THAT(m_monitor.All(), IsEmpty());
    }
    EXPECT_TRUE(m_fix.Bind(client, 31));
    (void)m_monitor.All();
    m_fix.Detach(0, CHANNEL_AT);
    EXPECT_THAT(m_monitor.All(), ElementsAre(PortDisconnected(31), ClientDisconnected(31, 4)));
}

TEST_F(StatusTest, TheVersion)
{
    Agent().Status().SendAgentVer();
    EXPECT_THAT(m_monitor.All(), ElementsAre(VERSION));
}

TEST_F(StatusTest, ATransferRecordIsLongerThanItsHeadSays)
{
    Agent().Status().SendSerialTransferInfo({4, 17, 0x0102030405060708, 0x1112131415161718});
    EXPECT_THAT(m_monitor.All(), ElementsAre(Join(Hex("06 00 00 00 18 00 00 00"), Hex("04 00 00 00 11 00 00 00"),
                                                  Hex("08 07 06 05 04 03 02 01 18 17 16 15 14 13 12 11"), Fill(184))));
}

TEST_F(StatusTest, NoUeMeansAnEmptyReport)
{
    Agent().StatusService().SendTransferReport();
    EXPECT_THAT(m_monitor.All(), IsEmpty());
}

TEST_F(StatusTest, EachOpenPortIsReportedWithItsBytes)
{
    const CUniqueFd diag(posix_openpt(O_RDWR | O_NOCTTY)), gu(posix_openpt(O_RDWR | O_NOCTTY));
    for (const CUniqueFd* pMaster : {&diag, &gu})
        ASSERT_TRUE(grantpt(pMaster->Get()) == 0 && unlockpt(pMaster->Get()) == 0);
    const std::string strDiag = ptsname(diag.Get()), strGu = ptsname(gu.Get());
    CUEManager& manager = Agent().UEManager();
    manager.OnSerialAttach("g", strDiag, SERIAL_TYPE_DIAG, 71);
    manager.OnSerialAttach("g", strGu, SERIAL_TYPE_GU, 72);
    manager.OnSerialAttach("g", "/dev/null", SERIAL_TYPE_AT, 73); // stays closed until it's written to
    ASSERT_TRUE(PortsSettled(manager));

    ASSERT_EQ(write(gu.Get(), "hello", 5), 5);
    EXPECT_TRUE(ReadPort(*manager.GetUE(0)->GetSerial(SERIAL_TYPE_GU)));
    EXPECT_EQ(manager.GetUE(0)->GetSerial(SERIAL_TYPE_DIAG)->WriteBytes(Fill(9)), 9);

    Agent().StatusService().SendTransferReport();
    const Bytes head = Hex("06 00 00 00 18 00 00 00 00 00 00 00");
    EXPECT_THAT(m_monitor.All(), ElementsAre(Join(head, Le(71u), Le(uint64_t{0}), Le(uint64_t{9}), Fill(184)),
                                             Join(head, Le(72u), Le(uint64_t{5}), Le(uint64_t{0}), Fill(184))));
}

TEST_F(StatusTest, LinksOfTheNetworkUeAreReportedByTheirChannel)
{
    CAgentFixture::Configure("MonitorPort=31000:0;31001:0;31002:0;31003:0");
    Agent().UEManager().OnSerialAttach("127.0.0.1", "", SERIAL_TYPE_DIAG, 0);
    ASSERT_TRUE(PortsSettled(Agent().UEManager()));
    Agent().StatusService().SendTransferReport();
    const auto all = m_monitor.All();
    ASSERT_THAT(all, SizeIs(4));
    const unsigned int aulChannel[4] = {0, 1, 2, 4};
    for (size_t i = 0; i < 4; ++i)
        EXPECT_EQ(all[i], Join(Hex("06 00 00 00 18 00 00 00"), Le(aulChannel[i]), Fill(204))) << "link " << i;
}

TEST_F(StatusTest, TheReportsComeInTheirInterval)
{
    CAgentFixture::Configure("MonitorPort=31000:0");
    Agent().UEManager().OnSerialAttach("127.0.0.1", "", SERIAL_TYPE_DIAG, 0);
    ASSERT_TRUE(PortsSettled(Agent().UEManager()));
    std::thread reporter([&] { Agent().StatusService().StatusMonitorFun(); });
    EXPECT_EQ(m_monitor.Next().size(), 216u);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(m_monitor.Next().size(), 216u);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(900));
    Agent().Stop();
    reporter.join();
}

TEST_F(StatusTest, AFailedSendIsLogged)
{
    CLogCapture log;
    CAgentFixture::Configure("MonitorIP=192.0.2.1"); // no way leads there
    EXPECT_TRUE(Agent().Init(nullptr));
    Agent().Status().SendAgentVer();
    EXPECT_TRUE(log.Saw("[WAN] : send udp status msg error, errno is " + std::to_string(ENETUNREACH)));
}

class StatusOffTest : public StatusTest
{
protected:
    StatusOffTest() : StatusTest("ReportInterval=0\nMonitorIP=127.0.0.1\n") {}
};

TEST_F(StatusOffTest, WithoutIntervalNothingIsSent)
{
    m_fix.AttachUe(0, 1);
    m_fix.Confirm(0);
    CTestClient client = m_fix.AddClient(CHANNEL_AT);
    Agent().Status().SendAgentVer();
    Agent().StatusService().StatusMonitorFun(); // returns at once
    EXPECT_THAT(m_monitor.All(), IsEmpty());
    EXPECT_EQ(Agent().Bindings().GetBindedUE(client.Get()), 0) << "clients are served as usual";
}

// The query.

TEST_F(StatusTest, WithoutUeThePictureIsTheVersion)
{
    Agent().StatusService().SendAgentCurrentStatus();
    EXPECT_THAT(m_monitor.All(), ElementsAre(VERSION));
}

TEST_F(StatusTest, ThePictureShowsPortsUesAndClients)
{
    m_fix.Attach(0, CHANNEL_LTE_DIAG, 11, "/dev/a", "ga"); // attached only
    m_fix.Attach(2, CHANNEL_LTE_DIAG, 21, "/dev/b", "gb");
    m_fix.Attach(2, CHANNEL_AT, 22, "/dev/c", "gb");
    m_fix.Confirm(2);
    SetIdentity(2);
    CTestClient diag = m_fix.AddClient(CHANNEL_LTE_DIAG);
    CTestClient at = m_fix.AddClient(CHANNEL_AT);
    (void)m_monitor.All();
    Agent().StatusService().SendAgentCurrentStatus();
    EXPECT_THAT(m_monitor.All(),
                ElementsAre(VERSION, PortConnected("ga", 11, 0), PortConnected("gb", 21, 0),
                            UeConnected("gb", "861234567890123", "V007R011C06B020SP03"), ClientConnected(21, 0),
                            PortConnected("gb", 22, 4), ClientConnected(22, 4)));
}

TEST_F(StatusTest, TheThreadAnswersTheQueryThatItKnows)
{
    CLogCapture log;
    std::thread query([&] { Agent().StatusService().StatusQueryFun(); });
    // The socket isn't there at once.
    while (m_monitor.Next(20).empty())
        m_monitor.Query(Hex("00"));
    while (!m_monitor.Next(100).empty()) {
    }
    m_monitor.Query(Hex("01 00 00"));
    m_monitor.Query({});
    EXPECT_THAT(m_monitor.Next(100), IsEmpty());
    m_monitor.Query(Fill(200)); // longer than what is read of it
    EXPECT_EQ(m_monitor.Next(), VERSION);
    EXPECT_TRUE(log.Saw("[INF] : Receive AGENT_STATUS_QUERY_CURRENT cmd\n"));
    Agent().Stop();
    m_monitor.Query(Hex("01")); // the thread waits for a datagram without end
    query.join();
}

TEST_F(StatusTest, AQueryOfAPeerThatIsntAllowedIsIgnored)
{
    CLogCapture log;
    CAgentFixture::Configure("AllowFrom=192.0.2.0/24");
    std::atomic<int> nThreadId = 0;
    std::thread query([&] {
        nThreadId = gettid();
        Agent().StatusService().StatusQueryFun();
    });
    EXPECT_TRUE(WaitFor([&] { return IsAsleep(nThreadId); })); // for a datagram: it waits for nothing else
    m_monitor.Query(Hex("01"));
    EXPECT_TRUE(WaitFor([&] { return IsAsleep(nThreadId); }));
    Agent().StatusService().Stop();
    m_monitor.Query(Hex("01"));
    query.join();
    EXPECT_THAT(m_monitor.Next(100), IsEmpty());
    EXPECT_EQ(log.Count("Receive AGENT_STATUS_QUERY_CURRENT"), 0);
}

TEST_F(StatusTest, AQueryPortThatIsTakenEndsTheThread)
{
    CLogCapture log;
    const CUniqueFd taken(socket(AF_INET, SOCK_DGRAM, 0));
    sockaddr_in stAddr{};
    stAddr.sin_family = AF_INET;
    stAddr.sin_port = htons(20561);
    ASSERT_EQ(bind(taken.Get(), reinterpret_cast<const sockaddr*>(&stAddr), sizeof(stAddr)), 0);
    Agent().StatusService().StatusQueryFun();
    EXPECT_TRUE(log.Saw("[ERR] : Status Query socket bind address fail!\n"));
}

// The UE status of a client that was bound.

namespace
{
/// Bytes 2 to 91 behind state and UE index.
Bytes UeStatusRest(const Bytes& port)
{
    return Join(port, Text("V007R011C06B020SP03", 32), Text("861234567890123", 16), Fill(40));
}
} // namespace

TEST_F(StatusTest, AnLteDiagClientLearnsItsUe)
{
    m_fix.AttachUe(5, 1);
    m_fix.Confirm(5);
    SetIdentity(5);
    CTestClient client = m_fix.AddClient(CHANNEL_LTE_DIAG);
    EXPECT_EQ(client.Pending(), Join(Hex("9F 9F  10 00 00 50  00 00 00 00  00 00 00 00 00 00 00 00  F0 50  5C 00"),
                                     Hex("01 05"), UeStatusRest(Hex("25 4F")))); // 20261
}

TEST_F(StatusTest, AGuCommandClientLearnsItsUe)
{
    m_fix.AttachUe(5, 1);
    m_fix.Confirm(5);
    SetIdentity(5);
    CTestClient client = m_fix.AddClient(CHANNEL_GU_CMD);
    EXPECT_EQ(client.Pending(), Join(Hex("9F 9F  10 00 F0 01  00 00 00 00  00 00 00 00 00 00 00 00  F0 51  5C 00"),
                                     Hex("01 05"), UeStatusRest(Hex("39 4F")))); // 20281
}

TEST_F(StatusTest, OtherClientsLearnNothing)
{
    m_fix.AttachUe(0, 1);
    m_fix.Confirm(0);
    for (const enChannelType enType : {CHANNEL_LTE_DATA, CHANNEL_GU_DATA, CHANNEL_AT}) {
        CTestClient client = m_fix.AddClient(enType);
        EXPECT_EQ(Agent().Bindings().GetBindedUE(client.Get()), 0);
        EXPECT_THAT(client.Pending(), IsEmpty()) << strChannelType[static_cast<size_t>(enType)];
    }
}

TEST_F(StatusTest, WithoutLteDiagChannelAGuClientLearnsNothing)
{
    m_fix.Attach(0, CHANNEL_GU_CMD, 8);
    m_fix.Confirm(0);
    CTestClient client = m_fix.AddClient(CHANNEL_GU_CMD);
    EXPECT_TRUE(m_fix.Bind(client, 8));
    EXPECT_THAT(client.Pending(), IsEmpty());
}
