#include "bridge/page_files.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace zthost::bridge {

namespace {

struct Served
{
    const char *path;         // as requested
    const char *file;         // in the web folder, or a resource path starting with ':'
    const char *contentType;
};

// Keep in sync with web/ and with the install rule in host/bridge/CMakeLists.txt.
constexpr Served kServed[] = {
    {"/", "index.html", "text/html; charset=utf-8"},
    {"/index.html", "index.html", "text/html; charset=utf-8"},
    {"/page.js", "page.js", "text/javascript; charset=utf-8"},
    {"/zt-key.js", "zt-key.js", "text/javascript; charset=utf-8"},
    {"/style.css", "style.css", "text/css; charset=utf-8"},
    {"/favicon.svg", "favicon.svg", "image/svg+xml"},
    {"/qwebchannel.js", PageFiles::kWebChannelScriptResource, "text/javascript; charset=utf-8"},
};

// The page's files are a few KiB; anything far larger is not ours.
constexpr qint64 kMaxFileBytes = 4 * 1024 * 1024;

bool readSmallFile(const QString &name, QByteArray *body, QString *error)
{
    QFile file(name);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("cannot read %1: %2").arg(name, file.errorString());
        return false;
    }
    if (file.size() > kMaxFileBytes) {
        *error = QStringLiteral("%1 is %2 bytes, more than the %3 a page file may have")
                     .arg(name)
                     .arg(file.size())
                     .arg(kMaxFileBytes);
        return false;
    }
    *body = file.readAll();
    return true;
}

} // namespace

PageFiles::Lookup PageFiles::lookup(const QString &path, QByteArray *contentType, QByteArray *body,
                                    QString *error) const
{
    for (const Served &served : kServed) {
        if (path != QLatin1String(served.path))
            continue;
        const QString file = QLatin1String(served.file);
        const QString name = file.startsWith(QLatin1Char(':')) ? file : QDir(m_webRoot).filePath(file);
        if (!readSmallFile(name, body, error))
            return Lookup::Unreadable;
        *contentType = served.contentType;
        return Lookup::Found;
    }
    return Lookup::NotFound;
}

bool PageFiles::isComplete(QString *error) const
{
    const QString index = QDir(m_webRoot).filePath(QStringLiteral("index.html"));
    if (!QFileInfo(index).isFile()) {
        *error = QStringLiteral("no page in %1 (index.html is missing)").arg(m_webRoot);
        return false;
    }
    if (!QFile::exists(QLatin1String(kWebChannelScriptResource))) {
        *error = QStringLiteral("Qt WebChannel has no %1").arg(QLatin1String(kWebChannelScriptResource));
        return false;
    }
    return true;
}

} // namespace zthost::bridge
