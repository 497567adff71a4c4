#include "bridge/channel_warnings.h"

#include <QString>

namespace zthost::bridge {

namespace {

// How Qt 5.15's web channel opens each warning that may quote a page's message.
const char *const kChannelOpenings[] = {
    "JSON message object is missing",
    "Unknown object encountered",
    "Could not convert argument",
    "Cannot not convert",
    "Cannot invoke",
    "Cannot set unknown property",
    "Could not write value",
    "Cannot find signal with index",
    "Invalid property info encountered",
    "Refusing to handle message of unknown transport",
    "QWebChannel is not connected to any transports",
};

ChannelWarnings::Note *g_note = nullptr;
QtMessageHandler g_previous = nullptr;

void handle(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    if (g_note && ChannelWarnings::isChannelMessage(context.category, text)) {
        (*g_note)(QStringLiteral("Qt's web channel refused a page's message (its text is not logged)"));
        return;
    }
    if (g_previous)
        g_previous(type, context, text);
}

} // namespace

ChannelWarnings::ChannelWarnings(Note note)
{
    g_note = new Note(std::move(note));
    g_previous = qInstallMessageHandler(handle);
    m_previous = g_previous;
}

ChannelWarnings::~ChannelWarnings()
{
    qInstallMessageHandler(m_previous);
    delete g_note;
    g_note = nullptr;
    g_previous = nullptr;
}

bool ChannelWarnings::isChannelMessage(const char *category, const QString &text)
{
    if (category && qstrncmp(category, "qt.webchannel", 13) == 0)
        return true;
    for (const char *opening : kChannelOpenings) {
        if (text.startsWith(QLatin1String(opening)))
            return true;
    }
    return false;
}

} // namespace zthost::bridge
