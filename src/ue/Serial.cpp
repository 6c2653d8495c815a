#include "ue/Serial.h"

#include "common/Debug.h"
#include "common/MsgBuf.h"
#include "common/Wait.h"
#include "ue/UE.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace
{
constexpr int BAUD_NO_CONSTANT = 128000; // a speed that the terminal interface has no constant for
constexpr int BAUD_DEFAULT = 9600;
constexpr int WRITE_BASE_TIMEOUT_S = 2;
constexpr int LINE_BITS_PER_BYTE = 20; // allowed for in the write time-out, twice what 8N1 takes

constexpr ssize_t FULL_READ = 4095;     // bytes that a terminal holds: whoever gets fewer has got all
constexpr ssize_t PASS_MAX = 28 * 1024; // bytes after which it is the other ports' turn

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

/// The reason in words that a person at the bench can act on.
const char* OpenReason(int nError)
{
    switch (nError) {
    case ENOENT:
    case ENODEV:
    case ENXIO:
        return "missing, there is no such device";
    case EBUSY:
        return "busy, another program uses it";
    case EACCES:
    case EPERM:
        return "no permission";
    default:
        return std::strerror(nError);
    }
}
} // namespace

CClosingDevice::CClosingDevice(int nFd, const termios& stTermios) : m_Fd(nFd), m_stTermios(stTermios) {}

CClosingDevice::~CClosingDevice()
{
    if (!m_Fd.IsOpen())
        return;
    // Fails when the device is gone. Nothing here waits for what it would still have to send.
    (void)tcflush(m_Fd.Get(), TCIOFLUSH);
    (void)tcsetattr(m_Fd.Get(), TCSANOW, &m_stTermios);
}

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

uint64_t CSerial::BeginOpen()
{
    const xtl::MutexGuard guard(m_WriteLock);
    m_enState = LINE_STATE::OPENING;
    m_bOpenFailed = false;
    return ++m_ullOpening;
}

bool CSerial::OpenSerial(uint64_t ullOpening, bool bRepeated)
{
    const std::string strName = GetName();
    // A port is no controlling terminal, or a vanishing modem would hang up the process; and without O_NONBLOCK the
    // open itself would wait for a carrier. It stays: no read and no write waits for the modem.
    CUniqueFd fd(RetryOnEintr([&] { return open(strName.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC); }));
    if (!fd.IsOpen()) {
        LogOpenFault(strName, errno, bRepeated);
        return FailOpen(ullOpening);
    }
    termios stOldTermios{};
    (void)tcgetattr(fd.Get(), &stOldTermios); // what is no terminal fails at the next step
    (void)tcflush(fd.Get(), TCIFLUSH);
    if (!SetAttributes(fd.Get())) {
        const int nError = errno;
        fd.Reset();
        LogSetFault(strName, nError, bRepeated);
        return FailOpen(ullOpening);
    }
    m_nLastOpenError = 0;
    m_ullTotalRead = 0;
    m_ullTotalWrite = 0;
    CDebug::Instance()->PrintInfo("Open Serial %s OK!", strName.c_str());
    return Publish(ullOpening, std::move(fd), stOldTermios);
}

void CSerial::LogOpenFault(const std::string& strName, int nError, bool bRepeated)
{
    if (std::exchange(m_nLastOpenError, nError) == nError && bRepeated)
        return;
    CDebug::Instance()->PrintError("Open Serial %s fail!", strName.c_str());
    if (CConfig::Instance()->GetRecovery())
        CDebug::Instance()->PrintError("Open Serial %s: %s", strName.c_str(), OpenReason(nError));
}

void CSerial::LogSetFault(const std::string& strName, int nError, bool bRepeated)
{
    if (std::exchange(m_nLastOpenError, nError) == nError && bRepeated)
        return;
    CDebug::Instance()->PrintInfo("Open Serial %s OK!", strName.c_str());
    CDebug::Instance()->PrintInfo("Close Serial %s", strName.c_str());
    CDebug::Instance()->PrintError("Set Serial %s attr fail!", strName.c_str());
}

bool CSerial::SetAttributes(int nFd) const
{
    return RetryOnEintr([&] { return tcsetattr(nFd, TCSAFLUSH, &m_stNewTermios); }) == 0;
}

/// From here on EndUse finds the descriptor. That of an old opening is closed.
bool CSerial::Publish(uint64_t ullOpening, CUniqueFd fd, const termios& stOldTermios)
{
    {
        const xtl::MutexGuard guard(m_WriteLock);
        if (ullOpening == m_ullOpening) {
            m_stOldTermios = stOldTermios;
            m_iHandle = fd.Release();
            return true;
        }
    }
    const CClosingDevice unwanted(fd.Release(), stOldTermios);
    return false;
}

/// False, for the caller to return.
bool CSerial::FailOpen(uint64_t ullOpening)
{
    {
        const xtl::MutexGuard guard(m_WriteLock);
        if (ullOpening == m_ullOpening) {
            m_bOpenFailed = true;
            m_enState = LINE_STATE::CLOSED;
        }
    }
    CMsgBuf::Instance()->WriteWake().Wake(); // a packet may wait for the opening
    return false;
}

