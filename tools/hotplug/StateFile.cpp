#include "hotplug/StateFile.h"

#include "hotplug/TextFile.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>

bool CStateFile::Lock(std::string& strError)
{
    std::error_code ignored; // shows in what follows
    std::filesystem::create_directories(std::filesystem::path(m_strPath).parent_path(), ignored);
    m_lock.Reset(open((m_strPath + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    if (!m_lock.IsOpen() || flock(m_lock.Get(), LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK)
        return true;
    strError = m_strPath + " is in use by another vex-hotplug";
    return false;
}

CNumbers CStateFile::Load(std::string& strError)
{
    std::string strReason;
    const auto text = ReadTextFile(m_strPath, strReason);
    if (!text && errno == ENOENT)
        return {};
    const auto numbers = text ? CNumbers::Parse(*text, strReason) : std::nullopt;
    if (!numbers) {
        strError = m_strPath + ": " + strReason + "; numbers begin anew";
        return {};
    }
    m_saved = *numbers;
    return *numbers;
}

bool CStateFile::Save(const CNumbers& numbers, std::string& strError)
{
    if (numbers == m_saved)
        return true;
    std::string strReason;
    if (!ReplaceTextFile(m_strPath, numbers.Text(), strReason)) {
        strError = m_strPath + ": " + strReason + "; new numbers are not kept";
        return false;
    }
    m_saved = numbers;
    return true;
}
