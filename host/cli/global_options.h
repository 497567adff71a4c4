#pragma once

#include <QCommandLineOption>
#include <QList>
#include <QStringList>

namespace zthost::cli {

// The options every command takes, wherever they stand: before the command's name
// (`zthost --root D keygen ...`) or after it. The global rows of settingTable() (--plugin, --skf,
// --device, --root), then --config, --host-log and -v.
const QList<QCommandLineOption> &globalOptions();

// Splits the arguments of `zthost` into the global options before the command's name and the
// rest, which starts with that name (or is empty). `--opt VALUE` and `--opt=VALUE` are both
// taken; the first argument that is no global option ends the leading ones. False with `error`
// set when a global option that needs a value is last.
bool splitLeadingGlobals(const QStringList &arguments, QStringList *globals, QStringList *rest,
                         QString *error);

} // namespace zthost::cli
