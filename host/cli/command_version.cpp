// `zthost --version`: the host's, the plug-in's and the driver's versions, each from the one
// source that really knows it, named on its line.
#include "commands.h"

#include "command_line.h"
#include "console.h"

#include "key/name_list.h"
#include "key/skf_driver.h"
#include "key/skf_errors.h"

#include <QFileInfo>
#include <QRegularExpression>

namespace zthost::cli {

namespace {

// The plug-in answers its version text's length only (Zt_GetVersion), so its version is read
// from the real file a symlink chain ends at: libZtCryptographic.so.1 -> ...so.1.0.0.
QString pluginVersionLine(const QString &path, bool *known)
{
    const QFileInfo file(path);
    if (!file.exists()) {
        *known = false;
        return QStringLiteral("plug-in unknown: no file %1").arg(path);
    }
    const QString real = file.canonicalFilePath();
    const QRegularExpressionMatch match =
        QRegularExpression(QStringLiteral("\\.so\\.([0-9]+(\\.[0-9]+)*)$")).match(real);
    if (!match.hasMatch())
        return QStringLiteral("plug-in unknown (the file name of %1 carries none)").arg(real);
    return QStringLiteral("plug-in %1 (the file name of %2)").arg(match.captured(1), real);
}

QString versionText(quint8 major, quint8 minor)
{
    return QStringLiteral("%1.%2").arg(major).arg(minor);
}

// A driver has no version of its own in the standard interface; a device's information
// (SKF_GetDevInfo) carries the version and firmware the driver reports for it.
QString driverVersionLine(const QString &path, DriverProfile profile, const QString &chosen,
                          bool *known)
{
    QString error;
    std::unique_ptr<SkfDriver> driver = SkfDriver::load(path, profile, &error);
    if (!driver) {
        *known = false;
        return QStringLiteral("driver unknown: %1").arg(error);
    }
    const QString real = QFileInfo(path).canonicalFilePath();
    SkfDriver &skf = *driver;
    if (!skf.has(SkfFunction::GetDevInfo))
        return QStringLiteral("driver unknown: %1 has no SKF_GetDevInfo").arg(real);
    QStringList devices;
    const ULONG listed = readNameList(
        [&](LPSTR list, ULONG *size) { return skf.enumDev(true, list, size); }, &devices);
    if (listed != SAR_OK)
        return QStringLiteral("driver unknown: %1").arg(skfFailureText("SKF_EnumDev", listed));
    if (!chosen.isEmpty() && !devices.contains(chosen))
        return QStringLiteral("driver unknown: %1 does not list key device \"%2\"").arg(real, chosen);
    if (devices.isEmpty())
        return QStringLiteral("driver unknown: %1 lists no device to ask").arg(real);
    const QString device = chosen.isEmpty() ? devices.first() : chosen;
    QByteArray name = device.toUtf8();
    DEVHANDLE handle = nullptr;
    ULONG code = skf.connectDev(name.data(), &handle);
    if (code != SAR_OK || !handle)
        return QStringLiteral("driver unknown: key device \"%1\": %2")
            .arg(device, skfFailureText("SKF_ConnectDev", code));
    // Laid out for the driver's ULONG width by the adapter (key/driver_structures.h).
    DeviceInfo info;
    code = skf.getDevInfo(handle, &info);
    skf.disconnectDev(handle);
    if (code != SAR_OK)
        return QStringLiteral("driver unknown: key device \"%1\": %2")
            .arg(device, skfFailureText("SKF_GetDevInfo", code));
    const QString manufacturer = QString::fromUtf8(info.manufacturer);
    return QStringLiteral("driver %1, firmware %2, manufacturer %3 (SKF_GetDevInfo of key device "
                          "\"%4\" through %5)")
        .arg(versionText(info.versionMajor, info.versionMinor),
             versionText(info.firmwareMajor, info.firmwareMinor),
             manufacturer, device, real);
}

} // namespace

ExitCode runVersion(const QStringList &arguments)
{
    CommandLine line(QStringLiteral("--version"), QStringLiteral("[options]"),
                     QStringLiteral("The versions of zthost (the project's, set when it was "
                                    "built), of the plug-in (from its file's real name) and of\n"
                                    "the driver (what SKF_GetDevInfo reports for the key device "
                                    "in use, or the first one). Exit status 1\nwhen the plug-in's "
                                    "file or the driver is missing."));
    const CommandLine::Parse parsed = line.parseWithoutArguments(arguments);
    if (parsed != CommandLine::Parse::Run)
        return CommandLine::exitCodeOf(parsed);
    const std::optional<SessionOptions> host = line.hostOptions();
    if (!host)
        return ExitCode::Failure;
    applyToProcess(*host);

    bool known = true;
    printLine(QStringLiteral("zthost %1").arg(QLatin1String(ZT_PROJECT_VERSION)));
    printLine(pluginVersionLine(host->pluginPath, &known));
    printLine(
        driverVersionLine(host->skfDriverPath, host->driverProfile, host->deviceName, &known));
    return known ? ExitCode::Success : ExitCode::Failure;
}

} // namespace zthost::cli
