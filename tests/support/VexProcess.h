#pragma once

#include "common/UniqueFd.h"

#include <chrono>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

constexpr std::chrono::milliseconds PROCESS_LIMIT = std::chrono::seconds(10);

/// A folder of its own under /tmp, removed with all it holds at the end of its life.
class CTempDir
{
public:
    CTempDir();
    ~CTempDir();
    CTempDir(const CTempDir&) = delete;
    CTempDir& operator=(const CTempDir&) = delete;

    const std::string& Path() const { return m_strPath; }
    /// Writes a file; folders in its name are made.
    void Write(const std::string& strName, const std::string& strText) const;
    /// What a file holds; empty when it isn't there.
    std::string Read(const std::string& strName) const;
    /// Names of the files in the folder itself, sorted.
    std::vector<std::string> Files() const;

private:
    std::string m_strPath;
};

/// A program under test, with its output captured. It is killed and reaped at the end of its life, and dies with
/// the test. Aborts the test program when it can't be started.
class CVexProcess
{
public:
    /// Starts a program, at a path, with arguments and a working folder. Its standard error is captured, unless
    /// another file is given for it.
    CVexProcess(const std::string& strProgram, const std::vector<std::string>& args, const std::string& strWorkDir,
                CUniqueFd errFd = {});
    ~CVexProcess();
    CVexProcess(const CVexProcess&) = delete;
    CVexProcess& operator=(const CVexProcess&) = delete;

    pid_t Pid() const { return m_lPid; }
    bool IsRunning() { return !Poll(); }
    /// Exit status, or 128 + the signal that ended it; nothing when it still runs at the limit.
    std::optional<int> WaitExit(std::chrono::milliseconds limit = PROCESS_LIMIT);
    void Signal(int nSignal) const;

    /// What it has written so far.
    std::string Output() const { return ReadAll(m_outFd); }
    std::string Errors() const { return ReadAll(m_errFd); }
    /// Waits until the output holds the text; false when it doesn't come within the limit.
    bool Saw(const std::string& strText, std::chrono::milliseconds limit = PROCESS_LIMIT) const;
    /// Resident memory in KiB; 0 when it isn't running.
    size_t ResidentKiB() const;

private:
    static std::string ReadAll(const CUniqueFd& fd);
    bool Poll(); // reaps it if it has ended

    pid_t m_lPid = -1;
    std::optional<int> m_exit;
    CUniqueFd m_outFd;
    CUniqueFd m_errFd;
};
