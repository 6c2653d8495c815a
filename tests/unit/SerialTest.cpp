#include "ue/Serial.h"

#include "support/HdlcReference.h"
#include "support/Lines.h"
#include "support/LogCapture.h"
#include "support/PtyPair.h"
#include "support/Queues.h"
#include "support/Signals.h"
#include "support/WaitFor.h"
#include "ue/UE.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <thread>

namespace
{
using std::chrono::milliseconds;
using std::chrono::steady_clock;

Bytes Text(const std::string& strText)
{
    return Bytes(AsBytes(strText));
}

void Prepare(CSerial& serial, enSerialType enType, const std::string& strName, unsigned int uiPort)
{
    serial.SetSerialType(enType);
    serial.SetName(strName);
    serial.SetPortNum(uiPort);
}

/// A modem with a stream of frames for an open port, that stands where the agent's packets go too: while they are dealt
/// with it goes on sending, until the port is full or all is sent.
class CSendingModem : public IAgentMsgTaker
{
public:
    static constexpr size_t FRAME_LEN = 22; // of the shortest packet, for each of the port's two channels

    explicit CSendingModem(size_t szFrames)
    {
        const Bytes frame = FrameOf(Fill(FRAME_LEN - 4, 1));
        for (size_t i = 0; i < szFrames; ++i)
            m_stream.insert(m_stream.end(), frame.begin(), frame.end());
        (void)fcntl(m_pty.Modem().Get(), F_SETFL, O_RDWR | O_NONBLOCK);
        Prepare(m_port, SERIAL_TYPE_GU, m_pty.Name(), 5);
        EXPECT_TRUE(OpenPort(m_port));
        CMsgBuf::Instance()->SetAgentTaker(this);
        FillPort();
    }
    ~CSendingModem() override { CMsgBuf::Instance()->SetAgentTaker(nullptr); }

    bool TryTake(std::span<MSG_AGENT> msgs) override
    {
        m_szRecords += msgs.size();
        FillPort();
        return true;
    }

    CSerial& Port() { return m_port; }
    /// All records have come.
    bool HasAll() const { return m_szRecords == 2 * m_stream.size() / FRAME_LEN; }

private:
    void FillPort()
    {
        constexpr size_t FULL = 4095;
        EXPECT_TRUE(WaitFor([this] { return SendRest() || Holds() == FULL; }));
    }
    /// True when the port has or holds all.
    bool SendRest()
    {
        const ByteView rest = ByteView(m_stream).subspan(m_szSent);
        const ssize_t lSent = write(m_pty.Modem().Get(), rest.data(), rest.size());
        m_szSent += static_cast<size_t>(std::max<ssize_t>(lSent, 0));
        return m_port.GetTotalBytesRead() + Holds() == m_stream.size();
    }
    /// Bytes that the port can read.
    size_t Holds() const
    {
        int nBytes = 0;
        (void)ioctl(m_port.GetHandler(), FIONREAD, &nBytes);
        return static_cast<size_t>(nBytes);
    }

    CPtyPair m_pty;
    CSerial m_port;
    Bytes m_stream;
    size_t m_szSent = 0;
    size_t m_szRecords = 0;
};
} // namespace

TEST(Serial, ANewPortIsUnused)
{
    CSerial serial;
    EXPECT_EQ(serial.GetPortNum(), 0x7FFFFFFFu);
    EXPECT_EQ(serial.GetName(), "");
    EXPECT_EQ(serial.GetGroupName(), "");
    EXPECT_EQ(serial.GetHandler(), -1);
    EXPECT_FALSE(serial.IsOpen());
    EXPECT_EQ(serial.GetTotalBytesRead(), 0u);
    EXPECT_EQ(serial.GetTotalBytesWrite(), 0u);
    EXPECT_TRUE(serial.Channel().Rows().empty());
    EXPECT_FALSE(ReadPort(serial));
}

TEST(Serial, TheTypeGivesTheChannels)
{
    const struct
    {
        enSerialType enType;
        std::vector<enChannelType> vecChannel;
    } c_aCase[] = {
        {SERIAL_TYPE_DIAG, {CHANNEL_LTE_DIAG}},
        {SERIAL_TYPE_DATA, {CHANNEL_LTE_DATA}},
        {SERIAL_TYPE_GU, {CHANNEL_GU_CMD, CHANNEL_GU_DATA}},
        {SERIAL_TYPE_AT, {CHANNEL_AT}},
        {static_cast<enSerialType>(4), {}},
    };
    CSerial serial;
    for (const auto& stCase : c_aCase) {
        serial.SetSerialType(stCase.enType);
        EXPECT_EQ(serial.GetSerialType(), stCase.enType);
        std::vector<enChannelType> vecChannel;
        for (const CHANNEL_ROW& stRow : serial.Channel().Rows())
            vecChannel.push_back(stRow.enChannel);
        EXPECT_EQ(vecChannel, stCase.vecChannel) << stCase.enType;
    }
}

