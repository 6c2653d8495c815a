#pragma once

#include "common/Bytes.h"

#include <cstdio>
#include <string>

/// What the simulator saw, one line an event: "<seconds> <who> <text>". A line is in the file when the call returns,
/// so that a test can wait for it.
class CSimLog
{
public:
    CSimLog() = default;
    ~CSimLog();
    CSimLog(const CSimLog&) = delete;
    CSimLog& operator=(const CSimLog&) = delete;

    /// Lines go to standard error until then. False, with errno, when the file can't be written.
    bool OpenFile(const std::string& strPath);
    void SetQuiet(bool bQuiet) { m_bQuiet = bQuiet; }
    void SetVerbose(bool bVerbose) { m_bVerbose = bVerbose; }

    void Event(const std::string& strWho, const char* pszFormat, ...) __attribute__((format(printf, 3, 4)));
    /// All bytes of a packet, with --verbose.
    void Dump(const std::string& strWho, const char* pszTitle, ByteView bytes);

private:
    void Line(const std::string& strWho, const std::string& strText);

    std::FILE* m_pFile = nullptr; // owned; null: standard error
    bool m_bQuiet = false;
    bool m_bVerbose = false;
};
