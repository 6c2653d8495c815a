#include "uesim/SimLog.h"

#include "uesim/SimTime.h"

#include <array>
#include <cstdarg>

CSimLog::~CSimLog()
{
    if (m_pFile != nullptr)
        (void)std::fclose(m_pFile); // every line was flushed already
}

bool CSimLog::OpenFile(const std::string& strPath)
{
    m_pFile = std::fopen(strPath.c_str(), "we");
    return m_pFile != nullptr;
}

void CSimLog::Event(const std::string& strWho, const char* pszFormat, ...)
{
    if (m_bQuiet)
        return;
    std::array<char, 512> acText{};
    va_list args;
    va_start(args, pszFormat);
    (void)std::vsnprintf(acText.data(), acText.size(), pszFormat, args); // a longer text is cut
    va_end(args);
    Line(strWho, acText.data());
}

void CSimLog::Dump(const std::string& strWho, const char* pszTitle, ByteView bytes)
{
    if (m_bQuiet || !m_bVerbose)
        return;
    static constexpr char DIGITS[] = "0123456789ABCDEF";
    std::string strText = std::string(pszTitle) + " " + std::to_string(bytes.size()) + " bytes:";
    for (const unsigned char ucByte : bytes) {
        strText += ' ';
        strText += DIGITS[ucByte >> 4];
        strText += DIGITS[ucByte & 15];
    }
    Line(strWho, strText);
}

void CSimLog::Line(const std::string& strWho, const std::string& strText)
{
    static const SimTime START = SimClock::now();
    const double dSeconds = std::chrono::duration<double>(SimClock::now() - START).count();
    std::FILE* const pOut = m_pFile != nullptr ? m_pFile : stderr;
    (void)std::fprintf(pOut, "%10.3f %s %s\n", dSeconds, strWho.c_str(), strText.c_str());
    (void)std::fflush(pOut);
}
