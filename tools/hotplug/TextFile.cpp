#include "hotplug/TextFile.h"

#include "common/Bytes.h"
#include "common/UniqueFd.h"
#include "common/Wait.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>

namespace
{
constexpr size_t MOST_BYTES = 1024 * 1024;

/// Brings the names in a folder to the disk. Where that isn't possible the file is there all the same.
void SyncFolder(const std::string& strFolder)
{
    const CUniqueFd folder(open(strFolder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.IsOpen())
        (void)fsync(folder.Get());
}
} // namespace

std::optional<std::string> ReadTextFile(const std::string& strPath, std::string& strError)
{
    const CUniqueFd file(open(strPath.c_str(), O_RDONLY | O_CLOEXEC));
    std::string strText;
    std::array<char, 4096> acPart{};
    ssize_t lRead = file.IsOpen() ? 1 : -1;
    while (lRead > 0 && strText.size() <= MOST_BYTES) {
        lRead = RetryOnEintr([&] { return read(file.Get(), acPart.data(), acPart.size()); });
        if (lRead > 0)
            strText.append(acPart.data(), static_cast<size_t>(lRead));
    }
    if (lRead > 0)
        errno = EFBIG;
    if (lRead != 0)
        strError = std::strerror(errno);
    return lRead == 0 ? std::optional(strText) : std::nullopt;
}

bool ReplaceTextFile(const std::string& strPath, const std::string& strText, std::string& strError)
{
    const std::string strNew = strPath + ".new";
    CUniqueFd file(open(strNew.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    const bool bWritten = file.IsOpen() && WriteAll(file.Get(), AsBytes(strText)) == strText.size() &&
                          fsync(file.Get()) == 0 && std::rename(strNew.c_str(), strPath.c_str()) == 0;
    if (!bWritten) {
        strError = std::strerror(errno);
        return false;
    }
    const std::string strFolder = std::filesystem::path(strPath).parent_path();
    SyncFolder(strFolder.empty() ? "." : strFolder);
    return true;
}
