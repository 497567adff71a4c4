#include "decode_world.h"

#include "core/standard_components.h"

#include <softskf/provision.h>

#include <QFile>
#include <QMetaObject>

#include <openssl/bio.h>
#include <openssl/pem.h>

#include <cstdio>
#include <cstdlib>

using namespace zthost;

namespace {
const char kDevice[] = "bench-key";
const char kUserPin[] = "bench-user-2468";
const char kAdminPin[] = "bench-admin-1357";
const char kContainer[] = "SM2Container";
} // namespace

void benchFatal(const QString &what)
{
    std::fprintf(stderr, "zt_bench: %s\n", what.toLocal8Bit().constData());
    std::exit(2);
}

QByteArray patternedContent(int size)
{
    QByteArray content(size, Qt::Uninitialized);
    quint32 state = 0x9E3779B9u;
    for (int i = 0; i < size; ++i) {
        state = state * 1664525u + 1013904223u;
        content[i] = char(state >> 24);
    }
    return content;
}

DecodeWorld &DecodeWorld::instance()
{
    static DecodeWorld world;
    return world;
}

DecodeWorld::DecodeWorld()
{
    if (!m_root.isValid())
        benchFatal(QStringLiteral("no temporary folder for the key device"));
    const std::string root = m_root.path().toStdString();
    qputenv("SOFTSKF_ROOT", QFile::encodeName(m_root.path()));

    // The default PIN hardening, as a real device has it: its cost is paid once, at the PIN.
    softskf::DeviceOptions options;
    options.name = kDevice;
    options.userPin = kUserPin;
    options.adminPin = kAdminPin;
    options.containerName = kContainer;
    std::string error;
    if (!softskf::createDevice(root, options, &error))
        benchFatal(QString::fromStdString(error));

    std::vector<unsigned char> der;
    if (!softskf::getEncryptionCertificate(root, kDevice, kContainer, &der, &error))
        benchFatal(QString::fromStdString(error));
    m_certificate = QByteArray(reinterpret_cast<const char *>(der.data()), int(der.size()));

    std::string pem;
    if (!softskf::exportEncryptionPrivateKeyPem(root, kDevice, kContainer, kUserPin, &pem, &error))
        benchFatal(QString::fromStdString(error));
    BIO *bio = BIO_new_mem_buf(pem.data(), int(pem.size()));
    m_privateKey.reset(PEM_read_bio_PrivateKey(bio, nullptr, nullptr, nullptr));
    BIO_free(bio);
    if (!m_privateKey)
        benchFatal(QStringLiteral("the device's private key does not read back"));

    m_core = std::make_unique<HostCore>();
    StandardComponentOptions components;
    components.skfDriverPath = QStringLiteral(ZT_SOFTSKF_DRIVER_PATH);
    registerStandardComponents(*m_core, components);

    QString loadError;
    m_plugin = PluginLoader::load(QStringLiteral(ZT_PLUGIN_PATH), &loadError);
    if (!m_plugin || !m_plugin->initialize(m_core.get(), &loadError))
        benchFatal(loadError);
    m_crypto = m_plugin->createScriptableObject();
    if (!m_crypto)
        benchFatal(QStringLiteral("the plug-in made no scriptable object"));

    bool opened = false;
    QMetaObject::invokeMethod(m_crypto, "WebOpenKey", Qt::DirectConnection,
                              Q_RETURN_ARG(bool, opened));
    bool verified = false;
    QMetaObject::invokeMethod(m_crypto, "WebVerifyPin", Qt::DirectConnection,
                              Q_RETURN_ARG(bool, verified),
                              Q_ARG(QString, QString::fromLatin1(kUserPin)));
    if (!opened || !verified)
        benchFatal(QStringLiteral("the key did not open (%1) or the PIN was refused (%2)")
                       .arg(opened)
                       .arg(verified));
    m_core->reclaim();
}

QString DecodeWorld::decode(const QString &base64Envelope)
{
    QString plaintext;
    QMetaObject::invokeMethod(m_crypto, "WebZtDecode", Qt::DirectConnection,
                              Q_RETURN_ARG(QString, plaintext), Q_ARG(QString, base64Envelope),
                              Q_ARG(qulonglong, qulonglong(0x401)));
    m_core->reclaim();
    return plaintext;
}

QString DecodeWorld::envelopeText(const QByteArray &content) const
{
    const QByteArray envelope = makeEnvelopeWithOpenSsl(m_certificate, content);
    if (envelope.isEmpty())
        benchFatal(QStringLiteral("OpenSSL made no envelope of %1 bytes").arg(content.size()));
    return QString::fromLatin1(envelope.toBase64());
}
