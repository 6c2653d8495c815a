#pragma once

#include "common/Bytes.h"
#include "common/RepeatedLines.h"
#include "common/xtl.h"

#include <atomic>
#include <cstdarg>
#include <string>

// Log classes: bits of the configuration's debuglevel.
constexpr unsigned char DEBUGLEVEL_INFO = 1;
constexpr unsigned char DEBUGLEVEL_WARN = 2;
constexpr unsigned char DEBUGLEVEL_ERROR = 4;
constexpr unsigned char DEBUGLEVEL_DATA = 8;

/// The system's only log: one text file per run, or with LogMaxSize two. Any thread prints, one thread writes the file.
/// A line is "YYYY-MM-DD hh:mm:ss.mmm", the tag of its class, the text and a newline. A line longer than the format
/// buffer is cut; lines that fit come out as they are.
class CDebug
{
public:
    /// Creates the object on first use. Safe against several first callers. A call after Destory makes a new one.
    static CDebug* Instance();
    /// Stops the log and lets go of the object. Threads that still print are safe: their lines are dropped, those
    /// to a new object as well, until that one is started.
    static void Destory();

    /// Lines collect in the queue until Start; the one that the queue has no room for blocks its caller.
    CDebug();
    ~CDebug();
    CDebug(const CDebug&) = delete;
    CDebug& operator=(const CDebug&) = delete;

    /// Starts the writer on a file that is truncated. False without a name, with debuglevel 0 (no file then),
    /// when it runs already or when the thread can't be created.
    bool Start(const char* pszFileName);
    /// The file of the run; empty before Start.
    const std::string& FileName() const { return m_strFileName; }
    /// Stops the queue and waits until the lines queued before have reached the file, a few seconds at most when
    /// the file doesn't take them. Always true.
    bool Stop();

    // printf-style, one class of line each; nothing happens unless the configuration's mask has the class. A line that
    // there is no memory for is lost: nothing is thrown.
    void PrintInfo(const char* pszFormat, ...) __attribute__((format(printf, 2, 3)));
    void PrintWarn(const char* pszFormat, ...) __attribute__((format(printf, 2, 3)));
    void PrintError(const char* pszFormat, ...) __attribute__((format(printf, 2, 3)));
    /// One line "<title> Buffer=0x<address>,Length=<n>,dump=0x..,0x..,": every byte, without a limit.
    void PrintRawData(const char* pszTitle, ByteView data);

    /// Queues one line of a class (DEBUGLEVEL_...), whatever the mask; another value gives a line without a tag.
    void Output(const std::string& strText, unsigned char ucLevel);

    /// Body of the writer thread. A file that can't be opened is told on standard error, and lines are dropped.
    void DebugFun();

private:
    static constexpr int QUEUE_CAPACITY = 50; // lines

    void PrintLevel(unsigned char ucLevel, const char* pszFormat, va_list args) __attribute__((format(printf, 3, 0)));
    /// True when the writer has ended within the time.
    bool StopWriter(int lTimeoutMs);

    xtl::BufQueue<LOG_LINE, xtl::BufQueue_allocate<LOG_LINE>> m_queue; // finished lines
    std::atomic<int> m_hThread = -1;                                   // writer, -1: none
    std::atomic<bool> m_bRun = false;
    // Written while no writer runs.
    std::string m_strFileName;
    unsigned int m_ulMaxSize = 0; // MB; 0: no limit, and lines that repeat are all written
};

/// Entry of the writer thread; pDebug is its CDebug.
void* Debug_Thread(void* pDebug);
