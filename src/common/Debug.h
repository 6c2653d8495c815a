#pragma once

#include "common/Bytes.h"
#include "common/xtl.h"

#include <atomic>
#include <string>

// Log classes: bits of the configuration's debuglevel.
constexpr unsigned char DEBUGLEVEL_INFO = 1;
constexpr unsigned char DEBUGLEVEL_WARN = 2;
constexpr unsigned char DEBUGLEVEL_ERROR = 4;
constexpr unsigned char DEBUGLEVEL_DATA = 8;

/// The system's only log: one text file per run. Any thread prints, one thread writes the file. A line is
/// "YYYY-MM-DD hh:mm:ss.mmm", the tag of its class, the text and a newline. A line longer than the format
/// buffer is cut; lines that fit come out as they are.
class CDebug
{
public:
    /// Creates the object on first use. Safe against several first callers. A call after Destory makes a new one.
    static CDebug* Instance();
    /// Stops the log and lets go of the object. Threads that still print meanwhile are safe: their lines are dropped.
    static void Destory();

    CDebug();
    ~CDebug();
    CDebug(const CDebug&) = delete;
    CDebug& operator=(const CDebug&) = delete;

    /// Starts the writer on a file that is truncated. False without a name, with debuglevel 0 (no file then),
    /// or when the thread can't be created.
    bool Start(const char* pszFileName);
    /// Stops the queue and waits until the lines queued before have reached the file. Always true.
    bool Stop();

    // printf-style, one class of line each; nothing happens unless the configuration's mask has the class.
    void PrintInfo(const char* pszFormat, ...) __attribute__((format(printf, 2, 3)));
    void PrintWarn(const char* pszFormat, ...) __attribute__((format(printf, 2, 3)));
    void PrintError(const char* pszFormat, ...) __attribute__((format(printf, 2, 3)));
    /// One line "<title> Buffer=0x<address>,Length=<n>,dump=0x..,0x..,": every byte, without a limit.
    void PrintRawData(const char* pszTitle, ByteView data);

    /// Body of the writer thread.
    void DebugFun();
};
