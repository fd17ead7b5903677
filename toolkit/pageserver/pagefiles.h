// SPDX-License-Identifier: MIT
#pragma once
// The page's own files: built into the program, or read from its source folder while it is worked on.
#include <QByteArray>
#include <QString>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace pageserver {

struct PageFile {
    std::string type; // of its content
    QByteArray content;
    QByteArray compressed{}; // the same for browsers that understand gzip; empty: there is none
};

/// Nothing but these files is ever served; names are compared, never resolved.
class PageFiles {
public:
    /// Those in the program.
    PageFiles();

    /// Those in `folder`, read anew each time. For work on the page.
    explicit PageFiles(QString folder);

    /// The file of a path as a browser asks for it; "/" is the page itself.
    [[nodiscard]] std::optional<PageFile> find(const std::string& path) const;

    /// The paths of the files in the program.
    [[nodiscard]] std::vector<std::string> paths() const;

    /// Whether a path can be that of a file of the page: folders of one level, plain names, known types.
    [[nodiscard]] static bool isPageName(const std::string& path);

private:
    QString m_folder; // empty: those in the program
    std::map<std::string, PageFile> m_builtIn;
};

} // namespace pageserver