TEST(Serial, APortWithoutChannelsSwallowsItsData)
{
    CSerial serial;
    serial.SetSerialType(static_cast<enSerialType>(9));
    {
        CAgentMsgRun run;
        serial.Channel().OnSerialData(FrameOf(Fill(18, 1)), run);
    }
    EXPECT_TRUE(DrainAgentQueue().empty());
}

TEST(Serial, BaudOfTheSpeedConstants)
{
    const struct
    {
        speed_t speed;
        int iBaud;
    } c_aCase[] = {
        {B0, 0},           {B50, 50},        {B75, 75},
        {B110, 110},       {B134, 134},      {B150, 150},
        {B200, 200},       {B300, 300},      {B600, 600},
        {B1200, 1200},     {B2400, 2400},    {B9600, 9600},
        {B19200, 19200},   {B38400, 38400},  {B57600, 57600},
        {B115200, 115200}, {128000, 128000}, {B1800, 9600},
        {B4800, 9600},     {B230400, 9600},  {static_cast<speed_t>(-1), 9600},
    };
    for (const auto& stCase : c_aCase)
        EXPECT_EQ(CSerial::_BAUDRATE(static_cast<int>(stCase.speed)), stCase.iBaud) << stCase.speed;
    EXPECT_EQ(CSerial().GetBaudrate(), 115200);
}

TEST(Serial, WriteTimeOutsAreWholeSeconds)
{
    const struct
    {
        size_t szRemaining;
        int iSeconds;
    } c_aCase[] = {{1, 2}, {5759, 2}, {5760, 3}, {11519, 3}, {11520, 4}, {131072, 24}};
    for (const auto& stCase : c_aCase)
        EXPECT_EQ(WriteTimeoutS(stCase.szRemaining, 115200), stCase.iSeconds) << stCase.szRemaining;
}

TEST(Serial, OpensRawAndClosesWithTheOldSettings)
{
    CPtyPair modem;
    const termios stBefore = modem.Settings();
    CUE ue;
    ue.SetUEIdx(3);
    CSerial& serial = *ue.GetSerial(SERIAL_TYPE_DIAG);
    Prepare(serial, SERIAL_TYPE_DIAG, modem.Name(), 5);
    const CLogCapture log;
    modem.Write(Text("sent before the port was open"));

    ASSERT_TRUE(OpenPort(serial));
    EXPECT_TRUE(serial.IsOpen());
    EXPECT_EQ(log.Count("[INF] : Open Serial " + modem.Name() + " OK!"), 1);

    const termios stOpen = modem.Settings();
    EXPECT_EQ(cfgetospeed(&stOpen), B115200);
    EXPECT_EQ(cfgetispeed(&stOpen), B115200);
    EXPECT_EQ(stOpen.c_cflag & (CSIZE | PARENB | CSTOPB), tcflag_t(CS8));
    EXPECT_EQ(stOpen.c_cflag & (CREAD | HUPCL | CLOCAL | CRTSCTS), tcflag_t(CREAD | HUPCL | CLOCAL | CRTSCTS));
    EXPECT_EQ(stOpen.c_iflag & (IXON | IXOFF | ICRNL | INLCR | ISTRIP), 0u);
    EXPECT_EQ(stOpen.c_lflag & (ICANON | ECHO | ISIG), 0u);
    EXPECT_EQ(stOpen.c_oflag & OPOST, 0u);
    EXPECT_EQ(stOpen.c_cc[VMIN], 1);
    EXPECT_EQ(stOpen.c_cc[VTIME], 0);
    EXPECT_EQ(fcntl(serial.GetHandler(), F_GETFL) & (O_NONBLOCK | O_ACCMODE), O_NONBLOCK | O_RDWR);

    // What waited before the opening was discarded: the read gives only what comes now.
    const Bytes frame = FrameOf(Fill(18, 0x7E));
    modem.Write(frame);
    EXPECT_TRUE(ReadPort(serial));
    EXPECT_EQ(serial.GetTotalBytesRead(), frame.size());
    const auto msgs = DrainAgentQueue();
    ASSERT_EQ(msgs.size(), 1u);
    EXPECT_EQ(msgs[0].ulUeIdx, 3u);
    EXPECT_EQ(msgs[0].data, Fill(18, 0x7E));

    WritePacket(serial, Hex("01 02 7E 7D"));
    EXPECT_EQ(modem.Read(10), Hex("7E 01 02 7D 5E 7D 5D 6B 97 7E"));
    EXPECT_EQ(serial.GetTotalBytesWrite(), 10u);
    EXPECT_EQ(serial.WriteBytes(ByteView()), 0);
    EXPECT_EQ(serial.GetTotalBytesWrite(), 10u);

    EXPECT_TRUE(serial.CloseSerial());
    EXPECT_FALSE(serial.IsOpen());
    EXPECT_EQ(serial.GetHandler(), -1);
    EXPECT_EQ(log.Count("[INF] : Close Serial " + modem.Name()), 1);
    EXPECT_EQ(modem.Settings().c_cflag, stBefore.c_cflag);
    EXPECT_EQ(serial.GetTotalBytesRead(), frame.size()) << "counters live until the next opening";
    EXPECT_EQ(serial.GetTotalBytesWrite(), 10u);

    ASSERT_TRUE(OpenPort(serial));
    EXPECT_EQ(serial.GetTotalBytesRead(), 0u);
    EXPECT_EQ(serial.GetTotalBytesWrite(), 0u);
}

