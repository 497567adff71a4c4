// Lengths and handles from the plug-in are checked here before any of them reaches the driver.

#include "key/key_object.h"

#include "core/host_log.h"
#include "core/pin_wipe.h"
#include "key/block_cipher_record.h"
#include "key/driver_answers.h"
#include "key/handle_value.h"
#include "key/name_list.h"
#include "key/skf_driver.h"
#include "key/skf_errors.h"

#include <limits>

namespace zthost {

namespace {

constexpr qulonglong kMaxDriverLength = std::numeric_limits<ULONG>::max();
// Certificates and plaintexts larger than this are a driver fault: refused before allocating.
constexpr ULONG kMaxOutputSize = 0x7fffffffu;

const char *pinKind(bool adminPin)
{
    return adminPin ? "administrator PIN" : "user PIN";
}

} // namespace

KeyObject::KeyObject(SkfDriver &driver, HostLog &log, const QString &deviceName,
                     DEVHANDLE device, HAPPLICATION application, QObject *parent)
    : QObject(parent),
      m_driver(driver),
      m_log(log),
      m_deviceName(deviceName),
      m_device(device),
      m_application(application)
{}

KeyObject::~KeyObject()
{
    releaseEverything();
}

void KeyObject::logRefusal(const char *method, const QString &reason)
{
    m_log.error(QStringLiteral("key device \"%1\": %2 refused: %3")
                    .arg(m_deviceName, QLatin1String(method), reason));
}

void KeyObject::logFailure(const char *function, ULONG code, const QString &detail,
                           long triesLeft, bool adminPin)
{
    if (m_answers) {
        m_answers->recordFailure(
            {m_deviceName, QLatin1String(function), code, triesLeft, adminPin});
    }
    QString line
        = QStringLiteral("key device \"%1\": %2").arg(m_deviceName, skfFailureText(function, code));
    if (!detail.isEmpty())
        line += QStringLiteral(", ") + detail;
    m_log.error(line);
}

bool KeyObject::usable(const char *method)
{
    if (m_device)
        return true;
    logRefusal(method, QStringLiteral("the key object is closed"));
    return false;
}

bool KeyObject::knownContainer(qulonglong container, const char *method)
{
    if (!usable(method))
        return false;
    if (m_containers.contains(container))
        return true;
    logRefusal(method, QStringLiteral("container handle 0x%1 is not open").arg(container, 0, 16));
    return false;
}

bool KeyObject::knownKey(qulonglong key, const char *method)
{
    if (!usable(method))
        return false;
    if (m_keys.contains(key))
        return true;
    logRefusal(method, QStringLiteral("session key handle 0x%1 is not open").arg(key, 0, 16));
    return false;
}

QStringList KeyObject::enumContainer()
{
    QStringList names;
    if (!usable("enumContainer"))
        return names;
    const ULONG code = readNameList(
        [this](LPSTR list, ULONG *size) {
            return m_driver.enumContainer(m_application, list, size);
        },
        &names);
    if (code != SAR_OK) {
        logFailure("SKF_EnumContainer", code);
        names.clear();
    }
    return names;
}

qulonglong KeyObject::openContainer(QString name)
{
    if (!usable("openContainer"))
        return 0;
    if (const qulonglong open = m_containerByName.value(name))
        return open;
    QByteArray encoded = name.toUtf8();
    HCONTAINER container = nullptr;
    const ULONG code = m_driver.openContainer(m_application, encoded.data(), &container);
    if (code != SAR_OK || !container) {
        logFailure("SKF_OpenContainer", code, QStringLiteral("container \"%1\"").arg(name));
        return 0;
    }
    const qulonglong handle = handleValue(container);
    m_containers.insert(handle);
    m_containerByName.insert(name, handle);
    return handle;
}

int KeyObject::getContainerType(qulonglong container)
{
    if (!knownContainer(container, "getContainerType"))
        return 0;
    ULONG type = 0;
    const ULONG code = m_driver.getContainerType(handleFromValue(container), &type);
    if (code != SAR_OK) {
        logFailure("SKF_GetContainerType", code);
        return 0;
    }
    return type <= ULONG(std::numeric_limits<int>::max()) ? int(type) : 0;
}

void KeyObject::closeKey(qulonglong key)
{
    m_keys.remove(key);
    m_keyOrder.removeOne(key);
    const ULONG code = m_driver.closeHandle(handleFromValue(key));
    if (code != SAR_OK)
        logFailure("SKF_CloseHandle", code);
}

void KeyObject::closeKeysOf(qulonglong container)
{
    const QList<qulonglong> keys = m_keys.keys(container);
    for (qulonglong key : keys)
        closeKey(key);
}

void KeyObject::closeContainer(qulonglong container)
{
    if (!knownContainer(container, "closeContainer"))
        return;
    closeKeysOf(container);
    m_containers.remove(container);
    m_containerByName.remove(m_containerByName.key(container));
    const ULONG code = m_driver.closeContainer(handleFromValue(container));
    if (code != SAR_OK)
        logFailure("SKF_CloseContainer", code);
}

QByteArray KeyObject::exportCertificate(qulonglong container, bool signFlag)
{
    if (!knownContainer(container, "exportCertificate"))
        return QByteArray();
    const char *which = signFlag ? "signing certificate" : "encryption certificate";
    ULONG size = 0;
    ULONG code = m_driver.exportCertificate(handleFromValue(container), signFlag, nullptr, &size);
    if (code != SAR_OK) {
        logFailure("SKF_ExportCertificate", code, QLatin1String(which));
        return QByteArray();
    }
    if (size == 0 || size > kMaxOutputSize) {
        logRefusal("exportCertificate", QStringLiteral("the driver gave the %1 a size of %2 bytes")
                                            .arg(QLatin1String(which))
                                            .arg(size));
        return QByteArray();
    }
    QByteArray certificate(int(size), '\0');
    ULONG filled = size;
    code = m_driver.exportCertificate(handleFromValue(container), signFlag,
                                      reinterpret_cast<BYTE *>(certificate.data()), &filled);
    if (code != SAR_OK) {
        logFailure("SKF_ExportCertificate", code, QLatin1String(which));
        return QByteArray();
    }
    certificate.truncate(int(qMin(filled, size)));
    return certificate;
}

bool KeyObject::verifyPin(QString pin, bool adminPin)
{
    if (!usable("verifyPin"))
        return false;
    QByteArray encoded = pin.toUtf8();
    wipePin(pin);
    ULONG triesLeft = 0;
    const ULONG code = m_driver.verifyPin(m_application, adminPin ? ADMIN_TYPE : USER_TYPE,
                                          encoded.data(), &triesLeft);
    // The PIN goes no further than the driver (core/pin_wipe.h).
    wipePin(encoded);
    if (code == SAR_OK)
        return true;

    const QString kind = QLatin1String(pinKind(adminPin));
    switch (code) {
    case SAR_PIN_INCORRECT:
        logFailure("SKF_VerifyPIN", code,
                   QStringLiteral("%1 tries left for the %2").arg(triesLeft).arg(kind),
                   long(triesLeft), adminPin);
        break;
    case SAR_PIN_LOCKED:
        logFailure("SKF_VerifyPIN", code, QStringLiteral("the %1 is locked").arg(kind), -1,
                   adminPin);
        break;
    case SAR_DEVICE_REMOVED:
        logFailure("SKF_VerifyPIN", code, QStringLiteral("the device is no longer there"), -1,
                   adminPin);
        break;
    default:
        logFailure("SKF_VerifyPIN", code, kind, -1, adminPin);
        break;
    }
    return false;
}

void KeyObject::releaseEverything()
{
    if (!m_device)
        return;
    for (auto it = m_keys.cbegin(); it != m_keys.cend(); ++it) {
        const ULONG code = m_driver.closeHandle(handleFromValue(it.key()));
        if (code != SAR_OK)
            logFailure("SKF_CloseHandle", code);
    }
    m_keys.clear();
    m_keyOrder.clear();
    for (qulonglong container : qAsConst(m_containers)) {
        const ULONG code = m_driver.closeContainer(handleFromValue(container));
        if (code != SAR_OK)
            logFailure("SKF_CloseContainer", code);
    }
    m_containers.clear();
    m_containerByName.clear();

    // Each step is tried even when an earlier one failed: a removed device still has a
    // connection in the driver to let go of.
    ULONG code = m_driver.clearSecureState(m_application);
    if (code != SAR_OK)
        logFailure("SKF_ClearSecureState", code);
    code = m_driver.closeApplication(m_application);
    if (code != SAR_OK)
        logFailure("SKF_CloseApplication", code);
    code = m_driver.disconnectDev(m_device);
    if (code != SAR_OK)
        logFailure("SKF_DisConnectDev", code);
    m_application = nullptr;
    m_device = nullptr;
}

void KeyObject::close()
{
    // A second close() is harmless: the plug-in's WebCloseKey may be called any number of times.
    releaseEverything();
}

qulonglong KeyObject::importSessionKey(qulonglong container, qulonglong algId, QByteArray blob,
                                       qulonglong blobLen)
{
    if (!knownContainer(container, "importSessionKey"))
        return 0;
    if (blobLen > qulonglong(blob.size())) {
        logRefusal(
            "importSessionKey",
            QStringLiteral("length %1 is past the %2-byte blob").arg(blobLen).arg(blob.size()));
        return 0;
    }
    if (blobLen > kMaxDriverLength || algId > kMaxDriverLength) {
        logRefusal("importSessionKey",
                   QStringLiteral("length %1 or algorithm 0x%2 does not fit in 32 bits")
                       .arg(blobLen)
                       .arg(algId, 0, 16));
        return 0;
    }
    QString unknownWidth;
    if (!m_driver.structureWidth(&unknownWidth)) {
        logRefusal("importSessionKey", unknownWidth);
        return 0;
    }
    HANDLE key = nullptr;
    const ULONG code = m_driver.importSessionKey(handleFromValue(container), ULONG(algId),
                                                 blob.left(int(blobLen)), &key);
    if (code != SAR_OK || !key) {
        logFailure("SKF_ImportSessionKey", code,
                   QStringLiteral("algorithm 0x%1, %2-byte blob").arg(algId, 0, 16).arg(blobLen));
        return 0;
    }
    const qulonglong handle = handleValue(key);
    m_keys.insert(handle, container);
    m_keyOrder.append(handle);
    if (m_keyOrder.size() > kSessionKeysKept)
        closeKey(m_keyOrder.first());
    return handle;
}

bool KeyObject::decryptInit(qulonglong key, QByteArray param)
{
    if (!knownKey(key, "decryptInit"))
        return false;
    QString error;
    const std::optional<BLOCKCIPHERPARAM> decoded = decodeBlockCipherRecord(param, &error);
    if (!decoded) {
        logRefusal("decryptInit", error);
        return false;
    }
    if (!m_driver.structureWidth(&error)) {
        logRefusal("decryptInit", error);
        return false;
    }
    const ULONG code = m_driver.decryptInit(handleFromValue(key), *decoded);
    if (code != SAR_OK) {
        logFailure("SKF_DecryptInit", code);
        return false;
    }
    return true;
}

QByteArray KeyObject::decrypt(qulonglong key, QByteArray data, qulonglong len)
{
    if (!knownKey(key, "decrypt"))
        return QByteArray();
    if (len > qulonglong(data.size()) || len > kMaxDriverLength) {
        logRefusal("decrypt",
                   QStringLiteral("length %1 is past the %2-byte data").arg(len).arg(data.size()));
        return QByteArray();
    }
    // The driver only reads the ciphertext. data() would copy it first, since the plug-in still
    // shares the array: a whole content's worth of memory and time for nothing.
    BYTE *input = const_cast<BYTE *>(reinterpret_cast<const BYTE *>(data.constData()));
    ULONG size = 0;
    ULONG code = m_driver.decrypt(handleFromValue(key), input, ULONG(len), nullptr, &size);
    if (code != SAR_OK) {
        logFailure("SKF_Decrypt", code, QStringLiteral("size query for %1 bytes").arg(len));
        return QByteArray();
    }
    if (size > kMaxOutputSize) {
        logRefusal("decrypt",
                   QStringLiteral("the driver asked for %1 bytes of plaintext").arg(size));
        return QByteArray();
    }
    // One spare byte keeps the buffer pointer valid when the driver announces an empty result.
    QByteArray plaintext(int(size) + 1, '\0');
    ULONG filled = size;
    code = m_driver.decrypt(handleFromValue(key), input, ULONG(len),
                            reinterpret_cast<BYTE *>(plaintext.data()), &filled);
    if (code != SAR_OK) {
        logFailure("SKF_Decrypt", code, QStringLiteral("%1 bytes").arg(len));
        return QByteArray();
    }
    if (filled > size) {
        logRefusal("decrypt", QStringLiteral("the driver wrote %1 bytes into a %2-byte buffer")
                                  .arg(filled)
                                  .arg(size));
        return QByteArray();
    }
    plaintext.resize(int(filled));
    return plaintext;
}

} // namespace zthost
