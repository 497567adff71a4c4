#pragma once

#include "command_line.h"

#include <QList>
#include <QStringList>

namespace zthost::cli {

// Each command takes the arguments after its name.
ExitCode runDemo(const QStringList &arguments);
ExitCode runKeygen(const QStringList &arguments);
ExitCode runDevices(const QStringList &arguments);
ExitCode runDoctor(const QStringList &arguments);
ExitCode runCert(const QStringList &arguments);
ExitCode runEncrypt(const QStringList &arguments);
ExitCode runDecrypt(const QStringList &arguments);
ExitCode runPasswd(const QStringList &arguments);
ExitCode runUnblock(const QStringList &arguments);
ExitCode runCall(const QStringList &arguments);
ExitCode runShell(const QStringList &arguments);
ExitCode runServe(const QStringList &arguments);
ExitCode runConfig(const QStringList &arguments);
// `zthost --version`, with any global options.
ExitCode runVersion(const QStringList &arguments);
ExitCode runOrigins(const QStringList &arguments);
ExitCode runHelp(const QStringList &arguments);

struct CommandEntry
{
    const char *name;
    const char *summary;
    ExitCode (*run)(const QStringList &arguments);
};

// Every command, in the order `zthost help` lists them.
const QList<CommandEntry> &commandTable();

// Runs the command named by the first argument that is not a global option (global_options.h);
// the global options before it are handed to the command with the rest. Prints usage for none
// or an unknown one.
ExitCode dispatch(const QStringList &arguments);

} // namespace zthost::cli
