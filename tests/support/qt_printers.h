#pragma once

#include <QString>

#include <ostream>

// GoogleTest shows a QString (and so a QStringList) in a failure message as quoted text
// rather than as raw bytes. Include before the first assertion on Qt strings.
inline void PrintTo(const QString &text, std::ostream *out)
{
    *out << '"' << text.toStdString() << '"';
}
