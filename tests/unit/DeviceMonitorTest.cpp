#include "ue/DeviceMonitor.h"

#include "common/Config.h"
#include "support/Lines.h"
#include "support/LogCapture.h"
#include "support/Queues.h"
#include "support/Signals.h"
#include "support/Sockets.h"
#include "support/WaitFor.h"
#include "ue/TcpChannel.h"
#include "ue/UEManager.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <set>
#include <thread>
#include <unistd.h>

namespace
{
using std::chrono::milliseconds;

void Configure(const std::string& strLines)
{
    std::string strText = strLines;
    CConfig::Instance()->ParseConfig(strText);
}

DEVICE_MONITOR_INFO_STRU Record(uint32_t ulPortNum, int iType, int iArrive, const std::string& strName,
                                const std::string& strGroup)
{
    return {ulPortNum, static_cast<uint8_t>(iType), static_cast<uint8_t>(iArrive), strName, strGroup};
}

/// Sends the bytes as one connection, and waits until the agent has closed it.
void Deliver(ByteView bytes, bool bFinish = false)
{
    const CUniqueFd fd = ConnectTcp(DEVICE_MONITOR_PORT);
    ASSERT_TRUE(fd.IsOpen());
    ASSERT_TRUE(SendAll(fd, bytes));
    if (!bFinish) {
        EXPECT_TRUE(SawClose(fd));
    }
}

/// A manager whose monitor takes records; its read and write threads aren't started.
struct Monitor
{
    explicit Monitor(const std::string& strLines = "")
    {
        Configure("ChannelNameEnable=0\n" + strLines);
        manager.StartDeviceMonitor();
    }
    CLogCapture log;
    CUEManager manager;
};
} // namespace

TEST(DeviceMonitor, TheRecordOnTheWire)
{
    Bytes wire = Hex("01 02 03 04 03 01 2F 64 65 76 2F 74 74 79 55 53 42 33"); // port, AT, arrived, "/dev/ttyUSB3"
    wire.resize(262);
    wire = Join(wire, Hex("67 31")); // "g1"
    wire.resize(520);
    const auto record = EncodeDeviceRecord(Record(0x01020304, 3, 1, "/dev/ttyUSB3", "g1"));
    EXPECT_EQ(Bytes(record), wire);

    const DEVICE_MONITOR_INFO_STRU stInfo = DecodeDeviceRecord(wire);
    EXPECT_EQ(stInfo.ulPortNum, 0x01020304u);
    EXPECT_EQ(stInfo.cSerialType, 3);
    EXPECT_EQ(stInfo.barrive, 1);
    EXPECT_EQ(stInfo.szSerialName, "/dev/ttyUSB3");
    EXPECT_EQ(stInfo.szGroupId, "g1");
}

TEST(DeviceMonitor, TextsWithoutTheirNulEndWithTheField)
{
    const Bytes wire = Join(Hex("00 00 00 01 00 01"), Fill(256, 'n'), Fill(258, 'g'));
    const DEVICE_MONITOR_INFO_STRU stInfo = DecodeDeviceRecord(wire);
    EXPECT_EQ(stInfo.szSerialName, std::string(256, 'n'));
    EXPECT_EQ(stInfo.szGroupId, std::string(258, 'g'));
}

TEST(DeviceMonitor, WithoutAManagerItDoesNothing)
{
    CDeviceMonitor monitor;
    EXPECT_TRUE(monitor.Start());
    EXPECT_TRUE(monitor.Stop());
}

TEST(DeviceMonitor, NamesAndPortsMustMatch)
{
    std::string strError;
    EXPECT_TRUE(CDeviceMonitor::CheckConfiguredNames(strError)) << "no names at all";
    Configure("ChannelName=a;b;c;d\nChannelPort=1;2;3\n");
    EXPECT_FALSE(CDeviceMonitor::CheckConfiguredNames(strError));
    EXPECT_EQ(strError, "configuration: ChannelName has 4 entries but ChannelPort only 3; each name needs its port "
                        "number");

    const CLogCapture log;
    CUEManager manager;
    EXPECT_FALSE(manager.Run());
    EXPECT_EQ(log.Count("[ERR] : configuration: ChannelName has 4 entries but ChannelPort only 3"), 1);
    EXPECT_EQ(log.Count("[ERR] : DeviceMonitor Start Error"), 1);
    EXPECT_EQ(log.Count("[ERR] : StartDeviceMonitor"), 1);

    Configure("ChannelPort=4\n");
    EXPECT_TRUE(CDeviceMonitor::CheckConfiguredNames(strError));
    Configure("ChannelName=e\nChannelNameEnable=0\n");
    EXPECT_TRUE(CDeviceMonitor::CheckConfiguredNames(strError)) << "the names aren't used";
}

