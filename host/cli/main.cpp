// zthost: the reference host of the cryptographic plug-in, on the command line.

#include "commands.h"

#include <QCoreApplication>

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("zthost"));
    const zthost::cli::ExitCode code =
        zthost::cli::dispatch(QCoreApplication::arguments().mid(1));
    return static_cast<int>(code);
}
