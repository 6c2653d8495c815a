#include "client/AtTerminal.h"

#include "common/Wait.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <termios.h>

namespace
{
constexpr size_t MOST_WAITING = 64 * 1024;

/// A program sets what it needs; until then nothing is echoed or changed.
bool MakeRaw(int nFd)
{
    termios stTermios{};
    if (tcgetattr(nFd, &stTermios) != 0)
        return false;
    cfmakeraw(&stTermios);
    return tcsetattr(nFd, TCSANOW, &stTermios) == 0;
}

/// Whether a link may take the place of what has this name.
bool IsReplaceable(const std::filesystem::path& link)
{
    std::error_code error;
    if (!std::filesystem::is_symlink(link, error))
        return false;
    const std::filesystem::path target = std::filesystem::read_symlink(link, error);
    return !std::filesystem::exists(link, error) || target.string().starts_with("/dev/pts/");
}
} // namespace

std::optional<std::string> CAtTyping::Take(unsigned char ucKey)
{
    constexpr unsigned char BACKSPACE = 0x08;
    constexpr unsigned char DELETE = 0x7F;
    constexpr unsigned char CTRL_Z = 0x1A; // ends the text of a short message; Escape drops it (3GPP TS 27.005)
    constexpr unsigned char ESCAPE = 0x1B;
    if (ucKey == '\n')
        return std::nullopt;
    if (ucKey == BACKSPACE || ucKey == DELETE) {
        if (!m_strTyped.empty())
            m_strTyped.pop_back();
        return std::nullopt;
    }
    const bool bLast = ucKey == '\r' || ucKey == CTRL_Z || ucKey == ESCAPE;
    if (bLast || m_strTyped.size() < LONGEST)
        m_strTyped += static_cast<char>(ucKey);
    return bLast ? std::optional(std::exchange(m_strTyped, {})) : std::nullopt;
}

CAtTerminal::~CAtTerminal()
{
    std::error_code error;
    if (!m_strLink.empty() && std::filesystem::read_symlink(m_strLink, error) == m_strName)
        (void)std::filesystem::remove(m_strLink, error); // one that stays leads nowhere
}

bool CAtTerminal::Open(const std::string& strLink, std::string& strError)
{
    m_master.Reset(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    std::array<char, 128> acName{};
    if (!m_master.IsOpen() || grantpt(m_master.Get()) != 0 || unlockpt(m_master.Get()) != 0 ||
        ptsname_r(m_master.Get(), acName.data(), acName.size()) != 0) {
        strError = std::string("no pseudo terminal: ") + std::strerror(errno);
        return false;
    }
    m_strName = acName.data();
    // Opened and closed once, so that the terminal knows from the start that nobody is there.
    const CUniqueFd slave(open(acName.data(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    std::error_code error;
    if (IsReplaceable(strLink))
        (void)std::filesystem::remove(strLink, error); // the next call tells
    if (!slave.IsOpen() || !MakeRaw(slave.Get()) || symlink(acName.data(), strLink.c_str()) != 0) {
        strError = strLink + ": " + std::strerror(errno);
        return false;
    }
    m_strLink = strLink;
    return true;
}

bool CAtTerminal::IsUsed() const
{
    pollfd stPoll{m_master.Get(), POLLIN, 0};
    (void)poll(&stPoll, 1, 0); // no answer counts as used
    return (stPoll.revents & POLLHUP) == 0 || (stPoll.revents & POLLIN) != 0;
}

std::vector<unsigned char> CAtTerminal::Read() const
{
    std::vector<unsigned char> vecRead(1024);
    const ssize_t lRead = RetryOnEintr([&] { return read(m_master.Get(), vecRead.data(), vecRead.size()); });
    vecRead.resize(lRead > 0 ? static_cast<size_t>(lRead) : 0);
    return vecRead;
}

void CAtTerminal::Write(ByteView bytes)
{
    if (!IsUsed()) {
        m_vecWaiting.clear();
        return;
    }
    if (m_vecWaiting.size() + bytes.size() <= MOST_WAITING)
        m_vecWaiting.insert(m_vecWaiting.end(), bytes.begin(), bytes.end());
    Drain();
}

void CAtTerminal::Drain()
{
    const ssize_t lWritten =
        RetryOnEintr([&] { return write(m_master.Get(), m_vecWaiting.data(), m_vecWaiting.size()); });
    if (lWritten > 0)
        m_vecWaiting.erase(m_vecWaiting.begin(), m_vecWaiting.begin() + lWritten);
}
