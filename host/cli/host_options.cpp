#include "host_options.h"

#include <softskf/provision.h>

#include <QFile>
#include <QLoggingCategory>

namespace zthost::cli {

QString effectiveRoot(const HostOptions &options)
{
    if (!options.root.isEmpty())
        return options.root;
    return QFile::decodeName(QByteArray::fromStdString(softskf::rootFromEnvironment()));
}

void applyRoot(const HostOptions &options)
{
    if (!options.root.isEmpty())
        qputenv("SOFTSKF_ROOT", QFile::encodeName(options.root));
}

void applyVerbosity(Verbosity verbosity)
{
    if (verbosity == Verbosity::Normal)
        QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));
}

} // namespace zthost::cli