TEST(DeviceMonitor, ConfiguredNamesAreAttachedFourToAUe)
{
    // Ports 1 to 3 of each UE can't be opened; a rest of fewer than four names is left out.
    Configure("ChannelName=/no/d0;/no/e0;/no/g0;/dev/at0\nChannelName=/no/d1;/no/e1;/no/g1;/dev/at1;/no/d2\n"
              "ChannelPort=1;2;3;4;11;12;13;14;21\n");
    const CLogCapture log;
    CUEManager manager;
    EXPECT_TRUE(manager.StartDeviceMonitor());
    EXPECT_EQ(log.Count("[INF] : UE count is 2"), 1);
    EXPECT_EQ(log.Count("Group Name is 0 serialName is /no/d0 port is 1"), 1);
    EXPECT_EQ(log.Count("Group Name is 1 serialName is /dev/at1 port is 14"), 1);
    EXPECT_EQ(log.Count("Group Name is "), 8);
    ASSERT_TRUE(PortsSettled(manager));
    EXPECT_EQ(log.Count("Open Serial /no/"), 6);
    std::set<UE_INDEX> setUe; // they come up side by side
    for (const QueuedMsg& stMsg : DrainAgentQueue())
        EXPECT_TRUE(setUe.insert(stMsg.ulUeIdx).second);
    EXPECT_EQ(setUe, (std::set<UE_INDEX>{0, 1}));
    EXPECT_EQ(manager.GetUE(1)->GetGroupid(), "1");
    EXPECT_EQ(manager.GetUE(1)->GetSerial(SERIAL_TYPE_GU)->GetPortNum(), 13u);
    EXPECT_FALSE(ConnectTcp(DEVICE_MONITOR_PORT, milliseconds(20)).IsOpen()) << "no thread, no listener";
}

TEST(DeviceMonitor, AConfiguredPortOfZeroIsTheNetworkUe)
{
    Configure("ChannelName=a;b;c;d\nChannelPort=0;2;3;4\n");
    const CLogCapture log;
    CUEManager manager;
    EXPECT_TRUE(manager.StartDeviceMonitor());
    EXPECT_EQ(log.Count("[INF] : Network attach, ip is 0"), 1);
    ASSERT_TRUE(PortsSettled(manager));
    const auto isNetwork = [](const QueuedMsg& stMsg) { return stMsg.ulUeIdx == 15; };
    EXPECT_EQ(std::ranges::count_if(DrainAgentQueue(), isNetwork), 1);
}

TEST(DeviceMonitor, TakesRecordsOneAConnection)
{
    Monitor monitor;
    const auto attach = EncodeDeviceRecord(Record(7, SERIAL_TYPE_AT, 1, "/dev/ttyUSB3", "g1"));
    EXPECT_TRUE(monitor.log.Saw("Device Monitor thread Create OK!"));
    Deliver(attach);
    EXPECT_TRUE(monitor.log.Saw("[INF] : serial /dev/ttyUSB3 attach, port is 7"));
    EXPECT_TRUE(WaitFor([&] { return monitor.manager.GetUE(0)->GetSerial(SERIAL_TYPE_AT)->GetPortNum() == 7; }));

    // Of a detach only the number counts; what follows the 520 bytes is never read.
    Bytes detach = Bytes(EncodeDeviceRecord(Record(7, 99, 0, "x", "other")));
    Deliver(Join(detach, Bytes(attach)));
    EXPECT_TRUE(monitor.log.Saw("[INF] : serial x detach, port is 7"));
    EXPECT_TRUE(
        WaitFor([&] { return monitor.manager.GetUE(0)->GetSerial(SERIAL_TYPE_AT)->GetPortNum() == 0x7FFFFFFF; }));
    EXPECT_EQ(monitor.log.Count(" attach, port is 7"), 1);
}

