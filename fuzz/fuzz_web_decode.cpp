// This file feeds untrusted text to WebZtDecode, end to end: built plug-in, reference host,
// software key device.
//
// At start-up a device is provisioned in a temporary root, a host session loads the plug-in by
// path, and the scriptable object opens the key and verifies the PIN once. Each input is then the Base64 argument of one
// WebZtDecode call; the session reclaims the per-operation components after it, and the block
// agents the plug-in keeps are reclaimed too.
//
// Envelopes that really open can only be made for the device's key, which is new at every start:
// they are written into the first corpus folder on the command line (libFuzzer's output corpus)
// as "fresh-envelope-*", before libFuzzer reads it.
#include "fuzz_environment.h"
#include "fuzz_soft_key.h"
#include "kept_object_reclaimer.h"
#include "openssl_envelope.h"

#include "session/host_session.h"

#include <plugin_host/session_key_algorithm.h>

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QString>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr char kDevice[] = "fuzzdev";
constexpr char kUserPin[] = "fuzz-user-1357";
constexpr char kAdminPin[] = "fuzz-admin-2468";
constexpr char kContainer[] = "SM2Container";

struct Host
{
    std::unique_ptr<zthost::HostSession> session;
    std::unique_ptr<ztfuzz::KeptObjectReclaimer> reclaimer;
};
Host *g_host = nullptr;

[[noreturn]] void die(const QString &what)
{
    std::fprintf(stderr, "web decode fuzz: %s\n", qPrintable(what));
    std::abort();
}

QString decode(const QString &base64)
{
    const zthost::Invocation decoded = g_host->session->invoke(
        QStringLiteral("WebZtDecode"),
        {base64, QVariant::fromValue<qulonglong>(ZtSessionKey::kAlgorithmId)});
    if (!decoded.called)
        die(QStringLiteral("WebZtDecode cannot be called: %1").arg(decoded.error));
    return decoded.value.toString();
}

void writeFreshSeeds(const QString &folder, const QByteArray &certificate)
{
    const QList<QByteArray> contents = {
        QByteArrayLiteral("A"),
        QByteArrayLiteral("sixteen bytes!!!"),
        QByteArray(300, 'x'),
    };
    for (int i = 0; i < contents.size(); ++i) {
        const QByteArray envelope = makeEnvelopeWithOpenSsl(certificate, contents.at(i));
        if (envelope.isEmpty())
            die(QStringLiteral("no envelope could be made for the device's certificate"));
        QFile file(QDir(folder).filePath(QStringLiteral("fresh-envelope-%1").arg(i + 1)));
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)
            || file.write(envelope.toBase64()) < 0)
            die(QStringLiteral("cannot write %1").arg(file.fileName()));
        // Self-check: the harness is useless if a real envelope does not open.
        if (decode(QString::fromLatin1(envelope.toBase64())) != QString::fromLatin1(contents.at(i).toBase64()))
            die(QStringLiteral("a fresh envelope for the device does not decode"));
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    const QString temp = ztfuzz::prepareProcess(argc, argv);
    const QByteArray certificate =
        ztfuzz::provisionSoftKey(temp, {kDevice, kUserPin, kAdminPin, kContainer, 6});

    g_host = new Host;
    zthost::SessionOptions options;
    options.pluginPath = QStringLiteral(ZT_PLUGIN_PATH);
    options.skfDriverPath = QStringLiteral(ZT_SOFTSKF_DRIVER_PATH);
    options.hostLogPath = QStringLiteral("/dev/null");
    QString startError;
    g_host->session = zthost::HostSession::start(options, &startError);
    if (!g_host->session)
        die(startError);

    const zthost::Invocation opened = g_host->session->invoke(QStringLiteral("WebOpenKey"));
    const zthost::Invocation verified = g_host->session->invoke(
        QStringLiteral("WebVerifyPin"), {QString::fromLatin1(kUserPin)});
    if (!opened.value.toBool() || !verified.value.toBool())
        die(QStringLiteral("the key did not open or the PIN was refused"));
    g_host->reclaimer = std::make_unique<ztfuzz::KeptObjectReclaimer>(
        std::vector<std::string>{"ZtAsnBlockAgent"});

    const QString corpus = ztfuzz::firstCorpusFolder(*argc, *argv);
    if (!corpus.isEmpty())
        writeFreshSeeds(corpus, certificate);
    g_host->reclaimer->reclaim();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char *>(data), int(size));
    const QString answer = decode(text);
    if (answer != QLatin1String("false")) {
        const QByteArray plaintext = QByteArray::fromBase64(answer.toLatin1());
        if (plaintext.isEmpty() || plaintext.toBase64() != answer.toLatin1())
            die(QStringLiteral("WebZtDecode answered neither Base64 plaintext nor \"false\""));
    }
    g_host->reclaimer->reclaim();
    return 0;
}
