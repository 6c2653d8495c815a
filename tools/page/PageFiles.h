#pragma once

#include <optional>
#include <string>
#include <string_view>

/// A file of the page.
struct PAGE_FILE
{
    std::string strType; // of its content
    std::string strTag;  // changes with the file; in quotes, as an ETag
    std::string strBody;
};

/// The files of one folder, by the paths of their addresses. Read anew each time: few and small.
class CPageFiles
{
public:
    explicit CPageFiles(std::string strFolder) : m_strFolder(std::move(strFolder)) {}

    /// Nothing for what isn't there, isn't a file of a page, or lies elsewhere. "/" and the views are index.html.
    std::optional<PAGE_FILE> Read(std::string_view strPath) const;
    bool HasIndex() const { return Read("/").has_value(); }
    const std::string& Folder() const { return m_strFolder; }

private:
    const std::string m_strFolder;
};

/// The page's folder beside the running program: in the build, or where it is installed.
std::string OwnPageFolder();
