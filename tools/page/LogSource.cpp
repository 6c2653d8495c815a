#include "page/LogSource.h"

#include <filesystem>

namespace fs = std::filesystem;

std::string NewestLogFile(const std::string& strName)
{
    std::error_code error; // what can't be read isn't there
    const fs::path name(strName);
    if (strName.empty() || fs::is_regular_file(name, error))
        return strName;
    fs::path newest;
    fs::file_time_type newestTime{};
    for (fs::directory_iterator file(name.parent_path().empty() ? "." : name.parent_path(), error), end; file != end;
         file.increment(error)) {
        const std::string strFile = file->path().filename().string();
        if (!strFile.starts_with(name.filename().string()) || !strFile.ends_with(".d"))
            continue;
        const auto time = fs::last_write_time(file->path(), error);
        if (!error && (newest.empty() || time > newestTime)) {
            newest = file->path();
            newestTime = time;
        }
    }
    return newest.string();
}
