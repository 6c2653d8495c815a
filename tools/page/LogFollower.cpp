#include "page/LogFollower.h"

#include "common/Wait.h"

#include <algorithm>
#include <array>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
using FILE_INFO = struct stat;
} // namespace

void CLogFollower::Follow(const std::string& strPath)
{
    if (strPath == m_strPath)
        return;
    *this = CLogFollower();
    m_strPath = strPath;
}

void CLogFollower::Poll(const LINE& call)
{
    if (m_strPath.empty() || (!m_Fd.IsOpen() && !Open()))
        return;
    ReadNew(call);
    if (IsReplaced() && Open())
        ReadNew(call);
}

/// Opens the file of that name, at its end when it is the first one.
bool CLogFollower::Open()
{
    // A pipe or a device would make the reader wait.
    CUniqueFd next(open(m_strPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    FILE_INFO stInfo{};
    if (!next.IsOpen() || fstat(next.Get(), &stInfo) != 0 || !S_ISREG(stInfo.st_mode))
        return false;
    m_Fd = std::move(next);
    m_nAt = m_bFirst ? std::max<off_t>(stInfo.st_size - BACK_BYTES, 0) : 0;
    m_bSkipLine = m_nAt > 0;
    m_bFirst = false;
    m_strLine.clear();
    return true;
}

/// Whether another file has the name now. No file of the name is a moment between the two.
bool CLogFollower::IsReplaced() const
{
    FILE_INFO stOpen{};
    FILE_INFO stNamed{};
    return fstat(m_Fd.Get(), &stOpen) == 0 && stat(m_strPath.c_str(), &stNamed) == 0 &&
           (stOpen.st_ino != stNamed.st_ino || stOpen.st_dev != stNamed.st_dev);
}

void CLogFollower::ReadNew(const LINE& call)
{
    FILE_INFO stInfo{};
    if (fstat(m_Fd.Get(), &stInfo) != 0)
        return;
    if (stInfo.st_size < m_nAt) { // begun anew
        m_nAt = 0;
        m_bSkipLine = false;
        m_strLine.clear();
    }
    if (stInfo.st_size - m_nAt > READ_MOST) {
        m_nAt = stInfo.st_size - READ_MOST;
        m_bSkipLine = true;
        m_strLine.clear();
    }
    std::array<char, 65536> acBytes{};
    for (off_t nLeft = stInfo.st_size - m_nAt; nLeft > 0;) {
        const ssize_t nRead = RetryOnEintr([&] { return pread(m_Fd.Get(), acBytes.data(), acBytes.size(), m_nAt); });
        if (nRead <= 0)
            return;
        m_nAt += nRead;
        nLeft -= nRead;
        Feed({acBytes.data(), static_cast<size_t>(nRead)}, call);
    }
}

void CLogFollower::Feed(std::string_view bytes, const LINE& call)
{
    while (!bytes.empty()) {
        const size_t szEnd = bytes.find('\n');
        if (!m_bSkipLine)
            m_strLine += bytes.substr(0, std::min(szEnd, LINE_MOST - std::min(m_strLine.size(), LINE_MOST)));
        if (szEnd == std::string_view::npos)
            return;
        if (!m_bSkipLine)
            call(m_strLine);
        m_bSkipLine = false;
        m_strLine.clear();
        bytes.remove_prefix(szEnd + 1);
    }
}
