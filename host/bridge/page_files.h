#pragma once

#include <QByteArray>
#include <QString>

namespace zthost::bridge {

// The files the bridge serves: the page's five files from its web folder (zt-key.js among them) and Qt's
// qwebchannel.js from the Qt WebChannel library. Nothing else is reachable: a request names
// one of these paths exactly or gets 404, so there is no listing and no way out of the folder.
class PageFiles
{
public:
    explicit PageFiles(QString webRoot) : m_webRoot(std::move(webRoot)) {}

    enum class Lookup { Found, NotFound, Unreadable };
    // `path` as requested, e.g. "/" or "/style.css". Unreadable when the name is known but its
    // file cannot be read; `error` then names the file and the reason.
    Lookup lookup(const QString &path, QByteArray *contentType, QByteArray *body,
                  QString *error) const;

    // Whether the web folder holds the page (its index.html); `error` says what is missing.
    bool isComplete(QString *error) const;

    const QString &webRoot() const { return m_webRoot; }

    // Qt WebChannel's client library, as a resource of the library itself.
    static constexpr const char *kWebChannelScriptResource = ":/qtwebchannel/qwebchannel.js";

private:
    QString m_webRoot;
};

} // namespace zthost::bridge