namespace
{
/// Bytes that wait to be read from the connections that a TCP port has taken.
size_t UnreadBytes(unsigned short usPort)
{
    std::ifstream table("/proc/thread-self/net/tcp");
    std::string strLine;
    size_t szBytes = 0;
    while (std::getline(table, strLine)) {
        unsigned int ulLocalPort = 0;
        unsigned int ulState = 0;
        size_t szUnread = 0;
        constexpr unsigned int ESTABLISHED = 1;
        if (std::sscanf(strLine.c_str(), "%*d: %*x:%x %*x:%*x %x %*x:%zx", &ulLocalPort, &ulState, &szUnread) == 3 &&
            ulLocalPort == usPort && ulState == ESTABLISHED)
            szBytes += szUnread;
    }
    return szBytes;
}
} // namespace

TEST(DeviceMonitor, ARecordMayComeInPieces)
{
    Monitor monitor;
    const auto attach = EncodeDeviceRecord(Record(7, SERIAL_TYPE_AT, 1, "/dev/ttyUSB3", "g1"));
    const CUniqueFd fd = ConnectTcp(DEVICE_MONITOR_PORT);
    for (const size_t szOffset : {0u, 1u, 300u}) {
        const size_t szEnd = szOffset == 0 ? 1 : szOffset == 1 ? 300 : 520;
        ASSERT_TRUE(SendAll(fd, ByteView(attach).subspan(szOffset, szEnd - szOffset)));
        EXPECT_TRUE(WaitFor([] { return UnreadBytes(DEVICE_MONITOR_PORT) == 0; })) << "the pieces arrive apart";
    }
    EXPECT_TRUE(monitor.log.Saw("serial /dev/ttyUSB3 attach, port is 7"));
}

TEST(DeviceMonitor, SignalsDisturbNeitherTheWaitForARecordNorItsRead)
{
    const CLogCapture log;
    CUEManager manager;
    CDeviceMonitor monitor;
    monitor.SetUEManager(&manager);
    std::thread thread([&] { monitor.DeviceMonitorFun(); });
    {
        const CSignals signals(thread.native_handle());
        EXPECT_TRUE(CSignals::WaitForMore(20));
        const auto attach = EncodeDeviceRecord(Record(7, SERIAL_TYPE_AT, 1, "/dev/ttyUSB3", "g1"));
        const CUniqueFd fd = ConnectTcp(DEVICE_MONITOR_PORT);
        EXPECT_TRUE(SendAll(fd, ByteView(attach).first(300)));
        EXPECT_TRUE(CSignals::WaitForMore(20));
        EXPECT_TRUE(SendAll(fd, ByteView(attach).subspan(300)));
        EXPECT_TRUE(SawClose(fd));
        EXPECT_TRUE(log.Saw("serial /dev/ttyUSB3 attach, port is 7"));
    }
    EXPECT_EQ(log.Count("rror"), 0);
    monitor.EndThread();
    thread.join();
}

TEST(DeviceMonitor, A519ByteRecordIsDropped)
{
    Monitor monitor;
    const auto attach = EncodeDeviceRecord(Record(7, SERIAL_TYPE_AT, 1, "/dev/ttyUSB3", "g1"));
    Deliver(ByteView(attach).first(519), true);
    EXPECT_TRUE(monitor.log.Saw("[ERR] : Device Monitor Thread Read Data Error "));
    Deliver(ByteView(), true);
    Deliver(EncodeDeviceRecord(Record(8, SERIAL_TYPE_AT, 1, "/dev/ttyUSB4", "g1")));
    EXPECT_TRUE(monitor.log.Saw("attach, port is 8"));
    EXPECT_EQ(monitor.log.Count("Device Monitor Thread Read Data Error "), 2);
    EXPECT_EQ(monitor.log.Count("attach, port is 7"), 0);
}

TEST(DeviceMonitor, OtherArrivalsAreLoggedAndIgnored)
{
    Monitor monitor;
    for (const int iArrive : {2, 255})
        Deliver(EncodeDeviceRecord(Record(7, SERIAL_TYPE_AT, iArrive, "/dev/ttyUSB3", "g1")));
    EXPECT_TRUE(monitor.log.Saw("[INF] : info.barrive: 2\n"));
    EXPECT_TRUE(monitor.log.Saw("[INF] : info.barrive: 255\n"));
    EXPECT_TRUE(DrainAgentQueue().empty());
}

TEST(DeviceMonitor, AnUnknownSerialTypeIsAnErrorAndDropped)
{
    Monitor monitor;
    for (const int iType : {4, 127, -1})
        Deliver(EncodeDeviceRecord(Record(7, iType, 1, "/dev/ttyUSB3", "g1")));
    EXPECT_TRUE(monitor.log.Saw("[ERR] : serial /dev/ttyUSB3 attach, port is 7: unknown serial type 4, dropped"));
    EXPECT_TRUE(monitor.log.Saw("unknown serial type 127, dropped"));
    EXPECT_TRUE(monitor.log.Saw("unknown serial type -1, dropped"));
    EXPECT_TRUE(DrainAgentQueue().empty());
    EXPECT_EQ(monitor.manager.GetUE(0)->GetGroupid(), "");
}

