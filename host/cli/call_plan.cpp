#include "call_plan.h"

#include "console.h"
#include "device_choice.h"
#include "failure_diagnosis.h"
#include "session_steps.h"
#include "envelope_limits.h"
#include "pin_source.h"

#include "core/pin_wipe.h"
#include "session/scriptable_method.h"

#include <QFile>
#include <QFileInfo>

#include <cstdio>

namespace zthost::cli {

namespace {
const QString kVerifyPin = QStringLiteral("WebVerifyPin");

QString withoutTrailingLineEnds(QString text)
{
    while (text.endsWith(QLatin1Char('\n')) || text.endsWith(QLatin1Char('\r')))
        text.chop(1);
    return text;
}

QString tooLarge(const QString &what, qint64 size)
{
    return QStringLiteral("%1 is too large for the plug-in: %2 bytes, over the %3 characters "
                          "it can take under Qt 5")
        .arg(what)
        .arg(size)
        .arg(maxEnvelopeBase64Characters());
}

// The text an argument word stands for. False with `error` set.
bool argumentText(const QString &word, QString *text, QString *error)
{
    if (!word.startsWith(QLatin1Char('@'))) {
        *text = word;
        return true;
    }
    if (word.startsWith(QLatin1String("@@"))) {
        *text = word.mid(1);
        return true;
    }
    QByteArray bytes;
    if (word == QLatin1String("@-")) {
        QFile in;
        if (!in.open(stdin, QIODevice::ReadOnly)) {
            *error = QStringLiteral("cannot read standard input");
            return false;
        }
        // Bounded: more than the plug-in can take is refused, not held.
        bytes = in.read(maxEnvelopeBase64Characters() + 1);
        if (bytes.size() > maxEnvelopeBase64Characters()) {
            *error = tooLarge(QStringLiteral("standard input"), bytes.size());
            return false;
        }
    } else {
        const QString path = word.mid(1);
        QFile file(path);
        if (QFileInfo(path).isDir()) {
            *error = QStringLiteral("cannot read %1: it is a folder").arg(path);
            return false;
        }
        if (!file.open(QIODevice::ReadOnly)) {
            *error = QStringLiteral("cannot read %1: %2").arg(path, file.errorString());
            return false;
        }
        if (file.size() > maxEnvelopeBase64Characters()) {
            *error = tooLarge(path, file.size());
            return false;
        }
        bytes = file.readAll();
    }
    *text = withoutTrailingLineEnds(QString::fromUtf8(bytes));
    return true;
}
} // namespace

bool planCall(const QObject *scriptable, const QStringList &words, PlannedCall *call,
              QString *error, PlanFailure *failure)
{
    *call = PlannedCall();
    *failure = PlanFailure::Usage;
    if (words.isEmpty()) {
        *error = QStringLiteral("missing METHOD");
        return false;
    }
    call->method = words.first();
    const QMetaMethod target = findInvokable(scriptable, call->method);
    if (!target.isValid()) {
        *error = QStringLiteral("no method \"%1\"; the scriptable object has:\n  %2")
                     .arg(call->method,
                          invokableSignatures(scriptable).join(QLatin1String("\n  ")));
        return false;
    }
    const bool askPin = call->method == kVerifyPin && words.size() == 1;
    QStringList texts;
    // Arguments are checked for number and type before any file is read or PIN asked.
    if (!askPin) {
        QVariantList unused;
        QStringList plain;
        for (const QString &word : words.mid(1))
            plain << (word.startsWith(QLatin1Char('@')) ? QStringLiteral("0") : word);
        if (!convertArguments(target, plain, &unused, error))
            return false;
    }
    *failure = PlanFailure::Input;
    if (askPin) {
        Pin pin = readPin(std::nullopt, QStringLiteral("User PIN: "));
        if (pin.origin == PinOrigin::Missing) {
            *error = QStringLiteral("no user PIN for WebVerifyPin: give it, set ZTHOST_PIN, or "
                                    "run on a terminal to be asked");
            return false;
        }
        texts << pin.text;
    } else {
        for (const QString &word : words.mid(1)) {
            QString text;
            if (!argumentText(word, &text, error))
                return false;
            texts << text;
        }
    }
    *failure = PlanFailure::Usage;
    if (!convertArguments(target, texts, &call->values, error))
        return false;
    if (call->method == kVerifyPin)
        call->pin = texts.value(0);
    *failure = PlanFailure::None;
    return true;
}

bool runPlannedCall(HostSession &session, PlannedCall &call)
{
    const Answer answer = session.call(call.method, call.values);
    // An envelope among the arguments (WebZtDecode's) lets the diagnosis name its recipient.
    QByteArray envelope;
    if (!answer.succeeded && call.method == QLatin1String("WebZtDecode") && !call.values.isEmpty())
        envelope = QByteArray::fromBase64(call.values.first().toString().toLatin1());
    call.values.clear();
    wipePin(call.pin);
    if (answer.value.isValid())
        printLine(answer.text());
    if (!answer.succeeded) {
        printError(answer.failure);
        printDiagnosis(session, envelope);
    } else if (call.method == QLatin1String("WebOpenKey")) {
        announceDeviceInUse(session);
    }
    return answer.succeeded;
}

} // namespace zthost::cli
