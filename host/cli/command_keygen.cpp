#include "commands.h"

#include "command_line.h"
#include "console.h"
#include "pin_source.h"
#include "session_steps.h"

#include "core/pin_wipe.h"

#include <softskf/provision.h>

#include <QFile>

namespace zthost::cli {

namespace {
// The software device root keygen writes to: --root when given, else what the driver reads.
QString softKeyRootInEffect(const SessionOptions &options)
{
    if (!options.softKeyRoot.isEmpty())
        return options.softKeyRoot;
    return QFile::decodeName(QByteArray::fromStdString(softskf::rootFromEnvironment()));
}

const QString kName = QStringLiteral("name");
const QString kPin = QStringLiteral("pin");
const QString kAdminPin = QStringLiteral("admin-pin");
const QString kRetries = QStringLiteral("retries");
constexpr unsigned kDefaultRetries = 6;
// The software device counts tries in one octet.
constexpr unsigned kMaxRetries = 255;
constexpr int kGeneratedAdminPinDigits = 8;
} // namespace

ExitCode runKeygen(const QStringList &arguments)
{
    CommandLine line(QStringLiteral("keygen"),
                     QStringLiteral("--name NAME --pin PIN [--admin-pin PIN] [--retries N] [options]"),
                     QStringLiteral("Makes a software key device under the device root: one "
                                    "application (SOFTAPP) with one SM2 container (SM2Container)\n"
                                    "holding an encryption and a signing key pair, each with a "
                                    "self-signed SM2-with-SM3 certificate."));
    line.addOption({kName, QStringLiteral("The device's name (its folder under the root)."),
                    QStringLiteral("NAME")});
    line.addOption({kPin,
                    QStringLiteral("The user PIN, 4 to 64 bytes (else $ZTHOST_PIN, else asked "
                                   "for twice on the terminal)."),
                    QStringLiteral("PIN")});
    line.addOption({kAdminPin,
                    QStringLiteral("The administrator PIN (default: 8 random digits, shown once)."),
                    QStringLiteral("PIN")});
    line.addOption({kRetries,
                    QStringLiteral("Tries per PIN before it locks, 1 to 255 (default: 6)."),
                    QStringLiteral("N")});
    const CommandLine::Parse parsed = line.parseWithoutArguments(arguments);
    if (parsed != CommandLine::Parse::Run)
        return CommandLine::exitCodeOf(parsed);
    if (!line.isSet(kName))
        return line.usageError(QStringLiteral("missing --name"));

    unsigned retries = kDefaultRetries;
    if (line.isSet(kRetries)) {
        bool ok = false;
        retries = line.value(kRetries).toUInt(&ok);
        if (!ok || retries < 1 || retries > kMaxRetries)
            return line.usageError(QStringLiteral("--retries must be 1 to %1, not \"%2\"")
                                       .arg(kMaxRetries)
                                       .arg(line.value(kRetries)));
    }
    bool mismatch = false;
    Pin userPin = readNewPin(line.optionalValue(kPin), QStringLiteral("New user PIN: "),
                             QStringLiteral("Repeat the new user PIN: "), "ZTHOST_PIN", &mismatch);
    if (mismatch)
        return failed(QStringLiteral("the two PINs typed differ; nothing was made"));
    if (userPin.origin == PinOrigin::Missing)
        return line.usageError(QStringLiteral("no user PIN: give --pin, set ZTHOST_PIN, or run "
                                              "on a terminal to be asked"));
    const bool adminGenerated = !line.isSet(kAdminPin);
    const QString adminPin =
        adminGenerated ? randomDigits(kGeneratedAdminPinDigits) : line.value(kAdminPin);

    const std::optional<SessionOptions> host = line.hostOptions();
    if (!host) {
        wipePin(userPin.text);
        return ExitCode::Failure;
    }
    applyToProcess(*host);
    const QString root = softKeyRootInEffect(*host);
    softskf::DeviceOptions options;
    options.name = line.value(kName).toStdString();
    options.userPin = userPin.text.toStdString();
    options.adminPin = adminPin.toStdString();
    options.maxRetries = retries;
    std::string error;
    const bool created = softskf::createDevice(QFile::encodeName(root).toStdString(), options, &error);
    // The device keeps only hashes and sealed keys; these copies go now (core/pin_wipe.h).
    wipePin(options.userPin);
    wipePin(options.adminPin);
    wipePin(userPin.text);
    if (!created)
        return failed(QStringLiteral("cannot make device \"%1\" in %2: %3")
                          .arg(line.value(kName), root, QString::fromStdString(error)));

    printLine(QStringLiteral("created device \"%1\" in %2").arg(line.value(kName), root));
    printLine(QStringLiteral("  application  %1").arg(QString::fromStdString(options.applicationName)));
    printLine(QStringLiteral("  container    %1 (SM2: encryption and signing key pairs, "
                             "self-signed certificates)")
                  .arg(QString::fromStdString(options.containerName)));
    printLine(QStringLiteral("  user PIN     %1 tries").arg(retries));
    // A generated PIN exists nowhere else: this is the one place it is ever shown.
    printLine(adminGenerated ? QStringLiteral("  admin PIN    %1 (generated: keep it)").arg(adminPin)
                             : QStringLiteral("  admin PIN    as given, %1 tries").arg(retries));
    return ExitCode::Success;
}

} // namespace zthost::cli
