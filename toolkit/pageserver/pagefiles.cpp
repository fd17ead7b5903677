// SPDX-License-Identifier: MIT
#include "toolkit/pageserver/pagefiles.h"
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <array>
#include <string_view>

// Resources of a static library are linked only where somebody names them; the macro wants no namespace.
static void initResources()
{
    Q_INIT_RESOURCE(page);
}

namespace pageserver {

namespace {

struct ContentType {
    std::string_view suffix;
    std::string_view type;
};
constexpr std::array<ContentType, 7> contentTypes{{{".html", "text/html; charset=utf-8"},
                                                   {".css", "text/css; charset=utf-8"},
                                                   {".mjs", "text/javascript; charset=utf-8"},
                                                   {".js", "text/javascript; charset=utf-8"},
                                                   {".svg", "image/svg+xml"},
                                                   {".png", "image/png"},
                                                   {".py", "text/plain; charset=utf-8"}}};

const ContentType* typeOf(std::string_view path)
{
    const auto found = std::ranges::find_if(
        contentTypes, [path](const ContentType& each) { return path.ends_with(each.suffix); });
    return found == contentTypes.end() ? nullptr : &*found;
}

// The only files that do not lie where their path says: the drawing library keeps its place among packages.
QString placeOf(const std::string& path)
{
    const QString name = QString::fromStdString(path);
    return name.startsWith(QLatin1String("/uplot/")) ? QLatin1String("/node_modules/uplot/dist") + name.mid(6)
                                                     : name;
}

QByteArray contentOf(const QString& place)
{
    QFile file{place};
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray{};
}

} // namespace

PageFiles::PageFiles()
{
    initResources();
    const QString root = QStringLiteral(":/page");
    QDirIterator files{root, QDir::Files, QDirIterator::Subdirectories};
    while (files.hasNext()) {
        const QString place = files.next();
        const std::string path = place.mid(root.size()).toStdString();
        if (const ContentType* const type = typeOf(path))
            m_builtIn[path] = {std::string(type->type), contentOf(place),
                               contentOf(place + QLatin1String(".gz"))};
    }
}

PageFiles::PageFiles(QString folder)
    : m_folder(std::move(folder))
{}

std::vector<std::string> PageFiles::paths() const
{
    std::vector<std::string> paths;
    for (const auto& [path, file] : m_builtIn)
        paths.push_back(path);
    return paths;
}

bool PageFiles::isPageName(const std::string& path)
{
    const bool isPlain = std::ranges::all_of(path, [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
               c == '.' || c == '/' || c == '_';
    });
    return path.starts_with('/') && isPlain && std::ranges::count(path, '/') <= 2 &&
           path.find("/.") == std::string::npos && path.find("//") == std::string::npos &&
           typeOf(path) != nullptr;
}

std::optional<PageFile> PageFiles::find(const std::string& path) const
{
    if (path == "/")
        return find("/index.html");
    if (m_folder.isEmpty()) {
        const auto found = m_builtIn.find(path);
        return found == m_builtIn.end() ? std::nullopt : std::optional{found->second};
    }
    const QString place = m_folder + placeOf(path);
    if (!isPageName(path) || !QFileInfo{place}.isFile())
        return std::nullopt;
    return PageFile{std::string(typeOf(path)->type), contentOf(place), {}};
}

} // namespace pageserver
