#include "hotplug/HotplugLoop.h"
#include "support/Sockets.h"
#include "support/UsbPorts.h"
#include "support/VexProcess.h"
#include "support/WaitFor.h"

#include <arpa/inet.h>
#include <mutex>
#include <sstream>
#include <sys/eventfd.h>
#include <thread>

namespace
{
/// A source whose events come from the test.
class CTestSource : public IPortSource
{
public:
    int Fd() const override { return m_fd.Get(); }
    std::vector<USB_PORT> List() override
    {
        const std::lock_guard guard(m_Lock);
        return m_ports;
    }
    bool Read(std::vector<PORT_EVENT>& events) override
    {
        eventfd_t ullCount = 0;
        (void)eventfd_read(m_fd.Get(), &ullCount);
        const std::lock_guard guard(m_Lock);
        events = std::exchange(m_events, {});
        return !std::exchange(m_bLost, false);
    }

    void SetPorts(std::vector<USB_PORT> ports)
    {
        const std::lock_guard guard(m_Lock);
        m_ports = std::move(ports);
    }
    void Happen(bool bArrives, const USB_PORT& stPort)
    {
        const std::lock_guard guard(m_Lock);
        m_events.push_back({bArrives, stPort});
        (void)eventfd_write(m_fd.Get(), 1);
    }
    void LoseEvents()
    {
        const std::lock_guard guard(m_Lock);
        m_bLost = true;
        (void)eventfd_write(m_fd.Get(), 1);
    }

private:
    CUniqueFd m_fd{eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)};
    std::mutex m_Lock;
    std::vector<USB_PORT> m_ports;
    std::vector<PORT_EVENT> m_events;
    bool m_bLost = false;
};

/// The daemon on a thread of its own; the test is the agent.
class HotplugLoop : public testing::Test
{
protected:
    HotplugLoop()
    {
        m_stOptions.strAgent = "127.0.0.1:20460";
        m_stOptions.stAgent.sin_family = AF_INET;
        m_stOptions.stAgent.sin_port = htons(DEVICE_MONITOR_PORT);
        m_stOptions.stAgent.sin_addr.s_addr = inet_addr("127.0.0.1");
    }
    ~HotplugLoop() override { Stop(); }

    void Start(const CNumbers& numbers = {})
    {
        m_thread = std::thread([this, numbers] {
            CHotplugLoop loop(m_stOptions, m_rules, numbers, m_stateFile, m_source, m_log);
            m_enStatus = loop.Run(m_stopFd.Get());
        });
    }
    void Stop()
    {
        (void)eventfd_write(m_stopFd.Get(), 1);
        if (m_thread.joinable())
            m_thread.join();
    }
    /// The next record that the agent gets, as "+101 name" or "-101 name"; empty when none comes.
    std::string NextRecord(std::chrono::milliseconds limit = std::chrono::seconds(5)) const
    {
        const CUniqueFd agent = AcceptTcp(m_listener, limit);
        const Bytes bytes = agent.IsOpen() ? ReceiveBytes(agent, 520) : Bytes();
        if (bytes.size() != 520)
            return "";
        const DEVICE_MONITOR_INFO_STRU stRecord = DecodeDeviceRecord(bytes);
        return (stRecord.barrive == 1 ? "+" : "-") + std::to_string(stRecord.ulPortNum) + " " + stRecord.szSerialName;
    }

    const CRules m_rules = FourRoles();
    const CTempDir m_dir;
    CStateFile m_stateFile{m_dir.Path() + "/state"};
    CTestSource m_source;
    HOTPLUG_OPTIONS m_stOptions;
    CUniqueFd m_listener = ListenTcp(DEVICE_MONITOR_PORT);
    const CUniqueFd m_stopFd{eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)};
    std::ostringstream m_text;
    CHotplugLog m_log{m_text};
    HOTPLUG_EXIT m_enStatus = HOTPLUG_USAGE;
    std::thread m_thread; // the last one: it uses the others
};
} // namespace

TEST_F(HotplugLoop, PortsAreToldInOrderAndTheirNumbersAreKeptBefore)
{
    m_source.SetPorts({UsbPort("m", 1, 1), UsbPort("m", 0, 0)});
    Start();
    EXPECT_EQ(NextRecord(), "+101 /dev/serial/by-path/m:0");
    EXPECT_NE(m_dir.Read("state").find("\n1 m\n"), std::string::npos);
    EXPECT_EQ(NextRecord(), "+102 /dev/serial/by-path/m:1");
    m_source.Happen(false, UsbPort("m", 0, 0));
    EXPECT_EQ(NextRecord(), "-101 /dev/serial/by-path/m:0");
    Stop();
    EXPECT_EQ(m_enStatus, HOTPLUG_DONE);
}

TEST_F(HotplugLoop, ARecordThatIsNotTakenComesAgain)
{
    m_source.SetPorts({UsbPort("m", 0, 0)});
    Start();
    AcceptTcp(m_listener).Reset(); // closes without reading, or with unread bytes
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(NextRecord(), "+101 /dev/serial/by-path/m:0");
    EXPECT_GT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
    m_source.Happen(true, UsbPort("m", 1, 1));
    EXPECT_EQ(NextRecord(), "+102 /dev/serial/by-path/m:1");
    Stop();
    EXPECT_NE(m_text.str().find("127.0.0.1:20460 doesn't take records ("), std::string::npos) << m_text.str();
}

