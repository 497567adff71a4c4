#pragma once

#include <QString>

namespace zthost {

// What a log line may hold of a text it did not write itself. Escaping keeps one record per
// line and keeps terminal controls off a user's screen: C0 and C1 controls, DEL, the Unicode
// line and paragraph separators and the backslash come out as \n, \r, \t, \\ or \xNN / \uNNNN.
QString escapedForLog(const QString &text);

// `text` escaped, then cut to `maxChars` characters with the number left out said after it.
QString cappedForLog(const QString &text, int maxChars);

} // namespace zthost
