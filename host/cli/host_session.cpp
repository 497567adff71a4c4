#include "host_session.h"

#include "scriptable_method.h"

#include "core/component_ids.h"
#include "core/standard_components.h"

#include <QFileInfo>

namespace zthost::cli {

QString Answer::text() const
{
    return answerText(value);
}

std::unique_ptr<HostSession> HostSession::start(const HostOptions &options, QString *error)
{
    std::unique_ptr<HostSession> session(new HostSession);
    session->m_pluginPath = options.pluginPath;
    session->m_core = std::make_unique<HostCore>();
    HostLog &log = session->m_core->log();
    if (!options.hostLogPath.isEmpty() && !log.setFile(options.hostLogPath, error))
        return nullptr;
    log.setThreshold(options.verbosity == Verbosity::Debug ? LogLevel::Debug : LogLevel::Warning);

    StandardComponentOptions components;
    components.skfDriverPath = options.skfPath;
    registerStandardComponents(*session->m_core, components);

    // dlopen's own text for a missing file is terse; name the path and say it is not there.
    if (!QFileInfo::exists(options.pluginPath)) {
        *error = QStringLiteral("cannot load plug-in %1: no such file").arg(options.pluginPath);
        return nullptr;
    }
    session->m_plugin = PluginLoader::load(options.pluginPath, error);
    if (!session->m_plugin || !session->m_plugin->initialize(session->m_core.get(), error))
        return nullptr;

    session->m_scriptable = session->m_plugin->createComponent(
        QLatin1String(ComponentIds::kCryptographicProgId));
    if (!session->m_scriptable) {
        *error = QStringLiteral("plug-in %1 made no %2 object")
                     .arg(options.pluginPath, QLatin1String(ComponentIds::kCryptographicProgId));
        return nullptr;
    }
    return session;
}

HostSession::~HostSession()
{
    if (m_plugin)
        m_plugin->shutdown();
    m_core.reset();
    m_plugin.reset();
}

Answer HostSession::call(const QString &method, const QVariantList &arguments)
{
    Answer answer;
    const QMetaMethod target = findInvokable(m_scriptable, method);
    if (!target.isValid()) {
        answer.failure = QStringLiteral("the scriptable object has no method %1").arg(method);
        return answer;
    }
    QString error;
    const bool called = invoke(m_scriptable, target, arguments, &answer.value, &error);
    // The plug-in holds none of the per-operation components once a call has returned.
    m_core->reclaim();
    if (!called) {
        answer.failure = error;
        return answer;
    }
    if (isFailureAnswer(answer.value)) {
        const QString shown = answer.value.type() == QVariant::String
                                  ? QStringLiteral("\"false\"")
                                  : QStringLiteral("false");
        answer.failure =
            QStringLiteral("%1 answered %2: %3").arg(method, shown, lastErrorMessage());
        return answer;
    }
    answer.succeeded = true;
    return answer;
}

QString HostSession::lastErrorMessage()
{
    const QMetaMethod target = findInvokable(m_scriptable, QStringLiteral("WebGetLastErrorMsg"));
    QVariant message;
    QString error;
    if (!target.isValid() || !invoke(m_scriptable, target, {}, &message, &error))
        return QStringLiteral("(WebGetLastErrorMsg could not be called)");
    m_core->reclaim();
    return message.toString();
}

} // namespace zthost::cli