TEST_F(HotplugLoop, AListenerThatComesAnewIsToldEverythingAgain)
{
    m_source.SetPorts({UsbPort("m", 0, 0), UsbPort("m", 1, 1)});
    Start();
    EXPECT_EQ(NextRecord(), "+101 /dev/serial/by-path/m:0");
    EXPECT_EQ(NextRecord(), "+102 /dev/serial/by-path/m:1");
    m_listener.Reset();
    m_listener = ListenTcp(DEVICE_MONITOR_PORT); // at once
    EXPECT_EQ(NextRecord(), "+101 /dev/serial/by-path/m:0");
    EXPECT_EQ(NextRecord(), "+102 /dev/serial/by-path/m:1");
    m_source.Happen(false, UsbPort("m", 1, 1)); // nothing else is in between
    EXPECT_EQ(NextRecord(), "-102 /dev/serial/by-path/m:1");
}

TEST_F(HotplugLoop, AnAgentThatEndsInTheMiddleOfTheRecordsIsNoLoss)
{
    m_source.SetPorts({UsbPort("m", 0, 0), UsbPort("m", 1, 1)});
    Start();
    EXPECT_EQ(NextRecord(), "+101 /dev/serial/by-path/m:0");
    {
        const CUniqueFd agent = AcceptTcp(m_listener);
        EXPECT_EQ(ReceiveBytes(agent, 100).size(), 100U);
        m_listener.Reset();
    }
    m_listener = ListenTcp(DEVICE_MONITOR_PORT);
    EXPECT_EQ(NextRecord(), "+101 /dev/serial/by-path/m:0");
    EXPECT_EQ(NextRecord(), "+102 /dev/serial/by-path/m:1");
}

TEST_F(HotplugLoop, WhatWentWhileNoAgentWasThereIsNotTold)
{
    m_listener.Reset();
    m_source.SetPorts({UsbPort("m", 0, 0), UsbPort("m", 1, 1)});
    Start();
    m_source.Happen(false, UsbPort("m", 0, 0));
    m_source.Happen(true, UsbPort("m", 2, 2));
    // The numbers show that the events have been taken.
    m_source.Happen(true, UsbPort("n", 0, 3));
    ASSERT_TRUE(WaitFor([&] { return m_dir.Read("state").find(" n\n") != std::string::npos; }));
    m_listener = ListenTcp(DEVICE_MONITOR_PORT);
    EXPECT_EQ(NextRecord(), "+102 /dev/serial/by-path/m:1");
    EXPECT_EQ(NextRecord(), "+103 /dev/serial/by-path/m:2");
    EXPECT_EQ(NextRecord(), "+201 /dev/serial/by-path/n:0");
}

TEST_F(HotplugLoop, AfterLostEventsAllPortsAreLookedAt)
{
    m_source.SetPorts({UsbPort("m", 0, 0), UsbPort("m", 1, 1)});
    Start();
    EXPECT_EQ(NextRecord(), "+101 /dev/serial/by-path/m:0");
    EXPECT_EQ(NextRecord(), "+102 /dev/serial/by-path/m:1");
    m_source.SetPorts({UsbPort("m", 1, 1), UsbPort("m", 3, 3)});
    m_source.LoseEvents();
    EXPECT_EQ(NextRecord(), "-101 /dev/serial/by-path/m:0");
    EXPECT_EQ(NextRecord(), "+104 /dev/serial/by-path/m:3");
}

TEST_F(HotplugLoop, ItEndsWithARecordUnderWay)
{
    m_source.SetPorts({UsbPort("m", 0, 0)});
    for (const bool bOnce : {false, true}) {
        m_stOptions.bOnce = bOnce;
        Start();
        const CUniqueFd agent = AcceptTcp(m_listener); // which never reads
        Stop();
        EXPECT_EQ(m_enStatus, bOnce ? HOTPLUG_NO_AGENT : HOTPLUG_DONE);
        eventfd_t ullStops = 0;
        (void)eventfd_read(m_stopFd.Get(), &ullStops);
    }
}

TEST_F(HotplugLoop, OnceEndsWhenAllIsToldOrTheAgentIsNotReached)
{
    m_stOptions.bOnce = true;
    m_source.SetPorts({UsbPort("m", 0, 0)});
    Start();
    EXPECT_EQ(NextRecord(), "+101 /dev/serial/by-path/m:0");
    m_thread.join();
    EXPECT_EQ(m_enStatus, HOTPLUG_DONE);
    Start();
    AcceptTcp(m_listener).Reset();
    m_thread.join();
    EXPECT_EQ(m_enStatus, HOTPLUG_NO_AGENT);
    m_listener.Reset();
    Start();
    m_thread.join();
    EXPECT_EQ(m_enStatus, HOTPLUG_NO_AGENT);
}
