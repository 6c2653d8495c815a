#include "common/LogFile.h"

#include "common/Wait.h"

#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace
{
/// Appends, so that each line follows what the file holds by then, also behind a cut.
CUniqueFd OpenEmpty(const std::string& strName)
{
    constexpr mode_t ALL_MAY = 0666; // less what the umask forbids
    return CUniqueFd(open(strName.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, ALL_MAY));
}
} // namespace

CLogFile::CLogFile(std::string strName, uint64_t ullMaxSize)
    : m_strName(std::move(strName)), m_ullMaxSize(ullMaxSize), m_Fd(OpenEmpty(m_strName))
{
    struct stat stInfo
    {
    };
    m_bRegular = IsOpen() && fstat(m_Fd.Get(), &stInfo) == 0 && S_ISREG(stInfo.st_mode);
}

void CLogFile::Write(std::string_view line)
{
    if (!IsOpen() || line.empty())
        return;
    if (m_ullMaxSize == 0 || !m_bRegular)
        return WriteLine(line);
    if (m_ullSize > 0 && m_ullSize + line.size() > m_ullMaxSize)
        CutOver();
    if (line.size() > m_ullMaxSize)
        WriteLine(std::string(line.substr(0, m_ullMaxSize - 1)) + "\n");
    else
        WriteLine(line);
}

void CLogFile::WriteLine(std::string_view line)
{
    if (m_bTorn && WriteBytes("\n") == 0)
        return;
    m_bTorn = false;
    const size_t szWritten = WriteBytes(line);
    if (szWritten > 0 && szWritten < line.size())
        DropTail(szWritten);
}

/// Gives the count that got into the file.
size_t CLogFile::WriteBytes(std::string_view bytes)
{
    size_t szWritten = 0;
    while (szWritten < bytes.size()) {
        const std::string_view rest = bytes.substr(szWritten);
        const ssize_t nWritten = RetryOnEintr([&] { return write(m_Fd.Get(), rest.data(), rest.size()); });
        if (nWritten <= 0)
            break; // most likely a full disk
        szWritten += static_cast<size_t>(nWritten);
    }
    m_ullSize += szWritten;
    return szWritten;
}

/// Takes the part of a line off the end again. Where that can't be, the next line begins with a line end.
void CLogFile::DropTail(size_t szCount)
{
    struct stat stInfo
    {
    };
    m_bTorn = !m_bRegular || fstat(m_Fd.Get(), &stInfo) != 0 ||
              ftruncate(m_Fd.Get(), stInfo.st_size - static_cast<off_t>(szCount)) != 0;
    if (!m_bTorn)
        m_ullSize -= szCount;
}

/// Goes on in a new file. Without one, in a folder that may not be changed, the lines so far go.
void CLogFile::CutOver()
{
    const std::string strOld = m_strName + ".1";
    m_ullSize = 0;
    m_bTorn = false;
    if (rename(m_strName.c_str(), strOld.c_str()) == 0) {
        if (CUniqueFd next = OpenEmpty(m_strName); next.IsOpen()) {
            m_Fd = std::move(next);
            return;
        }
        (void)rename(strOld.c_str(), m_strName.c_str()); // it just went the other way
    }
    if (ftruncate(m_Fd.Get(), 0) != 0)
        m_Fd.Reset(); // rather no log than one without its limit
}
