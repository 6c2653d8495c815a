#include "client/AtTerminal.h"

#include "common/Wait.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <unistd.h>

namespace
{
constexpr size_t MOST_WAITING = 64 * 1024;

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
    if (!m_strLink.empty() && std::filesystem::read_symlink(m_strLink, error) == Name())
        (void)std::filesystem::remove(m_strLink, error); // one that stays leads nowhere
}

bool CAtTerminal::Open(const std::string& strLink, std::string& strError)
{
    auto terminal = OpenPseudoTerminal();
    if (!terminal) {
        strError = std::string("no pseudo terminal: ") + std::strerror(errno);
        return false;
    }
    m_terminal = std::move(*terminal);
    std::error_code error;
    if (IsReplaceable(strLink))
        (void)std::filesystem::remove(strLink, error); // the next call tells
    if (symlink(Name().c_str(), strLink.c_str()) != 0) {
        strError = strLink + ": " + std::strerror(errno);
        return false;
    }
    m_strLink = strLink;
    return true;
}

std::vector<unsigned char> CAtTerminal::Read() const
{
    std::vector<unsigned char> vecRead(1024);
    const ssize_t lRead = RetryOnEintr([&] { return read(Fd(), vecRead.data(), vecRead.size()); });
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
    const ssize_t lWritten = RetryOnEintr([&] { return write(Fd(), m_vecWaiting.data(), m_vecWaiting.size()); });
    if (lWritten > 0)
        m_vecWaiting.erase(m_vecWaiting.begin(), m_vecWaiting.begin() + lWritten);
}