TEST(Serial, ADeviceThatIsntThereFailsAtOnce)
{
    CSerial serial;
    Prepare(serial, SERIAL_TYPE_DATA, "/dev/no-such-port", 5);
    const CLogCapture log;
    EXPECT_FALSE(OpenPort(serial));
    EXPECT_FALSE(serial.IsOpen());
    EXPECT_EQ(log.Count("[ERR] : Open Serial /dev/no-such-port fail!"), 1);
}

TEST(Serial, ADeviceThatIsNoTerminalIsClosedAgain)
{
    CSerial serial;
    Prepare(serial, SERIAL_TYPE_DATA, "/dev/null", 5);
    const CLogCapture log;
    EXPECT_FALSE(OpenPort(serial));
    EXPECT_FALSE(serial.IsOpen());
    EXPECT_EQ(serial.GetHandler(), -1);
    EXPECT_EQ(log.Count("Open Serial /dev/null OK!"), 1);
    EXPECT_EQ(log.Count("Close Serial /dev/null"), 1);
    EXPECT_EQ(log.Count("[ERR] : Set Serial /dev/null attr fail!"), 1);
}

TEST(Serial, ClosingAClosedPortLogsTheSame)
{
    CSerial serial;
    Prepare(serial, SERIAL_TYPE_AT, "/dev/ttyUSB9", 5);
    const CLogCapture log;
    EXPECT_TRUE(serial.CloseSerial());
    EXPECT_EQ(log.Count("Close Serial /dev/ttyUSB9"), 1);
}

TEST(Serial, OnlyAnAtPortIsOpenedByAWrite)
{
    const CLogCapture log;
    CSerial closed;
    Prepare(closed, SERIAL_TYPE_GU, "/dev/no-such-port", 5);
    WritePacket(closed, Hex("01"));
    EXPECT_EQ(log.Count("[INF] : open serial not open  ,m_type:2"), 1);
    EXPECT_EQ(log.Count("Open Serial"), 0);

    CUE ue;
    CSerial& at = *ue.GetSerial(SERIAL_TYPE_AT);
    WritePacket(at, Hex("01")); // a detached port: it has no name
    EXPECT_EQ(log.Count("[ERR] : Open Serial  fail!"), 1);
    EXPECT_EQ(log.Count("[INF] : at open serial fail ,m_type:3"), 1);

    CPtyPair modem;
    at.SetName(modem.Name());
    const auto start = steady_clock::now();
    WritePacket(at, AsBytes("AT~\r"));
    EXPECT_GE(steady_clock::now() - start, milliseconds(1000)) << "it settles first";
    EXPECT_TRUE(at.IsOpen());
    EXPECT_EQ(modem.Read(4), Text("AT~\r"));
}

TEST(Serial, AnAtPortWithoutAUeCantBeOpened)
{
    const CLogCapture log;
    CSerial at;
    Prepare(at, SERIAL_TYPE_AT, "/dev/null", 5);
    WritePacket(at, Hex("01"));
    EXPECT_EQ(log.Count("[INF] : at open serial fail ,m_type:3"), 1);
}

