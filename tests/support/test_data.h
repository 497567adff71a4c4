#pragma once

#include <QString>

// The path of a file in tests/data. The folder is compiled in; the environment variable
// ZT_TEST_DATA overrides it (ctest sets it too), so a test program runs the same by hand.
inline QString testDataFile(const char *name)
{
    QString folder = qEnvironmentVariable("ZT_TEST_DATA");
    if (folder.isEmpty())
        folder = QStringLiteral(ZT_TEST_DATA_DIR);
    return folder + QLatin1Char('/') + QLatin1String(name);
}
