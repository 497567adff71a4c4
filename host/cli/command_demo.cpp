#include "commands.h"

#include "command_line.h"
#include "console.h"
#include "pin_source.h"
#include "session_steps.h"
#include "step_table.h"

#include "sealer/envelope_sealer.h"

#include <plugin_host/session_key_algorithm.h>

#include <softskf/provision.h>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

namespace zthost::cli {

namespace {
const char kDeviceName[] = "demo";
const char kContainerName[] = "SM2Container";
constexpr int kUserPinDigits = 6;
constexpr int kAdminPinDigits = 8;

QByteArray sampleText()
{
    return QStringLiteral("数字信封 digital envelope: sealed with SM2 and SM4 on the host, "
                          "opened on the key.")
        .toUtf8();
}

// The steps share what earlier ones made.
struct DemoState
{
    QString userPin;
    std::unique_ptr<HostSession> session;
    QByteArray certificate;
    QByteArray envelope;
    QByteArray plaintext;
};

StepResult fromAnswer(const Answer &answer, const QString &detail)
{
    return {answer.succeeded, answer.succeeded ? detail : answer.failure};
}

const QString kJson = QStringLiteral("json");

// {"ok", "totalMs", "root", "plugin", "driver", "steps": [{"step", "outcome", "ms",
// "detail"}]}; a skipped step's ms is null. The PIN stays out: a script has no use for it.
QByteArray demoJson(const StepTable &table, const QString &root, const SessionOptions &options)
{
    QJsonArray steps;
    for (const StepTable::Record &record : table.records()) {
        steps.append(QJsonObject{
            {QStringLiteral("step"), record.name},
            {QStringLiteral("outcome"), record.outcome},
            {QStringLiteral("ms"), record.ms < 0 ? QJsonValue() : QJsonValue(record.ms)},
            {QStringLiteral("detail"), record.detail},
        });
    }
    const QJsonObject document{
        {QStringLiteral("ok"), table.allHeld()},
        {QStringLiteral("totalMs"), table.totalMs()},
        {QStringLiteral("root"), root},
        {QStringLiteral("plugin"), options.pluginPath},
        {QStringLiteral("driver"), options.skfDriverPath},
        {QStringLiteral("steps"), steps},
    };
    return QJsonDocument(document).toJson(QJsonDocument::Compact) + '\n';
}
} // namespace

ExitCode runDemo(const QStringList &arguments)
{
    CommandLine line(
        QStringLiteral("demo"), QStringLiteral("[options]"),
        QStringLiteral("The whole road on a fresh software key, each step with its outcome and "
                       "time: makes a device in a\ntemporary root (--root and --device are not used), "
                       "loads the "
                       "plug-in with the real host core, opens the key,\nverifies the PIN, reads "
                       "the certificate, seals a sample text in an envelope for it, opens the\n"
                       "envelope on the key with WebZtDecode, checks the text came back and "
                       "removes the temporary root.\nExit status 0 only when every step held."));
    line.addOption({kJson,
                    QStringLiteral("One line of JSON instead of the table: {\"ok\", \"totalMs\", "
                                   "\"root\", \"plugin\", \"driver\", \"steps\": [{\"step\", "
                                   "\"outcome\", \"ms\", \"detail\"}]}.")});
    const CommandLine::Parse parsed = line.parseWithoutArguments(arguments);
    if (parsed != CommandLine::Parse::Run)
        return CommandLine::exitCodeOf(parsed);

    const std::optional<SessionOptions> configured = line.hostOptions();
    if (!configured)
        return ExitCode::Failure;
    SessionOptions options = *configured;
    // The demo's own device is the only one in its root.
    options.deviceName.clear();
    const bool json = line.isSet(kJson);
    QTemporaryDir root(QDir::tempPath() + QStringLiteral("/zthost-demo-XXXXXX"));
    if (!root.isValid())
        return failed(QStringLiteral("cannot make a temporary root in %1: %2")
                          .arg(QDir::tempPath(), root.errorString()));
    options.softKeyRoot = root.path();

    DemoState state;
    state.userPin = randomDigits(kUserPinDigits);
    const QByteArray text = sampleText();

    if (!json) {
        printLine(QStringLiteral("zthost demo: a fresh software key, the plug-in, and an envelope "
                                 "opened on the key"));
        printLine(QString());
        printLine(QStringLiteral("  software key  \"%1\", container %2, in %3")
                      .arg(QLatin1String(kDeviceName), QLatin1String(kContainerName), root.path()));
        printLine(QStringLiteral("  user PIN      %1").arg(state.userPin));
        printLine(QStringLiteral("  plug-in       %1").arg(options.pluginPath));
        printLine(QStringLiteral("  driver        %1").arg(options.skfDriverPath));
        printLine(QString());
    }

    StepTable table(json ? StepTable::Output::Silent : StepTable::Output::Printed);
    table.printHeader();
    table.run(QStringLiteral("create software key"), [&] {
        softskf::DeviceOptions device;
        device.name = kDeviceName;
        device.userPin = state.userPin.toStdString();
        device.adminPin = randomDigits(kAdminPinDigits).toStdString();
        device.containerName = kContainerName;
        device.commonName = "zthost demo";
        std::string error;
        if (!softskf::createDevice(QFile::encodeName(root.path()).toStdString(), device, &error))
            return StepResult{false, QString::fromStdString(error)};
        return StepResult{true, QStringLiteral("SM2 key pairs and certificates, 6 PIN tries")};
    });
    table.run(QStringLiteral("load plug-in"), [&] {
        // Not startHost: the failure belongs in the table, not on standard error.
        QString error;
        state.session = HostSession::start(options, &error);
        if (!state.session)
            return StepResult{false, error};
        return StepResult{true, QStringLiteral("host core with the standard components")};
    });
    table.run(QStringLiteral("WebOpenKey"), [&] {
        return fromAnswer(state.session->call(QStringLiteral("WebOpenKey")), QStringLiteral("true"));
    });
    table.run(QStringLiteral("WebVerifyPin"), [&] {
        return fromAnswer(state.session->call(QStringLiteral("WebVerifyPin"), {state.userPin}),
                          QStringLiteral("true"));
    });
    table.run(QStringLiteral("WebGetCertData"), [&] {
        const Answer answer = state.session->call(QStringLiteral("WebGetCertData"), {QString()});
        state.certificate = QByteArray::fromBase64(answer.text().toLatin1());
        return fromAnswer(answer, QStringLiteral("%1-byte certificate").arg(state.certificate.size()));
    });
    table.run(QStringLiteral("make envelope"), [&] {
        QString error;
        state.envelope = sealEnvelope(state.certificate, text, &error);
        if (state.envelope.isEmpty())
            return StepResult{false, error};
        return StepResult{true, QStringLiteral("%1-byte text in a %2-byte envelope")
                                    .arg(text.size())
                                    .arg(state.envelope.size())};
    });
    table.run(QStringLiteral("WebZtDecode"), [&] {
        const Answer answer = state.session->call(
            QStringLiteral("WebZtDecode"),
            {QString::fromLatin1(state.envelope.toBase64()), QVariant::fromValue<qulonglong>(ZtSessionKey::kAlgorithmId)});
        state.plaintext = QByteArray::fromBase64(answer.text().toLatin1());
        return fromAnswer(answer, QStringLiteral("%1 bytes back").arg(state.plaintext.size()));
    });
    table.run(QStringLiteral("text came back"), [&] {
        if (state.plaintext != text)
            return StepResult{false, QStringLiteral("got %1 bytes that differ from the %2 sealed")
                                         .arg(state.plaintext.size())
                                         .arg(text.size())};
        return StepResult{true, QStringLiteral("\"%1\"").arg(QString::fromUtf8(state.plaintext))};
    });
    table.run(
        QStringLiteral("remove software key"),
        [&] {
            // The key is closed and the plug-in shut down before its files go.
            state.session.reset();
            if (!root.remove())
                return StepResult{false, QStringLiteral("cannot remove %1").arg(root.path())};
            return StepResult{true, root.path()};
        },
        StepTable::Kind::CleanUp);
    if (json) {
        writeStandardOutput(demoJson(table, root.path(), options));
    } else {
        printLine(QString());
        table.printSummary();
    }
    return table.allHeld() ? ExitCode::Success : ExitCode::Failure;
}

} // namespace zthost::cli
