#include "core/log_text.h"

namespace zthost {

namespace {

bool needsEscape(char16_t c)
{
    return c < 0x20 || (c >= 0x7f && c <= 0x9f) || c == 0x2028 || c == 0x2029 || c == u'\\';
}

} // namespace

QString escapedForLog(const QString &text)
{
    bool clean = true;
    for (QChar c : text) {
        if (needsEscape(c.unicode())) {
            clean = false;
            break;
        }
    }
    if (clean)
        return text;
    QString escaped;
    escaped.reserve(text.size() + 16);
    for (QChar c : text) {
        const char16_t u = c.unicode();
        if (!needsEscape(u)) {
            escaped += c;
            continue;
        }
        switch (u) {
        case u'\n':
            escaped += QLatin1String("\\n");
            break;
        case u'\r':
            escaped += QLatin1String("\\r");
            break;
        case u'\t':
            escaped += QLatin1String("\\t");
            break;
        case u'\\':
            escaped += QLatin1String("\\\\");
            break;
        default:
            escaped += u > 0xff ? QStringLiteral("\\u%1").arg(uint(u), 4, 16, QLatin1Char('0'))
                                : QStringLiteral("\\x%1").arg(uint(u), 2, 16, QLatin1Char('0'));
        }
    }
    return escaped;
}

QString cappedForLog(const QString &text, int maxChars)
{
    // Cut before escaping: a text of megabytes is not copied whole to show 120 characters.
    QString shown = escapedForLog(text.left(maxChars));
    const bool cut = text.size() > maxChars || shown.size() > maxChars;
    shown.truncate(maxChars);
    if (cut)
        shown += QStringLiteral("...(%1 characters in all)").arg(text.size());
    return shown;
}

} // namespace zthost