TEST(Serial, AnOpeningThatIsGivenUpEndsClosed)
{
    CPtyPair modem;
    CSerial serial;
    Prepare(serial, SERIAL_TYPE_DIAG, modem.Name(), 5);
    const uint64_t ullBeforeOpen = serial.BeginOpen();
    EXPECT_TRUE(serial.IsOpening());
    serial.CloseSerial();
    EXPECT_FALSE(serial.IsOpening());
    EXPECT_FALSE(serial.OpenSerial(ullBeforeOpen)) << "the device is closed again";
    EXPECT_EQ(serial.GetHandler(), -1);

    const uint64_t ullWhileSettling = serial.BeginOpen();
    EXPECT_TRUE(serial.OpenSerial(ullWhileSettling));
    EXPECT_NE(serial.GetHandler(), -1);
    EXPECT_FALSE(serial.IsOpen());
    serial.CloseSerial();
    EXPECT_EQ(serial.GetHandler(), -1);
    bool bReported = false;
    EXPECT_FALSE(serial.FinishOpen(ullWhileSettling, [&] { bReported = true; }));
    EXPECT_FALSE(bReported);
    EXPECT_FALSE(serial.IsOpen());
}

TEST(Serial, TheReasonOfAFailureIsToldWithRecovery)
{
    std::string strText = "Recovery = 1";
    CConfig::Instance()->ParseConfig(strText);
    const CLogCapture log;
    CSerial serial;
    Prepare(serial, SERIAL_TYPE_DATA, "/dev/no-such-port", 5);
    EXPECT_FALSE(OpenPort(serial));
    EXPECT_EQ(log.Count("[ERR] : Open Serial /dev/no-such-port fail!"), 1);
    EXPECT_EQ(log.Count("[ERR] : Open Serial /dev/no-such-port: missing, there is no such device"), 1);
    EXPECT_FALSE(serial.OpenSerial(serial.BeginOpen(), true));
    EXPECT_EQ(log.Count("Open Serial /dev/no-such-port"), 2) << "a further try is quiet";
    serial.SetName("/dev");
    EXPECT_FALSE(serial.OpenSerial(serial.BeginOpen(), true));
    EXPECT_EQ(log.Count("[ERR] : Open Serial /dev: Is a directory"), 1) << "but for another reason";
}

TEST(Serial, AModemThatStopsReadingHoldsAWriteNoLongerThanTheTimeOut)
{
    CPtyPair modem;
    CSerial serial;
    Prepare(serial, SERIAL_TYPE_DIAG, modem.Name(), 5);
    ASSERT_TRUE(OpenPort(serial));
    modem.Clog();
    const CLogCapture log;
    const auto start = steady_clock::now();
    WritePacket(serial, Fill(5000, 'x'));
    const auto took = steady_clock::now() - start;
    EXPECT_GE(took, milliseconds(1990));
    EXPECT_LT(took, milliseconds(3500));
    EXPECT_EQ(log.Count("[ERR] : Send data to UE(com 5) Timeout. channel type:0, errno:"), 1);
    EXPECT_TRUE(serial.IsOpen());
}

