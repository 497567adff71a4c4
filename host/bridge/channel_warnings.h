#pragma once

#include <QtGlobal>

#include <functional>

class QString;

namespace zthost::bridge {

// Keeps Qt's web channel from printing a page's message. The channel warns, on Qt's default
// category, with the whole message as JSON or an object's name a page chose; while an instance
// lives, such a warning becomes one fixed line for `note` instead, and every other Qt message
// goes where it went before. The gate keeps these warnings from happening at all; this is for
// what it may miss. One instance at a time, on the thread of the channel.
class ChannelWarnings
{
public:
    using Note = std::function<void(const QString &)>;

    explicit ChannelWarnings(Note note);
    ~ChannelWarnings();
    ChannelWarnings(const ChannelWarnings &) = delete;
    ChannelWarnings &operator=(const ChannelWarnings &) = delete;

    // True for a message of Qt's web channel (by its category or its fixed opening words).
    static bool isChannelMessage(const char *category, const QString &text);

private:
    QtMessageHandler m_previous = nullptr;
};

} // namespace zthost::bridge
