#include "common/Debug.h"

#include "common/Config.h"
#include "common/LogFile.h"
#include "common/SingletonSlot.h"
#include "common/Thread.h"

#include <cerrno>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <sys/time.h>
#include <unistd.h>

namespace
{

constexpr size_t TEXT_BUF_SIZE = 1024;    // bytes of a formatted text, NUL included
constexpr int STOP_TIMEOUT_MS = 1500;     // longest wait for the last lines: a run ends within 2 s
constexpr int LONG_ENOUGH_MS = INT32_MAX; // 24 days
constexpr uint64_t BYTES_PER_MB = 1 << 20;
constexpr char HEX_DIGITS[] = "0123456789abcdef";

bool IsEnabled(unsigned char ucLevel)
{
    return (CConfig::Instance()->GetDebugLevel() & ucLevel) != 0;
}

constexpr struct
{
    unsigned char ucLevel;
    const char* pszTag;
} LEVEL_TAGS[] = {
    {DEBUGLEVEL_INFO, " [INF] : "},
    {DEBUGLEVEL_WARN, " [WAN] : "},
    {DEBUGLEVEL_ERROR, " [ERR] : "},
    {DEBUGLEVEL_DATA, " [DAT] : "},
};

const char* Tag(unsigned char ucLevel)
{
    for (const auto& stRow : LEVEL_TAGS)
        if (stRow.ucLevel == ucLevel)
            return stRow.pszTag;
    return "";
}

/// "YYYY-MM-DD hh:mm:ss.mmm", local time, milliseconds cut.
std::string TimeStamp()
{
    timeval stNow{};
    gettimeofday(&stNow, nullptr);
    tm stLocal{};
    localtime_r(&stNow.tv_sec, &stLocal);
    char szStamp[80];
    (void)snprintf(szStamp, sizeof(szStamp), "%04d-%02d-%02d %02d:%02d:%02d.%03d", stLocal.tm_year + 1900,
                   stLocal.tm_mon + 1, stLocal.tm_mday, stLocal.tm_hour, stLocal.tm_min, stLocal.tm_sec,
                   static_cast<int>(stNow.tv_usec / 1000));
    return szStamp;
}

/// Makes and queues a line. One that there is no memory for is lost: whoever prints may have none left to go on with.
template <class Call> void LoseOnNoMemory(Call call)
{
    try {
        call();
    } catch (const std::bad_alloc&) { // nobody could be told
    }
}

} // namespace

CDebug::CDebug() : m_queue(QUEUE_CAPACITY) {}

CDebug::~CDebug()
{
    (void)StopWriter(LONG_ENOUGH_MS); // the writer uses this object to its end
}

CDebug* CDebug::Instance()
{
    return CSingletonSlot<CDebug>::Slot().Get([](bool bFirst) {
        auto pDebug = std::make_unique<CDebug>();
        if (!bFirst)
            pDebug->m_queue.stop(); // behind Destory nobody need ever read: a full queue would hold its caller for good
        return pDebug;
    });
}

void CDebug::Destory()
{
    if (CDebug* pDebug = CSingletonSlot<CDebug>::Slot().Retire())
        pDebug->Stop();
}

bool CDebug::Start(const char* pszFileName)
{
    if (pszFileName == nullptr || CConfig::Instance()->GetDebugLevel() == 0 || m_hThread != -1)
        return false;
    m_strFileName = pszFileName;
    m_ulMaxSize = CConfig::Instance()->GetLogMaxSize();
    m_queue.start();
    m_bRun = true;
    m_hThread = start_thread(0, Debug_Thread, this);
    if (m_hThread == -1) {
        m_bRun = false;
        m_queue.stop();
    }
    return m_hThread != -1;
}

bool CDebug::Stop()
{
    (void)StopWriter(STOP_TIMEOUT_MS); // a file that takes nothing must not hold up the end of the run
    return true;
}

bool CDebug::StopWriter(int lTimeoutMs)
{
    m_bRun = false;
    m_queue.stop();
    return wait_thread(m_hThread.exchange(-1), lTimeoutMs);
}

void CDebug::PrintInfo(const char* pszFormat, ...)
{
    va_list args;
    va_start(args, pszFormat);
    PrintLevel(DEBUGLEVEL_INFO, pszFormat, args);
    va_end(args);
}

void CDebug::PrintWarn(const char* pszFormat, ...)
{
    va_list args;
    va_start(args, pszFormat);
    PrintLevel(DEBUGLEVEL_WARN, pszFormat, args);
    va_end(args);
}

void CDebug::PrintError(const char* pszFormat, ...)
{
    va_list args;
    va_start(args, pszFormat);
    PrintLevel(DEBUGLEVEL_ERROR, pszFormat, args);
    va_end(args);
}

void CDebug::PrintLevel(unsigned char ucLevel, const char* pszFormat, va_list args)
{
    if (!IsEnabled(ucLevel))
        return;
    char szText[TEXT_BUF_SIZE] = {};
    (void)vsnprintf(szText, sizeof(szText), pszFormat, args);
    LoseOnNoMemory([&] { Output(szText, ucLevel); });
}

void CDebug::PrintRawData(const char* pszTitle, ByteView data)
{
    if (!IsEnabled(DEBUGLEVEL_DATA))
        return;
    char szHead[80];
    (void)snprintf(szHead, sizeof(szHead),
                   " Buffer=0x%08" PRIxPTR ",Length=%zu,dump=", reinterpret_cast<uintptr_t>(data.data()), data.size());
    LoseOnNoMemory([&] {
        std::string strText = std::string(pszTitle) + szHead;
        strText.reserve(strText.size() + 5 * data.size());
        for (const unsigned char ucByte : data) {
            strText += "0x";
            strText += HEX_DIGITS[ucByte >> 4];
            strText += HEX_DIGITS[ucByte & 0x0F];
            strText += ',';
        }
        Output(strText, DEBUGLEVEL_DATA);
    });
}

void CDebug::Output(const std::string& strText, unsigned char ucLevel)
{
    LOG_LINE stLine{TimeStamp() + Tag(ucLevel), 0};
    stLine.szHead = stLine.strText.size();
    stLine.strText += strText;
    stLine.strText += '\n';
    (void)m_queue.put(std::move(stLine));
}

void CDebug::DebugFun()
{
    CLogFile file(m_strFileName, uint64_t{m_ulMaxSize} * BYTES_PER_MB);
    if (!file.IsOpen())
        (void)fprintf(stderr, "can't write the log file %s: %s; this run has no log\n", m_strFileName.c_str(),
                      strerror(errno));
    CRepeatedLines repeated([&](std::string_view line) { file.Write(line); });
    for (;;) {
        LOG_LINE stLine;
        if (m_queue.get({&stLine, 1}, repeated.NextTime()) == 1) {
            if (m_ulMaxSize == 0)
                file.Write(stLine.strText);
            else
                LoseOnNoMemory([&] { repeated.Add(std::move(stLine), std::chrono::steady_clock::now()); });
        } else if (m_queue.running()) {
            LoseOnNoMemory([&] { repeated.Flush(); });
        } else if (m_bRun) {
            sleep(1);
        } else {
            break;
        }
    }
    LoseOnNoMemory([&] { repeated.Flush(); });
}

void* Debug_Thread(void* pDebug)
{
    if (pDebug != nullptr)
        static_cast<CDebug*>(pDebug)->DebugFun();
    return nullptr;
}
