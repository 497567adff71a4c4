#include "session/host_session.h"

#include "core/host_core.h"
#include "core/plugin_loader.h"
#include "key/driver_answers.h"
#include "key/key_component.h"
#include "session/default_paths.h"
#include "session/owned_scriptable.h"
#include "session/scriptable_method.h"
#include "session/standard_components.h"

#include <plugin_host/component_ids.h>

#include <QFileInfo>

namespace zthost {

QString Answer::text() const
{
    return answerText(value);
}

HostSession::HostSession() : m_driverAnswers(std::make_shared<DriverAnswers>()) {}

std::unique_ptr<HostSession> HostSession::start(const SessionOptions &options, QString *error)
{
    std::unique_ptr<HostSession> session(new HostSession);
    session->m_pluginPath = options.pluginPath.isEmpty() ? defaultPluginPath() : options.pluginPath;
    session->m_core = std::make_unique<HostCore>();
    HostLog &log = session->m_core->log();
    if (!options.hostLogPath.isEmpty() && !log.setFile(options.hostLogPath, error))
        return nullptr;
    log.setThreshold(options.verbosity == Verbosity::Normal ? LogLevel::Warning : LogLevel::Debug);
    applyToProcess(options);

    StandardComponentOptions components;
    components.skfDriverPath =
        options.skfDriverPath.isEmpty() ? defaultSkfDriverPath() : options.skfDriverPath;
    session->m_skfDriverPath = components.skfDriverPath;
    session->m_driverAnswers->setDriverPath(components.skfDriverPath);
    components.driverAnswers = session->m_driverAnswers;
    components.deviceName = options.deviceName;
    components.driverProfile = options.driverProfile;
    registerStandardComponents(*session->m_core, components);

    // dlopen's own text for a missing file is terse; name the path and say it is not there.
    const QString &pluginPath = session->m_pluginPath;
    if (!QFileInfo::exists(pluginPath)) {
        *error = QStringLiteral("cannot load plug-in %1: no such file").arg(pluginPath);
        return nullptr;
    }
    session->m_plugin = PluginLoader::load(pluginPath, error);
    if (!session->m_plugin || !session->m_plugin->initialize(session->m_core.get(), error))
        return nullptr;

    QObject *scriptable = session->m_plugin->createScriptableObject();
    if (!scriptable) {
        *error = QStringLiteral("plug-in %1 made no %2 object")
                     .arg(pluginPath, QLatin1String(ZtComponentIds::kCryptographicProgId));
        return nullptr;
    }
    session->m_calls = ObjectCalls(scriptable);
    return session;
}

HostSession::~HostSession()
{
    if (m_plugin)
        m_plugin->shutdown();
    m_core.reset();
    m_plugin.reset();
}

Invocation HostSession::invoke(const QString &method, const QVariantList &arguments)
{
    Invocation invocation = m_calls.invoke(method, arguments);
    // The plug-in holds none of the per-operation components once a call has returned.
    m_core->reclaim();
    return invocation;
}

std::unique_ptr<ScriptableCalls> HostSession::createScriptable(QString *error)
{
    QObject *object = m_plugin->createScriptableObject();
    if (!object) {
        *error = QStringLiteral("plug-in %1 made no %2 object")
                     .arg(m_pluginPath, QLatin1String(ZtComponentIds::kCryptographicProgId));
        return nullptr;
    }
    return std::make_unique<OwnedScriptable>(object, *m_core, *m_plugin);
}

Answer HostSession::call(const QString &method, const QVariantList &arguments)
{
    Answer answer;
    m_driverAnswers->clear();
    const Invocation invocation = invoke(method, arguments);
    answer.value = invocation.value;
    if (!invocation.called) {
        answer.failure = invocation.error;
        return answer;
    }
    if (isFailureAnswer(answer.value)) {
        const QString shown = answer.value.userType() == QMetaType::QString
                                  ? QStringLiteral("\"false\"")
                                  : QStringLiteral("false");
        answer.failure =
            QStringLiteral("%1 answered %2: %3").arg(method, shown, lastErrorMessage());
        return answer;
    }
    answer.succeeded = true;
    return answer;
}

KeyComponent *HostSession::keyComponent()
{
    using namespace ZtComponentIds;
    return qobject_cast<KeyComponent *>(m_core->createComponentObject(
        QLatin1String(kKeyProgId), QLatin1String(kKeyClassId)));
}

QString HostSession::lastErrorMessage()
{
    const Invocation message = invoke(QStringLiteral("WebGetLastErrorMsg"), {});
    if (!message.called)
        return QStringLiteral("(WebGetLastErrorMsg could not be called)");
    return message.value.toString();
}

} // namespace zthost
