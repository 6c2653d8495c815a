#include "ue/Serial.h"

#include "common/Debug.h"
#include "common/UniqueFd.h"
#include "common/Wait.h"
#include "ue/UE.h"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <thread>
#include <unistd.h>

namespace
{
constexpr auto SETTLE_TIME = std::chrono::seconds(1); // from the opening of a device until it is used
constexpr int BAUD_NO_CONSTANT = 128000;              // a speed that the terminal interface has no constant for
constexpr int BAUD_DEFAULT = 9600;
constexpr int WRITE_BASE_TIMEOUT_S = 2;
constexpr int LINE_BITS_PER_BYTE = 20;      // allowed for in the write time-out, twice what 8N1 takes
constexpr useconds_t WRITE_RETRY_US = 1000; // pause when a port that called itself writable took nothing
constexpr auto DRAIN_LIMIT = std::chrono::seconds(2);

struct BAUD_ROW
{
    int iSpeed; // terminal speed constant
    int iBaud;
};
// clang-format off
constexpr BAUD_ROW g_astBaud[] = {
    {B0, 0},         {B50, 50},       {B75, 75},         {B110, 110},
    {B134, 134},     {B150, 150},     {B200, 200},       {B300, 300},
    {B600, 600},     {B1200, 1200},   {B2400, 2400},     {B9600, 9600},
    {B19200, 19200}, {B38400, 38400}, {B57600, 57600},   {B115200, 115200},
    {BAUD_NO_CONSTANT, BAUD_NO_CONSTANT},
};
// clang-format on

/// Gives the device a moment to send what it still holds, then discards the rest: a modem that keeps its flow
/// control off must not hold a close, which would wait for it without a limit.
void DrainOrDiscard(int nFd)
{
    const auto end = std::chrono::steady_clock::now() + DRAIN_LIMIT;
    int nPending = 0;
    while (ioctl(nFd, TIOCOUTQ, &nPending) == 0 && nPending > 0) {
        if (std::chrono::steady_clock::now() >= end) {
            (void)tcflush(nFd, TCOFLUSH); // a device that is gone has nothing to discard
            return;
        }
        usleep(10'000);
    }
}

void RestoreAndClose(int nFd, const termios& stTermios)
{
    DrainOrDiscard(nFd);
    (void)RetryOnEintr([&] { return tcsetattr(nFd, TCSADRAIN, &stTermios); }); // fails when the device is gone
    (void)close(nFd);
}

} // namespace

int WriteTimeoutS(size_t szRemaining, int iBaud)
{
    return static_cast<int>(static_cast<int64_t>(szRemaining) * LINE_BITS_PER_BYTE / iBaud) + WRITE_BASE_TIMEOUT_S;
}

CSerial::CSerial() : m_pReadBuf(new unsigned char[SERIAL_READ_BUF_LEN])
{
    InitSerialPort();
}

CSerial::~CSerial()
{
    if (m_iHandle != -1)
        CloseSerial();
}

/// 115200 baud, 8N1, raw, hardware flow control, a read gives what is there but waits for the first byte. CLOCAL:
/// many USB modems report no carrier.
void CSerial::InitSerialPort()
{
    cfmakeraw(&m_stNewTermios);
    m_stNewTermios.c_cflag = CREAD | HUPCL | CLOCAL | CRTSCTS | CS8;
    cfsetispeed(&m_stNewTermios, B115200);
    cfsetospeed(&m_stNewTermios, B115200);
    m_stNewTermios.c_cc[VTIME] = 0;
    m_stNewTermios.c_cc[VMIN] = 1;
}

void CSerial::SetName(const std::string& strName)
{
    const xtl::MutexGuard guard(m_NameLock);
    m_strName = strName;
}

std::string CSerial::GetName() const
{
    const xtl::MutexGuard guard(m_NameLock);
    return m_strName;
}

void CSerial::SetGroupName(const std::string& strGroupName)
{
    const xtl::MutexGuard guard(m_NameLock);
    m_strGroupName = strGroupName;
}

std::string CSerial::GetGroupName() const
{
    const xtl::MutexGuard guard(m_NameLock);
    return m_strGroupName;
}

void CSerial::SetSerialType(enSerialType enType)
{
    m_enType = enType;
    m_Channel.SetRows(ChannelsOf(enType));
}

UE_INDEX CSerial::GetUEIdx() const
{
    return m_pUE != nullptr ? m_pUE->GetUEIdx() : TCP_UE_INDEX;
}

void CSerial::LogFault(LINE_FAULT enFault) const
{
    switch (enFault) {
    case LINE_FAULT::DECODE:
        CDebug::Instance()->PrintError("HDLC Decode Error!com:%d, type:%d", GetPortNum(), m_enType);
        break;
    case LINE_FAULT::TOO_BIG:
        CDebug::Instance()->PrintWarn("HDLC Data Too Big!com:%d, type:%d", GetPortNum(), m_enType);
        break;
    case LINE_FAULT::ENCODE:
        CDebug::Instance()->PrintError("HDLC Encode Error!com:%d, type:%d", GetPortNum(), m_enType);
        break;
    }
}

bool CSerial::OpenSerial()
{
    if (m_bOpen)
        CloseSerial();
    const std::string strName = GetName();
    // A port is no controlling terminal, or a vanishing modem would hang up the process; and without O_NONBLOCK
    // the open itself would wait for a carrier. It is cleared once the attributes with CLOCAL are set.
    CUniqueFd fd(RetryOnEintr([&] { return open(strName.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC); }));
    if (!fd.IsOpen()) {
        m_bOpen = false;
        CDebug::Instance()->PrintError("Open Serial %s fail!", strName.c_str());
        return false;
    }
    m_ullTotalRead = 0;
    m_ullTotalWrite = 0;
    CDebug::Instance()->PrintInfo("Open Serial %s OK!", strName.c_str());
    termios stOldTermios{};
    (void)tcgetattr(fd.Get(), &stOldTermios); // what is no terminal fails at the next step
    (void)tcflush(fd.Get(), TCIFLUSH);
    const bool bSet = SetAttributes(fd.Get());
    const int nFd = fd.Release();
    Publish(nFd, stOldTermios);
    if (!bSet) {
        CloseSerial();
        CDebug::Instance()->PrintError("Set Serial %s attr fail!", strName.c_str());
        return false;
    }
    std::this_thread::sleep_for(SETTLE_TIME);
    return MarkOpen(nFd);
}

bool CSerial::SetAttributes(int nFd) const
{
    if (RetryOnEintr([&] { return tcsetattr(nFd, TCSAFLUSH, &m_stNewTermios); }) != 0)
        return false;
    (void)SetNonBlocking(nFd, false); // fails on no open file
    return true;
}

/// From here on CloseSerial finds the descriptor.
void CSerial::Publish(int nFd, const termios& stOldTermios)
{
    const xtl::MutexGuard guard(m_WriteLock);
    m_stOldTermios = stOldTermios;
    m_iHandle = nFd;
}

/// An AT port is opened by the write thread, so a detach may have closed it again while it settled.
bool CSerial::MarkOpen(int nFd)
{
    const xtl::MutexGuard guard(m_WriteLock);
    m_bOpen = m_iHandle == nFd;
    return m_bOpen;
}

bool CSerial::CloseSerial()
{
    {
        const xtl::MutexGuard readGuard(m_ReadLock);
        const xtl::MutexGuard writeGuard(m_WriteLock);
        if (m_iHandle != -1)
            RestoreAndClose(m_iHandle, m_stOldTermios);
        m_iHandle = -1;
        m_bOpen = false;
    }
    CDebug::Instance()->PrintInfo("Close Serial %s", GetName().c_str());
    return true;
}

bool CSerial::ReadSerial(CAgentMsgRun& run)
{
    if (!m_bOpen)
        return false;
    const ssize_t nRead = read(m_iHandle, m_pReadBuf.get(), SERIAL_READ_BUF_LEN);
    if (nRead > 0) {
        m_ullTotalRead += static_cast<uint64_t>(nRead);
        m_Channel.OnSerialData({m_pReadBuf.get(), static_cast<size_t>(nRead)}, run);
        return true;
    }
    if (nRead < 0 && errno == EINTR)
        return true; // nothing now
    if (nRead == 0)
        CDebug::Instance()->PrintWarn("read Serial == 0, com:%d, type:%d, errno:%d", GetPortNum(), m_enType, errno);
    else
        CDebug::Instance()->PrintError("read serial fail, com:%d, type:%d, errno:%d", GetPortNum(), m_enType, errno);
    return false;
}

bool CSerial::OpenForWrite()
{
    if (!IsOpenedByWrite()) {
        CDebug::Instance()->PrintInfo("open serial not open  ,m_type:%d", m_enType);
        return false;
    }
    if (OpenSerial())
        return true;
    CDebug::Instance()->PrintInfo("at open serial fail ,m_type:%d", m_enType);
    return false;
}

bool CSerial::WriteSerial(ByteView data)
{
    if (!m_bOpen && !OpenForWrite())
        return false;
    const xtl::MutexGuard guard(m_WriteLock);
    return m_iHandle != -1 && WriteAll(data);
}

bool CSerial::WriteAll(ByteView data)
{
    std::chrono::steady_clock::time_point end;
    for (size_t szTimedFor = 0; !data.empty();) {
        if (szTimedFor != data.size()) { // the time-out starts anew with each piece that got through
            szTimedFor = data.size();
            end = std::chrono::steady_clock::now() + std::chrono::seconds(WriteTimeoutS(data.size(), GetBaudrate()));
        }
        if (!WaitWritable(MsUntil(end)))
            return false;
        const ssize_t nWritten = WriteSome(data);
        if (nWritten < 0) {
            CDebug::Instance()->PrintError("write data to SerialPort(com %d) fail!channel type:%d, errno:%d",
                                           GetPortNum(), m_enType, errno);
            return false;
        }
        if (nWritten == 0)
            usleep(WRITE_RETRY_US);
        m_ullTotalWrite += static_cast<uint64_t>(nWritten);
        data = data.subspan(static_cast<size_t>(nWritten));
    }
    return true;
}

bool CSerial::WaitWritable(int lTimeoutMs) const
{
    pollfd stPoll{m_iHandle, POLLOUT, 0};
    const int nReady = lTimeoutMs > 0 ? PollFor({&stPoll, 1}, lTimeoutMs) : 0;
    if (nReady > 0 && (stPoll.revents & POLLNVAL) == 0)
        return true;
    if (nReady == 0)
        CDebug::Instance()->PrintError("Send data to UE(com %d) Timeout. channel type:%d, errno:%d", GetPortNum(),
                                       m_enType, errno);
    else
        CDebug::Instance()->PrintError("Send data to UE(com %d) Error. channel type:%d, errno:%d", GetPortNum(),
                                       m_enType, errno);
    return false;
}

/// Writes as much as the port takes at once and gives the count, 0 when it takes nothing, negative on a fault. A
/// terminal knows no write that doesn't wait but on a descriptor with O_NONBLOCK, so it has the flag for this one
/// call; it is the only writer, and reads come only after a poll that found something.
ssize_t CSerial::WriteSome(ByteView data) const
{
    (void)SetNonBlocking(m_iHandle, true);
    const ssize_t nWritten = RetryOnEintr([&] { return write(m_iHandle, data.data(), data.size()); });
    const int nError = errno;
    (void)SetNonBlocking(m_iHandle, false);
    errno = nError;
    return nWritten < 0 && nError == EAGAIN ? 0 : nWritten;
}

int CSerial::GetBaudrate() const
{
    return _BAUDRATE(static_cast<int>(cfgetospeed(&m_stNewTermios)));
}

int CSerial::_BAUDRATE(int speed)
{
    for (const BAUD_ROW& stRow : g_astBaud)
        if (stRow.iSpeed == speed)
            return stRow.iBaud;
    return BAUD_DEFAULT;
}