TEST(DeviceMonitor, PortZeroIsTheNetworkUeWhateverTheOtherFieldsSay)
{
    Monitor monitor("MonitorPort=20000:0\n");
    Deliver(EncodeDeviceRecord(Record(0, 77, 1, "x", "192.0.2.1")));
    EXPECT_TRUE(monitor.log.Saw("Network attach, ip is 192.0.2.1"));
    EXPECT_TRUE(WaitFor([&] { return monitor.manager.GetTcp(SERIAL_TYPE_DIAG) != nullptr; }));
    Deliver(EncodeDeviceRecord(Record(0, 77, 0, "y", "z")));
    EXPECT_TRUE(WaitFor([&] { return monitor.manager.GetTcp(SERIAL_TYPE_DIAG) == nullptr; }));
}

namespace
{
/// True when every thread but the caller's waits for something.
bool OthersWait()
{
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream stat(task.path() / "stat");
        std::string strPid;
        std::string strName; // without blanks, here
        std::string strState;
        stat >> strPid >> strName >> strState;
        if (strPid != std::to_string(gettid()) && strState != "S")
            return false;
    }
    return true;
}
} // namespace

TEST(DeviceMonitor, AfterStopOneMoreRecordIsTaken)
{
    Monitor monitor;
    Deliver(EncodeDeviceRecord(Record(1, SERIAL_TYPE_AT, 2, "", "")));
    // The thread must be back in its wait: with nothing left to do, it waits nowhere else.
    EXPECT_TRUE(monitor.log.Saw("info.barrive: 2"));
    int iQuiet = 0;
    EXPECT_TRUE(WaitFor([&] { return (iQuiet = OthersWait() ? iQuiet + 1 : 0) == 10; }));
    monitor.manager.StopDeviceMonitor();
    EXPECT_EQ(monitor.log.Count("[INF] : DeviceMonitor Stop"), 1);
    Deliver(EncodeDeviceRecord(Record(7, SERIAL_TYPE_AT, 1, "/dev/ttyUSB3", "g1")));
    EXPECT_TRUE(monitor.log.Saw("serial /dev/ttyUSB3 attach, port is 7"));
    EXPECT_TRUE(WaitFor([] { return !ConnectTcp(DEVICE_MONITOR_PORT, milliseconds(1)).IsOpen(); }));
}

TEST(DeviceMonitor, APortThatIsTakenEndsTheThreadOnly)
{
    const CUniqueFd squatter = ListenTcp(DEVICE_MONITOR_PORT);
    Monitor monitor;
    EXPECT_TRUE(monitor.log.Saw("[ERR] : CDeviceMonitor socket bind fail!"));
    EXPECT_EQ(monitor.log.Count("Device Monitor thread Create OK!"), 1);
}

TEST(DeviceMonitor, ItsEndWakesAThreadThatWaits)
{
    const auto start = std::chrono::steady_clock::now();
    {
        Monitor monitor;
        EXPECT_TRUE(ConnectTcp(DEVICE_MONITOR_PORT).IsOpen());
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, milliseconds(1500));
}

TEST(DeviceMonitor, SilentConnectionsHoldUpNobody)
{
    Monitor monitor;
    std::vector<CUniqueFd> silent;
    for (int i = 0; i < 79; ++i)
        silent.push_back(ConnectTcp(DEVICE_MONITOR_PORT));
    Deliver(EncodeDeviceRecord(Record(7, SERIAL_TYPE_AT, 2, "", "")));
    EXPECT_TRUE(monitor.log.Saw("info.barrive: 2"));
}

TEST(DeviceMonitor, BehindEightyConnectionsTheNextWaitsForOneToEnd)
{
    Monitor monitor;
    std::vector<CUniqueFd> silent;
    for (int i = 0; i < 80; ++i)
        silent.push_back(ConnectTcp(DEVICE_MONITOR_PORT));
    const CUniqueFd next = ConnectTcp(DEVICE_MONITOR_PORT);
    ASSERT_TRUE(SendAll(next, EncodeDeviceRecord(Record(7, SERIAL_TYPE_AT, 2, "", ""))));
    EXPECT_FALSE(SawClose(next, milliseconds(50)));
    EXPECT_EQ(monitor.log.Count("info.barrive: 2"), 0);
    silent.pop_back();
    EXPECT_TRUE(SawClose(next));
    EXPECT_TRUE(monitor.log.Saw("info.barrive: 2"));
}

