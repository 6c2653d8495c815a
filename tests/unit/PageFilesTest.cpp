#include "page/PageFiles.h"
#include "support/VexProcess.h"

#include <filesystem>
#include <gtest/gtest.h>

TEST(PageFiles, TheFolderAndNothingElse)
{
    const CTempDir dir;
    dir.Write("secret.js", "secret");
    dir.Write("web/index.html", "index");
    dir.Write("web/app.js", "app");
    dir.Write("web/fonts/a-b_c.woff2", "font");
    dir.Write("web/.hidden.js", "hidden");
    dir.Write("web/program", "no type");
    std::filesystem::create_directory(dir.Path() + "/web/folder.js");
    const CPageFiles files(dir.Path() + "/web");
    const struct
    {
        const char* pszPath;
        const char* pszBody; // null: there is none
        const char* pszType;
    } c_astCase[] = {
        {"/", "index", "text/html; charset=utf-8"},
        {"/overview", "index", "text/html; charset=utf-8"},
        {"/modem", "index", "text/html; charset=utf-8"},
        {"/index.html", "index", "text/html; charset=utf-8"},
        {"/app.js", "app", "text/javascript; charset=utf-8"},
        {"/fonts/a-b_c.woff2", "font", "font/woff2"},
        {"/none.js", nullptr, nullptr},
        {"/program", nullptr, nullptr},
        {"/folder.js", nullptr, nullptr},
        {"/../secret.js", nullptr, nullptr},
        {"/fonts/../../secret.js", nullptr, nullptr},
        {"/.hidden.js", nullptr, nullptr},
        {"//app.js", nullptr, nullptr},
        {"app.js", nullptr, nullptr},
        {"/app.js\\..\\a.js", nullptr, nullptr},
        {"", nullptr, nullptr},
    };
    for (const auto& stCase : c_astCase) {
        const auto file = files.Read(stCase.pszPath);
        ASSERT_EQ(file.has_value(), stCase.pszBody != nullptr) << stCase.pszPath;
        if (!file)
            continue;
        EXPECT_EQ(file->strBody, stCase.pszBody) << stCase.pszPath;
        EXPECT_EQ(file->strType, stCase.pszType) << stCase.pszPath;
    }
    EXPECT_TRUE(files.HasIndex());
    EXPECT_FALSE(CPageFiles(dir.Path()).HasIndex());
}

TEST(PageFiles, TheTagChangesWithTheFile)
{
    const CTempDir dir;
    dir.Write("app.js", "one");
    const CPageFiles files(dir.Path());
    const std::string strTag = files.Read("/app.js")->strTag;
    EXPECT_EQ(files.Read("/app.js")->strTag, strTag);
    dir.Write("app.js", "other");
    EXPECT_NE(files.Read("/app.js")->strTag, strTag);
}
