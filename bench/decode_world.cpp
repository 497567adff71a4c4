#include "decode_world.h"

#include <plugin_host/session_key_algorithm.h>
#include <softskf/provision.h>

#include <QFile>

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

QString DecodeWorld::userPin()
{
    return QString::fromLatin1(kUserPin);
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
    const std::string root = QFile::encodeName(m_root.path()).toStdString();

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

    SessionOptions session;
    session.pluginPath = QStringLiteral(ZT_PLUGIN_PATH);
    session.skfDriverPath = QStringLiteral(ZT_SOFTSKF_DRIVER_PATH);
    session.softKeyRoot = m_root.path();
    QString startError;
    m_session = HostSession::start(session, &startError);
    if (!m_session)
        benchFatal(startError);

    const Invocation opened = m_session->invoke(QStringLiteral("WebOpenKey"));
    const Invocation verified =
        m_session->invoke(QStringLiteral("WebVerifyPin"), {QString::fromLatin1(kUserPin)});
    if (!opened.value.toBool() || !verified.value.toBool())
        benchFatal(QStringLiteral("the key did not open (%1) or the PIN was refused (%2)")
                       .arg(opened.value.toBool())
                       .arg(verified.value.toBool()));
}

QString DecodeWorld::decode(const QString &base64Envelope)
{
    return m_session
        ->invoke(QStringLiteral("WebZtDecode"),
                 {base64Envelope, QVariant::fromValue<qulonglong>(ZtSessionKey::kAlgorithmId)})
        .value.toString();
}

QString DecodeWorld::envelopeText(const QByteArray &content) const
{
    const QByteArray envelope = makeEnvelopeWithOpenSsl(m_certificate, content);
    if (envelope.isEmpty())
        benchFatal(QStringLiteral("OpenSSL made no envelope of %1 bytes").arg(content.size()));
    return QString::fromLatin1(envelope.toBase64());
}
