#include "support/VexProcess.h"

#include "support/WaitFor.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{
constexpr int EXIT_NOT_STARTED = 127; // as the shell has it

std::string ReadFile(const std::string& strPath)
{
    std::ostringstream text;
    text << std::ifstream(strPath, std::ios::binary).rdbuf();
    return text.str();
}

/// The child's side between fork and exec: only calls that are safe there.
[[noreturn]] void Become(char* const* ppszArgs, const char* pszWorkDir, int nOut, int nErr)
{
    (void)prctl(PR_SET_PDEATHSIG, SIGKILL); // a test that dies takes its programs along
    (void)signal(SIGPIPE, SIG_DFL);         // whoever runs the tests may ignore it, and a child inherits that
    if (dup2(nOut, STDOUT_FILENO) >= 0 && dup2(nErr, STDERR_FILENO) >= 0 && chdir(pszWorkDir) == 0)
        (void)execv(ppszArgs[0], ppszArgs);
    _exit(EXIT_NOT_STARTED);
}
} // namespace

CTempDir::CTempDir() : m_strPath("/tmp/vex-test-XXXXXX")
{
    if (mkdtemp(m_strPath.data()) == nullptr)
        std::abort();
}

CTempDir::~CTempDir()
{
    std::error_code ignored; // a leftover in /tmp fails no test
    std::filesystem::remove_all(m_strPath, ignored);
}

void CTempDir::Write(const std::string& strName, const std::string& strText) const
{
    const std::filesystem::path path = m_strPath + '/' + strName;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << strText;
}

std::string CTempDir::Read(const std::string& strName) const
{
    return ReadFile(m_strPath + '/' + strName);
}

std::vector<std::string> CTempDir::Files() const
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(m_strPath))
        if (entry.is_regular_file())
            names.push_back(entry.path().filename());
    std::ranges::sort(names);
    return names;
}

CVexProcess::CVexProcess(const std::string& strProgram, const std::vector<std::string>& args,
                         const std::string& strWorkDir, CUniqueFd errFd)
    : m_outFd(memfd_create("stdout", MFD_CLOEXEC)),
      m_errFd(errFd.IsOpen() ? errFd.Release() : memfd_create("stderr", MFD_CLOEXEC))
{
    std::vector<std::string> words = {strProgram};
    words.insert(words.end(), args.begin(), args.end());
    std::vector<char*> pointers;
    for (std::string& strWord : words)
        pointers.push_back(strWord.data());
    pointers.push_back(nullptr);
    m_lPid = fork();
    if (m_lPid == 0)
        Become(pointers.data(), strWorkDir.c_str(), m_outFd.Get(), m_errFd.Get());
    if (m_lPid < 0 || !m_outFd.IsOpen() || !m_errFd.IsOpen())
        std::abort();
}

CVexProcess::~CVexProcess()
{
    Signal(SIGKILL);
    (void)WaitExit();
}

bool CVexProcess::Poll()
{
    int nStatus = 0;
    if (!m_exit && waitpid(m_lPid, &nStatus, WNOHANG) == m_lPid)
        m_exit = WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : 128 + WTERMSIG(nStatus);
    return m_exit.has_value();
}

std::optional<int> CVexProcess::WaitExit(std::chrono::milliseconds limit)
{
    (void)WaitFor([this] { return Poll(); }, limit);
    return m_exit;
}

void CVexProcess::Signal(int nSignal) const
{
    if (!m_exit) // once reaped the number may belong to another process
        (void)kill(m_lPid, nSignal);
}

std::string CVexProcess::ReadAll(const CUniqueFd& fd)
{
    std::string strText;
    std::array<char, 4096> szChunk{};
    for (ssize_t lGot = 0;
         (lGot = pread(fd.Get(), szChunk.data(), szChunk.size(), static_cast<off_t>(strText.size()))) > 0;)
        strText.append(szChunk.data(), static_cast<size_t>(lGot));
    return strText;
}

bool CVexProcess::Saw(const std::string& strText, std::chrono::milliseconds limit) const
{
    return WaitFor([&] { return Output().find(strText) != std::string::npos; }, limit);
}

size_t CVexProcess::ResidentKiB() const
{
    std::istringstream statm(ReadFile("/proc/" + std::to_string(m_lPid) + "/statm"));
    size_t szTotal = 0;
    size_t szResident = 0;
    statm >> szTotal >> szResident;
    return szResident * static_cast<size_t>(sysconf(_SC_PAGESIZE)) / 1024;
}