TEST(Serial, AWriteThatDoesntFitAtOnceGoesOutInPieces)
{
    CPtyPair modem;
    CSerial serial;
    Prepare(serial, SERIAL_TYPE_DATA, modem.Name(), 5);
    ASSERT_TRUE(OpenPort(serial));
    Bytes data;
    for (size_t i = 0; i < 300'000; ++i)
        data.push_back(static_cast<unsigned char>(i * 7 + i / 251));
    const Bytes frame = FrameOf(data);
    Bytes received;
    std::thread reader([&] { received = modem.Read(frame.size()); });
    WritePacket(serial, data);
    reader.join();
    EXPECT_EQ(received, frame);
    EXPECT_EQ(serial.GetTotalBytesWrite(), frame.size());
}

TEST(Serial, SignalsDisturbNeitherAWriteThatWaitsNorItsTimeOut)
{
    CPtyPair modem;
    CSerial serial;
    Prepare(serial, SERIAL_TYPE_DIAG, modem.Name(), 5);
    ASSERT_TRUE(OpenPort(serial));
    const CLogCapture log;
    const Bytes data = Fill(300'000, 0x5A);
    {
        const CSignals signals;
        Bytes received;
        std::thread reader([&] {
            CSignals::WaitForMore(50); // the write waits for room meanwhile
            received = modem.Read(FrameOf(data).size());
        });
        WritePacket(serial, data);
        reader.join();
        EXPECT_EQ(received, FrameOf(data));
    }
    modem.Clog();
    const CSignals signals;
    const auto start = steady_clock::now();
    WritePacket(serial, Hex("01 02"));
    EXPECT_GE(steady_clock::now() - start, milliseconds(1990));
    EXPECT_LT(steady_clock::now() - start, milliseconds(3500));
    EXPECT_EQ(log.Count("Send data to UE(com 5) Timeout"), 1);
    EXPECT_EQ(log.Count("Send data to UE(com 5) Error"), 0);
    EXPECT_EQ(log.Count("fail"), 0);
}

TEST(Serial, AReadThatASignalEndsIsNoFault)
{
    CPtyPair modem;
    CSerial serial;
    Prepare(serial, SERIAL_TYPE_DIAG, modem.Name(), 5);
    ASSERT_TRUE(OpenPort(serial));
    const CLogCapture log;
    {
        const CSignals signals;
        EXPECT_TRUE(ReadPort(serial)) << "nothing there";
    }
    EXPECT_EQ(log.Count("read serial fail"), 0);
    modem.Write(Hex("01 02"));
    EXPECT_TRUE(ReadPort(serial));
    EXPECT_EQ(serial.GetTotalBytesRead(), 2u);
}

TEST(Serial, WhatComesWhileAFullReadIsDealtWithIsReadInTheSamePass)
{
    CSendingModem modem(600);
    EXPECT_TRUE(ReadPort(modem.Port()));
    // Records are handed over by 256, which are 128 frames, so the modem fills the port anew in each full read.
    EXPECT_GE(modem.Port().GetTotalBytesRead(), 3u * 4095);
    while (!modem.HasAll())
        ASSERT_TRUE(ReadPort(modem.Port()));
    EXPECT_EQ(modem.Port().GetTotalBytesRead(), 600 * CSendingModem::FRAME_LEN);
}

TEST(Serial, AModemThatNeverStopsLeavesTheTurnToOthers)
{
    CSendingModem modem(10000);
    for (uint64_t ullBefore = 0; !modem.HasAll(); ullBefore = modem.Port().GetTotalBytesRead()) {
        ASSERT_TRUE(ReadPort(modem.Port()));
        ASSERT_LE(modem.Port().GetTotalBytesRead() - ullBefore, 64u * 1024) << "28 KiB and the read that passes them";
    }
    EXPECT_EQ(modem.Port().GetTotalBytesRead(), 10000 * CSendingModem::FRAME_LEN);
}

TEST(Serial, AModemThatVanishedIsLoggedAndThePortStaysOpen)
{
    CPtyPair modem;
    CSerial serial;
    Prepare(serial, SERIAL_TYPE_GU, modem.Name(), 8);
    ASSERT_TRUE(OpenPort(serial));
    const CLogCapture log;
    modem.Unplug();
    EXPECT_FALSE(ReadPort(serial));
    EXPECT_EQ(log.Count("[WAN] : read Serial == 0, com:8, type:2, errno:") +
                  log.Count("[ERR] : read serial fail, com:8, type:2, errno:"),
              1);
    WritePacket(serial, Hex("01 02"));
    EXPECT_EQ(log.Count("[ERR] : write data to SerialPort(com 8) fail!channel type:2, errno:5"), 1);
    EXPECT_TRUE(serial.IsOpen());
    EXPECT_EQ(serial.GetTotalBytesWrite(), 0u);
}

TEST(Serial, AFailedReadAndAnInvalidDescriptorAreLogged)
{
    CPtyPair modem;
    CSerial serial;
    Prepare(serial, SERIAL_TYPE_DIAG, modem.Name(), 8);
    ASSERT_TRUE(OpenPort(serial));
    const CLogCapture log;
    EXPECT_EQ(log.Count("fail"), 0); // the log has its files by now: none takes the number that is freed
    close(serial.GetHandler());      // as no one should
    EXPECT_FALSE(ReadPort(serial));
    EXPECT_EQ(log.Count("[ERR] : read serial fail, com:8, type:0, errno:9"), 1);
    WritePacket(serial, Hex("01 02"));
    EXPECT_EQ(log.Count("[ERR] : write data to SerialPort(com 8) fail!channel type:0, errno:9"), 1);
}
