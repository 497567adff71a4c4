#include "log_file.h"

#include <QDir>

#include <cstdio>

void appendLogLine(const QString &folder, const QString &fileName, LogStamp stamp,
                   const char *separator, const QString &message)
{
    // QDir::exists() asks the file system again on every call, which is what lets the log
    // follow its folder appearing and disappearing under a running host.
    if (!QDir(folder).exists())
        return;

    const QByteArray line = (message + QLatin1Char('\n')).toUtf8();
    const QByteArray path = (folder + fileName).toUtf8();
    FILE *file = std::fopen(path.constData(), "a+");
    if (!file)
        return;
    std::fprintf(file, "%s%s%s", stamp().constData(), separator, line.constData());
    std::fclose(file);
}
