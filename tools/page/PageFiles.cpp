#include "page/PageFiles.h"

#include "common/UniqueFd.h"

#include <algorithm>
#include <cctype>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
constexpr off_t LARGEST_FILE = off_t{8} * 1024 * 1024;

struct TYPE_ROW
{
    std::string_view strEnding;
    const char* pszType;
};
constexpr TYPE_ROW g_astType[] = {
    {".html", "text/html; charset=utf-8"},
    {".js", "text/javascript; charset=utf-8"},
    {".mjs", "text/javascript; charset=utf-8"},
    {".css", "text/css; charset=utf-8"},
    {".svg", "image/svg+xml"},
    {".png", "image/png"},
    {".ico", "image/x-icon"},
    {".json", "application/json"},
    {".txt", "text/plain; charset=utf-8"},
    {".woff2", "font/woff2"},
};
// Addresses that people open and keep, all served by the one page.
constexpr std::string_view VIEWS[] = {"/", "/overview", "/modem"};

const char* TypeOf(std::string_view strPath)
{
    const auto row =
        std::ranges::find_if(g_astType, [&](const TYPE_ROW& st) { return strPath.ends_with(st.strEnding); });
    return row == std::end(g_astType) ? nullptr : row->pszType;
}

/// Names of letters, digits and "-_." alone, none of which begins with a dot.
bool IsPlain(std::string_view strPath)
{
    const auto isPlain = [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '_' || c == '.' || c == '/';
    };
    return strPath.starts_with('/') && std::ranges::all_of(strPath, isPlain) &&
           strPath.find("/.") == std::string_view::npos && strPath.find("//") == std::string_view::npos;
}

bool ReadWhole(const CUniqueFd& fd, std::string& strBody)
{
    size_t szDone = 0;
    while (szDone < strBody.size()) {
        const ssize_t lGot = read(fd.Get(), strBody.data() + szDone, strBody.size() - szDone);
        if (lGot <= 0)
            return false;
        szDone += static_cast<size_t>(lGot);
    }
    return true;
}

std::string TagOf(const struct stat& stStat)
{
    return '"' + std::to_string(stStat.st_size) + "-" + std::to_string(stStat.st_mtim.tv_sec) + "." +
           std::to_string(stStat.st_mtim.tv_nsec) + '"';
}
} // namespace

std::optional<PAGE_FILE> CPageFiles::Read(std::string_view strPath) const
{
    if (std::ranges::find(VIEWS, strPath) != std::end(VIEWS))
        strPath = "/index.html";
    const char* const pszType = TypeOf(strPath);
    if (pszType == nullptr || !IsPlain(strPath))
        return std::nullopt;
    const CUniqueFd fd(open((m_strFolder + std::string(strPath)).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat stStat
    {
    };
    if (!fd.IsOpen() || fstat(fd.Get(), &stStat) != 0 || !S_ISREG(stStat.st_mode) || stStat.st_size > LARGEST_FILE)
        return std::nullopt;
    PAGE_FILE stFile{pszType, TagOf(stStat), std::string(static_cast<size_t>(stStat.st_size), '\0')};
    return ReadWhole(fd, stFile.strBody) ? std::optional(std::move(stFile)) : std::nullopt;
}

std::string OwnPageFolder()
{
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    const auto above = program.parent_path().parent_path();
    const auto built = above / "page";
    return std::filesystem::exists(built / "index.html", error) ? built.string() : (above / "share/vex/page").string();
}
