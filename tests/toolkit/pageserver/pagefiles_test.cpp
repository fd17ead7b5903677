// SPDX-License-Identifier: MIT
// The page's files, and that nothing else can be had.
#include "toolkit/pageserver/pagefiles.h"
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gmock/gmock.h>

namespace {

using pageserver::PageFile;
using pageserver::PageFiles;

void write(const QString& path, const char* content)
{
    QFile file{path};
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(content);
}

TEST(PageFiles, InTheProgramHaveThePageItsScriptsAndTheDrawingLibrary)
{
    const PageFiles files;
    for (const char* const path : {"/", "/index.html", "/page.css", "/js/main.mjs",
                                   "/uplot/uPlot.iife.min.js", "/uplot/uPlot.min.css"}) {
        const std::optional<PageFile> file = files.find(path);
        ASSERT_TRUE(file) << path;
        EXPECT_FALSE(file->content.isEmpty()) << path;
        EXPECT_LT(file->compressed.size(), file->content.size()) << path;
        EXPECT_TRUE(file->compressed.startsWith("\x1f\x8b")) << path;
    }
    EXPECT_EQ(files.find("/")->type, "text/html; charset=utf-8");
    EXPECT_EQ(files.find("/js/main.mjs")->type, "text/javascript; charset=utf-8");
    EXPECT_FALSE(files.find("/index.html.gz"));
}

TEST(PageFiles, InTheProgramFitTheBudgetOfThePage)
{
    const PageFiles files;
    qsizetype sum = 0;
    for (const std::string& path : files.paths())
        sum += files.find(path)->compressed.size();
    EXPECT_LT(sum, 150'000);
    EXPECT_GT(files.paths().size(), 10U);
}

TEST(PageFiles, NameNoOtherHostThanTheOneTheyComeFrom)
{
    const PageFiles files;
    for (const std::string& path : files.paths()) {
        const QByteArray content = files.find(path)->content;
        EXPECT_FALSE(content.contains("src=\"http")) << path;
        EXPECT_FALSE(content.contains("href=\"http")) << path;
        EXPECT_FALSE(content.contains("@import")) << path;
    }
}

TEST(PageFiles, OfAFolderAreReadFromThere)
{
    const QTemporaryDir folder;
    ASSERT_TRUE(QDir(folder.path()).mkpath("js") && QDir(folder.path()).mkpath("node_modules/uplot/dist"));
    write(folder.path() + "/index.html", "<p>");
    write(folder.path() + "/js/a-b_1.mjs", "let a");
    write(folder.path() + "/node_modules/uplot/dist/uPlot.min.css", "p{}");
    write(folder.path() + "/.secret.css", "x");
    write(folder.path() + "/notes.txt", "x");
    const PageFiles files{folder.path()};
    EXPECT_EQ(files.find("/")->content, "<p>");
    EXPECT_EQ(files.find("/js/a-b_1.mjs")->content, "let a");
    EXPECT_EQ(files.find("/uplot/uPlot.min.css")->content, "p{}");
    write(folder.path() + "/index.html", "<b>");
    EXPECT_EQ(files.find("/")->content, "<b>");
    for (const char* const path : {"/.secret.css", "/notes.txt", "/js", "/js/", "/none.css"})
        EXPECT_FALSE(files.find(path)) << path;
}

TEST(PageFiles, AreNeverOutsideOfTheirFolder)
{
    for (const char* const path : {"", "index.html", "/../index.html", "/js/../../a.css", "/js/../a.css",
                                   "//etc/a.css", "/a/b/c.css", "/%2e%2e/a.css", "/a\\..\\b.css",
                                   "/js/.hidden.mjs", "/.git/a.css", "/a.css/", "/a b.css", "/etc/passwd"})
        EXPECT_FALSE(PageFiles::isPageName(path)) << path;
    EXPECT_TRUE(PageFiles::isPageName("/js/main.mjs"));
}

} // namespace
