#include "session/session_options.h"

#include <QFile>
#include <QLoggingCategory>

namespace zthost {

void applyToProcess(const SessionOptions &options)
{
    if (!options.softKeyRoot.isEmpty())
        qputenv("SOFTSKF_ROOT", QFile::encodeName(options.softKeyRoot));
    if (options.verbosity != Verbosity::Debug)
        QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));
}

} // namespace zthost