TEST(DeviceMonitor, AfterStopARecordInPiecesIsTakenToItsEnd)
{
    Monitor monitor;
    const auto attach = EncodeDeviceRecord(Record(7, SERIAL_TYPE_AT, 2, "", ""));
    const CUniqueFd fd = ConnectTcp(DEVICE_MONITOR_PORT);
    monitor.manager.StopDeviceMonitor();
    ASSERT_TRUE(SendAll(fd, ByteView(attach).first(100)));
    EXPECT_TRUE(WaitFor([] { return UnreadBytes(DEVICE_MONITOR_PORT) == 0; }));
    ASSERT_TRUE(SendAll(fd, ByteView(attach).subspan(100)));
    EXPECT_TRUE(monitor.log.Saw("info.barrive: 2"));
    EXPECT_TRUE(WaitFor([] { return !ConnectTcp(DEVICE_MONITOR_PORT, milliseconds(1)).IsOpen(); }));
}

TEST(DeviceMonitor, WithRecoveryAPortThatIsTakenIsTriedAgain)
{
    CUniqueFd squatter = ListenTcp(DEVICE_MONITOR_PORT);
    testing::internal::CaptureStderr();
    Monitor monitor("Recovery=1\n");
    constexpr char LINE[] = "TCP port 20460, for the device monitor, is taken; it is tried again every second";
    EXPECT_TRUE(monitor.log.Saw(std::string("[ERR] : ") + LINE + "\n"));
    squatter.Reset();
    Deliver(EncodeDeviceRecord(Record(7, SERIAL_TYPE_AT, 2, "", "")));
    EXPECT_TRUE(monitor.log.Saw("info.barrive: 2"));
    EXPECT_EQ(monitor.log.Count("is taken"), 1);
    EXPECT_EQ(monitor.log.Count("bind fail"), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), std::string(LINE) + "\n");
}

TEST(DeviceMonitor, ItsEndEndsTheWaitForATakenPort)
{
    const CUniqueFd squatter = ListenTcp(DEVICE_MONITOR_PORT);
    const CLogCapture log;
    Configure("ChannelNameEnable=0\nRecovery=1\n");
    CUEManager manager;
    CDeviceMonitor monitor;
    monitor.SetUEManager(&manager);
    std::thread thread([&] { monitor.DeviceMonitorFun(); });
    EXPECT_TRUE(log.Saw("is taken"));
    monitor.EndThread();
    thread.join();
}

TEST(DeviceMonitor, PeersThatAreNotAllowedAreClosedAtOnce)
{
    Monitor monitor("AllowFrom=192.168.7.0/24\n");
    EXPECT_TRUE(SawClose(ConnectTcp(DEVICE_MONITOR_PORT)));
    EXPECT_TRUE(monitor.log.Saw("[WAN] : Connection from 127.0.0.1 is not allowed, closed\n"));
    EXPECT_EQ(monitor.log.Count("Read Data Error"), 0) << "no byte was read";
}

namespace
{
/// Addresses, as /proc shows them, on which somebody listens on the port.
std::vector<unsigned int> ListenAddresses(unsigned short usPort)
{
    std::ifstream table("/proc/thread-self/net/tcp");
    std::vector<unsigned int> addresses;
    for (std::string strLine; std::getline(table, strLine);) {
        unsigned int ulAddress = 0;
        unsigned int ulPort = 0;
        unsigned int ulState = 0;
        constexpr unsigned int LISTEN = 10;
        if (std::sscanf(strLine.c_str(), "%*d: %x:%x %*x:%*x %x", &ulAddress, &ulPort, &ulState) == 3 &&
            ulPort == usPort && ulState == LISTEN)
            addresses.push_back(ulAddress);
    }
    return addresses;
}
} // namespace

TEST(DeviceMonitor, ListensOnTheConfiguredAddressAlone)
{
    Monitor monitor("ListenAddress=127.0.0.2\n");
    const std::vector<unsigned int> expected{0x0200007F}; // in network order
    EXPECT_TRUE(WaitFor([&] { return ListenAddresses(DEVICE_MONITOR_PORT) == expected; }));
}