bool CSerial::FinishOpen(uint64_t ullOpening, const std::function<void()>& fnReport)
{
    {
        const xtl::MutexGuard readGuard(m_ReadLock);
        const xtl::MutexGuard writeGuard(m_WriteLock);
        if (ullOpening != m_ullOpening)
            return false;
        m_bReadFault = false;
        fnReport();
        m_enState = LINE_STATE::OPEN;
    }
    CMsgBuf::Instance()->ReadWake(CSerial::GetUEIdx()).Wake();
    CMsgBuf::Instance()->WriteWake().Wake();
    return true;
}

bool CSerial::IfCurrent(uint64_t ullOpening, const std::function<void()>& fnReport)
{
    const xtl::MutexGuard readGuard(m_ReadLock);
    const xtl::MutexGuard writeGuard(m_WriteLock);
    if (ullOpening != m_ullOpening)
        return false;
    fnReport();
    return true;
}

CClosingDevice CSerial::TakeDevice()
{
    const xtl::MutexGuard readGuard(m_ReadLock);
    const xtl::MutexGuard writeGuard(m_WriteLock);
    ++m_ullOpening;
    m_enState = LINE_STATE::CLOSED;
    return {m_iHandle.exchange(-1), m_stOldTermios};
}

CClosingDevice CSerial::EndUse()
{
    CClosingDevice device = TakeDevice();
    CMsgBuf::Instance()->ReadWake(CSerial::GetUEIdx()).Wake();
    CMsgBuf::Instance()->WriteWake().Wake();
    CDebug::Instance()->PrintInfo("Close Serial %s", GetName().c_str());
    return device;
}

bool CSerial::CloseSerial()
{
    const CClosingDevice device = EndUse();
    return true;
}

bool CSerial::ReadBytes(int nHandle)
{
    const xtl::MutexGuard guard(m_ReadLock);
    if (nHandle != ReadHandle())
        return true; // closed since the wait
    // What the terminal has got by the time a read is decoded goes the same way to the client, which is woken less
    // often for more.
    CAgentMsgRun run;
    ssize_t lRead = 0;
    ssize_t lOfPass = 0;
    do {
        lRead = ReadSerial(run);
        lOfPass += lRead;
    } while (lRead >= FULL_READ && lOfPass < PASS_MAX && HasBytes());
    return lRead >= 0;
}

/// The count, 0 when there is nothing now, -1 on a fault that the log tells.
ssize_t CSerial::ReadSerial(CAgentMsgRun& run)
{
    const ssize_t lRead = read(m_iHandle, m_pReadBuf.get(), SERIAL_READ_BUF_LEN);
    if (lRead > 0) {
        m_ullTotalRead += static_cast<uint64_t>(lRead);
        m_Channel.OnSerialData({m_pReadBuf.get(), static_cast<size_t>(lRead)}, run);
        return lRead;
    }
    if (lRead < 0 && (errno == EINTR || errno == EAGAIN))
        return 0; // another program that has the port open may have been faster
    m_bReadFault = true;
    if (lRead == 0)
        CDebug::Instance()->PrintWarn("read Serial == 0, com:%d, type:%d, errno:%d", GetPortNum(), m_enType, errno);
    else
        CDebug::Instance()->PrintError("read serial fail, com:%d, type:%d, errno:%d", GetPortNum(), m_enType, errno);
    return -1;
}

/// Whether the terminal holds bytes. Unlike poll and read, the question doesn't wait for bytes on their way into it.
bool CSerial::HasBytes() const
{
    int nBytes = 0;
    return ioctl(m_iHandle, FIONREAD, &nBytes) == 0 && nBytes > 0;
}

LINE_STATE CSerial::PrepareWrite()
{
    if (m_enState != LINE_STATE::CLOSED)
        return m_enState;
    if (!IsOpenedByWrite()) {
        CDebug::Instance()->PrintInfo("open serial not open  ,m_type:%d", m_enType);
        return LINE_STATE::CLOSED;
    }
    if (!m_bOpenFailed.exchange(false) && m_pUE != nullptr) {
        m_pUE->OpenForWrite(m_enType);
        return LINE_STATE::OPENING;
    }
    CDebug::Instance()->PrintInfo("at open serial fail ,m_type:%d", m_enType);
    return LINE_STATE::REFUSED;
}

/// As much as the port takes at once. The lock keeps the descriptor from being closed meanwhile.
ssize_t CSerial::WriteBytes(ByteView data)
{
    const xtl::MutexGuard guard(m_WriteLock);
    if (!IsOpen())
        return -1;
    const ssize_t nWritten = RetryOnEintr([&] { return write(m_iHandle, data.data(), data.size()); });
    if (nWritten < 0 && errno == EAGAIN)
        return 0;
    if (nWritten < 0)
        CDebug::Instance()->PrintError("write data to SerialPort(com %d) fail!channel type:%d, errno:%d", GetPortNum(),
                                       m_enType, errno);
    else
        m_ullTotalWrite += static_cast<uint64_t>(nWritten);
    return nWritten;
}

std::chrono::seconds CSerial::WriteLimit(size_t szRemaining) const
{
    return std::chrono::seconds(WriteTimeoutS(szRemaining, GetBaudrate()));
}

void CSerial::OnNoHeadway(bool bTimeout)
{
    CDebug::Instance()->PrintError("Send data to UE(com %d) %s. channel type:%d, errno:%d", GetPortNum(),
                                   bTimeout ? "Timeout" : "Error", m_enType, errno);
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
