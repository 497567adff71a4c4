#include "fuzz_environment.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QLoggingCategory>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace ztfuzz {

namespace {

std::string g_tempFolder;

// Runs at exit, after Qt's own globals may be gone: no Qt here.
void removeTempFolder()
{
    std::error_code ignored;
    if (!g_tempFolder.empty())
        std::filesystem::remove_all(g_tempFolder, ignored);
}

} // namespace

QString prepareProcess(int *argc, char ***argv)
{
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));

    const char *base = std::getenv("TMPDIR");
    QByteArray pattern = QByteArray(base && *base ? base : "/tmp") + "/zt-fuzz-XXXXXX";
    if (!::mkdtemp(pattern.data()))
        std::abort();
    g_tempFolder = pattern.toStdString();
    ::setenv("TMPDIR", pattern.constData(), 1);
    std::atexit(removeTempFolder);

    // QCoreApplication keeps a reference to argc for its whole life. It is never destroyed:
    // libFuzzer leaves through exit(), and objects of the fuzzed code (kept on purpose) would
    // outlive it.
    static int appArgc = 1;
    static char appName[] = "zt-fuzz";
    static char *appArgv[] = {appName, nullptr};
    if (!QCoreApplication::instance())
        new QCoreApplication(appArgc, appArgv);
    (void)argc;
    (void)argv;
    return QString::fromStdString(g_tempFolder);
}

QString firstCorpusFolder(int argc, char **argv)
{
    for (int i = 1; i < argc; ++i) {
        if (argv[i][0] == '-')
            continue;
        const QFileInfo info(QString::fromLocal8Bit(argv[i]));
        if (info.isDir())
            return info.absoluteFilePath();
    }
    return QString();
}

} // namespace ztfuzz
