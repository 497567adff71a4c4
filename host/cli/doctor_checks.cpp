#include "doctor_checks.h"

#include "certificate_facts.h"

#include "key/name_list.h"
#include "key/skf_driver.h"
#include "key/skf_errors.h"
#include "key/skf_function_names.h"
#include "session/default_paths.h"
#include "session/host_session.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QRegularExpression>

#include <dlfcn.h>

namespace zthost::cli {

namespace {

// Where the plug-in writes its logs while their folders exist; fixed in the library, which never
// creates them (README, "Logs").
const QString kCoreLogFolderName = QStringLiteral("ardlow");
const QString kCryptoLogFolder = QStringLiteral("/tmp/ZtEncodeLog");

QString dateText(const QDateTime &time)
{
    return time.isValid() ? time.toString(Qt::ISODate) : QStringLiteral("unreadable");
}

DoctorCheck checkPlugin(const SessionOptions &options)
{
    DoctorCheck check;
    check.name = QStringLiteral("plug-in");
    const QString path = options.pluginPath.isEmpty() ? defaultPluginPath() : options.pluginPath;
    check.facts[QStringLiteral("path")] = path;
    QString error;
    std::unique_ptr<HostSession> session = HostSession::start(options, &error);
    if (!session) {
        check.outcome = CheckOutcome::Failed;
        check.detail = error;
        check.advice = QStringLiteral("build it (make build), or name the plug-in with --plugin");
        return check;
    }
    // The library answers only its version text's length, never the text; its file carries the
    // release, as libZtCryptographic.so.1.0.0 behind the soname's link.
    const QString file = QFileInfo(QFileInfo(path).canonicalFilePath()).fileName();
    const QRegularExpressionMatch release
        = QRegularExpression(QStringLiteral("\\.so\\.([0-9]+(\\.[0-9]+)*)$")).match(file);
    const QString version = release.hasMatch() ? release.captured(1) : QString();
    check.facts[QStringLiteral("version")] = version;
    check.facts[QStringLiteral("file")] = file;
    check.outcome = CheckOutcome::Ok;
    check.detail = QStringLiteral("%1: loads, initialises and makes its scriptable object; %2")
                       .arg(path, version.isEmpty()
                                      ? QStringLiteral("no version in its file name %1").arg(file)
                                      : QStringLiteral("version %1 (%2)").arg(version, file));
    return check;
}

QJsonArray jsonList(const QStringList &names)
{
    return QJsonArray::fromStringList(names);
}

DoctorCheck checkDriver(const QString &path)
{
    DoctorCheck check;
    check.name = QStringLiteral("driver");
    check.facts[QStringLiteral("path")] = path;
    const QByteArray file = path.toLocal8Bit();
    // RTLD_NODELETE as the key component opens it: a driver may start threads of its own.
    void *handle = dlopen(file.constData(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (!handle) {
        const char *reason = dlerror();
        check.outcome = CheckOutcome::Failed;
        check.detail = QStringLiteral("cannot load smart-key driver %1: %2")
                           .arg(path, reason ? QString::fromLocal8Bit(reason)
                                             : QStringLiteral("unknown reason"));
        check.advice = QStringLiteral("name the vendor's driver with --skf, or build the software "
                                      "key's (make build)");
        return check;
    }
    QStringList needed;
    QStringList optional;
    QStringList unused;
    const QList<SkfFunctionName> &standard = standardSkfFunctions();
    for (const SkfFunctionName &function : standard) {
        if (dlsym(handle, function.name))
            continue;
        const QString name = QLatin1String(function.name);
        switch (function.use) {
        case SkfFunctionUse::Needed: needed << name; break;
        case SkfFunctionUse::Optional: optional << name; break;
        case SkfFunctionUse::Unused: unused << name; break;
        }
    }
    dlclose(handle);
    const int present = standard.size() - needed.size() - optional.size() - unused.size();
    check.facts[QStringLiteral("standardFunctions")] = standard.size();
    check.facts[QStringLiteral("present")] = present;
    check.facts[QStringLiteral("missingNeeded")] = jsonList(needed);
    check.facts[QStringLiteral("missingOptional")] = jsonList(optional);
    check.facts[QStringLiteral("missingUnused")] = jsonList(unused);

    check.detail = QStringLiteral("%1: loads; %2 of the standard's %3 functions")
                       .arg(path)
                       .arg(present)
                       .arg(standard.size());
    if (!needed.isEmpty())
        check.notes << QStringLiteral("lacks, and the host needs: ") + needed.join(QLatin1String(", "));
    if (!optional.isEmpty())
        check.notes << QStringLiteral("lacks, for PIN tries, passwd and unblock: ")
                           + optional.join(QLatin1String(", "));
    if (!unused.isEmpty())
        check.notes << QStringLiteral("lacks, never called by the host: ")
                           + unused.join(QLatin1String(", "));
    if (!needed.isEmpty()) {
        check.outcome = CheckOutcome::Failed;
        check.advice = QStringLiteral("the host cannot drive a key without %1: use a driver that "
                                      "exports them")
                           .arg(needed.join(QLatin1String(", ")));
    } else if (!optional.isEmpty()) {
        check.outcome = CheckOutcome::Warning;
        check.advice = QStringLiteral("keys open and decrypt; what needs %1 will say the driver "
                                      "lacks it")
                           .arg(optional.join(QLatin1String(", ")));
    } else {
        check.outcome = CheckOutcome::Ok;
    }
    return check;
}

const char *containerTypeName(ULONG type)
{
    switch (type) {
    case CONTAINER_TYPE_SM2: return "SM2";
    case CONTAINER_TYPE_RSA: return "RSA";
    default: return "empty";
    }
}

// The devices and their containers; the device in use's first SM2 container's encryption
// certificate in `certificate` (the one the plug-in's WebOpenKey and WebGetCertData take). The
// device in use is `chosen` (--device and its kin), else the first the driver lists.
DoctorCheck checkDevices(const QString &driverPath, DriverProfile profile, const QString &chosen,
                         QByteArray *certificate, QString *source)
{
    DoctorCheck check;
    check.name = QStringLiteral("devices");
    QString error;
    std::unique_ptr<SkfDriver> driver = SkfDriver::load(driverPath, profile, &error);
    if (!driver) {
        check.outcome = CheckOutcome::Failed;
        check.detail = error;
        check.advice = QStringLiteral("see the driver check above");
        return check;
    }
    SkfDriver &skf = *driver;
    QStringList devices;
    ULONG code = readNameList(
        [&](LPSTR list, ULONG *size) { return skf.enumDev(true, list, size); }, &devices);
    if (code != SAR_OK) {
        check.outcome = CheckOutcome::Failed;
        check.detail = skfFailureText("SKF_EnumDev", code);
        check.advice = QStringLiteral("check that the key is plugged in and its driver installed");
        return check;
    }
    if (devices.isEmpty()) {
        check.outcome = CheckOutcome::Failed;
        check.detail = QStringLiteral("the driver lists no key device");
        check.advice = QStringLiteral("plug in a key, or make a software key: zthost keygen "
                                      "--name NAME");
        check.facts[QStringLiteral("devices")] = QJsonArray();
        return check;
    }

    if (!chosen.isEmpty() && !devices.contains(chosen)) {
        check.outcome = CheckOutcome::Failed;
        check.detail = QStringLiteral("no key device \"%1\": the driver lists %2")
                           .arg(chosen, devices.join(QStringLiteral(", ")));
        check.advice = QStringLiteral("choose a listed device with --device, or plug in \"%1\"")
                           .arg(chosen);
        return check;
    }
    const QString inUse = chosen.isEmpty() ? devices.first() : chosen;

    QJsonArray listed;
    QStringList problems;
    QStringList advice;
    QStringList summaries;
    for (const QString &device : qAsConst(devices)) {
        QJsonObject entry{{QStringLiteral("name"), device}};
        const bool isInUse = device == inUse;
        QByteArray name = device.toUtf8();
        DEVHANDLE handle = nullptr;
        code = skf.connectDev(name.data(), &handle);
        if (code != SAR_OK || !handle) {
            problems << QStringLiteral("\"%1\": %2").arg(device, skfFailureText("SKF_ConnectDev", code));
            entry[QStringLiteral("problem")] = problems.last();
            listed.append(entry);
            continue;
        }
        QStringList applications;
        code = readNameList(
            [&](LPSTR list, ULONG *size) { return skf.enumApplication(handle, list, size); },
            &applications);
        HAPPLICATION application = nullptr;
        if (code == SAR_OK && !applications.isEmpty()) {
            QByteArray applicationName = applications.first().toUtf8();
            code = skf.openApplication(handle, applicationName.data(), &application);
        }
        if (!application) {
            problems << QStringLiteral("\"%1\": %2").arg(
                device, code != SAR_OK ? skfFailureText("SKF_OpenApplication", code)
                                       : QStringLiteral("holds no application"));
            entry[QStringLiteral("problem")] = problems.last();
            listed.append(entry);
            skf.disconnectDev(handle);
            continue;
        }
        entry[QStringLiteral("application")] = applications.first();
        QString summary = QStringLiteral("\"%1\": application %2").arg(device, applications.first());
        if (skf.has(SkfFunction::GetPINInfo)) {
            ULONG maxTries = 0;
            ULONG triesLeft = 0;
            bool isDefault = false;
            if (skf.getPinInfo(application, USER_TYPE, &maxTries, &triesLeft, &isDefault) == SAR_OK) {
                entry[QStringLiteral("triesLeft")] = int(triesLeft);
                entry[QStringLiteral("maxTries")] = int(maxTries);
                entry[QStringLiteral("locked")] = triesLeft == 0;
                summary += triesLeft == 0
                               ? QStringLiteral(", user PIN locked (0 of %1 tries)").arg(maxTries)
                               : QStringLiteral(", user PIN %1 of %2 tries").arg(triesLeft).arg(maxTries);
                if (triesLeft == 0) {
                    problems << QStringLiteral("the user PIN of \"%1\" is locked").arg(device);
                    advice << QStringLiteral("give it a new PIN with the admin PIN: zthost unblock");
                }
            }
        }
        QStringList containers;
        readNameList(
            [&](LPSTR list, ULONG *size) { return skf.enumContainer(application, list, size); },
            &containers);
        QJsonArray containerList;
        QStringList containerTexts;
        bool sm2Found = false;
        for (const QString &container : qAsConst(containers)) {
            QByteArray containerName = container.toUtf8();
            HCONTAINER opened = nullptr;
            ULONG type = 0;
            if (skf.openContainer(application, containerName.data(), &opened) != SAR_OK || !opened)
                continue;
            skf.getContainerType(opened, &type);
            containerList.append(QJsonObject{{QStringLiteral("name"), container},
                                             {QStringLiteral("type"), QLatin1String(containerTypeName(type))}});
            containerTexts << QStringLiteral("%1 (%2)").arg(container, QLatin1String(containerTypeName(type)));
            if (isInUse && !sm2Found && type == CONTAINER_TYPE_SM2) {
                sm2Found = true;
                ULONG size = 0;
                if (skf.exportCertificate(opened, false, nullptr, &size) == SAR_OK && size > 0
                    && size < (1u << 20)) {
                    QByteArray der(int(size), '\0');
                    if (skf.exportCertificate(opened, false, reinterpret_cast<BYTE *>(der.data()),
                                              &size) == SAR_OK) {
                        der.truncate(int(size));
                        *certificate = der;
                        *source = QStringLiteral("\"%1\" %2").arg(device, container);
                    }
                }
            }
            skf.closeContainer(opened);
        }
        entry[QStringLiteral("containers")] = containerList;
        summary += containerTexts.isEmpty()
                       ? QStringLiteral(", no container")
                       : QStringLiteral(", containers ") + containerTexts.join(QLatin1String(", "));
        if (isInUse && !sm2Found) {
            problems << QStringLiteral("\"%1\" holds no SM2 container").arg(device);
            advice << QStringLiteral("envelopes open only in an SM2 container: make a key with "
                                     "one (zthost keygen)");
        }
        summaries << summary;
        listed.append(entry);
        skf.closeApplication(application);
        skf.disconnectDev(handle);
    }
    check.facts[QStringLiteral("devices")] = listed;
    check.detail = summaries.join(QLatin1String("; "));
    if (problems.isEmpty()) {
        check.outcome = CheckOutcome::Ok;
    } else {
        check.outcome = CheckOutcome::Failed;
        if (check.detail.isEmpty())
            check.detail = problems.join(QLatin1String("; "));
        else
            check.notes << problems;
        check.advice = advice.isEmpty() ? QStringLiteral("check the key and its driver")
                                        : advice.join(QLatin1String("; "));
    }
    return check;
}

DoctorCheck checkCertificate(const QByteArray &der, const QString &source, const QDateTime &now)
{
    DoctorCheck check;
    check.name = QStringLiteral("certificate");
    if (der.isEmpty()) {
        check.outcome = CheckOutcome::Failed;
        check.detail = QStringLiteral("no encryption certificate could be read from the key");
        check.advice = QStringLiteral("the key needs an encryption certificate in its SM2 container");
        return check;
    }
    CertificateFacts facts;
    QString error;
    if (!readCertificateFacts(der, &facts, &error)) {
        check.outcome = CheckOutcome::Failed;
        check.detail = QStringLiteral("%1: the encryption certificate does not parse: %2").arg(source, error);
        check.advice = QStringLiteral("the key needs a new encryption certificate");
        return check;
    }
    check.facts[QStringLiteral("from")] = source;
    check.facts[QStringLiteral("subject")] = facts.subject;
    check.facts[QStringLiteral("keyType")] = facts.keyType;
    check.facts[QStringLiteral("notBefore")] = dateText(facts.notBefore);
    check.facts[QStringLiteral("notAfter")] = dateText(facts.notAfter);
    check.facts[QStringLiteral("keyUsage")] = jsonList(facts.keyUsage);
    check.detail = QStringLiteral("%1: %2, %3 key, valid %4 to %5, key usage %6")
                       .arg(source, facts.subject, facts.keyType, dateText(facts.notBefore),
                            dateText(facts.notAfter),
                            !facts.hasKeyUsage ? QStringLiteral("unrestricted")
                                               : facts.keyUsage.join(QLatin1String(", ")));
    QStringList problems;
    QStringList advice;
    if (!facts.sm2) {
        problems << QStringLiteral("its key is %1, not SM2").arg(facts.keyType);
        advice << QStringLiteral("envelopes are sealed to SM2 keys only");
    }
    if (facts.notAfter.isValid() && now > facts.notAfter) {
        problems << QStringLiteral("it expired on %1").arg(dateText(facts.notAfter));
        advice << QStringLiteral("senders will refuse it: have it renewed, or make a new key");
    } else if (facts.notBefore.isValid() && now < facts.notBefore) {
        problems << QStringLiteral("it is not valid before %1").arg(dateText(facts.notBefore));
        advice << QStringLiteral("check this machine's clock");
    }
    const QString usage = keyEnciphermentProblem(facts, QStringLiteral("its"));
    if (!usage.isEmpty()) {
        problems << usage;
        advice << QStringLiteral("senders' software may refuse to seal to it: get an encryption "
                                 "certificate that allows keyEncipherment");
    }
    check.facts[QStringLiteral("problems")] = jsonList(problems);
    if (problems.isEmpty()) {
        check.outcome = CheckOutcome::Ok;
    } else {
        check.outcome = CheckOutcome::Failed;
        check.notes << problems;
        check.advice = advice.join(QLatin1String("; "));
    }
    return check;
}

// One log folder: absent (that log is off), a writable folder (on), or something else.
QJsonObject folderState(const QString &log, const QString &folder, QString *text, bool *fine)
{
    const QFileInfo info(folder);
    QString state;
    if (!info.exists()) {
        state = QStringLiteral("off");
        *text = QStringLiteral("%1 off (no folder %2)").arg(log, folder);
    } else if (!info.isDir()) {
        state = QStringLiteral("not a folder");
        *text = QStringLiteral("%1: %2 is not a folder").arg(log, folder);
        *fine = false;
    } else if (!info.isWritable()) {
        state = QStringLiteral("not writable");
        *text = QStringLiteral("%1: folder %2 is not writable").arg(log, folder);
        *fine = false;
    } else {
        state = QStringLiteral("on");
        *text = QStringLiteral("%1 on (folder %2, writable)").arg(log, folder);
    }
    return QJsonObject{{QStringLiteral("log"), log},
                       {QStringLiteral("folder"), folder},
                       {QStringLiteral("state"), state}};
}

DoctorCheck checkLogs(const SessionOptions &options)
{
    DoctorCheck check;
    check.name = QStringLiteral("logs");
    bool fine = true;
    QStringList texts;
    QJsonArray folders;
    QString text;
    folders.append(folderState(QStringLiteral("core log"),
                               QDir(QDir::tempPath()).filePath(kCoreLogFolderName), &text, &fine));
    texts << text;
    folders.append(folderState(QStringLiteral("crypto log"), kCryptoLogFolder, &text, &fine));
    texts << text;
    if (options.hostLogPath.isEmpty()) {
        texts << QStringLiteral("host log to standard error");
    } else {
        const QString folder = QFileInfo(options.hostLogPath).absolutePath();
        const QFileInfo info(folder);
        const bool usable = info.isDir() && info.isWritable();
        folders.append(QJsonObject{{QStringLiteral("log"), QStringLiteral("host log")},
                                   {QStringLiteral("folder"), folder},
                                   {QStringLiteral("state"), usable ? QStringLiteral("on")
                                                                    : QStringLiteral("not writable")}});
        texts << (usable ? QStringLiteral("host log to %1").arg(options.hostLogPath)
                         : QStringLiteral("host log: folder %1 is missing or not writable").arg(folder));
        fine = fine && usable;
    }
    check.facts[QStringLiteral("folders")] = folders;
    check.detail = texts.join(QLatin1String("; "));
    check.outcome = fine ? CheckOutcome::Ok : CheckOutcome::Failed;
    if (!fine) {
        check.advice = QStringLiteral("a log folder must be a writable folder: fix its mode, or "
                                      "remove it to switch that log off");
    }
    return check;
}

DoctorCheck skipped(const QString &name, const QString &because)
{
    DoctorCheck check;
    check.name = name;
    check.outcome = CheckOutcome::Skipped;
    check.detail = because;
    return check;
}

} // namespace

QString outcomeText(CheckOutcome outcome)
{
    switch (outcome) {
    case CheckOutcome::Ok: return QStringLiteral("ok");
    case CheckOutcome::Warning: return QStringLiteral("warning");
    case CheckOutcome::Failed: return QStringLiteral("FAILED");
    case CheckOutcome::Skipped: return QStringLiteral("skipped");
    }
    return QStringLiteral("FAILED");
}

QList<DoctorCheck> runDoctorChecks(const SessionOptions &options, const QDateTime &now)
{
    QList<DoctorCheck> checks;
    // The software device's root, for the driver checks even when the plug-in does not load.
    applyToProcess(options);
    checks << checkPlugin(options);
    const QString driverPath =
        options.skfDriverPath.isEmpty() ? defaultSkfDriverPath() : options.skfDriverPath;
    checks << checkDriver(driverPath);
    if (checks.last().outcome == CheckOutcome::Failed) {
        checks << skipped(QStringLiteral("devices"), QStringLiteral("the driver does not load"));
        checks << skipped(QStringLiteral("certificate"), QStringLiteral("the driver does not load"));
    } else {
        QByteArray certificate;
        QString source;
        checks << checkDevices(driverPath, options.driverProfile, options.deviceName, &certificate,
                              &source);
        if (certificate.isEmpty() && checks.last().outcome == CheckOutcome::Failed)
            checks << skipped(QStringLiteral("certificate"), QStringLiteral("no key device to read it from"));
        else
            checks << checkCertificate(certificate, source, now);
    }
    checks << checkLogs(options);
    return checks;
}

} // namespace zthost::cli
