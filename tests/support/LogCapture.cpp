#include "support/LogCapture.h"

#include "common/Config.h"
#include "common/Debug.h"
#include "support/WaitFor.h"

#include <array>
#include <cstdlib>
#include <sstream>
#include <unistd.h>

namespace
{
void SetDebugLevel(int iLevel)
{
    std::string strLine = "debuglevel=" + std::to_string(iLevel);
    CConfig::Instance()->ParseLine(strLine);
}
} // namespace

CLogCapture::CLogCapture(int iLevel) : m_strPath("/tmp/vex-log-XXXXXX")
{
    m_File.Reset(mkstemp(m_strPath.data()));
    if (!m_File.IsOpen())
        std::abort();
    SetDebugLevel(iLevel);
    CDebug::Instance()->Start(m_strPath.c_str());
}

CLogCapture::~CLogCapture()
{
    CDebug::Destory();
    SetDebugLevel(0);
    unlink(m_strPath.c_str());
}

std::string CLogCapture::Text() const
{
    std::string strText;
    std::array<char, 4096> acPart;
    for (ssize_t lRead = 0;
         (lRead = pread(m_File.Get(), acPart.data(), acPart.size(), static_cast<off_t>(strText.size()))) > 0;)
        strText.append(acPart.data(), static_cast<size_t>(lRead));
    return strText;
}

bool CLogCapture::Saw(const std::string& strText) const
{
    return WaitFor([&] { return Text().find(strText) != std::string::npos; }, std::chrono::seconds(5));
}

int CLogCapture::Count(const std::string& strText) const
{
    // Lines reach the file in the order of the calls, so behind a mark of its own everything before is there.
    static int s_iMark = 0;
    const std::string strMark = "mark " + std::to_string(++s_iMark);
    CDebug::Instance()->Output(strMark, 0); // whatever classes are on
    if (!Saw(strMark + "\n"))
        return -1;
    std::istringstream text(Text());
    int iCount = 0;
    for (std::string strLine; std::getline(text, strLine);)
        iCount += strLine.find(strText) != std::string::npos;
    return iCount;
}
